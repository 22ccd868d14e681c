// The rules that change what kind of message an entry is, between look-up and report.
//
// Two sets of rules apply, in this order. The promotion rules come from the --Werror family and
// know warnings only: a switch for all of them, and a choice for single numbers. The control table
// holds an action for single numbers, whatever their type; tables form a stack, so that a caller
// can change the rules for a while. An action therefore sees a promoted warning as the error it has
// become, and
// --msgdisable cannot hide it.
//
// Neither set exists until it is used.

#include <algorithm>
#include <cctype>
#include <charconv>
#include <iterator>
#include <limits>
#include <map>
#include <string_view>

#include "common/alert.h"
#include "common/alert_internal.h"
#include "common/vector.h"

namespace kv {
namespace {

// The stack of control tables, of which the last is in force and one is always there. A table is a
// vector of actions indexed by message number.
constinit vector* control_stack = nullptr;

// The promotion options so far. `chosen` holds the numbers named by an option, each with its latest
// choice: true (--Werror=N) is promoted while `all` is clear, false (--Wno-error=N) is spared while
// `all` is set. One map for both makes a number's latest choice its only one.
struct promotion_rules {
  bool all = false;
  std::map<std::uint32_t, bool> chosen;
};
constinit promotion_rules* promotion = nullptr;

// Takes leading decimal digits off `text` and returns their value, the greatest one if it is too
// big.
std::uint32_t take_number(std::string_view& text) {
  std::uint32_t value = 0;
  const auto end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, value);
  if (error == std::errc::result_out_of_range) value = std::numeric_limits<std::uint32_t>::max();
  text.remove_prefix(static_cast<std::size_t>(rest - text.data()));
  return value;
}

// Takes `head` off `text` when it begins with it, case ignored.
bool take_nocase(std::string_view& text, std::string_view head) {
  if (text.size() < head.size()) return false;
  for (std::size_t i = 0; i < head.size(); ++i) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c; };
    if (lower(text[i]) != lower(head[i])) return false;
  }
  text.remove_prefix(head.size());
  return true;
}

// ---------------------------------------------------------------------------------------------
// Control.

vector* top_table() {
  if (!control_stack) {
    control_stack = vec_create(__FILE__, __LINE__);
    vec_push(control_stack, to_word(vec_create(__FILE__, __LINE__)));
  }
  return from_word<vector>(vec_last(control_stack));
}

// Marks every entry of the catalogue that `concerns` selects.
void set_action_for_all(alert_action action, bool (*concerns)(alert_type)) {
  alert_init();
  vector* const table = top_table();
  const vector* const entries = first_message_table();
  for (std::uint32_t number = 0; number < vec_count(entries); ++number) {
    const auto* entry = vec_get_ptr<const msg_entry>(entries, number);
    if (entry && concerns(entry->type)) vec_set(table, static_cast<word>(action), number);
  }
}

bool is_message_or_warning(alert_type type) {
  return type == ALERT_MESSAGE || type == ALERT_WARNING;
}

bool is_not_fatal(alert_type type) {
  return type != ALERT_FATAL;
}

void push_table() {
  vec_push(control_stack, to_word(vec_copy(top_table(), __FILE__, __LINE__)));
}

void pop_table() {
  if (vec_count(control_stack) > 1) vec_destroy(from_word<vector>(vec_pop(control_stack)));
}

// The operations on whole tables, from ALERT_ACTION_PUSH on.
constexpr void (*table_operations[])() = {
    push_table,
    pop_table,
    [] { set_action_for_all(ALERT_ACTION_DISABLE, is_message_or_warning); },
    [] { set_action_for_all(ALERT_ACTION_SUPPRESS, is_not_fatal); },
    [] { vec_clear(top_table()); },
};

void leave_alone(msg_entry&) {}

void disable(msg_entry& entry) {
  if (is_message_or_warning(entry.type)) entry.type = ALERT_SUPPRESSED;
}

void suppress(msg_entry& entry) {
  if (is_not_fatal(entry.type)) entry.type = ALERT_SUPPRESSED;
}

void demote(msg_entry& entry) {
  if (entry.type != ALERT_ERROR) return;
  entry.type = ALERT_WARNING;
  entry.level = current_warn_threshold();
}

