// Control lines: the directives, and the stack of conditional groups that decides which text is
// kept.
#pragma once

namespace kv::cpp {

/// Whether text is being compiled; false inside a skipped group.
extern bool compiling;
/// Between #asm and #endasm.
extern bool in_asm;

/// Carries out the control line whose `#` has just been read. Takes the number of newlines consumed
/// but not yet written and returns the new number, the control line's own newline included.
int control_line(int pending);

/// Under the assembler mode, with reading at the start of a text line: replaces an IFDEF or IFNDEF
/// of the assembler by its own `if 1` or `if 0`, decided by the macro table.
void asm_ifdef_rewrite();

/// Whether `n` more conditional groups can be opened inside one another.
bool groups_fit(int n);

/// Whether a conditional group is open; `line` becomes that of the outermost one.
bool outermost_open_group(int& line);

}  // namespace kv::cpp
