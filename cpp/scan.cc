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

// The units of the identifier being gathered that count for its length.
std::size_t significant_len = 0;

// Lane: takes the part of an identifier that lies ahead in the frame on top; a line's newline or a
// text's zero ends it.
template <class Unit>
void take_id_run(Unit*& from) {
  auto* const p = const_cast<Unit*>(lane::end_of_run(static_cast<const Unit*>(from)));
  const std::size_t room = settings.ident_max - significant_len;
  const auto run = static_cast<std::size_t>(p - from);
  const std::size_t kept = run < room ? run : room;
  for (std::size_t i = 0; i < kept; ++i) token_buf[token_len + i] = from[i];
  token_len += kept;
  significant_len += kept;
  from = p;
}

void take_id_lane() {
  input_frame* f = cur_frame;
  if (!lanes || f == nullptr) return;
  if (f->rdptr != f->line_end) {
    take_id_run(f->rdptr);
  } else if (f->file == nullptr) {
    take_id_run(f->txptr);
  }
}

}  // namespace

unit* token_buf = nullptr;
std::size_t token_len = 0;
std::array<unit, work_size> work_buf;
std::size_t work_len = 0;

void set_ident_max(unsigned significant) {
  settings.ident_max = significant;
  std::free(token_buf);
  // Every significant unit can have a mark before it, and the zero, too.
  token_buf = static_cast<unit*>(checked_alloc((2 * std::size_t{significant} + 2) * sizeof(unit)));
  token_len = 0;
}

namespace {

// Lane: passes over what lies ahead of a skipped line and cannot matter.
void skip_idle_text() {
  input_frame* f = cur_frame;
  if (!lanes || f == nullptr || f->rdptr == f->line_end || settings.cmode_asm) return;
  f->rdptr = lane::find_skipped_end(f->rdptr, f->line_end - 1);
}

void drop(int /*c*/) {}

// Stores the next unit of an identifier if it has room for it. One mark tells as much as several.
void store_id_unit(int c) {
  if (significant_len == settings.ident_max) return;
  if (c != MARK_NOEXPAND) {
    ++significant_len;
  } else if (token_len != 0 && token_buf[token_len - 1] == MARK_NOEXPAND) {
    return;
  }
  token_buf[token_len++] = static_cast<unit>(c);
}

}  // namespace

void skip_line(int c) {
  while (!ends_line(c)) {
    if (char_class(c) == CT_QUOTE && literal_closes(c)) scan_string(c, drop);
    skip_idle_text();
    c = get();
  }
}

void scan_id(int c) {
  token_len = significant_len = 0;
  do {
    store_id_unit(c);
    take_id_lane();
    c = get();
  } while (continues_id(c));
  unget();
  token_buf[token_len] = 0;
}

void set_token(const unit* text) {
  str16_copy(token_buf, text);
  token_len = str16_len(text);
}

void lower_token() {
  str16_lower(token_buf);
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

const unit* token_text() {
  const unit* t = token_buf;
  while (*t == MARK_NOEXPAND || *t == MARK_EXP_END) ++t;
  return t;
}

void work_overflow() {
  work_buf[work_size - 1] = 0;
  alert_msg_fatal(156, alert_str(work_buf.data()));
}

const unit* work_end() {
  work_save(0);
  --work_len;
  return work_buf.data();
}

const unit* work_rest_of_line(int c) {
  begin_work();
  for (; !ends_line(c); c = get()) work_save(c);
  unget();
  return work_end();
}

}  // namespace kv::cpp
