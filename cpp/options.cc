// An option is a row of one table and acts at once, in command-line order: the start-up macros
// exist already, so -D and -U act on them too. The row is also all the documentation there is of
// the option: --help prints it, and the manual page and the shells' completions are made from that.
#include "cpp/options.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "common/alert.h"
#include "common/cmode.h"
#include "common/format.h"
#include "common/kvdebug.h"
#include "common/outfile.h"
#include "common/version.h"
#include "cpp/charclass.h"
#include "cpp/depend.h"
#include "cpp/diag.h"
#include "cpp/ifsizeof.h"
#include "cpp/include.h"
#include "cpp/macro_report.h"
#include "cpp/outbuf.h"
#include "cpp/reader.h"
#include "cpp/report/observe.h"
#include "cpp/report/page.h"
#include "cpp/scan.h"
#include "cpp/settings.h"
#include "cpp/symtab.h"
#include "cpp/usage.h"
#include "host/host.h"

namespace kv::cpp {

struct settings_writer {
  static constexpr run_settings& all = chosen_settings.value_;
};

namespace {

using number::is_digit;

// The settings, to be written.
constexpr run_settings& chosen = settings_writer::all;

char to_lower(char c) {
  return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
}

bool same_nocase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (to_lower(a[i]) != to_lower(b[i])) return false;
  }
  return true;
}

// The decimal number that `text` begins with, within the range of int.
int decimal(const char* text) {
  const long v = std::strtol(text, nullptr, 10);
  if (v > INT32_MAX) return INT32_MAX;
  return v < INT32_MIN ? INT32_MIN : static_cast<int>(v);
}

std::u16string widened(std::string_view text) {
  std::u16string wide(text.size(), 0);
  for (std::size_t i = 0; i < text.size(); ++i) wide[i] = static_cast<unsigned char>(text[i]);
  return wide;
}

symbol* define_object(std::string_view name, std::string_view value) {
  symbol* sym = sym_enter(widened(name).c_str(), false);
  sym->nargs = NARGS_OBJECT;
  sym_set_body(sym, widened(value).c_str(), value.size());
  return sym;
}

// ---- The options. `arg` is the whole argument, `rest` what follows the spelling or is the next
// argument where the row allows that.

struct option_call {
  const char* arg;
  const char* rest;
  const char* cmd_file_arg;
  const std::vector<char*>& command_line;
};

// The output named by -o; the last one counts.
constinit const char* output_option = nullptr;

template <bool run_settings::*setting>
void turn_on(const option_call&) {
  chosen.*setting = true;
}

void complain_of_no_name(const option_call& o) {
  alert_typed("E", "option \"%s\" names no file", o.arg);
}

// Sets `path` to the argument of an option that cannot do without.
void take_path(const option_call& o, const char*& path) {
  if (o.rest[0] == 0) {
    complain_of_no_name(o);
  } else {
    path = o.rest;
  }
}

// The same for what goes beside the text: standard output is for the text alone.
void take_path_beside(const option_call& o, const char*& path) {
  if (std::strcmp(o.rest, "-") == 0) {
    complain_of_no_name(o);
  } else {
    take_path(o, path);
  }
}

void opt_output(const option_call& o) {
  take_path(o, output_option);
}

void opt_dep(const option_call& o) {
  take_path_beside(o, chosen.dep_file);
}

void opt_dep_target(const option_call& o) {
  const char* name = nullptr;
  take_path(o, name);
  if (name != nullptr) dep_add_target(name);
}

// Sets `setting` when the option's word is "gcc", the one layout beside the program's own.
bool choose_gcc_layout(const option_call& o, bool& setting) {
  const bool is_known = same_nocase(o.rest, "gcc");
  if (!is_known) alert_msg(168, o.arg);
  setting = setting || is_known;
  return is_known;
}

void opt_markers(const option_call& o) {
  choose_gcc_layout(o, chosen.gcc_markers);
}

void opt_messages(const option_call& o) {
  if (!choose_gcc_layout(o, chosen.gcc_messages)) return;
  alert_use_gcc_layout();
  alert_set_notes(write_notes);
}

void opt_define(const option_call& o) {
  const std::string_view text = o.rest;
  const auto equals = text.find('=');
  const bool has_value = equals != text.npos;
  define_object(text.substr(0, equals), has_value ? text.substr(equals + 1) : "1")
      ->from_command_line = true;
}

void opt_errors(const option_call& o) {
  if (o.rest[0] == 0) return;
  if (is_digit(o.rest[0]) && o.rest[1] == 0) {
    chosen.listing_style = o.rest[0] - '0';
    chosen.gcc_messages = false;
    alert_use_formats(settings.listing_style);
  } else {
    // Where the file cannot be opened, messages go on to standard error.
    const bool appended = append_error_text_to(o.rest);
    if (!appended && errno == host::error_in_use) refuse_file("message", o.rest);
  }
}

