// From a message number and its arguments to one line on standard error.
//
// Every report goes the same way: save errno, find out what kind of message it is, let the hook say
// where reading stands, count, format the text, lay the line out, write it, and perhaps end the
// run. The catalogue's reports (alert_vmsg) and the callers' own texts (alert_raw, alert_typed)
// differ in where the kind comes from and share the rest.
//
// The text is formatted in two steps because "%m" is no printf conversion: a first walk puts the
// description of the saved errno in its place, a second one fills in the arguments. All text lives
// in two fixed buffers and is cut at their ends. A message must come out when memory is short, and
// a message file must not be able to ask for more of it.
//
// Three layouts share all that; each is a record of what is its own. The classic one puts the text
// next to a caret under the offending column: behind the caret, or, when the text fits to its left,
// before it.

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <concepts>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <utility>

#include "common/alert.h"
#include "common/alert_internal.h"
#include "common/alloc.h"
#include "common/format.h"
#include "common/hash.h"
#include "common/kvdebug.h"
#include "common/osdep.h"
#include "common/outfile.h"
#include "common/strbuild.h"
#include "common/text_hash.h"
#include "host/host.h"

namespace kv {
namespace {

constexpr std::size_t text_limit = 510;    // prefix and text of one message
constexpr std::size_t work_limit = 511;    // catalogue text with %m filled in
constexpr std::size_t line_limit = 8191;   // one output line, newline included
constexpr std::size_t plain_limit = 8190;  // the text of alert_printf
constexpr std::int32_t default_level = 10;
constexpr std::uint32_t once_buckets = 199;

// ---------------------------------------------------------------------------------------------
// State.

// Where reading stands. The addresses belong to the reader and are read when a line is laid out.
struct position {
  const char16_t* file = nullptr;  // never an empty name
  const unsigned* line = nullptr;
  const char16_t* const* line_start = nullptr;
  const char16_t* const* cursor = nullptr;
};

// How a report is laid out.
struct layout {
  bool number_before_text;  // "(103) " leads the text of errors and warnings
  bool has_notes;           // errors and warnings are followed by the notes of the application
  void (*lay_out)(alert_type type, std::uint32_t number);
};
extern const layout classic_layout;
extern const layout template_layout;
extern const layout gcc_layout;

// All that decides how a report looks and whether it is shown, beside the message itself.
struct settings {
  const layout* looks = &classic_layout;
  std::int32_t warn_threshold = 0;
  bool no_line = false;  // set for the length of one report
  bool no_file = false;  // the same
  position where;
};

struct hooks {
  void (*before)() = nullptr;
  void (*echo)(const char16_t* line, const char16_t* file) = nullptr;
  void (*notes)() = nullptr;
  void (*listener)(const alert_report& report) = nullptr;
  void (*leave)(int status) = nullptr;
};

constinit settings now;
constinit settings at_start;  // `now`, without a position, when the message system was first used
constinit bool started = false;
constinit hooks installed;

constinit std::uint32_t error_count = 0;  // includes the one that goes over the limit
constinit std::uint32_t warning_count = 0;
constinit std::int32_t max_errors_limit = 20;
constinit bool warnfail = false;
constinit int saved_errno = 0;  // of the report under way

constinit hash_table* once_table = nullptr;

enum branch { error_branch, warning_branch, message_branch };

// The templates, by branch. `text` is "%s" until the message system starts, later an owned copy.
struct layout_template {
  const char* variable;
  const char* fallback;
  char* text;
};
constinit layout_template templates[] = {
    {"LVX_ERR_FORMAT", "%f: %l: (%n) %s (error)", nullptr},
    {"LVX_WARN_FORMAT", "%f: %l: (%n) %s (warning)", nullptr},
    {"LVX_MSG_FORMAT", "%f: %l: %s", nullptr},
};

// The output line being built; an append past its end is cut.
struct line_buffer {
  std::size_t length = 0;
  char text[line_limit + 1] = {};

