// Macro definition: #define, #undef and the -dM dump.
//
// A definition is encoded once, here, so that expansion needs no second parse: parameters become
// references, `#` and `##` markers, and the macro's own name is fenced off from the rescan.
#pragma once

namespace kv::cpp {

class calm_line;

/// Reads the rest of a #define line, up to but not including its newline, and enters the macro.
/// Raises 112, 113, the warnings 111, 137 and 138 and the fatal 148, 149 and 156.
void do_define();

/// The same for a line that is read ahead of the reader. Returns false, with nothing done, where
/// the line must be read by do_define(): it is not calm, or a message would be due.
bool define_calmly(calm_line& in);

/// Reads the name of an #undef line and removes the macro. Raises 114.
void do_undef();

/// Writes every macro with a body to standard output as a #define line, in the order of the chains.
void dump_defines();

}  // namespace kv::cpp
