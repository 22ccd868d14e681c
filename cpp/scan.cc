// Each scanner reads until a unit no longer belongs to its token and steps back over that one. The
// lanes in here take what lies ahead in the buffer of the frame on top and leave the end of the
// token to get().
#include "cpp/scan.h"

#include <cstdlib>
#include <cstring>

#include "common/alert.h"
#include "common/alloc.h"
#include "common/str16.h"
#include "cpp/lanes.h"
#include "cpp/passing.h"
#include "cpp/reader.h"
#include "cpp/settings.h"
#include "cpp/token.h"

namespace kv::cpp {

namespace {

// Lane: passes over what lies ahead of a skipped line and cannot matter.
void skip_idle_text() {
  input_frame* f = cur_frame;
  if (!lanes || f == nullptr || f->rdptr == f->line_end || settings.cmode_asm) return;
  f->rdptr = lane::find_skipped_end(f->rdptr, f->line_end - 1);
}

void drop(int /*c*/) {}

}  // namespace

void skip_line(int c) {
  while (!ends_line(c)) {
    if (char_class(c) == CT_QUOTE && literal_closes(c)) scan_string(c, drop);
    skip_idle_text();
    c = get();
  }
}

void scan_number(int c, output_routine out) {
  read_input input;
  take_number(input, c, out);
}

bool scan_string(int q, output_routine out) {
  read_input input;
  if (take_literal(input, q, out) == q) {
    out(q);
    return true;
  }
  unget();
  return false;
}

void token_buf::make_room() {
  std::free(units_);
  // Every significant unit can have a mark before it, and the zero, too.
  const std::size_t units = 2 * std::size_t{settings.ident_max} + 2;
  units_ = static_cast<unit*>(checked_alloc(units * sizeof(unit)));
  len_ = 0;
}

void token_buf::begin() {
  len_ = significant_len_ = 0;
}

// Stores the next unit of an identifier if it has room for it. One mark tells as much as several.
void token_buf::store(int c) {
  if (significant_len_ == settings.ident_max) return;
  if (c != MARK_NOEXPAND) {
    ++significant_len_;
  } else if (len_ != 0 && units_[len_ - 1] == MARK_NOEXPAND) {
    return;
  }
  units_[len_++] = static_cast<unit>(c);
}

// Lane: takes the part of an identifier that lies ahead in the frame on top; a line's newline or a
// text's zero ends it.
template <class Unit>
void token_buf::take_run(Unit*& from) {
  auto* const p = const_cast<Unit*>(lane::end_of_run(static_cast<const Unit*>(from)));
  const std::size_t room = settings.ident_max - significant_len_;
  const auto run = static_cast<std::size_t>(p - from);
  const std::size_t kept = run < room ? run : room;
  for (std::size_t i = 0; i < kept; ++i) units_[len_ + i] = from[i];
  len_ += kept;
  significant_len_ += kept;
  from = p;
}

void token_buf::take_lane() {
  input_frame* f = cur_frame;
  if (!lanes || f == nullptr) return;
  if (f->rdptr != f->line_end) {
    take_run(f->rdptr);
  } else if (f->file == nullptr) {
    take_run(f->txptr);
  }
}

void token_buf::end() {
  units_[len_] = 0;
}

void scan_id(int c) {
  token_buf::begin();
  do {
    token_buf::store(c);
    token_buf::take_lane();
    c = get();
  } while (continues_id(c));
  unget();
  token_buf::end();
}

void token_buf::set(const unit* text) {
  str16_copy(units_, text);
  len_ = str16_len(text);
}

void token_buf::lower() {
  str16_lower(units_);
}

const unit* token_buf::bare_text() {
  const unit* t = units_;
  while (*t == MARK_NOEXPAND || *t == MARK_EXP_END) ++t;
  return t;
}

void work_buf::overflow() {
  units_[size - 1] = 0;
  alert_msg_fatal(156, alert_str(units_.data()));
}

const unit* work_buf::text() {
  save(0);
  --len_;
  return units_.data();
}

const unit* work_buf::rest_of_line(int c) {
  clear();
  for (; !ends_line(c); c = get()) save(c);
  unget();
  return text();
}

}  // namespace kv::cpp
