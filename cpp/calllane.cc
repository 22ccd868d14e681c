// Most calls of macros are small, stand on one line, and nothing happens in them that anybody but
// the output would notice: no message, no line end, no comment. Such a call is carried out here
// without input frames: texts are read where they lie, a stack of cursors stands for the frames,
// and what must be put together goes into scratch memory that is empty again after the call.
//
// The twin is expand.cc on top of the reader, and this file follows it function by function: the
// same order of reading ahead, of entering and leaving arguments, of disabling and enabling. What
// it leaves out is what it refuses. At the first sign of anything else (a message due, a unit that
// the reader would translate, the line's end, __LINE__, a limit of the scratch memory) the whole
// call is given up: what was written is taken back, and the plain path begins it anew.
#include "cpp/calllane.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "cpp/lanescan.h"
#include "cpp/number.h"
#include "cpp/options.h"
#include "cpp/outbuf.h"
#include "cpp/replacement.h"
#include "cpp/scan.h"
#include "cpp/text16.h"

namespace kv::cpp {

namespace {

// The limits of the lane, each well below that of the plain path.
constexpr std::size_t levels_limit = 64;      // texts being read inside one another
constexpr int calls_limit = 16;               // calls being collected inside one another
constexpr int expansions_limit = 900;         // begun in one call; message 115 is due at 1000
constexpr std::size_t scratch_size = 32768;   // units of arguments and replacements
constexpr std::size_t collected_size = 8192;  // units of arguments being collected
constexpr std::size_t pointers_size = 1024;   // argument pointers
constexpr std::size_t name_limit = 255;       // units of a name that lies in two texts
constexpr std::size_t output_limit = 65536;   // bytes written in one call
static_assert(output_limit < out_size);

// One text being read: an expansion (`macro` set), an argument of one (`arg_of` set), or generated.
struct level {
  const unit* at;  // the next unit; a zero ends the text
  symbol* macro;
  symbol* arg_of;
  unit* const* args;  // expansions: the arguments, null where none was given
  int arg_count;
  bool at_end;  // expansions: MARK_EXP_END has been delivered
};

// What an object-like macro came to when it was expanded last: the same again as long as no macro
// is defined or removed, and the macros it depends on are not being expanded.
struct memo {
  static constexpr std::size_t macros_limit = 6;

  std::array<symbol*, macros_limit> macros;  // that were met, the macro itself first
  std::size_t macro_count;
  const unsigned char* text;
  std::size_t length;
  int expansions;
  bool ends_in_number;  // so that what follows must not be able to continue it
};
constexpr std::size_t memos_limit = 1024;
constexpr std::size_t memo_text_size = 32768;
constexpr std::size_t memo_length_limit = 1024;

struct call {
  explicit call(const symbol* sym) : macro(sym) {}

  const symbol* macro;
  int count = 0;
  std::array<unit*, max_macro_args> args;  // the first `count`
};

// The units that are argument text whatever surrounds them.
constexpr std::array<bool, 256> make_argument_units() {
  std::array<bool, 256> t{};
  for (std::size_t c = 1; c < 256; ++c) t[c] = lane::calm_units[c] && lane::kinds[c] != lane::blank;
  for (const char c : {'\n', '(', ')', ',', '"', '\''}) t[static_cast<std::size_t>(c)] = false;
  return t;
}
constexpr std::array<bool, 256> argument_units = make_argument_units();

// Whether the unit of a text is delivered as it is, whatever surrounds it.
bool is_plain(unit c) {
  return c < 256 && lane::calm_units[c] && c != '\n';
}

bool begins_identifier(int c) {
  return c == MARK_NOEXPAND || (c < 256 && char_class(c) == CT_LETTER);
}

class call_lane {
 public:
  // Carries out the call; null when it was given up.
  unsigned char* run(symbol* macro, unsigned char* behind_name);

 private:
  int fail() {
    failed = true;
    return 0;
  }

  // ---- The reader.

