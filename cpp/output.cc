#include "cpp/output.h"

#include <cstdlib>
#include <string>

#include "common/format.h"
#include "common/host.h"
#include "common/osdep.h"
#include "cpp/control.h"
#include "cpp/include.h"
#include "cpp/options.h"
#include "cpp/outbuf.h"
#include "cpp/reader.h"

namespace kv::cpp {

namespace {

constexpr int marker_threshold = 5;

// The name in the most recent marker that carried one; a heap copy.
unit* last_marker_name = nullptr;

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
  char line[32];
  const std::size_t n = format_text(line, sizeof line, "\n# %d", cur_line);
  out_bytes(line, n);
  if (in_file_frame()) {
    const unit* name = effective_name(cur_frame);
    if (last_marker_name == nullptr || str16_cmp(last_marker_name, name) != 0) {
      std::free(last_marker_name);
      last_marker_name = str16_dup(name);
      out_text(" \"");
      put_text16(name);
      out_byte('"');
    }
  }
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
