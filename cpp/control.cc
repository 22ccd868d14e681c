// Every directive is a row of one table: its keyword, what it is to those who skip, and the
// function that carries it out. The keyword is found by a code made of its first and third letter,
// which is why an unknown word costs next to nothing.
#include "cpp/control.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "common/alert.h"
#include "common/cmode.h"
#include "common/str16.h"
#include "cpp/conditions.h"
#include "cpp/define.h"
#include "cpp/directives.h"
#include "cpp/expand.h"
#include "cpp/ifexpr.h"
#include "cpp/include.h"
#include "cpp/linesync.h"
#include "cpp/outbuf.h"
#include "cpp/output.h"
#include "cpp/reader.h"
#include "cpp/report/observe.h"
#include "cpp/scan.h"
#include "cpp/settings.h"
#include "cpp/symtab.h"

namespace kv::cpp {

namespace {

// ---- Pieces of control lines.

void skip_rest_of_line() {
  skip_line();
  unget();
}

// For directives whose line is complete: anything left on it is dropped with a warning.
void expect_line_end() {
  const int c = skip_ws();
  if (c != '\n') {
    alert_msg(163);
    skip_line(c);
  }
  line_sync::hold();
}

void drop_line() {
  skip_line();
  line_sync::hold();
}

std::string word() {
  return alert_str(token_buf::text());
}

void missing_argument() {
  alert_msg(108);
  if (observing) observe::condition_missing();
  skip_rest_of_line();
}

// The condition of #if and #elif. Without one, compiling() stays as it is.
void read_condition() {
  if (observing) observe::condition_begins();
  const int c = skip_ws();
  unget();
  if (ends_line(c)) {
    missing_argument();
  } else {
    conditions::choose_branch(eval_if() != 0);
  }
}

void read_name_condition(bool wants_defined) {
  const int c = skip_ws();
  if (char_class(c) == CT_LETTER) {
    const bool known = scan_macro(c) != nullptr;
    if (observing) observe::name_tested(token_buf::bare_text(), token_buf::len(), known);
    conditions::choose_branch(known == wants_defined);
    return;
  }
  if (ends_line(c)) unget();
  missing_argument();
}

// Whether #else or #elif has no place here; the message has then been raised.
bool misplaced_else() {
  if (!conditions::group_is_open()) {
    alert_msg(102, word());
    return true;
  }
  if (!conditions::else_fits()) {
    alert_msg(101, word());
    return true;
  }
  return false;
}

// ---- The directives. Each reads its line to the end and holds the newline back.

void do_if() {
  conditions::open_group(true);
  read_condition();
  expect_line_end();
}

void do_elif() {
  if (misplaced_else()) return drop_line();
  if (!conditions::elif_decides()) {
    conditions::choose_branch(false);
    drop_line();
    return;
  }
  conditions::move_group();
  read_condition();
  expect_line_end();
}

void do_include_line() {
  line_sync::hold(do_include() + 1);
}

void do_ifdef() {
  conditions::open_group(true);
  read_name_condition(true);
  expect_line_end();
}

void do_ifndef() {
  conditions::open_group(true);
  read_name_condition(false);
  expect_line_end();
}

void do_else() {
  if (misplaced_else()) return drop_line();
  conditions::enter_else();
  expect_line_end();
}

void do_endif() {
  if (!conditions::group_is_open()) {
    alert_msg(102, word());
    drop_line();
    return;
  }
  conditions::close_group();
  expect_line_end();
}

void do_define_line() {
  do_define();
  expect_line_end();
}

void do_undef_line() {
  do_undef();
  expect_line_end();
}

void do_ident() {
  expect_line_end();
}

void do_assert() {
  if (eval_if() == 0) alert_msg(104);
  expect_line_end();
}

// #error and its relatives report the rest of the line as it stands.
void report_line(unsigned number) {
  const unit* text = work_buf::rest_of_line(skip_ws());
  alert_msg(number, alert_str(text));
  expect_line_end();
}
void do_error() {
  report_line(103);
}
void do_warning() {
  report_line(162);
}
void do_advisory() {
  report_line(1445);
}
void do_info() {
  report_line(1446);
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

void do_line() {
  const unit* text = work_buf::rest_of_line(skip_ws());
  const int number = str16_atoi(text);
  while (char_class(*text) == CT_DIGIT || is_blank(*text)) ++text;
  line_number::set_next(number);
  if (*text != 0) name_file(line_name_copy(text));
  line_sync::renumber();
  expect_line_end();
}

// The rest of the line is read by the main loop as ordinary text.
void do_pragma() {
  sync_lines();
  if (text_output()) outbuf::text("#pragma ");
}

void do_asm() {
  if (conditions::in_asm()) alert_msg(106);
  if (text_output()) write_line_marker();
  skip_line();
  if (text_output()) outbuf::text("#asm\n");
  conditions::set_in_asm(true);
}

void do_endasm() {
  if (!conditions::in_asm()) alert_msg(105);
  conditions::set_in_asm(false);
  if (text_output()) {
    outbuf::text("#endasm ");
    sync_lines();
  }
  int c;
  while (!ends_line(c = get())) put_char_out(c);
  unget();
  expect_line_end();
}

// ---- The directive table.

enum directive_flag : unsigned {
  writes_newline = 1,  // one newline held back is written before it
  asm_only = 2,        // accepted only under the assembler mode
  linker_only = 4,     // accepted only under the linker mode
};

consteval packed_word pack(std::string_view text) {
  packed_word word = 0;
  for (std::size_t i = text.size(); i > 0; --i) {
    word = word << 8 | static_cast<unsigned char>(text[i - 1]);
  }
  return word;
}

// In the order of their codes; a code is a word's first unit plus twice its third.
constexpr directive directives[] = {
    {102, role::closes, linker_only, pack("fi"), do_endif},
    {105, role::opens_if, 0, pack("if"), do_if},
    {295, role::other, writes_newline, pack("endasm"), do_endasm},
    {301, role::closes, 0, pack("endif"), do_endif},
    {303, role::include, 0, pack("include"), do_include_line},
    {304, role::define, 0, pack("define"), do_define_line},
    {305, role::opens_ifdef, 0, pack("ifdef"), do_ifdef},
    {306, role::other, writes_newline, pack("pragma"), do_pragma},
    {307, role::other, 0, pack("ident"), do_ident},
    {309, role::other, 0, pack("info"), do_info},
    {311, role::elif, 0, pack("elif"), do_elif},
    {315, role::other, writes_newline, pack("asm"), do_asm},
    {317, role::undef, 0, pack("undef"), do_undef_line},
    {317, role::undef, asm_only, pack("undefine"), do_undef_line},
    {325, role::opens_ifndef, 0, pack("ifndef"), do_ifndef},
    {327, role::other, 0, pack("assert"), do_assert},
    {328, role::other, writes_newline, pack("line"), do_line},
    {329, role::other, 0, pack("error"), do_error},
    {331, role::else_, 0, pack("else"), do_else},
    {333, role::other, 0, pack("advisory"), do_advisory},
    {347, role::other, 0, pack("warning"), do_warning},
};
constexpr std::size_t directive_count = std::size(directives);

// For each code the first row that has it, or one past the last.
constexpr std::size_t code_limit = 348;
constexpr std::array<std::uint8_t, code_limit> make_rows_by_code() {
  std::array<std::uint8_t, code_limit> rows{};
  for (auto& row : rows) row = directive_count;
  for (std::size_t i = directive_count; i > 0; --i) {
    rows[static_cast<std::size_t>(directives[i - 1].code)] = static_cast<std::uint8_t>(i - 1);
  }
  return rows;
}
constexpr std::array<std::uint8_t, code_limit> rows_by_code = make_rows_by_code();

// "endasm" shares the code of "endif" and is told apart by its fourth unit.
std::size_t directive_code(packed_word word) {
  const std::size_t code = (word & 0xFF) + 2 * (word >> 16 & 0xFF);
  if ((word >> 8 & 0xFF) == 0) return 0;
  return code == 301 && (word >> 24 & 0xFF) == 'a' ? 295 : code;
}

const directive* find(packed_word word) {
  const std::size_t code = directive_code(word);
  if (code >= code_limit) return nullptr;
  for (std::size_t i = rows_by_code[code]; i < directive_count; ++i) {
    const directive& d = directives[i];
    if (static_cast<std::size_t>(d.code) != code) break;
    if (d.keyword != word) continue;
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
    token_buf::set(u"line");
  } else {
    scan_id(c);
  }
  if (cmode_is(CMODE_TSLINK) != 0) token_buf::lower();
}

void skipped_directive(const directive* d) {
  if (d == nullptr) return expect_line_end();
  if (opens_group(d->what)) {
    conditions::open_group(false);
  } else if (!is_idle_when_skipped(d->what)) {
    return d->carry_out();
  }
  drop_line();
}

}  // namespace

const directive* find_directive(const unit* word, std::size_t len) {
  if (len > packed_limit) return nullptr;
  packed_word packed = 0;
  for (std::size_t i = len; i > 0; --i) {
    if (word[i - 1] > 0xFF) return nullptr;
    packed = packed << 8 | word[i - 1];
  }
  return find(packed);
}

static_assert(std::endian::native == std::endian::little && name_slack >= packed_limit);

const directive* find_directive(const unsigned char* word, std::size_t len) {
  if (len == 0 || len > packed_limit) return nullptr;
  packed_word packed;
  std::memcpy(&packed, word, sizeof packed);
  const std::size_t unused = 8 * (packed_limit - len);
  return find(packed << unused >> unused);
}

void control_line() {
  const control_line_scope scope;
  const int c = skip_ws();
  if (ends_line(c)) return line_sync::hold();
  read_word(c);
  const directive* d = find_directive(token_buf::text(), token_buf::len());
  if (observing && d != nullptr) observe::directive_read(d->what);
  if (in_text_frame()) alert_msg(161, word());
  if (!conditions::compiling()) return skipped_directive(d);
  if (d == nullptr) {
    alert_msg(107, word());
    expect_line_end();
    return;
  }
  if ((d->flags & writes_newline) != 0 && text_output() && line_sync::release_one()) {
    outbuf::byte('\n');
  }
  d->carry_out();
}

}  // namespace kv::cpp
