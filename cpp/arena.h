// Memory for the frame stack: it grows at the top and shrinks back, and what it has grown to is
// kept.
#pragma once

#include <cstddef>

namespace kv::cpp {

class arena {
 public:
  /// Room for `n` bytes on top of what is in use, uninitialised, aligned for any type. Fatal 296
  /// without memory.
  static std::byte* alloc(std::size_t n) {
    n = rounded(n);
    std::byte* const p = top_.next;
    if (static_cast<std::size_t>(top_.limit - p) < n) return grow(n);
    top_.next = p + n;
    return p;
  }

  /// Gives back everything from `p` on, an aligned place in what is allocated.
  static void release(void* p) {
    auto* const at = static_cast<std::byte*>(p);
    if (at >= top_.base && at < top_.limit) {
      top_.next = at;
    } else {
      shrink(at);
    }
  }

 private:
  struct chunk;

  // The part that is in use: one of the chunks, from `base` to `limit`, and the next free byte in
  // it.
  struct used_part {
    chunk* in;
    std::byte* next;
    std::byte* base;
    std::byte* limit;
  };

  static constexpr std::size_t rounded(std::size_t n) {
    return (n + alignof(std::max_align_t) - 1) & ~(alignof(std::max_align_t) - 1);
  }
  static std::byte* grow(std::size_t n);
  static void shrink(std::byte* at);
  static void use(chunk* c, std::byte* next);

  static inline constinit used_part top_ = {};
};

}  // namespace kv::cpp
