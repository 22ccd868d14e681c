// The character reader: a stack of input frames behind get() and unget().
//
// Everything the preprocessor reads comes one unit at a time from get(): the primary file at the
// bottom of the stack, included files above it, and above those text frames that deliver macro
// replacements, macro arguments and generated text. get() hides the stack and does the translation
// that the rest relies on: lines are counted, trigraphs replaced, comments removed, lines joined.
//
// Two things would surprise a reader. A file frame holds bytes, not 16-bit units: the current line
// is looked at where it lies in the file's block buffer, so plain text is never widened only to be
// narrowed again. And get() itself is only the common case, a unit that needs no translation; every
// other unit, and every change of frame, is in get_slow().
#pragma once

#include <array>
#include <cstddef>
#include <string>

#include "cpp/lanes.h"
#include "cpp/text16.h"

namespace kv::cpp {

struct symbol;
struct source_file;

/// The longest line of a file, its newline included; a longer one is read as several lines.
inline constexpr int line_capacity = 10239;
/// The buffer size of a file frame and of an expansion frame: text and a terminating zero.
inline constexpr int frame_capacity = 10240;

/// One active input source. `fp` alone tells the kinds apart: set in a file frame, null in a text
/// frame. Frames live on a stack of their own and are recycled by the reader.
struct input_frame {
  unsigned char* rdptr;       ///< file frames: the next byte of the current line, else null
  unsigned char* line_end;    ///< file frames: just after the current line's newline, else null
  unit* txptr;                ///< text frames: the next unit of `buf`
  unsigned char* line_start;  ///< file frames: the start of the current line
  int saved_line;             ///< cur_line of this frame while another lies on top of it
  int depth;                  ///< expansions from here down to the nearest file, this one included
  source_file* fp;            ///< the file of a file frame
  unsigned serial;            ///< the number of the frame in the order of pushing, from 1
  input_frame* parent;        ///< the frame below, null for the outermost
  const char* path;           ///< file frames: `name` in bytes, not owned, lives for the run
  const unit* name;           ///< file name as opened, macro name, or empty; diagnostics show it
  symbol* macro;              ///< expansion frames: the macro whose replacement this is
  unit** args;                ///< expansion frames: argument texts, null where none was given
  int arg_count;              ///< entries in `args`
  const unit* line_name;      ///< a file name given by #line, or null
  bool at_end;                ///< expansion frames: MARK_EXP_END has been delivered
  bool given_back;            ///< text frames: one unit that unget() has put back, as it is
  symbol* arg_of;             ///< argument frames: the macro whose argument this is
  unit* buf;                  ///< text frames: the text to deliver
  unsigned char* settled_backslashes;  ///< file frames: backslashes before this join no lines
};

/// The top of the frame stack, null once all input is consumed.
extern input_frame* cur_frame;
/// The primary input's frame.
extern input_frame* base_frame;
/// The line number of the current file position.
extern int cur_line;
/// Moves cur_line by one line. #line can set it to any value, so it wraps like unsigned numbers do.
inline void count_line(int by = 1) {
  cur_line = static_cast<int>(static_cast<unsigned>(cur_line) + static_cast<unsigned>(by));
}
/// Set whenever the output's line numbering must be resynchronised.
extern bool need_linemark;
/// While set, get() translates nothing but trigraphs.
extern bool raw_read;
/// The current source line has been echoed by a diagnostic.
extern bool line_shown;
/// The lines made by --include=, read before the first line of the primary file.
extern std::string forced_includes;
/// Comments are being copied to the output.
extern bool keep_comments_now;

/// For each byte, whether get() delivers it unchanged: from a file line, and from a text frame.
struct plain_tables {
  std::array<bool, 256> in_file;
  std::array<bool, 256> in_text;
};
extern plain_tables plain;

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
      if (plain.in_file[*f->rdptr]) return *f->rdptr++;
    } else if (f->fp == nullptr && *f->txptr < 256 && plain.in_text[*f->txptr]) {
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

/// Whether the next unit is one that get() delivers unchanged from the frame on top, so that
/// reading it ahead would have no effect at all.
inline bool next_is_plain() {
  const input_frame* f = cur_frame;
  if (!lanes || f == nullptr) return false;
  if (f->rdptr != f->line_end) return plain.in_file[*f->rdptr];
  return f->fp == nullptr && *f->txptr < 256 && plain.in_text[*f->txptr];
}

/// Gives back the unit that get() delivered last: the next get() delivers it again, whatever
/// reading ahead of it has done. Where stepping the frame on top back by one unit would deliver
/// another, the unit becomes a text of its own on top of the stack. Can be called repeatedly; fatal
/// 159 when that would pass the start of the frame's text (for a file: of the current line).
void unget();

/// Whether the literal opened by `quote`, just read, is closed on its line of a file, or in the
/// text on top. Reads nothing.
bool literal_closes(int quote);

/// Whether a line of the file `f` has been loaded and is used up.
inline bool at_line_end(const input_frame* f) {
  return f->line_end != nullptr && f->rdptr == f->line_end;
}

/// Lane: with the line of the file on top used up, moves on to its next line. Returns false, and
/// changes nothing, when the next unit comes from elsewhere.
bool load_next_line();

/// Lane: the same with nothing read yet of an included file on top.
bool load_first_line();

/// Lane: the end of the bytes that lie ahead of the file `f`, up to which its next lines can be
/// looked at from line_end on; null where these are not simply its next lines.
unsigned char* ahead_limit(const input_frame* f);

/// Lane: passes over `count` lines that were found ahead of the file `f`: the last of them, [last,
/// end), becomes the current one, used up. Counts the lines of the newlines passed over.
void pass_over_lines(input_frame* f, unsigned char* last, unsigned char* end, int count);

/// Pushes a file frame that reads from `file` (owned by the frame from now on) under `name`, which
/// must live for the run. Sets cur_line to 1 and need_linemark.
input_frame* push_file(source_file* file, const char* name);

/// Lane: with a file on top, leaves the state that pushing another file, reading it and coming back
/// leaves where nothing in that file has an effect of its own.
void pass_over_file();

/// Pushes a text frame that delivers a copy of `text` (zero-ended).
void push_text(const unit* text);

/// Pushes an expansion frame of `macro` with room for frame_capacity units of text, empty so far.
input_frame* push_expansion(symbol* macro);

/// Gives back what the text of `len` units (its zero not counted) in the expansion frame on top
/// does not need of the frame's room.
void trim_expansion(std::size_t len);

/// Room for `bytes` bytes that lives as long as the frame on top.
void* alloc_with_frame(std::size_t bytes);

/// The nearest file frame from the top of the stack down, or null.
input_frame* nearest_file_frame();

/// The name of the file frame `f` for markers and __FILE__: the one given by #line, else its own.
inline const unit* effective_name(const input_frame* f) {
  return f->line_name != nullptr ? f->line_name : f->name;
}

/// Frees the frame of the primary input at the end of a run.
void free_base_frame();

/// The frame that is being read: the one on top, units given back not counted, or null.
inline input_frame* frame_read() {
  input_frame* f = cur_frame;
  while (f != nullptr && f->given_back) f = f->parent;
  return f;
}

/// Whether a file is being read.
inline bool in_file_frame() {
  const input_frame* f = frame_read();
  return f != nullptr && f->fp != nullptr;
}

/// Whether a text frame is being read.
inline bool in_text_frame() {
  const input_frame* f = frame_read();
  return f != nullptr && f->fp == nullptr;
}

}  // namespace kv::cpp
