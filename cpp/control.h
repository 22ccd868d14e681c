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

// What the lane of control lines does by itself, or hands on, once it has read a directive's word.

/// Whether there is room for one more conditional group.
bool group_fits();
/// Opens a conditional group at the current line; `live` tells that text is compiled up to there.
/// Fatal 144 without room.
void open_group(bool live);
/// Makes `chosen` the fate of the branch that begins here.
void choose_branch(bool chosen);
/// Whether #else or #elif has a place here.
bool else_fits();
/// Whether the condition of an #elif is to be evaluated: the group is live and has chosen no
/// branch.
bool elif_decides();
/// Turns to the #else branch of the group, which must have a place here.
void enter_else();
/// Whether a group is open that #endif can close.
bool group_is_open();
/// Ends the innermost group.
void close_group();
/// Carry out an #if, #elif or #include line with its word read. Take and return the count of
/// control_line(); the rest of an #include line is read behind the file.
int do_if(int pending);
int do_elif(int pending);
int do_include_line(int pending);

}  // namespace kv::cpp
