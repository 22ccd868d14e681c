// The two inputs that the grammar of a control line reads from.
//
// Most control lines are calm: no joined line, trigraph or zero byte, no carriage return but before
// the newline, every comment closed on the line. Such a line can be read from its bytes, ahead of
// the reader and without touching it, since nothing in it has an effect but that of its directive.
// What is calm is decided here and nowhere else; at the first sign of anything else, a message due
// included, the line refuses, and the same grammar reads it again from the reader.
//
// Both inputs have get() and unget() of one unit, raw_text to read that of literals in, scan_word()
// for the identifier that begins with a unit, keep() to have such a word for longer, tell() for
// messages, and line_left() to say that a newline has become text of the directive.
#pragma once

#include <cstddef>
#include <cstring>

#include "common/alert.h"
#include "cpp/frames.h"
#include "cpp/linesync.h"
#include "cpp/macro_area.h"
#include "cpp/passing.h"
#include "cpp/reader.h"
#include "cpp/scan.h"
#include "cpp/settings.h"
#include "cpp/token.h"

namespace kv::cpp {

/// An identifier as it lies in an input: cut to its significant units.
template <class Unit>
struct word {
  const Unit* start;
  std::size_t len;

  bool operator==(const word& other) const {
    return len == other.len && std::memcmp(start, other.start, len * sizeof(Unit)) == 0;
  }
};

/// The reader as an input.
class plain_line : public read_input {
 public:
  using word = cpp::word<unit>;

  /// The word lies in token_buf.
  static word scan_word(int c) {
    scan_id(c);
    return {token_buf::text(), token_buf::len()};
  }
  /// The word lies in the macro area, whose user puts its end back.
  static word keep(const word& w) {
    const unit* const start = macro_area::end();
    for (std::size_t i = 0; i < w.len; ++i) macro_area::save(w.start[i]);
    macro_area::save(0);
    return {start, w.len};
  }
  template <class... A>
  static void tell(unsigned number, const A&... args) {
    alert_msg(number, args...);
  }
  static void too_many_params() { alert_msg_fatal(148); }
  static void line_left() { line_sync::renumber(); }
};

/// A line that lies in a file's block, as an input. Nothing is changed by reading it.
class calm_line {
 public:
  using word = cpp::word<unsigned char>;

  /// Reads from `at` up to the line's newline at `newline`.
  calm_line(unsigned char* at, unsigned char* newline) : p_(at), newline_(newline) {}

  int get() {
    before_ = p_;
    if (plain::in_file(*p_)) return *p_++;
    return get_special();
  }
  void unget() { p_ = before_; }
  class raw_text {
   public:
    explicit raw_text(calm_line& in) : in_(in) { in_.raw_ = true; }
    ~raw_text() { in_.raw_ = false; }
    raw_text(const raw_text&) = delete;
    raw_text& operator=(const raw_text&) = delete;

   private:
    calm_line& in_;
  };
  static bool letters_in_numbers() { return conditions::in_asm(); }
  word scan_word(int /*c*/) {
    const unsigned char* const start = p_ - 1;
    p_ = const_cast<unsigned char*>(lane::end_of_run(static_cast<const unsigned char*>(p_)));
    const auto len = static_cast<std::size_t>(p_ - start);
    if (!plain::in_file(*p_)) {  // read ahead: a word can go on behind a unit that is dropped
      get();
      unget();
    }
    return {start, len < settings.ident_max ? len : settings.ident_max};
  }
  static word keep(const word& w) { return w; }
  template <class... A>
  void tell(unsigned /*number*/, const A&...) {
    refuse();
  }
  void too_many_params() { refuse(); }
  void line_left() { refuse(); }

  /// Whether something in the line is not calm. What has been read since is worth nothing.
  bool refused() const { return refused_; }
  /// Where the next unit lies.
  unsigned char* at() const { return p_; }
  /// Passes over the rest of the line, in which only comments and joined lines can matter. Returns
  /// whether it is calm.
  bool skip_rest() {
    while (!refused_) {
      p_ = lane::find_skipped_end(p_, newline_);
      if (p_ == newline_) return true;
      if (*p_ != '/') break;
      skip_comment();
    }
    return false;
  }

 private:
  int refuse() {
    refused_ = true;
    p_ = newline_;
    return '\n';
  }
  void skip_comment() {
    unsigned char* const behind = lane::end_of_comment(p_, newline_);
    if (behind == nullptr) {
      refuse();
    } else {
      p_ = behind;
    }
  }
  int get_special() {
    for (;;) {
      const unsigned char c = *p_;
      if (p_ == newline_) return '\n';
      if (raw_ && c == '\\') return *p_++;
      if (c == '/' && (raw_ || (p_[1] != '/' && p_[1] != '*'))) return *p_++;
      if (c == '?' && p_[1] != '?') return *p_++;
      if (c == '\\' && plain::in_file(p_[1]) && !is_blank(p_[1])) return *p_++;
      if (c == '/') {
        skip_comment();
        if (!refused_ && p_ != newline_ && !is_blank(*p_)) return ' ';
      } else if (c == '\r' && p_ + 1 == newline_) {
        ++p_;
      } else {
        return refuse();
      }
      if (plain::in_file(*p_)) return *p_++;
    }
  }

  unsigned char* p_;
  unsigned char* newline_;
  unsigned char* before_ = nullptr;
  bool raw_ = false;
  bool refused_ = false;
};

/// skip_ws() for any input.
template <class Input>
int skip_white(Input& in) {
  int c;
  do {
    c = in.get();
  } while (is_blank(c) || c == MARK_EXP_END);
  return c;
}

}  // namespace kv::cpp
