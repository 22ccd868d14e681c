#include "cpp/ifsizeof.h"

#include <array>
#include <string>

#include "common/alert.h"
#include "common/str16.h"
#include "cpp/expand.h"
#include "cpp/reader.h"
#include "cpp/scan.h"

namespace kv::cpp {

namespace {

struct size_row {
  std::uint16_t code;          // the bits of the type words, reduced
  std::uint16_t size;          // bytes
  std::uint16_t pointer_size;  // bytes of a pointer to the type
};
constinit std::array<size_row, size_rows> size_table = {{
    {0x001, 1, 8},
    {0x010, 2, 8},
    {0x002, 4, 8},
    {0x400, 4, 8},
    {0x020, 4, 8},
    {0x004, 4, 8},
    {0x008, 8, 8},
    {0x200, 0, 8},
}};

constexpr unsigned type_int = 0x002;
constexpr unsigned type_short = 0x010;
constexpr unsigned type_long = 0x020;
constexpr unsigned type_sign = 0x0C0;
constexpr unsigned type_pointer = 0x100;
constexpr unsigned type_function_pointer = 0x200;
constexpr unsigned type_int24 = 0x400;

struct type_word {
  const char* word;
  unsigned bit;
};
constexpr type_word type_words[] = {
    {"char", 0x001},         {"int", type_int},        {"float", 0x004},  {"double", 0x008},
    {"short", type_short},   {"long", type_long},      {"signed", 0x040}, {"unsigned", 0x080},
    {"__int24", type_int24}, {"__uint24", type_int24},
};

// A type must not have two bits of any of these.
constexpr unsigned illegal_combinations[] = {0x03C, 0x00F, 0x0CC, 0x031};

constexpr bool has_two_bits(unsigned bits) {
  return (bits & (bits - 1)) != 0;
}

bool is_illegal_type(unsigned type) {
  for (const unsigned mask : illegal_combinations) {
    if (has_two_bits(type & mask)) return true;
  }
  return false;
}

template <class... A>
bool error(unsigned number, const A&... args) {
  alert_msg(number, args...);
  return false;
}

// A line's end that is the offending unit is given back, so that the message carries the right
// line.
bool syntax_error(int c) {
  if (ends_line(c)) unget();
  return error(134);
}

// The type word in token_buf.
bool add_type_word(unsigned& type, std::string& last_word) {
  const unit* word = token_buf::bare_text();
  for (const type_word& t : type_words) {
    if (str16_cmp8(word, t.word) == 0) {
      type |= t.bit;
      last_word = t.word;
      return true;
    }
  }
  alert_msg(130, alert_str(word));
  return false;
}

// `*)` and optionally `()` behind a `(`; `c` becomes the unit behind it.
bool read_function_pointer(int& c) {
  for (const int wanted : {'*', ')'}) {
    c = next_expanded();
    if (c != wanted) return syntax_error(c);
  }
  c = next_expanded();
  if (c != '(') return true;
  c = next_expanded();
  if (c != ')') return syntax_error(c);
  c = next_expanded();
  return true;
}

// Reads type words and their like up to and including the `)`.
bool read_type(unsigned& type, std::string& last_word) {
  int c = next_expanded();
  for (;;) {
    if (c == '(') {
      if (!read_function_pointer(c)) return false;
      type |= type_function_pointer;
    } else if (char_class(c) == CT_LETTER) {
      if (!add_type_word(type, last_word)) return false;
      c = next_expanded();
    } else {
      break;
    }
  }
  if (c == '*') {
    type |= type_pointer;
    c = skip_ws();
  }
  if (c == ')') return true;
  return syntax_error(c);
}

// The size of the type, with the warnings that go with it.
bool resolve_type(unsigned type, const std::string& last_word, std::uint32_t& size) {
  bool pointer = (type & type_pointer) != 0;
  unsigned size_code = type & ~type_pointer;
  if (is_illegal_type(type)) {
    if ((type & type_short) == 0 || (type & type_long) == 0) return error(131);
    size_code = type_int24;
  } else if ((type & type_function_pointer) != 0) {
    size_code = type_function_pointer;
    pointer = true;
  } else {
    size_code &= ~type_sign;
    if ((type & (type_short | type_long)) != 0) size_code &= ~type_int;
    if (size_code == 0) return error(132);
  }
  const size_row* row = nullptr;
  for (const size_row& r : size_table) {
    if (r.code == size_code) row = &r;
  }
  if (row == nullptr) return error(133, size_code);
  if (pointer) alert_msg(1486, static_cast<unsigned>(row->pointer_size));

  std::string macro_word = last_word.empty() ? "XXX" : last_word;
  for (char& c : macro_word) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
  if (size_code == type_int24 && !pointer) macro_word = "SHORT_LONG";
  alert_msg(2035, macro_word);
  size = pointer ? row->pointer_size : row->size;
  return true;
}

}  // namespace

void set_type_size(std::size_t row, std::uint16_t bytes) {
  size_table[row].size = bytes;
}
void set_pointer_size(std::size_t row, std::uint16_t bytes) {
  size_table[row].pointer_size = bytes;
}

bool eval_sizeof(std::uint32_t& size) {
  const int c = skip_ws();
  if (c != '(') return syntax_error(c);
  unsigned type = 0;
  std::string last_word;
  return read_type(type, last_word) && resolve_type(type, last_word, size);
}

int next_expanded() {
  int c;
  do {
    c = try_expand(skip_ws());
  } while (is_operand_class(char_class(c)) && paste_tokens(c));
  return c;
}

}  // namespace kv::cpp
