// Three things are put together here from what the engine says.
//
// Time. There is one clock, read where the phase or the file changes, and what has passed since it
// was read last belongs to both that were. A line of text is in the phase `expansion` from the
// first unit of a call until the last frame above the file is gone.
//
// Calls. A call that stands in a file is followed to its end: every replacement on the way is a
// step. Its result is what has been written meanwhile, in a condition the tokens that the evaluator
// has taken; so it is what happened and not what this module believes should have. Only the first
// of equal calls is followed, the others are counted.
//
// Conditions. Groups are opened, decided and closed by few functions, whichever path reads the
// line; what the line says is taken from where it lies in its block.
#include "cpp/report/observe.h"

#include <algorithm>
#include <ctime>
#include <unordered_map>

#include "common/alert.h"
#include "common/format.h"
#include "common/text_table.h"
#include "cpp/conditions.h"
#include "cpp/diag.h"
#include "cpp/frames.h"
#include "cpp/headers.h"
#include "cpp/outbuf.h"
#include "cpp/replacement.h"
#include "cpp/settings.h"
#include "cpp/source.h"
#include "cpp/symtab.h"
#include "host/host.h"

namespace kv::cpp {

struct watch_switch {
  static void turn(bool on) { observing.value_ = on; }
};

namespace observe {

namespace {

using limits = observed_limits;

// A file being read, the innermost last.
struct open_inclusion {
  const source_file* source;
  int file;
  int node;  // among the inclusions, -1 beyond their limit
  std::uint64_t began_ns;
  std::uint64_t output_before;
};

struct bytes_of_file {
  std::uint64_t bytes = 0;
  std::uint64_t lines = 0;
};

// The call in a file that is being carried out, with all that it leads to.
struct followed_call {
  bool active = false;
  bool looking = false;       // for the `(` of what may be another call
  bool ended = false;         // while looking: the last expansion is over
  bool known = false;         // its arguments have been collected
  int open = 0;               // calls whose arguments are being collected
  int call = -1;              // the record that its steps go to, if they are kept
  std::uint64_t key = 0;      // of that record, or of the one that an earlier call like it has
  int depth = 0;              // of its frame
  int name = -1;              // in a condition: among its names
  source_place at;            // where it begins
  std::size_t evaluated = 0;  // in a condition: where its tokens begin
  std::uint64_t written = 0;  // output before it
};

// All state of this module but for the flag.
struct watcher {
  observed_run run;

  std::uint64_t last_ns = 0;
  run_phase phase = run_phase::reading;  // the input is opened first
  run_phase outside_calls = run_phase::directives;

  std::uint64_t last_output = 0;
  std::vector<open_inclusion> open;
  std::unordered_map<const source_file*, bytes_of_file> blocks;
  text_table<int> file_numbers;  // plus one
  bool named_in_quotes = false;

  text_table<int> macro_numbers;  // plus one

  followed_call top;
  std::unordered_map<std::uint64_t, int> calls;  // by macro and arguments

