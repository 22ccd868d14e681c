// A call in an argument that is itself being collected must be expanded before the collecting goes
// on, and calls can be nested as deep as the input likes. So there is no recursion: the calls being
// collected stand on a stack of their own, try_expand() works on the innermost until it is
// complete, and hands the unit that results to the one around it.
#include "cpp/expand.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

#include "common/alert.h"
#include "common/cmode.h"
#include "common/format.h"
#include "common/str16.h"
#include "cpp/argument.h"
#include "cpp/lanes.h"
#include "cpp/linesync.h"
#include "cpp/macro_area.h"
#include "cpp/macro_report.h"
#include "cpp/replacement.h"
#include "cpp/report/observe.h"
#include "cpp/settings.h"
#include "cpp/source.h"
#include "cpp/symtab.h"
#include "cpp/texts.h"
#include "cpp/token.h"

namespace kv::cpp {

namespace {

constexpr std::size_t expand_depth_limit = 1000;

// A call whose arguments are being collected, one after the other in the macro area.
struct macro_call {
  macro_call(symbol* sym, unit* mark, int at)
      : macro(sym),
        above(cur_frame != nullptr ? cur_frame->serial : 0),
        area_mark(mark),
        line(at) {}

  symbol* macro;
  unsigned above;   // the number of the frame that was on top when it was opened
  unit* area_mark;  // what the macro area is put back to
  int line;         // where its `(` stands
  int count = 0;    // complete arguments
  int paren_depth = 0;
  bool in_argument = false;
  bool space_due = false;                     // white space passed over in the argument
  std::array<argument, max_macro_args> args;  // the first `count`, and the one being collected
};

// The calls being collected, the innermost last. All of them were opened above the nearest file, or
// above one that has ended since: no file is included while arguments are collected.
std::vector<macro_call> open_calls;

// The expansions in progress above the nearest file: those being read, and those whose arguments
// are being collected.
std::size_t expand_depth() {
  const int read = cur_frame != nullptr ? cur_frame->depth : 0;
  return static_cast<std::size_t>(read) + open_calls.size();
}

// The macro of the outermost of them; `sym` where there is none, since it is about to begin.
const symbol* first_macro(const symbol* sym) {
  const input_frame* outermost = nullptr;
  for (const input_frame* f = cur_frame; f != nullptr && f->file == nullptr; f = f->parent) {
    if (f->macro != nullptr || f->value_of != nullptr) outermost = f;
  }
  if (!open_calls.empty() && (outermost == nullptr || open_calls[0].above < outermost->serial)) {
    return open_calls[0].macro;
  }
  if (outermost == nullptr) return sym;
  return outermost->macro != nullptr ? outermost->macro : outermost->value_of;
}

// Where the treatment of a unit has got to: `c` is the unit to go on with, or a call was opened
// whose arguments must be read first.
struct step {
  bool call_opened;
  int c;
};
constexpr step opened = {true, 0};
constexpr step resolved(int c) {
  return {false, c};
}

expansion expand(symbol* sym);

// ---- Replacement: the body becomes an expansion frame.

// Makes the frame on top, an expansion of `sym`, read what its body and `args` come to.
void set_replacement(const symbol* sym, const call_arguments& args) {
  bool references = sym->has_references;
  if (!sym->has_operators && sym->body_len < frame_capacity) {
    read_body();
  } else {
    replacement made{frame_text_room(), frame_capacity};
    made.make(sym, args);
    for (int n = 0; n < made.stray_stringizes; ++n) alert_msg(172);
    if (made.full) alert_msg_fatal(153, alert_str(sym->name));
    keep_frame_text(made.text, made.len);
    references = made.references > 0;
  }
  if (references && args.count > 0 && sym->nargs > 0) {
    keep_arguments(args.first, args.count, macro_area::end());
  }
}

// Pushes the replacement of `sym` as the frame to read next; `args` are given if it takes any.
void push_replacement(symbol* sym, const call_arguments& args) {
  push_expansion(sym);
  if (sym->body != nullptr) set_replacement(sym, args);
  if (observing) observe::replaced(sym, args);
}

// ---- Arguments.

// What a unit is to an argument of which it is the text: appended whatever surrounds it, white
// space, one that counts parentheses, a literal, one that has to be looked at, or none of these.
enum class in_argument : std::uint8_t { other, text, blank, open, close, comma, quote, look };
constexpr std::array<in_argument, 256> make_argument_units() {
  std::array<in_argument, 256> t{};
  for (std::size_t c = 1; c < 256; ++c) {
    if (lane::calm_units[c]) t[c] = in_argument::text;
    if (lane::kinds[c] == lane::blank) t[c] = in_argument::blank;
    if (lane::kinds[c] == lane::quote) t[c] = in_argument::quote;
  }
  t['\n'] = in_argument::other;
  t['('] = in_argument::open;
  t[')'] = in_argument::close;
  t[','] = in_argument::comma;
  t['/'] = t['?'] = in_argument::look;
  return t;
}
constexpr std::array<in_argument, 256> argument_units = make_argument_units();

inline in_argument in_argument_at(const unsigned char* p) {
  return argument_units[*p];
}
inline in_argument in_argument_at(const unit* p) {
  return *p < 256 ? argument_units[*p] : in_argument::other;
}

void append_due_space(macro_call& call) {
  if (call.space_due) macro_area::save(' ');
  call.space_due = false;
}

void append(macro_call& call, int c) {
  append_due_space(call);
  macro_area::save(c);
}

void append_string_unit(int c) {
  if (c != MARK_EXP_END) macro_area::save(c);
}

void append_identifier(macro_call& call) {
  append_due_space(call);
  if (str16_cmp(token_buf::text(), call.macro->name) == 0) macro_area::save(MARK_NOEXPAND);
  for (std::size_t i = 0; i < token_buf::len(); ++i) macro_area::save(token_buf::text()[i]);
}

void end_argument(macro_call& call) {
  macro_area::save(0);
  ++call.count;
  call.in_argument = false;
}

// Whether units are to be expanded while they are collected: only those of arguments and of
// generated text; what a file or a body holds is expanded when the argument is read.
bool expands_arguments_now() {
  const input_frame* f = cur_frame;
  return f != nullptr && f->macro == nullptr && f->file == nullptr;
}

// Whether a reference lies ahead to an argument that surely begins with text of an argument.
bool argument_text_ahead() {
  const input_frame* f = cur_frame;
  if (!lanes || f == nullptr || f->file != nullptr || f->given_back) return false;
  const int n = *f->txptr - MARK_PARAM_BASE;
  return is_param_ref(*f->txptr) && n < f->arg_count &&
         in_argument_at(f->args[n].text) == in_argument::text;
}

// Passes over what stands before the next argument and begins it. Returns the argument's first unit
// if it had to be read, else -1; or ')' when the list ends there.
int begin_argument(macro_call& call) {
  int c = skip_plain_ws();
  if (c == ')' || c == '\n') c = -1;
  const bool ahead = (c >= 0 || argument_text_ahead()) && call.count < max_macro_args;
  if (!ahead) {
    while ((c = skip_ws()) == '\n') line_sync::renumber();
    if (c == ')') return c;
  }
  if (call.count == max_macro_args) alert_msg_fatal(151);
  call.args[static_cast<std::size_t>(call.count)] = {macro_area::end(), 0, 0, last_token::none};
  call.paren_depth = 0;
  call.in_argument = true;
  call.space_due = false;
  return ahead ? -1 : c;
}

// ---- Arguments in bulk.

bool may_be_macro(const unit* name, std::size_t len) {
  return len > settings.ident_max || sym_find(name, len) != nullptr;
}

// Whether letters behind `c` can belong to a number.
bool goes_on_in_number(int c) {
  return number::is_digit(c) || c == '.' || c == '+' || c == '-';
}

// Whether an argument that comes to itself is no more than a part of one, and the same tokens, when
// it is collected again. A literal that was open at its line's end may now be another, and what it
// held count. The units of a number are tokens by themselves there, so that its letters may be a
// name.
bool is_one(const argument& arg) {
  const unit* const end = arg.text + arg.len;
  int depth = 0;
  for (const unit* p = arg.text; p != end;) {
    switch (in_argument_at(p)) {
      case in_argument::quote: p = lane::end_of_quoted(p); continue;
      case in_argument::text:
        if (lane::kind_at(p) == lane::letter) {
          const unit* const word = p;
          p = lane::end_of_run(p + 1);
          if (word != arg.text && goes_on_in_number(word[-1]) &&
              may_be_macro(word, static_cast<std::size_t>(p - word)))
            return false;
          continue;
        }
        break;
      case in_argument::open: ++depth; break;
      case in_argument::close:
        if (--depth < 0) return false;
        break;
      case in_argument::comma:
        if (depth == 0) return false;
        break;
      default: break;
    }
    ++p;
  }
  return depth == 0;
}

// Appends to the argument of a call what text_taker takes.
struct argument_sink {
  static constexpr bool copies = false;
  static constexpr bool scans_numbers = false;
  static constexpr bool joins_blanks = false;
  macro_call& call;

