#include "cpp/lines.h"

#include <utility>

#include "cpp/linesync.h"
#include "cpp/source.h"

namespace kv::cpp {

namespace {

unsigned loaded = 0;

// A message has echoed the current line.
bool shown = false;

// Notes that `f` stands in another line.
void begin_line(input_frame* f) {
  f->file->settled_backslashes = nullptr;
  ++loaded;
  shown = false;
}

}  // namespace

bool load_line(input_frame* f) {
  source_line line;
  if (!source_next_line(f->file->source, line)) return false;
  f->rdptr = f->file->line_start = line.start;
  f->line_end = line.end;
  begin_line(f);
  return true;
}

bool load_first_line() {
  input_frame* f = cur_frame;
  return f->line_end == nullptr && f->file != nullptr && f->parent != nullptr && load_line(f);
}

unsigned lines_loaded() {
  return loaded;
}

void cut_line_at_zero(input_frame* f) {
  f->rdptr[-1] = '\n';
  f->line_end = f->rdptr;
}

unsigned char* ahead_limit(const input_frame* f) {
  const source_file* const source = f->file->source;
  return source->next == f->line_end ? source->limit : nullptr;
}

void pass_over_lines(input_frame* f, unsigned char* last, unsigned char* end, int count) {
  line_number::count(count);
  f->file->line_start = last;
  f->rdptr = f->line_end = end;
  f->file->source->next = end;
  begin_line(f);
}

void push_file(source_file* source, const char* path) {
  push_file_frame(source, path);
  line_sync::renumber();
}

void pass_over_file() {
  shown = false;
  line_sync::renumber();
}

bool first_echo_of_line() {
  return !std::exchange(shown, true);
}

}  // namespace kv::cpp
