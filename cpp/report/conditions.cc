// Groups are opened, decided and closed by few functions, whichever path reads the line. What the
// line says is taken from where the engine stands behind the directive's word.
#include "cpp/report/conditions.h"

#include <algorithm>
#include <string_view>

#include "common/format.h"
#include "cpp/conditions.h"
#include "cpp/frames.h"
#include "cpp/passing.h"
#include "cpp/report/files.h"
#include "cpp/report/observe.h"
#include "cpp/source.h"

namespace kv::cpp::observe {

namespace {

constexpr std::size_t text_limit = observed_limits::text;

struct condition_watch {
  decltype(observed_run::conditions) conditions;
  std::vector<int> groups;  // the conditions that opened those that are open, or -1
  int current = -1;         // the condition read last
  bool reads = false;       // an expression, that of `current` where it is kept
  role directive = role::other;
  const unsigned char* behind_word = nullptr;  // null: where reading stands
};

constexpr auto& w = the<condition_watch>;

// ---- The text of a directive.

constexpr std::string_view blanks = " \t\v\f\r";

// The length of what stands at the start of `text`, 0 where there is none: what joins the next
// line, a comment (to the end where it is not closed) or blanks, a literal.

std::size_t join_length(std::string_view text) {
  const bool trigraph = text.starts_with("?\?/");
  if (!trigraph && !text.starts_with('\\')) return 0;
  const auto newline = text.find_first_not_of(blanks, trigraph ? 3 : 1);
  return newline != text.npos && text[newline] == '\n' ? newline + 1 : 0;
}

std::size_t space_length(std::string_view text) {
  if (text.starts_with("/*")) return std::min(text.find("*/", 2), text.size() - 2) + 2;
  const bool semicolon = text.starts_with(';') && !plain::in_file(';');
  if (semicolon || text.starts_with("//")) return std::min(text.find('\n'), text.size());
  return std::min(text.find_first_not_of(blanks), text.size());
}

std::size_t literal_length(std::string_view text) {
  if (!text.starts_with('\'') && !text.starts_with('"')) return 0;
  const auto* const begin = reinterpret_cast<const unsigned char*>(text.data());
  const unsigned char* const end = lane::skipped_literal_end(begin, begin + text.size() - 1);
  return end != nullptr ? static_cast<std::size_t>(end - begin) : 0;
}

// A text as it is gathered, with one space for each run of blanks and comments inside it.
class spaced_text {
 public:
  /// Whether more of it would not be kept.
  bool is_full() const { return text_.size() > text_limit; }

  void add(std::string_view token) {
    if (space_ && !text_.empty()) text_ += ' ';
    space_ = false;
    text_ += token;
  }
  void add_space() { space_ = true; }

  std::string kept() const { return kept_text(text_); }

 private:
  std::string text_;
  bool space_ = false;
};

// Adds a line, which ends at a newline that joins no other. Returns false where `text` ends before.
bool add_line(spaced_text& to, std::string_view text) {
  while (!text.empty() && !ends_line(text.front()) && !to.is_full()) {
    std::size_t length = join_length(text);
    if (length == 0) {
      length = space_length(text);
      if (length == 0) {
        length = std::max<std::size_t>(literal_length(text), 1);
        to.add(text.substr(0, length));
      } else {
        to.add_space();
      }
    }
    text.remove_prefix(length);
  }
  return !text.empty();
}

// What stands behind the word of the directive: in the texts that are being read, and in the file
// below them.
std::string directive_text() {
  spaced_text text;
  const input_frame* f = cur_frame;
  for (; f != nullptr && f->file == nullptr; f = f->parent) {
    for (const unit* p = f->txptr; *p != 0 && !text.is_full(); ++p) {
      if (*p == '\n') return text.kept();
      if (is_blank(*p)) {
        text.add_space();
      } else if (*p < 256) {
        const char c = static_cast<char>(*p);
        text.add({&c, 1});
      }
    }
  }
  if (f != nullptr && f->line_end != nullptr) {
    const source_file* const source = f->file->source;
    const bool goes_on = source->next == f->line_end && !source->displaced_set;
    const unsigned char* const begin = w().behind_word != nullptr ? w().behind_word : f->rdptr;
    const unsigned char* const end = goes_on ? source->limit : f->line_end;
    const bool is_whole = add_line(
        text, {reinterpret_cast<const char*>(begin), static_cast<std::size_t>(end - begin)});
    // What is joined can lie in the next block.
    if (!is_whole && !source->at_end) text.add("...");
  }
  return text.kept();
}

// ---- Records.

// A condition of the group `group`, the number of a new group where that is -1. Returns its number,
// or -1 where it is not kept.
int add_condition(condition_state state, int group) {
  condition_watch& o = w();
  const int depth = static_cast<int>(o.groups.size()) - (group >= 0 ? 1 : 0);
  std::string text = o.directive != role::else_ ? directive_text() : std::string();
  const int number =
      o.conditions.add({here(), group, depth, o.directive, state, std::move(text), {}, {}});
  if (number >= 0 && group < 0) o.conditions[number].group = number;
  return number;
}

// #elif and #else belong to a group that was kept.
int add_branch(condition_state state) {
  const bool is_kept = !w().groups.empty() && w().groups.back() >= 0;
  return is_kept ? add_condition(state, w().groups.back()) : -1;
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

void directive_read(role what, const unsigned char* behind) {
  w().directive = what;
  w().behind_word = behind;
}

void group_opened(bool live) {
  condition_watch& o = w();
  const condition_state state = live ? condition_state::undecided : condition_state::not_looked_at;
  o.current = file_read() != nullptr && file_read()->own ? add_condition(state, -1) : -1;
  o.groups.push_back(o.current);
}

void condition_begins() {
  condition_watch& o = w();
  if (o.directive == role::elif) o.current = add_branch(condition_state::undecided);
  o.reads = true;
}

void condition_missing() {
  w().reads = false;
}

void branch_decided(bool taken) {
  condition_watch& o = w();
  if (o.directive == role::elif && !o.reads) {
    add_branch(condition_state::not_looked_at);
  } else if (o.current >= 0) {
    o.conditions[o.current].state = taken ? condition_state::taken : condition_state::not_taken;
  }
  o.reads = false;
}

void else_entered() {
  condition_watch& o = w();
  if (o.groups.empty() || o.groups.back() < 0) return;
  condition_state state =
      conditions::compiling() ? condition_state::taken : condition_state::not_taken;
  const condition_state opener = o.conditions[o.groups.back()].state;
  if (opener == condition_state::not_looked_at) state = opener;
  add_branch(state);
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