void opt_file_name(const option_call& o) {
  if (o.rest[0] != 0) chosen.source_name = o.rest;
}

void opt_include_dir(const option_call& o) {
  add_include_dir(o.rest);
}

void opt_dependencies(const option_call& o) {
  if (settings.dep_mode != dep_none) {
    alert_msg(1447, o.rest);
  } else if (o.rest[0] == 0) {
    alert_msg_fatal(1448);
  } else if (same_nocase(o.rest, "gcc")) {
    chosen.dep_mode = dep_gcc;
  } else if (same_nocase(o.rest, "list")) {
    chosen.dep_mode = dep_list;
  } else {
    alert_msg_fatal(1449, o.rest);
  }
}

void opt_names(const option_call& o) {
  if (o.rest[0] == 0) {
    ++chosen.no_predef;
  } else {
    chosen.ident_max = static_cast<unsigned>(decimal(o.rest));
  }
}

// -S: the sizes of the types for sizeof(), or with `*` or `P` the sizes of pointers to them.
void opt_sizes(const option_call& o) {
  const char* text = o.rest;
  const bool pointers = *text == '*' || *text == 'P';
  if (pointers) ++text;
  std::size_t values = pointers ? 0 : 1;
  for (const char* p = text; *p != 0; ++p) values += *p == ',' ? 1 : 0;
  const bool with_int24 = values > (pointers ? 7U : 6U);
  const std::size_t rows = pointers ? size_rows : size_row_function_pointer;
  const auto skip_to_digit = [](const char* p) {
    while (*p != 0 && !is_digit(*p)) ++p;
    return p;
  };

  for (std::size_t row = 0; row < rows; ++row) {
    if (row == size_row_int24 && !with_int24) continue;
    const char* digits = skip_to_digit(text);
    if (*digits == 0) {
      alert_msg(166, o.arg);
      return;
    }
    unsigned value = 0;
    for (text = digits; is_digit(*text); ++text) {
      value = value * 10 + static_cast<unsigned>(*text - '0');
    }
    const auto set_size = pointers ? set_pointer_size : set_type_size;
    set_size(row, static_cast<std::uint16_t>(value));
  }
  if (*skip_to_digit(text) != 0) alert_msg(167, text);
}

void opt_undefine(const option_call& o) {
  if (sym_enter(widened(o.rest).c_str(), true) == nullptr) alert_msg(177, o.rest);
}

void opt_warnings(const option_call& o) {
  if (is_digit(o.rest[0]) || o.rest[0] == '-') chosen.warn_level = decimal(o.rest);
  if (std::strchr(o.rest, '!') != nullptr) alert_set_warnfail(1);
  alert_set_warnlevel(settings.warn_level);
}

void opt_edf(const option_call& o) {
  if (!open_edf(o.rest)) alert_printf("Could not open error description file %s\n", o.rest);
}

void opt_udf(const option_call& o) {
  chosen.macro_report = macro_report_open(o.rest);
}

void opt_report(const option_call& o) {
  const char* path = nullptr;
  take_path_beside(o, path);
  if (path != nullptr) page_open(path);
}

void opt_msgdisable(const option_call& o) {
  alert_msgdisable(o.rest);
}

void opt_emax(const option_call& o) {
  chosen.max_errors = decimal(o.rest);
  set_maxerrors(settings.max_errors);
}

void opt_version(const option_call&) {
  outbuf::text(version_banner());
  alert_leave(0);
}

void opt_promote(const option_call& o) {
  werr_setOption(o.arg, 0);
}

[[noreturn]] void opt_help(const option_call&);

void opt_cmode(const option_call& o) {
  chosen.cmode_asm = cmode_set(o.rest) == CMODE_TSASM;
  set_semicolon_comments(settings.cmode_asm);
}

void opt_include(const option_call& o) {
  read_first(std::string("#include <").append(o.rest).append(">\n"));
}

void opt_kvdebug(const option_call& o) {
  db_options(o.rest);
  if (gDebugFlags == 0) return;
  if (o.cmd_file_arg != nullptr) db_trace_args(1, &o.cmd_file_arg);
  db_trace_args(static_cast<int>(o.command_line.size()) - 1, o.command_line.data() + 1);
}

