// Lines are never copied: a block holds many of them, and a line that the end of the block cuts in
// two is moved to the front before the block is filled up again. The one awkward case is a physical
// line beyond the limit, which reads as several lines. The newline that ends each piece must then
// stand where the next piece begins; the byte it displaces is kept and put back when the next line
// is asked for.
#include "cpp/source.h"

#include <cstddef>
#include <cstring>

#include "common/alloc.h"
#include "common/host.h"
#include "cpp/reader.h"
#include "cpp/symtab.h"

namespace kv::cpp {

namespace {
constexpr std::size_t block_size = 65536;
static_assert(block_size > 2 * line_capacity, "a block must hold a whole line beside a cut one");
}  // namespace

struct source_file {
  int fd;
  bool at_end;         // nothing more can be read
  bool displaced_set;  // `displaced` belongs at `next`
  unsigned char displaced;
  unsigned char* next;   // the first byte not yet handed out
  unsigned char* limit;  // the end of the bytes read
  source_file* free_link;
  unsigned char block[block_size + 1 + name_slack];  // room for a supplied newline
};

namespace {

source_file* free_sources = nullptr;

// Moves what is left to the front of the block and reads until the block is full, so that a whole
// line lies in it unless the file ends.
void fill(source_file* f) {
  const auto left = static_cast<std::size_t>(f->limit - f->next);
  if (f->next != f->block) std::memmove(f->block, f->next, left);
  f->next = f->block;
  f->limit = f->block + left;
  while (!f->at_end && f->limit - f->next < line_capacity) {
    const auto room = static_cast<std::size_t>(f->block + block_size - f->limit);
    const long n = host::read_block(f->fd, f->limit, room);
    if (n <= 0) {
      f->at_end = true;
    } else {
      f->limit += n;
    }
  }
}

unsigned char* find_newline(unsigned char* from, std::size_t n) {
  return static_cast<unsigned char*>(std::memchr(from, '\n', n));
}

}  // namespace

source_file* source_open(int fd) {
  source_file* f = free_sources;
  if (f != nullptr) {
    free_sources = f->free_link;
  } else {
    f = static_cast<source_file*>(checked_alloc(sizeof(source_file)));
  }
  f->fd = fd;
  f->at_end = false;
  f->displaced_set = false;
  f->next = f->limit = f->block;
  return f;
}

bool source_next_line(source_file* f, source_line& line) {
  if (f->displaced_set) {
    *f->next = f->displaced;
    f->displaced_set = false;
  }
  std::size_t left = static_cast<std::size_t>(f->limit - f->next);
  unsigned char* newline =
      find_newline(f->next, left < line_capacity ? left : std::size_t{line_capacity});
  if (newline == nullptr && left < line_capacity && !f->at_end) {
    fill(f);
    left = static_cast<std::size_t>(f->limit - f->next);
    newline = find_newline(f->next, left < line_capacity ? left : std::size_t{line_capacity});
  }
  line.start = f->next;
  if (newline != nullptr) {
    line.end = newline + 1;
    f->next = line.end;
    return true;
  }
  if (left == 0) return false;
  const std::size_t length = left < line_capacity ? left : std::size_t{line_capacity};
  f->next += length;
  if (length < left) {
    f->displaced = *f->next;
    f->displaced_set = true;
  }
  *f->next = '\n';
  line.end = f->next + 1;
  return true;
}

void source_close(source_file* f) {
  host::close_file(f->fd);
  f->free_link = free_sources;
  free_sources = f;
}

}  // namespace kv::cpp
