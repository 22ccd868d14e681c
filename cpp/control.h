// Control lines.
#pragma once

namespace kv::cpp {

/// Carries out the control line whose `#` has just been read. Takes the number of newlines consumed
/// but not yet written and returns the new number, the control line's own newline included.
int control_line(int pending);

}  // namespace kv::cpp
