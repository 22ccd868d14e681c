// The count of open files that both host layers keep.
//
// The limit is the program's own, the same on every host, and lies well below the descriptor limit
// of most; duplicates and the standard descriptors' replacements are not files in its sense. So the
// layer has to remember which descriptors it counted.
#pragma once

#include <bitset>
#include <cerrno>
#include <cstddef>

#include "host/host.h"

namespace kv::host {

class open_file_count {
 public:
  /// True when no further file may be opened.
  bool full() const { return count_ == max_open_files; }

  /// Takes a newly opened descriptor into the count. Returns false when its number is out of reach
  /// (the process has inherited thousands); the caller then closes it.
  bool add(int fd) {
    if (fd <= last_standard) return true;
    if (static_cast<std::size_t>(fd) >= counted_.size()) return false;
    counted_.set(static_cast<std::size_t>(fd));
    ++count_;
    return true;
  }

  /// Takes a place that no descriptor stands for. Returns false, with EMFILE, when there is none.
  bool take_place() {
    if (full()) {
      errno = EMFILE;
      return false;
    }
    ++count_;
    return true;
  }

  /// Gives such a place back.
  void give_place() { --count_; }

  /// Tells that a descriptor, counted or not, is closed.
  void remove(int fd) {
    if (fd < 0 || static_cast<std::size_t>(fd) >= counted_.size()) return;
    if (!counted_.test(static_cast<std::size_t>(fd))) return;
    counted_.reset(static_cast<std::size_t>(fd));
    --count_;
  }

 private:
  static constexpr int last_standard = 2;

  // count_ is 3 for the standard files, the places taken and the bits of counted_, which are never
  // 0 to 2.
  unsigned count_ = 3;
  std::bitset<4096> counted_;
};

}  // namespace kv::host
