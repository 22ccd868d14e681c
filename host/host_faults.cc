// Calls of the operating system that fail when they are told to; part of a checking build alone.
//
// What a program does when a call fails is hardly ever seen: disks fill up and memory ends on other
// people's machines. Here the linker leads the calls of the whole program (its libraries included,
// as it is linked statically) through this file, and
//
//     CPP_FAULT=KIND:N     makes the Nth call of a kind fail, counted from 1
//     CPP_FAULT=KIND:N+    makes the Nth and all later ones fail
//     CPP_FAULT_SIGNAL=S   sends the process signal S instead, right before the call
//     CPP_FAULT_FD=D       tells each failure with a line on descriptor D
//
// The kinds are the first column of the table below. A file is closed even where closing it
// fails, as it is on a real system. What the C library does before main() and what is done at the
// exit of the process, when all of the program's work is over, is not counted.

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>

extern "C" ssize_t __real_write(int fd, const void* bytes, std::size_t n);

namespace {

// What CPP_FAULT asks for; nothing fails when `kind` is empty.
struct fault {
  std::string_view kind;
  unsigned long number = 0;
  bool and_later_ones = false;
  int signal = 0;
  int report_fd = -1;
};

fault read_fault() {
  fault wanted;
  const char* const text = std::getenv("CPP_FAULT");
  if (text == nullptr) return wanted;
  const std::string_view all = text;
  const std::size_t colon = all.find(':');
  if (colon == std::string_view::npos) return wanted;
  wanted.kind = all.substr(0, colon);
  const char* const end = all.data() + all.size();
  const char* const rest = std::from_chars(all.data() + colon + 1, end, wanted.number).ptr;
  wanted.and_later_ones = rest != end;
  if (const char* const signal = std::getenv("CPP_FAULT_SIGNAL")) wanted.signal = std::atoi(signal);
  if (const char* const fd = std::getenv("CPP_FAULT_FD")) wanted.report_fd = std::atoi(fd);
  return wanted;
}

// Allocates nothing, as allocation is among the calls.
void report(const fault& of, const char* call, int fd) {
  char line[64];
  const int length = std::snprintf(line, sizeof line, "%s %d\n", call, fd);
  __real_write(of.report_fd, line, static_cast<std::size_t>(length));
}

bool at_work = false;  // main() has been entered, exit() has not

// minizip does not look whether it gets the memory that it asks for first when a file is added. The
// program makes sure of it beforehand: the next allocation does not fail.
bool is_sure = false;

// True when this call of the kind is to fail; errno is then set. `fd` is the descriptor that the
// call is about, -1 without one.
bool fails(std::string_view kind, const char* call, int fd, int error) {
  static const fault wanted = read_fault();
  static unsigned long count = 0;
  if (!at_work || kind != wanted.kind) return false;
  ++count;
  if (count != wanted.number && (count < wanted.number || !wanted.and_later_ones)) return false;
  if (wanted.report_fd >= 0) report(wanted, call, fd);
  if (wanted.signal != 0) {
    std::raise(wanted.signal);
    return false;
  }
  errno = error;
  return true;
}

}  // namespace

