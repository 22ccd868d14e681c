// What may surprise: reading a body can swallow the next line (a string that is not closed takes
// the newline along), and a macro that is defined again keeps its record, with the place of its
// first definition.
#include "cpp/define.h"

#include <array>
#include <cstdlib>
#include <string>

#include "common/alert.h"
#include "common/format.h"
#include "common/osdep.h"
#include "common/stringcache.h"
#include "cpp/diag.h"
#include "cpp/macro_area.h"
#include "cpp/options.h"
#include "cpp/outbuf.h"
#include "cpp/output.h"
#include "cpp/reader.h"
#include "cpp/report.h"
#include "cpp/scan.h"
#include "cpp/symtab.h"

namespace kv::cpp {

unit macro_area[macro_area_size];
unit* macro_area_ptr = macro_area;

void macro_area_save(int c) {
  if (macro_area_ptr == macro_area + macro_area_size) alert_msg_fatal(149);
  *macro_area_ptr++ = static_cast<unit>(c);
}

namespace {

bool is_printable(int c) {
  return c >= 0x20 && c <= 0x7E;
}

// The definition being read. The parameter names lie in the macro area.
struct definition {
  int nargs = NARGS_OBJECT;
  std::array<const unit*, max_macro_args> params{};
  const symbol* macro = nullptr;

