// The fast lane of the main loop: plain text of a file goes to the output in bulk.
#pragma once

namespace kv::cpp {

/// Where copy_plain_text() stopped: inside a line, between two tokens; before the first unit of a
/// replacement; or at the start of a line.
enum class lane_stop { in_line, in_replacement, at_line_start };

/// With reading between two tokens of a text line: copies tokens, and whole lines, with their
/// macros expanded, as long as they show at sight, and writes what the main loop would have
/// written. Stops before the first token that the reader would have to translate or that has such a
/// unit right behind it, and before control lines.
lane_stop copy_plain_text();

}  // namespace kv::cpp
