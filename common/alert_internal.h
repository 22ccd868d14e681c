// What the three files of the message system share and nobody else may use.

#pragma once

#include <cstdint>
#include <string_view>

#include "common/alert.h"
#include "common/vector.h"

namespace kv {

/// The built-in catalogue: lines in the format of a message file.
extern const std::string_view builtin_catalogue;

/// What message 296 says while no catalogue is in use.
inline constexpr char no_memory_text[] = "out of memory";

/// The text of message 296, looked up without asking for memory.
const char* out_of_memory_text();

/// The highest message number that a catalogue can hold.
inline constexpr std::uint32_t max_message_number = 10000;

/// The decimal value at the start of a type field, a warning's level: 0 without digits, cut to what
/// an int32 holds.
std::int32_t parse_level(std::string_view field);

/// Chooses and loads the catalogue; returns at once when that has been done or is under way. Only
/// alert_init calls it, which sees to the settings that the load's own reports are made under.
void load_catalogue_once();

/// The table that decides types and levels (const msg_entry*, indexed by number), or null before
/// the first load and when the chosen catalogue could not be opened.
vector* first_message_table();

/// Applies the promotion rules, then the top control table, to an entry taken from the catalogue.
void apply_message_rules(msg_entry& entry);

/// The warning level below which warnings are not shown.
std::int32_t current_warn_threshold();

}  // namespace kv
