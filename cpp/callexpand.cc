#include "cpp/callexpand.h"

#include <cstring>

#include "cpp/lanescan.h"
#include "cpp/options.h"
#include "cpp/reader.h"
#include "cpp/replacement.h"
#include "cpp/scan.h"

namespace kv::cpp {

namespace {

// The units that are argument text whatever surrounds them.
constexpr std::array<bool, 256> make_argument_units() {
  std::array<bool, 256> t{};
  for (std::size_t c = 1; c < 256; ++c) t[c] = lane::calm_units[c] && lane::kinds[c] != lane::blank;
  for (const char c : {'\n', '(', ')', ',', '"', '\''}) t[static_cast<std::size_t>(c)] = false;
  return t;
}
constexpr std::array<bool, 256> argument_units = make_argument_units();

}  // namespace

int call_expander::try_expand(int c) {
  while (begins_identifier(c)) {
    scan_name(c);
    if (failed) return 0;
    symbol* macro = look_up();
    if (macro == nullptr || !replace(macro)) return c;
    c = get();
  }
  return c;
}

// Expands `macro`, named by the token, unless it is not to be expanded here.
bool call_expander::replace(symbol* macro) {
  return eligible(macro) && peek() != MARK_PASTE && expand(macro);
}

bool call_expander::expand(symbol* macro) {
  if (failed) return refuse();
  if (macro->nargs == NARGS_OBJECT) {
    push_replacement(macro, nullptr);
    return !failed;
  }
  if (macro->nargs < 0 || calls == calls_limit) return refuse();
  if (!find_open_paren()) return false;
  call c(macro);
  ++calls;
  collect(c);
  --calls;
  if (failed || c.count != macro->nargs) return refuse();
  push_replacement(macro, &c);
  return !failed;
}

bool call_expander::find_open_paren() {
  bool space = false;
  int c;
  for (;;) {
    c = get();
    if (char_class(c) == CT_SPACE) {
      space = true;
    } else if (c != MARK_EXP_END) {
      break;
    }
  }
  if (failed || c == '(') return !failed;
  if (!space) {
    unget();
  } else if (unit* text = keep(3)) {
    text[0] = ' ';
    text[1] = static_cast<unit>(c);
    text[2] = 0;
    push_generated(text);
  }
  return false;
}

void call_expander::push_replacement(symbol* macro, const call* c) {
  const unit* text = u"";
  int references = macro->has_references ? 1 : 0;
  if (macro->body != nullptr && !macro->has_operators) {
    if (macro->body_len >= frame_capacity) fail();
    text = macro->body;
  } else if (macro->body != nullptr && kept == scratch_size) {
    fail();
  } else if (macro->body != nullptr) {
    replacement made{scratch.data() + kept, scratch_size - kept};
    made.make(macro, c != nullptr ? call_arguments{c->args.data(), c->count} : call_arguments{});
    if (made.full || made.stray_stringizes != 0 || made.len >= frame_capacity) fail();
    text = made.text;
    references = made.references;
    kept += made.len + 1;
  }
  if (!failed) push(text, macro, nullptr);
  if (failed) return;
  ++macro->disable;
  if (references > 0 && c != nullptr && c->count > 0) {
    const auto n = static_cast<std::size_t>(c->count);
    if (pointers_size - pointers_used < n) {
      fail();
      return;
    }
    top().args = pointers.data() + pointers_used;
    top().arg_count = c->count;
    std::memcpy(pointers.data() + pointers_used, c->args.data(), n * sizeof(unit*));
    pointers_used += n;
  }
}

// ---- Arguments.

// Arguments that stand in the line are taken as they are; nothing in them is expanded yet.
void call_expander::collect_from_line(call& c) {
  unsigned char* p = line;
  unit* to = scratch.data() + kept;
  const unit* const limit = scratch.data() + scratch_size - 2;
  for (bool more = true; more;) {
    while (lane::kinds[*p] == lane::blank) ++p;
    if (*p == ')') break;
    if (c.count == max_macro_args || to >= limit) {
      fail();
      return;
    }
    c.args[static_cast<std::size_t>(c.count++)] = to;
    int parens = 0;
    for (;;) {
      const unsigned char* token_at = p;
      while (lane::kinds[*p] == lane::blank) ++p;
      const bool ends = parens == 0 && (*p == ')' || *p == ',');
      if (ends) break;
      if (p != token_at) *to++ = ' ';
      const unsigned char* run = p;
      if (argument_units[*p]) {
        do {
          ++p;
        } while (argument_units[*p]);
      } else if (*p == '"' || *p == '\'') {
        p = const_cast<unsigned char*>(lane::end_of_quoted(static_cast<const unsigned char*>(p)));
      } else if (*p == '(' || *p == ')') {
        parens += *p == '(' ? 1 : -1;
        ++p;
      } else {
        p = *p != '\n' && *p != '\r' && lane::is_calm(p) ? p + 1 : nullptr;
      }
      if (p == nullptr || limit - to < p - run + 1) {
        fail();
        return;
      }
      while (run != p) *to++ = *run++;
    }
    *to++ = 0;
    more = *p == ',';
    if (more) ++p;
  }
  line = p + 1;
  kept = static_cast<std::size_t>(to - scratch.data());
}

// Collects the arguments of a call behind its `(`.
void call_expander::collect(call& c) {
  if (depth == 0) {
    collect_from_line(c);
    return;
  }
  unit* const mark = collected;
  for (;;) {
    int u;
    do {
      u = get();
    } while (char_class(u) == CT_SPACE || u == MARK_EXP_END);
    if (u == ')' || failed) break;
    if (c.count == max_macro_args) {
      fail();
      break;
    }
    c.args[static_cast<std::size_t>(c.count)] = collected;
    const bool outer_space_due = space_due;
    space_due = false;
    int parens = 0;
    bool expanded = false;
    while (!failed) {
      if (char_class(u) == CT_SPACE) {
        space_due = true;
      } else if (u != MARK_EXP_END) {
        if (!expanded && in_argument_text()) {
          u = expand_fully(u);
          expanded = true;
          continue;
        }
        if (expanded && begins_identifier(u)) {
          collect_identifier(c);
        } else if (parens == 0 && (u == ')' || u == ',')) {
          break;
        } else if (!collect_unit(u, parens)) {
          fail();
        }
      }
      expanded = false;
      collect_run(parens);
      u = get_nomark();
    }
    collect_save(0);
    ++c.count;
    space_due = outer_space_due;
    if (u == ')' || failed) break;
  }
  if (!failed) keep_collected(c, mark);
  collected = mark;
}

// Appends the identifier that is the token.
void call_expander::collect_identifier(const call& c) {
  append_due_space();
  if (token_length == c.macro->name_len &&
      std::memcmp(token, c.macro->name, token_length * sizeof(unit)) == 0) {
    collect_save(MARK_NOEXPAND);
  }
  for (std::size_t i = 0; i < token_length; ++i) collect_save(token[i]);
}

// Lane within the lane: what the text of an expansion has ahead is taken as it is.
inline void call_expander::collect_run(int& parens) {
  if (depth == 0 || top().macro == nullptr || top().at_end) return;
  const unit* at = top().at;
  unit* to = collected;
  const unit* const limit = collected_text.data() + collected_size - 2;
  for (; to < limit && *at < 256; ++at) {
    const unit u = *at;
    if (lane::kinds[u] == lane::blank) {
      space_due = true;
      continue;
    }
    if (!argument_units[u]) {
      if (u != '(' && (u != ')' || parens == 0)) break;
      parens += u == '(' ? 1 : -1;
    }
    if (space_due) *to++ = ' ';
    space_due = false;
    *to++ = u;
  }
  top().at = at;
  collected = to;
}

// Appends the unit `c` read last, or the literal it begins. Returns false after a failure.
bool call_expander::collect_unit(int c, int& parens) {
  append_due_space();
  if (char_class(c) == CT_QUOTE) {
    const unit* end = end_of_literal();
    if (end == nullptr) return false;
    collect_save(c);
    while (top().at != end) collect_save(*top().at++);
    return true;
  }
  if (c == '(') ++parens;
  if (c == ')') --parens;
  collect_save(c);
  return !failed;
}

// Moves the arguments collected from `mark` on to where they last.
void call_expander::keep_collected(call& c, unit* mark) {
  const auto n = static_cast<std::size_t>(collected - mark);
  unit* room = keep(n);
  if (room == nullptr) return;
  std::memcpy(room, mark, n * sizeof(unit));
  for (int i = 0; i < c.count; ++i) {
    unit*& arg = c.args[static_cast<std::size_t>(i)];
    arg = room + (arg - mark);
  }
}

int call_expander::expand_fully(int c) {
  for (;;) {
    c = try_expand(c);
    if (failed || !is_operand_class(char_class(c)) || !paste_tokens(c)) return failed ? 0 : c;
    c = get_nomark();
  }
}

bool call_expander::paste_tokens(int c) {
  if (peek() != MARK_PASTE) return false;
  advance();
  unit* text = scratch.data() + kept;
  std::size_t n = 0;
  if (begins_identifier(c)) {
    n = marks_before_token();
    if (keep(token_length - n + 1) == nullptr) return false;
    std::memcpy(text, token + n, (token_length - n) * sizeof(unit));
    n = token_length - n;
  } else {
    if (keep(2) == nullptr) return false;
    text[n++] = static_cast<unit>(c);
  }
  c = get();
  if (!begins_right_operand(c)) return refuse();
  scan_name(c);
  const std::size_t marks = marks_before_token();
  if (failed || keep(token_length - marks) == nullptr) return false;
  std::memcpy(text + n, token + marks, (token_length - marks) * sizeof(unit));
  text[n + token_length - marks] = 0;
  push_generated(text);
  return true;
}

void call_expander::note(symbol* macro) {
  int disabled_inside = 0;
  for (std::size_t i = watched_depth - 1; i < depth; ++i) {
    if (levels[i].macro == macro) ++disabled_inside;
    if (levels[i].arg_of == macro) --disabled_inside;
  }
  if (macro->disable != disabled_inside || !memos.add(macro)) watched_depth = 0;
}

void call_expander::begin(unsigned char* at) {
  line = at;
  failed = false;
  calls = 0;
  depth = watched_depth = kept = pointers_used = 0;
  collected = collected_text.data();
  memos.refresh();
}

}  // namespace kv::cpp
