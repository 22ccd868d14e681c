// What the lanes know of tokens: where one ends, and that nothing has to be done to it.
//
// What makes a lane agree with reading unit by unit is what it refuses. The plain path reads one
// unit past an identifier, a number or an operator, and reading may open a comment, join a line or
// replace a trigraph, with all that follows for line numbers and the order of the output. So a
// token is taken only when the unit behind it is calm: one that can be read and stepped back over
// without any effect.
//
// What the two kinds of text have in common is written once, for bytes of a line and for units of a
// text; only file text has trigraphs, and its lines may end with CR LF.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "cpp/charclass.h"
#include "cpp/lanes.h"
#include "cpp/settings.h"
#include "cpp/symtab.h"
#include "cpp/text16.h"

namespace kv::cpp::lane {

/// What the first unit of a token says about it. `stop` is everything that the lanes leave alone.
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

/// The end of the letters and digits at `p`.
template <class Unit>
inline const Unit* end_of_run(const Unit* p) {
  return find_word_end(p, word_units);
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
  if (*p == '/') return p[1] != 0 && p[1] != '/' && p[1] != '*';
  return *p < 256 && (calm_units[*p] || *p == '?');
}

/// Whether the unit at `next` ends a word, or a number, before it and has no effect itself.
template <class Unit>
inline bool ends_word(const Unit* next) {
  return is_calm(next) && !is_word_unit(next);
}
template <class Unit>
inline bool ends_number(const Unit* next) {
  return ends_word(next) && *next != '.';
}

/// Whether the integer that ends at `end` has a suffix.
inline bool has_suffix(const unit* end) {
  return number::is_letter(end[-1], 'u') || number::is_letter(end[-1], 'l');
}

// Each of these returns the end of the token at `p`, or null where the plain path must take it.

/// `macro` becomes the record of the word, or null if it has none.
template <class Unit>
inline const Unit* end_of_word(const Unit* p, symbol*& macro) {
  const Unit* end = end_of_run(p + 1);
  const auto len = static_cast<std::size_t>(end - p);
  if (len > settings.ident_max || !is_calm(end)) return nullptr;
  macro = sym_find(p, len);
  return end;
}

/// The digits and the suffix of an integer, whatever follows.
template <class Unit>
inline const Unit* end_of_digits(const Unit* p) {
  if (*p == '0' && number::is_letter(p[1], 'x')) {
    p += 2;
    while (kind_at(p) == digit || number::is_hex_letter(*p)) ++p;
  } else {
    while (kind_at(p) == digit) ++p;
  }
  if (number::is_letter(*p, 'u')) {
    ++p;
    if (number::is_letter(*p, 'l')) ++p;
  } else if (number::is_letter(*p, 'l')) {
    ++p;
    if (number::is_letter(*p, 'u')) ++p;
  }
  return p;
}

template <class Unit>
inline const Unit* end_of_number(const Unit* p) {
  p = end_of_digits(p);
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

/// The end of the literal that the quote at `p`, in a skipped line, opens and the line closes; just
/// behind the quote where the line does not close it. Null where the plain path must tell: where
/// raw text is translated, and where the line does not end before `limit`.
template <class Text>
Text* skipped_literal_end(Text* p, Text* limit) {
  Text* const opened = p + 1;
  for (p = opened;; ++p) {
    p = find_any(p, limit, *(opened - 1), '\\', '\n', '?', 0);
    if (p == limit || *p == 0 || (*p == '?' && p[1] == '?')) return nullptr;
    if (*p == '\n') return opened;
    if (*p == opened[-1]) return p + 1;
    if (*p == '\\' && p[1] != '\n' && p[1] != 0 && p[1] != '?') ++p;
  }
}

/// A token that is a word with a record in the macro table sets `macro`; for others it stays as it
/// is.
template <class Unit>
inline const Unit* end_of_token(const Unit* p, symbol*& macro) {
  switch (kind_at(p)) {
    case letter:
      return end_of_word(p, macro);
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

/// What a single blank can stand before, as part of a run that is copied: tokens that cannot turn
/// out to be white space themselves.
constexpr std::array<bool, 256> make_solid_units() {
  std::array<bool, 256> t{};
  for (std::size_t c = 0; c < 256; ++c) {
    t[c] = kinds[c] != stop && kinds[c] != blank && kinds[c] != newline && c != '/' && c != '?';
  }
  return t;
}
inline constexpr std::array<bool, 256> solid_units = make_solid_units();

/// Passes over tokens from `p` on that are copied as they stand, single blanks between them
/// included. Returns where that ends; with `macro` set, that is the name of a macro, which ends at
/// `name_end`.
template <class Unit>
inline const Unit* pass_tokens(const Unit* p, symbol*& macro, const Unit*& name_end) {
  for (;;) {
    const Unit* end = nullptr;
    switch (kind_at(p)) {
      case letter:
        end = end_of_word(p, macro);
        if (macro != nullptr) {
          name_end = end;
          return p;
        }
        break;
      case single:
        if (*p != '?' || p[1] != '?') end = p + 1;
        break;
      case blank:
        if (*p == ' ' && p[1] < 256 && solid_units[p[1]]) end = p + 1;
        break;
      case operand:
        if (*p != '/' && p[1] < 256 && calm_units[p[1]]) {
          end = p + 1;
          break;
        }
        [[fallthrough]];
      default:
        end = end_of_token(p, macro);
    }
    if (end == nullptr) return p;
    p = end;
  }
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

/// Where the literal ends that holds `p`, in a skipped line of which nothing before `clear` is in a
/// literal: null where there is none; not behind `p` where the plain path must tell, from there on.
template <class Text>
Text* end_of_literal_around(Text* p, Text* clear, Text* limit) {
  while ((clear = find_any(clear, p, '"', '\'')) != p) {
    Text* const end = skipped_literal_end(clear, limit);
    if (end == nullptr || end > p) return end == nullptr ? clear : end;
    clear = end;
  }
  return nullptr;
}

/// The first byte in [p, limit) that ends a line of a skipped group or can matter there, or
/// `limit`. `p` is not inside a literal. Quotes are looked for only where something stands that a
/// literal would hide. Inline where it is used for line after line, with what it looks for at hand.
template <class Text>
CPP_INLINE Text* find_skipped_end(Text* p, Text* limit) {
  Text* clear = p;
  for (;; ++p) {
    p = find_any(p, limit, '\n', '/', '\\', '?', 0);
    if (p == limit || *p == '\n') return p;
    if (*p == '/' && p[1] != '*' && p[1] != '/') continue;
    if (*p == '\\' && plain.in_file[p[1]] && kinds[p[1]] != blank) continue;
    if (*p == '?' && p[1] != '?') continue;
    Text* const end = end_of_literal_around(p, clear, limit);
    if (end == nullptr) return p;
    if (end <= p) return end;
    clear = end;
    p = end - 1;
  }
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

}  // namespace kv::cpp::lane
