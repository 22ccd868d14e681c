// Comparing a path with a directory of the installation.
//
// Paths are built with backslashes but begin with what the host calls a directory, so on a host
// with slashes the two kinds of separator meet in one path. Comparing the host's spellings makes
// them equal exactly where they are the same to the host.
#pragma once

#include <string>

#include "host/host.h"

namespace kv {

/// Whether `path` begins with the characters of `dir`, letters compared with case; false when
/// either is null or `dir` is empty. A directory whose name goes on behind `dir` counts as well.
inline bool path_begins_with_dir(const char* path, const char* dir) {
  if (!path || !dir || *dir == 0) return false;
  return host::native_path(path).starts_with(host::native_path(dir));
}

}  // namespace kv
