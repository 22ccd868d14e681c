#include "cpp/settings.h"

namespace kv::cpp {

constinit run_settings settings;

}  // namespace kv::cpp
