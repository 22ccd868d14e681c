// The program as a function that can be called again and again.
//
// It keeps one state for one run and leaves through std::exit. For the fuzzers it is linked into a
// library of its own, in which the calls that leave the process lead back to the caller, and whose
// writable memory is exactly the state of a run: it is saved once and put back before each run.
// What a run has allocated and opened stays behind, so a process is good for some runs, not for any
// number; and as nothing proves that a run owes nothing to the one before it, a fault counts only
// when it can be seen in a new process.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

namespace kv::fuzz {

/// Runs the program on a command line; returns its exit status. The exit handlers that it has
/// registered have run; static objects are not destroyed.
int run_program(int argc, char** argv);

/// The coverage counters of this build, empty where it has none.
std::span<unsigned char> coverage_counters();

/// What memory is copied by; a page holds a whole number of them.
using memory_block = std::array<std::uint64_t, 8>;

/// The writable memory of the library.
class program_memory {
 public:
  /// Keeps a copy of the memory as it is now.
  program_memory();

  /// Gives the memory the content it had then.
  void restore() const;

 private:
  struct piece {
    memory_block* start;
    std::vector<memory_block> content;
  };
  std::vector<piece> pieces_;
};

}  // namespace kv::fuzz
