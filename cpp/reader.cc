// The translation of units.
//
// The reader reads ahead in two places, after `/` and after a backslash, and the text read ahead
// may itself need translation. After `/` the look-ahead is raw, so it goes no deeper. Backslashes
// can follow one another for as long as the input likes; what would naturally be a recursion is a
// stack of one byte a backslash in join_lines().
#include "cpp/reader.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "common/alert.h"
#include "cpp/conditions.h"
#include "cpp/lanes.h"
#include "cpp/lines.h"
#include "cpp/linesync.h"
#include "cpp/source.h"
#include "cpp/token.h"

namespace kv::cpp {

namespace {

void (*comment_sink)(int c) = nullptr;

// Set only around the one-unit look-ahead behind `/` and `;`: a parameter reference is then
// delivered as it is, since what it stands for could not be stepped back over.
bool no_arg_subst = false;

bool semicolon_comments = false;

// Everything before the first line of the outermost frame comes from here.
struct {
  std::string text;
  std::size_t pos = 0;  // of the next byte to deliver
} prelude;

// Where reading stands: before a unit of the frame on top. No two places of a run are the same.
struct place {
  unsigned serial;  // the frame, 0 without one
  unsigned line;    // lines loaded so far: what a block's bytes are changes with them
  const void* at;   // the read position
  bool operator==(const place&) const = default;
};

// A unit that was delivered, and that stepping back one position from `behind` would not deliver
// again: reading ahead of it has gone on to another frame, or has changed what lies between.
struct {
  int unit;
  place behind;
} detached;

// Results of the translation steps that are no units.
constexpr int joining_backslash = -1;  // a backslash outside raw mode, not yet looked behind
constexpr int read_on = -2;            // nothing to deliver: take the next unit

// ---- Units given back.

place here() {
  const input_frame* f = cur_frame;
  if (f == nullptr) return {};
  if (f->file == nullptr) return {f->serial, 0, f->txptr + (f->at_end ? 1 : 0)};
  if (f->file->line_start == nullptr) return {f->serial, 0, prelude.text.data() + prelude.pos};
  return {f->serial, lines_loaded(), f->rdptr};
}

// Notes that `c`, which is about to be delivered, cannot be had again by stepping back.
void detach(int c) {
  detached = {c, here()};
}

// With the look-ahead behind `c` given back: delivers `c`, behind which reading stood at `behind`.
int deliver_read_ahead_of(int c, const place& behind) {
  if (here() != behind) detach(c);
  return c;
}

// ---- Trigraphs.

int trigraph_for(int third) {
  switch (third) {
    case '=': return '#';
    case '(': return '[';
    case '/': return '\\';
    case ')': return ']';
    case '\'': return '^';
    case '<': return '{';
    case '!': return '|';
    case '>': return '}';
    case '-': return '~';
    default: return 0;
  }
}

// What raw reading would deliver of a text, up to its newline or zero. Only lines have trigraphs.
template <class Unit>
struct raw_cursor {
  const Unit* p;

