// What decides which text is kept and how it is read: the stack of conditional groups, and whether
// it is the assembler's.
#pragma once

#include <cstddef>

#include "cpp/scoped_flag.h"
#include "cpp/settings.h"

namespace kv::cpp {

/// Whether text is being compiled; false inside a skipped group.
extern bool compiling;
/// Between #asm and #endasm.
extern bool in_asm;
void set_in_asm(bool on);

/// While one exists, what is read belongs to a control line.
class control_line_scope : public scoped_flag<control_line_scope> {};

/// Whether a comment that is read now is copied to the output.
inline bool copies_comments() {
  return settings.keep_comments && compiling && !control_line_scope::on();
}

/// The room for conditional groups inside one another, the text outside of all counted.
inline constexpr std::size_t cond_entries = 32;

/// Whether `n` more conditional groups can be opened inside one another.
bool groups_fit(int n);

/// Whether a conditional group is open; `line` becomes that of the outermost one.
bool outermost_open_group(int& line);

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
/// Makes the current line the one that the innermost group is reported by.
void move_group();
/// Ends the innermost group.
void close_group();

}  // namespace kv::cpp