  void append(char c) {
    if (length < line_limit) text[length++] = c;
  }
  void append(std::string_view s) {
    const std::size_t n = std::min(s.size(), line_limit - length);
    std::memcpy(text + length, s.data(), n);
    length += n;
  }
  void append(const char16_t* s) {
    for (; *s != 0; ++s) append(static_cast<char>(*s & 0xFF));
  }
  template <std::integral Number>
  void append_number(Number n) {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, n).ptr;
    append(std::string_view(digits, static_cast<std::size_t>(end - digits)));
  }
  void pad(std::size_t blanks) {
    for (blanks = std::min(blanks, line_limit); blanks > 0; --blanks) append(' ');
  }
};
constinit line_buffer line_buf;
constinit char text_buf[text_limit + 2] = {};

// ---------------------------------------------------------------------------------------------
// Kinds of message.

branch branch_of(alert_type type) {
  switch (type) {
    case ALERT_FATAL:
    case ALERT_ERROR: return error_branch;
    case ALERT_MESSAGE: return message_branch;
    default: return warning_branch;
  }
}

// A type string decoded: the catalogue's types, with a level for every one of them.
struct typed_kind {
  alert_type type;
  std::int32_t level;
};

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

typed_kind kind_of(const char* type) {
  typed_kind kind{ALERT_WARNING, default_level};
  if (is_digit(type[0]) || (type[0] == '-' && is_digit(type[1]))) kind.level = parse_level(type);
  switch (type[0] | 0x20) {
    case 'f': kind.type = ALERT_FATAL; break;
    case 'e': kind.type = ALERT_ERROR; break;
    case 'm': kind.type = ALERT_MESSAGE; break;
    default: break;
  }
  return kind;
}

// Counts an error and ends the run when it is one too many. A negative limit is a huge one.
void count_error() {
  const std::uint32_t before = error_count++;
  if (before < static_cast<std::uint32_t>(max_errors_limit)) return;
  alert_raw(1, "M", "too many errors (%u)", error_count);
  alert_leave(1);
}

// ---------------------------------------------------------------------------------------------
// Formatting the text.

// Copies `text` to `out` (work_limit + 1 bytes) with the description of the saved errno for each
// "%m"; every other '%' takes the character after it along, so that "%%m" stays what it is. A '%'
// in a description is doubled: the result is a format.
void expand_errno(const char* text, char* out) {
  std::size_t length = 0;
  const auto put = [&](char c) {
    if (length < work_limit) out[length++] = c;
  };
  while (*text != 0 && length < work_limit) {
    const char c = *text++;
    if (c != '%' || *text != 'm') {
      put(c);
      if (c == '%' && *text != 0) put(*text++);
      continue;
    }
    ++text;
    if (saved_errno == 0) continue;
    for (const char d : std::string_view(host::error_text(saved_errno))) {
      put(d);
      if (d == '%') put(d);
    }
  }
  out[length] = 0;
}

// Fills text_buf with the message text, in the classic layout with its number before it. Returns
// how much of it is that.
std::size_t format_message(branch kind, std::uint32_t number, const char* text,
                           std::span<const format_arg> args) {
  std::size_t prefix = 0;
  if (now.looks->number_before_text && kind != message_branch)
    prefix = format_text(text_buf, sizeof text_buf, "(%u) ", number);
  char work[work_limit + 1];
  expand_errno(text, work);
  format_text(text_buf + prefix, text_limit - prefix + 1, work, args);
  return prefix;
}

// ---------------------------------------------------------------------------------------------
// Writing the line.

void write_line() {
  line_buf.length = std::min(line_buf.length, line_limit - 1);
  line_buf.append('\n');
  const std::string_view line(line_buf.text, line_buf.length);
  if (db_tracing(db_alerts)) db_alert(line);
  write_error_text(line);
}

// Units from the start of the current line to the cursor, when both are known.
bool cursor_offset(std::ptrdiff_t& offset) {
  if (!now.where.cursor || !now.where.line_start) return false;
  const char16_t* cursor = *now.where.cursor;
  const char16_t* start = *now.where.line_start;
  if (!cursor || !start) return false;
  // The two may be in different buffers, between which no pointer difference exists.
  const auto bytes =
      reinterpret_cast<std::intptr_t>(cursor) - reinterpret_cast<std::intptr_t>(start);
  offset = bytes / static_cast<std::ptrdiff_t>(sizeof(char16_t));
  return true;
}

// ---------------------------------------------------------------------------------------------
// The template layout.

void append_file() {
  if (now.no_line)
    line_buf.append("Non line specific message");
  else if (now.where.file)
    line_buf.append(now.where.file);
}

void append_line_number() {
  if (!now.no_line && now.where.line && now.where.file) line_buf.append_number(*now.where.line);
}

void append_column() {
  std::ptrdiff_t column = 0;
  if (now.where.line && now.where.file && cursor_offset(column)) line_buf.append_number(column);
}

// A placeholder of a template. One that belongs to the position vanishes, with the ": " after it,
// from a message without position.
struct placeholder {
  char letter;
  bool of_position;
  void (*append)(std::uint32_t number);
};
constexpr placeholder placeholders[] = {
    {'s', false, [](std::uint32_t) { line_buf.append(std::string_view(text_buf)); }},
    {'n', false, [](std::uint32_t number) { line_buf.append_number(number); }},
    {'a', false, [](std::uint32_t) { line_buf.append("preprocessor"); }},
    {'m', false, [](std::uint32_t) { line_buf.append(host::error_text(saved_errno)); }},
    {'f', true, [](std::uint32_t) { append_file(); }},
    {'l', true, [](std::uint32_t) { append_line_number(); }},
    {'c', true, [](std::uint32_t) { append_column(); }},
};

// Appends what `p` (after the '%') stands for and returns where the template goes on.
const char* append_placeholder(const char* p, std::uint32_t number) {
  const char letter = *p++;
  const auto found = std::find_if(std::begin(placeholders), std::end(placeholders),
                                  [=](const placeholder& x) { return x.letter == letter; });
  if (found == std::end(placeholders)) {
    line_buf.append(letter);
  } else if (!found->of_position || !now.no_file) {
    found->append(number);
  } else if (*p == ':') {
    ++p;
    if (*p == ' ') ++p;
  }
  return p;
}

void lay_out_template(alert_type type, std::uint32_t number) {
  const branch kind = branch_of(type);
  const char* p = templates[kind].text ? templates[kind].text : "%s";
  while (*p != 0) {
    if (*p != '%') {
      line_buf.append(*p++);
    } else {
      if (p[1] == 0) break;
      p = append_placeholder(p + 1, number);
    }
  }
}

// ---------------------------------------------------------------------------------------------
// The classic layout.

// True when the cursor lies inside the current line; then `column` is the display column of the
// unit before it.
bool caret_column(std::size_t& column) {
  std::ptrdiff_t offset = 0;
  if (!cursor_offset(offset) || offset <= 0) return false;
  const char16_t* line = *now.where.line_start;
  column = 0;
  for (std::ptrdiff_t i = 0; i < offset - 1; ++i) {
    if (line[i] == 0) return false;
    column = line[i] == u'\t' ? (column / 8 + 1) * 8 : column + 1;
  }
  return line[offset - 1] != 0;
}

void append_caret_and_text(std::size_t column) {
  const std::string_view text(text_buf);
  line_buf.append('\t');
  if (text.size() + 1 >= column) {
    line_buf.pad(column);
    line_buf.append("^ ");
    line_buf.append(text);
  } else {
    line_buf.pad(column - 1 - text.size());
    line_buf.append(text);
    line_buf.append(" ^");
  }
}

void append_position_and_text() {
  if (now.where.file) {
    if (!now.no_line)
      line_buf.append(now.where.file);
    else if (!now.no_file)
      line_buf.append("Non line specific message");
    line_buf.append(": ");
  }
  if (now.where.line && !now.no_line) {
    line_buf.append_number(*now.where.line);
    line_buf.append(": ");
  }
  line_buf.append(std::string_view(text_buf));
}

void lay_out_classic(alert_type type, std::uint32_t /*number*/) {
  const branch kind = branch_of(type);
  std::size_t column = 0;
  if (kind != message_branch && caret_column(column)) {
    if (installed.echo) installed.echo(*now.where.line_start, now.where.file);
    append_caret_and_text(column);
  } else {
    append_position_and_text();
  }
  if (kind == warning_branch) line_buf.append(" (warning)");
}

// ---------------------------------------------------------------------------------------------
// The layout of the GNU compilers, which other programs can read.

void append_gcc_place() {
  if (!now.where.file || now.no_file) {
    line_buf.append("cpp");
    return;
  }
  line_buf.append(now.where.file);
  if (!now.where.line || now.no_line) return;
  line_buf.append(':');
  line_buf.append_number(*now.where.line);
  std::ptrdiff_t column = 0;
  cursor_offset(column);
  line_buf.append(':');
  line_buf.append_number(std::max<std::ptrdiff_t>(column, 1));
}

const char* gcc_kind(alert_type type) {
  switch (type) {
    case ALERT_FATAL: return "fatal error";
    case ALERT_ERROR: return "error";
    case ALERT_MESSAGE: return "note";
    default: return "warning";
  }
}

// The number goes last; a report that has none goes without.
void lay_out_gcc(alert_type type, std::uint32_t number) {
  append_gcc_place();
  line_buf.append(": ");
  line_buf.append(gcc_kind(type));
  line_buf.append(": ");
  line_buf.append(std::string_view(text_buf));
  if (number == 0) return;
  line_buf.append(" [");
  line_buf.append_number(number);
  line_buf.append(']');
}

constexpr layout classic_layout = {true, false, lay_out_classic};
constexpr layout template_layout = {false, false, lay_out_template};
constexpr layout gcc_layout = {false, true, lay_out_gcc};

// The message in text_buf, whose text begins behind `prefix` characters.
alert_report report_of(alert_type type, std::uint32_t number, std::size_t prefix) {
  const char16_t* const file = now.no_line || now.no_file ? nullptr : now.where.file;
  const std::uint32_t line = file != nullptr && now.where.line != nullptr ? *now.where.line : 0;
  return {type, number, file, line, std::string_view(text_buf).substr(prefix)};
}

void emit(alert_type type, std::uint32_t number, const char* text,
          std::span<const format_arg> args) {
  line_buf.length = 0;
  const std::size_t prefix = format_message(branch_of(type), number, text, args);
  if (installed.listener) installed.listener(report_of(type, number, prefix));
  now.looks->lay_out(type, number);
  write_line();
  if (now.looks->has_notes && type != ALERT_MESSAGE && installed.notes) installed.notes();
}

// ---------------------------------------------------------------------------------------------
// Reports.

// Sets the flags of the position variants for one report, also when the report leaves by a throw.
class position_flags {
 public:
  position_flags(bool no_line, bool no_file) {
    now.no_line = no_line;
    now.no_file = no_file;
  }
  ~position_flags() { now.no_line = now.no_file = false; }
  position_flags(const position_flags&) = delete;
  position_flags& operator=(const position_flags&) = delete;
};

bool is_hidden(const msg_entry& entry) {
  return entry.type == ALERT_SUPPRESSED ||
         (entry.type == ALERT_WARNING && entry.level < now.warn_threshold);
}

void run_prehook() {
  if (installed.before) installed.before();
}

bool report_typed(std::uint32_t number, const char* type, const char* text,
                  std::span<const format_arg> args, bool with_hook) {
  saved_errno = errno;
  const typed_kind kind = kind_of(type ? type : "");
  if (kind.type == ALERT_ERROR) count_error();
  if (now.warn_threshold > kind.level) return false;
  if (with_hook) run_prehook();
  emit(kind.type, number, text ? text : "(null)", args);
  if (kind.type == ALERT_FATAL) alert_leave(1);
  return true;
}

void set_template(layout_template& slot, const char* argument) {
  const char* value = std::getenv(slot.variable);
  if (!value) value = argument;
  if (!value) value = slot.fallback;
  char* copy = str_concat(value, "");
  std::free(slot.text);
  slot.text = copy;
}

void set_templates(const char* error, const char* warning, const char* message) {
  set_template(templates[error_branch], error);
  set_template(templates[warning_branch], warning);
  set_template(templates[message_branch], message);
}

// The part of initialisation that every run needs; the catalogue waits for its first use.
void start() {
  if (started) return;
  started = true;
  at_start.looks = now.looks;
  at_start.warn_threshold = now.warn_threshold;
  set_templates(nullptr, nullptr, nullptr);
}

// ---------------------------------------------------------------------------------------------
// Once-only reports.

struct once_key {
  std::uint32_t number;
  std::uint32_t line;
  const char16_t* file;  // never null
};

std::uint32_t once_hash(word key) {
  const auto* k = from_word<const once_key>(key);
  std::uint32_t h = 5381;
  for (const char16_t* p = k->file; *p != 0; ++p) h = h * 33 + *p;
  return (k->line << 16) ^ k->number ^ h;
}

int once_compare(word a, word b) {
  const auto* x = from_word<const once_key>(a);
  const auto* y = from_word<const once_key>(b);
  const bool equal = x->number == y->number && x->line == y->line &&
                     std::u16string_view(x->file) == std::u16string_view(y->file);
  return equal ? 0 : 1;
}

// The bytes of a key that tell it from others, for the index of the table.
std::uint32_t once_spread(word key) {
  const auto* k = from_word<const once_key>(key);
  const std::u16string_view file(k->file);
  const std::uint32_t place[] = {k->number, k->line};
  return text_hash({reinterpret_cast<const char*>(place), sizeof place}) ^
         text_hash({reinterpret_cast<const char*>(file.data()), file.size() * sizeof(char16_t)});
}

once_key* copy_key(const once_key& key) {
  const std::size_t size = (std::u16string_view(key.file).size() + 1) * sizeof(char16_t);
  void* block = checked_alloc(sizeof(once_key) + size);
  auto* file = reinterpret_cast<char16_t*>(static_cast<char*>(block) + sizeof(once_key));
  std::memcpy(file, key.file, size);
  return new (block) once_key{key.number, key.line, file};
}

}  // namespace

