// What a file held is copied by a second descriptor, to memory or, where that would be too much, to
// a nameless file. The first descriptor cannot read: a pipe that is opened for both would wait for
// nobody.

#include "common/outfile.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <string>

#include "common/alert.h"
#include "common/alloc.h"
#include "common/format.h"
#include "common/osdep.h"

namespace kv {
namespace {

constexpr int standard_error = 2;

// What is set aside in memory; most outputs of a former run stay below.
constexpr std::uint64_t memory_limit = 16 * 1024 * 1024;

constinit out_file* open_files = nullptr;
constinit bool failed = false;
constinit bool given_back = false;

// Where messages go in place of standard error, unless it is closed.
constinit out_file error_file("message");

bool read_all(int fd, void* to, std::uint64_t size) {
  auto* at = static_cast<char*>(to);
  while (size != 0) {
    const long got = host::read_block(fd, at, size);
    if (got == 0) errno = EIO;  // the file has become shorter
    if (got <= 0) return false;
    at += got;
    size -= static_cast<std::uint64_t>(got);
  }
  return true;
}

// Copies `size` bytes from one descriptor to another, from where each of them stands.
bool copy_bytes(int from, int to, std::uint64_t size) {
  std::array<char, 65536> block;
  while (size != 0) {
    const std::size_t n = size < block.size() ? size : block.size();
    if (!read_all(from, block.data(), n) || !host::write_bytes(to, block.data(), n)) return false;
    size -= n;
  }
  return true;
}

}  // namespace

bool out_file::open(const char* path, host::write_place place, host::content kind) {
  if (!standard_) finish({});
  standard_ = false;
  file_ = host::open_write(path, place, kind);
  path_ = path;
  fd_ = file_.fd;
  at_end_ = place == host::write_place::at_end;
  begun_ = failed_ = false;
  if (fd_ < 0) return false;
  next_ = open_files;
  open_files = this;
  return true;
}

bool out_file::write(const void* p, std::size_t n) {
  if (fd_ < 0) return !failed_;
  if (failed_) return false;
  if (begin(false) && host::write_all(fd_, p, n)) return true;
  fail();
  return false;
}

bool out_file::begin_last() {
  if (fd_ >= 0 && !failed_ && !begin(true)) fail();
  return !failed_;
}

bool out_file::finish(const void* p, std::size_t n) {
  if (begin_last() && fd_ >= 0 && !host::write_all(fd_, p, n)) fail();
  return close();
}

void out_file::leave_alone(bool remove_new) {
  close();
  if (remove_new && file_.created) host::remove_file(path_);
  file_ = {};
}

void out_file::remove() {
  if (file_.regular && !host::remove_file(path_)) fail();
}

void out_file::give_back() {
  if (begun_ && file_.regular && !file_.created && !restore()) fail();
  leave_alone(true);
}

// Makes the file ready for its first text.
bool out_file::begin(bool last) {
  if (begun_) return true;
  if (file_.regular && !at_end_) {
    if (!last && file_.size != 0 && !set_aside()) return false;
    if (!host::resize_file(fd_, 0)) return false;
  }
  begun_ = true;
  return true;
}

bool out_file::set_aside() {
  const int from = host::open_read(path_);
  // Who may not read the file cannot have it as another file of the run, either.
  if (from < 0) return errno == EACCES;
  bool done = false;
  kept_.size = file_.size;
  if (kept_.size <= memory_limit) {
    kept_.bytes = checked_alloc_raw(kept_.size);
    done = read_all(from, kept_.bytes, kept_.size);
  } else {
    kept_.fd = open_temp_file();
    if (kept_.fd < 0) {
      failed_ = failed = true;
      alert_msg_fatal(2082);
    }
    done = copy_bytes(from, kept_.fd, kept_.size);
  }
  const int reason = errno;
  host::close_file(from);
  errno = reason;
  return done;
}

bool out_file::restore() {
  if (at_end_) return host::resize_file(fd_, file_.size);
  if (!host::resize_file(fd_, 0) || !host::seek_file(fd_, 0)) return false;
  if (kept_.bytes != nullptr) return host::write_bytes(fd_, kept_.bytes, kept_.size);
  return kept_.fd < 0 || (host::seek_file(kept_.fd, 0) && copy_bytes(kept_.fd, fd_, kept_.size));
}

bool out_file::close() {
  if (fd_ < 0) return !failed_;
  if (!host::close_file(fd_) && !failed_) fail();
  fd_ = -1;
  release();
  return !failed_;
}

// Forgets what was set aside and takes the file from the list of open ones.
void out_file::release() {
  std::free(kept_.bytes);
  if (kept_.fd >= 0) host::close_file(kept_.fd);
  kept_ = {};
  for (out_file** link = &open_files; *link != nullptr; link = &(*link)->next_) {
    if (*link != this) continue;
    *link = next_;
    break;
  }
}

void out_file::fail() {
  failed_ = true;  // before the complaint, which may be meant for this very file
  writing_has_failed(what_, path_);
}

void writing_has_failed(const char* what, const char* path) {
  const int reason = errno;
  failed = true;
  // A reader that has gone does not want to hear more.
  if (reason == EPIPE) return;
  write_error_text(
      format_string("can't write %s file \"%s\": %s\n", what, path, host::error_text(reason)));
}

bool writing_failed() {
  return failed;
}

void refuse_file(const char* what, const char* path) {
  const int reason = errno;
  if (reason == host::error_in_use) {
    given_back = true;
    while (open_files != nullptr) open_files->give_back();
  }
  errno = reason;
  alert_msg_fatal(141, what, path);
}

bool files_given_back() {
  return given_back;
}

void write_error_text(std::string_view text) {
  // What the file does not take, and the complaint about that, go where messages went before it.
  if (error_file.is_open() && error_file.write(text)) return;
  if (!host::write_all(standard_error, text.data(), text.size())) failed = true;
}

bool append_error_text_to(const char* path) {
  return error_file.open(path, host::write_place::at_end, host::content::text);
}

}  // namespace kv
