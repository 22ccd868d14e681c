// The preprocessor's side of a diagnostic: where reading stands, and the echo of the source line.
#pragma once

#include <string>
#include <vector>

#include "cpp/text16.h"

namespace kv::cpp {

/// A file that is being read.
struct open_file {
  const char* path;       ///< as it was opened; lives for the run
  const unit* line_name;  ///< the name given by #line, or null
  int line;               ///< where reading stands in it, or went on to the next file
  unsigned serial;        ///< another number for every opening
};

/// The files being read, each included by the one before; the primary input comes first.
std::vector<open_file> open_files();

/// The name of a file as other programs want it: separators are slashes. One given by #line is
/// text of a string literal, in which a backslash is written twice and stands before a quote.
std::string portable_name(const open_file& file);
/// The same for a path.
std::string portable_path(const char* path);

/// `path` for a message or a list: as it is, or portable where other programs read markers or
/// messages. Null reads "(null)".
std::string shown_path(const char* path);

/// The pre-message call-back: tells the message system the file name, line number, line text and
/// read position of the top input frame, or that there is none. Where other programs read the
/// messages it is those of the nearest file.
void set_msg_position();

/// Follows up a message for other programs: a note for each macro whose text is being read, the
/// innermost first, and one for each file that has included the next.
void write_notes();

/// Prints the source line that starts at `line` to standard error, once however many messages refer
/// to it, with the name of `file` before it where that differs from the last one printed.
void echo_source_line(const unit* line, const unit* file);

}  // namespace kv::cpp
