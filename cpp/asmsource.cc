#include "cpp/asmsource.h"

#include <cstddef>

#include "cpp/expand.h"
#include "cpp/frames.h"
#include "cpp/reader.h"
#include "cpp/scan.h"
#include "cpp/symtab.h"

namespace kv::cpp {

namespace {

unit lower(int c) {
  return static_cast<unit>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
}

// Reads a unit and notes it in the work buffer, whose text is what giving back takes.
int read_noted() {
  const int c = get();
  work_buf::save(c);
  return c;
}

void give_back_noted() {
  push_text(work_buf::text());
}

// With as many units noted as a line must begin with: whether they begin `keyword` and the line
// goes on with the rest of it. Reads no further than the first difference.
bool reads_keyword(const char16_t* keyword) {
  for (std::size_t i = 0; keyword[i] != 0; ++i) {
    if (i == work_buf::len()) read_noted();
    if (lower(work_buf::begin()[i]) != keyword[i]) return false;
  }
  return true;
}

int read_noted_blanks() {
  int c;
  do {
    c = read_noted();
  } while (is_blank(c) || c == MARK_EXP_END);
  return c;
}

}  // namespace

void asm_ifdef_rewrite() {
  constexpr std::size_t word_least = 3;
  work_buf::clear();
  while (work_buf::len() < word_least) {
    if (continues_id(read_noted())) continue;
    if (work_buf::len() == 1) {
      unget();
    } else {
      give_back_noted();
    }
    return;
  }
  read_noted();
  const bool wants_defined = lower(work_buf::begin()[2]) != 'n';
  if (!reads_keyword(wants_defined ? u"ifdef" : u"ifndef") || !is_blank(read_noted())) {
    give_back_noted();
    return;
  }
  const int c = read_noted_blanks();
  if (char_class(c) != CT_LETTER) {
    give_back_noted();
    return;
  }
  push_text((scan_macro(c) != nullptr) == wants_defined ? u"if 1" : u"if 0");
}

}  // namespace kv::cpp
