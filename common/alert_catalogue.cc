// The message catalogue: which file it comes from, how it is read, and how a number is looked up.
//
// The program carries a catalogue inside itself and treats it as one more message file, with a name
// that begins with its version. Of all candidates the newest one wins, so an installation can
// update the texts of programs older than itself, and a newer program ignores an older
// installation.
//
// Two tables are kept. Programs rely on what kind of message a number is, so the table loaded first
// decides types and levels for good; a description file taken up later supplies texts alone. In
// every table the numbers are those of the built-in catalogue: a file replaces entries and cannot
// add any.
//
// A file may hold anything. A line that makes no sense is reported as a plain message and left out,
// and a file with many of them, which is hardly a message file, is not read to its end.

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "common/alert.h"
#include "common/alert_internal.h"
#include "common/alloc.h"
#include "common/format.h"
#include "common/kvdebug.h"
#include "common/kvinstdir.h"
#include "common/language.h"
#include "common/osdep.h"
#include "common/pathcmp.h"
#include "common/registry.h"
#include "common/stringcache.h"
#include "common/vector.h"
#include "common/version.h"
#include "host/host.h"

namespace kv {
namespace {

constexpr std::size_t line_piece = 255;   // what one read of a message file takes of a line
constexpr unsigned malformed_limit = 20;  // the lines after which a file is given up

enum class load_state { none, under_way, done };

// The tables are vectors of msg_entry*, indexed by number. Entries are never freed once they are in
// one of these two; latest_table is first_table until a second load.
constinit vector* first_table = nullptr;
constinit vector* latest_table = nullptr;
constinit const char* loaded_msg_file = nullptr;  // interned; of latest_table
constinit load_state loading = load_state::none;

// ---------------------------------------------------------------------------------------------
// Choosing a file.

bool in_version_dir(const char* path) {
  return path_begins_with_dir(path, kvinstdir(KVINSTDIR_VERSION));
}

// Sorts the best file first: the newer one, then one of this version's installation, then the
// greater path.
int compare_msg_files(const void* a, const void* b) {
  const char* x = from_word<const char>(*static_cast<const word*>(a));
  const char* y = from_word<const char>(*static_cast<const word*>(b));
  const std::uint64_t vx = getMsgFileVersion(x);
  const std::uint64_t vy = getMsgFileVersion(y);
  if (vx != vy) return vx > vy ? -1 : 1;
  const bool ours_x = in_version_dir(x);
  if (ours_x != in_version_dir(y)) return ours_x ? -1 : 1;
  return std::strcmp(y, x);
}

// The `dat` directory beside the directory of the program, "" when the program's path has no such
// place.
std::string dat_beside_program() {
  auto dir = path_dir(program_path().c_str());
  if (!dir) return "";
  dir->erase(dir->find_last_not_of(".\\") + 1);
  dir = path_dir(dir->c_str());
  if (!dir) return "";
  return str_path_join(dir->empty() ? "\\" : dir->c_str(), "dat");  // empty: `bin` is at the root
}

// Fills `list` from the first of the three places that holds message files.
void search_msg_files(int language, vector* list) {
  if (findMsgFiles(reg_instdir(REG_DAT), language, list) > 0) return;
  if (findMsgFiles(dat_beside_program().c_str(), language, list) > 0) return;
  findMsgFiles(current_dir().c_str(), language, list);
}

// Whether `path`, of the same version as the loaded file, is to be preferred to it.
bool wins_tie(const char* path) {
  if (in_version_dir(loaded_msg_file)) return false;
  return in_version_dir(path) || std::strcmp(path, loaded_msg_file) > 0;
}

bool is_newer(const char* path) {
  if (!loaded_msg_file) return true;
  const std::uint64_t version = getMsgFileVersion(path);
  const std::uint64_t loaded = getMsgFileVersion(loaded_msg_file);
  return version > loaded || (version == loaded && wins_tie(path));
}

// ---------------------------------------------------------------------------------------------
// Reading lines.

// The lines of the built-in catalogue, without their newlines.
class text_lines {
 public:
  explicit text_lines(std::string_view text) : rest_(text) {}

