// Every directive is a row of one table: its keyword, what it does in a skipped group, and the
// function that carries it out. The keyword is found by a code made of its first and third letter,
// which is why an unknown word costs next to nothing.
#include "cpp/control.h"

#include <array>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "common/alert.h"
#include "common/cmode.h"
#include "common/osdep.h"
#include "cpp/define.h"
#include "cpp/ifexpr.h"
#include "cpp/include.h"
#include "cpp/options.h"
#include "cpp/outbuf.h"
#include "cpp/output.h"
#include "cpp/reader.h"
#include "cpp/scan.h"
#include "cpp/symtab.h"

namespace kv::cpp {

bool compiling = true;
bool in_asm = false;

namespace {

// ---- The conditional stack.

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
constexpr std::size_t cond_entries = 32;
std::array<cond_entry, cond_entries> cond_stack;
cond_entry* cond_top = cond_stack.data();

}  // namespace

bool groups_fit(int n) {
  return n <= &cond_stack.back() - cond_top;
}

void open_group(bool live) {
  if (!groups_fit(1)) alert_msg_fatal(144);
  *++cond_top = {static_cast<std::uint8_t>(live ? COND_LIVE : 0), cur_line};
}

void choose_branch(bool chosen) {
  compiling = chosen;
  if (chosen) cond_top->flags |= COND_TAKEN;
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
}

void close_group() {
  const bool live = (cond_top->flags & COND_LIVE) != 0;
  if (live && !compiling) need_linemark = true;
  compiling = live;
  --cond_top;
}

namespace {

// ---- Pieces of control lines.

void skip_rest_of_line() {
  skip_line();
  unget();
}

// For directives whose line is complete: anything left on it is dropped with a warning.
int end_of_line_check(int pending) {
  const int c = skip_ws();
  if (c != '\n') {
    alert_msg(163);
    skip_line(c);
  }
  return pending + 1;
}

int skip_line_after(int pending) {
  skip_line();
  return pending + 1;
}

std::string word() {
  return alert_str(token_buf);
}

void missing_argument() {
  alert_msg(108);
  skip_rest_of_line();
}

// The condition of #if and #elif. Without one, `compiling` stays as it is.
void read_condition() {
  const int c = skip_ws();
  unget();
  if (ends_line(c)) {
    missing_argument();
  } else {
    choose_branch(eval_if() != 0);
  }
}

void read_name_condition(bool wants_defined) {
  const int c = skip_ws();
  if (char_class(c) == CT_LETTER) {
    choose_branch((is_macro(c) != nullptr) == wants_defined);
    return;
  }
  if (ends_line(c)) unget();
  missing_argument();
}

// Whether #else or #elif has no place here; the message has then been raised.
bool misplaced_else() {
  if (!group_is_open()) {
    alert_msg(102, word());
    return true;
  }
  if ((cond_top->flags & COND_ELSE_SEEN) != 0) {
    alert_msg(101, word());
    return true;
  }
  return false;
}

}  // namespace

// ---- The directives. Each takes the pending newline count and returns the new one.

int do_if(int pending) {
  open_group(true);
  read_condition();
  return end_of_line_check(pending);
}

int do_elif(int pending) {
  if (misplaced_else()) return skip_line_after(pending);
  if (!elif_decides()) {
    choose_branch(false);
    return skip_line_after(pending);
  }
  cond_top->line = cur_line;
  read_condition();
  return end_of_line_check(pending);
}

int do_include_line(int pending) {
  return pending + do_include() + 1;
}

namespace {

int do_ifdef(int pending) {
  open_group(true);
  read_name_condition(true);
  return end_of_line_check(pending);
}

int do_ifndef(int pending) {
  open_group(true);
  read_name_condition(false);
  return end_of_line_check(pending);
}

int do_else(int pending) {
  if (misplaced_else()) return skip_line_after(pending);
  enter_else();
  return end_of_line_check(pending);
}

int do_endif(int pending) {
  if (!group_is_open()) {
    alert_msg(102, word());
    return skip_line_after(pending);
  }
  close_group();
  return end_of_line_check(pending);
}

int do_define_line(int pending) {
  do_define();
  return end_of_line_check(pending);
}

int do_undef_line(int pending) {
  do_undef();
  return end_of_line_check(pending);
}

int do_ident(int pending) {
  return end_of_line_check(pending);
}

int do_assert(int pending) {
  if (eval_if() == 0) alert_msg(104);
  return end_of_line_check(pending);
}

// #error and its relatives report the rest of the line as it stands.
int report_line(unsigned number, int pending) {
  const unit* text = work_rest_of_line(skip_ws());
  alert_msg(number, alert_str(text));
  return end_of_line_check(pending);
}
int do_error(int pending) {
  return report_line(103, pending);
}
int do_warning(int pending) {
  return report_line(162, pending);
}
int do_advisory(int pending) {
  return report_line(1445, pending);
}
int do_info(int pending) {
  return report_line(1446, pending);
}

// The file name behind the number of a #line: what stands between the first double quote and the
// last, or the whole text where it is not quoted.
const unit* line_name_copy(const unit* text) {
  unit* name;
  if (*text == '"') {
    const unit* last = str16_rchr(text, u'"');
    if (last != text) {
      name = str16_dup(text + 1);
      name[last - text - 1] = 0;
      return name;
    }
  }
  return str16_dup(text);
}

int do_line(int pending) {
  const unit* text = work_rest_of_line(skip_ws());
  cur_line = static_cast<int>(static_cast<unsigned>(str16_atoi(text)) - 1U);
  while (char_class(*text) == CT_DIGIT || char_class(*text) == CT_SPACE) ++text;
  input_frame* const f = frame_read();
  if (*text != 0 && f != nullptr && f->file != nullptr) {
    std::free(const_cast<unit*>(f->file->line_name));
    f->file->line_name = line_name_copy(text);
  }
  need_linemark = true;
  return end_of_line_check(pending);
}

// The rest of the line is read by the main loop as ordinary text.
int do_pragma(int pending) {
  if (!text_output()) return 0;
  sync_lines(pending);
  out_text("#pragma ");
  return 0;
}

int do_asm(int /*pending*/) {
  if (in_asm) alert_msg(106);
  if (text_output()) write_line_marker();
  skip_line();
  if (text_output()) out_text("#asm\n");
  in_asm = true;
  return 0;
}

int do_endasm(int pending) {
  if (!in_asm) alert_msg(105);
  in_asm = false;
  if (text_output()) {
    out_text("#endasm ");
    pending = sync_lines(pending);
  }
  int c;
  while (!ends_line(c = get())) put_char_out(c);
  unget();
  return end_of_line_check(pending);
}

// ---- The directive table.

enum directive_flag : unsigned {
  while_skipping = 1,  // carried out in a skipped group too
  opens_group = 2,     // in a skipped group it opens a group that is not live
  writes_newline = 4,  // one pending newline is written before it
  asm_only = 8,        // accepted only under the assembler mode
  linker_only = 16,    // accepted only under the linker mode
};

struct directive {
  int code;
  unsigned flags;
  const char16_t* keyword;
  int (*carry_out)(int pending);
};

constexpr directive directives[] = {
    {105, opens_group, u"if", do_if},
    {102, while_skipping | linker_only, u"fi", do_endif},
    {295, writes_newline, u"endasm", do_endasm},
    {301, while_skipping, u"endif", do_endif},
    {303, 0, u"include", do_include_line},
    {304, 0, u"define", do_define_line},
    {305, opens_group, u"ifdef", do_ifdef},
    {306, writes_newline, u"pragma", do_pragma},
    {307, 0, u"ident", do_ident},
    {309, 0, u"info", do_info},
    {311, while_skipping, u"elif", do_elif},
    {315, writes_newline, u"asm", do_asm},
    {317, 0, u"undef", do_undef_line},
    {317, asm_only, u"undefine", do_undef_line},
    {325, opens_group, u"ifndef", do_ifndef},
    {327, 0, u"assert", do_assert},
    {328, writes_newline, u"line", do_line},
    {329, 0, u"error", do_error},
    {331, while_skipping, u"else", do_else},
    {333, 0, u"advisory", do_advisory},
    {347, 0, u"warning", do_warning},
};

// The key of a directive word: its first unit plus twice its third. "endasm" shares that of "endif"
// and is told apart by its fourth unit.
int directive_code(const unit* word) {
  if (word[0] == 0 || word[1] == 0) return 0;
  const int code = word[0] + 2 * word[2];
  return code == 301 && word[2] != 0 && word[3] == 'a' ? 295 : code;
}

const directive* find_directive() {
  const int code = directive_code(token_buf);
  for (const directive& d : directives) {
    if (d.code != code || str16_cmp(d.keyword, token_buf) != 0) continue;
    if ((d.flags & asm_only) != 0 && !settings.cmode_asm) continue;
    if ((d.flags & linker_only) != 0 && cmode_is(CMODE_TSLINK) == 0) continue;
    return &d;
  }
  return nullptr;
}

// Reads the directive word into token_buf. A digit, as in a line marker, stands for "line".
void read_word(int c) {
  if (char_class(c) == CT_DIGIT) {
    unget();
    str16_copy(token_buf, u"line");
    token_len = 4;
  } else {
    scan_id(c);
  }
  if (cmode_is(CMODE_TSLINK) != 0) str16_lower(token_buf);
}

int skipped_directive(const directive* d, int pending) {
  if (d == nullptr) return end_of_line_check(pending);
  if ((d->flags & while_skipping) != 0) return d->carry_out(pending);
  if ((d->flags & opens_group) != 0) open_group(false);
  return skip_line_after(pending);
}

}  // namespace

int control_line(int pending) {
  const int c = skip_ws();
  if (ends_line(c)) return pending + 1;
  read_word(c);
  const directive* d = find_directive();
  if (in_text_frame()) alert_msg(161, word());
  if (!compiling) return skipped_directive(d, pending);
  if (d == nullptr) {
    alert_msg(107, word());
    return end_of_line_check(pending);
  }
  if ((d->flags & writes_newline) != 0 && text_output() && pending >= 1) {
    out_byte('\n');
    --pending;
  }
  return d->carry_out(pending);
}

bool outermost_open_group(int& line) {
  if (!group_is_open()) return false;
  line = cond_stack[1].line;
  return true;
}

// ---- The assembler's conditionals.

namespace {

unit lower(int c) {
  return static_cast<unit>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
}

// Reads a unit and notes it in the work buffer, whose text is what giving back takes.
int read_noted() {
  const int c = get();
  work_save(c);
  return c;
}

void give_back_noted() {
  push_text(work_end());
}

// With as many units noted as a line must begin with: whether they begin `keyword` and the line
// goes on with the rest of it. Reads no further than the first difference.
bool reads_keyword(const char16_t* keyword) {
  for (std::size_t i = 0; keyword[i] != 0; ++i) {
    if (i == work_len) read_noted();
    if (lower(work_buf[i]) != keyword[i]) return false;
  }
  return true;
}

int read_noted_blanks() {
  int c;
  do {
    c = read_noted();
  } while (char_class(c) == CT_SPACE || c == MARK_EXP_END);
  return c;
}

}  // namespace

void asm_ifdef_rewrite() {
  constexpr std::size_t word_least = 3;
  work_len = 0;
  while (work_len < word_least) {
    if (continues_id(read_noted())) continue;
    if (work_len == 1) {
      unget();
    } else {
      give_back_noted();
    }
    return;
  }
  read_noted();
  const bool wants_defined = lower(work_buf[2]) != 'n';
  if (!reads_keyword(wants_defined ? u"ifdef" : u"ifndef") ||
      char_class(read_noted()) != CT_SPACE) {
    give_back_noted();
    return;
  }
  const int c = read_noted_blanks();
  if (char_class(c) != CT_LETTER) {
    give_back_noted();
    return;
  }
  push_text((is_macro(c) != nullptr) == wants_defined ? u"if 1" : u"if 0");
}

}  // namespace kv::cpp
