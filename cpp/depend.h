// The dependency output of -L: one line a file, or a make rule, written at exit from the table of
// included files.
#pragma once

#include <cstdint>

namespace kv::cpp {

/// Writes one included file (`value`, a const char* path) to the dependency output; the head of a
/// gcc-style rule goes before the first. A call-back of hash_visit: the context and the key are not
/// used, and it returns 0 so that the visit goes on.
int write_dep(void* context, std::uintptr_t key, std::uintptr_t value);

/// The rule's first target: the output-file argument, or null when there is none.
extern const char* dep_target;

/// Set while dependency output is wanted and standard output is bound.
extern bool dep_output;

}  // namespace kv::cpp
