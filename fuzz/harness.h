// What a fuzz target has to say: how the fuzzer's bytes become a run of the program.
//
// An input is text, so that a person can read and write one. Its first part is the target's own;
// behind it come files, each led by a line "--- NAME".
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "fuzz/directory.h"

namespace kv::fuzz {

/// An input cut at its "--- NAME" lines.
struct input_parts {
  std::string first;
  std::vector<input_file> files;  ///< none with a name that leads out of the run's directory

  /// Adds a file unless the input brings one of that name.
  void add_default(std::string_view name, std::string_view text);

  /// Takes a file out and returns its text, "" when there is none of that name.
  std::string take_file(std::string_view name);
};

/// One run of the program.
struct program_run {
  std::vector<std::string> arguments;  ///< behind the program's name
  std::vector<std::string> settings;   ///< NAME=VALUE, of the environment
  std::vector<input_file> files;       ///< nothing else is there
  std::string standard_input;
};

/// The lines of a text, without their newlines.
std::vector<std::string> split_lines(std::string_view text);

/// Defined by each target: the run that an input stands for.
program_run plan_run(input_parts input);

/// A program that raises messages of every type at many places, for targets that are about
/// messages.
extern const std::string_view faulty_program;

}  // namespace kv::fuzz
