// Host services on top of the host layer.

#include "common/osdep.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "common/version.h"
#include "host/host.h"

namespace kv {
namespace {

// ---- Separators ----

constexpr std::string_view separators = "\\/:";

bool is_slash(char c) {
  return c == '\\' || c == '/';
}

// The place of the last separator, of the first kind in the list that occurs at all.
std::size_t last_separator(std::string_view path) {
  for (const char kind : separators) {
    const std::size_t at = path.rfind(kind);
    if (at != std::string_view::npos) return at;
  }
  return std::string_view::npos;
}

bool is_bare_drive(std::string_view path) {
  return path.size() == 2 && path[1] == ':' && std::isalpha(static_cast<unsigned char>(path[0]));
}

// ---- Directories ----

// Makes one directory and its missing parents.
int make_directories(std::string path) {
  while (path.size() > 1 && is_slash(path.back())) path.pop_back();
  const std::optional<std::string> parent = path_dir(path.c_str());
  if (parent && !parent->empty() && !is_bare_drive(*parent)) {
    if (!file_exists(parent->c_str()) && make_directories(*parent) != 0) return -1;
    if (!is_directory(parent->c_str())) return -1;
  }
  return host::make_directory(path.c_str()) ? 0 : -1;
}

// ---- Normalising ----

// Writes a separator; one that follows another takes its place.
void put_separator(std::string& out, char separator) {
  if (!out.empty() && is_slash(out.back())) out.pop_back();
  out += separator;
}

// Removes the last component of a text that ends in a separator, and the separator before it.
void drop_component(std::string& out) {
  const std::size_t end = out.size() - 1;
  if (end == 0) return;
  const std::size_t before = std::string_view(out).find_last_of("\\/", end - 1);
  if (before != std::string_view::npos) out.erase(before, end - before);
}

}  // namespace

// ---- Temporary files ----

int open_temp_file() {
  for (const char* variable : {"TEMP", "TMP", "TMPDIR"}) {
    const char* directory = std::getenv(variable);
    if (directory == nullptr || *directory == '\0') continue;
    if (const int fd = host::open_nameless(directory); fd >= 0) return fd;
  }
  const int fd = host::open_nameless(host::temporary_directory().c_str());
  return fd >= 0 ? fd : host::open_nameless(".");
}

// ---- Paths ----

std::string program_path() {
  return host::program_path();
}

std::string current_dir() {
  return host::current_directory();
}

std::optional<std::string> path_join(const char* dir, const char* name) {
  if (dir == nullptr || *dir == '\0') return std::nullopt;
  std::string joined = dir;
  if (joined.back() != '\\') joined += '\\';
  if (name != nullptr) joined += *name == '\\' ? name + 1 : name;
  return joined;
}

std::string normalize_path(const char* path) {
  std::string out;
  std::string_view rest = path != nullptr ? path : "";
  while (!rest.empty()) {
    const std::size_t length = std::min(rest.find_first_of("\\/"), rest.size());
    const std::string_view component = rest.substr(0, length);
    const bool last = length == rest.size();
    const bool after_separator = !out.empty() && is_slash(out.back());
    rest.remove_prefix(length);

    if (after_separator && component == ".") {
      if (last) out.pop_back();
      if (!last) rest.remove_prefix(1);
      continue;
    }
    if (after_separator && component == "..") {
      drop_component(out);
    } else {
      out += component;
    }
    if (last) break;
    put_separator(out, rest.front());
    rest.remove_prefix(1);
  }
  const std::size_t size = out.size();
  if (size >= 3 && is_slash(out.back()) && out[size - 2] != ':') out.pop_back();
  return out;
}

std::string absolute_path(const char* path) {
  if (path == nullptr) return normalize_path(current_dir().c_str());
  if (is_abs_path(path) || host::is_rooted(path)) return normalize_path(path);
  return normalize_path(path_join(current_dir().c_str(), path).value_or(path).c_str());
}

bool is_abs_path(const char* path) {
  const std::string_view text = path != nullptr ? path : "";
  return text.starts_with("\\\\") || (text.size() >= 2 && text[1] == ':');
}

const char* path_tail(const char* path) {
  if (path == nullptr) return nullptr;
  const std::size_t at = last_separator(path);
  return at == std::string_view::npos ? path : path + at + 1;
}

std::string path_tail_copy(const char* path) {
  return path != nullptr ? path_tail(path) : "";
}

std::string path_stem_dot(const char* path) {
  std::string tail = path_tail_copy(path);
  const std::size_t dot = tail.rfind('.');
  if (dot != std::string::npos) tail.resize(dot + 1);
  return tail;
}

std::optional<std::string> path_dir(const char* path) {
  const std::string_view text = path != nullptr ? path : "";
  const std::size_t at = last_separator(text);
  if (at == std::string_view::npos) return std::nullopt;
  return std::string(text.substr(0, at));
}

// ---- Files ----

bool file_exists(const char* path) {
  return path != nullptr && host::exists(path);
}

bool is_directory(const char* path) {
  return path != nullptr && host::is_directory(path);
}

int make_dirs(const char* path) {
  return path != nullptr ? make_directories(path) : -1;
}

int remove_tree(const char* path) {
  std::vector<std::string> names;
  if (path == nullptr || !host::is_real_directory(path)) return -1;
  if (!host::list_directory(path, names)) return -1;
  for (const std::string& name : names) {
    const std::string entry = std::string(path) + '\\' + name;
    if (host::is_real_directory(entry.c_str())) {
      if (const int code = remove_tree(entry.c_str()); code != 0) return code;
    } else if (!host::remove_file(entry.c_str())) {
      return -1;
    }
  }
  return host::remove_directory(path) ? 0 : -1;
}

bool name_case_matches(const char* path) {
  std::string actual;
  if (path == nullptr || !host::stored_spelling(path, actual)) return false;
  auto component = [](std::string_view text) { return text.substr(text.find_last_of("\\/") + 1); };
  return component(path) == component(actual);
}

}  // namespace kv
