// The host layer on Windows.
//
// Separators need no translation, and the file system itself ignores case, so there is no table of
// listings here: a failing open costs little beside what the system caches. What would surprise a
// reader are the system's old limits and the runtime's habits. A path of 260 characters or more is
// refused unless it is given in full behind a prefix, so every path passes system_path. The mode of
// a descriptor, text or binary, is set wherever one is made, because the default may be changed
// from outside. A standard handle that is missing looks like an open descriptor, and the null
// device passes for a terminal unless the console itself is asked.

#define _CRT_RAND_S  // rand_s
#define WIN32_LEAN_AND_MEAN
#ifndef NOMINMAX
#define NOMINMAX
#endif

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
#include <utility>

#include "common/host.h"
#include "common/host_limit.h"

namespace kv::host {

const bool names_are_case_sensitive = false;
namespace {

constinit open_file_count open_files;

// ---- Names ----

std::wstring widen(std::string_view text) {
  const int size = static_cast<int>(text.size());
  std::wstring wide(text.size(), L'\0');
  const int length = ::MultiByteToWideChar(CP_ACP, 0, text.data(), size, wide.data(), size);
  wide.resize(static_cast<std::size_t>(length));
  return wide;
}

std::string narrow(const wchar_t* wide) {
  const int size = ::WideCharToMultiByte(CP_ACP, 0, wide, -1, nullptr, 0, nullptr, nullptr);
  std::string text(static_cast<std::size_t>(size), '\0');
  ::WideCharToMultiByte(CP_ACP, 0, wide, -1, text.data(), size, nullptr, nullptr);
  text.resize(text.size() - 1);
  return text;
}

// Returns the path as the system's own calls want it: itself, or where the old limit would be
// exceeded, its full form with the prefix that lifts the limit.
std::wstring system_path(std::string_view path) {
  // A directory must leave room for a short name in it.
  constexpr std::size_t longest_plain = MAX_PATH - 13;
  const std::wstring plain = widen(path);
  const DWORD size = ::GetFullPathNameW(plain.c_str(), 0, nullptr, nullptr);
  if (size <= longest_plain) return plain;
  std::wstring full(size, L'\0');
  full.resize(::GetFullPathNameW(plain.c_str(), size, full.data(), nullptr));
  if (full.starts_with(L"\\\\?\\") || full.starts_with(L"\\\\.\\")) return full;
  if (full.starts_with(L"\\\\")) return L"\\\\?\\UNC" + full.substr(1);
  return L"\\\\?\\" + full;
}

// ---- Files ----

constexpr int translation(content kind) {
  return kind == content::text ? _O_TEXT : _O_BINARY;
}

constexpr int read_flags(content kind) {
  return _O_RDONLY | _O_NOINHERIT | translation(kind);
}

constexpr int write_flags(bool append, content kind) {
  return _O_WRONLY | _O_CREAT | _O_NOINHERIT | (append ? _O_APPEND : _O_TRUNC) | translation(kind);
}

int open_uncounted(const char* path, int flags) {
  const int fd = ::_wopen(system_path(path).c_str(), flags, _S_IREAD | _S_IWRITE);
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
  const DWORD attributes = ::GetFileAttributesW(system_path(path).c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & wanted) == wanted;
}

}  // namespace

// ---- Files ----

int open_read(const char* path) {
  return open_counted(path, read_flags(content::bytes));
}

int open_read_uncounted(const char* path) {
  return open_uncounted(path, read_flags(content::bytes));
}

// Text mode makes fewer bytes of a file than it has, so the size is not known.
int open_probe(const char* path, std::size_t* size) {
  if (size != nullptr) *size = 0;
  return open_counted(path, read_flags(content::text));
}

bool take_file_place() {
  return open_files.take_place();
}

void give_file_place() {
  open_files.give_place();
}

// The system keeps its own memory of names and ignores their case.
const directory_names* names_in_directory(const char*) {
  return nullptr;
}

sought_name::sought_name(std::string_view name) : text(name), hash(0), case_is_known(false) {}

bool lacks_name(const directory_names*, const sought_name&) {
  return false;
}

int open_write(const char* path, bool append, content kind) {
  return open_counted(path, write_flags(append, kind));
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
  const int flags = mode == open_mode::read ? read_flags(content::text)
                                            : write_flags(mode == open_mode::append, content::text);
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
    if (::_get_osfhandle(fd) < 0) {
      const int null_device = ::_open("NUL", _O_RDWR);
      if (null_device < 0) return;
      if (null_device != fd) {
        ::_dup2(null_device, fd);
        ::_close(null_device);
      }
    }
    ::_setmode(fd, _O_TEXT);
  }
}

// ---- The file system ----

bool exists(const char* path) {
  return has_attributes(path, 0);
}

bool is_regular_file(const char* path) {
  return exists(path) && !is_directory(path) && !has_attributes(path, FILE_ATTRIBUTE_DEVICE);
}

bool is_directory(const char* path) {
  return has_attributes(path, FILE_ATTRIBUTE_DIRECTORY);
}

bool is_real_directory(const char* path) {
  return is_directory(path) && !has_attributes(path, FILE_ATTRIBUTE_REPARSE_POINT);
}

bool list_directory(const char* path, std::vector<std::string>& names) {
  WIN32_FIND_DATAW entry;
  const HANDLE find = ::FindFirstFileW(system_path(std::string(path) + "\\*").c_str(), &entry);
  if (find == INVALID_HANDLE_VALUE) return succeeded(FALSE);
  do {
    std::string name = narrow(entry.cFileName);
    if (name != "." && name != "..") names.push_back(std::move(name));
  } while (::FindNextFileW(find, &entry) != 0);
  ::FindClose(find);
  return true;
}

bool make_directory(const char* path, bool /*owner_only*/) {
  return succeeded(::CreateDirectoryW(system_path(path).c_str(), nullptr));
}

bool remove_file(const char* path) {
  // A link to a directory is a directory to the system; removing it leaves its target alone.
  if (is_directory(path)) return remove_directory(path);
  return succeeded(::DeleteFileW(system_path(path).c_str()));
}

bool remove_directory(const char* path) {
  return succeeded(::RemoveDirectoryW(system_path(path).c_str()));
}

bool replace_file(const char* from, const char* to) {
  return succeeded(
      ::MoveFileExW(system_path(from).c_str(), system_path(to).c_str(), MOVEFILE_REPLACE_EXISTING));
}

bool stored_spelling(const char* path, std::string& actual) {
  const std::string_view given = path;
  const std::size_t separator = given.find_last_of("\\/:");
  const std::size_t name = separator == std::string_view::npos ? 0 : separator + 1;
  // The call takes patterns, which are no names.
  if (given.find_first_of("*?", name) != std::string_view::npos) return false;
  WIN32_FIND_DATAW entry;
  const HANDLE find = ::FindFirstFileW(system_path(path).c_str(), &entry);
  if (find == INVALID_HANDLE_VALUE) return false;
  ::FindClose(find);
  actual = given.substr(0, name);
  actual += narrow(entry.cFileName);
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