void promote(msg_entry& entry) {
  if (entry.type == ALERT_WARNING) entry.type = ALERT_ERROR;
}

// What a control table's actions do to an entry, by value.
constexpr void (*entry_rules[])(msg_entry&) = {leave_alone, disable, suppress,
                                               demote,      promote, suppress};
static_assert(std::size(entry_rules) == ALERT_ACTION_PUSH);

// One item of a disable list.
void apply_disable_item(std::string_view item) {
  std::string_view rest = item;
  while (!rest.empty() && std::isspace(static_cast<unsigned char>(rest.front())))
    rest.remove_prefix(1);
  bool negative = false;
  if (!rest.empty() && (rest.front() == '-' || rest.front() == '+')) {
    negative = rest.front() == '-';
    rest.remove_prefix(1);
  }
  const std::size_t before = rest.size();
  const std::uint32_t number = take_number(rest);
  if (rest.size() == before) rest = item;
  if (negative && number != 0) return;
  const bool off = take_nocase(rest, ":off");
  alert_set_action(number, off ? ALERT_ACTION_OFF : ALERT_ACTION_DISABLE);
}

// ---------------------------------------------------------------------------------------------
// Promotion.

// A promotion option, taken apart.
struct promotion_option {
  bool promote;            // Werror, not Wno-error
  bool has_value;          // an '=' follows
  std::string_view value;  // the text behind it
};

bool parse_option(const char* text, promotion_option& option) {
  if (!text || *text != '-') return false;
  std::string_view rest(text);
  rest.remove_prefix(std::min(rest.find_first_not_of('-'), rest.size()));
  option.promote = take_nocase(rest, "Werror");
  if (!option.promote && !take_nocase(rest, "Wno-error")) return false;
  if (!rest.empty() && rest.front() != '=') return false;
  option.has_value = !rest.empty();
  if (option.has_value) rest.remove_prefix(1);
  option.value = rest;
  return true;
}

bool is_all(std::string_view value) {
  return take_nocase(value, "all") && value.empty();
}

void apply_promotion(msg_entry& entry) {
  if (!promotion || entry.type != ALERT_WARNING) return;
  const auto found = promotion->chosen.find(entry.number);
  const bool chosen = found != promotion->chosen.end() && found->second;
  const bool spared = found != promotion->chosen.end() && !found->second;
  if (promotion->all ? !spared : chosen) promote(entry);
}

}  // namespace

void alert_set_action(std::uint32_t number, int action) {
  if (action < 0 || action > ALERT_ACTION_CLEAR) return;
  vector* const table = top_table();
  if (action >= ALERT_ACTION_PUSH)
    table_operations[action - ALERT_ACTION_PUSH]();
  else if (number <= max_message_number)
    // No catalogue holds a greater number, and the table must not grow to what an option asks for.
    vec_set(table, static_cast<word>(action), number);
}

void alert_msgdisable(const char* list) {
  if (!list || *list == 0) return;
  if (*list == '0') {
    alert_set_action(0, ALERT_ACTION_DISABLE_ALL);
    return;
  }
  std::string_view rest(list);
  for (;;) {
    const std::size_t comma = rest.find(',');
    apply_disable_item(rest.substr(0, comma));
    if (comma == std::string_view::npos) return;
    rest.remove_prefix(comma + 1);
  }
}

bool werr_isOption(const char* text) {
  promotion_option option;
  return parse_option(text, option);
}

void werr_setOption(const char* text, int quiet) {
  promotion_option option;
  if (!parse_option(text, option)) return;
  if (!promotion) promotion = new promotion_rules;
  if (!option.has_value || is_all(option.value)) {
    promotion->all = option.promote;
    return;
  }
  std::string_view rest = option.value;
  const std::uint32_t number = take_number(rest);
  if (number != 0) promotion->chosen[number] = option.promote;
  if ((number == 0 || !rest.empty()) && !quiet) alert_msg_nopos(1606);
}

void apply_message_rules(msg_entry& entry) {
  apply_promotion(entry);
  // A look-up must not allocate: it may be the one that reports exhausted memory.
  const word action = control_stack ? vec_get(top_table(), entry.number) : 0;
  if (action < std::size(entry_rules)) entry_rules[action](entry);
}

}  // namespace kv
