// The catalogue that the program carries inside itself, in the text format of a message file.
//
// Its text lies in builtin_catalogue.msgs, which the build puts into the literal below and the
// installation copies as its own message file, so the two cannot differ. It stays text on purpose:
// a message file is written by editing a copy of it, and both go through one loader, which meets
// its own format in every run that prints a message. Only entries that this program raises are
// there. Entries 1 to 3 have their texts in the code, since they must print when no catalogue could
// be loaded; they stand in the file so that their numbers are taken.

#include <string_view>

#include "common/alert_internal.h"

namespace kv {

constexpr std::string_view builtin_catalogue =
#include "builtin_catalogue_text.inc"
    ;

}  // namespace kv
