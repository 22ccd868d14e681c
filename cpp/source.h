// The bytes behind a file frame: a file read in large blocks and cut into lines where they lie.
#pragma once

#include <cstddef>

#include "cpp/lanes.h"

namespace kv::cpp {

/// The longest line of a file, its newline included; a longer one is read as several lines.
inline constexpr int line_capacity = 10239;

/// One line inside a source_file's block: [start, end), the last byte a newline. Valid, and
/// writable, until the next line is asked for.
struct source_line {
  unsigned char* start;
  unsigned char* end;
};

/// The content of a small file, kept for the next time it is read in the run; null when it is not
/// kept. Behind it lies a newline.
struct source_copy {
  unsigned char* bytes = nullptr;
  std::size_t size = 0;
};

/// The bytes of a file that are read at once. Nearly every header fits, those of devices included.
inline constexpr std::size_t source_block_size = 256 * 1024;

/// What a file is called in message 141; not owned.
struct source_name {
  const char* kind;
  const char* path;
};

/// A file being read. Only this module changes it.
struct source_file {
  unsigned char* next;   ///< the first byte not yet handed out
  unsigned char* limit;  ///< the end of the bytes read
  unsigned char* text;   ///< the first byte of the file's text, until the block is filled up again
  bool displaced_set;    ///< `displaced` belongs at `next`
  unsigned char displaced;
  bool begun;        ///< the first bytes have been looked at for a byte order mark
  bool at_end;       ///< nothing more can be read
  int fd;            ///< -1 when a copy is read
  source_copy copy;  ///< what is left of it
  source_name name;  ///< of the file behind `fd`
  source_file* free_link;
  unsigned char block[source_block_size + 1 + search_slack];  ///< room for a supplied newline
};

/// Takes over the open descriptor `fd` and gives a source_file to read it through. A read that
/// fails, then or later, raises 141 (fatal) with `name`.
source_file* source_open(int fd, const source_name& name);

/// The whole text of a file that has just been opened, as it lies in the file's block; null where
/// it does not fit in. Valid until a line is asked for. `size` is the file's size where it is
/// known, else 0: a file that ends there need not be asked again.
source_copy source_whole_text(source_file* file, std::size_t size);

/// A copy of a text that source_whole_text() has given, or null where the run has spent on such
/// copies what it may.
source_copy source_keep(const source_copy& text);

/// Gives a source_file that reads a copy kept earlier; it counts as an open file. Null, with errno
/// set, when too many are open.
source_file* source_open_copy(const source_copy& copy);

/// The newline that ends the line at `next`, or null where none lies within the limit of a line.
inline unsigned char* line_newline(const source_file* f) {
  const bool whole = f->limit - f->next > line_capacity;
  return find_newline(f->next, whole ? f->next + line_capacity : f->limit);
}

/// As source_next_line, for lines that end in the block or not.
bool source_fetch_line(source_file* file, source_line& line);

/// Moves to the next line of at most line_capacity bytes; a longer physical line is cut and a
/// newline supplied at the cut, a last line without a newline gets one. Returns false at the end of
/// the file. Nearly every line lies whole in the block; the others are fetched.
inline bool source_next_line(source_file* file, source_line& line) {
  if (!lanes || file->displaced_set) return source_fetch_line(file, line);
  unsigned char* const newline = line_newline(file);
  if (newline == nullptr) return source_fetch_line(file, line);
  line = {file->next, newline + 1};
  file->next = newline + 1;
  return true;
}

/// Closes the descriptor, if any, and keeps the record and its block for the next source_open.
void source_close(source_file* file);

}  // namespace kv::cpp
