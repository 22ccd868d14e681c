// The message system: every diagnostic of the toolchain is a numbered entry of a catalogue.
//
// A caller names the number and passes the arguments of the entry's text. The catalogue says what
// kind of message it is (fatal error, error, warning with a level, plain message) and how it reads;
// the rules of the --Werror family and the control tables may change the kind; the line then leaves
// on standard error in one of three layouts. A fatal message, or one error too many, ends the run.
//
// Three things would surprise a reader:
//  - Texts and layout templates come from files and from the environment, so they are data that
//    nobody vouches for. Arguments travel with their types (format_arg) and the C library's printf
//    never sees a text.
//  - The catalogue is searched for and parsed by the first operation that looks a number up, not at
//    start-up: a run without a message does not pay for the message system.
//  - The system knows nothing of the preprocessor. Position, echo of the source line and the way
//  out
//    of the process are hooks that the application installs.
//
// The module is single-threaded and its two text buffers are static, so a hook must not report.

#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "common/format.h"

namespace kv {

struct vector;

// ---------------------------------------------------------------------------------------------
// The catalogue.

/// What a catalogue entry is. ALERT_NONE stands for a type field that could not be read;
/// ALERT_SUPPRESSED occurs only in the result of alert_lookup.
enum alert_type : std::int32_t {
  ALERT_NONE = 0,
  ALERT_FATAL = 1,
  ALERT_MESSAGE = 2,
  ALERT_ERROR = 3,
  ALERT_WARNING = 4,
  ALERT_SUPPRESSED = 5,
};

/// One catalogue entry. `text` is a printf-like template that lives until exit; `level` counts only
/// for ALERT_WARNING.
struct msg_entry {
  alert_type type;
  std::uint32_t number;
  const char* text;
  std::int32_t level;
};

/// The numbers that the built-in catalogue calls fatal, in its order. They stay fatal whatever a
/// message file calls them: what follows their reports relies on it.
inline constexpr std::uint32_t fatal_messages[] = {5,   141, 144,  146,  147,  148, 149,
                                                   150, 151, 152,  153,  155,  156, 158,
                                                   159, 296, 1448, 1449, 1503, 2082};

constexpr bool is_fatal_message(std::uint32_t number) {
  return std::ranges::binary_search(fatal_messages, number);
}

void number_is_no_fatal_message();  // what the compiler then says

/// One of fatal_messages. Another number does not compile.
class fatal_number {
 public:
  consteval fatal_number(std::uint32_t number) : value_(number) {  // NOLINT(*-explicit-*)
    if (!is_fatal_message(number)) number_is_no_fatal_message();
  }
  constexpr operator std::uint32_t() const { return value_; }  // NOLINT(*-explicit-*)

