// The headers of a run, each under the path by which it is looked for: what is known of a file,
// opening it, and reading it again without opening it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "common/hash.h"

namespace kv::cpp {

/// What the run knows of the file behind one path. It lives for the run.
struct header;

/// The header of `path`, whether there is such a file or not.
header& known_header(std::string_view path);

/// Pushes the header, unless its include guard is defined and reading it would do nothing but count
/// newlines. Returns the number of these newlines, 0 for a header that is pushed, or nothing, with
/// errno set, for one that cannot be opened. While dependencies are listed a header is read at most
/// once. Raises the warnings 164 and 165, and the fatal 141.
std::optional<int> enter_header(header& h);

/// Whether a file `dir` is a directory below which nothing can open under another spelling of
/// `dir`.
bool is_only_spelling(const char* dir);

/// The spelling under which a file of this run was opened: `path`, or one with other letters.
std::string opened_spelling(const char* path);

/// Whether `path` lies in the device-family tree of the installation. False where there is none.
bool is_installed_header(const char* path);

/// From now on each distinct path that is opened is listed.
void list_opened_headers();

/// Calls `fn` with `context` for each path that has been listed, key and value both its copy, until
/// it returns non-zero. The order is that of a table with a hash of its own, which shows in the
/// dependency output.
void visit_opened_headers(void* context, hash_visitor fn);

}  // namespace kv::cpp
