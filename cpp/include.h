// #include: the name, the search along the include directories, and the table of included files.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "common/hash.h"

namespace kv::cpp {

inline constexpr std::size_t include_dir_limit = 255;

/// The directories given with -I, in order; not owned.
extern std::array<const char*, include_dir_limit> include_dirs;
extern std::size_t include_dir_count;

/// One entry for each distinct path opened by #include; key and value are the same copy of the
/// path. Null where nobody asks for it.
extern hash_table* included_files;

/// The hash of included_files: bytes as signed values, a final ".h" left out.
std::uint32_t include_name_hash(word path);

/// Carries out an #include line from behind the keyword. Raises 109, the warnings 164, 165 and
/// 1427, and the fatal 141 and 146. Returns the newlines of a header that need not be read, since
/// its include guard is defined; reading goes on behind the line then.
int do_include();

/// Searches for `name` (the "..." form when `quoted`) and pushes the file, unless it need not be
/// read. Returns whether it was opened, or is already known while only dependencies are listed.
bool find_include(const char* name, bool quoted);

/// The spelling under which a file of this run was opened: `path`, or one with other letters.
std::string opened_spelling(const char* path);

/// Whether `path` lies in the device-family tree of the installation. False where there is none.
bool is_installed_header(const char* path);

/// Prints `path` to standard error the first time it is given (-H).
void note_include(const char* path);

/// Pushes the primary input, the file `path` read from the open descriptor `fd`, under `name`.
void push_main_file(int fd, const char* path, const char* name);

}  // namespace kv::cpp
