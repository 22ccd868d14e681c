#include "cpp/output.h"

#include <charconv>
#include <cstddef>
#include <string>
#include <string_view>

#include "common/host.h"
#include "cpp/control.h"
#include "cpp/include.h"
#include "cpp/options.h"
#include "cpp/outbuf.h"
#include "cpp/reader.h"

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
  out_bytes(digits, static_cast<std::size_t>(end - digits));
}

// Writes the name of the file frame `f` unless the last marker with a name has the same.
void write_changed_name(const input_frame* f) {
  const char* path = f->line_name == nullptr ? f->path : nullptr;
  if (path != nullptr && path == last_marker.path) return;
  const std::u16string_view name = effective_name(f);
  if (last_marker.written && last_marker.text == name) return;
  last_marker.text = name;
  last_marker.path = path;
  last_marker.written = true;
  out_text(" \"");
  if (path != nullptr) {
    out_text(path);
  } else {
    put_text16(f->line_name);
  }
  out_byte('"');
}

}  // namespace

void put_char_out(int c) {
  if (text_output() && !is_dropped_marker(c)) out_byte(static_cast<unsigned char>(c));
}

void put_text16(const unit* text) {
  for (; *text != 0; ++text) {
    if (!is_dropped_marker(*text)) out_byte(static_cast<unsigned char>(*text));
  }
}

void write_line_marker() {
  if (in_asm) {
    out_text("\n#endasm");
    count_line(-1);
  }
  out_text("\n# ");
  out_number(cur_line);
  if (in_file_frame()) write_changed_name(cur_frame);
  if (in_asm) {
    out_text("\n#asm");
    count_line();
  }
  out_byte('\n');
  need_linemark = false;
}

int sync_lines(int n) {
  if (text_output()) {
    if ((need_linemark && in_file_frame()) || n >= marker_threshold) {
      write_line_marker();
    } else {
      for (; n > 0; --n) out_byte('\n');
    }
  }
  need_linemark = false;
  return 0;
}

void print_search_path() {
  std::string list =
      "#include \"...\" search starts here:\n"
      "#include <...> search starts here:\n";
  for (std::size_t i = 0; i < include_dir_count; ++i) list.append(include_dirs[i]).append("\n");
  list += "End of search list.\n";
  host::write_all(2, list.data(), list.size());
}

}  // namespace kv::cpp
