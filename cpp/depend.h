// What make wants to know: the dependency output of -L, one line a file or a rule, written at exit
// in the place of the text; and the rule of --dep=, in a file of its own beside the text. Both list
// the table of included files.
#pragma once

#include <cstdint>

namespace kv::cpp {

/// Writes one included file (`value`, a const char* path) to the dependency output; the head of a
/// gcc-style rule goes before the first. A call-back of hash_visit: the context and the key are not
/// used, and it returns 0 so that the visit goes on.
int write_dep(void* context, std::uintptr_t key, std::uintptr_t value);

/// The first target of a rule: the output-file argument, or null when there is none.
extern const char* dep_target;

/// Set while dependency output is wanted and standard output is bound.
extern bool dep_output;

/// Whether the run lists the headers that it opens.
bool dep_lists_headers();

/// Adds a target to the rule of --dep=; `name` lives for the run. Without any it is dep_target.
void dep_add_target(const char* name);

/// Opens the file of --dep=, if there is one, without touching what it holds. Raises 141 (fatal)
/// when it cannot be opened or is another file of the run.
void dep_open_rule();

/// Writes the rule and closes its file, or closes it as it was where the run has not `succeeded`.
void dep_end_rule(bool succeeded);

}  // namespace kv::cpp