std::int32_t current_warn_threshold() {
  return now.warn_threshold;
}

void alert_init() {
  start();
  // The load may come late; what it has to say is said as it would have been at the start.
  const settings later = now;
  now = at_start;
  load_catalogue_once();
  now = later;
}

void alert_set_formats(const char* error, const char* warning, const char* message) {
  start();
  set_templates(error, warning, message);
}

void alert_use_formats(int flag) {
  now.looks = flag != 0 ? &template_layout : &classic_layout;
}

void alert_use_gcc_layout() {
  now.looks = &gcc_layout;
}

int alert_set_warnlevel(int level) {
  return std::exchange(now.warn_threshold, level);
}

void alert_set_warnfail(int flag) {
  warnfail = flag != 0;
}

int set_maxerrors(int limit) {
  start();
  return std::exchange(max_errors_limit, limit);
}

void alert_set_prehook(void (*hook)()) {
  installed.before = hook;
}

void alert_set_echo(void (*echo)(const char16_t* line, const char16_t* file)) {
  installed.echo = echo;
}

void alert_set_notes(void (*notes)()) {
  installed.notes = notes;
}

void alert_set_listener(void (*listener)(const alert_report& report)) {
  installed.listener = listener;
}

void alert_set_exit(void (*leave)(int status)) {
  installed.leave = leave;
}

