// The preprocessed text: single units and whole texts, and line markers.
//
// Every unit leaves as its low byte; the markers 0x7F1D to 0x7F1F are dropped. Nothing here reports
// a write error: a full disk shows in the closed file.
#pragma once

#include "cpp/text16.h"

namespace kv::cpp {

/// Writes one unit, unless only dependencies are listed. The output routine of the scanners.
void put_char_out(int c);

/// Writes a zero-ended text. Does not ask whether text output is on; its callers do.
void put_text16(const unit* text);

/// Writes a line marker for the current position: an empty line, then `# line` and, when the file
/// differs from that of the last marker, its name. Inside an #asm block the marker is wrapped in
/// #endasm and #asm. The output has then caught up with the input's lines.
void write_line_marker();

/// Makes the output catch up with the input's lines: by the newlines held back, or by a marker from
/// five of them on or when the output is to be renumbered.
void sync_lines();

}  // namespace kv::cpp
