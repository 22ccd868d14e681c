// The reader of the lane of calls: the texts that are being read inside one another, above the line
// of a file. Its twin is the reader of input frames, of which it keeps what a calm text needs; what
// it cannot deliver exactly makes it fail, and a failure lasts until the call is given up.
#pragma once

#include <array>
#include <cstddef>

#include "cpp/lanescan.h"
#include "cpp/scan.h"
#include "cpp/symtab.h"
#include "cpp/text16.h"

namespace kv::cpp {

/// One text being read: an expansion (`macro` set), an argument of one (`arg_of` set), or
/// generated.
struct level {
  const unit* at;  // the next unit; a zero ends the text
  symbol* macro;
  symbol* arg_of;
  unit* const* args;  // expansions: the arguments, `arg_count` of them
  int arg_count;
  bool at_end;  // expansions: MARK_EXP_END has been delivered
};

class call_reader {
 protected:
  static constexpr std::size_t levels_limit = 64;  // texts being read inside one another
  static constexpr std::size_t name_limit = 255;   // units of a name that lies in several texts

  // Whether the unit of a text is delivered as it is, whatever surrounds it.
  static bool is_plain(unit c) { return c < 256 && lane::calm_units[c] && c != '\n'; }

  // Both note that the call must be given up; one returns no unit, the other false.
  int fail() {
    failed = true;
    return 0;
  }
  bool refuse() {
    failed = true;
    return false;
  }

  // Begins to read `text` on top of the others: an expansion of `macro`, an argument of `arg_of`,
  // or generated. The fields are set where they lie, since a record that is put together first and
  // copied then costs more than all else here.
  void push(const unit* text, symbol* macro, symbol* arg_of) {
    if (depth == levels_limit) {
      fail();
      return;
    }
    level& l = levels[depth++];
    l.at = text;
    l.macro = macro;
    l.arg_of = arg_of;
    l.arg_count = 0;
    l.at_end = false;
  }
  void pop() {
    const level& l = levels[--depth];
    if (depth < watched_depth) watched_depth = 0;
    if (l.macro != nullptr) {
      --l.macro->disable;
    } else if (l.arg_of != nullptr) {
      ++l.arg_of->disable;
    }
  }
  // Enters argument `n` of `expansion`, behind the reference to it.
  void push_argument(level& expansion, int n);
  void push_generated(const unit* text) { push(text, nullptr, nullptr); }

  // Leaves texts that are used up and enters arguments referred to, until there is a unit to read.
  // Returns whether it is one of a text, not of the line.
  bool settle();
  // The next unit, not yet read; 0 after a failure.
  int peek() {
    if (depth != 0 && is_plain(*top().at)) return *top().at;
    return settle() ? peek_text() : peek_line();
  }
  int peek_text();
  int peek_line() { return failed || !lane::is_calm(line) ? fail() : *line; }
  // Reads the unit that peek() has just shown.
  void advance();
  int get() {
    if (depth != 0 && is_plain(*top().at)) return *top().at++;
    const int c = peek();
    if (!failed) advance();
    return c;
  }
  int get_nomark() {
    int c;
    do {
      c = get();
    } while (c == MARK_PASTE || c == MARK_EXP_END);
    return c;
  }
  // Gives back the unit that get() has just read.
  void unget();
  level& top() { return levels[depth - 1]; }
  const level& top() const { return levels[depth - 1]; }
  // Whether the text being read is an argument or generated.
  bool in_argument_text() const { return depth != 0 && levels[depth - 1].macro == nullptr; }

  // Gathers the name that begins with the unit read last. The token lies where it stands, or in
  // `name_buf` when its units come from several texts.
  void scan_name(int c);
  std::size_t marks_before_token() const {
    std::size_t n = 0;
    while (n < token_length && token[n] == MARK_NOEXPAND) ++n;
    return n;
  }
  // Whether `macro` may be expanded where reading stands.
  bool eligible(const symbol* macro) const {
    const bool in_its_argument =
        in_argument_text() && depth > 1 && levels[depth - 2].macro == macro;
    return in_its_argument || macro->disable == 0;
  }

  unsigned char* line = nullptr;  // the next byte of the file's line
  bool failed = false;
  std::size_t depth = 0;          // texts being read
  std::size_t watched_depth = 0;  // becomes 0 when the text at this depth is left
  const unit* token = nullptr;    // the name gathered last
  std::size_t token_length = 0;
  std::array<level, levels_limit> levels;

 private:
  std::array<unit, name_limit> name_buf;
};

inline bool call_reader::settle() {
  while (depth != 0 && !failed) {
    level& l = top();
    if (l.at_end || (*l.at == 0 && l.macro == nullptr)) {
      pop();
    } else if (is_param_ref(*l.at)) {
      push_argument(l, *l.at++ - MARK_PARAM_BASE);
    } else {
      return true;
    }
  }
  return false;
}

inline int call_reader::peek_text() {
  const unit* at = top().at;
  if (*at == 0) return MARK_EXP_END;
  if (*at < 256) {
    if (lane::calm_units[*at] || *at == '?') return *at;
    // A `/` is read together with the unit behind it.
    return *at == '/' && at[1] != 0 && at[1] != '/' && at[1] != '*' ? '/' : fail();
  }
  return *at == MARK_NOEXPAND || *at == MARK_PASTE ? *at : fail();
}

inline void call_reader::advance() {
  if (depth != 0) {
    level& l = top();
    if (*l.at == 0) {
      l.at_end = true;
    } else if (*l.at == '\n') {
      fail();
    } else {
      ++l.at;
    }
  } else if (*line == '\n' || *line == '\r') {
    fail();
  } else {
    ++line;
  }
}

inline void call_reader::unget() {
  if (depth == 0) {
    --line;
  } else if (top().at_end) {
    top().at_end = false;
  } else {
    --top().at;
  }
}

}  // namespace kv::cpp