void alert_leave(int status) {
  if (installed.leave) installed.leave(status);
  std::exit(status);
}

void alert_set_position(const char16_t* file, const unsigned* line_at,
                        const char16_t* const* linestart_at, const char16_t* const* cursor_at) {
  now.where = {file && *file != 0 ? file : nullptr, line_at, linestart_at, cursor_at};
}

bool alert_has_errors() {
  return error_count != 0;
}

bool alert_failed() {
  return alert_has_errors() || (warnfail && warning_count != 0);
}

bool alert_vmsg(std::uint32_t number, std::span<const format_arg> args) {
  const int error = errno;
  alert_init();
  const msg_entry entry = alert_lookup(number);
  saved_errno = error;
  if (is_hidden(entry)) return false;
  run_prehook();
  if (entry.type == ALERT_ERROR) count_error();
  if (entry.type == ALERT_WARNING) ++warning_count;
  emit(entry.type, entry.number, entry.text, args);
  if (entry.type == ALERT_FATAL) alert_leave(1);
  return true;
}

bool alert_vmsg_noline(std::uint32_t number, std::span<const format_arg> args) {
  const position_flags flags(true, false);
  return alert_vmsg(number, args);
}

bool alert_vmsg_nopos(std::uint32_t number, std::span<const format_arg> args) {
  const position_flags flags(true, true);
  return alert_vmsg(number, args);
}

