// The fast lane of the main loop: plain text of a file goes to the output in bulk.
#pragma once

namespace kv::cpp {

/// Where copy_plain_text() stopped: inside a line, between two tokens, or at the start of a line.
enum class lane_stop { in_line, at_line_start };

/// With reading between two tokens of a text line: copies tokens, and whole lines, as long as
/// nothing in them needs more than being copied, and writes what the main loop would have written.
/// Stops before the first token that is a macro, that the reader would have to translate or that
/// has such a unit right behind it, and before control lines. At a line start `pending` is the
/// number of newlines consumed but not written.
lane_stop copy_plain_text(int& pending);

}  // namespace kv::cpp
