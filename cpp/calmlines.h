// The fast lane for control lines and skipped groups.
#pragma once

namespace kv::cpp {

/// With reading at the start of a line, or behind blanks there: carries out control lines, and
/// passes over empty lines and lines of skipped groups, as long as every byte of a line is calm.
/// Stops, at a place where the main
/// loop can go on, before a line of text and before a line that the plain path must take.
void take_calm_lines();

}  // namespace kv::cpp
