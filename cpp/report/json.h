// The report of a run as JSON, as docs/report.md describes it.
#pragma once

namespace kv {
class json_writer;
}

namespace kv::cpp {

struct observed_run;

/// The version of the layout. A field that is added leaves it as it is; one that goes or changes
/// its meaning raises it.
inline constexpr int report_version = 1;

/// Writes the whole report, one line of ASCII without the newline.
void write_report(json_writer& j, const observed_run& run);

}  // namespace kv::cpp
