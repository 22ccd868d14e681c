// A run in order: start() binds files and settings, the main loop copies the input a line at a
// time, finish() reports and leaves. Whatever happens, the process ends in cpp_exit(), which the
// message system may call from any depth: it relies on nothing but the state below.
#include "cpp/driver.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include "common/alert.h"
#include "common/alloc.h"
#include "common/getargs.h"
#include "common/kvdebug.h"
#include "common/outfile.h"
#include "common/registry.h"
#include "common/str16.h"
#include "cpp/asmsource.h"
#include "cpp/calmlines.h"
#include "cpp/conditions.h"
#include "cpp/control.h"
#include "cpp/define.h"
#include "cpp/depend.h"
#include "cpp/diag.h"
#include "cpp/expand.h"
#include "cpp/headers.h"
#include "cpp/include.h"
#include "cpp/lines.h"
#include "cpp/linesync.h"
#include "cpp/macro_report.h"
#include "cpp/options.h"
#include "cpp/outbuf.h"
#include "cpp/output.h"
#include "cpp/reader.h"
#include "cpp/report/observe.h"
#include "cpp/report/page.h"
#include "cpp/scan.h"
#include "cpp/settings.h"
#include "cpp/source.h"
#include "cpp/textlane.h"
#include "host/host.h"

