// Comparing a path with a directory of the installation.
//
// Paths are built with backslashes but begin with what the host calls a directory, so on a host
// with slashes the two kinds of separator meet in one path. Comparing the host's spellings makes
// them equal exactly where they are the same to the host.
#ifndef COMMON_PATHCMP_H_
#define COMMON_PATHCMP_H_

#include <string>

#include "common/host.h"

namespace kv {

/// Whether `path` is the directory `dir` or begins with it and a separator, letters compared with
/// case; false when either is null or empty.
inline bool path_begins_with_dir(const char* path, const char* dir) {
  if (!path || !dir || *dir == 0) return false;
  const std::string whole = host::native_path(path);
  const std::string head = host::native_path(dir);
  if (!whole.starts_with(head)) return false;
  const auto is_separator = [](char c) { return c == '\\' || c == '/'; };
  return whole.size() == head.size() || is_separator(head.back()) ||
         is_separator(whole[head.size()]);
}

}  // namespace kv

#endif  // COMMON_PATHCMP_H_
