// The driver: start-up, the main loop, and the only way out of the process.
#pragma once

namespace kv::cpp {

/// Runs the preprocessor on a command line; does not return.
[[noreturn]] void run(int argc, char** argv);

/// Ends the process: writes the dependency output, closes standard output, lets the trace pack its
/// file and exits with `status`. Callable from any depth.
[[noreturn]] void cpp_exit(int status);

}  // namespace kv::cpp
