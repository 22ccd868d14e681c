// The start-up macros and the command line.
#pragma once

namespace kv::cpp {

/// Enters __STDC__, __LINE__, __FILE__, __DATE__ and __TIME__. The last two tell the time now, or
/// that of the environment variable SOURCE_DATE_EPOCH; a value that is none is an error.
void define_startup_macros();

/// Applies the options in command-line order and moves the file arguments down to argv[1],
/// argv[2]...; an output named by -o becomes the second of them, behind "-" where there is no
/// first. Returns 1 plus their number. Raises 110 and 168, the warnings 166, 167, 177 and 1447
/// and the fatal 147, 1448 and 1449. `cmd_file_arg` is the command-file argument if the arguments
/// came from one, else null; the trace shows it.
int parse_options(int argc, char** argv, const char* cmd_file_arg);

/// Names the primary input `path`, unless an option has named it.
void name_source(const char* path);

}  // namespace kv::cpp
