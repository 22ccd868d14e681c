// Control lines make up a large part of what a compiler reads, and most of them belong to headers
// that are read for the second time. The lines of a file that are calm are taken here as they lie
// in its block, ahead of the reader. A line is looked at to its end before anything is changed, and
// one that refuses is left to the main loop and the reader whole. #if, #elif and #include are
// handed on once their word has been read.
#include "cpp/calmlines.h"

#include "cpp/calmline.h"
#include "cpp/conditions.h"
#include "cpp/define.h"
#include "cpp/directives.h"
#include "cpp/lanes.h"
#include "cpp/lines.h"
#include "cpp/linesync.h"
#include "cpp/passing.h"
#include "cpp/reader.h"
#include "cpp/report/observe.h"
#include "cpp/scan.h"
#include "cpp/settings.h"
#include "cpp/source.h"
#include "cpp/symtab.h"
#include "cpp/token.h"

namespace kv::cpp {

namespace {

// How far a line has been taken.
enum class outcome {
  refused,  // nothing has been done
  done,     // all of it; the newline is left
  read_on,  // it has been read to its end, and its newline counted
};

outcome done_if(bool done) {
  return done ? outcome::done : outcome::refused;
}

// Whether nothing stands on the rest of the line.
bool ends_here(calm_line& in) {
  return skip_white(in) == '\n' && !in.refused();
}

// A directive that takes a name and nothing else: reads it. Returns false where the line refuses.
bool lone_name(calm_line& in, calm_line::word& name) {
  const int c = skip_white(in);
  if (char_class(c) != CT_LETTER) return false;
  name = in.scan_word(c);
  return ends_here(in);
}

bool open_name_group(calm_line& in, bool wants_defined) {
  calm_line::word name;
  if (!conditions::groups_fit(1) || !lone_name(in, name)) return false;
  const symbol* const sym = sym_find(name.start, name.len);
  const bool known = sym != nullptr && sym->disable == 0;
  if (observing) observe::name_tested(name.start, name.len, known);
  conditions::open_group(true);
  conditions::choose_branch(known == wants_defined);
  return true;
}

bool undefine(calm_line& in) {
  calm_line::word name;
  if (!lone_name(in, name)) return false;
  symbol* const sym = sym_find(name.start, name.len);
  if (sym != nullptr) sym_remove(sym);
  return true;
}

bool turn_to_else(calm_line& in) {
  if (!conditions::else_fits() || !ends_here(in)) return false;
  conditions::enter_else();
  return true;
}

bool end_group(calm_line& in) {
  if (!conditions::group_is_open() || !ends_here(in)) return false;
  conditions::close_group();
  return true;
}

bool pass_over_elif(calm_line& in) {
  if (!in.skip_rest()) return false;
  conditions::choose_branch(false);
  return true;
}

bool skip_directive(calm_line& in, role what) {
  const bool opens = opens_group(what);
  if ((opens && !conditions::groups_fit(1)) || !in.skip_rest()) return false;
  if (opens) conditions::open_group(false);
  return true;
}

// Hands a directive on to what reads behind its word, which ends at `behind`. That may raise
// messages, which show the line, so there must be no comment that would have left its trace in it.
outcome hand_on(const directive& d, unsigned char* behind, bool nothing_before) {
  if (!nothing_before || !lane::is_calm(behind)) return outcome::refused;
  cur_frame->rdptr = behind;
  d.carry_out();
  return outcome::read_on;
}

// The control line whose `#` stands before `behind_mark`.
outcome take_control_line(unsigned char* behind_mark, unsigned char* newline_at) {
  calm_line in(behind_mark, newline_at);
  const int c = skip_white(in);
  if (in.refused()) return outcome::refused;
  if (c == '\n') return outcome::done;
  if (char_class(c) != CT_LETTER) return outcome::refused;
  const calm_line::word word = in.scan_word(c);
  const directive* const d = find_directive(word.start, word.len);
  if (d == nullptr) return outcome::refused;
  if (observing) observe::directive_read(d->what, in.at());
  const bool hands_on =
      conditions::compiling() ? d->what == role::opens_if || d->what == role::include : false;
  if (hands_on ||
      (d->what == role::elif && conditions::else_fits() && conditions::elif_decides())) {
    return hand_on(*d, in.at(), lane::skip_blanks(behind_mark) == word.start);
  }
  switch (d->what) {
    case role::else_: return done_if(turn_to_else(in));
    case role::closes: return done_if(end_group(in));
    case role::elif: return done_if(conditions::else_fits() && pass_over_elif(in));
    default: break;
  }
  if (!conditions::compiling()) return done_if(skip_directive(in, d->what));
  switch (d->what) {
    case role::define: return done_if(define_calmly(in));
    case role::undef: return done_if(undefine(in));
    case role::opens_ifdef: return done_if(open_name_group(in, true));
    case role::opens_ifndef: return done_if(open_name_group(in, false));
    default: return outcome::refused;
  }
}

// The line from `p` on, where its blanks end.
outcome take_line(unsigned char* p, unsigned char* newline_at) {
  if (p == newline_at || (*p == '\r' && p + 1 == newline_at)) return outcome::done;
  if (*p == '#') {
    const control_line_scope scope;
    return take_control_line(p + 1, newline_at);
  }
  // Whether it is a control line shows at sight only where the first unit is plain.
  if (conditions::compiling() || !plain::in_file(*p)) return outcome::refused;
  return done_if(calm_line(p, newline_at).skip_rest());
}

// Whether it shows at sight that the line beginning at `p`, in a skipped group, matters only by
// what find_skipped_end() finds in it: an empty one, text whose first unit is plain, most
// directives.
bool is_idle_line(unsigned char* p) {
  if (*p != '#') return *p == '\n' || plain::in_file(*p);
  const unsigned char* const word = lane::skip_blanks(p + 1);
  const unsigned char* const end = lane::end_of_run(word);
  const directive* const d = find_directive(word, static_cast<std::size_t>(end - word));
  return d != nullptr && is_idle_when_skipped(d->what) && lane::is_calm(end);
}

// With the line of `f` used up: passes over lines of a skipped group that lie whole in the block,
// up to one that needs a closer look.
void skip_lines_ahead(input_frame* f) {
  unsigned char* const limit = ahead_limit(f);
  if (limit == nullptr) return;
  unsigned char* last = nullptr;
  unsigned char* line = f->line_end;
  int count = 0;
  for (;;) {
    unsigned char* p = lane::skip_blanks(line);
    if (p >= limit || !is_idle_line(p)) break;
    p = lane::find_skipped_end(p, limit);
    if (p == limit || *p != '\n' || p - line >= line_capacity) break;
    last = line;
    line = p + 1;
    ++count;
  }
  if (count == 0) return;
  pass_over_lines(f, last, line, count);
  line_sync::hold(count);
}

}  // namespace

void take_calm_lines() {
  if (!lanes || conditions::in_asm() || settings.cmode_asm) return;
  for (;;) {
    input_frame* f = cur_frame;
    if (f == nullptr) return;
    if (!conditions::compiling() && at_line_end(f)) skip_lines_ahead(f);
    if (f->rdptr == f->line_end && !(at_line_end(f) ? load_line(f) : load_first_line())) return;
    unsigned char* const newline_at = f->line_end - 1;
    f->rdptr = lane::skip_blanks(f->rdptr);
    if (*f->rdptr == '/' && !conditions::copies_comments()) {
      unsigned char* behind = lane::end_of_comment(f->rdptr, newline_at);
      if (behind == nullptr) return;
      lane::leave_comment_space(behind);
      f->rdptr = behind;
      continue;
    }
    const outcome result = take_line(f->rdptr, newline_at);
    if (result == outcome::refused) return;
    if (result == outcome::read_on) continue;
    f->rdptr = f->line_end;
    line_number::count();
    line_sync::hold();
  }
}

}  // namespace kv::cpp
