// The grammar of numbers, for any input that has get() and unget() of one unit.
#pragma once

#include "cpp/charclass.h"
#include "cpp/conditions.h"

namespace kv::cpp {

/// Passes the number that begins with `c`, a digit or a point already taken from `input`, to `out`,
/// one call a unit. Leaves the unit that ended it to the input.
template <class Input, class Output>
void take_number(Input& input, int c, Output out) {
  int radix = 10;
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
    radix = 8;
    if (number::is_letter(c, 'x')) {
      radix = 16;
      accept();
    } else if (number::is_letter(c, 'b')) {
      radix = 2;
      accept();
    }
  }

  for (;;) {
    if (radix != 16 && number::is_letter(c, 'e')) {
      if (exponent) break;
      exponent = sign_allowed = true;
      radix = 10;
    } else if (radix != 16 && c == '.') {
      if (point) break;
      point = true;
      radix = 10;
    } else if (c == '+' || c == '-') {
      if (!sign_allowed) break;
      sign_allowed = false;
    } else if (!(number::is_digit(c) || (radix == 16 && number::is_hex_letter(c)) ||
                 c == MARK_EXP_END || (in_asm && number::is_ascii_letter(c)))) {
      break;
    }
    accept();
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

}  // namespace kv::cpp
