// Control lines.
#pragma once

namespace kv::cpp {

/// Carries out the control line whose `#` has just been read. Its newline is held back.
void control_line();

}  // namespace kv::cpp
