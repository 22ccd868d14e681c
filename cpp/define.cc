// What may surprise: reading a body can swallow the next line (a string that is not closed takes
// the newline along), and a macro that is defined again keeps its record, with the place of its
// first definition.
#include "cpp/define.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string>
#include <vector>

#include "common/alert.h"
#include "common/format.h"
#include "common/str16.h"
#include "common/stringcache.h"
#include "cpp/calmline.h"
#include "cpp/diag.h"
#include "cpp/expand.h"
#include "cpp/macro_area.h"
#include "cpp/macro_report.h"
#include "cpp/outbuf.h"
#include "cpp/output.h"
#include "cpp/reader.h"
#include "cpp/report/observe.h"
#include "cpp/scan.h"
#include "cpp/settings.h"
#include "cpp/source.h"
#include "cpp/symtab.h"
#include "cpp/token.h"

namespace kv::cpp {

namespace {

bool is_printable(int c) {
  return c >= 0x20 && c <= 0x7E;
}

// The definition being read.
template <class Input>
struct definition {
  using word = typename Input::word;

  word name;
  int nargs = NARGS_OBJECT;
  std::array<word, max_macro_args> params;  // the first `nargs`

  // The parameter that `w` names, or -1. The first of equal names wins.
  int param_index(const word& w) const {
    for (int n = 0; n < nargs; ++n) {
      if (params[static_cast<std::size_t>(n)] == w) return n;
    }
    return -1;
  }

