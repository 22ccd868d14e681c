// A name is probed for in one directory after another. So the run remembers the names in a
// directory where a probe has failed, and the header found for a name; what is known of the header
// itself is kept by `headers`.
#include "cpp/include.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "common/alert.h"
#include "common/cmode.h"
#include "common/kvdebug.h"
#include "common/text_table.h"
#include "cpp/diag.h"
#include "cpp/expand.h"
#include "cpp/headers.h"
#include "cpp/lanes.h"
#include "cpp/reader.h"
#include "cpp/report/observe.h"
#include "cpp/scan.h"
#include "host/host.h"

namespace kv::cpp {

namespace {

constexpr std::size_t include_dir_limit = 255;
constexpr std::size_t include_name_limit = 2048;
constexpr std::size_t candidate_limit = 32767;

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

// A directory of -I, and what is known of it from the first miss in it on.
struct include_dir {
  const char* path;  // not owned
  bool missed;
  const host::directory_names* names;
};

// The search path, and what was found along it for a name: it does not change while the input is
// read.
std::array<include_dir, include_dir_limit> include_dirs;
std::size_t include_dir_count = 0;
text_table<header*> found_headers;

// The first component of a name below a directory, or nothing where the name does not simply go
// down.
std::string_view first_component(std::string_view name) {
  std::size_t n = 0;
  while (n < name.size() && !is_separator(name[n])) ++n;
  const std::string_view first = name.substr(0, n);
  return first == "." || first == ".." ? std::string_view() : first;
}

// Whether a name that begins with `component` surely is not below the directory.
bool surely_absent(const include_dir& dir, const host::sought_name& component) {
  return dir.missed && !component.text.empty() && !db_tracing(db_general) &&
         host::lacks_name(dir.names, component);
}

// A listing speaks for every spelling that may be opened only where the directory has no other.
void note_miss(include_dir& dir) {
  if (dir.missed) return;
  const int error = errno;
  dir.missed = true;
  dir.names = is_only_spelling(dir.path) ? host::names_in_directory(dir.path) : nullptr;
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
  const raw_reading raw;
  work_buf::clear();
  int c;
  while ((c = get()) != close && !ends_line(c)) work_buf::save(c);
  if (c != close) return false;
  if (work_buf::len() >= include_name_limit) alert_msg_fatal(146);
  std::transform(work_buf::begin(), work_buf::begin() + work_buf::len(), include_name.begin(),
                 [](unit u) { return static_cast<char>(u); });
  include_name[work_buf::len()] = 0;
  return true;
}

void warn_of_separators(const char* name) {
  if (cmode_is(CMODE_SSC) == 0) return;
  for (; *name != 0; ++name) {
    if (is_separator(*name)) alert_msg_once(1427);
  }
}

// Searches for `name` (the "..." form when `quoted`) and enters the header as enter_header() does.
std::optional<int> find_include(const char* name, bool quoted) {
  const observe::timed time(run_phase::reading);
  if (observing) observe::include_named(quoted);
  const std::size_t name_len = std::strlen(name);
  const bool rooted = is_separator(name[0]);
  std::string& path = candidate_path();
  if (quoted) {
    const bool absolute = rooted || (is_letter(name[0]) && name[1] == ':');
    path = absolute ? std::string_view() : current_directory_prefix();
    path.append(name, name_len);
    if (const auto newlines = enter_header(known_header(path))) return newlines;
  }
  header*& found = found_headers[{name, name_len}].record;
  if (found != nullptr) return enter_header(*found);
  const host::sought_name component(first_component({name, name_len}));
  for (std::size_t i = 0; i < include_dir_count; ++i) {
    const std::string_view dir = include_dirs[i].path;
    if (dir.size() + name_len >= candidate_limit) alert_msg_fatal(146);
    if (surely_absent(include_dirs[i], component)) continue;
    path.clear();
    if (!rooted) {
      path = dir;
      if (dir.empty() || !is_separator(dir.back())) path += '\\';
    }
    path.append(name, name_len);
    header& candidate = known_header(path);
    if (const auto newlines = enter_header(candidate)) {
      found = &candidate;
      return newlines;
    }
    note_miss(include_dirs[i]);
  }
  return std::nullopt;
}

}  // namespace

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
  if (const auto newlines = find_include(name, quoted)) return *newlines;
  std::string slashed = name;
  for (char& c : slashed) c = c == '\\' ? '/' : c;
  if (slashed != name) {
    if (const auto newlines = find_include(slashed.c_str(), quoted)) return *newlines;
  }
  alert_msg_fatal(141, "include", name);
}

void add_include_dir(const char* path) {
  if (include_dir_count == include_dir_limit) alert_msg_fatal(147);
  include_dirs[include_dir_count++].path = path;
}

void print_search_path() {
  std::string list =
      "#include \"...\" search starts here:\n"
      "#include <...> search starts here:\n";
  for (std::size_t i = 0; i < include_dir_count; ++i) {
    list.append(include_dirs[i].path).append("\n");
  }
  list += "End of search list.\n";
  write_error_text(list);
}

}  // namespace kv::cpp
