// The catalogue that the program carries inside itself, in the text format of a message file.
//
// Its text lies in builtin_catalogue.msgs, which the build puts into the literal below and the
// installation copies as its own message file, so the two cannot differ. It stays text on purpose:
// a message file is written by editing a copy of it, and both go through one loader, which meets
// its own format in every run that prints a message. Only entries that this program raises are
// there. Entries 1 to 3 have their texts in the code, since they must print when no catalogue could
// be loaded; they stand in the file so that their numbers are taken.

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string_view>

#include "common/alert_internal.h"

namespace kv {

constexpr std::string_view builtin_catalogue =
#include "builtin_catalogue_text.inc"
    ;

namespace {

// Whether the fatal entries of the catalogue are those of fatal_messages, in the same order.
constexpr bool fatal_entries_are_listed() {
  const std::uint32_t* listed = std::begin(fatal_messages);
  std::string_view rest = builtin_catalogue;
  while (!rest.empty()) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    const std::size_t tab = line.find('\t');
    if (line.starts_with('#') || !line.substr(tab + 1).starts_with("F\t")) continue;
    std::uint32_t number = 0;
    for (const char c : line.substr(0, tab))
      number = number * 10 + static_cast<std::uint32_t>(c - '0');
    if (listed == std::end(fatal_messages) || *listed++ != number) return false;
  }
  return listed == std::end(fatal_messages);
}
static_assert(fatal_entries_are_listed(), "fatal_messages and the catalogue must agree");

// Whether the catalogue has the line "296<TAB>F<TAB>no_memory_text".
constexpr bool no_memory_text_is_listed() {
  constexpr std::string_view number = "\n296\tF\t";
  const std::string_view text = no_memory_text;
  const std::string_view entry =
      builtin_catalogue.substr(builtin_catalogue.find(number) + number.size(), text.size() + 1);
  return entry.starts_with(text) && entry.ends_with('\n');
}
static_assert(no_memory_text_is_listed());

}  // namespace
}  // namespace kv
