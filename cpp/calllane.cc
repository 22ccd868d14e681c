// Most calls of macros are small, stand on one line, and nothing happens in them that anybody but
// the output would notice: no message, no line end, no comment. Such a call is carried out here
// without input frames: texts are read where they lie, a stack of cursors stands for the frames,
// and what must be put together goes into scratch memory that is empty again after the call.
//
// The twin is expand.cc on top of the reader, and this file follows it function by function: the
// same order of reading ahead, of entering and leaving arguments, of disabling and enabling. What
// it leaves out is what it refuses. At the first sign of anything else (a message due, a unit that
// the reader would translate, the line's end, __LINE__, a limit of the scratch memory) the whole
// call is given up: what was written is taken back, and the plain path begins it anew.
#include "cpp/calllane.h"

#include <cstddef>
#include <cstring>

#include "cpp/callexpand.h"
#include "cpp/lanescan.h"
#include "cpp/number.h"
#include "cpp/options.h"
#include "cpp/outbuf.h"
#include "cpp/reader.h"
#include "cpp/scan.h"
#include "cpp/text16.h"

namespace kv::cpp {

namespace {

constexpr std::size_t output_limit = 65536;  // bytes written in one call
static_assert(output_limit < out_size);

// Whether an integer surely ends before the unit at `next`.
template <class Unit>
bool ends_number(const Unit* next) {
  return lane::is_calm(next) && !lane::is_word_unit(next) && *next != '.';
}

class call_lane : call_expander {
 public:
  // Carries out the call; null when it was given up.
  unsigned char* run(symbol* macro, unsigned char* behind_name);

 private:
  void put(int c) {
    if (is_dropped_marker(c)) return;
    if (out_room() == 0) {
      fail();
    } else {
      *out_next++ = static_cast<unsigned char>(c);
    }
  }
  bool ends_calmly(const unit* end, bool& leaves) const;
  bool number_ends_calmly(const unit* end, bool& leaves) const;
  bool enter_argument(const unit* at, bool blanks);
  void write_run(const unit* at, const unit* end) {
    if (out_room() < static_cast<std::size_t>(end - at)) {
      fail();
      return;
    }
    unsigned char* to = out_next;
    while (at != end) *to++ = static_cast<unsigned char>(*at++);
    out_next = to;
  }
  // Whether the expansion just entered begins with a token like any other. What else may come first
  // is not treated as it is between tokens: blanks, for one, are written.
  bool begins_plainly() const {
    return is_plain(*top().at) && lane::kind_at(top().at) != lane::blank;
  }
  bool write_tokens();
  void write_step();
  void finish_token(int c);
  void write_token(int c);

  bool replay(const symbol* macro);
  void start_recording(symbol* macro);
  void finish_recording(bool ends_in_number);

