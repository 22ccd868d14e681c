#include "cpp/arena.h"

#include <cstdlib>

#include "common/alloc.h"

namespace kv::cpp {

namespace {

struct arena_chunk {
  arena_chunk* below;
  arena_chunk* above;
  std::size_t used;
  std::size_t size;
  std::byte* bytes() { return reinterpret_cast<std::byte*>(this + 1); }
};
constexpr std::size_t chunk_size = 256 * 1024;
arena_chunk* top_chunk = nullptr;

// Makes a chunk with room for n bytes the top one. A chunk above the top is an empty one, kept from
// an earlier, deeper stack.
void grow_arena(std::size_t n) {
  arena_chunk* above = top_chunk != nullptr ? top_chunk->above : nullptr;
  if (above == nullptr || above->size < n) {
    const std::size_t size = n > chunk_size ? n : chunk_size;
    auto* fresh = static_cast<arena_chunk*>(checked_alloc_raw(sizeof(arena_chunk) + size));
    *fresh = {top_chunk, above, 0, size};
    if (above != nullptr) above->below = fresh;
    if (top_chunk != nullptr) top_chunk->above = fresh;
    above = fresh;
  }
  top_chunk = above;
}

}  // namespace

std::byte* arena_alloc(std::size_t n) {
  n = arena_rounded(n);
  if (top_chunk == nullptr || top_chunk->size - top_chunk->used < n) grow_arena(n);
  std::byte* p = top_chunk->bytes() + top_chunk->used;
  top_chunk->used += n;
  return p;
}

void arena_release(void* p) {
  auto* at = static_cast<std::byte*>(p);
  while (at < top_chunk->bytes() || at >= top_chunk->bytes() + top_chunk->size) {
    top_chunk->used = 0;
    top_chunk = top_chunk->below;
  }
  top_chunk->used = static_cast<std::size_t>(at - top_chunk->bytes());
}

}  // namespace kv::cpp
