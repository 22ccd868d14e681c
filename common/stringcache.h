// Interned strings: equal texts are stored once and live until exit.
//
// The host library hands out most of its computed strings this way, so callers keep them without
// thinking of ownership and may compare them by pointer. Each result is built in one shared scratch
// buffer and then entered in the cache table. Nothing here takes ownership of its arguments.
//
// What may surprise: arguments must not point into a result that is still being built, so no
// call-back runs while one is.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "common/format.h"
#include "common/vector.h"

namespace kv {

/// The interned copy of s; null for null. Like all operations here, it raises 296 (fatal) without
/// memory.
const char* str_intern(const char* s);

/// The interned copy of a counted text, which ends at a zero byte if it holds one.
const char* str_intern(std::string_view s);

/// The interned formatted text.
const char* str_vprintf(std::string_view text, std::span<const format_arg> args);

/// `str_vprintf` with the arguments listed.
template <formattable... A>
const char* str_printf(std::string_view text, const A&... args) {
  const auto packed = format_args(args...);
  return str_vprintf(text, packed);
}

/// The interned text of a followed by b.
const char* str_cat(const char* a, const char* b);

/// As `str_cat`; when one is null, the other as it is.
const char* str_cat_opt(const char* a, const char* b);

/// The interned first n characters of s; null for null.
const char* str_left(const char* s, std::size_t n);

/// dir and name joined by exactly one backslash, interned. When one is null or empty, the other as
/// it is.
const char* str_path_join(const char* dir, const char* name);

/// Whether s ends or begins with the given text; false when either is null. What remains of s
/// (the tail itself for the end test) is interned when the answer is yes.
bool str_ends_with(const char* s, const char* tail);
bool str_starts_with(const char* s, const char* head);
bool str_starts_with_nocase(const char* s, const char* head);

/// A new vector of the interned tokens of s, which are separated by runs of characters of delims;
/// empty for null. The vector belongs to the caller.
vector* str_split(const char* s, const char* delims);

/// Bucket count of the cache table, which is made at first use (5077); 0 switches caching off, and
/// every result is a fresh copy.
void str_cache_set_size(std::uint32_t buckets);

/// When not 0, results are fresh copies once more than this many strings have been entered.
void str_cache_set_limit(std::uint32_t limit);

/// Reads lines from a descriptor that it does not own, in large blocks.
struct line_reader {
  explicit line_reader(int descriptor) : fd(descriptor) {}

  int fd;
  bool at_end = false;   ///< a read met the end; at a terminal another one would wait for more
  int error = 0;         ///< errno of a read that failed, which counts as the end
  std::size_t next = 0;  ///< bytes next..end of the buffer are read but not yet taken
  std::size_t end = 0;
  char buffer[4096];
};

/// The next line with its newline, of any length, interned; null at the end of the file or on a
/// read error. It is taken in pieces of up to 1023 characters and ends with a piece that ends in a
/// newline or a carriage return. Zero bytes are left out, since a string cannot hold them.
const char* read_long_line(line_reader& in);

}  // namespace kv
