#include "cpp/diag.h"

#include <array>
#include <string>

#include "common/alert.h"
#include "common/format.h"
#include "common/host.h"
#include "common/osdep.h"
#include "cpp/options.h"
#include "cpp/reader.h"

namespace kv::cpp {

namespace {

// The current line of a file frame lies in bytes; the message system gets a widened copy, made for
// each message, and looks through these two pointers.
std::array<unit, line_capacity + 2> msg_line;
const unit* msg_line_start = nullptr;
const unit* msg_cursor = nullptr;

std::u16string last_echo_name;

void widen_current_line(const input_frame* f) {
  std::size_t n = 0;
  for (const unsigned char* p = f->line_start; p != f->line_end; ++p) {
    msg_line[n++] = *p == 0 ? u'\n' : *p;
    if (*p == 0) break;
  }
  msg_line[n] = 0;
  msg_line_start = msg_line.data();
  msg_cursor = msg_line_start + (f->rdptr - f->line_start);
}

void append_narrow(std::string& to, const unit* text) {
  for (; *text != 0; ++text) {
    if (!is_dropped_marker(*text)) to += static_cast<char>(*text);
  }
}

}  // namespace

void set_msg_position() {
  const input_frame* f = cur_frame;
  if (f == nullptr) {
    alert_set_position(nullptr, nullptr, nullptr, nullptr);
    return;
  }
  if (f->fp != nullptr) {
    widen_current_line(f);
  } else {
    msg_line_start = msg_cursor = f->buf;  // no position inside a text frame is a place in a line
  }
  alert_set_position(f->name, reinterpret_cast<const unsigned*>(&cur_line), &msg_line_start,
                     &msg_cursor);
}

void echo_source_line(const unit* line, const unit* file) {
  if (line_shown) return;
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
  text += format_string(settings.listing_style == 0 ? "%6d:\t" : "%d:", cur_line);
  append_narrow(text, line);
  host::write_all(2, text.data(), text.size());
  line_shown = true;
}

}  // namespace kv::cpp
