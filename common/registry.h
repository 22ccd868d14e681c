// The directories of the device-family tree, and the C standard library in force.
//
// Some directories of the tree have one level more for each C standard library; that level appears
// while a library name is set. Nothing here is a system registry: the tree is found from the
// program's own place.
#pragma once

namespace kv {

/// The kinds of directories in the device-family tree. There is no kind 9.
enum reg_dir : unsigned {
  REG_BASE = 0,
  REG_BIN = 1,
  REG_LIB = 2,  ///< with a level for the C standard library
  REG_HELP = 3,
  REG_INCLUDE = 4,
  REG_DAT = 5,
  REG_SOURCES = 6,  ///< with a level for the C standard library
  REG_RESOURCES = 7,
  REG_DOCS = 8,
  REG_C_INCLUDE = 10,  ///< "include" with a level for the C standard library
};

/// Returns a directory of the device-family tree as an interned string; null when the installation
/// cannot be located or there is no such kind. The directory itself need not exist.
const char* reg_instdir(unsigned kind);

/// Returns `base` joined with the sub-directory of `kind`, interned, and with the library's level
/// where the kind has one and a name is set; `base` itself for kind 0, null for a null base or an
/// unknown kind.
const char* reg_create_path(const char* base, unsigned kind);

/// Stores a copy of the C standard library's name for later requests; null for none.
void reg_set_c_stdlib(const char* name);

/// Returns the stored name, or null.
const char* reg_get_c_stdlib();

}  // namespace kv
