// Lexical scanning: identifiers, numbers, strings and the work buffer.
//
// There is no token stream. A caller looks at the class of the first unit and calls the scanner
// that consumes the rest of the token; numbers and strings pass unit by unit to an output routine,
// so they cross the preprocessor untouched. Every scanner ends by stepping the reader back over the
// unit that ended the token.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>

#include "cpp/charclass.h"
#include "cpp/conditions.h"
#include "cpp/reader.h"
#include "cpp/text16.h"

namespace kv::cpp {

/// Receives the units of a number or string, one call a unit.
using output_routine = void (*)(int c);

/// The reader as an input of numbers and literals.
struct read_input {
  static int get() { return cpp::get(); }
  static void unget() { cpp::unget(); }
  struct raw_text : raw_reading {
    explicit raw_text(read_input& /*in*/) {}
  };
  static bool letters_in_numbers() { return conditions::in_asm(); }
};

/// Reads past white space (MARK_PASTE and MARK_EXP_END included) and returns the first other unit,
/// which is consumed. Stops at a newline and at MARK_NOEXPAND.
inline int skip_ws() {
  int c;
  do {
    c = get();
  } while (is_blank(c) || c == MARK_EXP_END);
  return c;
}

/// Passes over white space ahead as far as it is plain, and returns what peek_plain() then does.
inline int skip_plain_ws() {
  int c;
  while (c = peek_plain(), c >= 0 && is_blank(c)) pass_plain();
  return c;
}

/// Passes over the unit `c`, already read, and what follows, up to and including the next newline
/// or to the end of input. A literal that is closed on its line is passed over whole: nothing in it
/// is translated. An open quote is a unit like any other.
void skip_line(int c);
inline void skip_line() {
  skip_line(get());
}

/// Reads one unit, passing over MARK_PASTE and MARK_EXP_END.
inline int get_nomark() {
  int c;
  do {
    c = get();
  } while (c == MARK_PASTE || c == MARK_EXP_END);
  return c;
}

/// Gathers the identifier that begins with the unit `c` (already read) into token_buf; only the
/// first ident_max units are kept, MARK_NOEXPAND not counted.
void scan_id(int c);

/// Passes the number that begins with `c`, a digit or a point already read, to `out`.
void scan_number(int c, output_routine out);

/// Passes the string or character constant opened by the quote `q`, already read, to `out`. Returns
/// whether the closing quote was found; a newline or the end of input that stopped it is given
/// back.
bool scan_string(int q, output_routine out);

/// The identifier last gathered: at most ident_max units, MARK_NOEXPAND not counted, and a
/// terminating zero.
extern unit* token_buf;
/// The number of units in token_buf.
extern std::size_t token_len;

/// Gives token_buf room for identifiers of `significant` units and sets ident_max to it.
void set_ident_max(unsigned significant);

/// Makes `text`, of ident_max units at most, the identifier last gathered.
void set_token(const unit* text);

/// Makes its letters small ones.
void lower_token();

/// token_buf without the MARK_NOEXPAND and MARK_EXP_END units it may begin with.
const unit* token_text();

// The work buffer: one scratch text of fixed size, used by one construct at a time.

inline constexpr std::size_t work_size = 32768;
extern std::array<unit, work_size> work_buf;
/// The number of units stored; the text is ended by work_end(). Both are written by these functions
/// alone.
extern std::size_t work_len;

/// Empties the work buffer.
inline void begin_work() {
  work_len = 0;
}

[[noreturn]] void work_overflow();

/// Appends `c` to the work buffer. Fatal message 156 when it is full.
inline void work_save(int c) {
  if (work_len == work_size) work_overflow();
  work_buf[work_len++] = static_cast<unit>(c);
}

/// The same for `n` units at `text`.
template <class Unit>
void work_save(const Unit* text, std::size_t n) {
  if (work_size - work_len < n) {
    for (std::size_t i = 0; i < n; ++i) work_save(text[i]);  // up to the message
  }
  std::copy(text, text + n, work_buf.data() + work_len);
  work_len += n;
}

/// Removes the unit appended last.
inline void work_drop_last() {
  --work_len;
}

/// Ends the work buffer's text with a zero unit and returns it. Fatal message 156 when it is full.
const unit* work_end();

/// Reads from `c`, already read, up to a newline or the end of input into the work buffer, gives
/// the unit that ended it back and returns the text.
const unit* work_rest_of_line(int c);

}  // namespace kv::cpp
