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

#include "common/alert.h"
#include "common/alloc.h"
#include "common/cmode.h"
#include "common/format.h"
#include "common/kvdebug.h"
#include "common/osdep.h"
#include "common/outfile.h"
#include "common/pathcmp.h"
#include "common/registry.h"
#include "common/stringcache.h"
#include "common/text_table.h"
#include "cpp/conditions.h"
#include "cpp/diag.h"
#include "cpp/expand.h"
#include "cpp/guard.h"
#include "cpp/lanes.h"
#include "cpp/observe.h"
#include "cpp/reader.h"
#include "cpp/scan.h"
#include "cpp/settings.h"
#include "cpp/source.h"
#include "cpp/symtab.h"
#include "host/host.h"

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
std::string_view current_directory_prefix() {
  const input_frame* file = nearest_file_frame();
  if (file == nullptr) return {};
  const std::string_view path = file->file->path;
  auto end = path.rfind('\\');
  if (end == path.npos) end = path.rfind('/');
  return path.substr(0, end + 1);
}

std::string lower_case(std::string path) {
  for (char& c : path) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  return path;
}

// Opens `path` as it stands. A file that the run writes is no reason to look for another one.
int probe(const char* path, std::size_t& size) {
  const int fd = host::open_probe(path, &size);
  if (fd < 0 && errno == host::error_in_use) refuse_file("include", path);
  return fd;
}

// Opens `path` under the spelling that the host accepts: as written, in lower case, or with the
// letters as they are stored. `lowered` tells that only the lower-case spelling did.
int open_any_case(const char* path, bool& as_written, bool& lowered, std::size_t& size) {
  int fd = probe(path, size);
  as_written = fd >= 0;
  lowered = false;
  if (fd >= 0) return fd;

  std::string other = lower_case(path);
  if (other != path) {
    fd = probe(other.c_str(), size);
    lowered = fd >= 0;
    if (lowered) return fd;
  }
  const int error = errno;
  if (host::stored_spelling(path, other) && other != path) return probe(other.c_str(), size);
  errno = error;
  return -1;
}

// ---- What the run knows of files it has looked for.

struct header {
  bool opened;   // the file has been opened in this run
  int missing;   // why it was not there when it was looked for; 0: it was not looked for, or was
  bool lowered;  // only the lower-case spelling opened
  bool case_differs;  // the stored name has other letters
  source_copy content;
  bool guard_known;  // `guard` has been looked for
  include_guard guard;
};

// By path.
using header_table = text_table<header>;
using known_header = header_table::entry;
header_table headers;

// What was found for a name below the include directories: they do not change while the input is
// read.
text_table<known_header*> found_headers;

void enter_included(known_header& h) {
  h.record.opened = true;
  if (included_files == nullptr) return;
  const word key = to_word(h.text);
  hash_insert(included_files, key, key, __FILE__, __LINE__);
}

// Whether another file could be opened; where not, errno says so.
bool file_place_left() {
  if (!host::take_file_place()) return false;
  host::give_file_place();
  return true;
}

// Whether the file has been looked for in vain; errno then tells what looking for it would.
bool known_missing(const header& h) {
  if (h.missing == 0 || db_tracing(db_general)) return false;
  if (file_place_left()) errno = h.missing;
  return true;
}

// Looks for the guard in the header's text, which need not be kept for it.
void note_guard(header& h, const source_copy& text) {
  h.guard_known = true;
  h.guard = guard_of(text.bytes, text.size);
  if (h.guard.name == nullptr) return;
  void* name = checked_alloc(h.guard.name_len + name_slack);
  h.guard.name = static_cast<unsigned char*>(std::memcpy(name, h.guard.name, h.guard.name_len));
}

