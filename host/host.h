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
// No file is written that the run reads, or writes under another name: such an opening fails with
// error_in_use and changes nothing. Only regular files count; a terminal may be read and written.
//
// Functions that fail set errno; none of them reports a message. Paths are never null.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kv::host {

/// The error of opening a file that the run uses in a way that does not go together with this one;
/// a number that no system uses. error_text knows it.
inline constexpr int error_in_use = 0x4B56;

/// Where the writing of a file begins. Nothing is lost by either: what is there when `from_start`
/// is opened stays until it is written over or cut off.
enum class write_place { from_start, at_end };

/// Whether a file's line ends are translated (see above).
enum class content { bytes, text };

/// The files that may be open at once, the three standard ones included; a header that includes
/// itself for ever meets this limit long before memory runs out.
inline constexpr unsigned max_open_files = 512;

// ---- Files ----

/// Opens a file for reading. Returns the descriptor, to be closed with close_file, or -1; a
/// directory fails with EISDIR. It is not looked at whether the run uses the file otherwise.
int open_read(const char* path, content kind = content::bytes);

/// As open_read, for what the run works on: the input, its arguments, its messages. Fails with
/// error_in_use when the run writes the file, and keeps the run from writing it later. The
/// descriptor stays open until no file is opened any more: what the system knows a file by is given
/// to another one when the file is deleted and closed.
int open_input(const char* path, content kind = content::bytes);

/// As open_read, for text, with three differences. The file counts as open: the 510th (three are
/// the standard ones) fails with EMFILE. One that the run writes fails with error_in_use. A name
/// that is known to be missing fails with ENOENT without a system call: the first miss in a
/// directory reads its listing, and later ones are looked up there without regard to case. A
/// directory that cannot be listed is asked each time. Files that this program creates are seen;
/// those that others create meanwhile may not be. `size` becomes the number of bytes that reading
/// will give where the host knows it, else 0.
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

/// What is known of a file opened for writing.
struct written_file {
  int fd = -1;
  bool regular = false;    ///< what is written stays; no device, pipe or terminal
  bool created = false;    ///< it was not there before
  std::uint64_t size = 0;  ///< of a regular file, before anything is written
};

/// Opens a file for writing and creates it if need be. `fd` is to be closed with close_file, and -1
/// when the file cannot be opened or, with error_in_use, is in use already. It is in use until it
/// is closed.
written_file open_write(const char* path, write_place place, content kind = content::bytes);

/// Opens a file in `directory` for reading and writing bytes, which nobody else can open and which
/// is gone when its descriptor is closed or the process ends in any way. Returns the descriptor or
/// -1.
int open_nameless(const char* directory);

/// Forgets which files are in use: one process that stands for several runs calls it between them,
/// since the system gives the number of a file that is gone to the next one.
void begin_run();

/// Takes standard input or standard output into use as it was given to the process. Returns false,
/// with error_in_use, when the run uses the file behind it already.
bool use_standard(int fd);

/// Takes into use a file that is going to be replaced, so that no other of the run can be the same.
/// Returns false, with error_in_use, when one is already. A file that is not there passes.
bool use_replaced(const char* path);

/// Closes a descriptor from one of the above or from `duplicate`. Returns false when the system
/// tells only now that what was written is lost.
bool close_file(int fd);

/// Reads at most `n` bytes, waiting for at least one. Returns the number read, 0 at the end of the
/// file, -1 on failure.
long read_block(int fd, void* buf, std::size_t n);

/// Writes all `n` bytes, line ends translated where the opening says so. Returns false on failure,
/// when any part of them may have been written. A reader that has gone is EPIPE on every host.
bool write_all(int fd, const void* p, std::size_t n);

/// As write_all, but never translates.
bool write_bytes(int fd, const void* p, std::size_t n);

/// Makes a regular file open for writing `size` bytes long. Reading and writing go on where they
/// were. Returns false on failure.
bool resize_file(int fd, std::uint64_t size);

/// Goes on reading and writing at byte `offset`. Returns false on failure.
bool seek_file(int fd, std::uint64_t offset);

/// Returns a new descriptor for what `fd` refers to, or -1. It does not count as an open file.
int duplicate(int fd);

/// Makes `to` refer to what `from` refers to. Returns false on failure.
bool duplicate_onto(int from, int to);

/// True when a person sits at the other end of the descriptor.
bool is_terminal(int fd);

/// To be called once, before anything is opened. Opens the null device on each standard descriptor
/// that is closed, so that no file lands there and receives messages or text; makes a write to a
/// closed pipe, or beyond the allowed size of a file, fail instead of killing the process; makes
/// the standard descriptors hold text. Returns false when that device cannot be opened.
bool prepare_standard_handles();

/// While one exists, the signals that end a process from outside wait. For the moments in which a
/// file is there that must not stay.
class signals_held {
 public:
  signals_held();
  ~signals_held();
  signals_held(const signals_held&) = delete;
  signals_held& operator=(const signals_held&) = delete;

 private:
  bool held_before_ = false;
};

// ---- The file system ----

/// Whether a file that opens under a name is stored under exactly that name.
extern const bool names_are_case_sensitive;

/// Whether a path can begin with the letter of a drive and a colon.
extern const bool paths_have_drives;

/// True when the path names something that exists (symbolic links are followed). False also when
/// the system cannot tell; errno is ENOENT or ENOTDIR where it can.
bool exists(const char* path);

/// True when the path names a regular file or a link to one.
bool is_regular_file(const char* path);

/// True when the path names a directory or a link to one.
bool is_directory(const char* path);

/// True when the path names a directory itself, not a link to one.
bool is_real_directory(const char* path);

/// Appends the names in a directory to `names`, without "." and "..", in no particular order.
/// Returns false when the directory cannot be read to its end.
bool list_directory(const char* path, std::vector<std::string>& names);

/// Creates one directory; fails with EEXIST when the name is taken, even by a dangling link.
bool make_directory(const char* path);

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

/// Returns the system's own directory for temporary files.
std::string temporary_directory();

/// Returns the working directory, empty when it is unknown.
std::string current_directory();

/// Returns the full path of the running program file, empty when it is unknown.
std::string program_path();

/// Returns the description of an errno value, error_in_use among them; valid until the next call.
const char* error_text(int error);

/// Returns a number that nobody can foresee.
std::uint64_t unforeseeable();

/// Returns the nanoseconds of a clock that only runs forward, from some moment of the past.
std::uint64_t monotonic_ns();

/// Returns eight letters and digits that nobody can foresee, for a temporary name.
std::string fresh_name();

}  // namespace kv::host
