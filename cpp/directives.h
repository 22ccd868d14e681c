// The directives, to those who look at lines ahead of the reader. Their table is in control.cc.
#pragma once

#include <cstddef>
#include <cstdint>

#include "cpp/text16.h"

namespace kv::cpp {

/// What a directive is. All but the first five are
/// passed over in a skipped group.
enum class role : std::uint8_t {
  opens_if,
  opens_ifdef,
  opens_ifndef,
  elif,
  else_,
  closes,
  define,
  undef,
  include,
  other
};

/// Whether a directive of this role opens a conditional group.
constexpr bool opens_group(role r) {
  return r <= role::opens_ifndef;
}
/// Whether one is passed over like text in a skipped group.
constexpr bool is_idle_when_skipped(role r) {
  return r >= role::define;
}

/// A word of up to eight letters as a number, the first letter lowest.
using packed_word = std::uint64_t;
inline constexpr std::size_t packed_limit = 8;

/// A directive as the running mode knows it.
struct directive {
  int code;
  role what;
  unsigned flags;
  packed_word keyword;
  void (*carry_out)();  ///< with its word read
};

/// The directive of the word of `len` units, or null.
const directive* find_directive(const unit* word, std::size_t len);
/// The same for a word in a line, with name_slack bytes behind it.
const directive* find_directive(const unsigned char* word, std::size_t len);

}  // namespace kv::cpp
