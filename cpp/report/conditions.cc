// Groups are opened, decided and closed by few functions, whichever path reads the line; what the
// line says is taken from where it lies in its block.
#include "cpp/report/conditions.h"

#include <algorithm>
#include <string_view>

#include "common/format.h"
#include "cpp/conditions.h"
#include "cpp/frames.h"
#include "cpp/report/files.h"
#include "cpp/report/observe.h"
#include "cpp/source.h"

namespace kv::cpp::observe {

namespace {

constexpr std::size_t text_limit = observed_limits::text;

struct condition_watch {
  decltype(observed_run::conditions) conditions;
  std::vector<int> groups;   // the conditions that opened those that are open, or -1
  int current = -1;          // the condition read last
  bool reads = false;        // an expression, that of `current` where it is kept
  bool opens_group = false;  // it is that of a group just opened
};

constexpr auto& w = the<condition_watch>;

// ---- The text of a directive.

// The bytes from `p` on as one line, up to the newline that no backslash joins.
std::string joined_line(const unsigned char* p, const unsigned char* end) {
  std::string line;
  while (p < end && line.size() <= text_limit) {
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

role kind_of(const std::string& word) {
  if (word == "ifdef") return role::opens_ifdef;
  return word == "ifndef" ? role::opens_ifndef : role::opens_if;
}

// ---- Records.

// A condition of the group `group`, the number of a new group where that is -1. Returns its number,
// or -1 where it is not kept.
int add_condition(role kind, condition_state state, int group, std::string text) {
  condition_watch& o = w();
  const int depth = static_cast<int>(o.groups.size()) - (group >= 0 ? 1 : 0);
  const int number =
      o.conditions.add({here(), group, depth, kind, state, kept_text(std::move(text)), {}, {}});
  if (number >= 0 && group < 0) o.conditions[number].group = number;
  return number;
}

int add_group(bool live) {
  control_words words = split_control_line(control_line_text());
  const condition_state state = live ? condition_state::undecided : condition_state::not_looked_at;
  return add_condition(kind_of(words.word), state, -1, std::move(words.rest));
}

// #elif and #else belong to a group that was kept.
int add_branch(role kind, condition_state state) {
  const int group = w().groups.empty() ? -1 : w().groups.back();
  if (group < 0) return -1;
  std::string text;
  if (kind == role::elif) text = split_control_line(control_line_text()).rest;
  return add_condition(kind, state, group, std::move(text));
}

void append_token(std::string_view token) {
  observed_condition* const c = current_condition();
  if (c == nullptr || c->evaluated.size() > text_limit) return;
  const bool joined = c->evaluated.empty() || c->evaluated.ends_with('(') || token == ")" ||
                      c->evaluated.ends_with('!') || c->evaluated.ends_with('~');
  if (!joined) c->evaluated += ' ';
  c->evaluated += token;
}

}  // namespace

void finish_conditions(observed_run& run) {
  run.conditions = std::move(w().conditions);
}

bool reads_condition() {
  return w().reads;
}

observed_condition* current_condition() {
  condition_watch& o = w();
  return o.reads && o.current >= 0 ? &o.conditions[o.current] : nullptr;
}

void add_condition_name(condition_name name) {
  if (observed_condition* const c = current_condition()) c->names.add(std::move(name));
}

void group_opened(bool live) {
  condition_watch& o = w();
  o.current = file_read() != nullptr && file_read()->own ? add_group(live) : -1;
  o.groups.push_back(o.current);
  o.opens_group = live;
}

void condition_begins() {
  condition_watch& o = w();
  if (!o.opens_group) o.current = add_branch(role::elif, condition_state::undecided);
  o.opens_group = false;
  o.reads = true;
}

void condition_missing() {
  w().reads = false;
}

void branch_decided(bool taken) {
  condition_watch& o = w();
  if (!o.opens_group && !o.reads) {
    add_branch(role::elif, condition_state::not_looked_at);
    return;
  }
  if (o.current >= 0) {
    o.conditions[o.current].state = taken ? condition_state::taken : condition_state::not_taken;
  }
  o.opens_group = o.reads = false;
}

void else_entered() {
  condition_watch& o = w();
  if (o.groups.empty() || o.groups.back() < 0) return;
  condition_state state =
      conditions::compiling() ? condition_state::taken : condition_state::not_taken;
  const condition_state opener = o.conditions[o.groups.back()].state;
  if (opener == condition_state::not_looked_at) state = opener;
  add_branch(role::else_, state);
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

}  // namespace kv::cpp::observe
