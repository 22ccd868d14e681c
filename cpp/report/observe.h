// What the engine says to those who watch a run for its report (--report=). Where something happens
// it says so in a line of its own:
//
//     if (observing) observe::macro_removed(sym);
//
// Without a report that is the test of a flag, and nothing of what stands in this folder is run.
// Watching changes nothing that the run does, and the fast paths stay what they are; only a number
// that #if takes from a macro's body at sight is read in the plain way, since its macro would not
// be seen.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "cpp/owned.h"
#include "cpp/report/observed.h"
#include "cpp/text16.h"

namespace kv::cpp {

struct call_arguments;
struct source_file;
struct symbol;

/// Whether the run is watched. The functions of observe:: are called only while it is.
inline constinit owned<bool, struct watch_switch> observing{false};

namespace observe {

/// Begins to watch, with the options read and before anything of the input is: notes the command
/// line and the macros that are defined already.
void begin(std::vector<std::string> command, const char* input_name);

/// Ends it; `complete` tells that all input has been read. The result lives until the process ends.
const observed_run& end(int status, bool complete);

// ---- Files.

/// The file frame on top was pushed.
void file_pushed(const source_file* file, const char* path);
/// The file frame on top is about to be removed.
void file_ended();
/// A header need not be read, since its include guard is defined.
void file_spared(const char* path);
/// The next header is named in quotes, or in angle brackets.
void include_named(bool quoted);
/// `n` bytes of a file have been read, from the system or from memory.
void block_read(const source_file* file, const unsigned char* bytes, std::size_t n);

// ---- Time.

/// A line of text begins in the nearest file.
void text_line();
/// What follows is control lines and empty ones, up to the next line of text.
void directives();

/// While it exists and the run is watched, time goes into `phase`.
class timed {
 public:
  explicit timed(run_phase phase) : on_(observing) {
    if (on_) [[unlikely]]
      before_ = enter(phase);
  }
  ~timed() {
    if (on_) [[unlikely]]
      enter(before_);
  }
  timed(const timed&) = delete;
  timed& operator=(const timed&) = delete;

 private:
  static run_phase enter(run_phase phase);  // returns the one until now

  bool on_;
  run_phase before_ = {};
};

// ---- Macros.

/// A #define was carried out; `params` are the names of the parameters.
void macro_defined(const symbol* sym, std::vector<std::string> params);
/// A macro is about to leave the table.
void macro_removed(const symbol* sym);

/// #ifdef, #ifndef or `defined` asked for `name`.
void name_tested(std::string_view name, bool is_defined);
template <class Unit>
void name_tested(const Unit* name, std::size_t len, bool is_defined) {
  name_tested(std::string(name, name + len), is_defined);
}
/// `name` is no macro and counts as 0 in #if.
void name_unknown(std::string_view name);

/// The `(` of a call is looked for, which may lead out of the expansions in progress.
void looks_for_call();
/// It was found, and arguments follow, or there is none.
void looked_for_call(bool is_call);
/// The replacement of `sym` is the frame on top.
void replaced(const symbol* sym, const call_arguments& args);
/// What __LINE__ or __FILE__ came to is the frame on top.
void replaced_by_place(const symbol* sym);
/// The text frame on top is about to be removed.
void text_ends();

// ---- Conditions.

/// The word of a directive has been read. The rest of its line begins at `behind` in the line of
/// the file on top, without one where reading stands.
void directive_read(role what, const unsigned char* behind = nullptr);
/// A conditional group was opened, in a skipped one if it is not `live`.
void group_opened(bool live);
/// The expression or the name of the directive is read next.
void condition_begins();
/// It is not there.
void condition_missing();
/// Whether the text behind #if, #elif, #ifdef or #ifndef is compiled.
void branch_decided(bool taken);
/// #else was read; compiling() says what comes of it.
void else_entered();
void group_closed();
/// The evaluator takes an operand, or an operator by its name in messages.
void operand_seen(std::uint32_t value, bool is_signed);
void operator_seen(std::string_view name);

}  // namespace observe
}  // namespace kv::cpp
