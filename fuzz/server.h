// Runs of the program for the fuzzers, in processes of their own.
//
// A server is a small process that keeps a worker: a child that carries out runs one after the
// other, until one ends it or it has had enough of them; then the next worker takes over. There are
// two servers, one with everything that finds faults (sanitizers, coverage, checks) and one without
// the fast paths, and the harness asks both for the same run.
//
// Inputs choose file names, so a server locks itself into a directory, which is all that its runs
// see.
#pragma once

#include <array>
#include <cstddef>

namespace kv::fuzz {

/// The most that the arguments and the environment of a run may take.
inline constexpr std::size_t words_room = 1 << 16;
inline constexpr std::size_t counters_room = 1 << 18;

/// A request and what comes back beside the output, in memory that all processes share.
struct board {
  unsigned argument_count;  ///< the program's name included
  unsigned setting_count;
  std::size_t output_limit;            ///< bytes that a run may write to any one file
  std::array<char, words_room> words;  ///< the arguments, then NAME=VALUE, each ended by a zero
  std::array<unsigned char, counters_room> counters;  ///< the coverage of the last checked run
};

// The descriptors that a server finds open.
inline constexpr int first_server_fd = 200;
inline constexpr int board_fd = 200;
inline constexpr int request_fd = 201;
inline constexpr int stdin_fd = 202;
inline constexpr int stdout_fd = 203;
inline constexpr int stderr_fd = 204;
inline constexpr int last_server_fd = 204;

/// What comes in through `request_fd`. A run is answered by its wait status (int).
enum class request : char { run, renew_worker };

/// The most processor time that a run may take.
inline constexpr unsigned seconds_limit = 10;

/// Maps the memory behind `board_fd`; ends the process when that fails.
board* map_board();

/// Serves requests until the other end of `request_fd` is closed. `root` is the directory that
/// becomes the root of all runs.
[[noreturn]] void serve(const char* root);

}  // namespace kv::fuzz