void alert_vmsg_once(std::uint32_t number, std::span<const format_arg> args) {
  const int error = errno;
  alert_init();
  run_prehook();
  if (!once_table) {
    once_table = hash_create(once_buckets, once_hash, once_compare, __FILE__, __LINE__);
    hash_use_index(once_table, once_spread);
  }
  const once_key key{number, now.where.line ? *now.where.line : 0,
                     now.where.file ? now.where.file : u""};
  if (hash_contains(once_table, to_word(&key))) return;
  if (!is_hidden(alert_lookup(number)))
    hash_insert(once_table, to_word(copy_key(key)), 0, __FILE__, __LINE__);
  errno = error;
  alert_vmsg(number, args);
}

bool alert_vraw(std::uint32_t number, const char* type, const char* text,
                std::span<const format_arg> args) {
  return report_typed(number, type, text, args, false);
}

bool alert_vtyped(const char* type, const char* text, std::span<const format_arg> args) {
  return report_typed(0, type, text, args, true);
}

void alert_vprintf(const char* text, std::span<const format_arg> args) {
  saved_errno = errno;
  const std::size_t length =
      format_text(line_buf.text, plain_limit + 1, text ? text : "(null)", args);
  line_buf.length = std::min(length, plain_limit);
  write_line();
}

std::string alert_str(const char16_t* text16) {
  if (!text16) return "(null)";
  const std::u16string_view units(text16);
  std::string text(units.size(), '\0');
  std::transform(units.begin(), units.end(), text.begin(),
                 [](char16_t unit) { return static_cast<char>(unit & 0xFF); });
  return text;
}

void alert_no_memory() {
  saved_errno = errno;
  run_prehook();
  emit(ALERT_FATAL, 296, out_of_memory_text(), {});
}

void alert_fatal(int code) {
  std::string name = program_path();
  name.erase(0, name.find_last_of("\\/:") + 1);
  if (name.empty()) name = "KVA";
  alert_msg_fatal(5, format_string("%s%s fatal error %d", "", name, code));
}

}  // namespace kv
