// The lines of the files that are read: moving on to the next one, ahead of the reader where a lane
// passes over lines, and whether the current one has been shown.
#pragma once

#include "cpp/frames.h"

namespace kv::cpp {

/// Whether a line of the file `f` has been loaded and is used up.
inline bool at_line_end(const input_frame* f) {
  return f->line_end != nullptr && f->rdptr == f->line_end;
}

/// With no line of the file `f`, or one that is used up: moves on to the next. Returns false, and
/// changes nothing, at the end of the file.
bool load_line(input_frame* f);

/// Lane: the same with nothing read yet of the file on top, an included one. False where another
/// frame is on top.
bool load_first_line();

/// The lines loaded so far in the run, those passed over counted as one. What a block's bytes are
/// changes with it.
unsigned lines_loaded();

/// With a zero byte just read from the file `f`: ends the line there; the rest of the physical line
/// is lost.
void cut_line_at_zero(input_frame* f);

/// Lane: the end of the bytes that lie ahead of the file `f`, up to which its next lines can be
/// looked at from line_end on; null where these are not simply its next lines.
unsigned char* ahead_limit(const input_frame* f);

/// Lane: passes over `count` lines that were found ahead of the file `f`: the last of them, [last,
/// end), becomes the current one, used up. Counts the lines of the newlines passed over.
void pass_over_lines(input_frame* f, unsigned char* last, unsigned char* end, int count);

/// Pushes a file frame that reads from `source` (owned by the frame from now on) under the name
/// `path`, which must live for the run. Sets cur_line to 1; the output is renumbered.
void push_file(source_file* source, const char* path);

/// Lane: with a file on top, leaves the state that pushing another file, reading it and coming back
/// leaves where nothing in that file has an effect of its own.
void pass_over_file();

/// Whether a message has not been given the current line to echo yet; asking it counts as that.
bool first_echo_of_line();

}  // namespace kv::cpp
