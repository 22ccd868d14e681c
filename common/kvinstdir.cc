// Locating the installation from the program's own path.
//
// The search climbs from the program file: strip the file name, ask for "bin", step up, step over
// "vex" or "vex-as", look for "vex". Paths come back in the spelling under which the host opens
// them, so that a directory named VEX serves on a host that minds the case.

#include "common/kvinstdir.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "common/kvdebug.h"
#include "common/osdep.h"
#include "common/stringcache.h"
#include "host/host.h"

namespace kv {
namespace {

// Interned strings; both are set or both are null.
constinit const char* kvinstall_dir = nullptr;
constinit const char* kvinstall_ver = nullptr;

constexpr std::array<const char*, KVINSTDIR_LAST> directory_names = {
    nullptr, nullptr, "bin", "docs", "include", "etc", "vex", "zel", "tsasmx", "vex-as"};

bool is_name(std::string_view text, std::string_view lower_name) {
  auto same = [](char a, char b) { return (a >= 'A' && a <= 'Z' ? a - 'A' + 'a' : a) == b; };
  return std::equal(text.begin(), text.end(), lower_name.begin(), lower_name.end(), same);
}

// The directory above, which for one at the top of a rooted path is the root itself.
std::optional<std::string> parent_of(const std::string& path) {
  std::optional<std::string> parent = path_dir(path.c_str());
  if (!parent || !parent->empty()) return parent;
  if (path.size() == 1) return std::nullopt;
  return path.substr(0, 1);
}

std::string below(const std::string& directory, const char* name) {
  return host::spelling_to_open(path_join(directory.c_str(), name).value_or(name).c_str());
}

void trace(unsigned line, const char* text) {
  if (db_tracing(db_general)) db_trace(__FILE__, line, text);
}

// The program's directory, without trailing dots and backslashes.
std::optional<std::string> running_directory() {
  std::string path = program_path();
  const std::size_t separator = path.find_last_of("\\/:");
  if (separator == std::string::npos) {
    trace(__LINE__, "ERROR - the path of the application has no directory");
    return std::nullopt;
  }
  path.resize(separator);
  path.resize(path.find_last_not_of(".\\") + 1);
  if (db_tracing(db_general)) {
    db_tracef(__FILE__, __LINE__, "Application appears to be running from directory: \"%s\"",
              path.c_str());
  }
  return path;
}

// The directory above `bin`, or the one above that where the program belongs to a device family.
std::optional<std::string> candidate_version(const std::string& running) {
  if (!is_name(path_tail(running.c_str()), "bin")) {
    trace(__LINE__, "ERROR - the application is not running from a 'bin' directory");
    return std::nullopt;
  }
  std::optional<std::string> candidate = parent_of(running);
  if (candidate) {
    const std::string_view tail = path_tail(candidate->c_str());
    if (is_name(tail, "vex") || is_name(tail, "vex-as")) candidate = parent_of(*candidate);
  }
  if (!candidate) trace(__LINE__, "ERROR - path not deep enough?");
  return candidate;
}

}  // namespace

bool set_kvinstall_paths() {
  if (kvinstall_ver != nullptr) return true;

  const std::optional<std::string> running = running_directory();
  if (!running) return false;
  const std::optional<std::string> version = candidate_version(*running);
  if (!version) return false;

  const std::string vex = below(*version, directory_names[KVINSTDIR_VEX]);
  if (!is_directory(vex.c_str())) {
    if (db_tracing(db_general)) {
      db_tracef(__FILE__, __LINE__, "The 'vex' directory could not be found: \"%s\"", vex.c_str());
    }
    return false;
  }
  const std::optional<std::string> install = parent_of(*version);
  if (!install) {
    trace(__LINE__, "ERROR - path not deep enough?");
    return false;
  }
  kvinstall_ver = str_intern(version->c_str());
  kvinstall_dir = str_intern(install->c_str());
  if (db_tracing(db_general)) {
    db_tracef(__FILE__, __LINE__, "kvinstall_ver has been set to: \"%s\"", kvinstall_ver);
    db_tracef(__FILE__, __LINE__, "kvinstall_dir has been set to: \"%s\"", kvinstall_dir);
  }
  return true;
}

const char* kvinstdir(unsigned which) {
  if (db_asserts_on() && which >= KVINSTDIR_LAST) {
    db_assert("which < KVINSTDIR_LAST", __FILE__, __LINE__);
  }
  if (which >= KVINSTDIR_LAST || !set_kvinstall_paths()) return nullptr;
  if (which == KVINSTDIR_INSTALL) return kvinstall_dir;
  if (which == KVINSTDIR_VERSION) return kvinstall_ver;
  return str_intern(below(kvinstall_ver, directory_names[which]).c_str());
}

}  // namespace kv
