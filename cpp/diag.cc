#include "cpp/diag.h"

#include <algorithm>
#include <array>
#include <string>

#include "common/alert.h"
#include "common/format.h"
#include "common/outfile.h"
#include "cpp/lines.h"
#include "cpp/settings.h"
#include "cpp/source.h"
#include "cpp/symtab.h"

namespace kv::cpp {

namespace {

// The current line of a file frame lies in bytes; the message system gets a widened copy, made for
// each message, and looks through these two pointers.
std::array<unit, line_capacity + 2> msg_line;
const unit* msg_line_start = nullptr;
const unit* msg_cursor = nullptr;

std::u16string last_echo_name;

// Whether the byte at `p` is the carriage return of a CR LF, which ends a line as a newline does.
bool is_part_of_line_end(const unsigned char* p) {
  return *p == '\r' && p[1] == '\n';
}

void widen_current_line(const input_frame* f) {
  std::size_t n = 0;
  std::size_t read = 0;
  for (const unsigned char* p = f->file->line_start; p != f->line_end; ++p) {
    if (is_part_of_line_end(p)) continue;
    msg_line[n++] = *p == 0 ? u'\n' : *p;
    if (p < f->rdptr) read = n;
    if (*p == 0) break;
  }
  msg_line[n] = 0;
  msg_line_start = msg_line.data();
  msg_cursor = msg_line_start + read;
}

void append_narrow(std::string& to, const unit* text) {
  for (; *text != 0; ++text) {
    if (!is_dropped_marker(*text)) to += static_cast<char>(*text);
  }
}

// What set_msg_position hands out where other programs read the messages.
struct {
  std::u16string name;
  unsigned line;
} portable_position;

std::u16string widened(std::string_view text) {
  std::u16string wide(text.size(), 0);
  std::transform(text.begin(), text.end(), wide.begin(),
                 [](char c) { return static_cast<unsigned char>(c); });
  return wide;
}

open_file opened(const input_frame* f, int line) {
  return {f->file->path, f->file->line_name, line, f->serial};
}

void hand_out(std::string_view name, unsigned line, std::ptrdiff_t units_read) {
  portable_position.name = widened(name);
  portable_position.line = line;
  msg_line_start = msg_line.data();
  msg_cursor = msg_line_start + units_read;
  alert_set_position(portable_position.name.c_str(), &portable_position.line, &msg_line_start,
                     &msg_cursor);
}

// The units of the current line that have been read.
std::ptrdiff_t units_read(const input_frame* f) {
  std::ptrdiff_t n = 0;
  for (const unsigned char* p = f->file->line_start; p != f->rdptr; ++p) {
    if (!is_part_of_line_end(p)) ++n;
  }
  return n;
}

// The place of the last unit read from the nearest file, which at a line's end is its newline. Once
// all is read, that is the end of the primary input.
void set_portable_position() {
  const auto line = static_cast<unsigned>(cur_line);
  if (const input_frame* f = nearest_file_frame(); f != nullptr) {
    const bool behind_newline = f->rdptr != f->file->line_start && f->rdptr[-1] == '\n';
    hand_out(portable_name(opened(f, cur_line)), behind_newline ? line - 1 : line, units_read(f));
  } else if (base_frame != nullptr) {
    hand_out(portable_path(base_frame->file->path), line, 0);
  } else {
    alert_set_position(nullptr, nullptr, nullptr, nullptr);
  }
}

// The macros whose text is being read, from the innermost out to the nearest file.
std::vector<const symbol*> open_expansions() {
  std::vector<const symbol*> macros;
  for (const input_frame* f = cur_frame; f != nullptr && f->file == nullptr; f = f->parent) {
    if (f->macro != nullptr) macros.push_back(f->macro);
  }
  return macros;
}

// Of a long chain of notes the two ends are told.
constexpr std::size_t notes_at_each_end = 5;

template <class Note>
void write_chain(std::size_t length, Note note) {
  const std::size_t skipped = length > 2 * notes_at_each_end ? length - 2 * notes_at_each_end : 0;
  for (std::size_t i = 0; i < length; ++i) {
    if (skipped != 0 && i == notes_at_each_end) {
      i += skipped;
      alert_printf("cpp: note: %u more like this", skipped);
    }
    note(i);
  }
}

void note_expansion(const symbol* macro) {
  const std::string name = alert_str(macro->name);
  if (macro->def_file != nullptr) {
    alert_printf("%s:%d: note: expanded from macro '%s'", portable_path(macro->def_file),
                 macro->def_line, name);
  } else {
    alert_printf("cpp: note: expanded from macro '%s'", name);
  }
}

}  // namespace

std::vector<open_file> open_files() {
  std::vector<open_file> files;
  for (const input_frame* f = nearest_file_frame(); f != nullptr; f = f->parent) {
    if (f->file != nullptr) files.push_back(opened(f, files.empty() ? cur_line : f->saved_line));
  }
  std::reverse(files.begin(), files.end());
  return files;
}

std::string portable_path(const char* path) {
  std::string name = path;
  std::replace(name.begin(), name.end(), '\\', '/');
  return name;
}

std::string portable_name(const open_file& file) {
  if (file.line_name == nullptr) return portable_path(file.path);
  std::string name;
  for (const unit* p = file.line_name; *p != 0; ++p) {
    if (is_dropped_marker(*p)) continue;
    if (*p == '\\' && (p[1] == '\\' || p[1] == '"')) ++p;
    name += *p == '\\' ? '/' : static_cast<char>(*p);
  }
  return name;
}

std::string shown_path(const char* path) {
  if (path == nullptr) return "(null)";
  return settings.gcc_markers || settings.gcc_messages ? portable_path(path) : path;
}

void set_msg_position() {
  if (settings.gcc_messages) {
    set_portable_position();
    return;
  }
  const input_frame* f = frame_read();
  if (f == nullptr) {
    alert_set_position(nullptr, nullptr, nullptr, nullptr);
    return;
  }
  if (f->file != nullptr) {
    widen_current_line(f);
  } else {
    msg_line_start = msg_cursor = f->text;  // no position inside a text frame is a place in a line
  }
  const unit* name = frame_name(f);
  if (settings.gcc_markers && f->file != nullptr) {
    portable_position.name = widened(portable_path(f->file->path));
    name = portable_position.name.c_str();
  }
  const int& line = cur_line;
  alert_set_position(name, reinterpret_cast<const unsigned*>(&line), &msg_line_start, &msg_cursor);
}

void write_notes() {
  const std::vector<const symbol*> macros = open_expansions();
  write_chain(macros.size(), [&](std::size_t i) { note_expansion(macros[i]); });
  const std::vector<open_file> files = open_files();
  if (files.size() < 2) return;
  write_chain(files.size() - 1, [&](std::size_t i) {
    const open_file& includer = files[files.size() - 2 - i];
    alert_printf("%s:%d: note: included from here", portable_name(includer), includer.line);
  });
}

void echo_source_line(const unit* line, const unit* file) {
  if (!first_echo_of_line()) return;
  const bool tagged = settings.listing_style >= 2;
  std::string text;
  if (file == nullptr) file = u"";
  if (last_echo_name != file) {
    if (tagged) text += 'F';
    append_narrow(text, file);
    text += ":\n";
    last_echo_name = file;
  }
  if (tagged) text += 'L';
  text += format_string(settings.listing_style == 0 ? "%6d:\t" : "%d:", int{cur_line});
  append_narrow(text, line);
  write_error_text(text);
}

}  // namespace kv::cpp