  int get() {
    if (ends_line(*p)) return 0;
    const int replacement =
        sizeof(Unit) == 1 && p[0] == '?' && p[1] == '?' ? trigraph_for(p[2]) : 0;
    p += replacement != 0 ? 3 : 1;
    return replacement != 0 ? replacement : p[-1];
  }
  struct raw_text {
    explicit raw_text(raw_cursor& /*in*/) {}
  };
};

// Whether the literal whose text begins at `p` ends with `quote` before a newline and a zero.
template <class Unit>
bool closes(const Unit* p, int quote) {
  raw_cursor<Unit> in{p};
  return take_literal(in, quote, [](int /*c*/) {}) == quote;
}

// With a `?` just taken from the file frame `f`: replaces the trigraph that starts there and
// returns its character, or 0. The replacement is stored where the third unit was, for unget().
int replace_trigraph(input_frame* f) {
  if (f->rdptr == f->line_end || f->rdptr[0] != '?') return 0;
  const int third = f->rdptr[1];
  const int c = trigraph_for(third);
  if (c == 0) return 0;
  f->rdptr[1] = static_cast<unsigned char>(c);
  f->rdptr += 2;
  alert_msg_once(1470, static_cast<char>(third));
  return c;
}

// ---- Comments.

// Whether the unit that follows in the top frame's buffer makes the space for a comment
// superfluous.
bool blank_follows() {
  const input_frame* f = cur_frame;
  if (f == nullptr) return false;
  if (f->file != nullptr) {
    return f->rdptr != f->line_end && (*f->rdptr == '\n' || *f->rdptr == 0 || is_blank(*f->rdptr));
  }
  return *f->txptr == '\n' || is_blank(*f->txptr);
}

// The space that a comment is replaced by. In a line it is put where the `/` that closed the
// comment was: a message that shows the line shows it there.
int comment_space() {
  input_frame* f = cur_frame;
  if (f != nullptr && f->file != nullptr && f->rdptr != f->file->line_start) {
    f->rdptr[-1] = ' ';
  } else {
    detach(' ');
  }
  return ' ';
}

// The first place in [p, limit) that can matter in the text of a block comment, at the start of
// which `p` is not behind a star: the comment's end, what may begin another or a trigraph, a zero
// byte or a newline. `limit` without one.
unsigned char* find_in_comment(unsigned char* p, unsigned char* limit) {
  for (;; ++p) {
    p = find_any(p, limit, '/', '\n', '?', 0);
    if (p == limit || *p == '\n' || *p == 0) return p;
    if (*p == '/' && p[-1] == '*') return p - 1;
    if (p[1] == (*p == '/' ? '*' : '?')) return p;
  }
}

// Comment text is read raw, unit by unit; `frame` is the number of the frame that the last unit
// came from.
struct comment_text {
  unsigned frame = cur_frame != nullptr ? cur_frame->serial : 0;
  bool copied;

  int next(bool copy_this) {
    const int c = get();
    if (cur_frame != nullptr && cur_frame->serial != frame) {
      frame = cur_frame->serial;
      alert_msg(180);
    }
    if (copied && copy_this && c != 0) comment_sink(c);
    return c;
  }

  // Lane: passes over file text that is neither special to comments nor translated in raw mode.
  void skip_plain(unsigned char a, unsigned char b) const {
    input_frame* f = cur_frame;
    if (!lanes || copied || f == nullptr || f->rdptr == f->line_end) return;
    unsigned char* p = f->rdptr;
    for (;; ++p) {
      p = find_any(p, f->line_end - 1, a, b, '?', 0);
      if (*p != '?' || p[1] == '?') break;
    }
    f->rdptr = p;
  }

