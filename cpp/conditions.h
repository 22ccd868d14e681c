// What decides which text is kept and how it is read: the stack of conditional groups, and whether
// it is the assembler's.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "cpp/scoped_flag.h"
#include "cpp/settings.h"

namespace kv::cpp {

/// While one exists, what is read belongs to a control line.
class control_line_scope : public scoped_flag<control_line_scope> {};

/// The room for conditional groups inside one another, the text outside of all counted.
inline constexpr std::size_t cond_entries = 32;

class conditions {
 public:
  /// Whether text is being compiled; false inside a skipped group.
  static bool compiling() { return compiling_; }

  /// Between #asm and #endasm.
  static bool in_asm() { return in_asm_; }
  static void set_in_asm(bool on) { in_asm_ = on; }

  /// Whether a comment that is read now is copied to the output.
  static bool copies_comments() {
    return settings.keep_comments && compiling_ && !control_line_scope::on();
  }

  /// Whether `n` more conditional groups can be opened inside one another.
  static bool groups_fit(int n);

  /// Whether a conditional group is open; `line` becomes that of the outermost one.
  static bool outermost_open_group(int& line);

  /// Opens a conditional group at the current line; `live` tells that text is compiled up to there.
  /// Fatal 144 without room.
  static void open_group(bool live);
  /// Makes `chosen` the fate of the branch that begins here.
  static void choose_branch(bool chosen);
  /// Whether #else or #elif has a place here.
  static bool else_fits();
  /// Whether the condition of an #elif is to be evaluated: the group is live and has chosen no
  /// branch.
  static bool elif_decides();
  /// Turns to the #else branch of the group, which must have a place here.
  static void enter_else();
  /// Whether a group is open that #endif can close.
  static bool group_is_open();
  /// Makes the current line the one that the innermost group is reported by.
  static void move_group();
  /// Ends the innermost group.
  static void close_group();

 private:
  struct cond_entry {
    bool live;       // opened while text was being compiled
    bool else_seen;  // its #else has been read
    bool taken;      // one of its branches has been chosen
    std::int32_t line;
  };

  static inline constinit bool compiling_ = true;
  static inline constinit bool in_asm_ = false;
  // Entries 1 to 31 are the open groups, outermost first; entry 0 is never a group.
  static inline constinit std::array<cond_entry, cond_entries> cond_stack_ = {};
  static inline constinit cond_entry* cond_top_ = cond_stack_.data();
};

}  // namespace kv::cpp
