// The buffered output: everything the program writes there gathers in one block and leaves in large
// writes. It is standard output until a file is opened in its place. A failed write ends the run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "cpp/lanes.h"
#include "cpp/text16.h"

namespace kv::cpp {

inline constexpr std::size_t out_size = 131072;

extern unsigned char out_block[out_size];
/// Where the next byte goes, inside or at the end of out_block. Both are written by these functions
/// alone.
extern unsigned char* out_next;

/// Makes the file `path`, which is kept by reference, the output. What it holds stays until the
/// first block leaves, or with `replace` false for good: the text then goes nowhere. Returns false
/// with errno set when it cannot be opened.
bool out_open(const char* path, bool replace);

/// Writes what has gathered. Ends the run with status 1 when that fails.
void out_flush();

/// The bytes appended so far, those that went nowhere included.
std::uint64_t out_count();

/// The last `n` bytes, or nothing where they are no longer at hand.
std::string_view out_last(std::uint64_t n);

/// Whether nothing has been written behind the last newline.
bool out_at_line_start();

/// From now on text goes nowhere, or goes to the output again. What has gathered is dropped.
void out_discard(bool on);

/// Writes what has gathered in the place of what the output held, and closes it. Text that is
/// written later goes nowhere.
void out_finish();

/// Removes the output after that; a device or a pipe stays.
void out_remove();

/// Closes the output with what it held before the run. A file that was not there stays as an empty
/// one, or is removed.
void out_leave_alone(bool remove_new);

/// The bytes that can be appended before the block has to leave.
inline std::size_t out_room() {
  return static_cast<std::size_t>(out_block + out_size - out_next);
}

/// Appends one byte.
inline void out_byte(unsigned char c) {
  if (out_next == out_block + out_size) out_flush();
  *out_next++ = c;
}

/// Appends `n` bytes.
void out_large(const void* p, std::size_t n);

inline void out_bytes(const void* p, std::size_t n) {
  if (out_room() < n) {
    out_large(p, n);
    return;
  }
  std::memcpy(out_next, p, n);
  out_next += n;
}

/// Appends `n` units as bytes, from a text with copy_slack units behind them; n + copy_slack is at
/// most out_size.
inline void out_units(const unit* at, std::size_t n) {
  if (out_room() < n + copy_slack) out_flush();
  narrow(out_next, at, n);
  out_next += n;
}

inline void out_text(std::string_view s) {
  out_bytes(s.data(), s.size());
}

}  // namespace kv::cpp
