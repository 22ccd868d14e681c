// The option --kvdebug=: the trace file, the consistency checks and the package zip.
//
// The option is an aid for the toolchain's own developers and for support cases. Without it no
// trace file exists and every operation here costs one inline test. Each operation writes whole
// lines at once, so the trace is complete up to the point where a run dies.
//
#pragma once

#include <cstdint>

#include "common/trace.h"

namespace kv {

/// While it lives, the given flag bits are off, and nothing is gathered for what they would write:
/// for work that is done later than its place in the trace.
class db_pause {
 public:
  explicit db_pause(std::uint32_t flags);
  ~db_pause();
  db_pause(const db_pause&) = delete;
  db_pause& operator=(const db_pause&) = delete;

 private:
  std::uint32_t paused_;
};

/// Applies a --kvdebug= argument, the text after its '='. Only the first one counts. Faulty items
/// are warnings; raises 141 (fatal) when the trace file cannot be opened.
void db_options(const char* text);

/// Writes the header "APP:" once and a line with the arguments.
void db_trace_args(int count, const char* const* argv);

/// Takes the package zip into use once the other files of the run are open: it is replaced when the
/// run ends. Raises 141 (fatal) when it is one of them.
void db_claim_zip();

/// Ends the trace at exit: packs the trace file, writes the containers' reports and closes it.
void db_close();

/// Adds the file `path` to the package zip, with a comment unless that is null. Nothing happens
/// when no zip was asked for or the file does not exist; failures are warnings and leave the
/// archive as it was.
void db_zip_add(const char* path, const char* comment);

}  // namespace kv
