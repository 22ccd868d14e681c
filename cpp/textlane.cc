// Most of a C file passes through unchanged but for its blanks. This lane looks at the bytes where
// they lie in the line, finds out token by token that nothing has to be done to them, and copies
// runs of tokens at once. The twin it must agree with is copy_line() in the driver, which takes the
// same text unit by unit.
//
// What makes the two agree is what the lane refuses. The plain path reads one unit past an
// identifier, a number or an operator, and reading may open a comment, join a line or replace a
// trigraph, with all that follows for line numbers and the order of the output. So a token is taken
// only when the unit behind it is calm: one that can be read and stepped back over without any
// effect.
#include "cpp/textlane.h"

#include <array>
#include <cstddef>
#include <cstdint>

#include "cpp/control.h"
#include "cpp/lanes.h"
#include "cpp/options.h"
#include "cpp/outbuf.h"
#include "cpp/output.h"
#include "cpp/reader.h"
#include "cpp/scan.h"
#include "cpp/symtab.h"

namespace kv::cpp {

namespace {

// What the first byte of a token says about it. `stop` is everything that the lane leaves alone.
enum kind : std::uint8_t { stop, blank, newline, letter, digit, quote, point, operand, single };

constexpr std::array<kind, 256> make_kinds() {
  std::array<kind, 256> t{};
  for (std::size_t c = 0; c < 256; ++c) t[c] = single;
  for (const char c : {'\0', '\v', '\f', '\r', '\\'}) t[static_cast<std::size_t>(c)] = stop;
  for (std::size_t c = 'a'; c <= 'z'; ++c) t[c] = t[c - 'a' + 'A'] = letter;
  for (std::size_t c = '0'; c <= '9'; ++c) t[c] = digit;
  for (const char c : {'_', '$', '\x1D'}) t[static_cast<std::size_t>(c)] = letter;
  for (const char c : {' ', '\t', '\x1F'}) t[static_cast<std::size_t>(c)] = blank;
  for (const char c : {'+', '-', '*', '/', '%', '&', '|', '^', '<', '>', '!', '~'}) {
    t[static_cast<std::size_t>(c)] = operand;
  }
  t['"'] = t['\''] = quote;
  t['.'] = point;
  t['\n'] = newline;
  return t;
}
constexpr std::array<kind, 256> kinds = make_kinds();

bool continues_word(unsigned char c) {
  return kinds[c] == letter || kinds[c] == digit;
}
bool is_letter(unsigned char c, char lower) {
  return c == lower || c == lower - 'a' + 'A';
}
bool is_hex_digit(unsigned char c) {
  return kinds[c] == digit || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// Whether the unit at `p`, which may be the line's newline, has no effect when it is read.
bool is_calm(const unsigned char* p) {
  if (plain.in_file[*p] || *p == '\n') return true;
  switch (*p) {
    case '/':
      return p[1] != '*' && plain.in_file[p[1]];
    case '?':
      return p[1] != '?';
    case '\r':
      return p[1] == '\n';
    default:
      return false;
  }
}

// Each of these returns the end of the token at `p`, or null where the plain path must take it.

const unsigned char* end_of_word(const unsigned char* p) {
  const unsigned char* end = p + 1;
  while (continues_word(*end)) ++end;
  const auto len = static_cast<std::size_t>(end - p);
  if (len > settings.ident_max || !is_calm(end) || sym_find(p, len) != nullptr) return nullptr;
  return end;
}

const unsigned char* end_of_number(const unsigned char* p) {
  if (*p == '0' && is_letter(p[1], 'x')) {
    p += 2;
    while (is_hex_digit(*p)) ++p;
  } else {
    while (kinds[*p] == digit) ++p;
  }
  if (is_letter(*p, 'u')) {
    ++p;
    if (is_letter(*p, 'l')) ++p;
  } else if (is_letter(*p, 'l')) {
    ++p;
    if (is_letter(*p, 'u')) ++p;
  }
  return continues_word(*p) || *p == '.' || !is_calm(p) ? nullptr : p;
}

const unsigned char* end_of_quoted(const unsigned char* p) {
  const unsigned char q = *p++;
  for (; *p != q; ++p) {
    if (*p == '\\') ++p;
    if (*p == '\n' || *p == 0 || (*p == '?' && p[1] == '?')) return nullptr;
  }
  return p + 1;
}

const unsigned char* end_of_token(const unsigned char* p) {
  switch (kinds[*p]) {
    case letter:
      return end_of_word(p);
    case digit:
      return end_of_number(p);
    case quote:
      return end_of_quoted(p);
    case point:
      return kinds[p[1]] != digit && is_calm(p + 1) ? p + 1 : nullptr;
    case operand:
      return is_calm(p) && is_calm(p + 1) ? p + 1 : nullptr;
    case single:
      return is_calm(p) ? p + 1 : nullptr;
    default:
      return nullptr;
  }
}

// Copies tokens from `p`. Returns where it stopped: at the line's newline, or before the blanks in
// front of the first token that it leaves alone.
unsigned char* copy_tokens(unsigned char* p) {
  const unsigned char* run = p;  // copied up to here; what follows is to be copied as it stands
  for (;;) {
    unsigned char* token = p;
    while (kinds[*token] == blank) ++token;
    const unsigned char* end = end_of_token(token);
    if (end == nullptr) {
      out_bytes(run, static_cast<std::size_t>(p - run));
      return *token == '\n' ? token : p;
    }
    const std::ptrdiff_t blanks = token - p;
    if (blanks > 1 || (blanks == 1 && *p != ' ')) {
      out_bytes(run, static_cast<std::size_t>(p - run));
      out_byte(' ');
      run = token;
    }
    p = const_cast<unsigned char*>(end);
  }
}

}  // namespace

lane_stop copy_plain_text(int& pending) {
  input_frame* f = cur_frame;
  if (!lanes || f == nullptr || f->fp == nullptr || f->rdptr == f->line_end || in_asm ||
      settings.cmode_asm || !text_output()) {
    return lane_stop::in_line;
  }
  for (;;) {
    f->rdptr = copy_tokens(f->rdptr);
    if (*f->rdptr != '\n') return lane_stop::in_line;
    out_byte('\n');
    pending = 0;
    // The next line of text, past empty ones.
    for (;;) {
      ++f->rdptr;
      ++cur_line;
      if (!load_next_line()) return lane_stop::at_line_start;
      while (kinds[*f->rdptr] == blank) ++f->rdptr;
      if (*f->rdptr != '\n') break;
      ++pending;
    }
    if (*f->rdptr == '#' || end_of_token(f->rdptr) == nullptr) return lane_stop::at_line_start;
    if (pending != 0 || need_linemark) pending = sync_lines(pending);
  }
}

}  // namespace kv::cpp
