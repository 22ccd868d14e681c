// Opening files is what costs: a name is probed for in one directory after another. So the run
// remembers what it has learned: the names in a directory where a probe has failed, the file found
// for a name, and the content of small files. None of it may show: a file known from memory is
// pushed, announced and warned of exactly as one that has just been opened. One whose include
// guard is defined is announced and warned of, too, but what reading it would do is done at once.
#include "cpp/include.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>

#include "common/alert.h"
#include "common/alloc.h"
#include "common/cmode.h"
#include "common/format.h"
#include "common/host.h"
#include "common/kvdebug.h"
#include "common/osdep.h"
#include "common/stringcache.h"
#include "cpp/control.h"
#include "cpp/expand.h"
#include "cpp/guard.h"
#include "cpp/lanes.h"
#include "cpp/options.h"
#include "cpp/reader.h"
#include "cpp/scan.h"
#include "cpp/source.h"
#include "cpp/symtab.h"

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

std::string lower_case(std::string path) {
  for (char& c : path) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  return path;
}

// Opens `path` under the spelling that the host accepts: as written, in lower case, or with the
// letters as they are stored. `lowered` tells that only the lower-case spelling did.
int open_any_case(const char* path, bool& as_written, bool& lowered, std::size_t& size) {
  int fd = host::open_probe(path, &size);
  as_written = fd >= 0;
  lowered = false;
  if (fd >= 0) return fd;

  std::string other = lower_case(path);
  if (other != path) {
    fd = host::open_probe(other.c_str(), &size);
    lowered = fd >= 0;
    if (lowered) return fd;
  }
  const int error = errno;
  if (host::stored_spelling(path, other) && other != path)
    return host::open_probe(other.c_str(), &size);
  errno = error;
  return -1;
}

// ---- What the run knows of files it has opened.

struct header {
  const char* path = nullptr;  // as it was opened first
  bool lowered = false;        // only the lower-case spelling opened
  bool case_differs = false;   // the stored name has other letters
  source_copy content;
  bool guard_known = false;  // `guard` has been looked for in the content
  include_guard guard;
};

// By path. Lives for the run, so that paths can be referred to.
std::unordered_map<std::string, header>& headers() {
  static auto* const table = new std::unordered_map<std::string, header>;
  return *table;
}

// What was found for a name below the include directories: they do not change while the input is
// read.
std::unordered_map<std::string, header*>& found_headers() {
  static auto* const table = new std::unordered_map<std::string, header*>;
  return *table;
}

header* known_header(const char* path) {
  const auto known = headers().find(path);
  return known == headers().end() ? nullptr : &known->second;
}

header* new_header(const char* path) {
  const auto entry = headers().try_emplace(path).first;
  entry->second.path = entry->first.c_str();
  const word key = to_word(entry->second.path);
  hash_insert(included_files, key, key, __FILE__, __LINE__);
  return &entry->second;
}

// Opens a file not opened before in this run, or one whose content was not kept, and notes in `h`
// what that tells. Null when it cannot be opened.
source_file* open_file(const char* path, header& h) {
  bool as_written;
  std::size_t size = 0;
  const int fd = open_any_case(path, as_written, h.lowered, size);
  if (db_tracing(db_general)) {
    db_tracef(__FILE__, __LINE__, "include \"%s\": %s", path, fd < 0 ? "not there" : "opened");
  }
  if (fd < 0) return nullptr;
  h.case_differs = !(as_written && host::names_are_case_sensitive) && !name_case_matches(path);
  return source_open(fd, &h.content, size);
}

// The newlines of the header that the last include directive has passed over, if it has.
int newlines_passed_over = 0;

// Whether another file could be opened; where not, errno says so.
bool file_place_left() {
  if (!host::take_file_place()) return false;
  host::give_file_place();
  return true;
}

// Lane: whether reading `h` from its copy would do nothing but count newlines, since its include
// guard is defined.
bool is_guarded(header& h) {
  if (!lanes || !in_file_frame() || in_asm || settings.cmode_asm || cmode_is(CMODE_TSLINK) != 0)
    return false;
  if (!h.guard_known) {
    h.guard = guard_of(h.content.bytes, h.content.size);
    h.guard_known = true;
  }
  const include_guard& guard = h.guard;
  if (guard.name == nullptr || (guard.outer_comments && settings.keep_comments) ||
      !groups_fit(guard.depth)) {
    return false;
  }
  const symbol* sym =
      sym_find(guard.name, std::min<std::size_t>(guard.name_len, settings.ident_max));
  return sym != nullptr && sym_eligible(sym);
}

