// Include guards: whether a header is one conditional group that is skipped as long as a macro is
// defined, so that the run need not read it again.
#pragma once

#include <cstddef>

namespace kv::cpp {

/// What is known of a header that lies inside an include guard: of reading it while the guard's
/// macro is defined nothing remains but newlines.
struct include_guard {
  const unsigned char* name = nullptr;  ///< the macro's, in the header's text; null: no guard
  std::size_t name_len = 0;
  int newlines = 0;             ///< what reading the header adds to the newlines held back
  int depth = 0;                ///< conditional groups open at once, the guard's own included
  bool outer_comments = false;  ///< there are comments outside the group
};

/// The guard of the header `text`, `size` bytes with a newline behind them and search_slack
/// readable bytes behind that. Text that could have any other effect, a message above all, counts
/// as unguarded; that covers the default mode alone, without the assembler's and the linker's
/// conventions.
include_guard guard_of(const unsigned char* text, std::size_t size);

}  // namespace kv::cpp
