// Frames are strictly last in, first out, so they live with their texts in an arena: once it is
// warm an expansion allocates nothing. The fields of a record are set one by one: putting one
// together first and copying it would cost more than all else that entering an argument does.
#include "cpp/frames.h"

#include <cstdlib>
#include <cstring>

#include "common/alert.h"
#include "common/str16.h"
#include "cpp/arena.h"
#include "cpp/argument.h"
#include "cpp/report/observe.h"
#include "cpp/source.h"
#include "cpp/symtab.h"

namespace kv::cpp {

struct frame_stack {
  static input_frame* push();
  static void drop_top();
  static void begin_file();
  static void free_base();

  // Frames pushed in the run; addresses are used again, these numbers are not.
  static inline constinit unsigned pushed = 0;
};

// A frame without a file, with no text yet, on top of the stack.
inline input_frame* frame_stack::push() {
  auto* f = reinterpret_cast<input_frame*>(arena::alloc(sizeof(input_frame)));
  f->rdptr = f->line_end = nullptr;
  f->file = nullptr;
  f->macro = f->arg_of = nullptr;
  f->value_of = nullptr;
  f->args = nullptr;
  f->arg_count = 0;
  f->depth = 0;
  f->serial = ++pushed;
  f->at_end = f->given_back = false;
  f->parent = cur_frame;
  if (cur_frame != nullptr) {
    cur_frame->saved_line = cur_line;
    f->depth = cur_frame->depth;
  }
  cur_frame.value_ = f;
  return f;
}

void frame_stack::drop_top() {
  input_frame* const f = cur_frame;
  cur_frame.value_ = f->parent;
  if (f != base_frame) arena::release(f);
  if (cur_frame != nullptr) line_number::set(cur_frame->saved_line);
}

// Makes the frame on top, which has just become a file's, stand in its first line.
void frame_stack::begin_file() {
  if (base_frame == nullptr) base_frame.value_ = cur_frame;
  line_number::set(1);
}

void frame_stack::free_base() {
  if (base_frame != nullptr) arena::release(base_frame);
  base_frame.value_ = nullptr;
}

namespace {

void set_text(input_frame* f, const unit* text) {
  f->text = f->txptr = text;
}

template <class T>
T* alloc_with_frame(std::size_t n) {
  return reinterpret_cast<T*>(arena::alloc(n * sizeof(T)));
}

}  // namespace

void push_file_frame(source_file* source, const char* path) {
  input_frame* const f = frame_stack::push();
  const std::size_t len = std::strlen(path);
  unit* const name = alloc_with_frame<unit>(len + 1);
  str8to16(name, path);
  f->file = alloc_with_frame<file_input>(1);
  *f->file = {source, path, name, nullptr, nullptr, nullptr};
  set_text(f, u"");
  f->depth = 0;
  frame_stack::begin_file();
  if (observing) observe::file_pushed(source, path);
}

void name_file(const unit* name) {
  const input_frame* const f = frame_read();
  if (f == nullptr || f->file == nullptr) {
    std::free(const_cast<unit*>(name));
    return;
  }
  std::free(const_cast<unit*>(f->file->line_name));
  f->file->line_name = name;
}

void push_text(const unit* text) {
  input_frame* const f = frame_stack::push();
  const auto size = static_cast<std::size_t>(str16_len(text)) + 1;
  unit* const copy = alloc_with_frame<unit>(size);
  std::memcpy(copy, text, size * sizeof(unit));
  set_text(f, copy);
}

void push_value(const symbol* macro, const unit* text) {
  push_text(text);
  cur_frame->value_of = macro;
  ++cur_frame->depth;
  if (observing) observe::replaced_by_place(macro);
}

void push_given_back(int c) {
  const unit text[] = {static_cast<unit>(c), 0};
  push_text(text);
  cur_frame->given_back = true;
}

void push_expansion(symbol* macro) {
  input_frame* const f = frame_stack::push();
  f->macro = macro;
  ++f->depth;
  ++macro->frame_refs;
  ++macro->disable;
  set_text(f, u"");
}

void read_body() {
  set_text(cur_frame, cur_frame->macro->body);
}

unit* frame_text_room() {
  return alloc_with_frame<unit>(frame_capacity);
}

void keep_frame_text(unit* text, std::size_t len) {
  arena::release(text);
  arena::alloc((len + 1) * sizeof(unit));
  set_text(cur_frame, text);
}

void keep_arguments(const argument* args, int count, const unit* end) {
  const auto n = static_cast<std::size_t>(count);
  const unit* const texts = args[0].text;
  const auto units = static_cast<std::size_t>(end - texts);
  std::byte* const room = arena::alloc(n * sizeof(argument) + (units + copy_slack) * sizeof(unit));
  auto* const kept = reinterpret_cast<argument*>(room);
  auto* const copies = reinterpret_cast<unit*>(kept + n);
  widen(copies, texts, units);
  for (std::size_t i = 0; i < n; ++i) {
    kept[i] = args[i];
    kept[i].text = copies + (args[i].text - texts);
  }
  cur_frame->args = kept;
  cur_frame->arg_count = count;
}

void push_argument(int n) {
  const input_frame* const expansion = cur_frame;
  symbol* const macro = expansion->macro;
  if (macro == nullptr || n >= macro->nargs) alert_msg_fatal(152, n);
  if (n >= expansion->arg_count) return;
  input_frame* const f = frame_stack::push();
  set_text(f, expansion->args[n].text);
  f->arg_of = macro;
  --macro->disable;
}

// The record of an argument's macro lives as long as the expansion below it.
void remove_text_frame() {
  const input_frame* const f = cur_frame;
  if (symbol* const macro = f->macro; macro != nullptr) {
    if (--macro->disable < 0) alert_msg_fatal(158, alert_str(macro->name));
    sym_release(macro);
  } else if (f->arg_of != nullptr) {
    ++f->arg_of->disable;
  }
  if (observing) observe::text_ends();
  frame_stack::drop_top();
}

void remove_file_frame() {
  file_input& file = *cur_frame->file;
  if (observing) observe::file_ended();
  source_close(file.source);
  std::free(const_cast<unit*>(file.line_name));
  file.line_name = nullptr;
  frame_stack::drop_top();
}

void free_base_frame() {
  frame_stack::free_base();
}

bool sym_eligible(const symbol* sym) {
  const input_frame* f = cur_frame;
  if (f != nullptr && f->macro == nullptr && f->file == nullptr && f->parent != nullptr &&
      f->parent->macro == sym) {
    return true;
  }
  return sym->disable == 0;
}

input_frame* nearest_file_frame() {
  input_frame* f = cur_frame;
  while (f != nullptr && f->file == nullptr) f = f->parent;
  return f;
}

const unit* frame_name(const input_frame* f) {
  if (f->file != nullptr) return f->file->name;
  return f->macro != nullptr ? f->macro->name : u"";
}

}  // namespace kv::cpp
