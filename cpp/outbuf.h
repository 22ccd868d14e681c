// The buffered output: everything the program writes there gathers in one block and leaves in large
// writes. It is standard output until a file is opened in its place. A failed write ends the run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "common/outfile.h"
#include "cpp/lanes.h"
#include "cpp/text16.h"

namespace kv::cpp {

class outbuf {
 public:
  static constexpr std::size_t size = 131072;

  /// Makes the file `path`, which is kept by reference, the output. What it holds stays until the
  /// first block leaves, or with `replace` false for good: the text then goes nowhere. Returns
  /// false with errno set when it cannot be opened.
  static bool open(const char* path, bool replace);

  /// Writes what has gathered. Ends the run with status 1 when that fails.
  static void flush();

  /// The bytes appended so far, those that went nowhere included.
  static std::uint64_t count() { return gone_ + gathered(); }

  /// The last `n` bytes, or nothing where they are no longer at hand.
  static std::string_view last(std::uint64_t n);

  /// Whether nothing has been written behind the last newline.
  static bool at_line_start();

  /// From now on text goes nowhere, or goes to the output again. What has gathered is dropped.
  static void discard(bool on);

  /// Writes what has gathered in the place of what the output held, and closes it. Text that is
  /// written later goes nowhere.
  static void finish();

  /// Removes the output after that; a device or a pipe stays.
  static void remove() { output_.remove(); }

  /// Closes the output with what it held before the run. A file that was not there stays as an
  /// empty one, or is removed.
  static void leave_alone(bool remove_new);

  /// The bytes that can be appended before the block has to leave.
  static std::size_t room() { return static_cast<std::size_t>(block_ + size - next_); }

  /// Appends one byte.
  static void byte(unsigned char c) {
    if (next_ == block_ + size) flush();
    *next_++ = c;
  }

  /// Appends `n` bytes.
  static void bytes(const void* p, std::size_t n) {
    if (room() < n) {
      large(p, n);
      return;
    }
    std::memcpy(next_, p, n);
    next_ += n;
  }

  /// Appends `n` units as bytes, from a text with copy_slack units behind them; n + copy_slack is
  /// at most `size`.
  static void units(const unit* at, std::size_t n) {
    if (room() < n + copy_slack) flush();
    narrow(next_, at, n);
    next_ += n;
  }

  /// Appends `s`.
  static void text(std::string_view s) { bytes(s.data(), s.size()); }

 private:
  static std::size_t gathered() { return static_cast<std::size_t>(next_ - block_); }
  static std::size_t drop_gathered();
  static void large(const void* p, std::size_t n);
  static void write(const void* p, std::size_t n);

  static inline unsigned char block_[size];
  static inline constinit unsigned char* next_ = block_;  // where the next byte goes
  static inline constinit std::uint64_t gone_ = 0;        // the bytes that have left the block
  static inline constinit unsigned char last_gone_ = '\n';
  static inline constinit bool discarding_ = false;

  // Where the text goes; nowhere when it is closed.
  static constexpr int standard_output = 1;
  static inline constinit out_file output_{"output", standard_output};
};

}  // namespace kv::cpp
