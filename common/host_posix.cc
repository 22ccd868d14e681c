// The host layer on POSIX systems.
//
// Most of it is one call each. The one idea is the table of directory listings: it is read on the
// first miss in a directory and then answers two questions, "is this name missing?" for open_probe
// and "how is this name spelled?" for the look-up without regard to case. The table never says that
// a name exists, only that it cannot, so a stale entry costs a system call and nothing worse. Since
// a file system may itself ignore case, a name counts as missing only when no spelling of it is
// there; names with bytes above 127, whose case only the file system knows, are always asked for.

#include <dirent.h>
#include <fcntl.h>
#include <sys/auxv.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "common/host.h"
#include "common/host_limit.h"

namespace kv::host {

const bool names_are_case_sensitive = true;
namespace {

constinit open_file_count open_files;

// ---- Names ----

char fold(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

// A host path cut at its last slash. `directory` is "." for a bare name and never ends in a slash,
// the root apart; `name` is empty for a path that ends in one.
struct split_path {
  std::string_view directory;
  std::string_view name;
};

split_path split(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return {".", path};
  std::string_view directory = path.substr(0, slash);
  while (!directory.empty() && directory.back() == '/') directory.remove_suffix(1);
  return {directory.empty() ? "/" : directory, path.substr(slash + 1)};
}

// ---- Listings ----

bool equal_nocase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return fold(x) == fold(y); });
}

}  // namespace

sought_name::sought_name(std::string_view name)
    : text(name), hash(5381), case_is_known(name.size() <= NAME_MAX) {
  // The bit that tells a letter's cases apart is set in all characters.
  unsigned seen = 0;
  for (const char c : name) {
    seen |= static_cast<unsigned char>(c);
    hash = hash * 33 + (static_cast<unsigned char>(c) | 0x20U);
  }
  if (seen >= 0x80) case_is_known = false;
}

class directory_names {
 public:
  /// Reads the directory at a host path.
  explicit directory_names(const std::string& directory) {
    DIR* dir = ::opendir(directory.c_str());
    if (dir == nullptr) {
      state_ = errno == ENOENT || errno == ENOTDIR ? state::no_directory : state::unreadable;
      error_ = errno;
      return;
    }
    slots_.resize(first_slots);
    while (const dirent* entry = ::readdir(dir)) add(entry->d_name);
    ::closedir(dir);
  }

  /// True when no spelling of `name` can exist in the directory.
  bool lacks(const sought_name& name) const {
    if (state_ == state::no_directory) return true;
    if (state_ != state::listed || !name.case_is_known) return false;
    for (std::size_t i = first_slot(name.hash); slots_[i].at != 0; i = next_slot(i)) {
      if (is_at(slots_[i], name)) return false;
    }
    return true;
  }

  /// The error of opening a name that the directory lacks.
  int error() const { return error_; }

  /// The stored spelling of a name, the exact one by preference, else the first in byte order;
  /// empty without one.
  std::string_view spelling(std::string_view name) const {
    std::string_view best;
    if (slots_.empty()) return best;
    const sought_name sought(name);
    for (std::size_t i = first_slot(sought.hash); slots_[i].at != 0; i = next_slot(i)) {
      if (!is_at(slots_[i], sought)) continue;
      const std::string_view stored = text_at(slots_[i]);
      if (stored == name) return stored;
      if (best.empty() || stored < best) best = stored;
    }
    return best;
  }

  /// A new name may have appeared in the directory: nothing is known of it any more.
  void forget() {
    state_ = state::unreadable;
    slots_.clear();
    texts_.clear();
  }

 private:
  enum class state { listed, no_directory, unreadable };

  // Where in texts_ a name begins, 0 in an empty slot.
  struct slot {
    std::uint32_t hash = 0;
    std::uint32_t at = 0;
  };
  static constexpr std::size_t first_slots = 64;  // a power of two, as all sizes are

