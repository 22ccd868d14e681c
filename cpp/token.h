// What a token is: a name, a number, a literal, an operator.
//
// Numbers and literals are templates over an input that has get() and unget() of one unit: the
// reader, a calm line, or a cursor that ends where its text is not calm. With a cursor the end of a
// token shows at sight, and many tokens can be taken at once.
//
// What makes that agree with reading unit by unit is what it refuses. The reader reads one unit
// past a name, a number or an operator, and reading may open a comment, join a line or replace a
// trigraph, with all that follows for line numbers and the order of the output. So a token is taken
// at sight only when the unit behind it is calm: one that can be read and stepped back over without
// any effect.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "cpp/charclass.h"
#include "cpp/lanes.h"
#include "cpp/settings.h"
#include "cpp/symtab.h"
#include "cpp/text16.h"

namespace kv::cpp {

/// Passes the number that begins with `c`, a digit or a point already taken from `input`, to `out`,
/// one call a unit. Leaves the unit that ended it to the input.
template <class Input, class Output>
CPP_INLINE void take_number(Input& input, int c, Output out) {
  bool hex = false;
  bool point = false;
  bool exponent = false;
  bool sign_allowed = false;
  const auto accept = [&] {
    out(c);
    c = input.get();
  };

  if (c == '.') {
    accept();
    if (!number::is_digit(c)) {
      input.unget();
      return;
    }
    point = true;
  } else if (c == '0') {
    accept();
    hex = number::is_letter(c, 'x');
    if (hex || number::is_letter(c, 'b')) accept();
  }

  while (number::is_digit(c) || (hex && number::is_hex_letter(c))) accept();
  // Most numbers end here.
  const bool ends = !number::is_ascii_letter(c) && c != '.' && c != MARK_EXP_END;
  for (;; accept()) {
    if (ends) break;
    if (number::is_digit(c)) continue;
    if (number::is_ascii_letter(c)) {
      if (!hex && number::is_letter(c, 'e')) {
        if (exponent) break;
        exponent = sign_allowed = true;
      } else if (!(hex && number::is_hex_letter(c)) && !input.letters_in_numbers()) {
        break;
      }
    } else if (c == '.' && !hex) {
      if (point) break;
      point = true;
    } else if ((c == '+' || c == '-') && sign_allowed) {
      sign_allowed = false;
    } else if (c != MARK_EXP_END) {
      break;
    }
  }

  if (point || exponent) {
    if (number::is_letter(c, 'l')) accept();
  } else {
    bool unsigned_seen = false;
    bool long_seen = false;
    for (;;) {
      if (number::is_letter(c, 'u') && !unsigned_seen) {
        unsigned_seen = true;
      } else if (number::is_letter(c, 'l') && !long_seen) {
        long_seen = true;
      } else {
        break;
      }
      accept();
    }
  }
  input.unget();
}

/// Passes the literal that `quote`, already taken from `input`, opens to `out`, one call a unit,
/// the quote that closes it excepted. Returns that, or what ended the line that does not close it.
template <class Input, class Output>
int take_literal(Input& input, int quote, Output out) {
  out(quote);
  const typename Input::raw_text raw(input);
  int c;
  while (c = input.get(), c != quote && !ends_line(c)) {
    out(c);
    if (c == '\\') out(input.get());
  }
  return c;
}

namespace lane {

/// What the first unit of a token says about it. `stop` is everything that is never taken at sight.
enum kind : std::uint8_t { stop, blank, newline, letter, digit, quote, point, operand, single };

constexpr kind kind_of(int c) {
  switch (const int cls = class_table[static_cast<std::size_t>(c)]; cls) {
    case CT_LETTER: return letter;
    case CT_DIGIT: return digit;
    case CT_SPACE: return blank;
    case CT_QUOTE: return quote;
    case CT_DOT: return point;
    case CT_BACKSLASH:
    case CT_END: return stop;
    default:
      if (c == '\n') return newline;
      if (c == '\v' || c == '\f' || c == '\r') return stop;
      return is_operand_class(cls) ? operand : single;
  }
}

/// A table of what `of` says of each unit below 256.
template <class Of>
constexpr auto table_of(Of of) {
  std::array<decltype(of(0)), 256> t{};
  for (std::size_t c = 0; c < 256; ++c) t[c] = of(static_cast<int>(c));
  return t;
}

inline constexpr auto kinds = table_of(kind_of);
inline constexpr auto word_units =
    table_of([](int c) { return kind_of(c) == letter || kind_of(c) == digit; });
/// The units that have no effect whatever follows them.
inline constexpr auto calm_units =
    table_of([](int c) { return kind_of(c) != stop && c != '/' && c != '?'; });

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
    case '/': return p[1] != '*' && p[1] != '\n' && calm_units[p[1]];
    case '?': return p[1] != '?';
    case '\r': return p[1] == '\n';
    default: return false;
  }
}
inline bool is_calm(const unit* p) {
  if (*p == '/') return p[1] != 0 && p[1] != '/' && p[1] != '*';
  return *p < 256 && (calm_units[*p] || *p == '?');
}