  // Lane: passes over text of a block comment that cannot matter, and over whole lines of it.
  void skip_block_lines() const {
    input_frame* f = cur_frame;
    if (!lanes || copied || f == nullptr || f->rdptr == f->line_end) return;
    unsigned char* const limit = ahead_limit(f);
    if (limit == nullptr) {
      skip_plain('*', '/');
      return;
    }
    unsigned char* p = f->rdptr;
    unsigned char* line = f->file->line_start;
    unsigned char* last = line;
    int lines = 0;
    for (;;) {
      p = find_in_comment(p, limit);
      if (p == limit || *p != '\n' || p - line >= line_capacity) break;
      last = line;
      line = ++p;
      ++lines;
    }
    if (lines == 0) {
      f->rdptr = p;
      return;
    }
    line_sync::renumber();
    f->rdptr = f->line_end;  // the first newline is that of the current line
    line_number::count();
    if (lines > 1) pass_over_lines(f, last, line, lines - 1);
    // Without a newline behind it the line does not end here, and may be moved to be completed.
    if (p == line || p == limit || !load_line(f)) return;
    if (f->file->line_start == line && p < f->line_end) f->rdptr = p;
  }
};

int block_comment(comment_text text) {
  int c = text.next(true);
  for (;;) {
    if (c == 0) {
      alert_msg(139);
      return 0;
    }
    if (c == '/') {
      c = text.next(true);
      if (c != '*') continue;
      alert_msg(179);
    }
    if (c == '*') {
      c = text.next(true);
      if (c == '/') break;
      continue;
    }
    if (c == '\n' && !text.copied) line_sync::renumber();
    text.skip_block_lines();
    c = text.next(true);
  }
  return blank_follows() ? read_on : comment_space();
}

int line_comment(comment_text text, int c) {
  for (;;) {
    if (c == 0 || c == '\n') break;
    if (c == '\\') {
      c = text.next(false);
      if (c == 0) break;
      if (c == '\n' && !text.copied) line_sync::renumber();
    }
    text.skip_plain('\\', '\n');
    c = text.next(true);
  }
  if (c == 0) detach('\n');
  return '\n';
}

// With `/` or `;` just read outside raw mode: returns the unit to deliver, or read_on.
int comment(int opener) {
  const place behind = here();
  const raw_reading raw;
  no_arg_subst = true;
  const int c = get();
  no_arg_subst = false;
  if (opener == '/' && c != '/' && c != '*') {
    unget();
    return deliver_read_ahead_of('/', behind);
  }
  comment_text text{.copied = conditions::copies_comments()};
  if (text.copied) {
    comment_sink(opener);
    if (c != 0) comment_sink(c);
  }
  if (opener == ';') return line_comment(text, c);
  return c == '*' ? block_comment(text) : line_comment(text, text.next(true));
}

// ---- Units.

// Whether the carriage return just taken from `f` belongs to the end of a line, CR LF.
bool ends_with_newline(const input_frame* f) {
  return f->rdptr != f->line_end && *f->rdptr == '\n';
}

// The translation of a unit taken from `f`, common to both kinds of frame.
int translate(const input_frame* f, int c) {
  switch (c) {
    case '\n':
      if (f->file != nullptr) line_number::count();
      return c;
    case ';': return semicolon_comments && !raw_reading::on() ? comment(c) : c;
    case '/': return raw_reading::on() ? c : comment(c);
    case '\\': return raw_reading::on() ? c : joining_backslash;
    case '\v':
    case '\f': return raw_reading::on() ? c : ' ';
    case '\r': return raw_reading::on() && !ends_with_newline(f) ? c : read_on;
    default: return c;
  }
}

int take_from_file(input_frame* f) {
  if (f->parent == nullptr && prelude.pos < prelude.text.size()) {
    return static_cast<unsigned char>(prelude.text[prelude.pos++]);
  }
  if (f->rdptr == f->line_end && !load_line(f)) {
    remove_file_frame();
    if (cur_frame != nullptr) line_sync::renumber();
    return cur_frame == nullptr ? 0 : read_on;
  }
  int c = *f->rdptr++;
  if (c == 0) {
    cut_line_at_zero(f);
    c = '\n';
  } else if (c == '?') {
    const int replacement = replace_trigraph(f);
    if (replacement != 0) {
      return replacement == '\\' && !raw_reading::on() ? joining_backslash : replacement;
    }
  }
  return translate(f, c);
}

int take_from_text(input_frame* f) {
  const int c = *f->txptr;
  if (c == 0) {
    if (f->macro != nullptr && !f->at_end) {
      f->at_end = true;
      return MARK_EXP_END;
    }
    remove_text_frame();
    return cur_frame == nullptr ? 0 : read_on;
  }
  ++f->txptr;
  if (f->given_back) return c;
  if (is_param_ref(c) && !no_arg_subst) {
    push_argument(c - MARK_PARAM_BASE);
    return read_on;
  }
  return translate(f, c);
}

// One unit, translated, except that a backslash that may join lines is left to the caller.
int get_unjoined() {
  int c;
  do {
    input_frame* f = cur_frame;
    if (f == nullptr) {
      detached.unit = 0;
      return 0;
    }
    c = f->file != nullptr ? take_from_file(f) : take_from_text(f);
  } while (c == read_on);
  return c;
}

// Whether the backslash just read is followed by backslashes and then by a unit that neither joins
// lines nor needs translation. None of the run joins anything then; the run is looked at once.
bool backslash_stands_alone() {
  input_frame* f = cur_frame;
  if (f == nullptr || f->file == nullptr) return false;
  if (f->rdptr <= f->file->settled_backslashes) return true;
  unsigned char* p = f->rdptr;
  while (p != f->line_end && *p == '\\') ++p;
  if (p == f->line_end || !plain::in_file(*p) || is_blank(*p)) return false;
  f->file->settled_backslashes = p;
  return true;
}

bool is_joining_blank(int c) {
  return is_blank(c) || c == MARK_EXP_END;
}

// With a backslash read outside raw mode: joins the lines if a newline follows, else returns the
// backslash. Each pending backslash is one that reads ahead; the innermost is decided first, and
// what it delivers is what the one before it has read ahead.
int join_lines() {
  struct waiting {
    place behind;
    bool seen_blank;
  };
  static std::vector<waiting> pending;
  const std::size_t outermost = pending.size();
  pending.push_back({here(), false});
  while (pending.size() > outermost) {
    int c = get_unjoined();
    if (c == joining_backslash) {
      pending.push_back({here(), false});
      continue;
    }
    for (;;) {
      if (c == '\n') {
        if (pending.back().seen_blank) alert_msg(1342);
        line_sync::renumber();
        c = get_unjoined();
        if (c == joining_backslash) {
          pending.back() = {here(), false};
          break;
        }
      } else if (is_joining_blank(c)) {
        pending.back().seen_blank = true;
        break;
      } else {
        unget();
        c = deliver_read_ahead_of('\\', pending.back().behind);
      }
      pending.pop_back();
      if (pending.size() == outermost) return c;
    }
  }
  return 0;
}

// Lane: with a file on top, takes the newline of the current line, or the first unit of the next
// line where that is a plain one. Otherwise read_on.
int take_line_end() {
  input_frame* f = cur_frame;
  if (!lanes || f == nullptr) return read_on;
  if (f->rdptr != f->line_end) {
    if (*f->rdptr != '\n') return read_on;
    ++f->rdptr;
    line_number::count();
    return '\n';
  }
  if (at_line_end(f) && load_line(f) && plain::in_file(*f->rdptr)) return *f->rdptr++;
  return read_on;
}

}  // namespace

void read_first(std::string_view text) {
  prelude.text += text;
}

void copy_comments_to(void (*sink)(int c)) {
  comment_sink = sink;
}

void set_semicolon_comments(bool on) {
  semicolon_comments = on;
  plain::set(';', !on);
}

int get_slow() {
  if (const int c = take_line_end(); c != read_on) return c;
  const int c = get_unjoined();
  if (c != joining_backslash) return c;
  return backslash_stands_alone() ? '\\' : join_lines();
}

namespace {

void step_back() {
  input_frame* f = cur_frame;
  if (detached.unit != 0 && detached.behind == here()) {
    push_given_back(detached.unit);
  } else if (f == nullptr) {
    return;
  } else if (f->file == nullptr) {
    if (f->at_end) {
      f->at_end = false;
    } else {
      if (f->txptr == f->text) alert_msg_fatal(159);
      --f->txptr;
    }
  } else if (f->parent == nullptr && f->file->line_start == nullptr && prelude.pos > 0) {
    --prelude.pos;
  } else {
    if (f->rdptr == f->file->line_start) alert_msg_fatal(159);
    if (*--f->rdptr == '\n') line_number::count(-1);
  }
}

}  // namespace

#if defined(CPP_CHECKING)

namespace {

// A unit that get() delivered, or must deliver next: the promise holds where reading stands at the
// same place and reads in the same mode.
struct promise {
  int unit;
  bool raw;
  place at;
  bool holds() const { return raw == raw_reading::on() && at == here(); }
};
promise delivered = {-1, false, {}};
promise due = {-1, false, {}};

}  // namespace

int get() {
  const promise expected = due.unit >= 0 && due.holds() ? due : promise{-1, false, {}};
  due.unit = -1;
  const bool raw = raw_reading::on();
  const int c = get_unit();
  if (expected.unit >= 0 && c != expected.unit) {
    std::fprintf(stderr, "unget: %04X given back, %04X delivered\n", expected.unit, c);
    std::abort();
  }
  delivered = {c, raw, here()};
  return c;
}

void unget() {
  const bool known = delivered.unit > 0 && delivered.holds();
  step_back();
  due = known ? promise{delivered.unit, raw_reading::on(), here()} : promise{-1, false, {}};
  delivered.unit = -1;
}

#else

void unget() {
  step_back();
}

#endif

bool literal_closes(int quote) {
  const input_frame* f = cur_frame;
  if (f == nullptr) return false;
  if (f->file == nullptr) return closes(f->txptr, quote);
  return f->rdptr != f->line_end && closes(f->rdptr, quote);
}

}  // namespace kv::cpp
