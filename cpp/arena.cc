#include "cpp/arena.h"

#include "common/alloc.h"
#include "cpp/lanes.h"
#include "cpp/text16.h"

namespace kv::cpp {

constinit arena_top arena = {};

namespace {

struct alignas(std::max_align_t) arena_chunk {
  arena_chunk* below;
  arena_chunk* above;
  std::size_t size;
  std::byte* bytes() { return reinterpret_cast<std::byte*>(this + 1); }
};
constexpr std::size_t chunk_size = 256 * 1024;
// Texts are searched in whole blocks.
constexpr std::size_t slack = search_slack * sizeof(unit);
arena_chunk* top_chunk = nullptr;

// Makes the chunk the top one, with everything up to `next` in use.
void use_chunk(arena_chunk* chunk, std::byte* next) {
  top_chunk = chunk;
  arena = {next, chunk->bytes(), chunk->bytes() + chunk->size};
}

}  // namespace

// A chunk above the top is an empty one, kept from an earlier, deeper stack.
std::byte* arena_grow(std::size_t n) {
  arena_chunk* above = top_chunk != nullptr ? top_chunk->above : nullptr;
  if (above == nullptr || above->size < n) {
    const std::size_t size = n > chunk_size ? n : chunk_size;
    auto* fresh = static_cast<arena_chunk*>(checked_alloc_raw(sizeof(arena_chunk) + size + slack));
    *fresh = {top_chunk, above, size};
    if (above != nullptr) above->below = fresh;
    if (top_chunk != nullptr) top_chunk->above = fresh;
    above = fresh;
  }
  use_chunk(above, above->bytes() + n);
  return above->bytes();
}

// What is given back lies in a chunk below the top one.
void arena_shrink(std::byte* at) {
  arena_chunk* chunk = top_chunk;
  while (at < chunk->bytes() || at >= chunk->bytes() + chunk->size) chunk = chunk->below;
  use_chunk(chunk, at);
}

}  // namespace kv::cpp
