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

#include "host/host.h"
#include "host/host_limit.h"
#include "host/host_use.h"

namespace kv::host {

const bool names_are_case_sensitive = false;
const bool paths_have_drives = true;
namespace {

constinit open_file_count open_files;

constinit files_in_use in_use;

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

HANDLE handle_of(int fd) {
  return reinterpret_cast<HANDLE>(::_get_osfhandle(fd));
}

int open_any(const char* path, int flags) {
  const int fd = ::_wopen(system_path(path).c_str(), flags, _S_IREAD | _S_IWRITE);
  if (fd < 0 && errno == EACCES && is_directory(path)) errno = EISDIR;
  return fd;
}

// Closes the descriptor and keeps `error` as the reason for that. Returns -1.
int refuse(int fd, int error) {
  ::_close(fd);
  errno = error;
  return -1;
}

// What the system knows the open file by; false for a device or a pipe.
bool identify(HANDLE file, file_id& id, std::uint64_t* size = nullptr) {
  BY_HANDLE_FILE_INFORMATION known;
  if (::GetFileType(file) != FILE_TYPE_DISK) return false;
  if (::GetFileInformationByHandle(file, &known) == 0) return false;
  constexpr unsigned half = 32;
  id = {known.dwVolumeSerialNumber,
        (std::uint64_t{known.nFileIndexHigh} << half) | known.nFileIndexLow};
  if (size != nullptr) *size = (std::uint64_t{known.nFileSizeHigh} << half) | known.nFileSizeLow;
  return true;
}

// Opens a file to read it that must not be written in the run. The system is asked only where the
// answer may matter.
int open_unwritten(const char* path, content kind) {
  const int fd = open_any(path, read_flags(kind));
  file_id id;
  if (fd < 0 || !in_use.any_written() || !identify(handle_of(fd), id)) return fd;
  return in_use.is_written(id) ? refuse(fd, error_in_use) : fd;
}

// Translates the reason of a failed call of the system itself.
bool succeeded(BOOL result) {
  if (result != 0) return true;
  switch (::GetLastError()) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND: errno = ENOENT; break;
    case ERROR_ALREADY_EXISTS:
    case ERROR_FILE_EXISTS: errno = EEXIST; break;
    case ERROR_DIR_NOT_EMPTY: errno = ENOTEMPTY; break;
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL: errno = ENOSPC; break;
    default: errno = EACCES;
  }
  return false;
}

bool has_attributes(const char* path, DWORD wanted) {
  const DWORD attributes = ::GetFileAttributesW(system_path(path).c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return succeeded(FALSE);
  return (attributes & wanted) == wanted;
}

}  // namespace

// ---- Files ----

int open_read(const char* path, content kind) {
  return open_any(path, read_flags(kind));
}

int open_input(const char* path, content kind) {
  const int fd = open_unwritten(path, kind);
  file_id id;
  const bool known = fd < 0 || !identify(handle_of(fd), id) || in_use.add_read(id);
  return known ? fd : refuse(fd, errno);
}

// The size would cost a call more, and only spares the read that meets the end.
int open_probe(const char* path, std::size_t* size) {
  if (size != nullptr) *size = 0;
  if (open_files.full()) {
    errno = EMFILE;
    return -1;
  }
  const int fd = open_unwritten(path, content::bytes);
  return fd < 0 || open_files.add(fd) ? fd : refuse(fd, EMFILE);
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

written_file open_write(const char* path, write_place place, content kind) {
  written_file file;
  const int append = place == write_place::at_end ? _O_APPEND : 0;
  const int flags = _O_WRONLY | _O_CREAT | _O_NOINHERIT | append | translation(kind);
  file.fd = open_any(path, flags | _O_EXCL);
  file.created = file.fd >= 0;
  if (file.fd < 0 && errno == EEXIST) file.fd = open_any(path, flags);
  file_id id;
  file.regular = file.fd >= 0 && identify(handle_of(file.fd), id, &file.size);
  if (!file.regular) return file;
  if (in_use.is_used(id)) {
    file.fd = refuse(file.fd, error_in_use);
  } else if (!in_use.add_written(id, file.fd)) {
    file.fd = refuse(file.fd, errno);
  }
  return file;
}

// The file goes with its last handle, however the process ends.
int open_nameless(const char* directory) {
  const std::string path = std::string(directory) + "\\kv" + fresh_name();
  return open_any(path.c_str(), _O_CREAT | _O_EXCL | _O_RDWR | _O_BINARY | _O_NOINHERIT |
                                    _O_TEMPORARY | _O_SHORT_LIVED);
}

void begin_run() {
  in_use = {};
}

bool use_standard(int fd) {
  file_id id;
  if (!identify(handle_of(fd), id)) return true;
  const bool reads = fd == 0;
  if (reads ? in_use.is_written(id) : in_use.is_used(id)) {
    errno = error_in_use;
    return false;
  }
  return reads ? in_use.add_read(id) : in_use.add_written(id, fd);
}

bool use_replaced(const char* path) {
  // No access is asked for, so nothing that others do with the file is in the way.
  const HANDLE file = ::CreateFileW(system_path(path).c_str(), 0,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (file == INVALID_HANDLE_VALUE) return true;
  file_id id;
  const bool regular = identify(file, id);
  ::CloseHandle(file);
  if (!regular) return true;
  if (in_use.is_used(id)) {
    errno = error_in_use;
    return false;
  }
  return in_use.add_replaced(id);
}

bool close_file(int fd) {
  open_files.remove(fd);
  in_use.remove(fd);
  return ::_close(fd) == 0;
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
    if (put <= 0) {
      // The runtime has no errno of its own for a pipe that nobody reads any more.
      if (_doserrno == ERROR_NO_DATA || _doserrno == ERROR_PIPE_NOT_CONNECTED) errno = EPIPE;
      return false;
    }
    at += put;
    n -= static_cast<std::size_t>(put);
  }
  return true;
}

bool write_bytes(int fd, const void* p, std::size_t n) {
  constexpr std::size_t most = 1U << 20;
  const char* at = static_cast<const char*>(p);
  while (n != 0) {
    DWORD put = 0;
    const auto size = static_cast<DWORD>(std::min(n, most));
    if (!succeeded(::WriteFile(handle_of(fd), at, size, &put, nullptr))) return false;
    at += put;
    n -= put;
  }
  return true;
}

bool resize_file(int fd, std::uint64_t size) {
  const errno_t error = ::_chsize_s(fd, static_cast<std::int64_t>(size));
  if (error != 0) errno = error;
  return error == 0;
}

bool seek_file(int fd, std::uint64_t offset) {
  return ::_lseeki64(fd, static_cast<std::int64_t>(offset), SEEK_SET) >= 0;
}

int duplicate(int fd) {
  return ::_dup(fd);
}

bool duplicate_onto(int from, int to) {
  return ::_dup2(from, to) == 0;
}

bool is_terminal(int fd) {
  DWORD mode = 0;
  return ::_isatty(fd) != 0 && ::GetConsoleMode(handle_of(fd), &mode) != 0;
}

bool prepare_standard_handles() {
  for (int fd = 0; fd <= 2; ++fd) {
    if (::_get_osfhandle(fd) < 0) {
      const int null_device = ::_open("NUL", _O_RDWR);
      if (null_device < 0) return false;
      if (null_device != fd) {
        ::_dup2(null_device, fd);
        ::_close(null_device);
      }
    }
    ::_setmode(fd, _O_TEXT);
  }
  return true;
}

// Ctrl-C; the system has no other signal from outside.
signals_held::signals_held() {
  ::SetConsoleCtrlHandler(nullptr, TRUE);
}

signals_held::~signals_held() {
  ::SetConsoleCtrlHandler(nullptr, FALSE);
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
  const bool complete = ::GetLastError() == ERROR_NO_MORE_FILES || succeeded(FALSE);
  ::FindClose(find);
  return complete;
}

bool make_directory(const char* path) {
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

std::string temporary_directory() {
  std::array<wchar_t, MAX_PATH + 1> buffer;
  const DWORD length = ::GetTempPathW(static_cast<DWORD>(buffer.size()), buffer.data());
  return length != 0 && length < buffer.size() ? narrow(buffer.data()) : ".";
}

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
  return error == error_in_use ? in_use_text : std::strerror(error);
}

std::uint64_t unforeseeable() {
  unsigned low = 0;
  unsigned high = 0;
  if (::rand_s(&low) != 0 || ::rand_s(&high) != 0) return ::GetTickCount64();
  return std::uint64_t{high} << 32 | low;
}

std::uint64_t monotonic_ns() {
  LARGE_INTEGER frequency;
  LARGE_INTEGER now;
  ::QueryPerformanceFrequency(&frequency);
  ::QueryPerformanceCounter(&now);
  // In two steps, since the ticks of some weeks times 10^9 do not fit.
  constexpr std::uint64_t second = 1000000000U;
  const auto ticks = static_cast<std::uint64_t>(now.QuadPart);
  const auto rate = static_cast<std::uint64_t>(frequency.QuadPart);
  return ticks / rate * second + ticks % rate * second / rate;
}

std::string fresh_name() {
  constexpr std::string_view digits = "0123456789abcdefghijklmnopqrstuv";
  std::uint64_t bits = unforeseeable();
  std::string name;
  for (int i = 0; i < 8; ++i, bits /= digits.size()) name += digits[bits % digits.size()];
  return name;
}

}  // namespace kv::host
