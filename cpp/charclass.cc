#include "cpp/charclass.h"

namespace kv::cpp {

namespace {

constexpr plain_tables initial_plain_tables() {
  plain_tables t{};
  for (int c = 0; c < 256; ++c) {
    const bool translated = c == 0 || c == '/' || c == '\\' || c == '\v' || c == '\f' || c == '\r';
    t.in_text[static_cast<std::size_t>(c)] = !translated;
    t.in_file[static_cast<std::size_t>(c)] = !translated && c != '\n' && c != '?';
  }
  return t;
}

}  // namespace

constinit plain_tables plain = initial_plain_tables();

void set_plain(unsigned char c, bool on) {
  plain.in_file[c] = plain.in_text[c] = on;
}

}  // namespace kv::cpp
