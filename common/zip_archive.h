// A zip archive that gets files added: the few calls that packing needs, in one place.
//
// The archive is put together in memory and written to a new file beside it, which takes its name
// only when everything went well. So a failure at any step, also the death of the process, leaves
// the archive as it was. The new file is there only while it is written.

#pragma once

#include <cstddef>
#include <string>

namespace kv {

/// One archive being added to. The operations are called in the order in which they stand here;
/// each returns false when it fails or when an earlier one that it needs has failed.
class zip_archive {
 public:
  zip_archive() = default;
  zip_archive(const zip_archive&) = delete;
  zip_archive& operator=(const zip_archive&) = delete;
  /// Gives up what is not closed; the archive stays as it was.
  ~zip_archive();

  /// Whether this build can write archives; otherwise every operation fails.
  static bool is_supported();

  /// Takes up the existing archive `path`; fails when it cannot be read or is no archive.
  bool open_reader(const char* path);

  /// Makes the archive opened writable, at its end.
  bool convert_to_writer();

  /// Begins the new archive `path` (instead of the two operations above).
  bool create(const char* path);

  /// Adds the file `source` under `name`, deflated at level 6, with the file's modification time
  /// and with `comment` unless that is null.
  bool add_file(const char* name, const char* source, const char* comment);

  /// Completes the archive's directory.
  bool finalize();

  /// Puts the finished archive in its place, unless nothing was added. A file that cannot be
  /// written is told of as such (see outfile.h).
  bool close();

 private:
  struct stream;  // the archive's bytes as minizip sees them

  bool open_writer(int append_status);
  bool put_in_place();

  std::string path_;       // the archive
  std::string work_path_;  // the file beside it that is written and takes its place
  std::string bytes_;      // the archive's content
  std::size_t at_ = 0;     // where minizip stands in it
  void* writer_ = nullptr;
  bool complete_ = false;  // every file was added and the directory is written
  bool failed_ = false;    // a file could not be added
};

}  // namespace kv
