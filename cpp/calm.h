// What the lanes agree on: which bytes can be read, and stepped back over, without any effect, and
// where the tokens made of them end.
//
// What file text and the units of a text frame have in common is written once; only file text has
// trigraphs and comments here, and its lines may end with CR LF.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "cpp/lanes.h"
#include "cpp/text16.h"

namespace kv::cpp {

/// What the first byte of a token says about it. `stop` is everything that lanes leave alone.
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
inline constexpr std::array<kind, 256> kinds = make_kinds();

constexpr std::array<bool, 256> make_word_units() {
  std::array<bool, 256> t{};
  for (std::size_t c = 0; c < 256; ++c) t[c] = kinds[c] == letter || kinds[c] == digit;
  return t;
}
inline constexpr std::array<bool, 256> word_units = make_word_units();

constexpr bool is_letter(int c, char lower) {
  return c == lower || c == lower - 'a' + 'A';
}
constexpr bool is_hex_digit(int c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

/// The units that have no effect whatever follows them.
constexpr std::array<bool, 256> make_calm_units() {
  std::array<bool, 256> t{};
  for (std::size_t c = 0; c < 256; ++c) t[c] = kinds[c] != stop && c != '/' && c != '?';
  return t;
}
inline constexpr std::array<bool, 256> calm_units = make_calm_units();

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

/// Whether the unit at `p` has no effect when it is read ahead.
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

/// The end of the number at `p` where it is a plain integer with nothing but a calm unit behind it,
/// else null.
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

/// The end of the comment that `p` stands at, a `/`; null where there is none, and where it does
/// not end on the line, whose newline is `newline_at`, or raises a message.
inline unsigned char* end_of_comment(unsigned char* p, unsigned char* newline_at) {
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
  return *p == 0 ? nullptr : p;
}

/// Leaves in the line what the reader leaves there of a comment, which ends at `behind`: a space in
/// place of its closing `/`, unless white space follows.
inline void leave_comment_space(unsigned char* behind) {
  if (kinds[*behind] != blank && *behind != '\n') behind[-1] = ' ';
}

/// The first byte from `p` on that is no blank.
inline unsigned char* skip_blanks(unsigned char* p) {
  while (kinds[*p] == blank) ++p;
  return p;
}

}  // namespace kv::cpp