  void push(const level& l) {
    if (depth == levels_limit) {
      fail();
    } else {
      levels[depth++] = l;
    }
  }
  void pop() {
    const level& l = levels[--depth];
    if (depth < recorded_level) recorded_level = 0;
    if (l.macro != nullptr) {
      --l.macro->disable;
    } else if (l.arg_of != nullptr) {
      ++l.arg_of->disable;
    }
  }
  void push_argument(const level& expansion, int n);
  void push_generated(const unit* text) { push({text, nullptr, nullptr, nullptr, 0, false}); }

  // Leaves texts that are used up and enters arguments referred to, until there is a unit to read.
  // Returns whether it is one of a text, not of the line.
  bool settle();
  // The next unit, not yet read; 0 after a failure.
  int peek() {
    if (depth != 0 && is_plain(*top().at)) return *top().at;
    return settle() ? peek_text() : peek_line();
  }
  int peek_text();
  int peek_line() { return failed || !lane::is_calm(line) ? fail() : *line; }
  // Reads the unit that peek() has just shown.
  void advance();
  int get() {
    if (depth != 0 && is_plain(*top().at)) return *top().at++;
    const int c = peek();
    if (!failed) advance();
    return c;
  }
  int get_nomark() {
    int c;
    do {
      c = get();
    } while (c == MARK_PASTE || c == MARK_EXP_END);
    return c;
  }
  // Gives back the unit that get() has just read.
  void unget();
  level& top() { return levels[depth - 1]; }
  const level& top() const { return levels[depth - 1]; }
  // Whether the text being read is an argument or generated.
  bool in_argument_text() const { return depth != 0 && levels[depth - 1].macro == nullptr; }

  // ---- Names.

  // Gathers the name that begins with the unit read last. The token lies where it stands, or in
  // `name_buf` when its units come from several texts.
  void scan_name(int c);
  symbol* look_up();
  symbol* eligible(symbol* macro) const;
  std::size_t marks_before_token() const {
    std::size_t n = 0;
    while (n < token_length && token[n] == MARK_NOEXPAND) ++n;
    return n;
  }

  // ---- Expansion, as in expand.cc.

  int try_expand(int c);
  bool replace(symbol* macro);
  bool expand(symbol* macro);
  bool find_open_paren();
  void collect(call& c);
  void collect_from_line(call& c);
  void collect_run(const call& c, int& parens);
  void collect_expansion_run(int& parens);
  void collect_argument_run(const call& c, int& parens);
  void collect_identifier(const call& c);
  bool collect_unit(int c, int& parens);
  void keep_collected(call& c, unit* mark);
  int expand_fully(int c);
  bool paste_tokens(int c);
  void push_replacement(symbol* macro, const call* c);

  // The end of the literal whose opening quote was read last; null after a failure.
  const unit* end_of_literal() {
    const unit* end = depth == 0 ? nullptr : lane::end_of_quoted(top().at - 1);
    if (end == nullptr) fail();
    return end;
  }

  void collect_save(int c) {
    if (collected == collected_text.data() + collected_size) {
      fail();
    } else {
      *collected++ = static_cast<unit>(c);
    }
  }
  void append_due_space() {
    if (space_due) collect_save(' ');
    space_due = false;
  }
  // Room for `n` units that lasts until the call is done; null after a failure.
  unit* keep(std::size_t n) {
    if (scratch_size - kept < n) {
      fail();
      return nullptr;
    }
    unit* room = scratch.data() + kept;
    kept += n;
    return room;
  }

  // ---- What has been found before.

  bool replay(symbol* macro);
  void start_recording(symbol* macro);
  void note(symbol* macro);
  void finish_recording(bool ends_in_number);

  // ---- Output, as in the main loop.

  void put(int c) {
    if (is_dropped_marker(c)) return;
    if (out_room() == 0) {
      fail();
    } else {
      *out_next++ = static_cast<unsigned char>(c);
    }
  }
  bool ends_calmly(const unit* end, bool& leaves) const;
  bool number_ends_calmly(const unit* end, bool& leaves) const;
  bool enter_argument(const unit* at, bool blanks);
  void write_run(const unit* at, const unit* end) {
    if (out_room() < static_cast<std::size_t>(end - at)) {
      fail();
      return;
    }
    unsigned char* to = out_next;
    while (at != end) *to++ = static_cast<unsigned char>(*at++);
    out_next = to;
  }
  bool write_tokens();
  void write_step();
  void finish_token(int c);
  void write_token(int c);

