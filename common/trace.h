// The lines of the trace file, and the consistency checks.
//
// Without --kvdebug= no trace file exists and every operation here costs one inline test. Each
// operation writes whole lines at once, so the trace is complete up to the point where a run dies.
//
// A trace point reads `if (db_tracing(db_general)) db_tracef(__FILE__, __LINE__, "...", ...)`, a
// check `if (db_asserts_on() && !(size != 0)) db_assert("size != 0", __FILE__, __LINE__)`.

#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "common/format.h"
#include "common/outfile.h"

namespace kv {

/// Bits of `gDebugFlags` that have an effect. Any bit opens the trace file.
inline constexpr std::uint32_t db_general = 1;  ///< the library's general trace points
inline constexpr std::uint32_t db_alerts = 8;   ///< every diagnostic line is copied to the trace
inline constexpr std::uint32_t db_adt = 16;     ///< statistics of the containers

extern std::uint32_t gDebugFlags;   ///< union of the bits of the items given
extern std::uint32_t gAssertLevel;  ///< failed checks: 0 ignore, 1 fatal, 2 error, 3 warning
extern out_file gFile;              ///< the trace file; not open while there is none

/// Whether one of the given flag bits is on.
inline bool db_tracing(std::uint32_t flags) {
  return (gDebugFlags & flags) != 0;
}

/// Whether consistency checks are to be made.
inline bool db_asserts_on() {
  return gAssertLevel != 0;
}

/// Whether a trace file is open.
inline bool db_is_open() {
  return gFile.is_open();
}

/// A plain trace line with the text as it is.
void db_puts(std::string_view text);

/// Located trace lines, one for each line of the text; `file` is shown by its last component.
void db_trace(const char* file, unsigned line, const char* text);

/// The copy of one diagnostic line, which ends with its newline.
void db_alert(std::string_view text);

/// Reports a failed check as message 1503 (fatal), 1502 or 1501 by `gAssertLevel`; nothing at 0.
void db_assert(const char* expr, const char* file, unsigned line);

void db_vprintf(std::string_view text, std::span<const format_arg> args);
void db_vtracef(const char* file, unsigned line, const char* text,
                std::span<const format_arg> args);
void db_venter(const char* file, unsigned line, const char* func, const char* text,
               std::span<const format_arg> args);
void db_vexit(const char* file, unsigned line, const char* func, const char* text,
              std::span<const format_arg> args);
void db_vwarning(std::string_view text, std::span<const format_arg> args);

/// A plain trace line with the formatted text.
template <formattable... A>
void db_printf(std::string_view text, const A&... args) {
  if (db_is_open()) db_vprintf(text, format_args(args...));
}

/// Located trace lines; the first line of the text is formatted with the arguments, the others are
/// written as they are.
template <formattable... A>
void db_tracef(const char* file, unsigned line, const char* text, const A&... args) {
  if (db_is_open()) db_vtracef(file, line, text, format_args(args...));
}

/// The entry of function `func`; `text` formats its arguments and may be null. Indents what
/// follows.
template <formattable... A>
void db_enter(const char* file, unsigned line, const char* func, const char* text,
              const A&... args) {
  if (db_is_open()) db_venter(file, line, func, text, format_args(args...));
}

/// The exit of function `func`; `text` formats its result and may be null. Undoes the indentation.
template <formattable... A>
void db_exit(const char* file, unsigned line, const char* func, const char* text,
             const A&... args) {
  if (db_is_open()) db_vexit(file, line, func, text, format_args(args...));
}

/// A warning of the option itself, one plain line on standard error.
template <formattable... A>
void db_warning(std::string_view text, const A&... args) {
  db_vwarning(text, format_args(args...));
}

}  // namespace kv
