#include "cpp/output.h"

#include <charconv>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/outfile.h"
#include "cpp/conditions.h"
#include "cpp/diag.h"
#include "cpp/frames.h"
#include "cpp/headers.h"
#include "cpp/linesync.h"
#include "cpp/outbuf.h"
#include "cpp/settings.h"

namespace kv::cpp {

namespace {

constexpr int marker_threshold = 5;

// The name in the most recent marker that carried one. Most are a file's own, and those are told
// by their path, which lives for the run; a name given by #line has none.
struct {
  std::u16string text;
  const char* path;
  bool written;
} last_marker;

void out_number(int n) {
  char digits[16];
  const char* end = std::to_chars(digits, digits + sizeof digits, n).ptr;
  outbuf::bytes(digits, static_cast<std::size_t>(end - digits));
}

// Writes the name of the file unless the last marker with a name has the same.
void write_changed_name(const file_input& file) {
  const char* path = file.line_name == nullptr ? file.path : nullptr;
  if (path != nullptr && path == last_marker.path) return;
  const std::u16string_view name = effective_name(file);
  if (last_marker.written && last_marker.text == name) return;
  last_marker.text = name;
  last_marker.path = path;
  last_marker.written = true;
  outbuf::text(" \"");
  if (path != nullptr) {
    outbuf::text(path);
  } else {
    put_text16(file.line_name);
  }
  outbuf::byte('"');
}

// What begins a line of a marker: a newline, which leaves an empty line before a marker of the
// program's own layout. Other compilers would count that line.
void start_line() {
  if (!settings.gcc_markers || !outbuf::at_line_start()) outbuf::byte('\n');
}

void write_plain_marker() {
  start_line();
  outbuf::text("# ");
  out_number(cur_line);
  if (in_file_frame()) write_changed_name(*frame_read()->file);
}

// ---- Markers that other compilers read.
//
// Their reader keeps a stack of files: the flag 1 enters one where the marker stands, 2 goes back
// to the one that included it. Only files whose text is written are told of, and those that lead to
// them; so there may be several to leave and to enter before the output is where it has to be.

constexpr std::string_view no_flag = "";
constexpr std::string_view flag_entered = " 1";
constexpr std::string_view flag_returned = " 2";
constexpr std::string_view flag_system = " 3";

// A file that has been entered in the output and not left.
struct entered_file {
  unsigned serial;
  bool system;
  std::string name;  // as it is written
  int line;          // of its last marker
};
std::vector<entered_file>& entered_files() {
  static auto* const files = new std::vector<entered_file>;
  return *files;
}

std::string marker_name(const open_file& file) {
  std::string text;
  for (const char c : portable_name(file)) {
    if (c == '"' || c == '\\') text += '\\';
    text += c;
  }
  return text;
}

void write_gcc_line(const entered_file& file, std::string_view flag) {
  start_line();
  outbuf::text("# ");
  out_number(file.line);
  outbuf::text(" \"");
  outbuf::text(file.name);
  outbuf::byte('"');
  outbuf::text(flag);
  if (file.system) outbuf::text(flag_system);
}

void enter_file(const open_file& file, std::string_view flag) {
  entered_files().push_back(
      {file.serial, is_installed_header(file.path), marker_name(file), file.line});
  write_gcc_line(entered_files().back(), flag);
}

// Leaves the files that `files` does not begin with. Returns whether there was one; the last marker
// is then that of the file returned to, at its line.
bool leave_files(const std::vector<open_file>& files) {
  std::vector<entered_file>& entered = entered_files();
  std::size_t common = 0;
  while (common < entered.size() && common < files.size() &&
         entered[common].serial == files[common].serial) {
    ++common;
  }
  const bool leaves = common < entered.size();
  while (common < entered.size()) {
    entered.pop_back();
    if (entered.size() == common) entered.back().line = files[common - 1].line;
    write_gcc_line(entered.back(), flag_returned);
  }
  return leaves;
}

void write_gcc_marker() {
  const std::vector<open_file> files = open_files();
  if (files.empty()) return;
  std::vector<entered_file>& entered = entered_files();
  bool is_there = leave_files(files);
  if (entered.empty()) {
    enter_file(files[0], no_flag);
    is_there = true;
  }
  for (;;) {
    // A file is entered where its includer stands, and a name may have come from #line.
    const open_file& here = files[entered.size() - 1];
    entered_file& last = entered.back();
    if (std::string name = marker_name(here); !is_there || last.name != name) {
      last.name = std::move(name);
      last.line = here.line;
      write_gcc_line(last, no_flag);
    }
    if (entered.size() == files.size()) return;
    enter_file(files[entered.size()], flag_entered);
    is_there = true;
  }
}

}  // namespace

void put_char_out(int c) {
  if (text_output() && !is_dropped_marker(c)) outbuf::byte(static_cast<unsigned char>(c));
}

void put_text16(const unit* text) {
  for (; *text != 0; ++text) {
    if (!is_dropped_marker(*text)) outbuf::byte(static_cast<unsigned char>(*text));
  }
}

void write_line_marker() {
  if (conditions::in_asm()) {
    start_line();
    outbuf::text("#endasm");
    line_number::count(-1);
  }
  if (settings.gcc_markers) {
    write_gcc_marker();
  } else {
    write_plain_marker();
  }
  if (conditions::in_asm()) {
    start_line();
    outbuf::text("#asm");
    line_number::count();
  }
  outbuf::byte('\n');
  line_sync::settle();
}

void sync_lines() {
  if (text_output()) {
    if ((line_sync::renumbers() && in_file_frame()) || line_sync::held() >= marker_threshold) {
      write_line_marker();
    } else {
      while (line_sync::release_one()) outbuf::byte('\n');
    }
  }
  line_sync::settle();
}

}  // namespace kv::cpp