  unsigned char* line = nullptr;  // the next byte of the file's line
  bool failed = false;
  bool space_due = false;  // white space passed over in the argument being collected
  int expansions = 0;
  int calls = 0;
  std::size_t depth = 0;
  std::size_t kept = 0;
  std::size_t pointers_used = 0;
  unit* collected = nullptr;
  const unit* token = nullptr;
  std::size_t token_length = 0;

  std::uint64_t memo_epoch = 0;  // of what is remembered
  std::size_t memo_count = 0;
  std::size_t memo_text_used = 0;
  std::size_t recorded_level = 0;  // of the expansion being recorded, from 1; 0: none
  unsigned char* recorded_from = nullptr;
  memo recorded{};
  std::array<level, levels_limit> levels;
  std::array<unit*, pointers_size> pointers;
  std::array<unit, name_limit> name_buf;
  std::array<unit, collected_size> collected_text;
  std::array<unit, scratch_size> scratch;
  std::array<memo, memos_limit> memos;
  std::array<unsigned char, memo_text_size> memo_text;
};

// ---- The reader.

void call_lane::push_argument(const level& expansion, int n) {
  symbol* macro = expansion.macro;
  if (macro == nullptr || n >= macro->nargs) {
    fail();
    return;
  }
  if (n >= expansion.arg_count || expansion.args[n] == nullptr) return;
  push({expansion.args[n], nullptr, macro, nullptr, 0, false});
  if (!failed) --macro->disable;
}

inline bool call_lane::settle() {
  while (depth != 0 && !failed) {
    level& l = top();
    if (l.at_end || (*l.at == 0 && l.macro == nullptr)) {
      pop();
    } else if (is_param_ref(*l.at)) {
      push_argument(l, *l.at++ - MARK_PARAM_BASE);
    } else {
      return true;
    }
  }
  return false;
}

inline int call_lane::peek_text() {
  const unit* at = top().at;
  if (*at == 0) return MARK_EXP_END;
  if (*at < 256) {
    if (lane::calm_units[*at] || *at == '?') return *at;
    // A `/` is read together with the unit behind it.
    return *at == '/' && at[1] != 0 && at[1] != '/' && at[1] != '*' ? '/' : fail();
  }
  return *at == MARK_NOEXPAND || *at == MARK_PASTE ? *at : fail();
}

inline void call_lane::advance() {
  if (depth != 0) {
    level& l = top();
    if (*l.at == 0) {
      l.at_end = true;
    } else if (*l.at == '\n') {
      fail();
    } else {
      ++l.at;
    }
  } else if (*line == '\n' || *line == '\r') {
    fail();
  } else {
    ++line;
  }
}

inline void call_lane::unget() {
  if (depth == 0) {
    --line;
  } else if (top().at_end) {
    top().at_end = false;
  } else {
    --top().at;
  }
}

// ---- Names.

void call_lane::scan_name(int c) {
  if (depth != 0) {
    level& l = top();
    token = l.at - 1;
    while (lane::is_word_unit(l.at)) ++l.at;
    token_length = static_cast<std::size_t>(l.at - token);
  } else {
    name_buf[0] = static_cast<unit>(c);
    token = name_buf.data();
    token_length = 1;
  }
  for (int next; (next = peek()) == MARK_NOEXPAND ||
                 (next < 256 && lane::word_units[static_cast<std::size_t>(next)]);) {
    if (token != name_buf.data()) {
      if (token_length > name_limit) {
        fail();
        return;
      }
      std::memcpy(name_buf.data(), token, token_length * sizeof(unit));
      token = name_buf.data();
    }
    if (token_length == name_limit) {
      fail();
      return;
    }
    advance();
    name_buf[token_length++] = static_cast<unit>(next);
  }
  if (token_length > settings.ident_max) fail();
}

// The macro that the token names, or null.
inline symbol* call_lane::look_up() {
  symbol* macro = sym_find(token, token_length);
  if (macro != nullptr && recorded_level != 0) note(macro);
  return macro;
}

// `macro` if it may be expanded where reading stands, else null.
inline symbol* call_lane::eligible(symbol* macro) const {
  const bool in_its_argument = in_argument_text() && depth > 1 && levels[depth - 2].macro == macro;
  return in_its_argument || macro->disable == 0 ? macro : nullptr;
}

// ---- Expansion.

int call_lane::try_expand(int c) {
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
bool call_lane::replace(symbol* macro) {
  return eligible(macro) != nullptr && peek() != MARK_PASTE && expand(macro);
}

bool call_lane::expand(symbol* macro) {
  if (failed || ++expansions > expansions_limit) return fail() != 0;
  if (macro->nargs == NARGS_OBJECT) {
    push_replacement(macro, nullptr);
    return !failed;
  }
  if (macro->nargs < 0 || calls == calls_limit) return fail() != 0;
  if (!find_open_paren()) return false;
  call c(macro);
  ++calls;
  collect(c);
  --calls;
  if (failed || c.count != macro->nargs) return fail() != 0;
  push_replacement(macro, &c);
  return !failed;
}

bool call_lane::find_open_paren() {
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

void call_lane::push_replacement(symbol* macro, const call* c) {
  level l{u"", macro, nullptr, nullptr, 0, false};
  int references = macro->has_references ? 1 : 0;
  if (macro->body != nullptr && !macro->has_operators) {
    if (macro->body_len >= frame_capacity) fail();
    l.at = macro->body;
  } else if (macro->body != nullptr) {
    replacement made{scratch.data() + kept, scratch_size - kept};
    made.make(macro, c != nullptr ? call_arguments{c->args.data(), c->count} : call_arguments{});
    if (made.full || made.stray_stringizes != 0 || made.len >= frame_capacity) fail();
    l.at = made.text;
    references = made.references;
    kept += made.len + 1;
  }
  if (references > 0 && c != nullptr && c->count > 0) {
    const auto n = static_cast<std::size_t>(c->count);
    if (pointers_size - pointers_used < n) {
      fail();
      return;
    }
    l.args = pointers.data() + pointers_used;
    l.arg_count = c->count;
    std::memcpy(pointers.data() + pointers_used, c->args.data(), n * sizeof(unit*));
    pointers_used += n;
  }
  if (!failed) push(l);
  if (!failed) ++macro->disable;
}

// ---- Arguments.

// Arguments that stand in the line are taken as they are; nothing in them is expanded yet.
void call_lane::collect_from_line(call& c) {
  unsigned char* p = line;
  unit* to = scratch.data() + kept;
  const unit* const limit = scratch.data() + scratch_size - 2;
  for (bool more = true; more;) {
    while (lane::kinds[*p] == lane::blank) ++p;
    if (*p == ')') break;
    if (c.count == max_macro_args) {
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
void call_lane::collect(call& c) {
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
      collect_run(c, parens);
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

// Lane within the lane: collects what the text on top has ahead that needs no closer look.
inline void call_lane::collect_run(const call& c, int& parens) {
  if (depth == 0 || top().at_end) return;
  if (top().macro != nullptr) {
    collect_expansion_run(parens);
  } else {
    collect_argument_run(c, parens);
  }
}

// The text of an argument or generated text is expanded while it is collected.
void call_lane::collect_argument_run(const call& c, int& parens) {
  level& l = top();
  while (!failed) {
    const unit u = *l.at;
    switch (lane::kind_at(l.at)) {
      case lane::blank:
        space_due = true;
        ++l.at;
        continue;
      case lane::letter: {
        const unit* end = lane::end_of_run(l.at);
        token = l.at;
        token_length = static_cast<std::size_t>(end - l.at);
        if (token_length > settings.ident_max || !lane::is_calm(end)) return;
        symbol* macro = look_up();
        if (macro != nullptr && eligible(macro) != nullptr) return;
        collect_identifier(c);
        l.at = end;
        continue;
      }
      case lane::digit:
      case lane::operand:
        if (!is_plain(u) || !is_plain(l.at[1])) return;
        break;
      case lane::single:
      case lane::point:
        if (parens == 0 && (u == ',' || u == ')')) return;
        if (u == '(') ++parens;
        if (u == ')') --parens;
        break;
      default:
        return;
    }
    append_due_space();
    collect_save(u);
    ++l.at;
  }
}

// Appends the identifier that is the token.
void call_lane::collect_identifier(const call& c) {
  append_due_space();
  if (token_length == c.macro->name_len &&
      std::memcmp(token, c.macro->name, token_length * sizeof(unit)) == 0) {
    collect_save(MARK_NOEXPAND);
  }
  for (std::size_t i = 0; i < token_length; ++i) collect_save(token[i]);
}

// The text of an expansion is taken as it is.
void call_lane::collect_expansion_run(int& parens) {
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
bool call_lane::collect_unit(int c, int& parens) {
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
void call_lane::keep_collected(call& c, unit* mark) {
  const auto n = static_cast<std::size_t>(collected - mark);
  unit* room = keep(n);
  if (room == nullptr) return;
  std::memcpy(room, mark, n * sizeof(unit));
  for (int i = 0; i < c.count; ++i) {
    unit*& arg = c.args[static_cast<std::size_t>(i)];
    arg = room + (arg - mark);
  }
}

int call_lane::expand_fully(int c) {
  for (;;) {
    c = try_expand(c);
    if (failed || !is_operand_class(char_class(c)) || !paste_tokens(c)) return failed ? 0 : c;
    c = get_nomark();
  }
}

bool call_lane::paste_tokens(int c) {
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
  constexpr unsigned joining_classes = 0x03048C1E;  // 1-4, 10, 11, 15, 18, 24, 25
  const int cls = char_class(c);
  if (c != MARK_NOEXPAND && (c > 255 || cls > 31 || ((joining_classes >> cls) & 1U) == 0)) {
    return fail() != 0;
  }
  scan_name(c);
  const std::size_t marks = marks_before_token();
  if (failed || keep(token_length - marks) == nullptr) return false;
  std::memcpy(text + n, token + marks, (token_length - marks) * sizeof(unit));
  text[n + token_length - marks] = 0;
  push_generated(text);
  return true;
}

// ---- What has been found before. Constants make up most of all calls, and their names come again.

// Writes what the object-like `macro`, which may be expanded here, came to before. Returns false,
// with nothing done, when that is not known or not sure to be the same.
bool call_lane::replay(symbol* macro) {
  if (macro->memo_epoch != memo_epoch) return false;
  const memo& m = memos[macro->memo_index];
  for (std::size_t i = 0; i < m.macro_count; ++i) {
    if (m.macros[i]->disable != 0) return false;
  }
  if (m.ends_in_number) {
    const bool ends =
        depth == 0 ? lane::is_calm(line) && !lane::is_word_unit(line) && *line != '.'
                   : lane::is_calm(top().at) && !lane::is_word_unit(top().at) && *top().at != '.';
    if (!ends) return false;
  }
  if (out_room() < m.length || (expansions += m.expansions) > expansions_limit) {
    fail();
    return true;
  }
  std::memcpy(out_next, m.text, m.length);
  out_next += m.length;
  return true;
}

// Remembers what is written from here to the end of the expansion of `macro` that begins now.
void call_lane::start_recording(symbol* macro) {
  if (macro->nargs != NARGS_OBJECT || macro->disable != 0 || depth == levels_limit) return;
  recorded_level = depth + 1;
  recorded_from = out_next;
  recorded.macros[0] = macro;
  recorded.macro_count = 1;
  recorded.expansions = expansions;
}

// A macro met while recording: what is recorded depends on its not being expanded outside.
void call_lane::note(symbol* macro) {
  int disabled_inside = 0;
  for (std::size_t i = recorded_level - 1; i < depth; ++i) {
    if (levels[i].macro == macro) ++disabled_inside;
    if (levels[i].macro == nullptr && levels[i].arg_of == macro) --disabled_inside;
  }
  const auto end = recorded.macros.begin() + static_cast<std::ptrdiff_t>(recorded.macro_count);
  if (macro->disable != disabled_inside) {
    recorded_level = 0;
  } else if (std::find(recorded.macros.begin(), end, macro) == end) {
    if (recorded.macro_count == memo::macros_limit) {
      recorded_level = 0;
    } else {
      recorded.macros[recorded.macro_count++] = macro;
    }
  }
}

void call_lane::finish_recording(bool ends_in_number) {
  recorded_level = 0;
  recorded.length = static_cast<std::size_t>(out_next - recorded_from);
  recorded.expansions = expansions - recorded.expansions;
  recorded.ends_in_number = ends_in_number;
  if (recorded.length > memo_length_limit) return;
  if (memo_count == memos_limit || memo_text_size - memo_text_used < recorded.length) {
    memo_epoch = ++macros_epoch;
    memo_count = memo_text_used = 0;
  }
  unsigned char* text = memo_text.data() + memo_text_used;
  std::memcpy(text, recorded_from, recorded.length);
  memo_text_used += recorded.length;
  recorded.text = text;
  recorded.macros[0]->memo_epoch = memo_epoch;
  recorded.macros[0]->memo_index = static_cast<std::uint32_t>(memo_count);
  memos[memo_count++] = recorded;
}

// ---- Output.

void call_lane::write_token(int c) {
  switch (char_class(c)) {
    case CT_QUOTE: {
      const unit* end = end_of_literal();
      if (end == nullptr) return;
      put(c);
      while (top().at != end) put(*top().at++);
      break;
    }
    case CT_DIGIT:
    case CT_DOT: {
      // A unit is read only when it is known to belong to the number.
      struct {
        call_lane& lane;
        bool shown = false;
        int get() {
          if (shown) lane.advance();
          shown = true;
          return lane.peek();
        }
        void unget() const {}
      } input{*this};
      take_number(input, c, [this](int u) { put(u); });
      break;
    }
    case CT_LETTER:
      for (std::size_t i = marks_before_token(); i < token_length; ++i) put(token[i]);
      break;
    default:
      put(c);
  }
}

// What the main loop does with the unit that try_expand() has returned.
void call_lane::finish_token(int c) {
  if (failed || (is_operand_class(char_class(c)) && paste_tokens(c))) return;
  write_token(c);
}

// Whether what ends the word before `end`, in the text on top, shows at sight and has no effect.
// `leaves` tells that it stands behind the reference to the argument that ends at `end`.
inline bool call_lane::ends_calmly(const unit* end, bool& leaves) const {
  leaves = false;
  if (*end != 0) return lane::is_calm(end);
  if (top().macro != nullptr) return true;
  if (depth == 1 || levels[depth - 2].at_end) return false;
  leaves = true;
  const level& below = levels[depth - 2];
  if (*below.at == 0) return below.macro != nullptr;
  return lane::is_calm(below.at) && !lane::is_word_unit(below.at);
}

// The same for a number, which goes on behind the end of an expansion, too.
inline bool call_lane::number_ends_calmly(const unit* end, bool& leaves) const {
  leaves = *end == 0;
  if (leaves && depth == 1) {
    return top().macro != nullptr && lane::is_calm(line) && !lane::is_word_unit(line) &&
           *line != '.';
  }
  if (leaves && levels[depth - 2].at_end) return false;
  const unit* next = leaves ? levels[depth - 2].at : end;
  return lane::is_calm(next) && !lane::is_word_unit(next) && *next != '.';
}

// Goes on with the text of the argument referred to at `at`, behind blanks if `blanks` is set.
// Returns false, with nothing done, when it begins with nothing that those could be written before.
bool call_lane::enter_argument(const unit* at, bool blanks) {
  level& l = top();
  const int n = *at - MARK_PARAM_BASE;
  if (blanks) {
    const unit* arg = n < l.arg_count ? l.args[n] : nullptr;
    if (arg == nullptr || !is_plain(*arg) || lane::kind_at(arg) == lane::blank) return false;
    put(' ');
  }
  l.at = at + 1;
  push_argument(l, n);
  return true;
}

// Writes the tokens ahead, as long as they are nothing special, and leaves the texts that end with
// them. Returns false when the next unit must be looked at more closely.
bool call_lane::write_tokens() {
  while (depth != 0 && !failed) {
    level& l = top();
    if (l.at_end) return false;
    const unit* at = l.at;
    while (lane::kind_at(at) == lane::blank) ++at;
    const bool blanks = at != l.at;
    const unit* end = at;
    switch (lane::kind_at(at)) {
      case lane::single:
        do {
          ++end;
        } while (lane::kind_at(end) == lane::single);
        break;
      case lane::letter: {
        do {
          ++end;
        } while (lane::is_word_unit(end));
        token = at;
        token_length = static_cast<std::size_t>(end - at);
        bool leaves;
        if (token_length > settings.ident_max || !ends_calmly(end, leaves)) return false;
        l.at = end;
        if (blanks) put(' ');
        if (leaves) pop();
        symbol* macro = look_up();
        if (macro != nullptr && eligible(macro) != nullptr) {
          if (replay(macro)) continue;
          if (recorded_level == 0) start_recording(macro);
          finish_token(expand(macro) ? try_expand(get()) : *at);
          continue;
        }
        write_run(at, end);
        continue;
      }
      case lane::digit: {
        end = lane::end_of_digits(at);
        bool leaves;
        if (!number_ends_calmly(end, leaves)) return false;
        l.at = end;
        if (blanks) put(' ');
        write_run(at, end);
        if (leaves) {
          if (depth == recorded_level) finish_recording(true);
          pop();
        }
        continue;
      }
      case lane::stop:
        if (*at == 0 && (l.macro != nullptr || !blanks)) {
          if (blanks) put(' ');
          if (depth == recorded_level) finish_recording(false);
          pop();
        } else if (!is_param_ref(*at) || !enter_argument(at, blanks)) {
          return false;
        }
        continue;
      default: {
        symbol* none = nullptr;
        end = lane::end_of_token(at, none);
        if (end == nullptr) return false;
      }
    }
    l.at = end;
    if (blanks) put(' ');
    write_run(at, end);
  }
  return true;
}

// Some of what the main loop's copying does, with the stack of texts not empty.
void call_lane::write_step() {
  if (write_tokens()) return;
  bool blanks = false;
  for (;;) {
    if (!settle()) {
      if (blanks) fail();  // they belong to those that follow in the line
      return;
    }
    const int c = get();
    if (char_class(c) == CT_SPACE) {
      blanks = blanks || c != MARK_PASTE;
      continue;
    }
    if (blanks) put(' ');
    finish_token(try_expand(c));
    return;
  }
}

unsigned char* call_lane::run(symbol* macro, unsigned char* behind_name) {
  line = behind_name;
  failed = false;
  expansions = calls = 0;
  depth = kept = pointers_used = 0;
  collected = collected_text.data();
  recorded_level = 0;
  if (memo_epoch != macros_epoch) {
    memo_epoch = macros_epoch;
    memo_count = memo_text_used = 0;
  }
  if (out_room() < output_limit) out_flush();
  unsigned char* const written = out_next;
  if (macro->disable == 0 && replay(macro)) return line;
  if (!failed && macro->disable == 0) start_recording(macro);
  if (macro->disable == 0 && expand(macro)) {
    finish_token(try_expand(get()));
    while (!failed && depth != 0) write_step();
    if (!failed) return line;
  }
  while (depth != 0) pop();
  out_next = written;
  return nullptr;
}

call_lane the_lane;

}  // namespace

unsigned char* expand_in_line(symbol* macro, unsigned char* behind_name) {
  if (!lanes || settings.macro_report) return nullptr;
  return the_lane.run(macro, behind_name);
}

}  // namespace kv::cpp