 private:
  std::uint32_t value_;
};

/// The language id that the message system always asks for; it reads as English.
inline constexpr int ALERT_LANGUAGE = 255;

/// Reads the three layout templates from the environment (or takes their defaults), then searches
/// and loads the catalogue, unless that has happened already. Every operation below calls what it
/// needs of it, so a call is only wanted to force the load. Prints message 3 for each malformed
/// line.
void alert_init();

/// Returns the two-letter code of a language id (7 "de", 9 "en", 12 "fr", everything else "en").
const char* msg_lang_code(int language);

/// Returns the path of the catalogue to load for a language: the newest of the built-in catalogue
/// and the message files in the installation's `dat` directory, else in `..\dat` beside the
/// program, else in the current directory. The built-in catalogue goes by its name alone.
std::string msg_filename(int language);

/// Appends the message files in `directory`, regular files or links to one, to `list`, a vector of
/// interned strings (const char*), and returns how many there were. A null directory or list, or a
/// directory that does not exist, gives 0.
unsigned findMsgFiles(const char* directory, int language, vector* list);

/// Returns the number that leads the base name of `name`: the version of a message file, 0 without
/// one.
std::uint64_t getMsgFileVersion(std::string_view name);

/// Returns the name under which the built-in catalogue takes part in the choice of a message file.
const char* builtin_catalogue_name();

/// Loads a message file, or the built-in catalogue when `path` is its name, and makes it the source
/// of the texts; the first table ever loaded also fixes types and levels, and that may be this one,
/// as nothing is loaded before it. Returns the table (a vector of const msg_entry*, indexed by
/// number; owned by the message system), or null, with nothing changed, when there is no such
/// regular file or it cannot be opened. Prints message 3 for each malformed line, of which the
/// twentieth is the last line that is read.
vector* alert_load_msgs(const char* path);

/// Takes up the message file `path` unless it is older than the one in use. Returns false when the
/// file does not exist, is no regular file or cannot be loaded, else true.
bool open_edf(const char* path);

/// open_edf for the best message file of a directory. Returns false when there is no such
/// directory, true when it holds no message file.
bool open_edf_dir(const char* directory);

/// Returns the effective entry of a number: type and level of the first table, text of the latest,
/// then changed by the promotion rules and by the control table. A number without an entry gives an
/// ALERT_ERROR with a fixed text. The fatal_messages are ALERT_FATAL in any case.
msg_entry alert_lookup(std::uint32_t number);

// ---------------------------------------------------------------------------------------------
// Settings.

/// Sets the error, warning and message template of the template layout: for each the environment
/// variable (LVX_ERR_FORMAT, LVX_WARN_FORMAT, LVX_MSG_FORMAT) if set, else the argument (copied),
/// else the default when the argument is null.
void alert_set_formats(const char* error, const char* warning, const char* message);

/// Chooses the layout: non-zero the templates, zero the classic one with its caret display.
void alert_use_formats(int flag);

/// Chooses the layout of the GNU compilers, `file:line:column: error: text [number]`, which editors
/// and build servers read. The column counts from 1; without a file "cpp" stands in its place.
void alert_use_gcc_layout();

/// Sets the threshold below which a warning's level hides it. Returns the previous one.
int alert_set_warnlevel(int level);

/// Non-zero: a shown warning makes alert_failed() true.
void alert_set_warnfail(int flag);

/// Sets the number of errors that may be printed (a negative one means any number) and returns the
/// previous limit, 20 at first.
int set_maxerrors(int limit);

/// Installs the function that runs before a message is built; it calls alert_set_position. Null:
/// none.
void alert_set_prehook(void (*hook)());

/// Installs the function that shows a source line above the classic layout's caret: it gets the
/// start of the line and the file name (null when there is none). Null: none.
void alert_set_echo(void (*echo)(const char16_t* line, const char16_t* file));

/// Installs the function that follows up an error or a warning in the layout of the GNU compilers,
/// with lines of its own by alert_printf. Null: none.
void alert_set_notes(void (*notes)());

/// A message that has been put together, for those who keep a record of them.
struct alert_report {
  alert_type type;
  std::uint32_t number;   ///< 0: it has none
  const char16_t* file;   ///< null: no place
  std::uint32_t line;     ///< 0: not known
  std::string_view text;  ///< without its number
};

/// Installs the function that is told of each message that is shown, before it is written. Null:
/// none.
void alert_set_listener(void (*listener)(const alert_report& report));

/// Installs the function that ends the run; it must not return. Null: std::exit.
void alert_set_exit(void (*leave)(int status));

/// Ends the run through that function.
[[noreturn]] void alert_leave(int status);

/// Stores where reading stands. `file` is copied by reference and must stay valid until the next
/// call; null or empty means no file. The three addresses (of the line number, of the pointer to
/// the start of the current line, of the pointer to the read cursor in it) may be null and are read
/// when a message is printed.
void alert_set_position(const char16_t* file, const unsigned* line_at,
                        const char16_t* const* linestart_at, const char16_t* const* cursor_at);

/// True when an error was counted.
bool alert_has_errors();

/// True when an error was counted, or a shown warning while warnings fail the run.
bool alert_failed();

// ---------------------------------------------------------------------------------------------
// Reporting. Each report may end the run (fatal message, error limit) through the exit hook.

/// The core of alert_msg. Returns true when the message was shown, false when it was dropped.
bool alert_vmsg(std::uint32_t number, std::span<const format_arg> args);

/// The cores of the variadic reports below, with the same results.
bool alert_vmsg_noline(std::uint32_t number, std::span<const format_arg> args);
bool alert_vmsg_nopos(std::uint32_t number, std::span<const format_arg> args);
void alert_vmsg_once(std::uint32_t number, std::span<const format_arg> args);
bool alert_vraw(std::uint32_t number, const char* type, const char* text,
                std::span<const format_arg> args);
bool alert_vtyped(const char* type, const char* text, std::span<const format_arg> args);
void alert_vprintf(const char* text, std::span<const format_arg> args);

/// An 8-bit copy of internal text for message arguments: each unit's low byte, up to the ending
/// zero. Null reads "(null)".
std::string alert_str(const char16_t* text16);

/// Reports message `number`. The arguments (integers, C strings, std::string) are those of the
/// catalogue text; one that does not fit its conversion is harmless.
template <formattable... Args>
void alert_msg(std::uint32_t number, const Args&... args) {
  alert_vmsg(number, format_args(args...));
}

/// As alert_msg, for the sites that cannot go on.
template <formattable... Args>
[[noreturn]] void alert_msg_fatal(fatal_number number, const Args&... args) {
  alert_vmsg(number, format_args(args...));
  alert_leave(1);
}

/// As alert_msg, with "Non line specific message" in place of file and line.
template <formattable... Args>
void alert_msg_noline(std::uint32_t number, const Args&... args) {
  alert_vmsg_noline(number, format_args(args...));
}

/// As alert_msg, without any position.
template <formattable... Args>
void alert_msg_nopos(std::uint32_t number, const Args&... args) {
  alert_vmsg_nopos(number, format_args(args...));
}

/// As alert_msg, but only the first time for this number, file and line.
template <formattable... Args>
void alert_msg_once(std::uint32_t number, const Args&... args) {
  alert_vmsg_once(number, format_args(args...));
}

/// Reports a text of the caller's own under `number`, past the catalogue, its rules and the
/// position hook. `type` is a catalogue type field: "F", "E", "M" or a warning level. True when
/// shown.
template <formattable... Args>
bool alert_raw(std::uint32_t number, const char* type, const char* text, const Args&... args) {
  return alert_vraw(number, type, text, format_args(args...));
}

/// alert_raw with number 0, at the current position.
template <formattable... Args>
bool alert_typed(const char* type, const char* text, const Args&... args) {
  return alert_vtyped(type, text, format_args(args...));
}

/// Writes one plain line; a newline is added to the text.
template <formattable... Args>
void alert_printf(const char* text, const Args&... args) {
  alert_vprintf(text, format_args(args...));
}

/// Reports message 296 and comes back. Nothing is looked up or loaded for it, as memory has run
/// out: its text is that of the catalogue in use, if there is one already, else the built-in one.
/// alloc_failed is the only caller.
void alert_no_memory();

/// Reports message 5 with the program's name and `code`, and ends the run with status 1.
[[noreturn]] void alert_fatal(int code);

// ---------------------------------------------------------------------------------------------
// Promotion and control.

/// The operations of alert_set_action. 0 to 5 are also the values that a control table holds.
enum alert_action : int {
  ALERT_ACTION_DEFAULT = 0,   ///< leave the message as it is
  ALERT_ACTION_DISABLE = 1,   ///< hide a plain message or a warning
  ALERT_ACTION_SUPPRESS = 2,  ///< hide all but a fatal error
  ALERT_ACTION_DEMOTE = 3,    ///< an error becomes a warning that is shown
  ALERT_ACTION_PROMOTE = 4,   ///< a warning becomes an error
  ALERT_ACTION_OFF = 5,       ///< as ALERT_ACTION_SUPPRESS
  ALERT_ACTION_PUSH = 6,      ///< save a copy of the control table
  ALERT_ACTION_POP = 7,       ///< go back to the saved one
  ALERT_ACTION_DISABLE_ALL = 8,
  ALERT_ACTION_SUPPRESS_ALL = 9,
  ALERT_ACTION_CLEAR = 10,
};

/// Applies one control operation; `number` counts for 0 to 5 only. Other actions do nothing.
void alert_set_action(std::uint32_t number, int action);

/// Applies a list "111,137:off": each number is disabled, or suppressed with ":off". A list that
/// begins with '0' disables every message and warning. Null and "" do nothing.
void alert_msgdisable(const char* list);

/// True when `text` is --Werror or --Wno-error, alone or with '=' and more (any number of dashes,
/// any case). Null is none.
bool werr_isOption(const char* text);

/// Applies such an option; other texts do nothing. A bad message number is reported as message 1606
/// unless `quiet` is non-zero.
void werr_setOption(const char* text, int quiet);

}  // namespace kv