  std::vector<int> groups;   // the conditions that opened those that are open, or -1
  int condition = -1;        // the one being read
  bool opens_group = false;  // it is that of a group just opened
  bool in_condition = false;
};

watcher* watching = nullptr;

watcher& w() {
  return *watching;
}

// ---- Texts.

std::string cut(std::string text) {
  if (text.size() > limits::text) text.replace(limits::text, text.npos, "...");
  return text;
}

// What a reader of the output would see of `text`; references to parameters are replaced by what
// `args` has for them.
void append_units(std::string& to, const unit* text, const call_arguments& args) {
  for (; *text != 0 && to.size() <= limits::text; ++text) {
    if (*text < 256) {
      to += static_cast<char>(*text);
    } else if (is_param_ref(*text)) {
      if (const unit* arg = args.of(*text)) append_units(to, arg, {});
    }
  }
}

std::string visible(const unit* text, const call_arguments& args = {}) {
  std::string result;
  if (text != nullptr) append_units(result, text, args);
  return cut(std::move(result));
}

// ---- Time, and the file that it is spent in.

void tick() {
  watcher& o = w();
  const std::uint64_t now = host::monotonic_ns();
  const std::uint64_t passed = now - o.last_ns;
  o.last_ns = now;
  o.run.phase_ns[static_cast<std::size_t>(o.phase)] += passed;
  o.run.total_ns += passed;
  if (o.open.empty()) return;
  const open_inclusion& here = o.open.back();
  o.run.files[static_cast<std::size_t>(here.file)].self_ns += passed;
  if (here.node >= 0) o.run.inclusions[static_cast<std::size_t>(here.node)].self_ns += passed;
}

// Counts what has been written since the last time to the file that is being read.
void count_output() {
  watcher& o = w();
  const std::uint64_t now = outbuf::count();
  if (!o.open.empty()) {
    o.run.files[static_cast<std::size_t>(o.open.back().file)].self_output += now - o.last_output;
  }
  o.last_output = now;
}

void change_phase(run_phase phase) {
  if (w().phase == phase) return;
  tick();
  w().phase = phase;
}

// Outside of calls the phase is that of the line.
void enter_line(run_phase phase) {
  watcher& o = w();
  o.outside_calls = phase;
  o.in_condition = false;
  if (!o.top.active) change_phase(phase);
}

// ---- Files.

observed_file& file_record(int n) {
  return w().run.files[static_cast<std::size_t>(n)];
}

int current_file() {
  return w().open.empty() ? -1 : w().open.back().file;
}

source_place here() {
  return {current_file(), cur_line};
}

bool in_own_file() {
  return current_file() >= 0 && file_record(current_file()).own;
}

int file_number(const char* path) {
  watcher& o = w();
  int& number = o.file_numbers[path].record;
  if (number == 0) {
    o.run.files.push_back({});
    o.run.files.back().path = portable_path(path);
    number = static_cast<int>(o.run.files.size());
  }
  return number - 1;
}

void note_place(observed_file& file, source_place at, bool spared) {
  auto place = std::find_if(file.places.begin(), file.places.end(), [&](const include_place& p) {
    return p.at.file == at.file && p.at.line == at.line;
  });
  if (place == file.places.end()) {
    if (file.places.size() == limits::places) return;
    file.places.push_back({at, 0, 0});
    place = file.places.end() - 1;
  }
  ++(spared ? place->spared : place->reads);
}

// Notes that the file `number` is included at `at`, the input at no place.
int add_inclusion(int number, source_place at, bool spared) {
  watcher& o = w();
  if (at.file >= 0) note_place(file_record(number), at, spared);
  if (o.run.inclusions.size() == limits::inclusions) {
    ++o.run.inclusions_left_out;
    return -1;
  }
  inclusion node;
  node.file = number;
  node.parent = o.open.empty() ? -1 : o.open.back().node;
  node.line = at.line;
  node.spared = spared;
  o.run.inclusions.push_back(node);
  return static_cast<int>(o.run.inclusions.size()) - 1;
}

// The file `path`, about to be included.
int included_file(const char* path) {
  const int number = file_number(path);
  observed_file& file = file_record(number);
  if (w().open.empty() || (w().named_in_quotes && in_own_file() && !is_installed_header(path))) {
    file.own = true;
  }
  return number;
}

void leave_file() {
  watcher& o = w();
  tick();
  count_output();
  const open_inclusion ended = o.open.back();
  o.open.pop_back();
  observed_file& file = file_record(ended.file);
  const bytes_of_file read = o.blocks[ended.source];
  o.blocks.erase(ended.source);
  file.bytes += read.bytes;
  file.lines += read.lines;
  const std::uint64_t ns = o.last_ns - ended.began_ns;
  const std::uint64_t output = o.last_output - ended.output_before;
  if (--file.open == 0) {
    file.total_ns += ns;
    file.total_output += output;
  }
  if (ended.node < 0) return;
  inclusion& node = o.run.inclusions[static_cast<std::size_t>(ended.node)];
  node.total_ns = ns;
  node.output = output;
}

// ---- Macros.

observed_macro* macro_record(int number) {
  return number < 0 ? nullptr : &w().run.macros[static_cast<std::size_t>(number)];
}

constexpr int left_out = -1;

// What the tables have for a new name: the number of its record plus one, or left_out.
int add_macro(std::string_view name) {
  observed_run& run = w().run;
  if (run.macros.size() == limits::macros) {
    ++run.macros_left_out;
    return left_out;
  }
  run.macros.push_back({});
  run.macros.back().name = name;
  return static_cast<int>(run.macros.size());
}

int find_or_add_macro(std::string_view name) {
  int& record = w().macro_numbers[name].record;
  if (record == 0) record = add_macro(name);
  return record;
}

// The record of a name, made where there is none; -1 beyond the limit.
int macro_number(std::string_view name) {
  return std::max(find_or_add_macro(name) - 1, -1);
}

int macro_number(const symbol* sym) {
  if (sym->record == 0) sym->record = find_or_add_macro(alert_str(sym->name));
  return std::max(sym->record - 1, -1);
}

// Notes that a macro was of use here, for the header that defines it.
void credit_header(const observed_macro& macro) {
  if (!macro.defined || macro.defined_in < 0 || macro.defined_in == current_file()) return;
  file_record(macro.defined_in).macro_used = true;
}

void note_change(observed_macro& macro, macro_change_kind kind) {
  if (macro.changes.size() < limits::changes) macro.changes.push_back({kind, here()});
}

void set_definition(observed_macro& macro, const symbol* sym, std::vector<std::string> params) {
  macro.nargs = sym->nargs;
  macro.params = std::move(params);
  macro.body.assign(sym->body != nullptr ? sym->body : u"");
  macro.is_dynamic = sym->body == nullptr;
  macro.defined = true;
  macro.defined_in = current_file();
}

// A macro from before the first line.
void note_initial_macro(const symbol* sym) {
  observed_macro* const macro = macro_record(macro_number(sym));
  if (macro == nullptr) return;
  set_definition(*macro, sym, {});
  macro->origin = sym->from_command_line ? macro_origin::command_line : macro_origin::startup;
}

// ---- Calls.

observed_condition* current_condition() {
  watcher& o = w();
  return o.in_condition && o.condition >= 0
             ? &o.run.conditions[static_cast<std::size_t>(o.condition)]
             : nullptr;
}

void count_expansion(int number) {
  observed_macro* const macro = macro_record(number);
  ++w().run.expansions;
  if (macro == nullptr) return;
  ++macro->expanded;
  if (w().in_condition) ++macro->tested_if;
  credit_header(*macro);
}

std::string call_text(const std::string& name, const call_step& step, bool takes_arguments) {
  std::string text = name;
  if (!takes_arguments) return text;
  text += '(';
  for (std::size_t n = 0; n < step.args.size(); ++n) text += (n == 0 ? "" : ", ") + step.args[n];
  return cut(text + ')');
}

// From here to end_call() a call in a file is carried out.
void begin_call() {
  watcher& o = w();
  change_phase(run_phase::expansion);
  o.top = {};
  o.top.active = true;
  o.top.at = here();
  // The result is taken from the block in which the output gathers.
  if (outbuf::room() < 2 * limits::text) outbuf::flush();
  o.top.written = outbuf::count();
  if (const observed_condition* c = current_condition()) o.top.evaluated = c->evaluated.size();
}

void end_call() {
  watcher& o = w();
  o.top.active = false;
  change_phase(o.outside_calls);
  if (observed_condition* const c = current_condition(); c != nullptr && o.top.name >= 0) {
    condition_name& name = c->names[static_cast<std::size_t>(o.top.name)];
    name.value = c->evaluated.substr(std::min(o.top.evaluated, c->evaluated.size()));
    if (name.value.starts_with(' ')) name.value.erase(0, 1);
  }
  if (o.top.call < 0 || o.outside_calls != run_phase::text || !text_output()) return;
  const std::string_view result = outbuf::last(outbuf::count() - o.top.written);
  if (result.data() == nullptr) return;
  observed_call& call = o.run.calls[static_cast<std::size_t>(o.top.call)];
  call.has_result = true;
  call.result = cut(std::string(result));
}

// The key of a call: its macro and what its arguments are, behind what came `before`.
std::uint64_t call_key(std::uint64_t before, int macro, const call_arguments& args) {
  constexpr std::uint64_t prime = 0x100000001B3;
  std::uint64_t key = 0xCBF29CE484222325 ^ (before * prime) ^ static_cast<std::uint64_t>(macro);
  for (int n = 0; n < args.count; ++n) {
    for (const unit* p = args.first[n].text; *p != 0; ++p) key = (key ^ *p) * prime;
    key = (key ^ 0xFFFF) * prime;
  }
  return key;
}

call_step make_step(int macro, const call_arguments& args) {
  call_step step;
  step.macro = macro;
  for (int n = 0; n < args.count; ++n) step.args.push_back(visible(args.first[n].text));
  step.text = visible(cur_frame->text, args);
  return step;
}

// With the arguments of the call in the file known: counts it, and keeps its steps if it is the
// first of its kind.
void identify_call(int macro, const call_arguments& args) {
  watcher& o = w();
  const bool own = o.top.at.file == 0;
  const std::uint64_t key = o.top.key = call_key(0, macro, args);
  const auto known = o.calls.find(key);
  const bool is_new = known == o.calls.end();
  if (is_new) {
    if (o.run.calls.size() == limits::calls_traced) {
      ++o.run.calls_left_out;
      return;
    }
    o.top.call = static_cast<int>(o.run.calls.size());
    o.run.calls.push_back({});
    o.calls.emplace(key, o.top.call);
  }
  observed_call& call = o.run.calls[static_cast<std::size_t>(is_new ? o.top.call : known->second)];
  if (is_new || (own && !call.own)) call.at = o.top.at;
  call.macro = macro;
  call.own |= own;
  ++call.count;
}

// What the call came to takes arguments from behind it, so that they belong to what it is: counts
// it anew. A call that had a record until now without them loses it to the first one that has them.
void identify_further(int macro, const call_arguments& args) {
  watcher& o = w();
  const std::uint64_t before = o.top.key;
  const auto record = o.calls.find(before);
  o.top.key = call_key(before, macro, args);
  if (record == o.calls.end()) return;
  const auto number = static_cast<std::size_t>(record->second);
  observed_call& until_now = o.run.calls[number];
  const auto known = o.calls.find(o.top.key);
  if (o.top.call < 0) {
    --until_now.count;
    if (known != o.calls.end()) {
      ++o.run.calls[static_cast<std::size_t>(known->second)].count;
    } else {
      ++o.run.calls_left_out;  // its first steps were not kept
    }
    return;
  }
  o.calls.erase(record);
  if (known == o.calls.end()) {
    o.calls.emplace(o.top.key, o.top.call);
    return;
  }
  observed_call& same = o.run.calls[static_cast<std::size_t>(known->second)];
  ++same.count;
  if (until_now.own && !same.own) same.at = until_now.at;
  same.own |= until_now.own;
  o.run.calls.pop_back();
  o.top.call = -1;
}

void name_in_condition(int macro, const call_step& step, bool takes_arguments) {
  observed_condition* const c = current_condition();
  w().top.name = static_cast<int>(c->names.size());
  c->names.push_back({call_text(macro_record(macro)->name, step, takes_arguments), "", false});
}

void add_step(call_step step) {
  const followed_call& top = w().top;
  observed_call& call = w().run.calls[static_cast<std::size_t>(top.call)];
  if (call.steps.size() == limits::steps) {
    call.cut = true;
    return;
  }
  step.depth = std::max(1, cur_frame->depth - top.depth + 1);
  call.steps.push_back(std::move(step));
}

// ---- Conditions.

// The bytes from `p` on as one line, up to the newline that no backslash joins.
std::string joined_line(const unsigned char* p, const unsigned char* end) {
  std::string line;
  while (p < end && line.size() <= limits::text) {
    if (*p == '\\' && p + 1 < end && p[1] == '\n') {
      p += 2;
    } else if (*p == '\n') {
      break;
    } else {
      line += static_cast<char>(*p++);
    }
  }
  return line;
}

constexpr std::string_view blanks = " \t\v\f\r";

void append_blank(std::string& text) {
  if (!text.ends_with(' ')) text += ' ';
}

// With one space for each run of blanks.
std::string without_comments(const std::string& line) {
  std::string text;
  for (std::size_t i = 0; i < line.size();) {
    if (line.compare(i, 2, "//") == 0) break;
    if (line.compare(i, 2, "/*") == 0) {
      const auto close = line.find("*/", i + 2);
      if (close == line.npos) break;
      i = close + 2;
      append_blank(text);
    } else if (blanks.find(line[i]) != blanks.npos) {
      append_blank(text);
      ++i;
    } else {
      text += line[i++];
    }
  }
  return text;
}

// The control line of the nearest file, with the lines joined to it, comments removed.
std::string control_line_text() {
  const input_frame* const f = nearest_file_frame();
  if (f == nullptr || f->file->line_start == nullptr) return {};
  const source_file* const source = f->file->source;
  const bool goes_on = source->next == f->line_end && !source->displaced_set;
  return without_comments(joined_line(f->file->line_start, goes_on ? source->limit : f->line_end));
}

// A control line's word and what follows it.
struct control_words {
  std::string word;
  std::string rest;
};

control_words split_control_line(const std::string& line) {
  const auto mark = std::min(line.find_first_not_of(blanks), line.size());
  const bool has_mark = mark < line.size() && line[mark] == '#';
  const auto word = line.find_first_not_of(blanks, has_mark ? mark + 1 : mark);
  if (word == line.npos) return {};
  const auto behind =
      std::min(line.find_first_not_of("abcdefghijklmnopqrstuvwxyz", word), line.size());
  const auto rest = line.find_first_not_of(blanks, behind);
  if (rest == line.npos) return {line.substr(word, behind - word), {}};
  return {line.substr(word, behind - word),
          line.substr(rest, line.find_last_not_of(blanks) + 1 - rest)};
}

condition_kind kind_of(const std::string& word) {
  if (word == "ifdef") return condition_kind::ifdef;
  return word == "ifndef" ? condition_kind::ifndef : condition_kind::if_;
}

// The group that is open innermost was opened by this condition; -1 where none is kept.
int innermost_group() {
  return w().groups.empty() ? -1 : w().groups.back();
}

// A condition of the group `group`, the number of a new group where that is -1. Returns its number,
// or -1 where it is not kept.
int add_condition(condition_kind kind, condition_state state, int group, std::string text) {
  watcher& o = w();
  if (o.run.conditions.size() == limits::conditions) {
    ++o.run.conditions_left_out;
    return -1;
  }
  const int number = static_cast<int>(o.run.conditions.size());
  observed_condition c;
  c.at = here();
  c.kind = kind;
  c.state = state;
  c.group = group >= 0 ? group : number;
  c.depth = static_cast<int>(o.groups.size());
  c.text = cut(std::move(text));
  o.run.conditions.push_back(std::move(c));
  return number;
}

int add_group(bool live) {
  control_words words = split_control_line(control_line_text());
  const condition_state state = live ? condition_state::undecided : condition_state::not_looked_at;
  return add_condition(kind_of(words.word), state, -1, std::move(words.rest));
}

// #elif and #else belong to a group that was kept.
int add_branch(condition_kind kind, condition_state state) {
  const int group = innermost_group();
  if (group < 0) return -1;
  const bool has_text = kind == condition_kind::elif;
  const int number = add_condition(
      kind, state, group, has_text ? split_control_line(control_line_text()).rest : std::string());
  if (number >= 0) --w().run.conditions[static_cast<std::size_t>(number)].depth;
  return number;
}

void append_token(std::string_view token) {
  observed_condition* const c = current_condition();
  if (c == nullptr || c->evaluated.size() > limits::text) return;
  const bool joined = c->evaluated.empty() || c->evaluated.ends_with('(') || token == ")" ||
                      c->evaluated.ends_with('!') || c->evaluated.ends_with('~');
  if (!joined) c->evaluated += ' ';
  c->evaluated += token;
}

// ---- Messages.

void note_message(const alert_report& report) {
  watcher& o = w();
  message_kind kind = message_kind::warning;
  if (report.type == ALERT_FATAL) kind = message_kind::fatal;
  if (report.type == ALERT_ERROR) kind = message_kind::error;
  if (report.type == ALERT_MESSAGE) kind = message_kind::message;
  ++o.run.messages_by_kind[static_cast<std::size_t>(kind)];
  if (o.run.messages.size() == limits::messages) {
    ++o.run.messages_left_out;
    return;
  }
  observed_message m{kind, report.number, {}, report.line, std::string(report.text)};
  if (report.file != nullptr) {
    // In a macro's text the message names the macro.
    const bool in_text = cur_frame != nullptr && cur_frame->file == nullptr && !o.open.empty();
    m.file =
        in_text ? file_record(current_file()).path : portable_path(alert_str(report.file).c_str());
  }
  o.run.messages.push_back(std::move(m));
}

// ---- The end.

// A header has an effect if it or anything that it includes has one. A header that was spared has
// that of the time when it was read, so that one pass may not do.
void find_effects(observed_run& run) {
  for (observed_file& f : run.files) f.has_effect = f.has_text || f.macro_used;
  bool changed = run.inclusions_left_out == 0;
  if (!changed) {
    for (observed_file& f : run.files) f.has_effect = true;  // not all is known
  }
  while (changed) {
    changed = false;
    for (auto node = run.inclusions.rbegin(); node != run.inclusions.rend(); ++node) {
      if (node->parent < 0 || !run.files[static_cast<std::size_t>(node->file)].has_effect) continue;
      const inclusion& parent = run.inclusions[static_cast<std::size_t>(node->parent)];
      bool& effect = run.files[static_cast<std::size_t>(parent.file)].has_effect;
      changed |= !effect;
      effect = true;
    }
  }
}

// Leaves of the calls those that are worth looking at: those of the input first, then the most
// frequent; a name that is replaced once and for all is told by its definition.
void choose_calls(observed_run& run) {
  std::erase_if(run.calls, [&](const observed_call& c) {
    return c.steps.empty() ||
           (c.steps.size() == 1 && run.macros[static_cast<std::size_t>(c.macro)].nargs < 0);
  });
  std::stable_sort(run.calls.begin(), run.calls.end(),
                   [](const observed_call& a, const observed_call& b) {
                     return a.own != b.own ? a.own : a.count > b.count;
                   });
  if (run.calls.size() > limits::calls_shown) run.calls.resize(limits::calls_shown);
}

}  // namespace

void begin(std::vector<std::string> command, const char* input_name) {
  watching = new watcher;
  watcher& o = w();
  o.run.command = std::move(command);
  o.run.directory = host::current_directory();
  o.run.input = input_name;
  o.run.started = static_cast<std::int64_t>(std::time(nullptr));
  o.last_ns = host::monotonic_ns();
  o.last_output = outbuf::count();
  for (std::size_t n = 0; n < symtab_chains; ++n) {
    for (const symbol* sym = symtab(n); sym != nullptr; sym = sym->link) note_initial_macro(sym);
  }
  alert_set_listener(note_message);
  watch_switch::turn(true);
}

const observed_run& end(int status, bool complete) {
  watcher& o = w();
  if (!observing) return o.run;
  while (!o.open.empty()) leave_file();
  tick();
  watch_switch::turn(false);
  alert_set_listener(nullptr);
  o.run.status = status;
  o.run.complete = complete;
  o.run.bytes_written = outbuf::count();
  find_effects(o.run);
  choose_calls(o.run);
  return o.run;
}

void file_pushed(const source_file* file, const char* path) {
  watcher& o = w();
  tick();
  count_output();
  const input_frame* const includer = cur_frame->parent;
  const int number = included_file(path);
  const source_place at = {current_file(), includer != nullptr ? includer->saved_line : 0};
  const int node = add_inclusion(number, at, false);
  observed_file& record = file_record(number);
  ++record.reads;
  ++record.open;
  o.open.push_back({file, number, node, o.last_ns, o.last_output});
  o.blocks.try_emplace(file);
}

void file_ended() {
  if (!w().open.empty()) leave_file();
}

void file_spared(const char* path) {
  const int number = included_file(path);
  ++file_record(number).spared;
  add_inclusion(number, here(), true);
}

void include_named(bool quoted) {
  w().named_in_quotes = quoted;
}

void block_read(const source_file* file, const unsigned char* bytes, std::size_t n) {
  bytes_of_file& read = w().blocks[file];
  read.bytes += n;
  const std::string_view text(reinterpret_cast<const char*>(bytes), n);
  for (auto at = text.find('\n'); at != text.npos; at = text.find('\n', at + 1)) ++read.lines;
  w().run.bytes_read += n;
}

void text_line() {
  enter_line(run_phase::text);
  if (!w().open.empty()) file_record(current_file()).has_text = true;
}

void directives() {
  enter_line(run_phase::directives);
}

run_phase timed::enter(run_phase phase) {
  const run_phase before = w().phase;
  if (observing) change_phase(phase);
  return before;
}

void macro_defined(const symbol* sym, std::vector<std::string> params) {
  const int number = macro_number(sym);
  observed_macro* const macro = macro_record(number);
  if (macro == nullptr) return;
  if (macro->defined && macro->nargs == sym->nargs && macro->params == params &&
      macro->body == sym->body) {
    ++macro->same_again;
    return;
  }
  note_change(*macro, macro->defined ? macro_change_kind::redefined : macro_change_kind::defined);
  if (macro->defined) ++macro->redefined;
  if (macro->origin == macro_origin::none) {
    macro->origin = macro_origin::file;
    macro->at = here();
  }
  set_definition(*macro, sym, std::move(params));
}

void macro_removed(const symbol* sym) {
  observed_macro* const macro = macro_record(macro_number(sym));
  if (macro == nullptr) return;
  note_change(*macro, macro_change_kind::undefined);
  ++macro->undefined;
  // What removes a macro of another file must not be dropped lightly.
  if (macro->defined_in != current_file() && !w().open.empty()) {
    file_record(current_file()).macro_used = true;
  }
  macro->defined = false;
}

void name_tested(std::string_view name, bool is_defined) {
  observed_macro* const macro = macro_record(macro_number(name));
  if (macro != nullptr) {
    ++(w().in_condition ? macro->tested_if : macro->tested_ifdef);
    credit_header(*macro);
  }
  if (observed_condition* const c = current_condition()) {
    c->names.push_back({std::string(name), is_defined ? "1" : "0", true});
  }
}

void name_unknown(std::string_view name) {
  observed_macro* const macro = macro_record(macro_number(name));
  if (macro != nullptr) ++macro->tested_if;
  if (observed_condition* const c = current_condition()) {
    c->names.push_back({std::string(name), "0", false});
  }
}

void looks_for_call() {
  w().top.looking = true;
  w().top.ended = false;
}

void looked_for_call(bool is_call) {
  followed_call& top = w().top;
  top.looking = false;
  if (is_call) {
    if (!top.active) begin_call();
    ++top.open;
  } else if (top.active && top.ended) {
    end_call();
  }
}

void replaced(const symbol* sym, const call_arguments& args) {
  const int number = macro_number(sym);
  count_expansion(number);
  followed_call& top = w().top;
  if (!top.active) begin_call();
  const bool takes_arguments = sym->nargs >= 0;
  if (takes_arguments && top.open > 0) --top.open;
  if (number < 0) return;
  if (top.known && top.open == 0 && takes_arguments && cur_frame->depth == top.depth) {
    identify_further(number, args);
  }
  if (!top.known && top.open == 0) {
    top.known = true;
    top.depth = cur_frame->depth;
    identify_call(number, args);
    if (current_condition() != nullptr) {
      name_in_condition(number, make_step(number, args), takes_arguments);
    }
  }
  if (top.call >= 0) add_step(make_step(number, args));
}

void replaced_by_place(const symbol* sym) {
  const int number = macro_number(sym);
  count_expansion(number);
  const followed_call& top = w().top;
  if (number < 0) return;
  if (top.active && top.call >= 0) add_step(make_step(number, {}));
  observed_condition* const c = current_condition();
  if (c == nullptr || top.active) return;
  c->names.push_back({macro_record(number)->name, visible(cur_frame->text), false});
}

void text_ends() {
  followed_call& top = w().top;
  if (!top.active || top.open > 0) return;
  const bool is_expansion = cur_frame->macro != nullptr || cur_frame->value_of != nullptr;
  const input_frame* const below = cur_frame->parent;
  if (!is_expansion || (below != nullptr && below->depth > 0)) return;
  top.ended = true;
  if (!top.looking) end_call();
}

void group_opened(bool live) {
  watcher& o = w();
  o.condition = in_own_file() ? add_group(live) : -1;
  o.groups.push_back(o.condition);
  o.opens_group = live;
  o.in_condition = false;
}

void condition_begins() {
  watcher& o = w();
  if (!o.opens_group) {
    o.condition = add_branch(condition_kind::elif, condition_state::undecided);
  }
  o.opens_group = false;
  o.in_condition = true;
}

void branch_decided(bool taken) {
  watcher& o = w();
  if (!o.opens_group && !o.in_condition) {
    add_branch(condition_kind::elif, condition_state::not_looked_at);
    return;
  }
  if (o.condition >= 0) {
    o.run.conditions[static_cast<std::size_t>(o.condition)].state =
        taken ? condition_state::taken : condition_state::not_taken;
  }
  o.opens_group = o.in_condition = false;
}

void else_entered() {
  const int group = innermost_group();
  if (group < 0) return;
  const condition_state opener = w().run.conditions[static_cast<std::size_t>(group)].state;
  condition_state state =
      conditions::compiling() ? condition_state::taken : condition_state::not_taken;
  if (opener == condition_state::not_looked_at) state = opener;
  add_branch(condition_kind::else_, state);
}

void group_closed() {
  if (!w().groups.empty()) w().groups.pop_back();
}

void operand_seen(std::uint32_t value, bool is_signed) {
  append_token(is_signed ? format_string("%d", static_cast<std::int32_t>(value))
                         : format_string("%uu", value));
}

void operator_seen(std::string_view name) {
  constexpr std::string_view unary = "unary ";
  append_token(name.starts_with(unary) ? name.substr(unary.size()) : name);
}

}  // namespace observe
}  // namespace kv::cpp
