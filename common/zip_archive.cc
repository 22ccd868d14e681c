// The zip calls on top of minizip, which knows the format, and zlib, which compresses.

#include "common/zip_archive.h"

#ifndef CPP_NO_ZIP

#include <minizip/unzip.h>
#include <minizip/zip.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>

#include "common/alloc.h"
#include "common/outfile.h"

namespace kv {
namespace {

constexpr int compression_level = 6;

// A descriptor that closes itself.
class file {
 public:
  explicit file(int fd) : fd_(fd) {}
  file(const file&) = delete;
  file& operator=(const file&) = delete;
  ~file() {
    if (fd_ >= 0) host::close_file(fd_);
  }
  int fd() const { return fd_; }

 private:
  int fd_;
};

// Hands the blocks of a file to `take` until one is refused; false then or on a read error.
template <class Take>
bool read_blocks(const char* path, Take take) {
  const file in(host::open_read(path));
  if (in.fd() < 0) return false;
  char block[16384];
  long got;
  while ((got = host::read_block(in.fd(), block, sizeof block)) > 0) {
    if (!take(block, static_cast<unsigned>(got))) return false;
  }
  return got == 0;
}

// Tries it. If the file cannot be removed again, it will be written over.
bool can_create(const char* path) {
  const host::signals_held hold;
  const int fd = host::open_write(path, host::write_place::from_start).fd;
  if (fd < 0) return false;
  host::close_file(fd);  // nothing has been written
  host::remove_file(path);
  return true;
}

// Size and time of the file for its directory entry; archives hold local times.
bool describe(const char* path, zip_fileinfo& info, bool& is_large) {
  struct stat status;
  if (stat(host::native_path(path).c_str(), &status) != 0) return false;
  is_large = static_cast<std::uint64_t>(status.st_size) >= 0xFFFFFFFF;
  if (const std::tm* const t = std::localtime(&status.st_mtime)) {
    info.tmz_date.tm_sec = static_cast<uInt>(t->tm_sec);
    info.tmz_date.tm_min = static_cast<uInt>(t->tm_min);
    info.tmz_date.tm_hour = static_cast<uInt>(t->tm_hour);
    info.tmz_date.tm_mday = static_cast<uInt>(t->tm_mday);
    info.tmz_date.tm_mon = static_cast<uInt>(t->tm_mon);
    info.tmz_date.tm_year = static_cast<uInt>(t->tm_year + 1900);
  }
  return true;
}

}  // namespace

bool zip_archive::is_supported() {
  return true;
}

// minizip calls these in place of those of a file; `opaque` is the archive.
struct zip_archive::stream {
  static zip_archive& of(void* opaque) { return *static_cast<zip_archive*>(opaque); }

  static void* open(void* opaque, const void*, int) {
    of(opaque).at_ = 0;
    return opaque;
  }
  // minizip does not look whether it got the memory to read to.
  static uLong read(void* opaque, void*, void* to, uLong n) {
    zip_archive& a = of(opaque);
    const std::size_t got = to != nullptr ? a.bytes_.copy(static_cast<char*>(to), n, a.at_) : 0;
    a.at_ += got;
    return static_cast<uLong>(got);
  }
  static uLong write(void* opaque, void*, const void* from, uLong n) {
    zip_archive& a = of(opaque);
    if (a.bytes_.size() < a.at_ + n) a.bytes_.resize(a.at_ + n);
    std::memcpy(a.bytes_.data() + a.at_, from, n);
    a.at_ += n;
    return n;
  }
  static ZPOS64_T tell(void* opaque, void*) { return of(opaque).at_; }
  static long seek(void* opaque, void*, ZPOS64_T offset, int origin) {
    zip_archive& a = of(opaque);
    std::size_t base = 0;
    if (origin == ZLIB_FILEFUNC_SEEK_CUR) base = a.at_;
    if (origin == ZLIB_FILEFUNC_SEEK_END) base = a.bytes_.size();
    if (offset > a.bytes_.size() - base) return -1;
    a.at_ = base + static_cast<std::size_t>(offset);
    return 0;
  }
  static int close(void*, void*) { return 0; }
  static int error(void*, void*) { return 0; }

