// The languages that the toolchain's programs know, whatever their messages are written in.
#pragma once

namespace kv {

/// The id of a language that is not known; its entry reads as English.
inline constexpr int language_unknown = 255;

/// Returns the two-letter code of a language id, "en" for an id that has no entry.
const char* lang_code(int id);

/// Returns the names of a language id, separated by ';', "English" for an id that has no entry.
const char* lang_names(int id);

/// Returns the id of the language that is called `name`: its code or one of its names, in any case.
/// language_unknown for every other text, null among them.
int lang_id(const char* name);

}  // namespace kv
