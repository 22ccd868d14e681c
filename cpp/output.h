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
/// #endasm and #asm. Clears need_linemark.
void write_line_marker();

/// Makes the output catch up with `n` newlines that were consumed but not written: by newlines, or
/// by a marker from five on or when one is due. Returns the new pending count, 0.
int sync_lines(int n);

}  // namespace kv::cpp