  bool next(std::string_view& line) {
    if (rest_.empty()) return false;
    const std::size_t end = std::min(rest_.find('\n'), rest_.size());
    line = rest_.substr(0, end);
    rest_.remove_prefix(std::min(end + 1, rest_.size()));
    return true;
  }

 private:
  std::string_view rest_;
};

// The lines of a message file in pieces of at most `line_piece` characters, without their newlines.
// A carriage return before a newline is dropped: the files travel between hosts.
class file_lines {
 public:
  explicit file_lines(int fd) : fd_(fd) {}

  bool next(std::string_view& line) {
    std::size_t length = 0;
    int c = -1;
    while (length < line_piece && (c = take()) >= 0 && c != '\n')
      piece_[length++] = static_cast<char>(c);
    line = std::string_view(piece_, length);
    line = line.substr(0, line.find('\0'));
    return length > 0 || c == '\n';
  }

 private:
  int peek() {
    if (at_ == end_) {
      end_ = host::read_block(fd_, block_, sizeof block_);
      at_ = 0;
      if (end_ <= 0) {
        end_ = 0;
        return -1;
      }
    }
    return static_cast<unsigned char>(block_[at_]);
  }
  int take() {
    int c = peek();
    if (c < 0) return c;
    ++at_;
    if (c == '\r' && peek() == '\n') {
      ++at_;
      c = '\n';
    }
    return c;
  }

