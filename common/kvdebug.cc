// Everything starts with db_options: its table says which items there are, which flag bits each
// sets and who handles its argument.
//
// What may surprise: an item is recognised by its beginning ("alerts2" is "alerts"); the reports
// written at exit come after the trace file was packed; an archive that is there already stays
// until the new one is complete.

#include "common/kvdebug.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <string>
#include <utility>

#include "common/alert.h"
#include "common/hash.h"
#include "common/stringcache.h"
#include "common/vector.h"
#include "common/zip_archive.h"
#include "host/host.h"

namespace kv {

namespace {

// The state of the module; strings are interned.
const char* gFilePath = nullptr;    // path of the trace file, once one was named
bool gDefaultOut = true;            // no "out" item was given
std::uint32_t gOutNum = 1;          // number in the default trace file name
const char* gZipFile = nullptr;     // the package zip
bool gZipReplaced = false;          // it is to be a new one, and nothing was added yet
bool gZipClaimed = false;           // it is no other file of the run
hash_table* gDebugNames = nullptr;  // names of "debug" items, without regard to case
bool gOptionsSeen = false;          // an option was processed; later ones do not count
bool gAppHeaderDue = true;          // "APP" is not yet written

constexpr std::string_view component_name = "preprocessor";

// ---------------------------------------------------------------------------------------------
// The option's items.

const char* default_file_name() {
  return str_printf("preprocessor-%u.out", gOutNum);
}

// Opens the trace file `path` in place of the one before. Raises 141 (fatal) on failure.
void open_trace(const char* path, bool append) {
  gFilePath = path;
  const auto place = append ? host::write_place::at_end : host::write_place::from_start;
  if (!gFile.open(path, place, host::content::text)) refuse_file("debug-out", path);
}

void handle_out(const char* arg) {
  if (arg == nullptr || *arg == '\0') {
    return db_warning("option \"out\", must have a filename argument");
  }
  gDefaultOut = false;
  if (gFilePath)
    db_warning("debug-out file was set to \"%s\", resetting to \"%s\"", gFilePath, arg);
  const bool append = *arg == '+';
  const char* path = str_intern(append ? arg + 1 : arg);
  if (host::is_directory(path)) path = str_path_join(path, default_file_name());
  open_trace(path, append);
}

void handle_zip(const char* arg) {
  if (gZipFile) {
    return db_warning("Zip file already set to \"%s\", ignoring addtional zip options", gZipFile);
  }
  if (arg && *arg == '+') {
    gZipFile = str_intern(arg + 1);
    return;
  }
  gZipFile = str_intern(arg && *arg ? arg : "kva_package.zip");
  gZipReplaced = true;
  if (host::exists(gZipFile)) {
    db_warning("Package zip \"%s\" already exists and will be over-written", gZipFile);
  }
}

void handle_assert(const char* arg) {
  static constexpr std::string_view levels[] = {"ignore", "fatal", "error", "warning"};
  if (arg == nullptr) return db_warning("option \"assert\", must have an argument");
  const auto* const found = std::find(std::begin(levels), std::end(levels), arg);
  if (found == std::end(levels)) {
    return db_warning("unknown argument (%s) given to assert option", arg);
  }
  gAssertLevel = static_cast<std::uint32_t>(found - std::begin(levels));
}

void handle_debug(const char* arg) {
  vector* const names = str_split(arg, ":");
  if (vec_count(names) == 0) db_warning("option \"debug\", must have at least one argument");
  for (std::uint32_t i = 0; i < vec_count(names); ++i) {
    if (gDebugNames == nullptr) {
      gDebugNames = hash_create(13, str_hash_nocase, str_compare_nocase, __FILE__, __LINE__);
    }
    hash_insert(gDebugNames, vec_get(names, i), vec_get(names, i), __FILE__, __LINE__);
  }
  vec_destroy(names);
}

void handle_num(const char* arg) {
  if (arg == nullptr) return db_warning("option \"num\", must have an argument");
  const long long value = std::strtoll(arg, nullptr, 10);
  if (value < 1) {
    return db_warning("\"num\" option must be a decimal integer > 0, using \"%u\"", gOutNum);
  }
  constexpr long long most = std::numeric_limits<std::uint32_t>::max();
  gOutNum = static_cast<std::uint32_t>(std::min(value, most));
}

struct dbo {
  const char* dbo_name;
  std::uint32_t dbo_flags;
  void (*dbo_handler)(const char* arg);  // gets what follows the item's ':', null without one
};

// Searched in this order, which decides where one name begins another item.
constexpr dbo items[] = {
    {"default", db_general, nullptr},
    {"on", db_general, nullptr},
    {"out", 0, handle_out},
    {"sdb", 2, nullptr},
    {"dwarf", 4, nullptr},
    {"zip", 0, handle_zip},
    {"alerts", db_alerts, nullptr},
    {"assert", 0, handle_assert},
    {"debug", 0, handle_debug},
    {"adt", db_adt, nullptr},
    {"num", 0, handle_num},
};

void apply_item(const char* item) {
  const auto* const found =
      std::find_if(std::begin(items), std::end(items),
                   [item](const dbo& row) { return str_starts_with_nocase(item, row.dbo_name); });
  if (found == std::end(items)) return db_warning("unknown option \"%s\"", item);
  gDebugFlags |= found->dbo_flags;
  if (found->dbo_handler == nullptr) return;
  const std::string_view text = item;
  const std::size_t colon = text.find(':');
  found->dbo_handler(colon == std::string_view::npos ? nullptr : item + colon + 1);
}

// ---------------------------------------------------------------------------------------------
// Statistics of the containers.

void gather_statistics(bool on) {
  hash_set_debug(on);
  vec_set_debug(on);
}

// ---------------------------------------------------------------------------------------------
// The package zip.

bool is_absolute(std::string_view path) {
  const char drive = path.empty() ? '\0' : path[0];
  const bool has_letter = (drive >= 'a' && drive <= 'z') || (drive >= 'A' && drive <= 'Z');
  return path.starts_with("\\\\") || (has_letter && path.substr(1).starts_with(':'));
}

std::string archive_name(std::string_view path) {
  std::string name(path);
  if (is_absolute(path)) {
    constexpr std::size_t root_length = 3;
    name = format_string("SYSTEM_ROOT\\%s", path.substr(std::min(root_length, path.size())));
  }
  std::replace(name.begin(), name.end(), '\\', '/');
  return name;
}

// An archive is not taken for missing, and so replaced, because the system cannot tell.
bool is_missing(const char* path) {
  return !host::exists(path) && (errno == ENOENT || errno == ENOTDIR);
}

// Makes `zip` ready for adding `path`; false when there is nothing to be added to.
bool begin_package(zip_archive& zip, const char* path) {
  if (gZipReplaced || is_missing(gZipFile)) {
    if (zip.create(gZipFile)) return true;
    db_warning("Unable to init package zip file (%s) to add \"%s\"", gZipFile, path);
    return false;
  }
  if (!zip.open_reader(gZipFile)) {
    db_warning("Unable to open package zip file (%s) for reading to append \"%s\"", gZipFile, path);
    return false;
  }
  if (!zip.convert_to_writer()) {
    db_warning("Unable to covert package zip file (%s) reader to a writer to append \"%s\"",
               gZipFile, path);
  }
  return true;
}

// The old archive goes even if nothing is packed.
void remove_old_zip() {
  if (!gZipReplaced || !gZipClaimed || files_given_back() || !host::exists(gZipFile)) return;
  if (!host::remove_file(gZipFile)) {
    db_warning("Unable to remove \"%s\", it will be updated if possible", gZipFile);
  }
}

}  // namespace

void db_options(const char* text) {
  if (gOptionsSeen) return db_warning("Ignoring extra --kvdebug options");
  gOptionsSeen = true;
  vector* const list = str_split(text, ",");
  for (std::uint32_t i = 0; i < vec_count(list); ++i) apply_item(vec_get_ptr<const char>(list, i));
  vec_destroy(list);
  if (gDebugFlags != 0 && !db_is_open()) open_trace(default_file_name(), false);
  gather_statistics(db_tracing(db_adt));
}

db_pause::db_pause(std::uint32_t flags) : paused_(gDebugFlags & flags) {
  gDebugFlags &= ~paused_;
  if ((paused_ & db_adt) != 0) gather_statistics(false);
}

db_pause::~db_pause() {
  gDebugFlags |= paused_;
  if ((paused_ & db_adt) != 0) gather_statistics(true);
}

void db_trace_args(int count, const char* const* argv) {
  if (!db_is_open()) return;
  std::string text;
  if (gAppHeaderDue) text = format_string("\nAPP: %s\n", component_name);
  gAppHeaderDue = false;
  text += "ARGS:";
  if (count <= 0) text += " None";
  for (int i = 0; i < count; ++i) text.append(" ").append(argv[i]);
  gFile.write(text + "\n");
}

void db_claim_zip() {
  if (gZipFile == nullptr) return;
  if (!host::use_replaced(gZipFile)) refuse_file("zip", gZipFile);
  gZipClaimed = true;
}

void db_close() {
  // Packing may fail in a way that ends the run, which is on its way out already.
  static bool closed = false;
  if (std::exchange(closed, true)) return;
  if (!gDefaultOut || !gFilePath) {
    remove_old_zip();
  } else if (!gFile.has_failed() && !files_given_back()) {
    db_zip_add(gFilePath, nullptr);
  }
  if (db_tracing(db_adt)) {
    hash_report();
    vec_report();
  }
  gFile.finish({});
}

void db_zip_add(const char* path, const char* comment) {
  if (gZipFile == nullptr || is_missing(path)) return;
  zip_archive zip;
  if (!begin_package(zip, path)) return;
  const std::string name = archive_name(path);
  if (!zip.add_file(name.c_str(), path, comment)) {
    db_warning("Unable to add archive \"%s\" (from \"%s\") to package zip (%s)", name, path,
               gZipFile);
  }
  if (!zip.finalize()) {
    db_warning("Unable to finalize package zip (%s) after adding \"%s\"", gZipFile, path);
  }
  if (zip.close()) {
    gZipReplaced = false;
  } else {
    db_warning("Unable to end package zip (%s) after adding \"%s\"", gZipFile, path);
  }
}

}  // namespace kv
