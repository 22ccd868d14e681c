// A trace operation builds a whole line in memory and writes it with one call, so nothing has to be
// flushed.
#include "common/trace.h"

#include <algorithm>
#include <climits>
#include <limits>
#include <string>

#include "common/alert.h"

namespace kv {

std::uint32_t gDebugFlags = 0;
std::uint32_t gAssertLevel = 0;
constinit out_file gFile("debug-out");

namespace {

std::uint32_t gIndentLevel = 0;  // functions entered and not yet left
std::uint32_t gIndentCols = 0;   // gIndentLevel * gIndentStep
constexpr std::uint32_t gIndentStep = 4;
constexpr int gTraceWidth = 20;  // columns of the location

void write_trace(std::string_view text) {
  gFile.write(text);
}

std::string_view last_component(std::string_view path) {
  return path.substr(path.find_last_of("\\/:") + 1);
}

std::string prefix(const char* file, unsigned line) {
  const std::string location = format_string("%s:%d", last_component(file), line);
  const int columns = static_cast<int>(std::min<std::uint32_t>(gIndentCols, INT_MAX));
  return format_string("%-*s> %*s", gTraceWidth, location, columns, "");
}

// Writes each line of the text with its prefix; `format` makes the first one of its source.
// Returns false when there is no line.
template <class Format>
bool write_located(const char* file, unsigned line, std::string_view text, Format format) {
  const std::string lead = prefix(file, line);
  std::string result;
  for (std::size_t begin = text.find_first_not_of('\n'); begin != std::string_view::npos;) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    const std::string_view source = text.substr(begin, end - begin);
    if (result.empty()) {
      result = lead + format(source);
    } else {
      result.append(lead).append(source);
    }
    result += '\n';
    begin = text.find_first_not_of('\n', end);
  }
  write_trace(result);
  return !result.empty();
}

void indent() {
  constexpr std::uint32_t most = std::numeric_limits<std::uint32_t>::max();
  if (gIndentLevel == most) {
    db_warning("max debug-out indent level readched");
  } else {
    ++gIndentLevel;
  }
  gIndentCols = gIndentCols > most - gIndentStep ? most : gIndentCols + gIndentStep;
}

void outdent() {
  if (gIndentLevel == 0) {
    db_warning("min debug-out indent level reached");
  } else {
    --gIndentLevel;
  }
  gIndentCols -= std::min(gIndentCols, gIndentStep);
}

}  // namespace

void db_vprintf(std::string_view text, std::span<const format_arg> args) {
  if (db_is_open()) write_trace(format_string(text, args) + "\n");
}

void db_puts(std::string_view text) {
  if (db_is_open()) write_trace(std::string(text) + "\n");
}

void db_vtracef(const char* file, unsigned line, const char* text,
                std::span<const format_arg> args) {
  if (!db_is_open()) return;
  const auto format = [args](std::string_view source) { return format_string(source, args); };
  if (!write_located(file, line, text ? text : "", format)) {
    db_warning("tracef (at %s:%d) contains no lines", file, line);
  }
}

void db_trace(const char* file, unsigned line, const char* text) {
  if (!db_is_open()) return;
  const auto copy = [](std::string_view source) { return std::string(source); };
  if (!write_located(file, line, text ? text : "", copy)) {
    db_warning("trace (at %s:%d) contains no lines", file, line);
  }
}

void db_venter(const char* file, unsigned line, const char* func, const char* text,
               std::span<const format_arg> args) {
  if (!db_is_open()) return;
  write_trace(prefix(file, line) +
              format_string("ENTER %s(%s)\n", func, text ? format_string(text, args) : ""));
  indent();
}

void db_vexit(const char* file, unsigned line, const char* func, const char* text,
              std::span<const format_arg> args) {
  if (!db_is_open()) return;
  outdent();
  write_trace(prefix(file, line) + format_string("EXIT %s()%s%s\n", func, text ? " -> " : "",
                                                 text ? format_string(text, args) : ""));
}

void db_vwarning(std::string_view text, std::span<const format_arg> args) {
  alert_printf("%s", "KVDEBUG (warning): " + format_string(text, args));
}

void db_alert(std::string_view text) {
  if (!db_is_open()) return;
  // In two pieces, because the line may say that there is no memory to join them in.
  write_trace("ALERT> ");
  write_trace(text);
}

void db_assert(const char* expr, const char* file, unsigned line) {
  // The report itself uses the containers whose checks end up here.
  static bool reporting = false;
  if (!db_asserts_on() || reporting) return;
  reporting = true;
  alert_msg_noline(1504 - gAssertLevel, expr, file, line);
  reporting = false;
}

}  // namespace kv
