// A state that lasts as long as an object: whoever needs it holds one, and nobody can forget to end
// it.
#pragma once

namespace kv::cpp {

/// A flag that is on while an object of the type exists; there is never a second one. `Name` tells
/// the flags apart.
template <class Name>
class scoped_flag {
 public:
  scoped_flag() { on_ = true; }
  ~scoped_flag() { on_ = false; }
  scoped_flag(const scoped_flag&) = delete;
  scoped_flag& operator=(const scoped_flag&) = delete;

  static bool on() { return on_; }

 private:
  static inline constinit bool on_ = false;
};

}  // namespace kv::cpp
