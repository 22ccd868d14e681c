#include "cpp/report/json.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <string_view>

#include "common/format.h"
#include "common/json.h"
#include "common/version.h"
#include "cpp/report/observed.h"
#include "cpp/symtab.h"
#include "cpp/text16.h"
#include "host/host.h"

namespace kv::cpp {

namespace {

constexpr std::string_view phase_names[run_phases] = {"reading", "text", "directives", "expansion",
                                                      "output"};
constexpr std::string_view message_kind_names[message_kinds] = {"fatal", "error", "warning",
                                                                "message"};
constexpr std::string_view origin_names[] = {"start-up", "command line", "file", "none"};
constexpr std::string_view change_names[] = {"defined", "redefined", "undefined"};
constexpr std::string_view condition_names[] = {"if", "ifdef", "ifndef", "elif", "else"};
constexpr std::string_view state_names[] = {"undecided", "taken", "not taken", "not looked at"};

template <class Enum, std::size_t N>
std::string_view name_of(const std::string_view (&names)[N], Enum e) {
  return names[static_cast<std::size_t>(e)];
}

// "2031-03-07T12:34:56Z"
std::string utc_time(std::int64_t seconds) {
  const auto time = static_cast<std::time_t>(seconds);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", std::gmtime(&time));
  return text.data();
}

// The parameter that a reference means, by the name it was given.
std::string parameter_name(const observed_macro& macro, int ref) {
  const auto n = static_cast<std::size_t>(ref - MARK_PARAM_BASE);
  return n < macro.params.size() ? macro.params[n] : format_string("<%d>", static_cast<int>(n));
}

// A body as it can be written in a #define. Of the blanks around `##` one is left on each side.
std::string definition_text(const observed_macro& macro) {
  std::string text;
  for (std::size_t i = 0; i < macro.body.size(); ++i) {
    const int c = macro.body[i];
    if (is_param_ref(c)) {
      text += parameter_name(macro, c);
    } else if (c == MARK_STRINGIZE) {
      text += '#';
    } else if (c == MARK_PASTE) {
      text += text.ends_with(' ') ? "## " : " ## ";
      while (i + 1 < macro.body.size() && macro.body[i + 1] == u' ') ++i;
    } else if (c < 256) {
      text += static_cast<char>(c);
    }
  }
  return text;
}

// The message manual that the program belongs to: that of its installation or, in a build
// directory, of its sources. Empty where there is none.
std::string manual_path() {
  std::string directory = host::program_path();
  for (char& c : directory) c = c == '\\' ? '/' : c;
  directory.erase(std::min(directory.rfind('/') + 1, directory.size()));
  for (const char* const place : {CPP_MANUAL, CPP_DEB_MANUAL, "../../../docs/messages.html"}) {
    std::string path = directory + place;
    if (host::is_regular_file(path.c_str())) return path;
  }
  return {};
}

void write_place(json_writer& j, const source_place& at) {
  j.member("file", at.file).member("line", at.line);
}

void write_head(json_writer& j, const observed_run& run) {
  j.member("format", "cpp report").member("version", report_version).member("kind", "run");
  j.member("program", std::string_view(product_version)).key("command").begin_array();
  for (const std::string& argument : run.command) j.value(argument);
  j.end_array().member("directory", run.directory).member("input", run.input);
  j.member("manual", manual_path());
  j.member("started", utc_time(run.started));
  j.member("status", run.status).member("complete", run.complete);
  j.member("total_ns", run.total_ns).key("phase_ns").begin_object();
  for (std::size_t n = 0; n < run_phases; ++n) j.member(phase_names[n], run.phase_ns[n]);
  j.end_object().member("bytes_read", run.bytes_read).member("bytes_written", run.bytes_written);
  j.member("expansions", run.expansions).key("messages_by_kind").begin_object();
  for (std::size_t n = 0; n < message_kinds; ++n) {
    j.member(message_kind_names[n], run.messages_by_kind[n]);
  }
  j.end_object().key("left_out").begin_object();
  j.member("inclusions", run.inclusions.left_out).member("macros", run.macros.left_out);
  j.member("calls", run.calls.left_out).member("conditions", run.conditions.left_out);
  j.member("messages", run.messages.left_out).end_object();
}

void write_file(json_writer& j, const observed_file& f, bool is_input) {
  j.begin_object().member("path", f.path).member("own", f.own);
  j.member("bytes", f.bytes).member("lines", f.lines);
  j.member("reads", f.reads).member("spared", f.spared);
  j.member("self_ns", f.self_ns).member("total_ns", f.total_ns);
  j.member("self_output", f.self_output).member("total_output", f.total_output);
  j.member("text", f.has_text).member("macro_used", f.macro_used);
  j.member("candidate", !is_input && !f.has_effect).key("places").begin_array();
  for (const include_place& p : f.places) {
    j.begin_object();
    write_place(j, p.at);
    j.member("reads", p.reads).member("spared", p.spared).end_object();
  }
  j.end_array().end_object();
}

void write_inclusion(json_writer& j, const inclusion& i) {
  j.begin_object().member("file", i.file).member("parent", i.parent).member("line", i.line);
  if (i.spared) j.member("spared", true);
  j.member("self_ns", i.self_ns).member("total_ns", i.total_ns).member("output", i.output);
  j.end_object();
}

void write_macro(json_writer& j, const observed_macro& m) {
  j.begin_object().member("name", m.name).key("params");
  if (m.nargs < 0) {
    j.null();
  } else {
    j.begin_array();
    for (const std::string& p : m.params) j.value(p);
    j.end_array();
  }
  j.key("body");
  const bool has_body = !m.is_dynamic && m.origin != macro_origin::none;
  has_body ? j.value(definition_text(m)) : j.null();
  j.member("origin", name_of(origin_names, m.origin)).member("defined", m.defined);
  write_place(j, m.at);
  j.member("expanded", m.expanded).member("if", m.tested_if).member("ifdef", m.tested_ifdef);
  j.member("same_again", m.same_again).member("redefined", m.redefined);
  j.member("undefined", m.undefined).key("changes").begin_array();
  for (const macro_change& c : m.changes) {
    j.begin_object().member("what", name_of(change_names, c.kind));
    write_place(j, c.at);
    j.end_object();
  }
  j.end_array().end_object();
}

void write_call(json_writer& j, const observed_call& c) {
  j.begin_object().member("macro", c.macro);
  write_place(j, c.at);
  j.member("own", c.own).member("count", c.count).member("cut", c.cut).key("result");
  c.has_result ? j.value(c.result) : j.null();
  j.key("steps").begin_array();
  for (const call_step& s : c.steps) {
    j.begin_object().member("macro", s.macro).member("depth", s.depth).key("args").begin_array();
    for (const std::string& arg : s.args) j.value(arg);
    j.end_array().member("text", s.text).end_object();
  }
  j.end_array().end_object();
}

void write_condition(json_writer& j, const observed_condition& c) {
  j.begin_object();
  write_place(j, c.at);
  j.member("group", c.group).member("depth", c.depth);
  j.member("directive", name_of(condition_names, c.directive));
  j.member("state", name_of(state_names, c.state));
  j.member("text", c.text).member("evaluated", c.evaluated).key("names").begin_array();
  for (const condition_name& n : c.names.all) {
    j.begin_object().member("text", n.text).member("value", n.value);
    j.member("defined", n.is_defined_test).end_object();
  }
  j.end_array().end_object();
}

void write_message(json_writer& j, const observed_message& m) {
  j.begin_object().member("kind", name_of(message_kind_names, m.kind)).member("number", m.number);
  j.member("file", m.file).member("line", m.line).member("text", m.text).end_object();
}

template <class Records, class Write>
void write_all(json_writer& j, std::string_view name, const Records& records, Write write) {
  j.key(name).begin_array();
  for (const auto& record : records.all) write(j, record);
  j.end_array();
}

}  // namespace

void write_report(json_writer& j, const observed_run& run) {
  j.begin_object();
  write_head(j, run);
  write_all(j, "files", run.files, [&](json_writer& to, const observed_file& f) {
    write_file(to, f, &f == run.files.all.data());
  });
  write_all(j, "inclusions", run.inclusions, write_inclusion);
  write_all(j, "macros", run.macros, write_macro);
  write_all(j, "calls", run.calls, write_call);
  write_all(j, "conditions", run.conditions, write_condition);
  write_all(j, "messages", run.messages, write_message);
  j.end_object();
}

}  // namespace kv::cpp
