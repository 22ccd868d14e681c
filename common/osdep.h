// Host services shared by the toolchain's programs: temporary files, path names and file tests.
//
// Paths are split at backslashes, slashes and the colon of a drive, and joined with backslashes;
// the host layer below turns them into what the system wants. Most path helpers look at the text
// alone and never ask the file system.
//
// The last separator of a path is its last backslash; only without one its last slash, and only
// without that its last colon. So in "a\b/c" the tail is "b/c".
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace kv {

// ---- Temporary files ----

/// Opens a file for reading and writing that nobody else can open and that is gone, however the
/// process ends, when its descriptor is closed. It lies in the first of these directories that
/// takes it: TEMP, TMP, TMPDIR, the system's own, the working directory. Returns the descriptor, to
/// be closed with host::close_file, or -1 with errno set.
int open_temp_file();

// ---- Paths ----

/// Returns the full path of the running program file.
std::string program_path();

/// Returns the working directory.
std::string current_dir();

/// Returns `dir` and `name` with exactly one backslash between them where they meet; nothing when
/// `dir` is null or empty. A null `name` counts as empty.
std::optional<std::string> path_join(const char* dir, const char* name);

/// Returns `path` with runs of separators reduced to their last one, "." components dropped, each
/// ".." component dropped together with the one before it, and no separator at the end unless it
/// follows a colon or is the whole path. "." and ".." count only after a separator, and the first
/// component of a path, such as a drive, is never removed. Null gives "".
std::string normalize_path(const char* path);

/// Returns `path` normalised, after joining it to the working directory unless it is absolute; the
/// working directory for null.
std::string absolute_path(const char* path);

/// True when `path` has a colon as second character or begins with two backslashes; false
/// for null.
bool is_abs_path(const char* path);

/// Returns the part of `path` after its last separator, as a pointer into it; null for null.
const char* path_tail(const char* path);

/// Returns a copy of path_tail; "" for null.
std::string path_tail_copy(const char* path);

/// Returns the tail of `path` up to its last '.' and with it; the whole tail when it has none.
std::string path_stem_dot(const char* path);

/// Returns the part of `path` before its last separator; nothing when it has none or is null.
std::optional<std::string> path_dir(const char* path);

// ---- Files ----

/// True when the path names a file or a directory; false for null.
bool file_exists(const char* path);

/// True when the path names a directory; false for null.
bool is_directory(const char* path);

/// Creates a directory and its missing parents. Returns 0, or -1 when `path` is null, a parent is
/// not a directory, the directory exists already or the host refuses.
int make_dirs(const char* path);

/// Deletes a directory with its contents. A symbolic link in it is deleted, never followed. Returns
/// 0; -1 when `path` is null or no directory (a link to one is none) or at the first entry that
/// cannot be deleted, which leaves the rest.
int remove_tree(const char* path);

/// True when the last component of `path`, cut at backslash or slash, equals with case the name
/// that the file system stores; false for null and when there is no such file under any case.
bool name_case_matches(const char* path);

}  // namespace kv
