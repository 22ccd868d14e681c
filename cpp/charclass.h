// The lexical classes of characters.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "cpp/text16.h"

namespace kv::cpp {

// The lexical classes. Those from IFOP_ADD to IFOP_RPAREN are operators (see op_code).
inline constexpr int CT_OTHER = 0;
inline constexpr int CT_DIGIT = 1;
inline constexpr int CT_LETTER = 2;
inline constexpr int CT_QUOTE = 65;
inline constexpr int CT_DOT = 66;
inline constexpr int CT_SPACE = 67;
inline constexpr int CT_BACKSLASH = 68;
inline constexpr int CT_END = 69;

/// The operators of `#if`. A character that is one by itself has its number as its class; the two
/// numbers left out are the classes of digits and letters.
enum op_code : std::uint8_t {
  IFOP_EOE = 0,
  IFOP_ADD = 3,
  IFOP_SUB,
  IFOP_MUL,
  IFOP_DIV,
  IFOP_MOD,
  IFOP_SHL,
  IFOP_SHR,
  IFOP_BITAND,
  IFOP_BITOR,
  IFOP_BITXOR,
  IFOP_EQ,
  IFOP_NE,
  IFOP_LT,
  IFOP_LE,
  IFOP_GE,
  IFOP_GT,
  IFOP_LOGAND,
  IFOP_LOGOR,
  IFOP_QUEST,
  IFOP_COLON,
  IFOP_COMMA,
  IFOP_UPLUS,
  IFOP_UMINUS,
  IFOP_COMPL,
  IFOP_NOT,
  IFOP_LPAREN,
  IFOP_RPAREN,
  IFOP_BOTTOM,
  IFOP_COUNT
};

constexpr std::array<signed char, 256> make_class_table() {
  std::array<signed char, 256> t{};
  t[0] = CT_END;
  t['\t'] = t[0x1F] = t[' '] = CT_SPACE;
  t[0x1D] = t['$'] = t['_'] = CT_LETTER;
  for (std::size_t c = '0'; c <= '9'; ++c) t[c] = CT_DIGIT;
  for (std::size_t c = 'A'; c <= 'Z'; ++c) t[c] = t[c - 'A' + 'a'] = CT_LETTER;
  t['"'] = t['\''] = CT_QUOTE;
  t['.'] = CT_DOT;
  t['\\'] = CT_BACKSLASH;
  t['+'] = IFOP_ADD;
  t['-'] = IFOP_SUB;
  t['*'] = IFOP_MUL;
  t['/'] = IFOP_DIV;
  t['%'] = IFOP_MOD;
  t['&'] = IFOP_BITAND;
  t['|'] = IFOP_BITOR;
  t['^'] = IFOP_BITXOR;
  t['='] = IFOP_EQ;
  t['<'] = IFOP_LT;
  t['>'] = IFOP_GT;
  t['?'] = IFOP_QUEST;
  t[':'] = IFOP_COLON;
  t['~'] = IFOP_COMPL;
  t['!'] = IFOP_NOT;
  t['('] = IFOP_LPAREN;
  t[')'] = IFOP_RPAREN;
  return t;
}

/// The class of each unit below 256.
inline constexpr std::array<signed char, 256> class_table = make_class_table();

/// The class of any unit. Markers: MARK_NOEXPAND is a letter, MARK_PASTE is white space, every
/// other unit above 255 has class 0.
constexpr int char_class(int c) {
  if (c < 256) return class_table[static_cast<std::size_t>(c)];
  if (c == MARK_NOEXPAND) return CT_LETTER;
  return c == MARK_PASTE ? CT_SPACE : CT_OTHER;
}

/// Whether `c` is white space within a line.
constexpr bool is_blank(int c) {
  return char_class(c) == CT_SPACE;
}

/// Whether `c` continues an identifier: a letter, a digit or MARK_NOEXPAND.
constexpr bool continues_id(int c) {
  const int cls = char_class(c);
  return cls == CT_LETTER || cls == CT_DIGIT;
}

/// Whether `c` is what a line ends with: its newline, or the end of the input.
constexpr bool ends_line(int c) {
  return c == '\n' || c == 0;
}

/// A set of lexical classes below 32.
class class_set {
 public:
  template <class... Class>
  explicit constexpr class_set(Class... members) : bits_((bit(members) | ...)) {}

  constexpr bool holds(int cls) const { return cls >= 0 && cls < 32 && (bits_ & bit(cls)) != 0; }

 private:
  static constexpr std::uint32_t bit(int cls) { return std::uint32_t{1} << cls; }

  std::uint32_t bits_;
};

/// Whether a token paste is tried after a unit of class `cls`: digits, letters and the operator
/// characters that can begin or continue a token.
constexpr bool is_operand_class(int cls) {
  constexpr class_set members(CT_DIGIT, CT_LETTER, IFOP_ADD, IFOP_SUB, IFOP_MUL, IFOP_DIV, IFOP_MOD,
                              IFOP_BITAND, IFOP_BITOR, IFOP_BITXOR, IFOP_LT, IFOP_GT, IFOP_COMPL,
                              IFOP_NOT);
  return members.holds(cls);
}

/// Whether `c` begins an identifier: a letter or MARK_NOEXPAND.
constexpr bool begins_identifier(int c) {
  return char_class(c) == CT_LETTER;
}

/// Whether `c` can begin the right operand of a token paste: an identifier, a digit, or one of
/// + - & | < >.
constexpr bool begins_right_operand(int c) {
  constexpr class_set members(CT_DIGIT, CT_LETTER, IFOP_ADD, IFOP_SUB, IFOP_BITAND, IFOP_BITOR,
                              IFOP_LT, IFOP_GT);
  return members.holds(char_class(c));
}

/// The bytes that the reader delivers unchanged.
class plain {
 public:
  /// Whether `c` is one in a line of a file.
  static bool in_file(unsigned char c) { return tables_.in_file[c]; }

  /// Whether `c` is one in a text frame.
  static bool in_text(unit c) { return c < 256 && tables_.in_text[c]; }

  /// Makes `c` one, or one that is translated.
  static void set(unsigned char c, bool on) { tables_.in_file[c] = tables_.in_text[c] = on; }

 private:
  struct tables {
    std::array<bool, 256> in_file{};
    std::array<bool, 256> in_text{};

    constexpr tables() {
      for (std::size_t c = 0; c < 256; ++c) {
        in_text[c] = c != 0 && c != '/' && c != '\\' && c != '\v' && c != '\f' && c != '\r';
        in_file[c] = in_text[c] && c != '\n' && c != '?';
      }
    }
  };

  static tables tables_;
};

inline constinit plain::tables plain::tables_;

namespace number {

constexpr bool is_digit(int c) {
  return c >= '0' && c <= '9';
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
