// The macro calls of a watched run, step by step.
#pragma once

#include "cpp/report/observed.h"

namespace kv::cpp::observe {

/// Puts those calls into `run` that are worth looking at; what is known of macros must be there.
void finish_calls(observed_run& run);

}  // namespace kv::cpp::observe