// The order is that of --help. An argument takes the first row that fits: -dM stands before -D,
// which is the same letter.
struct option : option_doc {
  void (*apply)(const option_call&);
  bool (*accepts)(const char* arg) = nullptr;  // decides in the place of the spelling
};
constexpr option options[] = {
    {{in_general, "--help", "", "write this page and end"}, opt_help},
    {{in_general, "--version", "", "write the version and end"}, opt_version},
    {{in_general, "--ver", "", "the same"}, opt_version},
    {{in_general, "--cmode=", "lvx|r20|r20e|tsasm|tslink|tslib|ssc|ovk",
      "compatibility mode (default: lvx)"},
     opt_cmode},

    {{in_output, "-o", " FILE", "the output, wherever it stands; also -oFILE"}, opt_output},
    {{in_output, "--output=", "FILE", "the same"}, opt_output},
    {{in_output, "--delete_on_error", "", "leave no output behind when the run fails"},
     turn_on<&run_settings::delete_on_error>},
    {{in_output, "--markers=", "gcc", "line markers that other compilers read"}, opt_markers},
    {{in_output, "-C", "", "keep comments in the output"}, turn_on<&run_settings::keep_comments>},
    {{in_output, "-dM", "", "write the definitions of all macros instead"},
     turn_on<&run_settings::dump_macros>},
    {{in_output, "-F", "NAME", "the input's name in markers, __FILE__ and rules"}, opt_file_name},
    {{in_output, "--udf=", "FILE", "write the HTML report of the macros"}, opt_udf},
    {{in_output, "--report=", "FILE", "write a page of what the run did, or its data as FILE.json"},
     opt_report},

    {{in_macros, "-D", "NAME[=VALUE]", "define a macro, as 1 or as the value"}, opt_define},
    {{in_macros, "-U", "NAME", "remove a macro"}, opt_undefine},
    {{in_macros, "-N", "LENGTH", "significant length of names, 31 (default) to 255"}, opt_names},
    {{in_macros, "-S", "[P]SIZE,...", "sizes of types (P: of pointers) for sizeof in #if"},
     opt_sizes},

    {{in_headers, "-I", "DIR", "add a directory to the include search (up to 255)"},
     opt_include_dir},
    {{in_headers, "--include=", "FILE", "include <FILE> before the first line"}, opt_include},
    {{in_headers, "-H", "", "name each included file on standard error, once"},
     turn_on<&run_settings::show_includes>},
    {{in_headers, "-V", "", "write the search list to standard error"},
     turn_on<&run_settings::show_search_path>},

    {{in_rules, "--dep=", "FILE", "write the rule of the headers beside the text"}, opt_dep},
    {{in_rules, "--dep_target=", "NAME", "a target of it instead of the output; repeatable"},
     opt_dep_target},
    {{in_rules, "--dep_phony", "", "an empty rule for each header, should it be deleted"},
     turn_on<&run_settings::dep_phony>},
    {{in_rules, "-L", "gcc|list", "list the included files instead of the text"}, opt_dependencies},
    {{in_rules, "--dep_nosys", "", "leave the installation's own headers out"},
     turn_on<&run_settings::dep_nosys>},

    {{in_messages, "-W", "[LEVEL][!]", "show warnings from LEVEL on; !: they fail the run"},
     opt_warnings},
    {{in_messages, "--Werror", "[=N]", "warnings, or warning N, are errors"},
     opt_promote,
     werr_isOption},
    {{in_messages, "--Wno-error", "[=N]", "take that back, or except warning N"},
     opt_promote,
     werr_isOption},
    {{in_messages, "--msgdisable=", "N,...", "hide these warnings and notices"}, opt_msgdisable},
    {{in_messages, "--disl=", "N,...", "the same"}, opt_msgdisable},
    {{in_messages, "--emax=", "N", "end the run at the error after the Nth (-1: never)"}, opt_emax},
    {{in_messages, "--messages=", "gcc", "a layout that editors and build servers read"},
     opt_messages},
    {{in_messages, "-E", "DIGIT|FILE", "layout of messages, or a file for all of them"},
     opt_errors},
    {{in_messages, "--edf=", "FILE", "take message texts from a newer message file"}, opt_edf},
    {{in_messages, "--kvdebug=", "ITEM,...", "trace, statistics, checks of the program itself"},
     opt_kvdebug},
};

void opt_help(const option_call&) {
  std::vector<option_doc> rows(std::begin(options), std::end(options));
  outbuf::text(usage_page(rows));
  alert_leave(0);
}

// What follows the spelling of `row` in `arg`, or null when it is another option. Keywords and
// capital letters fit in either case, what is spelled in small letters as it stands.
const char* behind_spelling(const option& row, const char* arg) {
  if (row.accepts != nullptr) return row.accepts(arg) ? arg + std::strlen(arg) : nullptr;
  const std::string_view spelling = row.spelling;
  const std::string_view head = std::string_view(arg).substr(0, spelling.size());
  const bool is_keyword = spelling.starts_with("--");
  const bool as_it_stands = !is_keyword && spelling[1] != std::toupper(spelling[1]);
  if (as_it_stands ? head != spelling : !same_nocase(head, spelling)) return nullptr;
  const char* rest = arg + spelling.size();
  const bool is_whole = is_keyword ? spelling.back() != '=' : as_it_stands && row.argument.empty();
  return is_whole && *rest != 0 ? nullptr : rest;
}

