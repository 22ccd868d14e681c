// What object-like macros came to. Constants make up most of all calls, and their names come again.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "cpp/symtab.h"

namespace kv::cpp {

/// What an object-like macro came to when it was expanded: the same again as long as no macro is
/// defined or removed, and none of those it depends on is being expanded.
struct call_memo {
  static constexpr std::size_t macros_limit = 6;

  std::array<symbol*, macros_limit> macros;  ///< that were met, the macro itself first
  std::size_t macro_count;
  const unsigned char* text;  ///< what was written
  std::size_t length;
  bool ends_in_number;  ///< so that what follows must not be able to continue it
};

/// The memos of the macros as they are defined now. One expansion at a time is recorded.
class call_memos {
 public:
  /// Forgets everything if a macro has been defined or removed.
  void refresh() {
    if (epoch != macros_epoch) forget();
  }

  /// What `macro` comes to where the macros that are being expanded are those whose `disable` is
  /// not 0; null when that is not known.
  const call_memo* find(const symbol* macro) const;

  /// Begins a record of `macro`, which is not being expanded.
  void start(symbol* macro);

  /// Adds `macro`, met in the expansion being recorded. Returns whether the record still fits.
  bool add(symbol* macro);

  /// Completes the record: `length` bytes were written from `text` on.
  void finish(const unsigned char* text, std::size_t length, bool ends_in_number);

 private:
  static constexpr std::size_t memos_limit = 1024;
  static constexpr std::size_t text_size = 32768;
  static constexpr std::size_t length_limit = 1024;

  void forget() {
    epoch = macros_epoch;
    count = text_used = 0;
  }

  std::uint64_t epoch = 0;  // the macros_epoch of what is remembered
  std::size_t count = 0;
  std::size_t text_used = 0;
  call_memo recorded{};
  std::array<call_memo, memos_limit> memos;
  std::array<unsigned char, text_size> texts;
};

}  // namespace kv::cpp
