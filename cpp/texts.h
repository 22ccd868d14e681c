// Taking tokens in bulk from the texts on top of the frame stack, entering arguments and leaving
// texts on the way.
//
// What get() would deliver unit by unit is taken at sight here, where what follows a token shows
// that it ends there and that reading ahead of it has no effect; everything else is left to get().
// Nothing is undone: what has been taken is taken. Two callers differ in what becomes of a token:
// the main loop writes it, a call appends it to the argument that it is collecting.
//
// A Sink says what differs. Its constants: `copies`, tokens stay as they stand, so that many can be
// taken at once; `scans_numbers`, a number is one token, while elsewhere its digits are and names
// may follow; `joins_blanks`, white space before a border of texts is one with that behind it. Its
// functions: expands(frame), whether names in that text are looked up, and run(at) takes what
// stands in one where they are not; blank() for white space; singles(at) takes units that are
// tokens by themselves and returns where that ends; units(at, end) takes a token; word(at, end,
// mark) a name that is not expanded, `mark` telling of a MARK_NOEXPAND before it; expand(symbol)
// begins the expansion of a macro that may be expanded here.
#pragma once

#include <array>
#include <cstddef>

#include "cpp/argument.h"
#include "cpp/frames.h"
#include "cpp/settings.h"
#include "cpp/symtab.h"
#include "cpp/text16.h"
#include "cpp/token.h"

namespace kv::cpp {

/// How beginning to expand a macro has ended: it is not expanded after all, its replacement is on
/// top of the stack and nothing of it has been read, or it is a call whose arguments come next.
enum class expansion { none, done, call_opened };

/// How taking tokens has ended.
enum class texts_end {
  at_unit,   ///< at a unit that must be read by itself, or in a file
  replaced,  ///< the same, and it is the first one of a replacement
  opened,    ///< a call was opened whose arguments come next
};

/// Where a token ends: at sight, and whether with its text, so that reading ahead leaves the text.
struct token_end {
  bool at_sight;
  bool leaves_text;
};

/// Whether `ends` holds for what follows the text of `f`, whose own end is no unit or does not
/// count. The end of an expansion below is a unit; `at_expansion_end` says what that would do.
template <class Ends>
bool holds_below(const input_frame* f, Ends ends, bool at_expansion_end) {
  const input_frame* const below = f->parent;
  if (below == nullptr || below->at_end || below->given_back) return false;
  if (below->file != nullptr) return below->rdptr != below->line_end && ends(below->rdptr);
  if (*below->txptr == 0) return below->macro != nullptr && at_expansion_end;
  return ends(below->txptr);
}

/// Where a token ends that lies before `end` in the text of `f`, `ends` asked of what follows.
template <class Ends>
token_end token_end_at(const input_frame* f, const unit* end, Ends ends) {
  if (*end != 0) return {ends(end), false};
  if (f->macro != nullptr) return {true, false};
  return {holds_below(f, ends, true), true};
}

/// The same for a number of a text, which goes on behind the end of an expansion unless it has a
/// suffix.
inline token_end number_end_at(const input_frame* f, const unit* at, const unit* end) {
  if (*end != 0) return {lane::is_calm(end), false};
  const bool suffix = lane::has_suffix(end);
  if (f->macro != nullptr && suffix) return {true, false};
  const auto ends = [](const auto* next) { return lane::ends_number(next); };
  return {!lane::takes_sign(at, end) && holds_below(f, ends, suffix), true};
}

template <class Sink>
class text_taker {
 public:
  explicit text_taker(Sink& to) : sink(to) {}

  /// Takes tokens from the texts on top. `first` tells that a replacement has just been pushed of
  /// which nothing has been read.
  texts_end take(bool first) {
    replaced = first;
    for (;;) {
      input_frame* const f = cur_frame;
      if (f == nullptr || f->file != nullptr) return stop();
      if (!replaced && !sink.expands(f)) {
        f->txptr = sink.run(f->txptr);
        if (!cross_border(f, f->txptr, false)) return stop();
        continue;
      }
      if (Sink::copies && !(replaced && lane::kind_at(f->txptr) == lane::blank)) {
        symbol* macro = nullptr;
        const unit* name_end = nullptr;
        const unit* const run = f->txptr;
        f->txptr = lane::pass_tokens(run, macro, name_end);
        if (f->txptr != run) {
          sink.units(run, f->txptr);
          replaced = false;
        }
        if (macro != nullptr) {
          const unit* const name = f->txptr;
          f->txptr = name_end;
          replaced = false;
          if (!take_known(name, name_end, macro)) return texts_end::opened;
          continue;
        }
      }
      const unit* at = f->txptr;
      while (lane::kind_at(at) == lane::blank) ++at;
      const bool blanks = at != f->txptr;
      if (blanks && replaced) return stop();
      const lane::kind kind = lane::kind_at(at);
      if (kind == lane::letter) {
        if (!take_name(f, at, blanks)) return opened ? texts_end::opened : stop();
      } else if (kind == lane::stop) {
        if (*at == MARK_NOEXPAND ? !take_marked_name(f, at, blanks)
                                 : !cross_border(f, at, blanks)) {
          return stop();
        }
      } else if (!take_token(f, at, kind, blanks)) {
        return stop();
      }
    }
  }

 private:
  texts_end stop() const { return replaced ? texts_end::replaced : texts_end::at_unit; }

  // Moves on to `end`, behind a token.
  void pass(input_frame* f, const unit* end, bool blanks) {
    f->txptr = end;
    if (blanks) sink.blank();
    replaced = false;
  }

