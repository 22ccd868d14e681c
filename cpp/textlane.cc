// Most of a C file passes through unchanged but for its blanks. This lane looks at the bytes where
// they lie in the line, finds out token by token that nothing has to be done to them, and copies
// runs of tokens at once. Macros are expanded where they are met, and what they come to is taken
// from the texts in the same way. The twin it must agree with is copy_line() in the driver, which
// takes the same text unit by unit.
#include "cpp/textlane.h"

#include <cstddef>

#include "cpp/conditions.h"
#include "cpp/expand.h"
#include "cpp/lanes.h"
#include "cpp/lines.h"
#include "cpp/linesync.h"
#include "cpp/outbuf.h"
#include "cpp/output.h"
#include "cpp/passing.h"
#include "cpp/reader.h"
#include "cpp/settings.h"
#include "cpp/symtab.h"
#include "cpp/texts.h"
#include "cpp/token.h"

namespace kv::cpp {

namespace {

// A comment between tokens, `p` at its `/`. Returns what stands behind it, or null where the plain
// path must take it.
unsigned char* skip_comment(unsigned char* p, unsigned char* newline_at) {
  unsigned char* behind =
      conditions::copies_comments() ? nullptr : lane::end_of_comment(p, newline_at);
  if (behind != nullptr) lane::leave_comment_space(behind);
  return behind;
}

// Where copying tokens of a line has stopped: at the line's newline, at the first token that is
// left alone, before the blanks in front of it; or behind the name of `macro`, which has not been
// written.
struct line_stop {
  unsigned char* at;
  symbol* macro;
};

line_stop copy_tokens(unsigned char* p, unsigned char* newline_at) {
  const unsigned char* run = p;  // what follows is to be copied as it stands, up to p
  for (;;) {
    symbol* macro = nullptr;
    const unsigned char* name_end = nullptr;
    p = const_cast<unsigned char*>(
        lane::pass_tokens(static_cast<const unsigned char*>(p), macro, name_end));
    unsigned char* token = p;
    auto* end = const_cast<unsigned char*>(name_end);
    if (macro == nullptr) {
      unsigned char* resume = p;  // where the plain path goes on if it must
      token = lane::skip_blanks(p);
      while (*token == '/') {
        unsigned char* behind = skip_comment(token, newline_at);
        if (behind == nullptr) break;
        token = lane::skip_blanks(behind);
        resume = token != behind ? behind : behind - 1;  // a blank, for the comment
      }
      outbuf::bytes(run, static_cast<std::size_t>(p - run));
      run = token;
      end = const_cast<unsigned char*>(
          lane::end_of_token(static_cast<const unsigned char*>(token), macro));
      if (end == nullptr) return {*token == '\n' ? token : resume, nullptr};
      if (token != p) outbuf::byte(' ');
    }
    p = end;
    if (macro != nullptr) {
      outbuf::bytes(run, static_cast<std::size_t>(token - run));
      return {end, macro};
    }
  }
}

// Writes what text_taker takes.
struct output_sink {
  static constexpr bool copies = true;
  static constexpr bool scans_numbers = true;
  static constexpr bool joins_blanks = true;

  static bool expands(const input_frame* /*f*/) { return true; }
  static const unit* run(const unit* at) { return at; }
  static void blank() { outbuf::byte(' '); }
  static bool takes(const argument& arg) { return arg.len + copy_slack <= outbuf::size; }
  static expansion expand(symbol* sym) {
    return expand_name(sym) ? expansion::done : expansion::none;
  }
  static void units(const unit* at, const unit* end) {
    outbuf::units(at, static_cast<std::size_t>(end - at));
  }
  static void word(const unit* at, const unit* end, bool /*mark*/) { units(at, end); }
  static const unit* singles(const unit* at) {
    const unit* end = at;
    while (lane::kind_at(end) == lane::single) ++end;
    units(at, end);
    return end;
  }
};
static_assert(outbuf::size > frame_capacity + copy_slack);

// Moves on to the next line of text, past empty ones, with the newline of this one written. Returns
// false at the start of a line that may be another.
bool next_text_line(input_frame* f) {
  for (;;) {
    ++f->rdptr;
    line_number::count();
    if (!load_line(f)) return false;
    f->rdptr = lane::skip_blanks(f->rdptr);
    if (*f->rdptr != '\n') break;
    line_sync::hold();
  }
  // A line that surely is one of text goes on here, even if its first token has to be left alone.
  if (*f->rdptr == '#' || !plain::in_file(*f->rdptr)) return false;
  if (line_sync::lags()) sync_lines();
  return true;
}

}  // namespace

lane_stop copy_plain_text() {
  if (!lanes || conditions::in_asm() || settings.cmode_asm || !text_output())
    return lane_stop::in_line;
  output_sink sink;
  text_taker texts(sink);
  bool replaced = false;
  for (;;) {
    if (texts.take(replaced) == texts_end::replaced) return lane_stop::in_replacement;
    replaced = false;
    input_frame* const f = cur_frame;
    if (f == nullptr || f->rdptr == f->line_end) return lane_stop::in_line;
    const line_stop stop = copy_tokens(f->rdptr, f->line_end - 1);
    f->rdptr = stop.at;
    if (symbol* const macro = stop.macro; macro != nullptr) {
      replaced = sym_eligible(macro) && expand_name(macro);
      if (!replaced) sink.units(macro->name, macro->name + macro->name_len);
    } else if (*f->rdptr != '\n') {
      return lane_stop::in_line;
    } else {
      outbuf::byte('\n');
      if (!next_text_line(f)) return lane_stop::at_line_start;
    }
  }
}

}  // namespace kv::cpp
