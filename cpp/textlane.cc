// Most of a C file passes through unchanged but for its blanks. This lane looks at the bytes where
// they lie in the line, finds out token by token that nothing has to be done to them, and copies
// runs of tokens at once; calls of macros it hands to the lane for these. The twin it must agree
// with is copy_line() in the driver, which takes the same text unit by unit.
#include "cpp/textlane.h"

#include <array>
#include <cstddef>

#include "cpp/calllane.h"
#include "cpp/control.h"
#include "cpp/lanes.h"
#include "cpp/lanescan.h"
#include "cpp/options.h"
#include "cpp/outbuf.h"
#include "cpp/output.h"
#include "cpp/reader.h"
#include "cpp/symtab.h"

namespace kv::cpp {

namespace {

using lane::blank;
using lane::kinds;

// A comment between tokens, `p` at its `/`. Returns what stands behind it, or null where the plain
// path must take it.
unsigned char* skip_comment(unsigned char* p, unsigned char* newline_at) {
  unsigned char* behind = keep_comments_now ? nullptr : lane::end_of_comment(p, newline_at);
  if (behind != nullptr) lane::leave_comment_space(behind);
  return behind;
}

// What a single blank can stand before, as part of a run that is copied: tokens that cannot turn
// out to be white space themselves.
constexpr std::array<bool, 256> make_solid_units() {
  std::array<bool, 256> t{};
  for (std::size_t c = 0; c < 256; ++c) {
    t[c] = kinds[c] != lane::stop && kinds[c] != blank && kinds[c] != lane::newline && c != '/' &&
           c != '?';
  }
  return t;
}
constexpr std::array<bool, 256> solid_units = make_solid_units();

// Passes over tokens from `p` on that are copied as they stand, single blanks between them
// included. Returns where that ends; with `macro` set, that is the name of a macro, which ends at
// `name_end`.
inline unsigned char* pass_tokens(unsigned char* p, symbol*& macro, unsigned char*& name_end) {
  for (;;) {
    const unsigned char* end = nullptr;
    switch (kinds[*p]) {
      case lane::letter:
        end = lane::end_of_word(p, macro);
        if (macro != nullptr) {
          name_end = const_cast<unsigned char*>(end);
          return p;
        }
        break;
      case lane::single:
        if (*p != '?' || p[1] != '?') end = p + 1;
        break;
      case blank:
        if (*p == ' ' && solid_units[p[1]]) end = p + 1;
        break;
      case lane::operand:
        if (*p != '/' && lane::calm_units[p[1]]) {
          end = p + 1;
          break;
        }
        [[fallthrough]];
      default:
        end = lane::end_of_token(p, macro);
    }
    if (end == nullptr) return p;
    p = const_cast<unsigned char*>(end);
  }
}

// Copies tokens from `p`. Returns where it stopped: at the line's newline, or at the first token
// that it leaves alone, or before the blanks in front of it.
unsigned char* copy_tokens(unsigned char* p, unsigned char* newline_at) {
  const unsigned char* run = p;  // what follows is to be copied as it stands, up to p
  for (;;) {
    symbol* macro = nullptr;
    unsigned char* end = nullptr;
    unsigned char* token = p = pass_tokens(p, macro, end);
    if (macro == nullptr) {
      unsigned char* resume = p;  // where the plain path goes on if it must
      token = lane::skip_blanks(p);
      while (*token == '/') {
        unsigned char* behind = skip_comment(token, newline_at);
        if (behind == nullptr) break;
        token = lane::skip_blanks(behind);
        resume = token != behind ? behind : behind - 1;  // a blank, for the comment
      }
      out_bytes(run, static_cast<std::size_t>(p - run));
      run = token;
      end = const_cast<unsigned char*>(
          lane::end_of_token(static_cast<const unsigned char*>(token), macro));
      if (end == nullptr) return *token == '\n' ? token : resume;
      if (token != p) out_byte(' ');
    }
    p = end;
    if (macro != nullptr) {
      out_bytes(run, static_cast<std::size_t>(token - run));
      unsigned char* behind = expand_in_line(macro, p);
      if (behind == nullptr) return token;
      run = p = behind;
    }
  }
}

// The same for the text frame on top, whose units must be narrowed. A frame's end is left to the
// reader.
void copy_units(input_frame* f) {
  for (;;) {
    const unit* token = f->txptr;
    while (lane::kind_at(token) == blank) ++token;
    symbol* macro = nullptr;
    const unit* end = lane::end_of_token(token, macro);
    if (end == nullptr || macro != nullptr) return;
    if (token != f->txptr) out_byte(' ');
    for (const unit* p = token; p != end; ++p) out_byte(static_cast<unsigned char>(*p));
    f->txptr = end;
  }
}

}  // namespace

lane_stop copy_plain_text(int& pending) {
  input_frame* f = cur_frame;
  if (!lanes || f == nullptr || in_asm || settings.cmode_asm || !text_output()) {
    return lane_stop::in_line;
  }
  if (f->rdptr == f->line_end) {
    if (f->file == nullptr) copy_units(f);
    return lane_stop::in_line;
  }
  for (;;) {
    f->rdptr = copy_tokens(f->rdptr, f->line_end - 1);
    if (*f->rdptr != '\n') return lane_stop::in_line;
    out_byte('\n');
    pending = 0;
    // The next line of text, past empty ones.
    for (;;) {
      ++f->rdptr;
      count_line();
      if (!load_next_line()) return lane_stop::at_line_start;
      while (kinds[*f->rdptr] == blank) ++f->rdptr;
      if (*f->rdptr != '\n') break;
      ++pending;
    }
    // A line that surely is one of text goes on here, even if its first token has to be left alone.
    if (*f->rdptr == '#' || !plain.in_file[*f->rdptr]) return lane_stop::at_line_start;
    if (pending != 0 || need_linemark) pending = sync_lines(pending);
  }
}

}  // namespace kv::cpp
