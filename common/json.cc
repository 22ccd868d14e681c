#include "common/json.h"

#include <array>
#include <cstdint>
#include <utility>

#include "common/format.h"

namespace kv {

namespace {

constexpr std::size_t piece_size = 65536;

// Decodes the UTF-8 sequence at the start of `text`, at least one byte, and takes it away. Returns
// -1 for one that is not valid: overlong, cut, a surrogate, or beyond the last character.
std::int32_t take_utf8(std::string_view& text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned first = byte(0);
  if (first < 0x80) {
    text.remove_prefix(1);
    return static_cast<std::int32_t>(first);
  }
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  constexpr std::int32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
  if (first < 0xC2 || first > 0xF4 || text.size() < length) return -1;
  auto c = static_cast<std::int32_t>(first & (0x7FU >> length));
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return -1;
    c = c << 6 | (byte(i) & 0x3F);
  }
  text.remove_prefix(length);
  const bool is_character = c >= least[length] && c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF);
  return is_character ? c : -1;
}

bool is_utf8(std::string_view text) {
  while (!text.empty()) {
    if (take_utf8(text) < 0) return false;
  }
  return true;
}

constexpr std::array<bool, 256> make_plain_bytes() {
  std::array<bool, 256> t{};
  for (std::size_t c = 0x20; c < 0x7F; ++c) t[c] = true;
  for (const char c : {'"', '\\', '<', '>', '&'}) t[static_cast<std::size_t>(c)] = false;
  return t;
}
// The bytes that stand for themselves in a string.
constexpr std::array<bool, 256> plain_bytes = make_plain_bytes();

// Takes those at the start of `text` away and returns them.
std::string_view take_plain(std::string_view& text) {
  std::size_t n = 0;
  while (n < text.size() && plain_bytes[static_cast<unsigned char>(text[n])]) ++n;
  const std::string_view run = text.substr(0, n);
  text.remove_prefix(n);
  return run;
}

void append_escaped(std::string& to, std::int32_t c) {
  if (c == '"' || c == '\\') {
    to += '\\';
    to += static_cast<char>(c);
  } else if (c < 0x10000) {
    to += format_string("\\u%04X", static_cast<unsigned>(c));
  } else {
    const auto above = static_cast<unsigned>(c - 0x10000);
    to += format_string("\\u%04X\\u%04X", 0xD800 + (above >> 10), 0xDC00 + (above & 0x3FF));
  }
}

}  // namespace

json_writer::json_writer(std::function<void(std::string_view)> sink) : sink_(std::move(sink)) {
  text_.reserve(2 * piece_size);
}

void json_writer::flush() {
  sink_(text_);
  text_.clear();
}

void json_writer::separate() {
  if (text_.size() >= piece_size) flush();
  if (!first_) text_ += ',';
  first_ = false;
}

json_writer& json_writer::open(char c) {
  separate();
  text_ += c;
  first_ = true;
  return *this;
}

json_writer& json_writer::close(char c) {
  text_ += c;
  first_ = false;
  return *this;
}

json_writer& json_writer::literal(std::string_view text) {
  separate();
  text_ += text;
  return *this;
}

void json_writer::write_string(std::string_view text) {
  text_ += '"';
  text_ += take_plain(text);
  const bool utf8 = is_utf8(text);
  while (!text.empty()) {
    if (utf8) {
      append_escaped(text_, take_utf8(text));
    } else {
      append_escaped(text_, static_cast<unsigned char>(text.front()));
      text.remove_prefix(1);
    }
    text_ += take_plain(text);
  }
  text_ += '"';
}

json_writer& json_writer::key(std::string_view name) {
  separate();
  text_ += '"';
  text_ += name;
  text_ += "\":";
  first_ = true;
  return *this;
}

json_writer& json_writer::value(std::string_view text) {
  separate();
  write_string(text);
  return *this;
}

}  // namespace kv
