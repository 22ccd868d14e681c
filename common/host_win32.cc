// The host layer on Windows.
//
// Paths need no translation, and the file system itself ignores case, so there is no table of
// listings here: a failing open costs little beside what the system caches. What would surprise a
// reader is how much is done to keep the runtime out of the way: descriptors are switched to binary
// (lines are cut and ended by the callers), a standard handle that is missing looks like an open
// descriptor, and the null device passes for a terminal unless the console itself is asked.

#define _CRT_RAND_S  // rand_s

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <windows.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "common/host.h"
#include "common/host_limit.h"

namespace kv::host {

const bool names_are_case_sensitive = false;
namespace {

constinit open_file_count open_files;

constexpr int read_flags = _O_RDONLY | _O_BINARY | _O_NOINHERIT;

constexpr int write_flags(bool append) {
  return _O_WRONLY | _O_CREAT | _O_BINARY | _O_NOINHERIT | (append ? _O_APPEND : _O_TRUNC);
}

int open_uncounted(const char* path, int flags) {
  const int fd = ::_open(path, flags, _S_IREAD | _S_IWRITE);
  if (fd < 0 && errno == EACCES && is_directory(path)) errno = EISDIR;
  return fd;
}

int open_counted(const char* path, int flags) {
  int fd = -1;
  if (!open_files.full()) {
    fd = open_uncounted(path, flags);
    if (fd < 0 || open_files.add(fd)) return fd;
    ::_close(fd);
  }
  errno = EMFILE;
  return -1;
}

// Translates the reason of a failed call of the system itself.
bool succeeded(BOOL result) {
  if (result != 0) return true;
  switch (::GetLastError()) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
      errno = ENOENT;
      break;
    case ERROR_ALREADY_EXISTS:
    case ERROR_FILE_EXISTS:
      errno = EEXIST;
      break;
    case ERROR_DIR_NOT_EMPTY:
      errno = ENOTEMPTY;
      break;
    default:
      errno = EACCES;
  }
  return false;
}

// INVALID_FILE_ATTRIBUTES has all bits set, so existence is tested first.
bool has_attributes(const char* path, DWORD wanted) {
  const DWORD attributes = ::GetFileAttributesA(path);
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & wanted) == wanted;
}

}  // namespace

// ---- Files ----

int open_read(const char* path) {
  return open_counted(path, read_flags);
}

int open_read_uncounted(const char* path) {
  return open_uncounted(path, read_flags);
}

int open_probe(const char* path) {
  return open_read(path);
}

int open_write(const char* path, bool append) {
  return open_counted(path, write_flags(append));
}

void close_file(int fd) {
  open_files.remove(fd);
  ::_close(fd);
}

long read_block(int fd, void* buf, std::size_t n) {
  constexpr std::size_t most = 1U << 30;
  return ::_read(fd, buf, static_cast<unsigned>(std::min(n, most)));
}

bool write_all(int fd, const void* p, std::size_t n) {
  // Older consoles refuse larger writes as a whole.
  constexpr std::size_t most = 1U << 14;
  const char* at = static_cast<const char*>(p);
  while (n != 0) {
    const int put = ::_write(fd, at, static_cast<unsigned>(std::min(n, most)));
    if (put <= 0) return false;
    at += put;
    n -= static_cast<std::size_t>(put);
  }
  return true;
}

bool redirect(int fd, const char* path, open_mode mode) {
  const int flags = mode == open_mode::read ? read_flags : write_flags(mode == open_mode::append);
  const int opened = open_uncounted(path, flags);
  if (opened < 0 || opened == fd) return opened >= 0;
  const bool done = duplicate_onto(opened, fd);
  ::_close(opened);
  return done;
}

int duplicate(int fd) {
  return ::_dup(fd);
}

bool duplicate_onto(int from, int to) {
  return ::_dup2(from, to) == 0;
}

