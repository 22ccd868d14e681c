#include "cpp/conditions.h"

#include <array>
#include <cstdint>

#include "common/alert.h"
#include "cpp/frames.h"
#include "cpp/linesync.h"
#include "cpp/observe.h"

namespace kv::cpp {

bool compiling = true;
bool in_asm = false;

void set_in_asm(bool on) {
  in_asm = on;
}

namespace {

enum : std::uint8_t {
  COND_LIVE = 1,       // opened while text was being compiled
  COND_ELSE_SEEN = 2,  // its #else has been read
  COND_TAKEN = 4,      // one of its branches has been chosen
};

struct cond_entry {
  std::uint8_t flags;
  std::int32_t line;
};

// Entries 1 to 31 are the open groups, outermost first; entry 0 is never a group.
std::array<cond_entry, cond_entries> cond_stack;
cond_entry* cond_top = cond_stack.data();

}  // namespace

bool groups_fit(int n) {
  return n <= &cond_stack.back() - cond_top;
}

void open_group(bool live) {
  if (!groups_fit(1)) alert_msg_fatal(144);
  *++cond_top = {static_cast<std::uint8_t>(live ? COND_LIVE : 0), cur_line};
  if (observing) observe::group_opened(live);
}

void choose_branch(bool chosen) {
  compiling = chosen;
  if (chosen) cond_top->flags |= COND_TAKEN;
  if (observing) observe::branch_decided(chosen);
}

bool group_is_open() {
  return cond_top != cond_stack.data();
}

bool else_fits() {
  return group_is_open() && (cond_top->flags & COND_ELSE_SEEN) == 0;
}

bool elif_decides() {
  return (cond_top->flags & (COND_LIVE | COND_TAKEN)) == COND_LIVE;
}

void enter_else() {
  cond_top->flags |= COND_ELSE_SEEN;
  if ((cond_top->flags & COND_LIVE) != 0) {
    compiling = (cond_top->flags & COND_TAKEN) == 0 && !compiling;
  }
  if (observing) observe::else_entered();
}

void move_group() {
  cond_top->line = cur_line;
}

void close_group() {
  const bool live = (cond_top->flags & COND_LIVE) != 0;
  if (live && !compiling) line_sync::renumber();
  compiling = live;
  --cond_top;
  if (observing) observe::group_closed();
}

bool outermost_open_group(int& line) {
  if (!group_is_open()) return false;
  line = cond_stack[1].line;
  return true;
}

}  // namespace kv::cpp
