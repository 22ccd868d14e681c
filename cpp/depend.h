// What make wants to know: the dependency output of -L, one line a file or a rule, written at exit
// in the place of the text; and the rule of --dep=, in a file of its own beside the text. Both list
// the headers that were opened.
#pragma once

namespace kv::cpp {

/// With the output bound: dependencies are listed there at the end if -L wants them. `target` is
/// the first target of a rule, the output-file argument, or null when there is none; it lives for
/// the run.
void dep_start(const char* target);

/// Writes what -L lists, once.
void dep_write_list();

/// Whether the run lists the headers that it opens.
bool dep_lists_headers();

/// Adds a target to the rule of --dep=; `name` lives for the run. Without any it is that of
/// dep_start().
void dep_add_target(const char* name);

/// Opens the file of --dep=, if there is one, without touching what it holds. Raises 141 (fatal)
/// when it cannot be opened or is another file of the run.
void dep_open_rule();

/// Writes the rule and closes its file, or closes it as it was where the run has not `succeeded`.
void dep_end_rule(bool succeeded);

}  // namespace kv::cpp