  // At the end of a text, or at a reference to an argument: leaves the one, enters the other.
  bool cross_border(input_frame* f, const unit* at, bool blanks) {
    if (*at == 0) {
      if (blanks && f->macro == nullptr && Sink::joins_blanks) return false;
      if (blanks) sink.blank();
      if (f->macro != nullptr) replaced = false;
      remove_text_frame();
      return true;
    }
    if (!is_param_ref(*at)) return false;
    const int n = *at - MARK_PARAM_BASE;
    if (take_whole_argument(f, n, at + 1, blanks)) return true;
    if (blanks) {
      if (Sink::joins_blanks && !begins_with_token(f, n)) return false;
      sink.blank();
    }
    f->txptr = at + 1;
    push_argument(n);
    return true;
  }

  // Takes argument `n`, behind the reference to which stands `next`, if nothing in it has to be
  // read by itself.
  bool take_whole_argument(input_frame* f, int n, const unit* next, bool blanks) {
    if (n >= f->arg_count) return false;
    argument& arg = f->args[n];
    if (!arg.comes_to_itself() || !arg.ends_before(next) || !sink.takes(arg)) return false;
    pass(f, next, blanks);
    sink.units(arg.text, arg.text + arg.len);
    return true;
  }

  // Whether argument `n` surely begins with no white space.
  static bool begins_with_token(const input_frame* f, int n) {
    if (n >= f->arg_count) return false;
    const lane::kind kind = lane::kind_at(f->args[n].text);
    return kind != lane::stop && kind != lane::blank && kind != lane::newline;
  }

  bool take_name(input_frame* f, const unit* at, bool blanks) {
    const unit* const end = lane::end_of_run(at + 1);
    const auto len = static_cast<std::size_t>(end - at);
    if (len > settings.ident_max) return false;
    if (*end == MARK_PASTE) return paste(f, at, end, blanks);
    const token_end where =
        token_end_at(f, end, [](const auto* next) { return lane::ends_word(next); });
    if (!where.at_sight) return false;
    pass(f, end, blanks);
    if (where.leaves_text) remove_text_frame();
    symbol* const macro = sym_find(at, len);
    if (macro == nullptr) {
      sink.word(at, end, false);
      return true;
    }
    return take_known(at, end, macro);
  }

  // The name [at, end), which has been passed over, of a macro. Returns false when a call was
  // opened.
  bool take_known(const unit* at, const unit* end, symbol* macro) {
    if (!sym_eligible(macro)) {
      sink.word(at, end, false);
      return true;
    }
    switch (sink.expand(macro)) {
      case expansion::done: replaced = true; return true;
      case expansion::call_opened: opened = true; return false;
      default:
        // What it was read from may be gone.
        sink.word(macro->name, macro->name + macro->name_len, false);
        return true;
    }
  }

  bool take_marked_name(input_frame* f, const unit* at, bool blanks) {
    if (lane::kind_at(at + 1) != lane::letter) return false;
    const unit* const end = lane::end_of_run(at + 2);
    const auto len = static_cast<std::size_t>(end - at);
    // A macro can have such a name, by a #define that was swallowed into an expansion.
    if (len > settings.ident_max || sym_find(at, len) != nullptr) return false;
    if (!token_end_at(f, end, [](const auto* next) { return lane::ends_word(next); }).at_sight) {
      return false;
    }
    pass(f, end, blanks);
    sink.word(at + 1, end, true);
    return true;
  }

  // The name [left, end) and what is pasted to it become a text of their own.
  bool paste(input_frame* f, const unit* left, const unit* end, bool blanks) {
    const unit* right = end + 1;
    if (*right == MARK_NOEXPAND) ++right;
    if (!lane::is_word_unit(right)) return false;
    const unit* const behind = lane::end_of_run(right);
    const auto left_len = static_cast<std::size_t>(end - left);
    const auto right_len = static_cast<std::size_t>(behind - right);
    if (right_len > settings.ident_max) return false;
    const token_end where = token_end_at(f, behind, [](const auto* next) {
      return lane::ends_word(next) || int{*next} == MARK_PASTE;
    });
    if (!where.at_sight) return false;
    std::array<unit, 2 * ident_max_most + 1> joined;
    unit* to = joined.data();
    for (std::size_t i = 0; i < left_len; ++i) *to++ = left[i];
    for (std::size_t i = 0; i < right_len; ++i) *to++ = right[i];
    *to = 0;
    pass(f, behind, blanks);
    if (where.leaves_text) remove_text_frame();
    push_text(joined.data());
    return true;
  }

  // Any other token at `at`.
  bool take_token(input_frame* f, const unit* at, lane::kind kind, bool blanks) {
    const auto calm = [](const auto* next) { return lane::is_calm(next); };
    const unit* end = at + 1;
    token_end where = {true, false};
    switch (kind) {
      case lane::single:
        if (blanks) sink.blank();
        end = sink.singles(at);
        if (end == at) {
          if (blanks) f->txptr = at;
          return false;
        }
        pass(f, end, false);
        return true;
      case lane::digit:
      case lane::point:
        if (Sink::scans_numbers) {
          end = lane::end_of_digits(at);
          where = number_end_at(f, at, end);
        } else if (kind == lane::digit) {
          while (lane::kind_at(end) == lane::digit) ++end;
          where = token_end_at(f, end, calm);
        }
        break;
      case lane::quote:
        end = lane::end_of_quoted(at);
        if (end == nullptr) return false;
        break;
      case lane::operand:
        if (!calm(at)) return false;
        where = token_end_at(f, end, calm);
        break;
      default: return false;
    }
    if (!where.at_sight) return false;
    pass(f, end, blanks);
    sink.units(at, end);
    if (where.leaves_text) remove_text_frame();
    return true;
  }

  Sink& sink;
  bool replaced = false;
  bool opened = false;
};

}  // namespace kv::cpp
