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

/// Passes the number that begins with `c`, a digit or a point already read, to `out`.
void scan_number(int c, output_routine out);

/// Passes the string or character constant opened by the quote `q`, already read, to `out`. Returns
/// whether the closing quote was found; a newline or the end of input that stopped it is given
/// back.
bool scan_string(int q, output_routine out);

/// Gathers the identifier that begins with the unit `c` (already read) into token_buf; only the
/// first ident_max units are kept, MARK_NOEXPAND not counted.
void scan_id(int c);

/// The identifier last gathered.
class token_buf {
 public:
  /// At most ident_max units, MARK_NOEXPAND not counted, and a terminating zero.
  static const unit* text() { return units_; }
  /// The number of units in text().
  static std::size_t len() { return len_; }
  /// text() without the MARK_NOEXPAND and MARK_EXP_END units it may begin with.
  static const unit* bare_text();

  /// Makes room for identifiers of ident_max units, which does not change any more.
  static void make_room();

  /// Makes `text`, of ident_max units at most, the identifier last gathered.
  static void set(const unit* text);

  /// Makes its letters small ones.
  static void lower();

 private:
  friend void scan_id(int c);
  static void begin();
  static void store(int c);
  static void take_lane();
  template <class Unit>
  static void take_run(Unit*& from);
  static void end();

  static inline constinit unit* units_ = nullptr;
  static inline constinit std::size_t len_ = 0;
  static inline constinit std::size_t significant_len_ = 0;  // without MARK_NOEXPAND
};

/// The work buffer: one scratch text of fixed size, used by one construct at a time.
class work_buf {
 public:
  static constexpr std::size_t size = 32768;

  /// The first unit stored.
  static const unit* begin() { return units_.data(); }
  /// The number of units stored.
  static std::size_t len() { return len_; }
  /// The unit appended last, or zero.
  static int last() { return len_ == 0 ? 0 : units_[len_ - 1]; }

  /// Removes all units.
  static void clear() { len_ = 0; }

  /// Appends `c`. Fatal message 156 when it is full.
  static void save(int c) {
    if (len_ == size) overflow();
    units_[len_++] = static_cast<unit>(c);
  }

  /// The same for `n` units at `text`.
  template <class Unit>
  static void save(const Unit* text, std::size_t n) {
    if (size - len_ < n) {
      for (std::size_t i = 0; i < n; ++i) save(text[i]);  // up to the message
    }
    std::copy(text, text + n, units_.data() + len_);
    len_ += n;
  }

  /// Removes the unit appended last.
  static void drop_last() { --len_; }

  /// Ends the text with a zero unit and returns it. Fatal message 156 when it is full.
  static const unit* text();

  /// Reads from `c`, already read, up to a newline or the end of input into the empty buffer, gives
  /// the unit that ended it back and returns the text.
  static const unit* rest_of_line(int c);

 private:
  [[noreturn]] static void overflow();

  static inline std::array<unit, size> units_;
  static inline constinit std::size_t len_ = 0;
};

}  // namespace kv::cpp