// FAULT(kind, error, failure, fd, result, call, (parameters), (arguments)): `call` returns
// `failure` with `error` when it is to fail.
#define FAULT(kind, error, failure, fd, result, call, parameters, arguments) \
  result __real_##call parameters;                                           \
  result __wrap_##call parameters {                                          \
    if (fails(kind, #call, fd, error)) return failure;                       \
    return __real_##call arguments;                                          \
  }

// As FAULT, for a call that does its work even though it fails.
#define LATE_FAULT(kind, error, failure, fd, result, call, parameters, arguments) \
  result __real_##call parameters;                                                \
  result __wrap_##call parameters {                                               \
    const bool failing = fails(kind, #call, fd, error);                           \
    const int reason = errno;                                                     \
    const result done = __real_##call arguments;                                  \
    if (!failing) return done;                                                    \
    errno = reason;                                                               \
    return failure;                                                               \
  }

extern "C" {

// clang-format off
FAULT("open", EIO, nullptr, -1, FILE*, fopen, (const char* path, const char* mode), (path, mode))
FAULT("open", EIO, nullptr, -1, FILE*, fopen64, (const char* path, const char* mode), (path, mode))
FAULT("read", EIO, -1, fd, ssize_t, read, (int fd, void* to, std::size_t n), (fd, to, n))
FAULT("read", EIO, 0, -1, std::size_t, fread,
      (void* to, std::size_t size, std::size_t n, FILE* file), (to, size, n, file))
FAULT("read", EIO, 0, -1, std::size_t, __fread_chk,
      (void* to, std::size_t room, std::size_t size, std::size_t n, FILE* file),
      (to, room, size, n, file))
FAULT("write", ENOSPC, -1, fd, ssize_t, write, (int fd, const void* from, std::size_t n),
      (fd, from, n))
FAULT("write", ENOSPC, 0, -1, std::size_t, fwrite,
      (const void* from, std::size_t size, std::size_t n, FILE* file), (from, size, n, file))
LATE_FAULT("close", EIO, -1, fd, int, close, (int fd), (fd))
LATE_FAULT("close", EIO, EOF, -1, int, fclose, (FILE* file), (file))
FAULT("stat", EIO, -1, fd, int, fstat, (int fd, struct stat* status), (fd, status))
FAULT("stat", EIO, -1, -1, int, stat, (const char* path, struct stat* status), (path, status))
FAULT("stat", EIO, -1, -1, int, lstat, (const char* path, struct stat* status), (path, status))
FAULT("truncate", EIO, -1, fd, int, ftruncate, (int fd, off_t size), (fd, size))
FAULT("duplicate", EMFILE, -1, from, int, dup2, (int from, int to), (from, to))
FAULT("unlink", EIO, -1, -1, int, unlink, (const char* path), (path))
FAULT("unlink", EIO, -1, -1, int, rmdir, (const char* path), (path))
FAULT("unlink", EIO, -1, -1, int, remove, (const char* path), (path))
FAULT("rename", EIO, -1, -1, int, rename, (const char* from, const char* to), (from, to))
FAULT("list", EIO, nullptr, -1, DIR*, opendir, (const char* path), (path))
FAULT("list", EIO, nullptr, -1, dirent*, readdir, (DIR* directory), (directory))
FAULT("alloc", ENOMEM, nullptr, -1, void*, calloc, (std::size_t n, std::size_t size), (n, size))
FAULT("alloc", ENOMEM, nullptr, -1, void*, realloc, (void* block, std::size_t size),
      (block, size))
// clang-format on

/// From here on nothing fails.
void cpp_faults_end() {
  at_work = false;
}

int __real_main(int argc, char** argv);
int __wrap_main(int argc, char** argv) {
  at_work = true;
  std::atexit(cpp_faults_end);  // the last to be called, being the first
  return __real_main(argc, argv);
}

int __real_zipOpenNewFileInZip64(void* archive, const char* name, const void* info,
                                 const void* local, unsigned local_size, const void* global,
                                 unsigned global_size, const char* comment, int method, int level,
                                 int is_large);
int __wrap_zipOpenNewFileInZip64(void* archive, const char* name, const void* info,
                                 const void* local, unsigned local_size, const void* global,
                                 unsigned global_size, const char* comment, int method, int level,
                                 int is_large) {
  is_sure = true;
  const int result = __real_zipOpenNewFileInZip64(archive, name, info, local, local_size, global,
                                                  global_size, comment, method, level, is_large);
  is_sure = false;
  return result;
}

void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size) {
  if (std::exchange(is_sure, false)) return __real_malloc(size);
  return fails("alloc", "malloc", -1, ENOMEM) ? nullptr : __real_malloc(size);
}

// Those that take arguments as they need them.

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  if (fails("open", "open", -1, EIO)) return -1;
  return __real_open(path, flags, mode);
}

int __real_fcntl(int fd, int command, ...);
int __wrap_fcntl(int fd, int command, ...) {
  va_list rest;
  va_start(rest, command);
  void* const argument = va_arg(rest, void*);
  va_end(rest);
  if (command == F_DUPFD_CLOEXEC && fails("duplicate", "fcntl", fd, EMFILE)) return -1;
  return __real_fcntl(fd, command, argument);
}
}
