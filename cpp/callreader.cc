#include "cpp/callreader.h"

#include <cstring>

#include "cpp/options.h"

namespace kv::cpp {

void call_reader::push_argument(level& expansion, int n) {
  symbol* macro = expansion.macro;
  if (macro == nullptr || n >= macro->nargs) {
    fail();
    return;
  }
  if (n >= expansion.arg_count || expansion.args[n] == nullptr) return;
  push(expansion.args[n], nullptr, macro);
  if (!failed) --macro->disable;
}

void call_reader::scan_name(int c) {
  if (depth != 0) {
    level& l = top();
    token = l.at - 1;
    while (lane::is_word_unit(l.at)) ++l.at;
    token_length = static_cast<std::size_t>(l.at - token);
  } else {
    name_buf[0] = static_cast<unit>(c);
    token = name_buf.data();
    token_length = 1;
  }
  for (int next; (next = peek()) == MARK_NOEXPAND ||
                 (next < 256 && lane::word_units[static_cast<std::size_t>(next)]);) {
    if (token != name_buf.data()) {
      if (token_length > name_limit) {
        fail();
        return;
      }
      std::memcpy(name_buf.data(), token, token_length * sizeof(unit));
      token = name_buf.data();
    }
    if (token_length == name_limit) {
      fail();
      return;
    }
    advance();
    name_buf[token_length++] = static_cast<unit>(next);
  }
  if (token_length > settings.ident_max) fail();
}

}  // namespace kv::cpp
