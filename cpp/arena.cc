#include "cpp/arena.h"

#include "common/alloc.h"
#include "cpp/lanes.h"
#include "cpp/text16.h"

namespace kv::cpp {

struct alignas(std::max_align_t) arena::chunk {
  chunk* below;
  chunk* above;
  std::size_t size;
  std::byte* bytes() { return reinterpret_cast<std::byte*>(this + 1); }
};

// Makes the chunk the top one, with everything up to `next` in use.
void arena::use(chunk* c, std::byte* next) {
  top_ = {c, next, c->bytes(), c->bytes() + c->size};
}

// A chunk above the top is an empty one, kept from an earlier, deeper stack.
std::byte* arena::grow(std::size_t n) {
  constexpr std::size_t least_size = 256 * 1024;
  // Texts are searched in whole blocks.
  constexpr std::size_t slack = search_slack * sizeof(unit);
  chunk* const top = top_.in;
  chunk* above = top != nullptr ? top->above : nullptr;
  if (above == nullptr || above->size < n) {
    const std::size_t size = n > least_size ? n : least_size;
    auto* fresh = static_cast<chunk*>(checked_alloc_raw(sizeof(chunk) + size + slack));
    *fresh = {top, above, size};
    if (above != nullptr) above->below = fresh;
    if (top != nullptr) top->above = fresh;
    above = fresh;
  }
  use(above, above->bytes() + n);
  return above->bytes();
}

// What is given back lies in a chunk below the top one.
void arena::shrink(std::byte* at) {
  chunk* c = top_.in;
  while (at < c->bytes() || at >= c->bytes() + c->size) c = c->below;
  use(c, at);
}

}  // namespace kv::cpp
