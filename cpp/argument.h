// An argument of a macro call, and what is known of it.
//
// Most arguments come to themselves: no macro is named in them, and nothing in them has an effect
// when it is read. That is found out when the argument is first met in place of its reference; from
// then on it is taken as a whole where what stands behind the reference lets its last token end.
#pragma once

#include <cstddef>
#include <cstdint>

#include "cpp/symtab.h"
#include "cpp/text16.h"
#include "cpp/token.h"

namespace kv::cpp {

/// The last token of an argument that comes to itself.
enum class last_token : std::uint8_t { none, closed, word, number, suffixed_number, operand };

struct argument {
  const unit* text;        ///< zero-ended, not owned
  std::uint32_t known_at;  ///< names_entered when what follows was found out; 0: it was not
  std::uint32_t len;       ///< units in the text, where it comes to itself
  last_token last;         ///< none where it does not

  /// Whether it comes to itself.
  bool comes_to_itself() {
    if (known_at != names_entered) look();
    return last != last_token::none;
  }

  /// Whether its last token ends where `next` follows, a unit of a macro's body or its zero.
  bool ends_before(const unit* next) const {
    switch (last) {
      case last_token::none: return false;
      case last_token::closed: return true;
      case last_token::number: return lane::ends_number(next);
      case last_token::suffixed_number: return *next == 0 || lane::ends_number(next);
      case last_token::word: return *next == 0 || lane::ends_word(next);
      case last_token::operand: return *next == 0 || lane::is_calm(next);
    }
    return false;
  }

 private:
  void look() {
    known_at = names_entered;
    const unit* end = nullptr;
    last = look_at_tokens(end);
    len = static_cast<std::uint32_t>(end - text);
  }

  // `end` becomes the end of what has been looked at.
  last_token look_at_tokens(const unit*& end) const {
    end = text;
    if (lane::kind_at(text) == lane::blank) return last_token::none;  // two of them may be one
    symbol* macro = nullptr;
    const unit* const p = end = lane::pass_tokens(text, macro, end);
    if (macro != nullptr) return last_token::none;
    switch (lane::kind_at(p)) {
      case lane::letter:
        end = lane::end_of_run(p + 1);
        if (static_cast<std::size_t>(end - p) > settings.ident_max) return last_token::none;
        if (*end != 0 || sym_find(p, static_cast<std::size_t>(end - p)) != nullptr) break;
        return last_token::word;
      case lane::digit:
        end = lane::end_of_digits(p);
        if (*end != 0 || lane::takes_sign(p, end)) break;
        return lane::has_suffix(end) ? last_token::suffixed_number : last_token::number;
      case lane::operand:
        end = p + 1;
        if (*end != 0 || !lane::is_calm(p)) break;
        return last_token::operand;
      default: return *p == 0 && p != text ? last_token::closed : last_token::none;
    }
    return last_token::none;
  }
};

}  // namespace kv::cpp
