// The preprocessor's side of a diagnostic: where reading stands, and the echo of the source line.
#pragma once

#include "cpp/text16.h"

namespace kv::cpp {

/// The pre-message call-back: tells the message system the file name, line number, line text and
/// read position of the top input frame, or that there is none.
void set_msg_position();

/// Prints the source line that starts at `line` to standard error, once however many messages refer
/// to it, with the name of `file` before it where that differs from the last one printed.
void echo_source_line(const unit* line, const unit* file);

}  // namespace kv::cpp
