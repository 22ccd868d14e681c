// Memory for the frame stack: it grows at the top and shrinks back, and what it has grown to is
// kept.
#pragma once

#include <cstddef>

namespace kv::cpp {

/// The bytes that a request for `n` takes up.
constexpr std::size_t arena_rounded(std::size_t n) {
  return (n + alignof(std::max_align_t) - 1) & ~(alignof(std::max_align_t) - 1);
}

/// Room for `n` bytes on top of what is in use, uninitialised, aligned for any type. Fatal 296
/// without memory.
std::byte* arena_alloc(std::size_t n);

/// Gives back everything from `p` on, an aligned place in what is allocated.
void arena_release(void* p);

}  // namespace kv::cpp
