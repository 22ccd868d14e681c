// Control lines make up a large part of what a compiler reads, and most of them belong to headers
// that are read for the second time. This lane reads them where they lie in the block, without
// handing out their units one by one. Its plain twins are find_text_line() in the driver and the
// directives in control.cc and define.cc.
//
// What makes the two agree is that a line is looked at to its end before anything is changed. It is
// taken only if it is calm: no joined line, trigraph or zero byte, every comment closed on the
// line, and nothing that would raise a message. Such a line has no effect but that of its
// directive, so it does not show in which order its units were looked at. #if, #elif and #include
// read on behind their word in the plain way; every other line that is not calm is left to the
// plain path whole.
#include "cpp/controllane.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "cpp/control.h"
#include "cpp/lanes.h"
#include "cpp/lanescan.h"
#include "cpp/number.h"
#include "cpp/options.h"
#include "cpp/reader.h"
#include "cpp/scan.h"
#include "cpp/source.h"
#include "cpp/symtab.h"

namespace kv::cpp {

using namespace lane;

namespace {

// ---- What lies ahead on a line. Each of these returns null where the line is not calm.

// Passes over blanks and comments, up to the next unit or the line's newline. A carriage return
// elsewhere is dropped when it is read, so that a word in front of it may go on behind it.
unsigned char* skip_space(unsigned char* p, unsigned char* newline_at) {
  for (;;) {
    p = skip_blanks(p);
    if (*p == '\r') return p[1] == '\n' ? p + 1 : nullptr;
    if (*p != '/' || (p[1] != '*' && p[1] != '/')) return p;
    p = end_of_comment(p, newline_at);
    if (p == nullptr) return nullptr;
  }
}

// Passes over the rest of the line, whatever it holds.
unsigned char* skip_rest(unsigned char* p, unsigned char* newline_at) {
  for (;;) {
    p = find_skipped_end(p, newline_at);
    if (p == newline_at) return p;
    if (*p != '/') return nullptr;
    p = end_of_comment(p, newline_at);
    if (p == nullptr) return nullptr;
  }
}

// An identifier where it lies in the line, cut to its significant units.
struct word {
  const unsigned char* start;
  std::size_t len;
  unsigned char* end;  // behind all of its units
};

word word_at(unsigned char* p) {
  unsigned char* end = p;
  while (is_word_unit(end)) ++end;
  const auto len = static_cast<std::size_t>(end - p);
  return {p, std::min<std::size_t>(len, settings.ident_max), end};
}

bool same_word(const word& a, const word& b) {
  return a.len == b.len && std::equal(a.start, a.start + a.len, b.start);
}

// The words of directives as numbers: up to eight bytes, the first one lowest.
consteval std::uint64_t code_of(std::string_view text) {
  std::uint64_t code = 0;
  for (std::size_t i = text.size(); i > 0; --i) {
    code = code << 8 | static_cast<unsigned char>(text[i - 1]);
  }
  return code;
}

static_assert(std::endian::native == std::endian::little && name_slack >= 8);

std::uint64_t code_of(const word& w) {
  if (w.len == 0 || w.len > 8) return 0;
  std::uint64_t code;
  std::memcpy(&code, w.start, sizeof code);
  return code << (64 - 8 * w.len) >> (64 - 8 * w.len);
}

// ---- #define.

// A definition being read from a line.
struct calm_definition {
  word name;
  int nargs = NARGS_OBJECT;
  std::array<word, max_macro_args> params;
  std::size_t body_len = 0;  // units in the work buffer

