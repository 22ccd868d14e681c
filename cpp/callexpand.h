// The expander of the lane of calls: what expand.cc does with input frames, done with the texts of
// call_reader. It keeps to the order of expand.cc, of reading ahead, of entering and leaving
// arguments, of disabling and enabling, and makes the reader fail where a message would be due.
#pragma once

#include <array>
#include <cstddef>

#include "cpp/callmemo.h"
#include "cpp/callreader.h"
#include "cpp/symtab.h"
#include "cpp/text16.h"

namespace kv::cpp {

class call_expander : protected call_reader {
 protected:
  // As try_expand() and paste_tokens() of expand.h; 0 and false after a failure.
  int try_expand(int c);
  bool paste_tokens(int c);

  // The macro that the token names, or null.
  symbol* look_up() {
    symbol* macro = sym_find(token, token_length);
    if (macro != nullptr && watched_depth != 0) note(macro);
    return macro;
  }

  // A macro met while an expansion is recorded: the record depends on its not being expanded
  // outside.
  void note(symbol* macro);

  // Expands `macro`, named by the token and eligible. Returns false when it is not called after
  // all, and after a failure.
  bool expand(symbol* macro);

  // The end of the literal whose opening quote was read last; null after a failure.
  const unit* end_of_literal() {
    const unit* end = depth == 0 ? nullptr : lane::end_of_quoted(top().at - 1);
    if (end == nullptr) fail();
    return end;
  }

  // Empties everything, for a call in the line at `at`.
  void begin(unsigned char* at);

  call_memos memos;

 private:
  static constexpr int calls_limit = 16;               // calls being collected inside one another
  static constexpr std::size_t scratch_size = 32768;   // units of arguments and replacements
  static constexpr std::size_t collected_size = 8192;  // units of arguments being collected
  static constexpr std::size_t pointers_size = 1024;   // argument pointers

  struct call {
    explicit call(const symbol* sym) : macro(sym) {}

    const symbol* macro;
    int count = 0;
    std::array<unit*, max_macro_args> args;  // the first `count`
  };

  bool replace(symbol* macro);
  bool find_open_paren();
  void push_replacement(symbol* macro, const call* c);
  int expand_fully(int c);
  void collect(call& c);
  void collect_from_line(call& c);
  void collect_run(int& parens);
  void collect_identifier(const call& c);
  bool collect_unit(int c, int& parens);
  void keep_collected(call& c, unit* mark);

  void collect_save(int c) {
    if (collected == collected_text.data() + collected_size) {
      fail();
    } else {
      *collected++ = static_cast<unit>(c);
    }
  }
  void append_due_space() {
    if (space_due) collect_save(' ');
    space_due = false;
  }
  // Room for `n` units that lasts until the call is done; null after a failure.
  unit* keep(std::size_t n) {
    if (scratch_size - kept < n) {
      fail();
      return nullptr;
    }
    unit* room = scratch.data() + kept;
    kept += n;
    return room;
  }

  bool space_due = false;  // white space passed over in the argument being collected
  int calls = 0;
  std::size_t kept = 0;
  std::size_t pointers_used = 0;
  unit* collected = nullptr;
  std::array<unit*, pointers_size> pointers;
  std::array<unit, collected_size> collected_text;
  std::array<unit, scratch_size> scratch;
};

}  // namespace kv::cpp