// Opens a file not opened before in this run, or one whose content was not kept, and notes what
// that tells. Null when it cannot be opened.
source_file* open_file(known_header& known) {
  header& h = known.record;
  const char* path = known.text;
  if (known_missing(h)) return nullptr;
  bool as_written;
  std::size_t size = 0;
  const int fd = open_any_case(path, as_written, h.lowered, size);
  if (db_tracing(db_general)) {
    db_tracef(__FILE__, __LINE__, "include \"%s\": %s", path, fd < 0 ? "not there" : "opened");
  }
  if (fd < 0) {
    if (!h.opened && (errno == ENOENT || errno == ENOTDIR)) h.missing = errno;
    return nullptr;
  }
  h.case_differs = !(as_written && host::names_are_case_sensitive) && !name_case_matches(path);
  if (!h.opened) enter_included(known);
  source_file* file = source_open(fd, {"include", path}, &h.content, size);
  if (lanes && !h.guard_known && h.content.bytes == nullptr) {
    const source_copy text = source_content(file);
    if (text.bytes != nullptr) note_guard(h, text);
  }
  return file;
}

// The newlines of the header that the last include directive has passed over, if it has.
int newlines_passed_over = 0;

// Lane: whether reading `h` again would do nothing but count newlines, since its include
// guard is defined.
bool is_guarded(header& h) {
  if (!lanes || !in_file_frame() || in_asm || settings.cmode_asm || cmode_is(CMODE_TSLINK) != 0)
    return false;
  if (!h.guard_known) {
    if (h.content.bytes == nullptr) return false;
    note_guard(h, h.content);
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

// Opens and pushes a file, or passes over it. Returns false, with errno set, when it cannot be
// opened.
bool open_include(known_header& known) {
  header& h = known.record;
  source_file* file = nullptr;  // stays so for a header that is passed over
  if (is_guarded(h)) {
    if (!file_place_left()) return false;
    source_forget(h.content);
  } else {
    file = h.content.bytes != nullptr ? source_open_copy(h.content) : open_file(known);
    if (file == nullptr) return false;
  }
  if (h.lowered) alert_msg(164, shown_path(known.text));
  if (settings.show_includes) note_include(known.text);
  if (h.case_differs) alert_msg(165, shown_path(known.text));
  if (file != nullptr) {
    push_file(file, known.text);
  } else {
    if (observing) observe::file_spared(known.text);
    pass_over_file();
    newlines_passed_over = h.guard.newlines;
  }
  return true;
}

// While dependencies are listed every file is read at most once.
bool try_candidate(known_header& h) {
  return (h.record.opened && !text_output()) || open_include(h);
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
  std::size_t n = 0;
  while (n < name.size() && !is_separator(name[n])) ++n;
  const std::string_view first = name.substr(0, n);
  return first == "." || first == ".." ? std::string_view() : first;
}

// Whether a name that begins with `component` surely is not below include directory `i`.
bool surely_absent(std::size_t i, const host::sought_name& component) {
  return searched[i].missed && !component.text.empty() && !db_tracing(db_general) &&
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

// The name on an include line, and a path being put together from it: their room is used again.
std::array<char, include_name_limit> include_name;
std::string& candidate_path() {
  static auto* const path = new std::string;
  return *path;
}

// Lane: takes the name from the line of the file on top if nothing in it is translated or too much.
bool take_name(unsigned char close) {
  input_frame* f = cur_frame;
  if (!lanes || f == nullptr || f->rdptr == f->line_end) return false;
  unsigned char* name = f->rdptr;
  const void* end = std::memchr(name, close, static_cast<std::size_t>(f->line_end - name));
  if (end == nullptr) return false;
  const auto n = static_cast<std::size_t>(static_cast<const unsigned char*>(end) - name);
  if (n >= include_name_limit || std::memchr(name, '?', n) != nullptr ||
      std::memchr(name, 0, n) != nullptr) {
    return false;
  }
  std::memcpy(include_name.data(), name, n);
  include_name[n] = 0;
  f->rdptr += n + 1;
  return true;
}

// Reads the name up to its closing delimiter. Returns false when the line ends first. Raises 146
// for a name that is too long.
bool read_name(unsigned char close) {
  if (take_name(close)) return true;
  raw_read = true;
  work_len = 0;
  int c;
  while ((c = get()) != close && !ends_line(c)) work_save(c);
  raw_read = false;
  if (c != close) return false;
  if (work_len >= include_name_limit) alert_msg_fatal(146);
  std::transform(work_buf.begin(), work_buf.begin() + work_len, include_name.begin(),
                 [](unit u) { return static_cast<char>(u); });
  include_name[work_len] = 0;
  return true;
}

void warn_of_separators(const char* name) {
  if (cmode_is(CMODE_SSC) == 0) return;
  for (; *name != 0; ++name) {
    if (is_separator(*name)) alert_msg_once(1427);
  }
}

}  // namespace

std::uint32_t include_name_hash(word path) {
  std::uint32_t h = 0;
  for (const char* p = from_word<const char>(path); *p != 0; ++p) {
    if (*p == '.' && p[1] == 'h' && p[2] == 0) break;
    h = h * 4 + static_cast<std::uint32_t>(static_cast<signed char>(*p));
  }
  return h;
}

int do_include() {
  const int open = try_expand(skip_ws());
  if ((open != '<' && open != '"') || !read_name(open == '<' ? '>' : '"')) {
    alert_msg(109);
    return 0;
  }
  const char* name = include_name.data();
  warn_of_separators(name);
  const bool quoted = open == '"';
  errno = ENOENT;
  newlines_passed_over = 0;
  if (find_include(name, quoted)) return newlines_passed_over;
  std::string slashed = name;
  for (char& c : slashed) c = c == '\\' ? '/' : c;
  if (slashed != name && find_include(slashed.c_str(), quoted)) return newlines_passed_over;
  alert_msg_fatal(141, "include", name);
}

bool find_include(const char* name, bool quoted) {
  const observe::timed time(run_phase::reading);
  if (observing) observe::include_named(quoted);
  const std::size_t name_len = std::strlen(name);
  const bool rooted = is_separator(name[0]);
  std::string& path = candidate_path();
  if (quoted) {
    const bool absolute = rooted || (is_letter(name[0]) && name[1] == ':');
    path = absolute ? std::string_view() : current_directory_prefix();
    path.append(name, name_len);
    if (try_candidate(headers[path])) return true;
  }
  known_header*& found = found_headers[{name, name_len}].record;
  if (found != nullptr) return try_candidate(*found);
  const host::sought_name component(first_component({name, name_len}));
  for (std::size_t i = 0; i < include_dir_count; ++i) {
    const std::string_view dir = include_dirs[i];
    if (dir.size() + name_len >= candidate_limit) alert_msg_fatal(146);
    if (surely_absent(i, component)) continue;
    path.clear();
    if (!rooted) {
      path = dir;
      if (dir.empty() || !is_separator(dir.back())) path += '\\';
    }
    path.append(name, name_len);
    known_header& candidate = headers[path];
    if (try_candidate(candidate)) {
      found = &candidate;
      return true;
    }
    note_miss(i);
  }
  return false;
}

std::string opened_spelling(const char* path) {
  if (host::exists(path)) return path;
  std::string lower = lower_case(path);
  return host::exists(lower.c_str()) ? lower : host::spelling_to_open(path);
}

bool is_installed_header(const char* path) {
  static const char* const base = reg_instdir(REG_BASE);  // asked for once
  return path_begins_with_dir(path, base);
}

void note_include(const char* path) {
  if (shown_includes == nullptr) {
    shown_includes = hash_create(128, str_hash, str_compare, __FILE__, __LINE__);
    hash_use_index(shown_includes, str_spread);
  }
  const word key = to_word(str_intern(path));
  if (hash_insert(shown_includes, key, key, __FILE__, __LINE__) != 0) {
    write_error_text(format_string("%s\n", shown_path(path)));
  }
}

void push_main_file(int fd, const char* path, const char* name) {
  push_file(source_open(fd, {"input", path}, nullptr, 0), name);
}

}  // namespace kv::cpp
