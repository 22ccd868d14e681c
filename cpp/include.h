// #include: the name, and the search along the include directories.
#pragma once

namespace kv::cpp {

/// Adds a directory of -I, which must live for the run, to the end of the search path. Raises 147
/// (fatal) when there are too many.
void add_include_dir(const char* path);

/// Writes the search path to standard error (-V).
void print_search_path();

/// Carries out an #include line from behind the keyword. Raises 109, the warnings 164, 165 and
/// 1427, and the fatal 141 and 146. Returns the newlines of a header that need not be read, since
/// its include guard is defined; reading goes on behind the line then.
int do_include();

}  // namespace kv::cpp
