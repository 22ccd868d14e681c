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

#include "host/host.h"
#include "host/host_limit.h"
#include "host/host_use.h"

namespace kv::host {

const bool names_are_case_sensitive = true;
const bool paths_have_drives = false;
namespace {

constinit open_file_count open_files;

constinit files_in_use in_use;

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
    errno = 0;
    while (const dirent* entry = ::readdir(dir)) {
      add(entry->d_name);
      errno = 0;
    }
    if (errno != 0) forget();
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

  /// There may be names that have not been listed: nothing is known of the directory any more.
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

// A descriptor and what the system tells of the file behind it.
struct opened_file {
  int fd = -1;
  struct stat status = {};

  file_id id() const {
    return {static_cast<std::uint64_t>(status.st_dev), static_cast<std::uint64_t>(status.st_ino)};
  }
  bool regular() const { return S_ISREG(status.st_mode); }
};

// Closes the file and keeps `error` as the reason for that.
opened_file refuse(const opened_file& file, int error) {
  ::close(file.fd);
  errno = error;
  return {};
}

int open_any(const std::string& host_path, int flags) {
  constexpr mode_t everybody = 0666;
  int fd = 0;
  do {
    fd = ::open(host_path.c_str(), flags | O_CLOEXEC | O_NOCTTY, everybody);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

opened_file open_to_read(const std::string& host_path) {
  opened_file file{open_any(host_path, O_RDONLY)};
  if (file.fd < 0) return file;
  if (::fstat(file.fd, &file.status) != 0) return refuse(file, errno);
  return S_ISDIR(file.status.st_mode) ? refuse(file, EISDIR) : file;
}

// As open_to_read, for a file that must not be written in the run.
opened_file open_unwritten(const std::string& host_path) {
  const opened_file file = open_to_read(host_path);
  const bool written = file.fd >= 0 && file.regular() && in_use.is_written(file.id());
  return written ? refuse(file, error_in_use) : file;
}

// Tells whether the file has been created. That is tried first: most outputs are new.
opened_file open_or_create(const std::string& host_path, int flags, bool& created) {
  opened_file file{open_any(host_path, flags | O_CREAT | O_EXCL)};
  created = file.fd >= 0;
  if (!created && errno == EEXIST) file.fd = open_any(host_path, flags | O_CREAT);
  if (file.fd < 0 || ::fstat(file.fd, &file.status) == 0) return file;
  const int reason = errno;
  if (created) ::unlink(host_path.c_str());
  return refuse(file, reason);
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

int open_read(const char* path, content /*kind*/) {
  return open_to_read(native_path(path)).fd;
}

int open_input(const char* path, content /*kind*/) {
  const opened_file file = open_unwritten(native_path(path));
  const bool known = file.fd < 0 || !file.regular() || in_use.add_read(file.id());
  return known ? file.fd : refuse(file, errno).fd;
}

int open_probe(const char* path, std::size_t* size) {
  if (size != nullptr) *size = 0;
  // One of many: the room of the last path is used again.
  static auto& host_path = *new std::string;
  host_path = path;
  std::replace(host_path.begin(), host_path.end(), '\\', '/');
  const split_path parts = split(host_path);
  if (!parts.name.empty() && known_missing(parts)) return -1;
  if (open_files.full()) {
    errno = EMFILE;
    return -1;
  }
  const opened_file file = open_unwritten(host_path);
  if (file.fd < 0) {
    const int reason = errno;
    if (reason == ENOENT || reason == ENOTDIR) listing_of(parts.directory);
    errno = reason;
    return -1;
  }
  if (!open_files.add(file.fd)) return refuse(file, EMFILE).fd;
  if (size != nullptr && file.regular()) *size = static_cast<std::size_t>(file.status.st_size);
  return file.fd;
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

written_file open_write(const char* path, write_place place, content /*kind*/) {
  forget_listings();
  written_file result;
  const int flags = O_WRONLY | (place == write_place::at_end ? O_APPEND : 0);
  const opened_file file = open_or_create(native_path(path), flags, result.created);
  result.fd = file.fd;
  result.regular = file.fd >= 0 && file.regular();
  if (!result.regular) return result;
  if (in_use.is_used(file.id())) {
    result.fd = refuse(file, error_in_use).fd;
  } else if (!in_use.add_written(file.id(), file.fd)) {
    result.fd = refuse(file, errno).fd;
  }
  result.size = static_cast<std::uint64_t>(file.status.st_size);
  return result;
}

int open_nameless(const char* directory) {
  constexpr mode_t owner = 0600;
  const std::string host_path = native_path(directory);
  const int fd = ::open(host_path.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, owner);
  if (fd >= 0 || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)) return fd;
  // The file system cannot do without a name.
  const std::string name = host_path + "/kv" + fresh_name();
  const int named = ::open(name.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, owner);
  if (named >= 0 && ::unlink(name.c_str()) != 0) {
    const int reason = errno;
    ::close(named);
    errno = reason;
    return -1;
  }
  return named;
}

void begin_run() {
  in_use = {};
}

bool use_standard(int fd) {
  opened_file file{fd};
  if (::fstat(fd, &file.status) != 0) return false;
  if (!file.regular()) return true;
  const bool reads = fd == STDIN_FILENO;
  if (reads ? in_use.is_written(file.id()) : in_use.is_used(file.id())) {
    errno = error_in_use;
    return false;
  }
  return reads ? in_use.add_read(file.id()) : in_use.add_written(file.id(), fd);
}

bool use_replaced(const char* path) {
  opened_file file;
  if (::stat(native_path(path).c_str(), &file.status) != 0 || !file.regular()) return true;
  if (in_use.is_used(file.id())) {
    errno = error_in_use;
    return false;
  }
  return in_use.add_replaced(file.id());
}

bool close_file(int fd) {
  open_files.remove(fd);
  in_use.remove(fd);
  // An interrupted call has closed the descriptor all the same.
  return ::close(fd) == 0 || errno == EINTR;
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

bool write_bytes(int fd, const void* p, std::size_t n) {
  return write_all(fd, p, n);
}

bool resize_file(int fd, std::uint64_t size) {
  int result = 0;
  do {
    result = ::ftruncate(fd, static_cast<off_t>(size));
  } while (result < 0 && errno == EINTR);
  return result == 0;
}

bool seek_file(int fd, std::uint64_t offset) {
  return ::lseek(fd, static_cast<off_t>(offset), SEEK_SET) >= 0;
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

bool prepare_standard_handles() {
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (::fcntl(fd, F_GETFD) != -1) continue;
    // The lowest free number is `fd`, as those below it are open by now.
    if (::open("/dev/null", O_RDWR) != fd) return false;
  }
  return true;
}

namespace {

bool hold_signals(int how) {
  sigset_t ending;
  sigemptyset(&ending);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&ending, signal);
  sigset_t before;
  sigprocmask(how, &ending, &before);
  return sigismember(&before, SIGINT) == 1;
}

}  // namespace

signals_held::signals_held() : held_before_(hold_signals(SIG_BLOCK)) {}

signals_held::~signals_held() {
  if (!held_before_) hold_signals(SIG_UNBLOCK);
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
  errno = 0;
  while (const dirent* entry = ::readdir(dir)) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
    errno = 0;
  }
  const int reason = errno;
  ::closedir(dir);
  errno = reason;
  return reason == 0;
}

bool make_directory(const char* path) {
  forget_listings();
  return ::mkdir(native_path(path).c_str(), 0777) == 0;
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

std::string temporary_directory() {
  return "/tmp";
}

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
  return error == error_in_use ? in_use_text : std::strerror(error);
}

std::uint64_t monotonic_ns() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1000000000U +
         static_cast<std::uint64_t>(now.tv_nsec);
}

std::uint64_t unforeseeable() {
  std::uint64_t bits = 0;
  if (::getrandom(&bits, sizeof bits, 0) != static_cast<ssize_t>(sizeof bits)) {
    // A kernel without the call: still different in each process and each second.
    constexpr unsigned pid_bits = 22;
    bits = static_cast<std::uint64_t>(::time(nullptr)) << pid_bits;
    bits ^= static_cast<std::uint64_t>(::getpid());
  }
  return bits;
}

std::string fresh_name() {
  constexpr std::string_view digits = "0123456789abcdefghijklmnopqrstuv";
  std::uint64_t bits = unforeseeable();
  std::string name;
  for (int i = 0; i < 8; ++i, bits /= digits.size()) name += digits[bits % digits.size()];
  return name;
}

}  // namespace kv::host
