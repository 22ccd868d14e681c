// What a run was seen to do, as records that refer to one another by number. The modules beside
// this one fill them, json.cc writes them; docs/report.md says what each field means to those who
// read it.
//
// Texts are the bytes of the source, of whatever encoding. Times are nanoseconds of a clock that
// only runs forward, sizes are bytes. A record number of -1 is none.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "cpp/directives.h"

namespace kv::cpp {

/// What a run's time goes into. A moment belongs to one of them.
enum class run_phase : std::uint8_t { reading, text, directives, expansion, output };
inline constexpr std::size_t run_phases = 5;

/// Records of one kind, the first `limit` of them, by their numbers.
template <class Record, std::size_t limit = std::numeric_limits<int>::max()>
struct record_list {
  std::vector<Record> all;
  std::uint64_t left_out = 0;  ///< those beyond the limit

  /// Returns the number of the new record, or -1 where it is left out.
  int add(Record record) {
    if (all.size() == limit) {
      ++left_out;
      return -1;
    }
    all.push_back(std::move(record));
    return static_cast<int>(all.size()) - 1;
  }
  Record& operator[](int number) { return all[static_cast<std::size_t>(number)]; }
  const Record& operator[](int number) const { return all[static_cast<std::size_t>(number)]; }
};

/// The state of a module of the report, made when it is asked for first; it lives until the process
/// ends. It needs no heap: a run that is out of memory asks for the state on its way out.
template <class State>
State& the() {
  alignas(State) static constinit std::byte room[sizeof(State)] = {};
  static State& state = *new (room) State;
  return state;
}

/// What is kept at most, beside the records that observed_run counts.
struct observed_limits {
  static constexpr std::size_t changes = 50;   ///< of one macro
  static constexpr std::size_t places = 1000;  ///< where one header is included
  static constexpr std::size_t calls_shown = 300;
  static constexpr std::size_t steps = 60;   ///< of one call
  static constexpr std::size_t text = 1000;  ///< bytes of a text of calls and conditions
};

/// `text` as it is kept in calls and conditions.
inline std::string kept_text(std::string text) {
  if (text.size() > observed_limits::text) text.replace(observed_limits::text, text.npos, "...");
  return text;
}

struct source_place {
  int file = -1;
  int line = 0;
};

/// A place that includes a header, and how often.
struct include_place {
  source_place at;
  std::uint32_t reads = 0;
  std::uint32_t spared = 0;
};

struct observed_file {
  std::string path;
  bool own = false;         ///< the input, or a header that one of its own files names in "..."
  bool has_text = false;    ///< a line of text stood in it
  bool macro_used = false;  ///< a macro that it defines was expanded or tested elsewhere
  bool has_effect = false;  ///< the same for it or for anything that it includes
  std::uint64_t bytes = 0;  ///< read, over all times
  std::uint64_t lines = 0;
  std::uint32_t reads = 0;
  std::uint32_t spared = 0;
  std::uint64_t self_ns = 0;
  std::uint64_t total_ns = 0;     ///< with what it includes; an inclusion within itself counts once
  std::uint64_t self_output = 0;  ///< bytes written while it was read
  std::uint64_t total_output = 0;  ///< with what it includes
  std::vector<include_place> places;
  std::uint32_t open = 0;  ///< inclusions that are being read
};

/// One inclusion, in the order in which they happened; the input is the first.
struct inclusion {
  int file = -1;
  int parent = -1;
  int line = 0;  ///< of the #include
  bool spared = false;
  std::uint64_t self_ns = 0;
  std::uint64_t total_ns = 0;
  std::uint64_t output = 0;  ///< with what it includes
};

enum class macro_origin : std::uint8_t { startup, command_line, file, none };
enum class macro_change_kind : std::uint8_t { defined, redefined, undefined };

struct macro_change {
  macro_change_kind kind;
  source_place at;
};

struct observed_macro {
  std::string name;
  int nargs = -1;  ///< as symbol has it
  std::vector<std::string> params;
  std::u16string body;  ///< encoded
  macro_origin origin = macro_origin::none;
  bool defined = false;     ///< now
  int defined_in = -1;      ///< the file of its definition now
  bool is_dynamic = false;  ///< __LINE__ and __FILE__
  source_place at;          ///< where it was defined first
  std::uint64_t expanded = 0;
  std::uint64_t tested_if = 0;     ///< in #if and #elif, `defined` included
  std::uint64_t tested_ifdef = 0;  ///< by #ifdef and #ifndef
  std::uint64_t same_again = 0;    ///< defined again as it was
  std::uint64_t redefined = 0;
  std::uint64_t undefined = 0;
  std::vector<macro_change> changes;
};

/// One replacement within a call.
struct call_step {
  int macro = -1;
  int depth = 1;  ///< 1 for the call itself
  std::vector<std::string> args;
  std::string text;  ///< behind `#` and `##`, the arguments put in
};

struct observed_call {
  int macro = -1;
  source_place at;  ///< of the first one
  bool own = false;
  bool has_result = false;
  bool cut = false;  ///< there were more steps
  std::uint64_t count = 0;
  std::vector<call_step> steps;
  std::string result;
};

enum class condition_state : std::uint8_t { undecided, taken, not_taken, not_looked_at };

/// What a name of a condition came to.
struct condition_name {
  std::string text;   ///< the name, or the call
  std::string value;  ///< what it came to
  bool is_defined_test = false;
};

struct observed_condition {
  source_place at;
  int group = -1;  ///< the number of the condition that opened the group
  int depth = 0;
  role directive = role::opens_if;  ///< one of the first five
  condition_state state = condition_state::undecided;
  std::string text;       ///< as it was written
  std::string evaluated;  ///< as the evaluator saw it
  record_list<condition_name> names;
};

enum class message_kind : std::uint8_t { fatal, error, warning, message };
inline constexpr std::size_t message_kinds = 4;

struct observed_message {
  message_kind kind;
  std::uint32_t number;
  std::string file;
  std::uint32_t line;
  std::string text;
};

struct observed_run {
  std::vector<std::string> command;
  std::string directory;
  std::string input;
  std::int64_t started = 0;  ///< seconds since 1970, UTC
  int status = 0;
  bool complete = false;  ///< all input was read
  std::uint64_t total_ns = 0;
  std::array<std::uint64_t, run_phases> phase_ns{};
  std::uint64_t bytes_read = 0;
  std::uint64_t bytes_written = 0;
  std::uint64_t expansions = 0;
  std::array<std::uint64_t, message_kinds> messages_by_kind{};

  record_list<observed_file> files;
  record_list<inclusion, 20000> inclusions;
  record_list<observed_macro, 100000> macros;
  record_list<observed_call, 2000> calls;  ///< of those left out each time counts
  record_list<observed_condition, 20000> conditions;
  record_list<observed_message, 5000> messages;
};

}  // namespace kv::cpp