  unsigned char* recorded_from = nullptr;  // where the output of the recorded expansion begins
};

// Writes what the object-like `macro`, which may be expanded here, came to before. Returns false,
// with nothing done, when that is not known or not sure to be the same.
bool call_lane::replay(const symbol* macro) {
  const call_memo* m = memos.find(macro);
  if (m == nullptr) return false;
  if (m->ends_in_number && !(depth == 0 ? ends_number(line) : ends_number(top().at))) return false;
  if (out_room() < m->length) {
    fail();
    return true;
  }
  for (std::size_t i = 0; i < m->macro_count && watched_depth != 0; ++i) note(m->macros[i]);
  std::memcpy(out_next, m->text, m->length);
  out_next += m->length;
  return true;
}

// Remembers what is written from here to the end of the expansion of `macro` that begins now.
void call_lane::start_recording(symbol* macro) {
  if (macro->nargs != NARGS_OBJECT || macro->disable != 0) return;
  watched_depth = depth + 1;
  recorded_from = out_next;
  memos.start(macro);
}

void call_lane::finish_recording(bool ends_in_number) {
  watched_depth = 0;
  if (failed) return;  // not all of it may have been written
  memos.finish(recorded_from, static_cast<std::size_t>(out_next - recorded_from), ends_in_number);
}

void call_lane::write_token(int c) {
  switch (char_class(c)) {
    case CT_QUOTE: {
      const unit* end = end_of_literal();
      if (end == nullptr) return;
      put(c);
      while (top().at != end) put(*top().at++);
      break;
    }
    case CT_DIGIT:
    case CT_DOT: {
      // A unit is read only when it is known to belong to the number.
      struct {
        call_lane& lane;
        bool shown = false;
        int get() {
          if (shown) lane.advance();
          shown = true;
          return lane.peek();
        }
        static void unget() {}
      } input{*this};
      take_number(input, c, [this](int u) { put(u); });
      break;
    }
    case CT_LETTER:
      for (std::size_t i = marks_before_token(); i < token_length; ++i) put(token[i]);
      break;
    default:
      put(c);
  }
}

// What the main loop does with the unit that try_expand() has returned.
void call_lane::finish_token(int c) {
  if (failed || (is_operand_class(char_class(c)) && paste_tokens(c))) return;
  write_token(c);
}

// Whether what ends the word before `end`, in the text on top, shows at sight and has no effect.
// `leaves` tells that it stands behind the reference to the argument that ends at `end`.
inline bool call_lane::ends_calmly(const unit* end, bool& leaves) const {
  leaves = false;
  if (*end != 0) return lane::is_calm(end);
  if (top().macro != nullptr) return true;
  if (depth == 1 || levels[depth - 2].at_end) return false;
  leaves = true;
  const level& below = levels[depth - 2];
  if (*below.at == 0) return below.macro != nullptr;
  return lane::is_calm(below.at) && !lane::is_word_unit(below.at);
}

// The same for a number, which goes on behind the end of an expansion, too, unless it has a suffix.
inline bool call_lane::number_ends_calmly(const unit* end, bool& leaves) const {
  leaves = *end == 0;
  if (leaves && top().macro != nullptr &&
      (number::is_letter(end[-1], 'u') || number::is_letter(end[-1], 'l'))) {
    leaves = false;
    return true;
  }
  if (leaves && depth == 1) {
    return top().macro != nullptr && ends_number(line);
  }
  if (leaves && levels[depth - 2].at_end) return false;
  return ends_number(leaves ? levels[depth - 2].at : end);
}

// Goes on with the text of the argument referred to at `at`, behind blanks if `blanks` is set.
// Returns false, with nothing done, when it begins with nothing that those could be written before.
bool call_lane::enter_argument(const unit* at, bool blanks) {
  level& l = top();
  const int n = *at - MARK_PARAM_BASE;
  if (blanks) {
    const unit* arg = n < l.arg_count ? l.args[n] : nullptr;
    if (arg == nullptr || !is_plain(*arg) || lane::kind_at(arg) == lane::blank) return false;
    put(' ');
  }
  l.at = at + 1;
  push_argument(l, n);
  return true;
}

// Writes the tokens ahead, as long as they are nothing special, and leaves the texts that end with
// them. Returns false when the next unit must be looked at more closely.
bool call_lane::write_tokens() {
  while (depth != 0 && !failed) {
    level& l = top();
    if (l.at_end) return false;
    const unit* at = l.at;
    while (lane::kind_at(at) == lane::blank) ++at;
    const bool blanks = at != l.at;
    const unit* end = at;
    switch (lane::kind_at(at)) {
      case lane::single:
        do {
          ++end;
        } while (lane::kind_at(end) == lane::single);
        break;
      case lane::letter: {
        do {
          ++end;
        } while (lane::is_word_unit(end));
        token = at;
        token_length = static_cast<std::size_t>(end - at);
        bool leaves;
        if (token_length > settings.ident_max || !ends_calmly(end, leaves)) return false;
        l.at = end;
        if (blanks) put(' ');
        if (leaves) pop();
        symbol* macro = look_up();
        if (macro != nullptr && eligible(macro)) {
          if (replay(macro)) continue;
          if (watched_depth == 0) start_recording(macro);
          if (!expand(macro)) {
            finish_token(*at);
          } else if (!begins_plainly()) {
            finish_token(try_expand(get()));
          }
          continue;
        }
        write_run(at, end);
        continue;
      }
      case lane::digit: {
        end = lane::end_of_digits(at);
        bool leaves;
        if (!number_ends_calmly(end, leaves)) return false;
        l.at = end;
        if (blanks) put(' ');
        write_run(at, end);
        if (leaves) {
          if (depth == watched_depth) finish_recording(true);
          pop();
        }
        continue;
      }
      case lane::stop:
        if (*at == 0 && (l.macro != nullptr || !blanks)) {
          l.at = at;
          if (blanks) put(' ');
          if (depth == watched_depth) finish_recording(false);
          pop();
        } else if (!is_param_ref(*at) || !enter_argument(at, blanks)) {
          return false;
        }
        continue;
      default: {
        symbol* none = nullptr;
        end = lane::end_of_token(at, none);
        if (end == nullptr) return false;
      }
    }
    l.at = end;
    if (blanks) put(' ');
    write_run(at, end);
  }
  return true;
}

// Some of what the main loop's copying does, with the stack of texts not empty.
void call_lane::write_step() {
  if (write_tokens()) return;
  bool blanks = false;
  for (;;) {
    if (!settle()) {
      if (blanks) fail();  // they belong to those that follow in the line
      return;
    }
    const int c = get();
    if (char_class(c) == CT_SPACE) {
      blanks = blanks || c != MARK_PASTE;
      continue;
    }
    if (blanks) put(' ');
    finish_token(try_expand(c));
    return;
  }
}

unsigned char* call_lane::run(symbol* macro, unsigned char* behind_name) {
  begin(behind_name);
  if (out_room() < output_limit) out_flush();
  unsigned char* const written = out_next;
  if (!replay(macro)) {
    start_recording(macro);
    if (expand(macro)) {
      if (!begins_plainly()) finish_token(try_expand(get()));
      while (!failed && depth != 0) write_step();
    } else {
      fail();
    }
  }
  if (!failed) return line;
  while (depth != 0) pop();
  out_next = written;
  return nullptr;
}

call_lane the_lane;

}  // namespace

unsigned char* expand_in_line(symbol* macro, unsigned char* behind_name) {
  if (!lanes || settings.macro_report) return nullptr;
  return the_lane.run(macro, behind_name);
}

}  // namespace kv::cpp