  std::vector<std::string> param_names() const {
    std::vector<std::string> names;
    for (int n = 0; n < nargs; ++n) {
      const word& w = params[static_cast<std::size_t>(n)];
      names.emplace_back(w.start, w.start + w.len);
    }
    return names;
  }
};

// Gives a line's end back, so that the message that follows carries the right line, and reports it.
template <class Input>
bool syntax_error(Input& in, int c) {
  if (ends_line(c)) in.unget();
  in.tell(112);
  return false;
}

// Reads a parameter list behind its `(`, up to and including the `)`.
template <class Input>
bool read_params(Input& in, definition<Input>& def) {
  def.nargs = 0;
  for (;;) {
    if (def.nargs == max_macro_args) {
      in.too_many_params();
      return false;
    }
    int c = skip_white(in);
    if (c == ')') return true;
    if (char_class(c) != CT_LETTER) return syntax_error(in, c);
    def.params[static_cast<std::size_t>(def.nargs++)] = in.keep(in.scan_word(c));
    c = skip_white(in);
    if (c == ')') return true;
    if (c != ',') return syntax_error(in, c);
  }
}

void remove_trailing_white() {
  while (is_blank(work_buf::last()) || work_buf::last() == MARK_DIGITS_END) work_buf::drop_last();
}

template <class Input>
void save_identifier(Input& in, const definition<Input>& def, int c) {
  const auto w = in.scan_word(c);
  const int n = def.param_index(w);
  if (n >= 0) {
    work_buf::save(MARK_PARAM_BASE + n);
    return;
  }
  if (w == def.name) work_buf::save(MARK_NOEXPAND);
  work_buf::save(w.start, w.len);
}

// A string or character constant. One that is not closed on its line takes the newline into the
// body, and the definition goes on with the next line.
template <class Input>
void save_quoted(Input& in, int quote) {
  const int c = take_literal(in, quote, [&in](int u) {
    if (u == '\n') in.line_left();
    if (u != 0) work_buf::save(u);
  });
  if (c != quote) in.tell(113);
  if (c != 0) work_buf::save(c);
}

template <class Input>
void save_unit(Input& in, const definition<Input>& def, int c) {
  switch (char_class(c)) {
    case CT_DIGIT:
    case CT_DOT: take_number(in, c, [](int u) { work_buf::save(u); }); break;
    case CT_QUOTE: save_quoted(in, c); break;
    case CT_LETTER: save_identifier(in, def, c); break;
    case CT_SPACE:
      if (work_buf::last() != ' ') work_buf::save(c == '\t' ? ' ' : c);
      break;
    case CT_BACKSLASH:
      work_buf::save(c);
      c = in.get();
      if (c == 0) break;
      if (c == '\n') in.line_left();
      work_buf::save(c);
      break;
    default:
      if (c != MARK_EXP_END) work_buf::save(c);
  }
}

// Reads the operand behind a `##` whose marker has been saved. Returns the unit to go on with.
template <class Input>
int read_paste_operand(Input& in) {
  int c = skip_white(in);
  if (char_class(c) == CT_DIGIT) {
    for (; char_class(c) == CT_DIGIT; c = in.get()) work_buf::save(c);
    work_buf::save(MARK_DIGITS_END);
  } else if (is_printable(c) && char_class(c) != CT_LETTER) {
    in.tell(137, static_cast<char>(c));
  } else if (char_class(c) != CT_LETTER) {
    in.tell(138, c);
  }
  return c;
}

// Reads the replacement text from `c`, already read, into the work buffer.
template <class Input>
void read_body(Input& in, const definition<Input>& def, int c) {
  work_buf::clear();
  while (!ends_line(c)) {
    if (c == '#') {
      c = in.get();
      if (c == '#') {
        remove_trailing_white();
        work_buf::save(MARK_PASTE);
        c = read_paste_operand(in);
        continue;
      }
      if (is_blank(c)) c = skip_white(in);
      work_buf::save(MARK_STRINGIZE);
      if (ends_line(c)) break;
    }
    save_unit(in, def, c);
    c = in.get();
  }
  in.unget();
  if (work_buf::last() == ' ') work_buf::drop_last();
}

// Reads what follows the name: the parameter list, if any, and the body. Returns false after a
// syntax error.
template <class Input>
bool read_definition(Input& in, definition<Input>& def) {
  int c = in.get();
  if (c == '(') {
    if (!read_params(in, def)) return false;
    c = skip_white(in);
  } else if (is_blank(c)) {
    c = skip_white(in);
  }
  read_body(in, def, c);
  return true;
}

// The name of the frame on top as diagnostics show it; lives until the process ends.
const char* place_name(const input_frame* f) {
  return f->file != nullptr ? f->file->path : str_intern(alert_str(frame_name(f)).c_str());
}

// The record that the name in token_buf will be defined in. A macro that is known is kept, with the
// place of its first definition, and gives up its body.
symbol* enter_definition(int c, bool& known, unit*& old_body) {
  symbol* sym = scan_macro(c);
  known = sym != nullptr;
  if (known) {
    old_body = sym->body;
    sym->body = nullptr;
    return sym;
  }
  sym = sym_enter(token_buf::text(), false);
  sym->def_line = cur_line;
  if (const input_frame* f = frame_read()) sym->def_file = place_name(f);
  return sym;
}

}  // namespace

void do_define() {
  unit* const mark = macro_area::end();
  plain_line in;
  const int c = skip_white(in);
  if (char_class(c) != CT_LETTER) {
    syntax_error(in, c);
    return;
  }
  bool known;
  unit* old_body = nullptr;
  symbol* sym = enter_definition(c, known, old_body);
  definition<plain_line> def;
  def.name = {sym->name, sym->name_len};
  if (read_definition(in, def)) {
    sym_set_body(sym, work_buf::text(), work_buf::len());
    sym->nargs = def.nargs;
    if (observing) observe::macro_defined(sym, def.param_names());
    if (settings.macro_report) macro_report_row(sym);
    if (known && (old_body == nullptr || str16_cmp(old_body, sym->body) != 0)) {
      alert_msg(111, alert_str(sym->name), shown_path(sym->def_file), sym->def_line);
    }
  }
  sym_release_body(sym, old_body);
  macro_area::put_back(mark);
}

// A unit of the line takes up two of the body at most, an identifier's first one behind a mark.
static_assert(work_buf::size > 2 * std::size_t{line_capacity});

bool define_calmly(calm_line& in) {
  if (settings.macro_report) return false;
  const int c = skip_white(in);
  if (char_class(c) != CT_LETTER) return false;
  definition<calm_line> def;
  def.name = in.scan_word(c);
  if (!read_definition(in, def) || in.refused()) return false;
  symbol* sym = sym_find(def.name.start, def.name.len);
  if (sym != nullptr) {
    const bool same = sym->disable == 0 && sym->body != nullptr && sym->nargs == def.nargs &&
                      sym->body_len == work_buf::len() &&
                      std::equal(sym->body, sym->body + work_buf::len(), work_buf::begin());
    if (same && observing) observe::macro_defined(sym, def.param_names());
    return same;
  }
  sym = sym_enter_new(def.name.start, def.name.len);
  sym->def_line = cur_line;
  sym->def_file = cur_frame->file->path;
  sym_set_body(sym, work_buf::text(), work_buf::len());
  sym->nargs = def.nargs;
  if (observing) observe::macro_defined(sym, def.param_names());
  return true;
}

void do_undef() {
  const int c = skip_ws();
  if (char_class(c) == CT_LETTER) {
    scan_id(c);
    sym_enter(token_buf::text(), true);
    return;
  }
  if (ends_line(c)) unget();
  alert_msg(114);
}

namespace {

void dump_params(int nargs) {
  if (nargs <= 0) return;
  outbuf::byte('(');
  for (int n = 0; n < nargs; ++n) outbuf::text(format_string("%sval%d", n == 0 ? "" : ",", n));
  outbuf::byte(')');
}

// How one unit of a body reads in a #define line.
std::string dumped_unit(int c) {
  if (is_param_ref(c)) return format_string("val%d", c - MARK_PARAM_BASE);
  if (c == MARK_PASTE || c == MARK_DIGITS_END) return " ##";
  if (is_printable(c) || c == '\t' || c == '\n') return {static_cast<char>(c)};
  if (c < 32) return format_string("^%c", static_cast<char>(c + 64));
  return {};
}

void dump_body(const unit* body) {
  bool after_paste = false;
  for (; *body != 0; ++body) {
    const std::string text = dumped_unit(*body);
    if (text.empty()) continue;
    if (after_paste && text[0] != ' ') outbuf::byte(' ');
    outbuf::text(text);
    after_paste = text == " ##";
  }
}

}  // namespace

void dump_defines() {
  for (std::size_t n = 0; n < symtab_chains; ++n) {
    for (const symbol* sym = symtab(n); sym != nullptr; sym = sym->link) {
      if (sym->body == nullptr) continue;
      outbuf::text("#define ");
      put_text16(sym->name);
      dump_params(sym->nargs);
      outbuf::byte(' ');
      dump_body(sym->body);
      outbuf::byte('\n');
    }
  }
}

}  // namespace kv::cpp
