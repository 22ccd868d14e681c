// The files that a run writes, and standard error.
//
// Two promises are kept here. Nothing that could not be written goes unnoticed: the first failure
// on a file is told on standard error, with the file and the system's reason, and the run ends with
// status 1. And a file that turns out to be another one of the run is given back as it was, even
// when text has gone into it: what it held is set aside before the first byte is written.
//
// The second promise is why a file is emptied when its first text is written, not when it is
// opened, and why the last text of all need not set anything aside: nothing is opened after it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "host/host.h"

namespace kv {

/// One file being written. It has no buffer; whoever writes little by little keeps one. After a
/// failure it takes what it is given and drops it. Lives until the process ends or is closed.
class out_file {
 public:
  /// A file that is not open. `what` says in messages what kind of file it is.
  constexpr explicit out_file(const char* what) : what_(what) {}

  /// A standard descriptor, open from the start and called "-".
  constexpr out_file(const char* what, int fd)
      : what_(what), path_("-"), fd_(fd), standard_(true) {}

  out_file(const out_file&) = delete;
  out_file& operator=(const out_file&) = delete;

  /// Opens `path`, which is kept by reference, and creates it if need be; what is there stays until
  /// the first write. Finishes what was open, a standard descriptor apart. Returns false with errno
  /// set, host::error_in_use if the run uses the file already.
  bool open(const char* path, host::write_place place, host::content kind);

  bool is_open() const { return fd_ >= 0; }
  int fd() const { return fd_; }

  /// True once something could not be written.
  bool has_failed() const { return failed_; }

  /// True for a file that was there before and keeps what is written; not for a device or a pipe.
  bool replaces() const { return file_.regular && !file_.created; }

  /// Writes `n` bytes in the place of what the file held. Returns false on the first failure and
  /// after it. Raises 2082 (fatal) when what the file held can be set aside nowhere.
  bool write(const void* p, std::size_t n);
  bool write(std::string_view text) { return write(text.data(), text.size()); }

  /// Empties the file for its first text, where no other file will be opened any more: what it held
  /// is not set aside. Returns false on a failure, also an earlier one.
  bool begin_last();

  /// Writes the end of a file as begin_last() begins it, or goes on with one that was begun; then
  /// closes it. Returns false on a failure, also an earlier one.
  bool finish(const void* p, std::size_t n);
  bool finish(std::string_view text) { return finish(text.data(), text.size()); }

  /// Closes the file without having touched it. One that was not there before is removed if
  /// `remove_new` says so.
  void leave_alone(bool remove_new);

  /// Removes the file after its text was finished, unless it is one that does not keep it.
  void remove();

  /// Closes the file with what it held before the run.
  void give_back();

 private:
  // What a file held before it was written over.
  struct kept_content {
    void* bytes = nullptr;
    int fd = -1;  // where it is too much for memory
    std::uint64_t size = 0;
  };

  bool begin(bool last);
  bool set_aside();
  bool restore();
  bool close();
  void release();
  void fail();

  const char* what_;
  const char* path_ = nullptr;
  int fd_ = -1;
  bool standard_ = false;         // a standard descriptor, which stays open behind a file
  host::written_file file_ = {};  // as it was opened
  bool at_end_ = false;           // writes go to the end
  bool begun_ = false;
  bool failed_ = false;
  kept_content kept_ = {};
  out_file* next_ = nullptr;  // among the files that are open under a path
};

/// Tells that the file `path` could not be written, for the reason in errno, unless its reader has
/// gone; the run will end with status 1.
void writing_has_failed(const char* what, const char* path);

/// True once something could not be written.
bool writing_failed();

/// Raises 141 (fatal) for a file that cannot be opened, for the reason in errno. If the reason is
/// that the run uses it already, every file that is being written is given back first.
[[noreturn]] void refuse_file(const char* what, const char* path);

/// True once refuse_file has given files back: nothing may be written any more.
bool files_given_back();

/// Writes to standard error. What cannot be written there counts as a failure.
void write_error_text(std::string_view text);

/// Appends standard error to the file `path` from now on, which is kept by reference. Returns
/// false, with errno set and standard error as it was, when the file cannot be opened.
bool append_error_text_to(const char* path);

}  // namespace kv
