// The macro work area: the parameter names of the definition being read and the arguments of the
// calls being collected, one after the other. Whoever takes from it puts the cursor back.
#pragma once

#include <cstddef>

#include "common/alert.h"
#include "cpp/lanes.h"
#include "cpp/text16.h"

namespace kv::cpp {

inline constexpr std::size_t macro_area_size = 65536;
extern unit macro_area[macro_area_size + copy_slack];
/// Where the next unit goes.
extern unit* macro_area_ptr;

/// The units that can still be appended.
inline std::size_t macro_area_room() {
  return static_cast<std::size_t>(macro_area + macro_area_size - macro_area_ptr);
}

/// Appends one unit. Fatal message 149 when the area is full.
inline void macro_area_save(int c) {
  if (macro_area_ptr == macro_area + macro_area_size) alert_msg_fatal(149);
  *macro_area_ptr++ = static_cast<unit>(c);
}

}  // namespace kv::cpp