  std::size_t first_slot(std::uint32_t hash) const {
    return (hash ^ (hash >> 16)) & (slots_.size() - 1);
  }
  std::size_t next_slot(std::size_t i) const { return (i + 1) & (slots_.size() - 1); }

  std::string_view text_at(const slot& s) const { return texts_.data() + s.at; }

  bool is_at(const slot& s, const sought_name& name) const {
    if (s.hash != name.hash) return false;
    const std::string_view stored = text_at(s);
    return stored == name.text || equal_nocase(stored, name.text);
  }

  void store(const slot& s) {
    std::size_t i = first_slot(s.hash);
    while (slots_[i].at != 0) i = next_slot(i);
    slots_[i] = s;
  }

  void add(std::string_view name) {
    if (2 * ++count_ > slots_.size()) {
      std::vector<slot> old(2 * slots_.size());
      old.swap(slots_);
      for (const slot& s : old) {
        if (s.at != 0) store(s);
      }
    }
    texts_ += '\0';
    const auto at = static_cast<std::uint32_t>(texts_.size());
    texts_ += name;
    store({sought_name(name).hash, at});
  }

  // A hash table with open addressing, of which at most half is in use, over the names one after
  // the other, each behind a zero byte. Names that differ in case alone are all in it. It is empty
  // unless the state is `listed`, and includes "." and "..".
  state state_ = state::listed;
  int error_ = ENOENT;
  std::vector<slot> slots_;
  std::string texts_;
  std::size_t count_ = 0;
};

namespace {

struct path_hash {
  using is_transparent = void;
  std::size_t operator()(std::string_view path) const {
    return std::hash<std::string_view>()(path);
  }
};

// Keyed by split_path::directory. Lives until the process ends, so it is never destroyed.
using listing_table = std::unordered_map<std::string, directory_names, path_hash, std::equal_to<>>;
listing_table& listings() {
  static auto* const table = new listing_table;
  return *table;
}

const directory_names* known_listing(std::string_view directory) {
  auto found = listings().find(directory);
  return found == listings().end() ? nullptr : &found->second;
}

const directory_names& listing_of(std::string_view directory) {
  if (const directory_names* known = known_listing(directory)) return *known;
  const std::string path(directory);
  return listings().try_emplace(path, path).first->second;
}

// True when memory alone tells that the file is missing: its directory is known to lack it, or the
// directory above is known to lack the directory.
bool known_missing(const split_path& path) {
  const directory_names* here = known_listing(path.directory);
  if (here != nullptr) return lacks_name(here, sought_name(path.name));
  const split_path up = split(path.directory);
  return !up.name.empty() && lacks_name(known_listing(up.directory), sought_name(up.name));
}

// A new name may have appeared in some directory.
void forget_listings() {
  for (auto& known : listings()) known.second.forget();
}

// ---- Files ----

constexpr int write_flags(bool append) {
  return O_WRONLY | O_CREAT | (append ? O_APPEND : O_TRUNC);
}

int open_uncounted(const std::string& host_path, int flags, std::size_t* size = nullptr) {
  constexpr mode_t everybody = 0666;
  int fd = 0;
  do {
    fd = ::open(host_path.c_str(), flags | O_CLOEXEC | O_NOCTTY, everybody);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0 || (flags & O_ACCMODE) != O_RDONLY) return fd;

  struct stat status;
  if (::fstat(fd, &status) != 0) return fd;
  if (S_ISDIR(status.st_mode)) {
    ::close(fd);
    errno = EISDIR;
    return -1;
  }
  if (size != nullptr && S_ISREG(status.st_mode)) *size = static_cast<std::size_t>(status.st_size);
  return fd;
}

int open_counted(const std::string& host_path, int flags, std::size_t* size = nullptr) {
  int fd = -1;
  if (!open_files.full()) {
    fd = open_uncounted(host_path, flags, size);
    if (fd < 0 || open_files.add(fd)) return fd;
    ::close(fd);
  }
  errno = EMFILE;
  return -1;
}

bool stat_mode(const char* path, mode_t& mode) {
  struct stat status;
  if (::stat(native_path(path).c_str(), &status) != 0) return false;
  mode = status.st_mode;
  return true;
}

// Puts the letters of the stored name in place of those of the path's last component, after doing
// the same for its directory where that does not exist as spelled. `path` is a host path without
// trailing slashes.
bool respell(std::string& path) {
  std::string directory(split(path).directory);
  std::string_view stored = listing_of(directory).spelling(split(path).name);
  if (stored.empty() && path.find('/') != std::string::npos && directory != "/") {
    const std::size_t length = directory.size();
    if (!respell(directory)) return false;
    path.replace(0, length, directory);
    stored = listing_of(directory).spelling(split(path).name);
  }
  if (!stored.empty()) {
    path.replace(path.size() - stored.size(), stored.size(), stored);
    return true;
  }
  // Perhaps a directory that can be searched but not listed.
  return !listing_of(directory).lacks(sought_name(split(path).name)) &&
         ::access(path.c_str(), F_OK) == 0;
}

}  // namespace

