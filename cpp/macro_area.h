// The macro work area: the parameter names of the definition being read and the arguments of the
// calls being collected, one after the other. Whoever takes from it puts its end back.
#pragma once

#include <cstddef>

#include "common/alert.h"
#include "cpp/lanes.h"
#include "cpp/text16.h"

namespace kv::cpp {

class macro_area {
 public:
  /// Where the next unit goes.
  static unit* end() { return end_; }

  /// Gives back what has been appended since the area ended at `mark`.
  static void put_back(unit* mark) { end_ = mark; }

  /// The units that can still be appended.
  static std::size_t room() { return static_cast<std::size_t>(units_ + size - end_); }

  /// Appends one unit. Fatal message 149 when the area is full.
  static void save(int c) {
    if (end_ == units_ + size) alert_msg_fatal(149);
    *end_++ = static_cast<unit>(c);
  }

  /// The same for the units at `at`, copy_slack more than which can be read.
  template <class Unit>
  static void save(const Unit* at, std::size_t n) {
    if (room() < n) {
      for (std::size_t i = 0; i < n; ++i) save(at[i]);  // up to the message
    }
    widen(end_, at, n);
    end_ += n;
  }

 private:
  static constexpr std::size_t size = 65536;
  static inline unit units_[size + copy_slack];
  static inline unit* end_ = units_;
};

}  // namespace kv::cpp
