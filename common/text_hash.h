// The hash of texts in tables whose order nobody sees.
//
// Names come from files that nobody vouches for, and a table that a file can fill with colliding
// names is slow for everybody. So the hash begins with a seed of the run.
#pragma once

#include <cstdint>
#include <string_view>

#include "host/host.h"

namespace kv {

/// A number that is the same for the whole run and that no input can know.
inline std::uint64_t run_seed() {
  static const std::uint64_t seed = host::unforeseeable();
  return seed;
}

/// The hash of a text: Fowler, Noll and Vo's FNV-1a from the run's seed.
inline std::uint32_t text_hash(std::string_view text) {
  auto h = static_cast<std::uint32_t>(run_seed());
  for (const char c : text) h = (h ^ static_cast<unsigned char>(c)) * 16777619U;
  return h ^ (h >> 16);
}

}  // namespace kv
