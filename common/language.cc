// One table, read in both directions. Its last row stands for all ids that have none of their own.

#include "common/language.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace kv {
namespace {

struct language {
  int id;
  const char* names;  // one or more, separated by ';' or ','
  const char* code;
};

constexpr language languages[] = {
    {7, "German;Deutsch", "de"},
    {9, "English", "en"},
    {12, "French;Francais", "fr"},
    {language_unknown, "English", "en"},
};

const language& language_of(int id) {
  const auto* const last = std::end(languages) - 1;
  return *std::find_if(languages, last, [id](const language& row) { return row.id == id; });
}

char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool equal_nocase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return lower(x) == lower(y); });
}

// Whether `name` is one of a row's names.
bool is_among(std::string_view names, std::string_view name) {
  while (true) {
    const std::size_t end = names.find_first_of(";,");
    if (equal_nocase(names.substr(0, end), name)) return true;
    if (end == std::string_view::npos) return false;
    names.remove_prefix(end + 1);
  }
}

}  // namespace

const char* lang_code(int id) {
  return language_of(id).code;
}

const char* lang_names(int id) {
  return language_of(id).names;
}

int lang_id(const char* name) {
  const std::string_view text = name ? name : "";
  for (const language& row : languages) {
    if (equal_nocase(row.code, text) || is_among(row.names, text)) return row.id;
  }
  return language_unknown;
}

}  // namespace kv
