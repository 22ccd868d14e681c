#include "cpp/conditions.h"

#include "common/alert.h"
#include "cpp/frames.h"
#include "cpp/linesync.h"
#include "cpp/report/observe.h"

namespace kv::cpp {

bool conditions::groups_fit(int n) {
  return n <= &cond_stack_.back() - cond_top_;
}

void conditions::open_group(bool live) {
  if (!groups_fit(1)) alert_msg_fatal(144);
  *++cond_top_ = {live, false, false, cur_line};
  if (observing) observe::group_opened(live);
}

void conditions::choose_branch(bool chosen) {
  compiling_ = chosen;
  if (chosen) cond_top_->taken = true;
  if (observing) observe::branch_decided(chosen);
}

bool conditions::group_is_open() {
  return cond_top_ != cond_stack_.data();
}

bool conditions::else_fits() {
  return group_is_open() && !cond_top_->else_seen;
}

bool conditions::elif_decides() {
  return cond_top_->live && !cond_top_->taken;
}

void conditions::enter_else() {
  cond_top_->else_seen = true;
  if (cond_top_->live) compiling_ = !cond_top_->taken && !compiling_;
  if (observing) observe::else_entered();
}

void conditions::move_group() {
  cond_top_->line = cur_line;
}

void conditions::close_group() {
  const bool live = cond_top_->live;
  if (live && !compiling_) line_sync::renumber();
  compiling_ = live;
  --cond_top_;
  if (observing) observe::group_closed();
}

bool conditions::outermost_open_group(int& line) {
  if (!group_is_open()) return false;
  line = cond_stack_[1].line;
  return true;
}

}  // namespace kv::cpp
