// Opening files is what costs. So the run remembers what it has learned of a path: that there is no
// such file, or what it holds, and its include guard. None of it may show: a file known from memory
// is pushed, announced and warned of exactly as one that has just been opened. One whose include
// guard is defined is announced and warned of, too, but what reading it would do is done at once.
#include "cpp/headers.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

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
#include "cpp/guard.h"
#include "cpp/lanes.h"
#include "cpp/lines.h"
#include "cpp/report/observe.h"
#include "cpp/settings.h"
#include "cpp/source.h"
#include "cpp/symtab.h"
#include "host/host.h"

namespace kv::cpp {

struct header {
  const char* path;
  bool opened;   // the file has been opened in this run
  int missing;   // why it was not there when it was looked for; 0: it was not looked for, or was
  bool lowered;  // only the lower-case spelling opened
  bool case_differs;  // the stored name has other letters
  source_copy content;
  include_guard guard;
  const symbol* guard_macro;     // the record of the guard's macro
  std::uint32_t guard_macro_at;  // names_removed when that was found
};

namespace {

// By path.
text_table<header> headers;

// The paths opened, where somebody asks for them.
hash_table* opened_headers = nullptr;

// The paths printed for -H.
hash_table* shown_includes = nullptr;

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

// Bytes as signed values, a final ".h" left out.
std::uint32_t path_hash(word path) {
  std::uint32_t h = 0;
  for (const char* p = from_word<const char>(path); *p != 0; ++p) {
    if (*p == '.' && p[1] == 'h' && p[2] == 0) break;
    h = h * 4 + static_cast<std::uint32_t>(static_cast<signed char>(*p));
  }
  return h;
}

void enter_opened(header& h) {
  h.opened = true;
  if (opened_headers == nullptr) return;
  const word key = to_word(h.path);
  hash_insert(opened_headers, key, key, __FILE__, __LINE__);
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

// Lane: whether a header is not read again while its include guard is defined.
bool guards_count() {
  return lanes && !settings.cmode_asm && cmode_is(CMODE_TSLINK) == 0;
}

// Looks for the guard in the header's text.
void note_guard(header& h, const source_copy& text) {
  if (guards_count()) h.guard = guard_of(text.bytes, text.size);
  if (h.guard.name == nullptr) return;
  void* name = checked_alloc(h.guard.name_len + name_slack);
  h.guard.name = static_cast<unsigned char*>(std::memcpy(name, h.guard.name, h.guard.name_len));
}

// Opens a file not opened before in this run, or one whose content was not kept, and notes what
// that tells. Null when it cannot be opened.
source_file* open_header(header& h) {
  const char* path = h.path;
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
  const bool first_time = !h.opened;
  if (first_time) enter_opened(h);
  source_file* file = source_open(fd, {"include", path});
  const source_copy text = source_whole_text(file, size);
  if (text.bytes == nullptr) return file;
  if (first_time) note_guard(h, text);
  // Most files are included once, but a pipe gives its text only once.
  const bool left = first_time && size != 0 && !db_tracing(db_general);
  if (!left) h.content = source_keep(text);
  return file;
}

// Lane: whether reading `h` again would do nothing but count newlines, since its include
// guard is defined.
bool is_guarded(header& h) {
  const include_guard& guard = h.guard;
  if (guard.name == nullptr || !in_file_frame() || conditions::in_asm() ||
      (guard.outer_comments && settings.keep_comments) || !conditions::groups_fit(guard.depth)) {
    return false;
  }
  if (h.guard_macro_at != names_removed) {
    h.guard_macro = sym_find(guard.name, std::min<std::size_t>(guard.name_len, settings.ident_max));
    if (h.guard_macro == nullptr) return false;
    h.guard_macro_at = names_removed;
  }
  return sym_eligible(h.guard_macro);
}

// Prints the path to standard error the first time it is given (-H).
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

}  // namespace

header& known_header(std::string_view path) {
  auto& entry = headers[path];
  entry.record.path = entry.text;
  return entry.record;
}

std::optional<int> enter_header(header& h) {
  if (h.opened && !text_output()) return 0;
  source_file* file = nullptr;  // stays so for a header that is passed over
  if (is_guarded(h)) {
    if (!file_place_left()) return std::nullopt;
  } else {
    file = h.content.bytes != nullptr ? source_open_copy(h.content) : open_header(h);
    if (file == nullptr) return std::nullopt;
  }
  if (h.lowered) alert_msg(164, shown_path(h.path));
  if (settings.show_includes) note_include(h.path);
  if (h.case_differs) alert_msg(165, shown_path(h.path));
  if (file != nullptr) {
    push_file(file, h.path);
    return 0;
  }
  if (observing) observe::file_spared(h.path);
  pass_over_file();
  return h.guard.newlines;
}

bool is_only_spelling(const char* dir) {
  const std::string lower = lower_case(dir);
  return host::is_directory(dir) && (lower == dir || !host::exists(lower.c_str()));
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

void list_opened_headers() {
  opened_headers = hash_create(237, path_hash, str_compare, __FILE__, __LINE__);
  hash_use_index(opened_headers, str_spread);
}

void visit_opened_headers(void* context, hash_visitor fn) {
  if (opened_headers != nullptr) hash_visit(opened_headers, context, fn);
}

}  // namespace kv::cpp