  // The parameter that token_buf names, or -1. The first of equal names wins.
  int param_index() const {
    for (int n = 0; n < nargs; ++n) {
      if (str16_cmp(params[static_cast<std::size_t>(n)], token_buf) == 0) return n;
    }
    return -1;
  }
};

// Gives a line's end back, so that the message that follows carries the right line, and reports it.
bool syntax_error(int c) {
  if (ends_line(c)) unget();
  alert_msg(112);
  return false;
}

// Reads a parameter list behind its `(`, up to and including the `)`.
bool read_params(definition& def) {
  def.nargs = 0;
  for (;;) {
    if (def.nargs == max_macro_args) alert_msg_fatal(148);
    int c = skip_ws();
    if (c == ')') return true;
    if (char_class(c) != CT_LETTER) return syntax_error(c);
    scan_id(c);
    def.params[static_cast<std::size_t>(def.nargs++)] = macro_area_ptr;
    for (std::size_t i = 0; i <= token_len; ++i) macro_area_save(token_buf[i]);
    c = skip_ws();
    if (c == ')') return true;
    if (c != ',') return syntax_error(c);
  }
}

bool is_white(int c) {
  return char_class(c) == CT_SPACE;
}

void remove_trailing_white() {
  while (work_len > 0 &&
         (is_white(work_buf[work_len - 1]) || work_buf[work_len - 1] == MARK_DIGITS_END)) {
    --work_len;
  }
}

void save_identifier(const definition& def, int c) {
  scan_id(c);
  const int n = def.param_index();
  if (n >= 0) {
    work_save(MARK_PARAM_BASE + n);
    return;
  }
  if (str16_cmp(token_buf, def.macro->name) == 0) work_save(MARK_NOEXPAND);
  for (std::size_t i = 0; i < token_len; ++i) work_save(token_buf[i]);
}

// A string or character constant. One that is not closed on its line takes the newline into the
// body, and the definition goes on with the next line.
void save_quoted(int quote) {
  work_save(quote);
  raw_read = true;
  int c = get();
  while (c != quote && !ends_line(c)) {
    work_save(c);
    if (c == '\\' && (c = get()) != 0) {
      if (c == '\n') need_linemark = true;
      work_save(c);
    }
    c = get();
  }
  raw_read = false;
  if (c != quote) alert_msg(113);
  if (c != 0) work_save(c);
}

void save_unit(const definition& def, int c) {
  switch (char_class(c)) {
    case CT_DIGIT:
    case CT_DOT:
      scan_number(c, work_save);
      break;
    case CT_QUOTE:
      save_quoted(c);
      break;
    case CT_LETTER:
      save_identifier(def, c);
      break;
    case CT_SPACE:
      if (work_len == 0 || work_buf[work_len - 1] != ' ') work_save(c == '\t' ? ' ' : c);
      break;
    case CT_BACKSLASH:
      work_save(c);
      c = get();
      if (c == 0) break;
      if (c == '\n') need_linemark = true;
      work_save(c);
      break;
    default:
      if (c != MARK_EXP_END) work_save(c);
  }
}

// Reads the operand behind a `##` whose marker has been saved. Returns the unit to go on with.
int read_paste_operand() {
  int c = skip_ws();
  if (char_class(c) == CT_DIGIT) {
    for (; char_class(c) == CT_DIGIT; c = get()) work_save(c);
    work_save(MARK_DIGITS_END);
  } else if (is_printable(c) && char_class(c) != CT_LETTER) {
    alert_msg(137, static_cast<char>(c));
  } else if (char_class(c) != CT_LETTER) {
    alert_msg(138, c);
  }
  return c;
}

// Reads the replacement text from `c`, already read, into the work buffer.
void read_body(const definition& def, int c) {
  work_len = 0;
  while (!ends_line(c)) {
    if (c == '#') {
      c = get();
      if (c == '#') {
        remove_trailing_white();
        work_save(MARK_PASTE);
        c = read_paste_operand();
        continue;
      }
      if (is_white(c)) c = skip_ws();
      work_save(MARK_STRINGIZE);
      if (ends_line(c)) break;
    }
    save_unit(def, c);
    c = get();
  }
  unget();
  if (work_len > 0 && work_buf[work_len - 1] == ' ') --work_len;
}

// The name of the frame on top as diagnostics show it; lives until the process ends.
const char* place_name(const input_frame* f) {
  return f->file != nullptr ? f->file->path : str_intern(alert_str(frame_name(f)).c_str());
}

// The record that the name in token_buf will be defined in. A macro that is known is kept, with the
// place of its first definition, and gives up its body.
symbol* enter_definition(int c, bool& known, unit*& old_body) {
  symbol* sym = is_macro(c);
  known = sym != nullptr;
  if (known) {
    old_body = sym->body;
    sym->body = nullptr;
    ++macros_epoch;
    return sym;
  }
  sym = sym_enter(token_buf, false);
  sym->def_line = cur_line;
  if (const input_frame* f = frame_read()) sym->def_file = place_name(f);
  return sym;
}

// Reads what follows the name: the parameter list, if any, and the body. Returns false after a
// syntax error.
bool read_definition(definition& def) {
  int c = get();
  if (c == '(') {
    if (!read_params(def)) return false;
    c = skip_ws();
  } else if (is_white(c)) {
    c = skip_ws();
  }
  read_body(def, c);
  return true;
}

}  // namespace

void do_define() {
  unit* const mark = macro_area_ptr;
  const int c = skip_ws();
  if (char_class(c) != CT_LETTER) {
    syntax_error(c);
    return;
  }
  bool known;
  unit* old_body = nullptr;
  symbol* sym = enter_definition(c, known, old_body);
  definition def;
  def.macro = sym;
  if (read_definition(def)) {
    sym_set_body(sym, work_end(), work_len);
    sym->nargs = def.nargs;
    if (settings.macro_report) report_macro(sym);
    if (known && (old_body == nullptr || str16_cmp(old_body, sym->body) != 0)) {
      alert_msg(111, alert_str(sym->name), shown_path(sym->def_file), sym->def_line);
    }
  }
  sym_release_body(sym, old_body);
  macro_area_ptr = mark;
}

void do_undef() {
  const int c = skip_ws();
  if (char_class(c) == CT_LETTER) {
    scan_id(c);
    sym_enter(token_buf, true);
    return;
  }
  if (ends_line(c)) unget();
  alert_msg(114);
}

namespace {

void dump_params(int nargs) {
  if (nargs <= 0) return;
  out_byte('(');
  for (int n = 0; n < nargs; ++n) out_text(format_string("%sval%d", n == 0 ? "" : ",", n));
  out_byte(')');
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
    if (after_paste && text[0] != ' ') out_byte(' ');
    out_text(text);
    after_paste = text == " ##";
  }
}

}  // namespace

void dump_defines() {
  for (std::size_t n = 0; n < symtab_chains; ++n) {
    for (const symbol* sym = symtab(n); sym != nullptr; sym = sym->link) {
      if (sym->body == nullptr) continue;
      out_text("#define ");
      put_text16(sym->name);
      dump_params(sym->nargs);
      out_byte(' ');
      dump_body(sym->body);
      out_byte('\n');
    }
  }
}

}  // namespace kv::cpp
