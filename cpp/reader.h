// The character reader: get() and unget().
//
// Everything the preprocessor reads comes one unit at a time from get(), off the top of the frame
// stack. get() hides the stack and does the translation that the rest relies on: lines are counted,
// trigraphs replaced, comments removed, lines joined, arguments read in place of the references to
// them.
//
// Two things would surprise a reader. A file frame holds bytes, not 16-bit units: the current line
// is looked at where it lies in the file's block buffer, so plain text is never widened only to be
// narrowed again. And get() itself is only the common case, a unit that needs no translation; every
// other unit, and every change of frame, is in get_slow().
#pragma once

#include <cstddef>
#include <string_view>

#include "cpp/charclass.h"
#include "cpp/frames.h"
#include "cpp/lanes.h"
#include "cpp/lines.h"
#include "cpp/scoped_flag.h"
#include "cpp/text16.h"

namespace kv::cpp {

/// While one exists, get() translates nothing but trigraphs.
class raw_reading : public scoped_flag<raw_reading> {};

/// Adds `text`, of whole lines, to what is read before the first line of the primary file.
void read_first(std::string_view text);

/// Gives `sink` the units of the comments that are to be copied; called before the first is read.
void copy_comments_to(void (*sink)(int c));

/// Makes `;` open a comment that runs to the end of the line (the assembler mode), or not.
void set_semicolon_comments(bool on);

int get_slow();

/// Reads the next unit of the input after translation. Returns 0 when all input is consumed, and on
/// every later call. Units from files are 0 to 255; text frames deliver markers as well. Raises
/// 139, 179, 180, 1342 and 1470, and the fatal 152 and 158.
inline int get_unit() {
  input_frame* f = cur_frame;
  if (lanes && f != nullptr) {
    if (f->rdptr != f->line_end) {
      if (plain::in_file(*f->rdptr)) return *f->rdptr++;
    } else if (f->file == nullptr && plain::in_text(*f->txptr)) {
      return *f->txptr++;
    }
  }
  return get_slow();
}

#if defined(CPP_CHECKING)
int get();  ///< the same, and ends the process where it breaks the promise of unget()
#else
inline int get() {
  return get_unit();
}
#endif

/// The next unit, where it is one that get() delivers unchanged from the frame on top, so that
/// reading it ahead would have no effect at all; else -1.
inline int peek_plain() {
  const input_frame* f = cur_frame;
  if (!lanes || f == nullptr) return -1;
  if (f->rdptr != f->line_end) return plain::in_file(*f->rdptr) ? *f->rdptr : -1;
  return f->file == nullptr && plain::in_text(*f->txptr) ? *f->txptr : -1;
}

/// Takes the unit that peek_plain() has shown.
inline void pass_plain() {
  input_frame* f = cur_frame;
  if (f->file != nullptr) {
    ++f->rdptr;
  } else {
    ++f->txptr;
  }
}

/// Gives back the unit that get() delivered last: the next get() delivers it again, whatever
/// reading ahead of it has done. Where stepping the frame on top back by one unit would deliver
/// another, the unit becomes a text of its own on top of the stack. Can be called repeatedly; fatal
/// 159 when that would pass the start of the frame's text (for a file: of the current line).
void unget();

/// Whether the literal opened by `quote`, just read, is closed on its line of a file, or in the
/// text on top. Reads nothing.
bool literal_closes(int quote);

}  // namespace kv::cpp
