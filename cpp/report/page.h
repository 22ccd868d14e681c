// The file of --report=: the page, or the JSON alone.
#pragma once

#include <string_view>

namespace kv::cpp {

struct observed_run;

/// Opens the report `path`, which is kept by reference; the last one opened counts. Raises 141
/// (fatal) where it cannot be written.
void page_open(const char* path);

/// Whether a report was asked for.
bool page_is_open();

/// Writes the report and closes it: JSON where the path ends in ".json", else the page. What cannot
/// be written is told, and makes the run fail.
void page_write(const observed_run& run);

}  // namespace kv::cpp