  // The parameter that `w` names, or -1. The first of equal names wins.
  int param_index(const word& w) const {
    for (int n = 0; n < nargs; ++n) {
      if (same_word(params[static_cast<std::size_t>(n)], w)) return n;
    }
    return -1;
  }
};

// Reads a parameter list from behind its `(`; returns what follows its `)`.
unsigned char* read_params(calm_definition& def, unsigned char* p, unsigned char* newline_at) {
  def.nargs = 0;
  while (def.nargs < max_macro_args) {
    p = skip_space(p, newline_at);
    if (p == nullptr) return nullptr;
    if (*p == ')') return p + 1;
    if (kinds[*p] != letter) return nullptr;
    const word w = word_at(p);
    def.params[static_cast<std::size_t>(def.nargs++)] = w;
    p = skip_space(w.end, newline_at);
    if (p == nullptr) return nullptr;
    if (*p == ')') return p + 1;
    if (*p++ != ',') return nullptr;
  }
  return nullptr;
}

// The bytes of a line as take_number() reads them. Where translation would make a number longer the
// body is refused at what ends it here.
struct line_bytes {
  unsigned char* next;
  int get() { return *next++; }
  void unget() { --next; }
};

// The body of a macro is written to the work buffer, which it cannot fill: a unit of the line takes
// up two at most, an identifier's first one behind a MARK_NOEXPAND.
static_assert(work_size > 2 * std::size_t{line_capacity});

unit* write_identifier(const calm_definition& def, const word& w, unit* to) {
  const int n = def.param_index(w);
  if (n >= 0) {
    *to++ = static_cast<unit>(MARK_PARAM_BASE + n);
    return to;
  }
  if (same_word(w, def.name)) *to++ = static_cast<unit>(MARK_NOEXPAND);
  return std::copy(w.start, w.start + w.len, to);
}

// Encodes the replacement text from `p` to the end of the line as read_body() does.
bool write_body(calm_definition& def, unsigned char* p, unsigned char* newline_at) {
  unit* const body = work_buf.data();
  unit* to = body;
  const auto write_white = [&](unsigned char c) {
    if (to == body || to[-1] != ' ') *to++ = c == '\t' ? ' ' : c;
  };
  while (p != newline_at) {
    const unsigned char* end = p + 1;
    switch (kinds[*p]) {
      case blank:
        write_white(*p++);
        continue;
      case letter: {
        const word w = word_at(p);
        to = write_identifier(def, w, to);
        p = w.end;
        continue;
      }
      case digit:
      case point: {
        line_bytes number{p + 1};
        take_number(number, *p, [&](int c) { *to++ = static_cast<unit>(c); });
        p = number.next;
        continue;
      }
      case quote:
        end = end_of_quoted(p);
        break;
      case operand:
        if (*p != '/' || (p[1] != '*' && p[1] != '/')) break;
        p = end_of_comment(p, newline_at);
        if (p == nullptr) return false;
        if (p != newline_at && kinds[*p] != blank) write_white(' ');
        continue;
      case single:
        if (*p == '#' || (*p == '?' && p[1] == '?')) return false;
        break;
      default:
        if (*p++ == '\r' && p == newline_at) continue;
        return false;
    }
    if (end == nullptr) return false;
    to = std::copy(static_cast<const unsigned char*>(p), end, to);
    p += end - p;
  }
  if (to != body && to[-1] == ' ') --to;
  *to = 0;
  def.body_len = static_cast<std::size_t>(to - body);
  return true;
}

// Enters the definition whose body lies in the work buffer. One that changes a known macro is left
// to the plain path, and its message.
bool enter(const calm_definition& def) {
  const unit* body = work_buf.data();
  symbol* sym = sym_find(def.name.start, def.name.len);
  if (sym != nullptr) {
    return sym->disable == 0 && sym->body != nullptr && sym->nargs == def.nargs &&
           sym->body_len == def.body_len && std::equal(body, body + def.body_len, sym->body);
  }
  sym = sym_enter_new(def.name.start, def.name.len);
  sym->def_line = cur_line;
  sym->def_file = cur_frame->file->path;
  sym_set_body(sym, body, def.body_len);
  sym->nargs = def.nargs;
  return true;
}

bool define(const word& name, unsigned char* newline_at) {
  if (settings.macro_report) return false;
  calm_definition def;
  def.name = name;
  unsigned char* p = name.end;
  if (*p == '(') {
    p = read_params(def, p + 1, newline_at);
    if (p == nullptr) return false;
  }
  p = skip_space(p, newline_at);
  return p != nullptr && write_body(def, p, newline_at) && enter(def);
}

// ---- Lines.

// How far the lane has come with a line.
enum class outcome {
  refused,  // nothing has been done
  done,     // all of it; the newline is left
  read_on,  // the plain path has read it to its end and counted its newline
};

// The name that a directive takes, with nothing behind it.
bool lone_name(const word& name, unsigned char* newline_at) {
  return skip_space(name.end, newline_at) == newline_at;
}

bool is_defined(const word& name) {
  const symbol* sym = sym_find(name.start, name.len);
  return sym != nullptr && sym->disable == 0;
}

bool open_group_for(bool wanted) {
  if (!groups_fit(1)) return false;
  open_group(true);
  choose_branch(wanted);
  return true;
}

// A directive that takes a name, `p` at what must be its start.
bool named_directive(std::uint64_t code, unsigned char* p, unsigned char* newline_at) {
  if (kinds[*p] != letter) return false;
  const word name = word_at(p);
  if (code == code_of("define")) return define(name, newline_at);
  if (!lone_name(name, newline_at)) return false;
  if (code == code_of("ifdef")) return open_group_for(is_defined(name));
  if (code == code_of("ifndef")) return open_group_for(!is_defined(name));
  if (symbol* sym = sym_find(name.start, name.len)) sym_remove(sym);
  return true;
}

// #else and #endif, in a skipped group too.
bool else_or_endif(std::uint64_t code, unsigned char* p, unsigned char* newline_at) {
  if (p != newline_at) return false;
  if (code == code_of("else")) {
    if (!else_fits()) return false;
    enter_else();
  } else {
    if (!group_is_open()) return false;
    close_group();
  }
  return true;
}

// Whether the directive is one that is passed over in a skipped group like text.
bool is_idle_when_skipped(std::uint64_t code) {
  switch (code) {
    case code_of("define"):
    case code_of("undef"):
    case code_of("include"):
    case code_of("pragma"):
    case code_of("error"):
    case code_of("warning"):
    case code_of("line"):
      return true;
    default:
      return false;
  }
}

// A directive in a skipped group that is passed over, or opens a group.
bool skipped_directive(std::uint64_t code, unsigned char* p, unsigned char* newline_at) {
  const bool opens = code == code_of("if") || code == code_of("ifdef") || code == code_of("ifndef");
  if (!(opens ? groups_fit(1) : is_idle_when_skipped(code))) return false;
  if (skip_rest(p, newline_at) == nullptr) return false;
  if (opens) open_group(false);
  return true;
}

outcome done_if(bool done) {
  return done ? outcome::done : outcome::refused;
}

// Hands a directive on to the plain path, which reads on behind its word. It may raise messages,
// which show the line, so there must be no comment that would have left its trace in it.
outcome hand_on(unsigned char* behind_mark, const word& directive, int (*carry_out)(int pending),
                int& pending) {
  if (skip_blanks(behind_mark) != directive.start || !is_calm(directive.end)) {
    return outcome::refused;
  }
  cur_frame->rdptr = directive.end;
  pending = carry_out(pending);
  return outcome::read_on;
}

outcome take_control_line(unsigned char* behind_mark, unsigned char* newline_at, int& pending) {
  unsigned char* p = skip_space(behind_mark, newline_at);
  if (p == nullptr) return outcome::refused;
  if (p == newline_at) return outcome::done;
  const word directive = word_at(p);
  const std::uint64_t code = code_of(directive);
  p = skip_space(directive.end, newline_at);
  if (p == nullptr) return outcome::refused;
  switch (code) {
    case code_of("else"):
    case code_of("endif"):
      return done_if(else_or_endif(code, p, newline_at));
    case code_of("elif"):
      if (!else_fits()) return outcome::refused;
      if (elif_decides()) return hand_on(behind_mark, directive, do_elif, pending);
      if (skip_rest(p, newline_at) == nullptr) return outcome::refused;
      choose_branch(false);
      return outcome::done;
    default:
      break;
  }
  if (!compiling) return done_if(skipped_directive(code, p, newline_at));
  switch (code) {
    case code_of("define"):
    case code_of("undef"):
    case code_of("ifdef"):
    case code_of("ifndef"):
      return done_if(named_directive(code, p, newline_at));
    case code_of("if"):
      return hand_on(behind_mark, directive, do_if, pending);
    case code_of("include"):
      return hand_on(behind_mark, directive, do_include_line, pending);
    default:
      return outcome::refused;
  }
}

// The line from `p` on, where its blanks end.
outcome take_line(unsigned char* p, unsigned char* newline_at, int& pending) {
  if (p == newline_at || (*p == '\r' && p + 1 == newline_at)) return outcome::done;
  if (*p == '#') {
    keep_comments_now = false;
    const outcome result = take_control_line(p + 1, newline_at, pending);
    keep_comments_now = settings.keep_comments && compiling;
    return result;
  }
  // Whether it is a control line shows at sight only where the first unit is plain.
  if (compiling || !plain.in_file[*p]) return outcome::refused;
  return done_if(skip_rest(p, newline_at) != nullptr);
}

// Whether it shows at sight that the line beginning at `p`, in a skipped group, matters only by
// what find_skipped_end() finds in it: an empty one, text whose first unit is plain, most
// directives.
bool is_idle_line(unsigned char* p) {
  if (*p == '#') {
    const word directive = word_at(skip_blanks(p + 1));
    return is_idle_when_skipped(code_of(directive)) && is_calm(directive.end);
  }
  return *p == '\n' || plain.in_file[*p];
}

// With the line of `f` used up: passes over lines of a skipped group that lie whole in the block,
// up to one that needs a closer look.
void skip_lines_ahead(input_frame* f, int& pending) {
  unsigned char* const limit = ahead_limit(f);
  if (limit == nullptr) return;
  unsigned char* last = nullptr;
  unsigned char* line = f->line_end;
  int count = 0;
  for (;;) {
    unsigned char* p = skip_blanks(line);
    if (p >= limit || !is_idle_line(p)) break;
    p = find_skipped_end(p, limit);
    if (p == limit || *p != '\n' || p - line >= line_capacity) break;
    last = line;
    line = p + 1;
    ++count;
  }
  if (count == 0) return;
  pass_over_lines(f, last, line, count);
  pending += count;
}

}  // namespace

void take_calm_lines(int& pending) {
  if (!lanes || in_asm || settings.cmode_asm) return;
  for (;;) {
    input_frame* f = cur_frame;
    if (f == nullptr) return;
    if (!compiling && at_line_end(f)) skip_lines_ahead(f, pending);
    if (f->rdptr == f->line_end && !(at_line_end(f) ? load_next_line() : load_first_line())) return;
    unsigned char* const newline_at = f->line_end - 1;
    f->rdptr = skip_blanks(f->rdptr);
    if (*f->rdptr == '/' && !keep_comments_now) {
      unsigned char* behind = end_of_comment(f->rdptr, newline_at);
      if (behind == nullptr) return;
      leave_comment_space(behind);
      f->rdptr = behind;
      continue;
    }
    const outcome result = take_line(f->rdptr, newline_at, pending);
    if (result == outcome::refused) return;
    if (result == outcome::read_on) continue;
    f->rdptr = f->line_end;
    count_line();
    ++pending;
  }
}

}  // namespace kv::cpp