// ---- Files ----

int open_read(const char* path) {
  return open_counted(native_path(path), O_RDONLY);
}

int open_read_uncounted(const char* path) {
  return open_uncounted(native_path(path), O_RDONLY);
}

int open_probe(const char* path, std::size_t* size) {
  if (size != nullptr) *size = 0;
  // One of many: the room of the last path is used again.
  static auto& host_path = *new std::string;
  host_path = path;
  std::replace(host_path.begin(), host_path.end(), '\\', '/');
  const split_path parts = split(host_path);
  if (!parts.name.empty() && known_missing(parts)) return -1;
  const int fd = open_counted(host_path, O_RDONLY, size);
  if (fd < 0 && (errno == ENOENT || errno == ENOTDIR)) {
    const int reason = errno;
    listing_of(parts.directory);
    errno = reason;
  }
  return fd;
}

bool take_file_place() {
  return open_files.take_place();
}

void give_file_place() {
  open_files.give_place();
}

const directory_names* names_in_directory(const char* path) {
  return &listing_of(split(native_path(path) + "/").directory);
}

bool lacks_name(const directory_names* names, const sought_name& name) {
  if (names == nullptr || !names->lacks(name)) return false;
  errno = open_files.full() ? EMFILE : names->error();
  return true;
}

int open_write(const char* path, bool append, content /*kind*/) {
  forget_listings();
  return open_counted(native_path(path), write_flags(append));
}

void close_file(int fd) {
  open_files.remove(fd);
  ::close(fd);
}

long read_block(int fd, void* buf, std::size_t n) {
  ssize_t got = 0;
  do {
    got = ::read(fd, buf, n);
  } while (got < 0 && errno == EINTR);
  return got;
}

bool write_all(int fd, const void* p, std::size_t n) {
  const char* at = static_cast<const char*>(p);
  while (n != 0) {
    const ssize_t put = ::write(fd, at, n);
    if (put > 0) {
      at += put;
      n -= static_cast<std::size_t>(put);
    } else if (put == 0 || errno != EINTR) {
      return false;
    }
  }
  return true;
}

bool redirect(int fd, const char* path, open_mode mode) {
  if (mode != open_mode::read) forget_listings();
  const int flags = mode == open_mode::read ? O_RDONLY : write_flags(mode == open_mode::append);
  const int opened = open_uncounted(native_path(path), flags);
  if (opened < 0 || opened == fd) return opened >= 0;
  const bool done = duplicate_onto(opened, fd);
  ::close(opened);
  return done;
}

int duplicate(int fd) {
  constexpr int first_own = STDERR_FILENO + 1;
  return ::fcntl(fd, F_DUPFD_CLOEXEC, first_own);
}

bool duplicate_onto(int from, int to) {
  int result = 0;
  do {
    result = ::dup2(from, to);
  } while (result < 0 && errno == EINTR);
  return result >= 0;
}

bool is_terminal(int fd) {
  return ::isatty(fd) == 1;
}