// Applies the argument `o.arg`. Returns how many arguments were used, with `next` (null at the
// end) perhaps among them.
int apply_option(option_call o, const char* next) {
  for (const option& row : options) {
    o.rest = behind_spelling(row, o.arg);
    if (o.rest == nullptr) continue;
    const bool takes_next = row.argument.starts_with(' ') && *o.rest == 0 && next != nullptr;
    if (takes_next) o.rest = next;
    row.apply(o);
    return takes_next ? 2 : 1;
  }
  alert_msg(168, o.arg);
  return 1;
}

bool is_file_argument(const char* arg) {
  return arg[0] != '-' || arg[1] == 0;
}

// Makes the output named by -o the second of the file arguments. There is room for it: the option
// stood among the arguments, and a null stands behind them.
int add_output_argument(int nfiles, char** argv) {
  static char standard_input[] = "-";
  if (nfiles == 1) argv[nfiles++] = standard_input;
  argv[nfiles] = const_cast<char*>(output_option);
  return nfiles + 1;
}

// The last second of the year 9999, whose dates still have the layout of ctime().
constexpr long long last_source_date = 253402300799;

// The time that SOURCE_DATE_EPOCH gives in seconds, in the layout of ctime() but for the day of the
// week. Whoever sets it wants the same text from every build, whatever its time zone. Empty, with
// an error, for a value that is no such time.
std::string source_date_stamp(std::string_view value) {
  long long seconds = -1;
  const auto read = std::from_chars(value.data(), value.data() + value.size(), seconds);
  if (read.ec != std::errc() || read.ptr != value.data() + value.size() || seconds < 0 ||
      seconds > last_source_date) {
    alert_typed("E", "SOURCE_DATE_EPOCH \"%s\" is no number of seconds up to %s",
                std::string(value), std::to_string(last_source_date));
    return {};
  }
  using namespace std::chrono;
  const sys_seconds time{std::chrono::seconds(seconds)};
  const auto day = floor<days>(time);
  const year_month_day date(day);
  const hh_mm_ss clock(time - day);
  constexpr std::string_view months = "JanFebMarAprMayJunJulAugSepOctNovDec";
  const auto month = std::string(months.substr((static_cast<unsigned>(date.month()) - 1) * 3, 3));
  return format_string("    %s %2u %02d:%02d:%02d %04d", month, static_cast<unsigned>(date.day()),
                       static_cast<int>(clock.hours().count()),
                       static_cast<int>(clock.minutes().count()),
                       static_cast<int>(clock.seconds().count()), static_cast<int>(date.year()));
}

std::string time_stamp() {
  std::string stamp;
  if (const char* value = std::getenv("SOURCE_DATE_EPOCH")) stamp = source_date_stamp(value);
  if (!stamp.empty()) return stamp;
  const std::time_t now = std::time(nullptr);
  const char* text = std::ctime(&now);  // "Wed Mar  7 12:34:56 2031\n"
  return text != nullptr ? text : "??? ??? ?? ??:??:?? ????\n";
}

}  // namespace

void define_startup_macros() {
  define_object("__STDC__", "1");
  sym_enter(u"__LINE__", false)->nargs = NARGS_LINE;
  sym_enter(u"__FILE__", false)->nargs = NARGS_FILE;
  const std::string stamp = time_stamp();
  const auto quoted = [](std::string_view s) { return '"' + std::string(s) + '"'; };
  define_object("__DATE__", quoted(stamp.substr(4, 7) + stamp.substr(20, 4)));
  define_object("__TIME__", quoted(stamp.substr(11, 8)));
}

int parse_options(int argc, char** argv, const char* cmd_file_arg) {
  const std::vector<char*> command_line(argv, argv + argc);
  cmode_set("lvx");
  int nfiles = 1;
  for (int i = 1; i < argc;) {
    if (is_file_argument(argv[i])) {
      argv[nfiles++] = argv[i++];
    } else {
      const char* next = i + 1 < argc ? argv[i + 1] : nullptr;
      i += apply_option({argv[i], nullptr, cmd_file_arg, command_line}, next);
    }
  }
  if (output_option != nullptr) nfiles = add_output_argument(nfiles, argv);
  chosen.ident_max = std::clamp(settings.ident_max, ident_max_least, ident_max_most);
  token_buf::make_room();
  if (settings.macro_report) macro_report_command_line(argc, command_line.data());
  if (page_is_open()) {
    observe::begin({command_line.begin(), command_line.end()}, nfiles > 1 ? argv[1] : "-");
  }
  if (nfiles > 3) alert_msg(110);
  return nfiles;
}

void name_source(const char* path) {
  if (settings.source_name[0] == 0) chosen.source_name = path;
}

}  // namespace kv::cpp