  int fd_;
  long at_ = 0;
  long end_ = 0;
  char block_[4096];
  char piece_[line_piece];
};

// ---------------------------------------------------------------------------------------------
// Parsing entries.

// Takes the next field off the line, with the one separator that ends it; empty when there is none.
std::string_view take_field(std::string_view& line) {
  constexpr std::string_view separators = " \t";
  line.remove_prefix(std::min(line.find_first_not_of(separators), line.size()));
  const std::size_t end = std::min(line.find_first_of(separators), line.size());
  const std::string_view field = line.substr(0, end);
  line.remove_prefix(std::min(end + 1, line.size()));
  return field;
}

bool parse_number(std::string_view field, std::uint32_t& number) {
  const char* end = field.data() + field.size();
  const auto result = std::from_chars(field.data(), end, number);
  return result.ec == std::errc() && result.ptr == end && number <= max_message_number;
}

alert_type parse_type(std::string_view field) {
  switch (field.front()) {
    case 'F':
    case 'f': return ALERT_FATAL;
    case 'E':
    case 'e': return ALERT_ERROR;
    case 'M':
    case 'm': return ALERT_MESSAGE;
    case '-': return ALERT_WARNING;
    default: return field.front() >= '0' && field.front() <= '9' ? ALERT_WARNING : ALERT_NONE;
  }
}

// A new entry with its text behind it in one block, to be released with std::free.
msg_entry* make_entry(std::uint32_t number, std::string_view type_field, std::string_view text) {
  void* block = checked_alloc(sizeof(msg_entry) + text.size() + 1);
  char* copy = static_cast<char*>(block) + sizeof(msg_entry);
  std::memcpy(copy, text.data(), text.size());
  const alert_type type = parse_type(type_field);
  return new (block)
      msg_entry{type, number, copy, type == ALERT_WARNING ? parse_level(type_field) : 0};
}

// Takes the entry from a line that is no comment and hands it to `place`. Calls `report` for each
// thing that is wrong with it.
template <typename Report, typename Place>
void read_entry(std::string_view line, const Report& report, const Place& place) {
  std::uint32_t number = 0;
  std::string_view type;
  if (!parse_number(take_field(line), number) || (type = take_field(line)).empty()) return report();
  if (parse_type(type) == ALERT_NONE) report();
  if (line.empty()) return report();
  place(make_entry(number, type, line));
}

// Reads the entries from `lines` and hands each to `place`, which owns it from then on. `name` is
// what the reports of bad lines call the source.
template <typename Lines, typename Place>
void read_entries(Lines& lines, const char* name, const Place& place) {
  unsigned line_number = 0;
  unsigned last_malformed = 0;
  unsigned malformed = 0;
  const auto report = [&] {
    alert_raw(3, "M", "Malformed error information on line %u, in file %s\n", line_number, name);
    if (last_malformed != line_number) ++malformed;
    last_malformed = line_number;
  };
  std::string_view line;
  while (lines.next(line)) {
    ++line_number;
    if (!line.starts_with('#')) read_entry(line, report, place);
    if (malformed < malformed_limit) continue;
    alert_raw(3, "M", "Too many malformed lines, the rest of file %s is not read\n", name);
    return;
  }
}

msg_entry* entry_at(const vector* table, std::uint32_t number) {
  return vec_get_ptr<msg_entry>(table, number);
}

// The table of a file's entries alone, or null when it is no regular file or cannot be opened. The
// file stays open: in a run that was started without a standard stream it may have taken the
// stream's place, which must not become that of a file to be written.
vector* read_file_table(const char* path) {
  if (!host::is_regular_file(path)) return nullptr;
  const int fd = host::open_input(path);
  if (fd < 0) return nullptr;
  vector* const table = vec_create(__FILE__, __LINE__);
  file_lines lines(fd);
  read_entries(lines, path, [&](msg_entry* entry) {
    std::free(entry_at(table, entry->number));
    vec_set(table, to_word(entry), entry->number);
  });
  return table;
}

// A table with every entry of the built-in catalogue, in the version of `replacements` where that
// has one; such an entry moves over.
vector* merge_with_builtin(vector* replacements) {
  vector* const table = vec_create(__FILE__, __LINE__);
  text_lines lines(builtin_catalogue);
  read_entries(lines, builtin_catalogue_name(), [&](msg_entry* entry) {
    if (msg_entry* better = entry_at(replacements, entry->number)) {
      vec_set(replacements, 0, entry->number);
      std::free(std::exchange(entry, better));
    }
    vec_set(table, to_word(entry), entry->number);
  });
  return table;
}

void destroy_table(vector* table) {
  for (std::uint32_t number = 0; number < vec_count(table); ++number)
    std::free(entry_at(table, number));
  vec_destroy(table);
}

bool is_builtin(const char* path) {
  return std::strcmp(path, builtin_catalogue_name()) == 0;
}

vector* load_table(const char* path) {
  vector* const replacements =
      is_builtin(path) ? vec_create(__FILE__, __LINE__) : read_file_table(path);
  if (!replacements) return nullptr;
  latest_table = merge_with_builtin(replacements);
  destroy_table(replacements);
  if (!first_table) first_table = latest_table;
  loaded_msg_file = str_intern(path);
  return latest_table;
}

}  // namespace

std::int32_t parse_level(std::string_view field) {
  std::int32_t level = 0;
  const auto result = std::from_chars(field.data(), field.data() + field.size(), level);
  using limits = std::numeric_limits<std::int32_t>;
  if (result.ec == std::errc::result_out_of_range)
    level = field.starts_with('-') ? limits::min() : limits::max();
  return level;
}

const char* out_of_memory_text() {
  const msg_entry* const entry = latest_table ? entry_at(latest_table, 296) : nullptr;
  return entry ? entry->text : no_memory_text;
}

vector* first_message_table() {
  return first_table;
}

void load_catalogue_once() {
  if (loading != load_state::none) return;
  loading = load_state::under_way;
  const db_pause unseen(db_alerts | db_adt);
  const std::string best = msg_filename(ALERT_LANGUAGE);
  if (!load_table(best.c_str())) {
    load_table(builtin_catalogue_name());
    alert_raw(3, "M", "Can't open file %s, the built-in messages are used\n", best.c_str());
  }
  loading = load_state::done;
}

const char* msg_lang_code(int language) {
  return lang_code(language);
}

const char* builtin_catalogue_name() {
  static const char* const name = str_printf("%lld_en.msgs", build_stamp);
  return name;
}

std::string msg_filename(int language) {
  vector* const list = vec_create(__FILE__, __LINE__);
  search_msg_files(language, list);
  vec_push(list, to_word(builtin_catalogue_name()));
  if (db_tracing(db_general)) db_tracef(__FILE__, __LINE__, "cnt = %u", vec_count(list));
  vec_sort(list, compare_msg_files);
  std::string best = vec_get_ptr<const char>(list, 0);
  vec_destroy(list);
  return best;
}

unsigned findMsgFiles(const char* directory, int language, vector* list) {
  if (!list || !is_directory(directory)) return 0;
  const char* const code = msg_lang_code(language);
  const std::string legacy = format_string("%s_msgs.txt", code);
  const std::string suffix = format_string("_%s.msgs", code);
  const bool trace = db_tracing(db_general);
  if (trace) {
    db_tracef(__FILE__, __LINE__, "legacyMsgFile = \"%s\"", legacy);
    db_tracef(__FILE__, __LINE__, "msgFileSuffix = \"%s\"", suffix);
  }
  std::vector<std::string> names;
  host::list_directory(directory, names);
  unsigned found = 0;
  for (const std::string& name : names) {
    if (name != legacy && !name.ends_with(suffix)) continue;
    const char* const path = str_path_join(directory, name.c_str());
    if (!host::is_regular_file(path)) continue;
    vec_push(list, to_word(path));
    ++found;
    if (trace) db_tracef(__FILE__, __LINE__, "Found: %s", path);
  }
  if (trace) db_tracef(__FILE__, __LINE__, "numFound = %u", found);
  return found;
}

std::uint64_t getMsgFileVersion(std::string_view name) {
  name.remove_prefix(name.find_last_of("\\/:") + 1);
  std::uint64_t version = 0;
  const auto result = std::from_chars(name.data(), name.data() + name.size(), version);
  if (result.ec == std::errc::result_out_of_range)
    version = std::numeric_limits<std::uint64_t>::max();
  return version;
}

vector* alert_load_msgs(const char* path) {
  return path ? load_table(path) : nullptr;
}

bool open_edf(const char* path) {
  if (!path || (!is_builtin(path) && !host::is_regular_file(path))) return false;
  alert_init();
  if (loaded_msg_file && std::strcmp(path, loaded_msg_file) == 0) return true;
  if (is_newer(path)) return alert_load_msgs(path) != nullptr;
  if (db_tracing(db_general))
    db_tracef(__FILE__, __LINE__, "\"%s\" is not newer than \"%s\"", path, loaded_msg_file);
  return true;
}

bool open_edf_dir(const char* directory) {
  if (!is_directory(directory)) return false;
  vector* const list = vec_create(__FILE__, __LINE__);
  findMsgFiles(directory, ALERT_LANGUAGE, list);
  vec_sort(list, compare_msg_files);
  const char* const best = vec_get_ptr<const char>(list, 0);
  vec_destroy(list);
  return !best || open_edf(best);
}

msg_entry alert_lookup(std::uint32_t number) {
  alert_init();
  msg_entry result{ALERT_ERROR, number,
                   "An error, warning or message was generated, but no description is available",
                   0};
  if (const msg_entry* first = first_table ? entry_at(first_table, number) : nullptr) {
    result = *first;
    if (const msg_entry* latest = entry_at(latest_table, number)) result.text = latest->text;
  }
  if (is_fatal_message(number)) result.type = ALERT_FATAL;
  apply_message_rules(result);
  return result;
}

}  // namespace kv
