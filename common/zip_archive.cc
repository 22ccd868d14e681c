// The zip calls on top of minizip, which knows the format, and zlib, which compresses.

#include "common/zip_archive.h"

#include "common/host.h"

#ifndef CPP_NO_ZIP

#include <minizip/unzip.h>
#include <minizip/zip.h>
#include <sys/stat.h>

#include <cstdint>
#include <ctime>

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

bool copy_file(const char* from, const char* to) {
  const file out(host::open_write(to, false));
  return out.fd() >= 0 && read_blocks(from, [&](const char* block, unsigned size) {
           return host::write_all(out.fd(), block, size);
         });
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

zip_archive::~zip_archive() {
  if (writer_) zipClose(writer_, nullptr);
  if (!work_path_.empty()) host::remove_file(work_path_.c_str());
}

bool zip_archive::open_reader(const char* path) {
  const unzFile reader = unzOpen64(host::native_path(path).c_str());
  if (reader == nullptr) return false;
  unzClose(reader);
  path_ = path;
  return true;
}

bool zip_archive::convert_to_writer() {
  if (path_.empty()) return false;
  work_path_ = path_ + "." + host::fresh_name();
  return copy_file(path_.c_str(), work_path_.c_str()) && open_writer(APPEND_STATUS_ADDINZIP);
}

bool zip_archive::create(const char* path) {
  if (*path == '\0') return false;  // a file would come of the work file's name alone
  path_ = path;
  work_path_ = path_ + "." + host::fresh_name();
  return open_writer(APPEND_STATUS_CREATE);
}

bool zip_archive::open_writer(int append_status) {
  writer_ = zipOpen64(host::native_path(work_path_.c_str()).c_str(), append_status);
  return writer_ != nullptr;
}

bool zip_archive::add_file(const char* name, const char* source, const char* comment) {
  zip_fileinfo info = {};
  bool is_large = false;
  failed_ = true;
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
  if (!complete_ || failed_) return complete_;
  if (!host::replace_file(work_path_.c_str(), path_.c_str())) return false;
  work_path_.clear();
  return true;
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
