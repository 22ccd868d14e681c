// The report of a run as JSON, as docs/report.md describes it.
#pragma once

#include <string>

#include "cpp/observed.h"

namespace kv::cpp {

/// The version of the layout. A field that is added leaves it as it is; one that goes or changes
/// its meaning raises it.
inline constexpr int report_version = 1;

/// The whole report, one line of ASCII that ends with a newline.
std::string report_json(const observed_run& run);

}  // namespace kv::cpp
