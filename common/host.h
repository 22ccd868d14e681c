// The host layer: the only place that knows the operating system.
//
// The program was written for Windows paths and keeps them inside: parts are joined with a
// backslash and split at backslash, slash or colon. A path becomes a host path at the system call
// and nowhere else; on a POSIX host that means that every backslash becomes a slash, so a file
// whose name really contains a backslash is out of reach there.
//
// The layer works on descriptors, not on stdio streams: reading in blocks and writing from one
// buffer are the callers' business, and nothing hides behind a descriptor that would have to be
// flushed before it is duplicated.
//
// Text is kept in the manner of the host. Inside the program a line ends with a newline; on Windows
// a text file's CR LF becomes that newline when it is read, a Ctrl-Z ends the file, and CR LF is
// what a newline becomes when it is written. The standard descriptors hold text always, other files
// where their opening says so.
//
// A program of this kind opens many names that do not exist, one for each directory of a search
// path. open_probe answers the second and later misses in a directory from memory.
//
// Functions that fail set errno; none of them reports a message. Paths are never null.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kv::host {

/// What `redirect` opens the file for; `write` empties an existing file.
enum class open_mode { read, write, append };

/// Whether a file's line ends are translated (see above).
enum class content { bytes, text };

/// The files that may be open at once, the three standard ones included; a header that includes
/// itself for ever meets this limit long before memory runs out.
inline constexpr unsigned max_open_files = 512;

// ---- Files ----

/// Opens a file for reading, bytes unchanged. Returns the descriptor, to be closed with close_file,
/// or -1; a directory fails with EISDIR, the 510th file (three are the standard ones) with EMFILE.
int open_read(const char* path);

/// As open_read, but the file is not counted as open: for what has to be readable when the limit is
/// met, such as the text of the message that says so.
int open_read_uncounted(const char* path);

/// As open_read, for text; but a name that is known to be missing fails with ENOENT without a
/// system call: the first miss in a directory reads its listing, and later ones are looked up there
/// without regard to case. A directory that cannot be listed is asked each time. Files that this
/// program creates are seen; those that others create meanwhile may not be. `size` becomes the
/// number of bytes that reading will give where the host knows it, else 0.
int open_probe(const char* path, std::size_t* size = nullptr);

/// Takes a place among the open files for one that is read from memory. Returns false, with EMFILE,
/// when there is none left.
bool take_file_place();

/// Gives a place from take_file_place back.
void give_file_place();

/// What is known of the names in one directory.
class directory_names;

/// Reads the listing of a directory, once in the run. The result lives until the process ends; null
/// where the host does not need it.
const directory_names* names_in_directory(const char* path);

/// A name with what a look-up in a listing needs to know of it, worked out once for all listings
/// that are asked. `text` is not copied.
struct sought_name {
  explicit sought_name(std::string_view name);

  std::string_view text;
  std::uint32_t hash;  ///< without regard to case
  bool case_is_known;  ///< the letters' other case is known here, so a listing can speak for all
                       ///< spellings
};

/// True when no file `name`, under any spelling, can be in the directory; a probe for it would
/// fail.
bool lacks_name(const directory_names* names, const sought_name& name);

/// Opens a file for writing and creates it if need be. It is emptied first, or with `append` every
/// write goes to its end. Returns the descriptor or -1.
int open_write(const char* path, bool append, content kind = content::bytes);

/// Closes a descriptor from one of the above or from `duplicate`.
void close_file(int fd);

/// Reads at most `n` bytes, waiting for at least one. Returns the number read, 0 at the end of the
/// file, -1 on failure.
long read_block(int fd, void* buf, std::size_t n);

/// Writes all `n` bytes. Returns false on failure, when any part of them may have been written.
bool write_all(int fd, const void* p, std::size_t n);

/// Makes descriptor `fd` (0, 1 or 2) refer to the file `path` as freopen does for a stream. Returns
/// false when the file cannot be opened; unlike with freopen, `fd` then stays as it was, so that
/// the complaint about it still has somewhere to go.
bool redirect(int fd, const char* path, open_mode mode);

/// Returns a new descriptor for what `fd` refers to, or -1. It does not count as an open file.
int duplicate(int fd);

/// Makes `to` refer to what `from` refers to. Returns false on failure.
bool duplicate_onto(int from, int to);

/// True when a person sits at the other end of the descriptor.
bool is_terminal(int fd);

/// To be called once, before anything is opened. Opens the null device on each standard descriptor
/// that is closed, so that no file lands there and receives messages or text; makes a write to a
/// closed pipe fail instead of killing the process; makes the standard descriptors hold text.
void prepare_standard_handles();

// ---- The file system ----

/// Whether a file that opens under a name is stored under exactly that name.
extern const bool names_are_case_sensitive;

/// True when the path names something that exists (symbolic links are followed).
bool exists(const char* path);

/// True when the path names a regular file or a link to one.
bool is_regular_file(const char* path);

/// True when the path names a directory or a link to one.
bool is_directory(const char* path);

/// True when the path names a directory itself, not a link to one.
bool is_real_directory(const char* path);

/// Appends the names in a directory to `names`, without "." and "..", in no particular order.
/// Returns false when the directory cannot be read.
bool list_directory(const char* path, std::vector<std::string>& names);

/// Creates one directory; fails with EEXIST when the name is taken, even by a dangling link. With
/// `owner_only` nobody else may look into it (on Windows a directory has the rights of its parent,
/// and the user's temporary directory is private already).
bool make_directory(const char* path, bool owner_only);

/// Removes a file, or a link itself.
bool remove_file(const char* path);

/// Removes an empty directory.
bool remove_directory(const char* path);

/// Gives `from` the name `to`, replacing a file of that name in one step.
bool replace_file(const char* from, const char* to);

/// Looks `path` up without regard to case and stores it in `actual` with the letters as the file
/// system holds them, separators unchanged: every component on POSIX, the last one on Windows.
/// Returns false when no such file exists. An exact match wins over others.
bool stored_spelling(const char* path, std::string& actual);

/// Returns the spelling under which this host opens `path`: on POSIX the stored spelling when only
/// the case of the letters is wrong, else `path` itself.
std::string spelling_to_open(const char* path);

/// Returns `path` as the host's own calls and third-party libraries want it.
std::string native_path(const char* path);

/// True when this host takes `path` as absolute though it has no drive and no network prefix.
bool is_rooted(const char* path);

// ---- The process ----

/// Returns the working directory, empty when it is unknown.
std::string current_directory();

/// Returns the full path of the running program file, empty when it is unknown.
std::string program_path();

/// Returns the description of an errno value; valid until the next call.
const char* error_text(int error);

/// Returns eight letters and digits that nobody can foresee, for a temporary name.
std::string fresh_name();

}  // namespace kv::host
