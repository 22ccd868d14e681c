// The lexical classes of characters.
#pragma once

#include <array>
#include <cstddef>

#include "cpp/text16.h"

namespace kv::cpp {

// The lexical classes. Classes 3 to 29 are operator codes of the #if evaluator (see ifexpr.h).
inline constexpr int CT_OTHER = 0;
inline constexpr int CT_DIGIT = 1;
inline constexpr int CT_LETTER = 2;
inline constexpr int CT_QUOTE = 65;
inline constexpr int CT_DOT = 66;
inline constexpr int CT_SPACE = 67;
inline constexpr int CT_BACKSLASH = 68;
inline constexpr int CT_END = 69;

/// The class of each unit below 256.
extern const std::array<signed char, 256> class_table;

/// The class of any unit. Markers: MARK_NOEXPAND is a letter, MARK_PASTE is white space, every
/// other unit above 255 has class 0.
inline int char_class(int c) {
  if (c < 256) return class_table[static_cast<std::size_t>(c)];
  if (c == MARK_NOEXPAND) return CT_LETTER;
  return c == MARK_PASTE ? CT_SPACE : CT_OTHER;
}

/// Whether `c` continues an identifier: a letter, a digit or MARK_NOEXPAND.
inline bool continues_id(int c) {
  const int cls = char_class(c);
  return cls == CT_LETTER || cls == CT_DIGIT;
}

/// Whether `c` is what a line ends with: its newline, or the end of the input.
constexpr bool ends_line(int c) {
  return c == '\n' || c == 0;
}

/// Whether a token paste is tried after a unit of class `cls`: digits, letters and the operator
/// characters that can begin or continue a token.
constexpr bool is_operand_class(int cls) {
  constexpr unsigned members = 0x0F1C9FFE;  // 1-12, 15, 18, 19, 20, 24-27
  return cls >= 0 && cls < 32 && ((members >> cls) & 1U) != 0;
}

/// Whether `c` begins an identifier: a letter or MARK_NOEXPAND.
inline bool begins_identifier(int c) {
  return c == MARK_NOEXPAND || (c < 256 && char_class(c) == CT_LETTER);
}

/// Whether `c` can begin the right operand of a token paste: an identifier, a digit, or one of
/// + - & | < >.
inline bool begins_right_operand(int c) {
  constexpr unsigned members = 0x03048C1E;  // 1-4, 10, 11, 15, 18, 24, 25
  const int cls = char_class(c);
  return c == MARK_NOEXPAND || (c < 256 && cls < 32 && ((members >> cls) & 1U) != 0);
}

/// For each byte, whether the reader delivers it unchanged: from a file line, and from a text
/// frame.
struct plain_tables {
  std::array<bool, 256> in_file;
  std::array<bool, 256> in_text;
};
extern plain_tables plain;
/// Makes `c` one that is delivered unchanged, or not.
void set_plain(unsigned char c, bool on);

namespace number {

inline bool is_digit(int c) {
  return char_class(c) == CT_DIGIT;
}
constexpr bool is_ascii_letter(int c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
constexpr bool is_hex_letter(int c) {
  return (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
constexpr bool is_letter(int c, char lower) {
  return c == lower || c == lower - 'a' + 'A';
}

}  // namespace number

}  // namespace kv::cpp
