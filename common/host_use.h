// The files that a run has in use, which both host layers keep.
//
// A slip of the hand names one file twice: the source as the output, a header as the report. Names
// do not tell, since a file has many (links, letters' case, other ways to the same directory), so
// files are compared by what the system knows them by. A file that is written may be nothing else
// in the run; one that is only read may be read as often as it is named.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace kv::host {

/// What the system knows a file by: the volume that it lies on and its number there.
struct file_id {
  std::uint64_t volume;
  std::uint64_t number;

  friend bool operator==(const file_id&, const file_id&) = default;
};

/// The description of error_in_use.
inline constexpr const char* in_use_text = "The run uses this file already";

class files_in_use {
 public:
  /// True when the run writes the file.
  bool is_written(const file_id& id) const {
    return std::ranges::any_of(uses_, [&](const use& u) { return u.writer != none && u.id == id; });
  }

  /// True when the run reads or writes the file.
  bool is_used(const file_id& id) const {
    return std::ranges::any_of(uses_, [&](const use& u) { return u.id == id; });
  }

  /// True when the run writes any file.
  bool any_written() const {
    return std::ranges::any_of(uses_, [](const use& u) { return u.writer != none; });
  }

  /// Remembers a file that is read; it counts until the end of the run.
  void add_read(const file_id& id) { uses_.push_back({id, none}); }

  /// Remembers a file that is written through the descriptor `fd`, until that is closed.
  void add_written(const file_id& id, int fd) { uses_.push_back({id, fd}); }

  /// Remembers a file that will be replaced; it counts until the end of the run.
  void add_replaced(const file_id& id) { uses_.push_back({id, no_descriptor}); }

  /// Tells that a descriptor is closed.
  void remove(int fd) {
    std::erase_if(uses_, [fd](const use& u) { return u.writer == fd; });
  }

 private:
  static constexpr int none = -1;
  static constexpr int no_descriptor = -2;

  struct use {
    file_id id;
    int writer;  // the descriptor; none for a file that is read
  };
  std::vector<use> uses_;
};

}  // namespace kv::host