void prepare_standard_handles() {
  std::signal(SIGPIPE, SIG_IGN);
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (::fcntl(fd, F_GETFD) != -1) continue;
    // The lowest free number is `fd`, as those below it are open by now.
    if (::open("/dev/null", O_RDWR) != fd) return;
  }
}

// ---- The file system ----

bool exists(const char* path) {
  mode_t mode = 0;
  return stat_mode(path, mode);
}

bool is_regular_file(const char* path) {
  mode_t mode = 0;
  return stat_mode(path, mode) && S_ISREG(mode);
}

bool is_directory(const char* path) {
  mode_t mode = 0;
  return stat_mode(path, mode) && S_ISDIR(mode);
}

bool is_real_directory(const char* path) {
  struct stat status;
  return ::lstat(native_path(path).c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool list_directory(const char* path, std::vector<std::string>& names) {
  DIR* dir = ::opendir(native_path(path).c_str());
  if (dir == nullptr) return false;
  while (const dirent* entry = ::readdir(dir)) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  ::closedir(dir);
  return true;
}

bool make_directory(const char* path, bool owner_only) {
  forget_listings();
  return ::mkdir(native_path(path).c_str(), owner_only ? 0700 : 0777) == 0;
}

bool remove_file(const char* path) {
  return ::unlink(native_path(path).c_str()) == 0;
}

bool remove_directory(const char* path) {
  return ::rmdir(native_path(path).c_str()) == 0;
}

bool replace_file(const char* from, const char* to) {
  forget_listings();
  return std::rename(native_path(from).c_str(), native_path(to).c_str()) == 0;
}

bool stored_spelling(const char* path, std::string& actual) {
  std::string host_path = native_path(path);
  while (host_path.size() > 1 && host_path.back() == '/') host_path.pop_back();
  if (host_path != "/" && !respell(host_path)) return false;

  actual = path;
  for (std::size_t i = 0; i < host_path.size(); ++i) {
    if (host_path[i] != '/') actual[i] = host_path[i];
  }
  return true;
}

std::string spelling_to_open(const char* path) {
  std::string actual;
  return !exists(path) && stored_spelling(path, actual) ? actual : path;
}

std::string native_path(const char* path) {
  std::string host_path = path;
  std::replace(host_path.begin(), host_path.end(), '\\', '/');
  return host_path;
}

bool is_rooted(const char* path) {
  return *path == '/' || *path == '\\';
}

// ---- The process ----

std::string current_directory() {
  std::array<char, 20480> buffer;
  return ::getcwd(buffer.data(), buffer.size()) != nullptr ? buffer.data() : "";
}

std::string program_path() {
  std::array<char, PATH_MAX> buffer;
  const ssize_t length = ::readlink("/proc/self/exe", buffer.data(), buffer.size());
  if (length > 0) return {buffer.data(), static_cast<std::size_t>(length)};
  // A bare root has no /proc. The kernel has also left the path that the program was started by.
  const auto started_by = reinterpret_cast<const char*>(::getauxval(AT_EXECFN));
  const bool is_known = started_by != nullptr && ::realpath(started_by, buffer.data()) != nullptr;
  return is_known ? buffer.data() : "";
}

const char* error_text(int error) {
  return std::strerror(error);
}

std::string fresh_name() {
  constexpr std::string_view digits = "0123456789abcdefghijklmnopqrstuv";
  std::uint64_t bits = 0;
  if (::getrandom(&bits, sizeof bits, 0) != static_cast<ssize_t>(sizeof bits)) {
    // A kernel without the call: still different in each process and each second.
    constexpr unsigned pid_bits = 22;
    bits = static_cast<std::uint64_t>(::time(nullptr)) << pid_bits;
    bits ^= static_cast<std::uint64_t>(::getpid());
  }
  std::string name;
  for (int i = 0; i < 8; ++i, bits /= digits.size()) name += digits[bits % digits.size()];
  return name;
}

}  // namespace kv::host
