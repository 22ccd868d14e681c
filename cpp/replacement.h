// Making the replacement text of a macro call: the body with the operands of `#` and `##` put in.
#pragma once

#include <cstddef>

#include "cpp/argument.h"
#include "cpp/symtab.h"
#include "cpp/text16.h"

namespace kv::cpp {

/// The arguments of a call, not owned. None for an object-like macro.
struct call_arguments {
  const argument* first = nullptr;
  int count = 0;

  /// The text that the reference `ref` stands for, or null when none was given.
  const unit* of(int ref) const {
    const int n = ref - MARK_PARAM_BASE;
    return n < count ? first[n].text : nullptr;
  }
};

/// A replacement text in the making. It never writes more than `capacity` units.
struct replacement {
  unit* text;                // where it goes; not owned
  std::size_t capacity;      // units that fit, the terminating zero included
  std::size_t len = 0;       // units written
  int references = 0;        // parameter references left in the text
  bool full = false;         // there was no room for all of it
  int stray_stringizes = 0;  // `#` operators without a parameter behind them

  /// Writes the whole replacement of `sym`, whose body is not null.
  void make(const symbol* sym, const call_arguments& args);

 private:
  void put(int c) {
    if (len + 1 >= capacity) {
      full = true;
    } else {
      text[len++] = static_cast<unit>(c);
    }
  }
  void put_text(const unit* from) {
    for (; *from != 0; ++from) put(*from);
  }
  int last() const { return len == 0 ? 0 : text[len - 1]; }
  const unit* stringize(const unit* body, const call_arguments& args);
  const unit* paste(const unit* body, const call_arguments& args);
};

}  // namespace kv::cpp
