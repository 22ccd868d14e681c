// The rows of the HTML macro report.
#pragma once

namespace kv::cpp {

struct symbol;

/// Opens the report on `path` (--udf=) and sets up its frames. Returns whether it is open. Fatal
/// when `path` cannot be created.
bool report_open(const char* path);

/// Writes the command line, the section after the options have been read.
void report_command_line(int argc, char* const* argv);

/// Begins the symbol table section and writes a row for every macro defined so far.
void report_table();

/// Writes one row. Called for each definition and each expansion while the report is open.
void report_macro(const symbol* sym);

/// Completes the report; only a run without errors does.
void report_close();

/// Closes the report as it is, if there is one that is not complete.
void report_end();

}  // namespace kv::cpp