namespace kv::cpp {

namespace {

constexpr int standard_input = 0;
constexpr int standard_output = 1;

// What becomes of the output when the run ends.
enum class output_fate {
  written,     // it is completed
  left_alone,  // no text is due yet: what was there stays
  undone,      // as left_alone, and a new file goes: the dump that was asked for is not due yet
};
output_fate output_end = output_fate::written;

bool dumps_macros() {
  return settings.dump_macros && text_output();
}

// ---- Start-up.

struct command_line {
  int argc;
  char** argv;
  const char* cmd_file_arg;  // the `@file` that the arguments came from, or null
};

void set_up_messages() {
  alert_set_exit(cpp_exit);
  alert_set_formats("%f: %l: (%n) %s (error)", "%f: %l: (%n) %s (warning)", "%f: %l: %s");
  alert_set_prehook(set_msg_position);
  alert_set_echo(echo_source_line);
}

// Puts the command file in the place of standard input. Its descriptor stays open, since it may be
// that of a standard stream the run was started without.
void open_command_file(const char* path) {
  const int fd = host::open_input(path, host::content::text);
  if (fd < 0 || !host::duplicate_onto(fd, standard_input)) refuse_file("command", path);
}

command_line acquire_arguments(int argc, char** argv) {
  const char* cmd_file_arg = nullptr;
  if (argc == 2 && argv[1][0] == '@') {
    cmd_file_arg = argv[1];
    open_command_file(cmd_file_arg + 1);
  } else if (argc > 1) {
    return {argc, argv, nullptr};
  }
  char** acquired = getargs("cpp", cmd_file_arg != nullptr ? cmd_file_arg + 1 : "-");
  return {static_cast<int>(arg_count), acquired, cmd_file_arg};
}

// Whoever mistypes an option at a terminal does not mean to type the text as well.
void stop_before_waiting(int nfiles) {
  if (nfiles > 1 || !alert_failed() || !host::is_terminal(standard_input)) return;
  alert_printf("cpp --help lists the options");
  cpp_exit(1);
}

bool is_standard_stream(const char* path) {
  return std::strcmp(path, "-") == 0;
}

// A command line with an error says too little about what its output is to be.
void bind_output(const char* path) {
  const bool opened = is_standard_stream(path) ? host::use_standard(standard_output)
                                               : outbuf::open(path, !alert_has_errors());
  if (!opened) refuse_file("output", path);
  output_end = dumps_macros() ? output_fate::undone : output_fate::left_alone;
}

// Returns the descriptor.
int bind_input(const char* path) {
  int fd = standard_input;
  if (!is_standard_stream(path)) {
    fd = host::open_input(path);
  } else if (!host::use_standard(fd)) {
    fd = -1;
  }
  if (fd < 0) refuse_file("input", path);
  return fd;
}

struct bound_input {
  int fd;
  const char* path;
};

// Binds the file arguments argv[1] and argv[2], or the standard streams, the output first. From
// here on the run writes over what the output held.
bound_input bind_files(int nfiles, char** argv) {
  if (nfiles > 3) cpp_exit(1);
  bind_output(nfiles == 3 ? argv[2] : "-");
  const char* path = nfiles >= 2 ? argv[1] : "-";
  const int fd = bind_input(path);
  dep_open_rule();
  db_claim_zip();
  if (dumps_macros()) {
    outbuf::discard(true);
  } else {
    output_end = output_fate::written;
  }
  return {fd, path};
}

// While dependencies are listed only errors, and the messages named here, are of interest.
void limit_messages() {
  if (text_output()) {
    set_maxerrors(settings.max_errors);
    return;
  }
  set_maxerrors(1);
  alert_set_action(0, 8);
  for (const unsigned number : {109U, 110U, 140U, 141U, 146U, 147U, 168U, 1447U, 1448U, 1449U}) {
    alert_set_action(number, 0);
  }
}

void start(int argc, char** argv) {
  alloc_prepare();
  // With nowhere to complain there is nothing to be said.
  if (!host::prepare_standard_handles()) std::exit(1);
  set_up_messages();
  reg_set_c_stdlib("c90");
  command_line args = acquire_arguments(argc, argv);
  args.argv = expand_command_files(args.argc, args.argv);
  define_startup_macros();
  const int nfiles = parse_options(args.argc, args.argv, args.cmd_file_arg);
  stop_before_waiting(nfiles);
  const bound_input input = bind_files(nfiles, args.argv);
  limit_messages();
  if (settings.show_search_path && text_output()) print_search_path();
  dep_start(nfiles == 3 && !is_standard_stream(args.argv[2]) ? args.argv[2] : nullptr);
  if (dep_lists_headers() || db_tracing(db_adt)) {
    list_opened_headers();
  }
  if (!is_standard_stream(input.path)) name_source(input.path);
  copy_comments_to(put_char_out);
  push_file(source_open(input.fd, {"input", input.path}), settings.source_name);
  if (settings.macro_report) macro_report_table();
  if (text_output()) write_line_marker();
}

// ---- The main loop. One pass writes one output line.

struct line_start {
  int c;       // the first unit of a text line, or 0 at the end of the input
  int indent;  // blanks before the line, counted inside #asm blocks
};

// Reads blank lines, control lines and skipped lines up to the next line of text.
line_start find_text_line() {
  line_start line = {0, 0};
  for (;;) {
    take_calm_lines();
    line.c = get();
    if (is_blank(line.c)) {
      if (conditions::in_asm()) ++line.indent;
    } else if (line.c == '\n') {
      line_sync::hold();
    } else if (line.c == '#') {
      control_line();
    } else if (line.c == MARK_EXP_END) {
      continue;  // a directive's macro has been read to its end
    } else if (line.c == 0 || conditions::compiling()) {
      return line;
    } else {
      skip_line(line.c);
      line_sync::hold();
    }
  }
}

// Writes a unit of a literal. A newline that no line of a file stands for moves those behind it.
void put_literal_unit(int c) {
  put_char_out(c);
  if (c == '\n' && in_text_frame()) line_sync::renumber();
}

void write_token(int c) {
  switch (char_class(c)) {
    case CT_QUOTE: scan_string(c, put_literal_unit); break;
    case CT_DIGIT:
    case CT_DOT: scan_number(c, put_char_out); break;
    case CT_LETTER:
      if (text_output()) put_text16(token_buf::bare_text());
      break;
    default: put_char_out(c);
  }
}

// How the copying of a line's tokens ended.
enum class line_end { newline, end_of_input, lane_past_it };

// Copies the tokens of a line, its macros expanded. The lane may go on with further lines; it has
// then written this one's newline and stands at the start of another.
line_end copy_line() {
  for (;;) {
    const lane_stop stop = copy_plain_text();
    if (stop == lane_stop::at_line_start) return line_end::lane_past_it;
    int c = get();
    if (stop == lane_stop::in_line) {
      bool blanks = false;
      for (; is_blank(c); c = get()) blanks = blanks || c != MARK_PASTE;
      if (blanks && !ends_line(c)) put_char_out(' ');
    }
    c = try_expand(c);
    if (is_operand_class(char_class(c)) && paste_tokens(c)) continue;
    if (c == 0) return line_end::end_of_input;
    if (c == '\n') return line_end::newline;
    write_token(c);
  }
}

void write_text_line(const line_start& line) {
  sync_lines();
  unget();
  if (settings.cmode_asm) asm_ifdef_rewrite();
  for (int i = 0; i < line.indent; ++i) put_char_out(' ');
  if (copy_line() == line_end::newline) {
    put_char_out('\n');
    if (in_text_frame()) line_sync::renumber();
  }
}

// ---- The end.

void report_open_group() {
  int line;
  if (!conditions::outermost_open_group(line)) return;
  if (cur_frame != nullptr) {
    alert_msg(100, line);
    return;
  }
  const std::string source = shown_path(settings.source_name);
  std::u16string name(source.size(), 0);
  str8to16(name.data(), source.c_str());
  const auto at = static_cast<unsigned>(line);
  alert_set_prehook(nullptr);
  alert_set_position(name.c_str(), &at, nullptr, nullptr);
  alert_msg(100, line);
  alert_set_position(nullptr, nullptr, nullptr, nullptr);
  alert_set_prehook(set_msg_position);
}

void write_dump() {
  outbuf::discard(false);
  output_end = output_fate::written;
  dump_defines();
}

void end_output(int status) {
  if (output_end != output_fate::written) {
    outbuf::leave_alone(output_end == output_fate::undone);
    dep_end_rule(false);
    return;
  }
  outbuf::finish();
  dep_end_rule(status == 0 && !writing_failed());
  // What a build would take for the result goes.
  if (settings.delete_on_error && (status != 0 || writing_failed())) outbuf::remove();
}

// Whether all input has been read. A run that ends before still tells what it has done.
bool all_read = false;

void end_page(int status) {
  if (observing) page_write(observe::end(status, all_read));
}

[[noreturn]] void finish() {
  all_read = true;
  if (line_sync::held() > 0) put_char_out('\n');
  report_open_group();
  if (dumps_macros()) write_dump();
  if (alert_failed()) cpp_exit(1);
  free_base_frame();
  if (settings.macro_report) macro_report_close();
  cpp_exit(0);
}

}  // namespace

void run(int argc, char** argv) {
  start(argc, argv);
  for (;;) {
    if (observing) observe::directives();
    const line_start line = find_text_line();
    if (line.c == 0) finish();
    if (observing) observe::text_line();
    write_text_line(line);
  }
}

void cpp_exit(int status) {
  dep_write_list();
  end_output(status);
  macro_report_end();
  end_page(status);
  db_close();
  std::exit(writing_failed() ? 1 : status);
}

}  // namespace kv::cpp
