// The rows of the HTML macro report.
#pragma once

namespace kv::cpp {

struct symbol;

/// Opens the report on `path` (--udf=) and sets up its frames. Returns whether it is open. Fatal
/// when `path` cannot be created.
bool macro_report_open(const char* path);

/// Writes the command line, the section after the options have been read.
void macro_report_command_line(int argc, char* const* argv);

/// Begins the symbol table section and writes a row for every macro defined so far.
void macro_report_table();

/// Writes one row. Called for each definition and each expansion while the report is open.
void macro_report_row(const symbol* sym);

/// Completes the report; only a run without errors does.
void macro_report_close();

/// Closes the report as it is, if there is one that is not complete.
void macro_report_end();

}  // namespace kv::cpp
