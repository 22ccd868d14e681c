#include "cpp/callmemo.h"

#include <algorithm>
#include <cstring>

namespace kv::cpp {

const call_memo* call_memos::find(const symbol* macro) const {
  if (macro->memo_epoch != epoch) return nullptr;
  const call_memo& m = memos[macro->memo_index];
  for (std::size_t i = 0; i < m.macro_count; ++i) {
    if (m.macros[i]->disable != 0) return nullptr;
  }
  return &m;
}

void call_memos::start(symbol* macro) {
  recorded.macros[0] = macro;
  recorded.macro_count = 1;
}

bool call_memos::add(symbol* macro) {
  const auto end = recorded.macros.begin() + static_cast<std::ptrdiff_t>(recorded.macro_count);
  if (std::find(recorded.macros.begin(), end, macro) != end) return true;
  if (recorded.macro_count == call_memo::macros_limit) return false;
  recorded.macros[recorded.macro_count++] = macro;
  return true;
}

void call_memos::finish(const unsigned char* text, std::size_t length, bool ends_in_number) {
  if (length > length_limit) return;
  if (count == memos_limit || text_size - text_used < length) {
    ++macros_epoch;  // no record may be taken for one of the memos that make room
    forget();
  }
  recorded.text = static_cast<unsigned char*>(std::memcpy(texts.data() + text_used, text, length));
  recorded.length = length;
  recorded.ends_in_number = ends_in_number;
  text_used += length;
  recorded.macros[0]->memo_epoch = epoch;
  recorded.macros[0]->memo_index = static_cast<std::uint32_t>(count);
  memos[count++] = recorded;
}

}  // namespace kv::cpp
