// The files that a run has in use, which both host layers keep.
//
// A slip of the hand names one file twice: the source as the output, a header as the report. Names
// do not tell, since a file has many (links, letters' case, other ways to the same directory), so
// files are compared by what the system knows them by. A file that is written may be nothing else
// in the run; one that is only read may be read as often as it is named.
#pragma once

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>

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
    return std::any_of(uses_.data(), uses_.data() + count_,
                       [&](const use& u) { return u.writer != none && u.id == id; });
  }

  /// True when the run reads or writes the file.
  bool is_used(const file_id& id) const {
    return std::any_of(uses_.data(), uses_.data() + count_,
                       [&](const use& u) { return u.id == id; });
  }

  /// True when the run writes any file.
  bool any_written() const {
    return std::any_of(uses_.data(), uses_.data() + count_,
                       [](const use& u) { return u.writer != none; });
  }

  /// Remembers a file that is read; it counts until the end of the run. This, and the two below,
  /// return false, with EMFILE, when there is no room to remember another one.
  bool add_read(const file_id& id) { return add({id, none}); }

  /// Remembers a file that is written through the descriptor `fd`, until that is closed.
  bool add_written(const file_id& id, int fd) { return add({id, fd}); }

  /// Remembers a file that will be replaced; it counts until the end of the run.
  bool add_replaced(const file_id& id) { return add({id, no_descriptor}); }

  /// Tells that a descriptor is closed.
  void remove(int fd) {
    use* const end = uses_.data() + count_;
    use* const kept =
        std::remove_if(uses_.data(), end, [fd](const use& u) { return u.writer == fd; });
    count_ -= static_cast<std::size_t>(end - kept);
  }

 private:
  static constexpr int none = -1;
  static constexpr int no_descriptor = -2;

  struct use {
    file_id id;
    int writer;  // the descriptor; none for a file that is read
  };

  bool add(const use& u) {
    if (count_ == uses_.size()) {
      errno = EMFILE;
      return false;
    }
    uses_[count_++] = u;
    return true;
  }

  // Command files and message files can be named by the hundred, others once each. The room is not
  // allocated: files are opened and closed also when memory has ended.
  std::array<use, 1024> uses_ = {};
  std::size_t count_ = 0;
};

}  // namespace kv::host
