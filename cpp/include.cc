#include "cpp/include.h"

#include <cerrno>
#include <cstring>
#include <string>

#include "common/alert.h"
#include "common/alloc.h"
#include "common/cmode.h"
#include "common/format.h"
#include "common/host.h"
#include "common/kvdebug.h"
#include "common/osdep.h"
#include "common/stringcache.h"
#include "cpp/expand.h"
#include "cpp/options.h"
#include "cpp/reader.h"
#include "cpp/scan.h"
#include "cpp/source.h"

namespace kv::cpp {

std::array<const char*, include_dir_limit> include_dirs;
std::size_t include_dir_count = 0;
hash_table* included_files = nullptr;

namespace {

constexpr std::size_t include_name_limit = 2048;
constexpr std::size_t candidate_limit = 32767;

// The paths printed for -H.
hash_table* shown_includes = nullptr;

bool is_separator(char c) {
  return c == '\\' || c == '/';
}

bool is_letter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// The directory of the file being read, with its separator; empty when its name has none. A name
// given by #line does not count.
std::string current_directory_prefix() {
  const input_frame* file = nearest_file_frame();
  if (file == nullptr) return {};
  const std::string name = alert_str(file->name);
  auto end = name.rfind('\\');
  if (end == name.npos) end = name.rfind('/');
  return end == name.npos ? std::string() : name.substr(0, end + 1);
}

bool try_candidate(const char* path) {
  const word key = to_word(path);
  if (!text_output() && hash_contains(included_files, key) != 0) return true;
  if (!open_include(path)) return false;
  if (hash_contains(included_files, key) == 0) {
    const word copy = to_word(str_concat(path, ""));
    hash_insert(included_files, copy, copy, __FILE__, __LINE__);
  }
  return true;
}

// Opens `path` under the spelling that the host accepts: as written, in lower case, or with the
// letters as they are stored. `lowered` tells that only the lower-case spelling did.
int open_any_case(const char* path, bool& as_written, bool& lowered) {
  int fd = host::open_probe(path);
  as_written = fd >= 0;
  lowered = false;
  if (fd >= 0) return fd;

  std::string other = path;
  for (char& c : other) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  if (other != path) {
    fd = host::open_probe(other.c_str());
    lowered = fd >= 0;
    if (lowered) return fd;
  }
  const int error = errno;
  if (host::stored_spelling(path, other) && other != path) return host::open_probe(other.c_str());
  errno = error;
  return -1;
}

// Reads the name up to its closing delimiter into `name`. Returns false when the line ends first.
bool read_name(int close, std::string& name) {
  raw_read = true;
  work_len = 0;
  int c;
  while ((c = get()) != close && c != '\n' && c != 0) work_save(c);
  raw_read = false;
  if (c != close) return false;
  name.resize(work_len);
  for (std::size_t i = 0; i < work_len; ++i) name[i] = static_cast<char>(work_buf[i]);
  return true;
}

void warn_of_separators(const std::string& name) {
  if (cmode_is(CMODE_SSC) == 0) return;
  for (const char c : name) {
    if (is_separator(c)) alert_msg_once(1427);
  }
}

}  // namespace

std::uint32_t include_name_hash(word path) {
  std::uint32_t h = 0;
  for (const char* p = from_word<const char>(path); *p != 0 && std::strcmp(p, ".h") != 0; ++p) {
    h = h * 4 + static_cast<std::uint32_t>(static_cast<signed char>(*p));
  }
  return h;
}

void do_include() {
  const int open = try_expand(skip_ws());
  std::string name;
  if ((open != '<' && open != '"') || !read_name(open == '<' ? '>' : '"', name)) {
    alert_msg(109);
    return;
  }
  if (name.size() >= include_name_limit) alert_msg(146);
  warn_of_separators(name);
  const bool quoted = open == '"';
  errno = ENOENT;
  if (find_include(name.c_str(), quoted)) return;
  std::string slashed = name;
  for (char& c : slashed) c = c == '\\' ? '/' : c;
  if (slashed != name && find_include(slashed.c_str(), quoted)) return;
  alert_msg(141, "include", name);
}

bool find_include(const char* name, bool quoted) {
  const bool rooted = is_separator(name[0]);
  if (quoted) {
    const bool absolute = rooted || (is_letter(name[0]) && name[1] == ':');
    const std::string first = absolute ? name : current_directory_prefix() + name;
    if (try_candidate(first.c_str())) return true;
  }
  const std::size_t name_len = std::strlen(name);
  std::string candidate;
  for (std::size_t i = 0; i < include_dir_count; ++i) {
    const char* dir = include_dirs[i];
    const std::size_t dir_len = std::strlen(dir);
    if (dir_len + name_len >= candidate_limit) alert_msg(146);
    candidate.clear();
    if (!rooted) {
      candidate = dir;
      if (dir_len == 0 || !is_separator(dir[dir_len - 1])) candidate += '\\';
    }
    candidate += name;
    if (try_candidate(candidate.c_str())) return true;
  }
  return false;
}

bool open_include(const char* path) {
  bool as_written;
  bool lowered;
  const int fd = open_any_case(path, as_written, lowered);
  if (db_tracing(db_general)) {
    db_tracef(__FILE__, __LINE__, "include \"%s\": %s", path, fd < 0 ? "not there" : "opened");
  }
  if (fd < 0) return false;
  if (lowered) alert_msg(164, path);
  if (settings.show_includes) note_include(path);
  if (!(as_written && host::names_are_case_sensitive) && !name_case_matches(path)) {
    alert_msg(165, path);
  }
  push_file(source_open(fd), path);
  return true;
}

void note_include(const char* path) {
  if (shown_includes == nullptr) {
    shown_includes = hash_create(128, str_hash, str_compare, __FILE__, __LINE__);
  }
  const word key = to_word(str_intern(path));
  if (hash_insert(shown_includes, key, key, __FILE__, __LINE__) != 0) file_printf(2, "%s\n", path);
}

void push_main_file(int fd, const char* name) {
  push_file(source_open(fd), name);
}

}  // namespace kv::cpp