// Opens and pushes `path`, of which `h` is what is known, if anything. Returns what is known now,
// or null.
header* open_header(const char* path, header* h) {
  source_file* file = nullptr;  // stays so for a header that is passed over
  if (h != nullptr && h->content.bytes != nullptr) {
    if (is_guarded(*h)) {
      if (!file_place_left()) return nullptr;
    } else {
      file = source_open_copy(h->content);
      if (file == nullptr) return nullptr;
    }
  } else {
    header fresh;
    file = open_file(path, fresh);
    if (file == nullptr) return nullptr;
    if (h == nullptr) h = new_header(path);
    fresh.path = h->path;
    *h = fresh;
  }
  if (h->lowered) alert_msg(164, path);
  if (settings.show_includes) note_include(path);
  if (h->case_differs) alert_msg(165, path);
  if (file != nullptr) {
    push_file(file, h->path);
  } else {
    pass_over_file();
    newlines_passed_over = h->guard.newlines;
  }
  return h;
}

// While dependencies are listed every file is read at most once.
header* try_candidate(const char* path, header* h) {
  return h != nullptr && !text_output() ? h : open_header(path, h);
}

// ---- The search.

// What is known of an include directory, from the first miss in it on.
struct searched_dir {
  bool missed = false;
  const host::directory_names* names = nullptr;
};
std::array<searched_dir, include_dir_limit> searched;

// The first component of a name below a directory, or nothing where the name does not simply go
// down.
std::string_view first_component(std::string_view name) {
  const auto end = name.find_first_of("\\/");
  const std::string_view first = name.substr(0, end);
  return first == "." || first == ".." ? std::string_view() : first;
}

// Whether a name that begins with `component` surely is not below include directory `i`.
bool surely_absent(std::size_t i, std::string_view component) {
  return searched[i].missed && !component.empty() && !db_tracing(db_general) &&
         host::lacks_name(searched[i].names, component);
}

// A listing speaks for every spelling that may be opened only if the directory exists as it is
// spelled and has no lower-case twin.
void note_miss(std::size_t i) {
  if (searched[i].missed) return;
  const int error = errno;
  const char* dir = include_dirs[i];
  const std::string lower = lower_case(dir);
  const bool sure = host::is_directory(dir) && (lower == dir || !host::exists(lower.c_str()));
  searched[i] = {true, sure ? host::names_in_directory(dir) : nullptr};
  errno = error;
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

int do_include() {
  const int open = try_expand(skip_ws());
  std::string name;
  if ((open != '<' && open != '"') || !read_name(open == '<' ? '>' : '"', name)) {
    alert_msg(109);
    return 0;
  }
  if (name.size() >= include_name_limit) alert_msg(146);
  warn_of_separators(name);
  const bool quoted = open == '"';
  errno = ENOENT;
  newlines_passed_over = 0;
  if (find_include(name.c_str(), quoted)) return newlines_passed_over;
  std::string slashed = name;
  for (char& c : slashed) c = c == '\\' ? '/' : c;
  if (slashed != name && find_include(slashed.c_str(), quoted)) return newlines_passed_over;
  alert_msg(141, "include", name);
  return 0;
}

bool find_include(const char* name, bool quoted) {
  const bool rooted = is_separator(name[0]);
  if (quoted) {
    const bool absolute = rooted || (is_letter(name[0]) && name[1] == ':');
    const std::string first = absolute ? name : current_directory_prefix() + name;
    if (try_candidate(first.c_str(), known_header(first.c_str())) != nullptr) return true;
  }
  if (const auto found = found_headers().find(name); found != found_headers().end()) {
    return try_candidate(found->second->path, found->second) != nullptr;
  }
  const std::size_t name_len = std::strlen(name);
  const std::string_view component = first_component(name);
  std::string candidate;
  for (std::size_t i = 0; i < include_dir_count; ++i) {
    const char* dir = include_dirs[i];
    const std::size_t dir_len = std::strlen(dir);
    if (dir_len + name_len >= candidate_limit) alert_msg(146);
    if (surely_absent(i, component)) continue;
    candidate.clear();
    if (!rooted) {
      candidate = dir;
      if (dir_len == 0 || !is_separator(dir[dir_len - 1])) candidate += '\\';
    }
    candidate += name;
    if (header* h = try_candidate(candidate.c_str(), known_header(candidate.c_str()))) {
      found_headers().emplace(name, h);
      return true;
    }
    note_miss(i);
  }
  return false;
}

bool open_include(const char* path) {
  return open_header(path, known_header(path)) != nullptr;
}

void note_include(const char* path) {
  if (shown_includes == nullptr) {
    shown_includes = hash_create(128, str_hash, str_compare, __FILE__, __LINE__);
  }
  const word key = to_word(str_intern(path));
  if (hash_insert(shown_includes, key, key, __FILE__, __LINE__) != 0) file_printf(2, "%s\n", path);
}

void push_main_file(int fd, const char* name) {
  push_file(source_open(fd, nullptr, 0), name);
}

}  // namespace kv::cpp