/// A text as an input of numbers, which a reader would deliver as they stand. A mark ends them:
/// what follows it must be read.
template <class Unit>
struct number_cursor {
  const Unit* at;

  int get() {
    const int c = *at++;
    return c < 256 ? c : 0;
  }
  void unget() { --at; }
  static bool letters_in_numbers() { return false; }
};

/// What the calm text of a literal can end at, a question mark if another follows.
inline constexpr auto text_ends = table_of([](int c) { return ends_line(c) || c == '?'; });

/// A text as an input of literals that ends, with zeros, at its newline or zero, at a mark and at
/// what a reader of raw text would translate.
template <class Unit>
struct literal_cursor {
  Unit* at;

  int get() {
    const int c = *at;
    if ((c > 255 || text_ends[static_cast<std::size_t>(c)]) && (c != '?' || at[1] == '?')) return 0;
    ++at;
    return c;
  }
  struct raw_text {
    explicit raw_text(literal_cursor& /*in*/) {}
  };
};

/// Whether the unit at `next` ends a word before it and has no effect itself.
template <class Unit>
inline bool ends_word(const Unit* next) {
  return is_calm(next) && !is_word_unit(next);
}
/// The same for a number that goes on where its text ends.
template <class Unit>
inline bool ends_number(const Unit* next) {
  return ends_word(next) && *next != '.';
}
/// Whether a sign behind the number [at, end) can belong to it: it can stand behind an exponent's
/// letter and behind the digits that follow that.
inline bool takes_sign(const unit* at, const unit* end) {
  if (at[0] == '0' && number::is_letter(at[1], 'x')) return false;
  while (end != at && (number::is_digit(end[-1]) || end[-1] == '.')) --end;
  return end != at && number::is_letter(end[-1], 'e');
}

/// Whether the number that ends at `end` has a suffix.
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

/// The end of the number at `p`, whatever follows.
template <class Unit>
inline const Unit* end_of_digits(const Unit* p) {
  number_cursor<Unit> in{p + 1};
  take_number(in, *p, [](int /*c*/) {});
  return in.at;
}

template <class Unit>
inline const Unit* end_of_number(const Unit* p) {
  p = end_of_digits(p);
  return is_calm(p) ? p : nullptr;
}

template <class Unit>
inline const Unit* end_of_quoted(const Unit* p) {
  literal_cursor<const Unit> in{p + 1};
  return take_literal(in, *p, [](int /*c*/) {}) == *p ? in.at : nullptr;
}

/// A token that is a word with a record in the macro table sets `macro`; for others it stays as it
/// is.
template <class Unit>
inline const Unit* end_of_token(const Unit* p, symbol*& macro) {
  switch (kind_at(p)) {
    case letter: return end_of_word(p, macro);
    case digit:
    case point: return end_of_number(p);
    case quote: return end_of_quoted(p);
    case operand: return is_calm(p) && is_calm(p + 1) ? p + 1 : nullptr;
    case single: return is_calm(p) ? p + 1 : nullptr;
    default: return nullptr;
  }
}

/// What a single blank can stand before, as part of a run that is copied: tokens that cannot turn
/// out to be white space themselves.
inline constexpr auto solid_units = table_of([](int c) {
  return calm_units[static_cast<std::size_t>(c)] && kind_of(c) != blank && kind_of(c) != newline;
});

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
      default: end = end_of_token(p, macro);
    }
    if (end == nullptr) return p;
    p = end;
  }
}

/// The first byte from `p` on that is no blank.
inline unsigned char* skip_blanks(unsigned char* p) {
  while (kinds[*p] == blank) ++p;
  return p;
}

}  // namespace lane

}  // namespace kv::cpp
