// A variable that the whole engine reads and one module writes.
#pragma once

namespace kv::cpp {

/// Reads as a T. Only members of `Owner`, a type that its module has for this alone, get at the
/// value itself.
template <class T, class Owner>
class owned {
 public:
  explicit constexpr owned(T value) : value_(value) {}
  owned(const owned&) = delete;
  owned& operator=(const owned&) = delete;

  constexpr operator const T&() const { return value_; }

  /// Of a pointer: what it points at.
  constexpr T operator->() const { return value_; }

 private:
  friend Owner;

  T value_;
};

}  // namespace kv::cpp
