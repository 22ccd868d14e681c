// How far the output's lines lag behind the input's.
//
// A newline that leaves no text is not written at once: several of them may become a line marker,
// and those at the end of the input are dropped. What else moves the text away from the line that
// it was read in (a comment of several lines, another file) calls for a marker before the next
// text. `output` catches up with both, in sync_lines().
#pragma once

namespace kv::cpp {

class line_sync {
 public:
  /// Holds back `n` newlines that have been read.
  static void hold(int n = 1) { held_ += n; }

  /// The newlines that are held back.
  static int held() { return held_; }

  /// Takes one of them to be written, if there is any. Returns whether there was.
  static bool release_one() {
    if (held_ < 1) return false;
    --held_;
    return true;
  }

  /// The output's lines must be numbered anew before the next text.
  static void renumber() { renumber_ = true; }

  /// Whether they must.
  static bool renumbers() { return renumber_; }

  /// Whether the next text cannot be written yet.
  static bool lags() { return held_ != 0 || renumber_; }

  /// The output has caught up.
  static void settle() {
    held_ = 0;
    renumber_ = false;
  }

 private:
  static inline constinit int held_ = 0;
  static inline constinit bool renumber_ = false;
};

}  // namespace kv::cpp