bool is_terminal(int fd) {
  DWORD mode = 0;
  return ::_isatty(fd) != 0 &&
         ::GetConsoleMode(reinterpret_cast<HANDLE>(::_get_osfhandle(fd)), &mode) != 0;
}

void prepare_standard_handles() {
  for (int fd = 0; fd <= 2; ++fd) {
    if (::_get_osfhandle(fd) >= 0) continue;
    const int null_device = ::_open("NUL", _O_RDWR | _O_BINARY);
    if (null_device < 0) return;
    if (null_device == fd) continue;
    ::_dup2(null_device, fd);
    ::_close(null_device);
  }
  ::_setmode(0, _O_BINARY);
  ::_setmode(1, _O_BINARY);
}

// ---- The file system ----

bool exists(const char* path) {
  return has_attributes(path, 0);
}

bool is_directory(const char* path) {
  return has_attributes(path, FILE_ATTRIBUTE_DIRECTORY);
}

bool is_real_directory(const char* path) {
  return is_directory(path) && !has_attributes(path, FILE_ATTRIBUTE_REPARSE_POINT);
}

bool list_directory(const char* path, std::vector<std::string>& names) {
  WIN32_FIND_DATAA entry;
  const HANDLE find = ::FindFirstFileA((std::string(path) + "\\*").c_str(), &entry);
  if (find == INVALID_HANDLE_VALUE) return succeeded(FALSE);
  do {
    const std::string_view name = entry.cFileName;
    if (name != "." && name != "..") names.emplace_back(name);
  } while (::FindNextFileA(find, &entry) != 0);
  ::FindClose(find);
  return true;
}

bool make_directory(const char* path, bool /*owner_only*/) {
  return succeeded(::CreateDirectoryA(path, nullptr));
}

bool remove_file(const char* path) {
  // A link to a directory is a directory to the system; removing it leaves its target alone.
  return succeeded(is_directory(path) ? ::RemoveDirectoryA(path) : ::DeleteFileA(path));
}

bool remove_directory(const char* path) {
  return succeeded(::RemoveDirectoryA(path));
}

bool replace_file(const char* from, const char* to) {
  return succeeded(::MoveFileExA(from, to, MOVEFILE_REPLACE_EXISTING));
}

bool stored_spelling(const char* path, std::string& actual) {
  const std::string_view given = path;
  if (given.find_first_of("*?") != std::string_view::npos) return false;
  WIN32_FIND_DATAA entry;
  const HANDLE find = ::FindFirstFileA(path, &entry);
  if (find == INVALID_HANDLE_VALUE) return false;
  ::FindClose(find);
  const std::size_t separator = given.find_last_of("\\/:");
  actual = given.substr(0, separator == std::string_view::npos ? 0 : separator + 1);
  actual += entry.cFileName;
  return true;
}

std::string spelling_to_open(const char* path) {
  return path;
}

std::string native_path(const char* path) {
  return path;
}

bool is_rooted(const char* /*path*/) {
  return false;
}

// ---- The process ----

std::string current_directory() {
  std::array<char, 20480> buffer;
  const DWORD length = ::GetCurrentDirectoryA(static_cast<DWORD>(buffer.size()), buffer.data());
  return length < buffer.size() ? std::string(buffer.data(), length) : "";
}

std::string program_path() {
  std::array<char, 32768> buffer;
  const DWORD length =
      ::GetModuleFileNameA(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
  return length < buffer.size() ? std::string(buffer.data(), length) : "";
}

const char* error_text(int error) {
  return std::strerror(error);
}

std::string fresh_name() {
  constexpr std::string_view digits = "0123456789abcdefghijklmnopqrstuv";
  std::string name;
  for (int i = 0; i < 8; ++i) {
    unsigned number = 0;
    if (::rand_s(&number) != 0) number = static_cast<unsigned>(::GetTickCount64() >> i);
    name += digits[number % digits.size()];
  }
  return name;
}

}  // namespace kv::host
