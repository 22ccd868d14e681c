// The directory that holds the files of a run, and nothing else.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace kv::fuzz {

struct input_file {
  std::string name;
  std::string text;
};

class run_directory {
 public:
  /// The directory for temporary files. An input that names it would leave files there by itself,
  /// and the fuzzer, which sees what strings are compared with, does come upon it: such inputs are
  /// not run.
  static constexpr std::string_view temp = "temporary-files-of-the-run/";

  /// Makes a directory of a fresh name under TMPDIR, by default in memory; ends the process when
  /// that fails.
  run_directory();

  /// Removes the directory.
  void remove() const;

  const char* path() const { return root_.c_str(); }

  /// True for the name of a file that an input may bring: none that leads out.
  static bool takes(std::string_view name);

  /// Writes the files. One whose name is in the way of another's is the input's own doing: the
  /// other is missing then.
  void fill(const std::vector<input_file>& files) const;

  /// Empties the directory and returns what was there by its names, which end in a slash for a
  /// directory.
  std::map<std::string, std::string> take() const;

 private:
  void take_from(const std::filesystem::path& path,
                 std::map<std::string, std::string>& files) const;

  std::string root_;  // ends in a slash
};

}  // namespace kv::fuzz
