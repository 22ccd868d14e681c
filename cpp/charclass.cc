#include "cpp/charclass.h"

namespace kv::cpp {

namespace {

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
  // Operator codes of the #if evaluator.
  t['+'] = 3;
  t['-'] = 4;
  t['*'] = 5;
  t['/'] = 6;
  t['%'] = 7;
  t['&'] = 10;
  t['|'] = 11;
  t['^'] = 12;
  t['='] = 13;
  t['<'] = 15;
  t['>'] = 18;
  t['?'] = 21;
  t[':'] = 22;
  t['~'] = 26;
  t['!'] = 27;
  t['('] = 28;
  t[')'] = 29;
  return t;
}

constexpr plain_tables initial_plain_tables() {
  plain_tables t{};
  for (int c = 0; c < 256; ++c) {
    const bool translated = c == 0 || c == '/' || c == '\\' || c == '\v' || c == '\f' || c == '\r';
    t.in_text[static_cast<std::size_t>(c)] = !translated;
    t.in_file[static_cast<std::size_t>(c)] = !translated && c != '\n' && c != '?';
  }
  return t;
}

}  // namespace

constinit const std::array<signed char, 256> class_table = make_class_table();

constinit plain_tables plain = initial_plain_tables();

void set_plain(unsigned char c, bool on) {
  plain.in_file[c] = plain.in_text[c] = on;
}

}  // namespace kv::cpp
