// Memory for the frame stack: it grows at the top and shrinks back, and what it has grown to is
// kept.
#pragma once

#include <cstddef>

namespace kv::cpp {

/// The part of the arena that is in use: one of its chunks, from `base` to `limit`, and the next
/// free byte in it. Only this module changes it.
struct arena_top {
  std::byte* next;
  std::byte* base;
  std::byte* limit;
};
extern arena_top arena;

std::byte* arena_grow(std::size_t n);
void arena_shrink(std::byte* at);

/// The bytes that a request for `n` takes up.
constexpr std::size_t arena_rounded(std::size_t n) {
  return (n + alignof(std::max_align_t) - 1) & ~(alignof(std::max_align_t) - 1);
}

/// Room for `n` bytes on top of what is in use, uninitialised, aligned for any type. Fatal 296
/// without memory.
inline std::byte* arena_alloc(std::size_t n) {
  n = arena_rounded(n);
  std::byte* const p = arena.next;
  if (static_cast<std::size_t>(arena.limit - p) < n) return arena_grow(n);
  arena.next = p + n;
  return p;
}

/// Gives back everything from `p` on, an aligned place in what is allocated.
inline void arena_release(void* p) {
  auto* const at = static_cast<std::byte*>(p);
  if (at >= arena.base && at < arena.limit) {
    arena.next = at;
  } else {
    arena_shrink(at);
  }
}

}  // namespace kv::cpp