  static zlib_filefunc64_def calls(zip_archive& archive) {
    return {open, read, write, tell, seek, close, error, &archive};
  }
};

zip_archive::~zip_archive() {
  if (writer_) zipClose(writer_, nullptr);
}

bool zip_archive::open_reader(const char* path) {
  if (!read_blocks(path, [this](const char* block, unsigned size) {
        bytes_.append(block, size);
        return true;
      })) {
    return false;
  }
  zlib_filefunc64_def calls = stream::calls(*this);
  const unzFile reader = unzOpen2_64(path, &calls);
  if (reader == nullptr) return false;
  unzClose(reader);
  path_ = path;
  return true;
}

bool zip_archive::convert_to_writer() {
  return !path_.empty() && open_writer(APPEND_STATUS_ADDINZIP);
}

bool zip_archive::create(const char* path) {
  if (*path == '\0') return false;  // a file would come of the work file's name alone
  path_ = path;
  return open_writer(APPEND_STATUS_CREATE);
}

bool zip_archive::open_writer(int append_status) {
  work_path_ = path_ + "." + host::fresh_name();
  if (!can_create(work_path_.c_str())) return false;
  zlib_filefunc64_def calls = stream::calls(*this);
  writer_ = zipOpen2_64(path_.c_str(), append_status, nullptr, &calls);
  return writer_ != nullptr;
}

bool zip_archive::add_file(const char* name, const char* source, const char* comment) {
  zip_fileinfo info = {};
  bool is_large = false;
  failed_ = true;
  // minizip does not look whether it gets the memory for its own headers.
  constexpr std::size_t more_than_headers = 131072;
  std::free(checked_alloc_raw(more_than_headers));
  if (writer_ == nullptr || !describe(source, info, is_large) ||
      zipOpenNewFileInZip64(writer_, name, &info, nullptr, 0, nullptr, 0, comment, Z_DEFLATED,
                            compression_level, is_large ? 1 : 0) != ZIP_OK) {
    return false;
  }
  const bool is_written = read_blocks(source, [this](const char* block, unsigned size) {
    return zipWriteInFileInZip(writer_, block, size) == ZIP_OK;
  });
  failed_ = zipCloseFileInZip(writer_) != ZIP_OK || !is_written;
  return !failed_;
}

bool zip_archive::finalize() {
  if (writer_ == nullptr) return false;
  complete_ = zipClose(writer_, nullptr) == ZIP_OK;
  writer_ = nullptr;
  return complete_;
}

bool zip_archive::close() {
  if (complete_ && !failed_ && !put_in_place()) writing_has_failed("zip", path_.c_str());
  return complete_;
}

// The new file is there for as short a time as can be: whatever ends the run earlier leaves none.
bool zip_archive::put_in_place() {
  const host::signals_held hold;
  const char* work_path = work_path_.c_str();
  const int fd = host::open_write(work_path, host::write_place::from_start).fd;
  if (fd < 0) return false;
  bool done = host::write_all(fd, bytes_.data(), bytes_.size());
  int reason = errno;
  if (!host::close_file(fd) && done) {
    done = false;
    reason = errno;
  }
  if (done && host::replace_file(work_path, path_.c_str())) return true;
  if (done) reason = errno;
  host::remove_file(work_path);
  errno = reason;
  return false;
}

}  // namespace kv

#else

// Without minizip an archive can neither be begun nor added to.
namespace kv {

zip_archive::~zip_archive() = default;
bool zip_archive::is_supported() {
  return false;
}
bool zip_archive::open_reader(const char*) {
  return false;
}
bool zip_archive::convert_to_writer() {
  return false;
}
bool zip_archive::create(const char*) {
  return false;
}
bool zip_archive::add_file(const char*, const char*, const char*) {
  return false;
}
bool zip_archive::finalize() {
  return false;
}
bool zip_archive::close() {
  return false;
}

}  // namespace kv

#endif