  static bool expands(const input_frame* f) { return f->macro == nullptr; }
  void blank() const { call.space_due = true; }
  static bool takes(const argument& arg) { return macro_area::room() > arg.len && is_one(arg); }
  expansion expand(symbol* sym) const { return cpp::expand(sym); }

  template <class Unit>
  void units(const Unit* at, const Unit* end) const {
    append_due_space(call);
    const auto n = static_cast<std::size_t>(end - at);
    macro_area::save(at, n);
  }
  void word(const unit* at, const unit* end, bool mark) const {
    append_due_space(call);
    const symbol* const own = call.macro;
    if (mark || (static_cast<std::size_t>(end - at) == own->name_len &&
                 std::memcmp(at, own->name, own->name_len * sizeof(unit)) == 0)) {
      macro_area::save(MARK_NOEXPAND);
    }
    units(at, end);
  }
  template <class Unit>
  const Unit* singles(const Unit* at) const {
    const Unit* end = at;
    while (lane::kind_at(end) == lane::single && lane::is_calm(end)) {
      if (call.paren_depth == 0 && (*end == ')' || *end == ',')) break;
      if (*end == '(') ++call.paren_depth;
      if (*end == ')') --call.paren_depth;
      ++end;
    }
    if (end != at) units(at, end);
    return end;
  }
  // What is not expanded yet: white space counts, quotes and parentheses. Where the area may become
  // full, units are appended one by one: the message shows the place of the one that does not fit.
  template <class Unit>
  const Unit* run(const Unit* at) const {
    if (macro_area::room() <= frame_capacity) return at;
    const Unit* p = at;
    for (;;) {
      while (in_argument_at(p) == in_argument::text) ++p;
      switch (in_argument_at(p)) {
        case in_argument::blank:
          if (p != at && *p == ' ' && in_argument_at(p + 1) == in_argument::text) {
            ++p;
            continue;
          }
          if (p != at) units(at, p);
          blank();
          at = ++p;
          continue;
        case in_argument::open:
          ++call.paren_depth;
          ++p;
          continue;
        case in_argument::close:
          if (call.paren_depth == 0) break;
          --call.paren_depth;
          ++p;
          continue;
        case in_argument::comma:
          if (call.paren_depth == 0) break;
          ++p;
          continue;
        case in_argument::quote:
          if (const Unit* const end = lane::end_of_quoted(p); end != nullptr) {
            p = end;
            continue;
          }
          break;
        case in_argument::look:
          if (!lane::is_calm(p)) break;
          ++p;
          continue;
        default: break;
      }
      if (p != at) units(at, p);
      return p;
    }
  }
};
static_assert(line_capacity < frame_capacity);

// Appends what lies ahead and need not be read unit by unit. `replaced` as text_taker has it.
texts_end append_ahead(macro_call& call, bool replaced) {
  const texts_end otherwise = replaced ? texts_end::replaced : texts_end::at_unit;
  if (!lanes || settings.cmode_asm) return otherwise;
  argument_sink sink{call};
  const texts_end end = text_taker(sink).take(replaced);
  input_frame* const f = cur_frame;
  if (end == texts_end::at_unit && f != nullptr && f->rdptr != f->line_end) {
    f->rdptr += sink.run(static_cast<const unsigned char*>(f->rdptr)) - f->rdptr;
  }
  return end;
}

// Treats one unit of the argument, which may end with it.
void collect_unit(macro_call& call, int c) {
  if (char_class(c) == CT_BACKSLASH) {
    append(call, c);
    const int next = get_nomark();
    if (next != 0) macro_area::save(next);
    return;
  }
  if (char_class(c) == CT_QUOTE) {
    append_due_space(call);
    scan_string(c, append_string_unit);
    return;
  }
  if (call.paren_depth == 0 && (c == ')' || c == ',')) {
    if (c == ')') unget();
    end_argument(call);
    return;
  }
  if (c == '(') ++call.paren_depth;
  if (c == ')') --call.paren_depth;
  append(call, c);
}

void check_argument_count(const macro_call& call) {
  const symbol* sym = call.macro;
  if (call.count == sym->nargs || cmode_is(CMODE_SSC) != 0 ||
      str16_cmp8(sym->name, "__interrupt") == 0) {
    return;
  }
  alert_msg(171, alert_str(sym->name), call.count, sym->nargs);
}

// ---- Calls.

void push_line_number(const symbol* sym) {
  char digits[16];
  format_text(digits, sizeof digits, "%d", int{cur_line});
  unit text[16];
  str8to16(text, digits);
  push_value(sym, text);
}

void push_file_name(const symbol* sym) {
  const input_frame* file = nearest_file_frame();
  if (file == nullptr) return;
  work_buf::clear();
  work_buf::save('"');
  for (const unit* p = effective_name(*file->file); *p != 0; ++p) {
    if (*p == '\\') work_buf::save('\\');
    work_buf::save(*p);
  }
  work_buf::save('"');
  push_value(sym, work_buf::text());
}

// Too deep: what is left of the expansions in progress is thrown away.
void give_up_expansion(const symbol* sym) {
  alert_msg(115, alert_str(sym->name), alert_str(first_macro(sym)->name));
  const bool discarding = cur_frame != nullptr && cur_frame->file == nullptr;
  while (cur_frame != nullptr && cur_frame->file == nullptr) get();
  if (discarding) unget();
}

// Looks for the `(` of a call. Without one, gives back what was passed over as at most a newline
// and a space.
bool find_open_paren() {
  if (peek_plain() == '(') {
    pass_plain();
    return true;
  }
  bool newline = false;
  bool space = false;
  int c;
  for (;;) {
    c = get();
    if (c == '\n') {
      if (newline) {
        line_sync::renumber();
      } else {
        newline = true;
        space = false;
      }
    } else if (is_blank(c)) {
      space = true;
    } else if (c != MARK_EXP_END) {
      break;
    } else if (observing) {
      observe::looks_for_call();
    }
  }
  if (c == '(') return true;
  if (!newline && !space) {
    unget();
    return false;
  }
  unit text[4];
  std::size_t n = 0;
  if (newline) text[n++] = '\n';
  if (space) text[n++] = ' ';
  text[n++] = static_cast<unit>(c);
  text[n] = 0;
  push_text(text);
  return false;
}

expansion expand(symbol* sym) {
  if (settings.macro_report) macro_report_row(sym);
  if (expand_depth() + 1 >= expand_depth_limit) {
    give_up_expansion(sym);
    return expansion::none;
  }
  switch (sym->nargs) {
    case NARGS_LINE: push_line_number(sym); return expansion::done;
    case NARGS_FILE: push_file_name(sym); return expansion::done;
    case NARGS_OBJECT: push_replacement(sym, {}); return expansion::done;
    default: break;
  }
  if (sym->nargs < 0) alert_msg_fatal(150, alert_str(sym->name));
  const bool is_call = find_open_paren();
  if (observing) observe::looked_for_call(is_call);
  if (!is_call) return expansion::none;
  open_calls.emplace_back(sym, macro_area::end(), cur_line);
  return expansion::call_opened;
}

// Expands the identifier that begins with `c`, and those that directly follow, as far as possible.
step consider(int c) {
  for (;;) {
    symbol* sym = scan_macro(c);
    if (sym == nullptr) return resolved(c);
    const int next = get();
    unget();
    if (next == MARK_PASTE) return resolved(c);  // the left operand of ## is not expanded
    switch (expand(sym)) {
      case expansion::none: return resolved(c);
      case expansion::call_opened: return opened;
      case expansion::done: break;
    }
    c = get();
    if (!begins_identifier(c)) return resolved(c);
  }
}

step start(int c) {
  return begins_identifier(c) ? consider(c) : resolved(c);
}

// With a replacement pushed, and nothing of it read.
step first_of_replacement() {
  const int c = get();
  return begins_identifier(c) ? consider(c) : resolved(c);
}

// As try_expand() and paste_tokens() in turn, until neither has anything left to do.
step expand_fully(step s) {
  while (!s.call_opened && is_operand_class(char_class(s.c)) && paste_tokens(s.c)) {
    s = start(get_nomark());
  }
  return s;
}

// Whether the argument ends with the unit ahead, which is plain; a comma is passed over.
bool ends_argument_ahead(const macro_call& call) {
  if (call.paren_depth != 0) return false;
  const int c = peek_plain();
  if (c == ',') pass_plain();
  return c == ',' || c == ')';
}

// Collects arguments of the innermost call until the list is complete, or until a call is opened
// whose result belongs to the argument. `replaced` tells that such a call has just been replaced.
// Returns whether the list is complete.
bool collect(bool replaced) {
  macro_call& call = open_calls.back();
  for (;;) {
    int c = call.in_argument ? -1 : begin_argument(call);
    bool expanded = false;
    if (c == ')' && !call.in_argument) return true;
    if (c < 0) {
      const texts_end ahead = append_ahead(call, replaced);
      replaced = false;
      if (ahead == texts_end::opened) return false;
      if (ahead == texts_end::replaced) {
        const step s = expand_fully(first_of_replacement());
        if (s.call_opened) return false;
        c = s.c;
        expanded = true;
      } else if (ends_argument_ahead(call)) {
        end_argument(call);
        continue;
      } else {
        c = get_nomark();
      }
    }
    if (!expanded && c != MARK_EXP_END && c != '\n' && !is_blank(c) && c != 0 &&
        expands_arguments_now()) {
      const step s = expand_fully(start(c));
      if (s.call_opened) return false;
      c = s.c;
      expanded = true;
    }
    if (c == 0) {
      alert_msg(116, call.line);
      call.count = 0;
      return true;
    }
    if (c == '\n') line_sync::renumber();
    if (c == '\n' || is_blank(c)) {
      call.space_due = true;
    } else if (c != MARK_EXP_END) {
      if (expanded && begins_identifier(c)) {
        append_identifier(call);
      } else {
        collect_unit(call, c);
      }
    }
  }
}

// Collects the arguments of the innermost call, and of those opened on the way, and replaces it.
void complete_call() {
  const std::size_t outside = open_calls.size() - 1;
  bool replaced = false;
  for (;;) {
    if (!collect(replaced)) {
      replaced = false;
      continue;
    }
    const macro_call& call = open_calls.back();
    check_argument_count(call);
    push_replacement(call.macro, {call.args.data(), call.count});
    macro_area::put_back(call.area_mark);
    open_calls.pop_back();
    if (open_calls.size() == outside) return;
    replaced = true;
  }
}

}  // namespace

symbol* scan_macro(int c) {
  scan_id(c);
  symbol* sym = sym_find(token_buf::text(), token_buf::len());
  return sym != nullptr && sym_eligible(sym) ? sym : nullptr;
}

bool expand_name(symbol* sym) {
  const expansion e = expand(sym);
  if (e == expansion::call_opened) complete_call();
  return e != expansion::none;
}

int try_expand(int c) {
  step s = start(c);
  while (s.call_opened) {
    complete_call();
    s = first_of_replacement();
  }
  return s.c;
}

bool paste_at_marker(int c) {
  if (get() != MARK_PASTE) {
    unget();
    return false;
  }
  work_buf::clear();
  if (begins_identifier(c)) {
    for (const unit* left = token_buf::bare_text(); *left != 0; ++left) work_buf::save(*left);
  } else {
    work_buf::save(c);
  }
  c = get();
  if (begins_right_operand(c)) {
    scan_id(c);
    const unit* right = token_buf::bare_text();
    if (work_buf::len() + str16_len(right) >= work_buf::size) {
      alert_msg_fatal(155, alert_str(work_buf::text()));
    }
    for (; *right != 0; ++right) work_buf::save(*right);
  } else {
    alert_msg(169, c);
    unget();
  }
  push_text(work_buf::text());
  return true;
}

}  // namespace kv::cpp
