// The buffered standard output: everything the program writes there gathers in one block and leaves
// in large writes. Whoever touches descriptor 1 directly flushes first.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

namespace kv::cpp {

inline constexpr std::size_t out_size = 131072;

extern unsigned char out_block[out_size];
/// Where the next byte goes, inside or at the end of out_block.
extern unsigned char* out_next;

/// Writes what has gathered to descriptor 1. Write errors are not reported.
void out_flush();

/// Whether nothing has been written behind the last newline.
bool out_at_line_start();

/// The bytes that can be appended before the block has to leave.
inline std::size_t out_room() {
  return static_cast<std::size_t>(out_block + out_size - out_next);
}

/// Appends one byte.
inline void out_byte(unsigned char c) {
  if (out_next == out_block + out_size) out_flush();
  *out_next++ = c;
}

/// Appends `n` bytes.
void out_large(const void* p, std::size_t n);

inline void out_bytes(const void* p, std::size_t n) {
  if (out_room() < n) {
    out_large(p, n);
    return;
  }
  std::memcpy(out_next, p, n);
  out_next += n;
}

inline void out_text(std::string_view s) {
  out_bytes(s.data(), s.size());
}

}  // namespace kv::cpp
