// The stack of input frames: the primary file at the bottom, an included file on top of its
// includer, and above them texts: macro replacements, arguments, generated text, units given back.
//
// A frame is a cursor. A file's line is read where it lies in the file's block, a macro's body
// where the macro has it, an argument where the call that it belongs to keeps it; nothing is copied
// to be read. What is made for one frame alone (a replacement with `#` or `##` in it, the arguments
// of a call, generated text) lives on the arena, above the frame's record, and goes with it.
#pragma once

#include <cstddef>

#include "cpp/owned.h"
#include "cpp/text16.h"

namespace kv::cpp {

struct argument;
struct symbol;
struct source_file;

/// What a file frame has and a text frame has not.
struct file_input {
  source_file* source;                 ///< owned by the frame
  const char* path;                    ///< the name as it was opened; not owned, lives for the run
  const unit* name;                    ///< `path` in units
  const unit* line_name;               ///< a name given by #line, or null; owned
  unsigned char* line_start;           ///< the start of the current line, null before the first
  unsigned char* settled_backslashes;  ///< backslashes before this join no lines
};

/// One active input. `file` alone tells the kinds apart: set in a file frame, null in a text frame.
/// What the reader takes from is here for both kinds; a file frame has no text and the other way
/// round.
struct input_frame {
  unsigned char* rdptr;     ///< the next byte of the current line, null in a text frame
  unsigned char* line_end;  ///< just after the current line's newline, null in a text frame
  const unit* txptr;        ///< the next unit of the text; its zero stays the next one
  input_frame* parent;      ///< the frame below, null for the outermost
  file_input* file;
  symbol* macro;           ///< expansion frames: the macro whose replacement this is
  symbol* arg_of;          ///< argument frames: the macro whose argument this is
  const symbol* value_of;  ///< what __LINE__ or __FILE__ came to: that macro
  const unit* text;        ///< the text from its start
  argument* args;          ///< expansion frames: the arguments, null where none was given
  int arg_count;           ///< entries in `args`
  int saved_line;          ///< cur_line of this frame while another lies on top of it
  int depth;               ///< expansions from here down to the nearest file, this one included
  unsigned serial;         ///< the number of the frame in the order of pushing, from 1
  bool at_end;             ///< expansion frames: MARK_EXP_END has been delivered
  bool given_back;         ///< one unit that unget() has put back, to be delivered as it is
};

/// The top of the frame stack, null once all input is consumed.
inline constinit owned<input_frame*, struct frame_stack> cur_frame{nullptr};
/// The primary input's frame.
inline constinit owned<input_frame*, struct frame_stack> base_frame{nullptr};
/// The line number of the current file position.
inline constinit owned<int, class line_number> cur_line{0};

/// What moves cur_line.
class line_number {
 public:
  /// Moves it by one line. #line can set it to any value, so it wraps like unsigned numbers do.
  static void count(int by = 1) {
    set(static_cast<int>(static_cast<unsigned>(cur_line) + static_cast<unsigned>(by)));
  }

  /// Makes `number` that of the next line (#line).
  static void set_next(int number) {
    set(number);
    count(-1);
  }

 private:
  friend struct frame_stack;
  static void set(int number) { cur_line.value_ = number; }
};

/// Makes `name`, from str16_dup(), the name of the file that is being read, for markers and
/// __FILE__; without one, frees it.
void name_file(const unit* name);

/// The most units of a replacement, its zero included.
inline constexpr std::size_t frame_capacity = 10240;

/// Pushes a file frame that reads from `source` (owned by the frame from now on) under the name
/// `path`, which must live for the run. Sets cur_line to 1.
void push_file_frame(source_file* source, const char* path);

/// Pushes a text frame that delivers a copy of `text` (zero-ended).
void push_text(const unit* text);

/// Pushes what the macro __LINE__ or __FILE__ came to, a copy of `text` (zero-ended). It is one of
/// the expansions that `depth` counts, since the name of a file can hold __FILE__ in its turn; but
/// it is no replacement, and the macro is not disabled by it.
void push_value(const symbol* macro, const unit* text);

/// Pushes a text frame of one unit, which get() delivers as it is.
void push_given_back(int c);

/// Pushes an expansion frame of `macro`, which is disabled by it. Its text is empty until one is
/// set: read_body() for the macro's body as it stands, or what is made in frame_text_room().
void push_expansion(symbol* macro);

/// Makes the expansion frame on top read its macro's body where it lies.
void read_body();

/// Room for frame_capacity units, on top of the arena. Before anything else is pushed or made,
/// keep_frame_text() must be called: the frame on top then reads the first `len` units and a zero
/// behind them, and the rest of the room is given back.
unit* frame_text_room();
void keep_frame_text(unit* text, std::size_t len);

/// Gives the expansion frame on top its arguments: copies of the `count` given, whose texts lie end
/// to end up to `end`.
void keep_arguments(const argument* args, int count, const unit* end);

/// Reads argument `n` of the expansion frame on top in place of the reference to it, which has been
/// read; an argument that was not given is no text. The macro can be expanded again meanwhile.
/// Fatal 152 where the macro has no such parameter.
void push_argument(int n);

/// Removes the text frame on top. Fatal 158 where its macro was not disabled.
void remove_text_frame();

/// Closes and removes the file frame on top; that of the primary input lives on.
void remove_file_frame();

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
  return f != nullptr && f->file != nullptr;
}

/// Whether a text frame is being read.
inline bool in_text_frame() {
  const input_frame* f = frame_read();
  return f != nullptr && f->file == nullptr;
}

/// Whether `sym` may be expanded where reading stands: it is not disabled, or the text being read
/// is an argument or generated text directly above an expansion of this very macro.
bool sym_eligible(const symbol* sym);

/// The nearest file frame from the top of the stack down, or null.
input_frame* nearest_file_frame();

/// The name of the file for markers and __FILE__: the one given by #line, else its own.
inline const unit* effective_name(const file_input& file) {
  return file.line_name != nullptr ? file.line_name : file.name;
}

/// The name of the frame `f` as diagnostics show it: a file's, a macro's, or none.
const unit* frame_name(const input_frame* f);

}  // namespace kv::cpp
