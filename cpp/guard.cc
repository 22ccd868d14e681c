// The plain way through a header whose guard is defined is a blank line or a comment here and
// there, the #ifndef, the skipped group, its #endif, and again nothing but blanks. This file
// follows that way in the header's bytes, with one question at each step: would reading this do
// more than count a newline? Where it would, or where finding out takes more than a glance (a
// joined line before a directive, a trigraph, a word that is no directive), the header has no
// guard and is read.
#include "cpp/guard.h"

#include <array>
#include <cstddef>

#include "cpp/conditions.h"
#include "cpp/directives.h"
#include "cpp/lanes.h"
#include "cpp/passing.h"
#include "cpp/reader.h"
#include "cpp/scan.h"
#include "cpp/source.h"

namespace kv::cpp {

namespace {

// Whether reading `c` gives white space.
bool reads_as_blank(unsigned char c) {
  return is_blank(c) || c == '\v' || c == '\f';
}

// Whether the text is free of what the steps below do not look for: zero bytes, trigraphs, a
// carriage return without its newline, and lines that would be cut.
bool is_regular(const unsigned char* text, const unsigned char* end) {
  for (const unsigned char* p = text; (p = find_any(p, end, 0, '?', '\r')) != end; ++p) {
    if (*p == 0 || (*p == '?' && p[1] == '?') || (*p == '\r' && p[1] != '\n')) return false;
  }
  // The last newline that the line may have is near the limit.
  for (const unsigned char* line = text; end - line >= line_capacity;) {
    const unsigned char* p = line + line_capacity;
    while (p != line && p[-1] != '\n') --p;
    if (p == line) return false;
    line = p;
  }
  return true;
}

// The steps. Each moves on over what it is named after, and returns false at anything that has to
// be read.
class header_scan {
 public:
  header_scan(const unsigned char* text, const unsigned char* end) : p_(text), end_(end) {}

  bool guarded(include_guard& guard) {
    if (!pass_blank_lines() || *p_ != '#') return false;
    guard.outer_comments = comments_;
    const directive* const first = directive_here();
    if (first == nullptr || first->what != role::opens_ifndef) return false;
    if (!pass_name(guard) || !pass_line_end()) return false;
    if (!pass_group()) return false;
    comments_ = false;
    if (!pass_blank_lines() || p_ < end_) return false;
    guard.outer_comments |= comments_;
    guard.newlines = newlines_;
    guard.depth = static_cast<int>(most_groups_);
    return true;
  }

 private:
  bool pass_comment() {
    comments_ = true;
    const unsigned char* const end = lane::end_of_comment(p_, end_);
    if (end != nullptr) p_ = end;
    return end != nullptr;
  }

  bool at_comment() const { return *p_ == '/' && (p_[1] == '*' || p_[1] == '/'); }

  bool pass_blanks() {
    for (;;) {
      while (reads_as_blank(*p_) || *p_ == '\r') ++p_;
      if (!at_comment()) return true;
      if (!pass_comment()) return false;
    }
  }

  void pass_newline() {
    ++p_;
    ++newlines_;
  }

  bool pass_blank_lines() {
    while (p_ < end_) {
      if (!pass_blanks()) return false;
      if (*p_ != '\n') break;
      pass_newline();
    }
    return true;
  }

  // The rest of a line that must be complete.
  bool pass_line_end() {
    if (!pass_blanks() || *p_ != '\n') return false;
    pass_newline();
    return true;
  }

  // A backslash that joins the next line, or several in front of a unit that they have no effect
  // on.
  bool pass_backslashes() {
    const unsigned char* first = p_;
    while (*p_ == '\\') ++p_;
    if (plain::in_file(*p_) && !reads_as_blank(*p_)) return true;
    const bool single = p_ - first == 1;
    if (*p_ == '\r') ++p_;
    return single && *p_ == '\n' && ++p_ < end_;
  }

  // The rest of a skipped line, with the lines joined to it.
  bool pass_skipped_text() {
    for (;;) {
      p_ = lane::find_skipped_end(p_, end_);
      if (p_ == end_ || *p_ == '\n') break;
      if (*p_ == '\\') {
        if (!pass_backslashes()) return false;
      } else if (!at_comment() || !pass_comment()) {
        return false;
      }
    }
    pass_newline();
    return true;
  }

  void pass_word() {
    while (continues_id(*p_)) ++p_;
  }

  // From the `#` of a control line; null where there is none, and where the word might be a longer
  // one that goes on with the next line.
  const directive* directive_here() {
    ++p_;
    if (!pass_blanks()) return nullptr;
    const unsigned char* const start = p_;
    pass_word();
    return *p_ == '\\' ? nullptr : find_directive(start, static_cast<std::size_t>(p_ - start));
  }

  bool pass_name(include_guard& guard) {
    if (!pass_blanks() || char_class(*p_) != CT_LETTER) return false;
    guard.name = p_;
    pass_word();
    guard.name_len = static_cast<std::size_t>(p_ - guard.name);
    return true;
  }

  bool open_group() {
    if (groups_ == cond_entries) return false;
    else_seen_[groups_++] = false;
    if (groups_ > most_groups_) most_groups_ = groups_;
    return true;
  }

  // An #else or #elif of a nested group; the guard itself has none.
  bool alternate(const directive& d) {
    if (groups_ == 1 || else_seen_[groups_ - 1]) return false;
    if (d.what == role::elif) return pass_skipped_text();
    else_seen_[groups_ - 1] = true;
    return pass_line_end();
  }

  bool pass_control_line() {
    const directive* const d = directive_here();
    if (d == nullptr) return false;
    if (opens_group(d->what)) return open_group() && pass_skipped_text();
    switch (d->what) {
      case role::elif:
      case role::else_: return alternate(*d);
      case role::closes: --groups_; return pass_line_end();
      default: return pass_skipped_text();
    }
  }

  // The guard's group, from behind its first line to behind its #endif.
  bool pass_group() {
    open_group();
    while (groups_ != 0) {
      if (p_ >= end_ || !pass_blanks() || *p_ == '\\') return false;
      if (!(*p_ == '#' ? pass_control_line() : pass_skipped_text())) return false;
    }
    return true;
  }

  const unsigned char* p_;
  const unsigned char* end_;  // a newline stands there, too
  int newlines_ = 0;
  bool comments_ = false;
  std::array<bool, cond_entries> else_seen_{};
  std::size_t groups_ = 0;
  std::size_t most_groups_ = 0;
};

}  // namespace

include_guard guard_of(const unsigned char* text, std::size_t size) {
  include_guard guard;
  const unsigned char* end = text + size;
  if (!is_regular(text, end) || !header_scan(text, end).guarded(guard)) return {};
  return guard;
}

}  // namespace kv::cpp
