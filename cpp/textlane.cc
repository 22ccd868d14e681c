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

constexpr std::array<bool, 256> make_word_units() {
  std::array<bool, 256> t{};
  for (std::size_t c = 0; c < 256; ++c) t[c] = kinds[c] == letter || kinds[c] == digit;
  return t;
}
constexpr std::array<bool, 256> word_units = make_word_units();

bool is_letter(int c, char lower) {
  return c == lower || c == lower - 'a' + 'A';
}
bool is_hex_digit(int c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// The units that have no effect whatever follows them.
constexpr std::array<bool, 256> make_calm_units() {
  std::array<bool, 256> t{};
  for (std::size_t c = 0; c < 256; ++c) t[c] = kinds[c] != stop && c != '/' && c != '?';
  return t;
}
constexpr std::array<bool, 256> calm_units = make_calm_units();

// What the two kinds of text have in common is written once, for bytes of a line and for units of a
// text frame; these are the differences. Only file text has trigraphs, and its lines may end with
// CR LF.

inline kind kind_at(const unsigned char* p) {
  return kinds[*p];
}
inline kind kind_at(const unit* p) {
  return *p < 256 ? kinds[*p] : stop;
}

inline bool is_word_unit(const unsigned char* p) {
  return word_units[*p];
}
inline bool is_word_unit(const unit* p) {
  return *p < 256 && word_units[*p];
}

// Whether the unit at `p` has no effect when it is read ahead.
inline bool is_calm(const unsigned char* p) {
  if (calm_units[*p]) [[likely]] {
    return true;
  }
  switch (*p) {
    case '/':
      return p[1] != '*' && p[1] != '\n' && calm_units[p[1]];
    case '?':
      return p[1] != '?';
    case '\r':
      return p[1] == '\n';
    default:
      return false;
  }
}
inline bool is_calm(const unit* p) {
  return *p < 256 && (calm_units[*p] || *p == '?');
}

// Each of these returns the end of the token at `p`, or null where the plain path must take it.

template <class Unit>
inline const Unit* end_of_word(const Unit* p) {
  const Unit* end = p + 1;
  while (is_word_unit(end)) ++end;
  const auto len = static_cast<std::size_t>(end - p);
  if (len > settings.ident_max || !is_calm(end) || sym_find(p, len) != nullptr) return nullptr;
  return end;
}

template <class Unit>
inline const Unit* end_of_number(const Unit* p) {
  if (*p == '0' && is_letter(p[1], 'x')) {
    p += 2;
    while (is_hex_digit(*p)) ++p;
  } else {
    while (kind_at(p) == digit) ++p;
  }
  if (is_letter(*p, 'u')) {
    ++p;
    if (is_letter(*p, 'l')) ++p;
  } else if (is_letter(*p, 'l')) {
    ++p;
    if (is_letter(*p, 'u')) ++p;
  }
  return is_word_unit(p) || *p == '.' || !is_calm(p) ? nullptr : p;
}

template <class Unit>
inline const Unit* end_of_quoted(const Unit* p) {
  const Unit q = *p++;
  for (; *p != q; ++p) {
    if (*p == '\\') ++p;
    if (*p == '\n' || *p == 0 || *p > 255 || (*p == '?' && p[1] == '?')) return nullptr;
  }
  return p + 1;
}

template <class Unit>
inline const Unit* end_of_token(const Unit* p) {
  switch (kind_at(p)) {
    case letter:
      return end_of_word(p);
    case digit:
      return end_of_number(p);
    case quote:
      return end_of_quoted(p);
    case point:
      return kind_at(p + 1) != digit && is_calm(p + 1) ? p + 1 : nullptr;
    case operand:
      return is_calm(p) && is_calm(p + 1) ? p + 1 : nullptr;
    case single:
      return is_calm(p) ? p + 1 : nullptr;
    default:
      return nullptr;
  }
}

// A comment between tokens, `p` at its `/`. Returns what stands behind it, or null where the plain
// path must take it: a comment that does not end on the line, that is copied, or that raises a
// message. What the reader would leave in the line is left there too: a space in place of the
// closing `/`.
unsigned char* skip_comment(unsigned char* p, unsigned char* newline_at) {
  if (keep_comments_now) return nullptr;
  const bool block = p[1] == '*';
  if (!block && p[1] != '/') return nullptr;
  const unsigned char a = block ? '*' : '\\';
  const unsigned char b = block ? '/' : '\n';
  for (p += 2;; ++p) {
    p = find_any(p, newline_at, a, b, '?', 0);
    if (p == newline_at) return block ? nullptr : p;
    if (*p == 0 || *p == '\\' || (*p == '?' && p[1] == '?')) return nullptr;
    if (*p == '/' && p[1] == '*') return nullptr;
    if (*p == '*' && p[1] == '/') break;
  }
  p += 2;
  if (*p == 0) return nullptr;
  if (kinds[*p] != blank && *p != '\n') p[-1] = ' ';
  return p;
}

inline unsigned char* skip_blanks(unsigned char* p) {
  while (kinds[*p] == blank) ++p;
  return p;
}

// Copies tokens from `p`. Returns where it stopped: at the line's newline, or before the blanks in
// front of the first token that it leaves alone.
unsigned char* copy_tokens(unsigned char* p, unsigned char* newline_at) {
  const unsigned char* run = p;  // what follows is to be copied as it stands, up to p
  for (;;) {
    unsigned char* resume = p;  // where the plain path goes on if it must
    unsigned char* token = skip_blanks(p);
    while (*token == '/') {
      unsigned char* behind = skip_comment(token, newline_at);
      if (behind == nullptr) break;
      token = skip_blanks(behind);
      resume = token != behind ? behind : behind - 1;  // a blank, for the comment
    }
    const unsigned char* end = end_of_token(token);
    if (end == nullptr) {
      out_bytes(run, static_cast<std::size_t>(p - run));
      return *token == '\n' ? token : resume;
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

// The same for the text frame on top, whose units must be narrowed. A frame's end is left to the
// reader.
void copy_units(input_frame* f) {
  for (;;) {
    const unit* token = f->txptr;
    while (kind_at(token) == blank) ++token;
    const unit* end = end_of_token(token);
    if (end == nullptr) return;
    if (token != f->txptr) out_byte(' ');
    for (const unit* p = token; p != end; ++p) out_byte(static_cast<unsigned char>(*p));
    f->txptr = const_cast<unit*>(end);
  }
}

}  // namespace

lane_stop copy_plain_text(int& pending) {
  input_frame* f = cur_frame;
  if (!lanes || f == nullptr || in_asm || settings.cmode_asm || !text_output()) {
    return lane_stop::in_line;
  }
  if (f->rdptr >= f->lane_end) {
    if (f->lane_open) copy_units(f);
    return lane_stop::in_line;
  }
  for (;;) {
    f->rdptr = copy_tokens(f->rdptr, f->line_end - 1);
    if (*f->rdptr != '\n') return lane_stop::in_line;
    out_byte('\n');
    pending = 0;
    // The next line of text, past empty ones.
    for (;;) {
      ++f->rdptr;
      count_line();
      if (!load_next_line()) return lane_stop::at_line_start;
      while (kinds[*f->rdptr] == blank) ++f->rdptr;
      if (*f->rdptr != '\n') break;
      ++pending;
    }
    // A line that surely is one of text goes on here, even if its first token has to be left alone.
    if (*f->rdptr == '#' || !plain.in_file[*f->rdptr]) return lane_stop::at_line_start;
    if (pending != 0 || need_linemark) pending = sync_lines(pending);
  }
}

}  // namespace kv::cpp
