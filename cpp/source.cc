// Lines are never copied: a block holds many of them, and a line that the end of the block cuts in
// two is moved to the front before the block is filled up again. The one awkward case is a physical
// line beyond the limit, which reads as several lines. The newline that ends each piece must then
// stand where the next piece begins; the byte it displaces is kept and put back when the next line
// is asked for.
#include "cpp/source.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "common/alert.h"
#include "common/alloc.h"
#include "cpp/report/observe.h"
#include "host/host.h"

namespace kv::cpp {

namespace {

// What all copies of a run may take together.
constexpr std::size_t copies_limit = 4 * 1024 * 1024;
std::size_t copies_size = 0;

static_assert(source_block_size > 2 * line_capacity,
              "a block must hold a whole line beside a cut one");

source_file* free_sources = nullptr;

// Reads up to `room` bytes to `to`; 0 at the end.
long read_some(source_file* f, unsigned char* to, std::size_t room) {
  if (f->fd >= 0) {
    const observe::timed time(run_phase::reading);
    const long n = host::read_block(f->fd, to, room);
    if (n < 0) alert_msg_fatal(141, f->name.kind, f->name.path);
    return n;
  }
  const std::size_t n = f->copy.size < room ? f->copy.size : room;
  if (n == 0) return 0;
  std::memcpy(to, f->copy.bytes, n);
  f->copy.bytes += n;
  f->copy.size -= n;
  return static_cast<long>(n);
}

// Reads until `wanted` bytes lie in the block or the file ends.
void read_until(source_file* f, std::ptrdiff_t wanted) {
  while (!f->at_end && f->limit - f->next < wanted) {
    const long n =
        read_some(f, f->limit, static_cast<std::size_t>(f->block + source_block_size - f->limit));
    if (n <= 0) {
      f->at_end = true;
    } else {
      if (observing) observe::block_read(f, f->limit, static_cast<std::size_t>(n));
      f->limit += n;
    }
  }
}

// With the first bytes of the file read: a UTF-8 byte order mark is no text.
void begin_text(source_file* f) {
  f->begun = true;
  if (f->limit - f->next >= 3 && std::memcmp(f->next, "\xEF\xBB\xBF", 3) == 0) f->next += 3;
  f->text = f->next;
}

// Moves what is left to the front of the block and fills it up, so that a whole line lies in it
// unless the file ends.
void fill(source_file* f) {
  const auto left = static_cast<std::size_t>(f->limit - f->next);
  if (f->next != f->block) std::memmove(f->block, f->next, left);
  f->next = f->block;
  f->limit = f->block + left;
  read_until(f, line_capacity);
  if (!f->begun) begin_text(f);
}

source_file* new_source() {
  source_file* f = free_sources;
  if (f != nullptr) {
    free_sources = f->free_link;
  } else {
    f = static_cast<source_file*>(checked_alloc(sizeof(source_file)));
  }
  f->fd = -1;
  f->copy = {};
  f->at_end = false;
  f->displaced_set = false;
  f->begun = false;
  f->next = f->limit = f->text = f->block;
  return f;
}

}  // namespace

source_file* source_open(int fd, const source_name& name) {
  source_file* f = new_source();
  f->fd = fd;
  f->name = name;
  return f;
}

source_copy source_whole_text(source_file* f, std::size_t size) {
  const bool fits = size != 0 && size < source_block_size;
  read_until(f, static_cast<std::ptrdiff_t>(fits ? size : source_block_size));
  if (static_cast<std::size_t>(f->limit - f->block) == size) f->at_end = true;
  begin_text(f);
  if (!f->at_end) return {};
  *f->limit = '\n';
  return {f->text, static_cast<std::size_t>(f->limit - f->text)};
}

source_copy source_keep(const source_copy& text) {
  if (text.size == 0 || copies_size + text.size > copies_limit) return {};
  source_copy kept = {static_cast<unsigned char*>(checked_alloc_raw(text.size + search_slack)),
                      text.size};
  std::memcpy(kept.bytes, text.bytes, text.size);
  kept.bytes[text.size] = '\n';
  copies_size += text.size;
  return kept;
}

source_file* source_open_copy(const source_copy& copy) {
  if (!host::take_file_place()) return nullptr;
  source_file* f = new_source();
  f->begun = true;
  f->copy = copy;
  return f;
}

bool source_fetch_line(source_file* f, source_line& line) {
  if (f->displaced_set) {
    *f->next = f->displaced;
    f->displaced_set = false;
  }
  unsigned char* newline = line_newline(f);
  if (newline == nullptr && f->limit - f->next < line_capacity && !f->at_end) {
    fill(f);
    newline = line_newline(f);
  }
  const auto left = static_cast<std::size_t>(f->limit - f->next);
  line.start = f->next;
  if (newline != nullptr) {
    line.end = f->next = newline + 1;
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
  if (f->fd >= 0) {
    host::close_file(f->fd);
  } else {
    host::give_file_place();
  }
  f->free_link = free_sources;
  free_sources = f;
}

}  // namespace kv::cpp
