// Operator precedence parsing with two stacks: values, and operators that wait for their right
// operand. Both sides of `&&`, `||` and `?:` are always computed; what need not have been is only
// spared the messages, by skip flags that every stacked operator carries.
#include "cpp/ifexpr.h"

#include <cstddef>
#include <string_view>

#include "common/alert.h"
#include "common/str16.h"
#include "cpp/expand.h"
#include "cpp/ifsizeof.h"
#include "cpp/lanes.h"
#include "cpp/reader.h"
#include "cpp/report/observe.h"
#include "cpp/scan.h"
#include "cpp/settings.h"
#include "cpp/symtab.h"
#include "cpp/token.h"

namespace kv::cpp {

namespace {

// Flags in the rank byte; the precedence stands above them.
constexpr std::uint8_t binary_position = 1;  // stands where an operator is expected
constexpr std::uint8_t leaves_operand = 2;   // behind it an operand counts as present

struct op_info {
  const char* name;
  std::uint8_t rank;
  std::uint8_t stacked_rank;
};

constexpr std::array<op_info, IFOP_COUNT> op_table = {{
    {"end of expression", 1, 1},
    {"val", 0, 0},
    {"id", 0, 0},
    {"+", 97, 97},
    {"-", 97, 97},
    {"*", 105, 105},
    {"/", 105, 105},
    {"%", 105, 105},
    {"<<", 89, 89},
    {">>", 89, 89},
    {"&", 65, 65},
    {"|", 57, 57},
    {"^", 57, 57},
    {"==", 73, 73},
    {"!=", 73, 73},
    {"<", 81, 81},
    {"<=", 81, 81},
    {">=", 81, 81},
    {">", 81, 81},
    {"&&", 49, 49},
    {"||", 41, 41},
    {"?", 33, 28},
    {":", 33, 33},
    {",", 25, 25},
    {"unary +", 112, 112},
    {"unary -", 112, 112},
    {"~", 112, 112},
    {"!", 112, 112},
    {"(", 120, 11},
    {")", 11, 11},
    {"(none)", 19, 19},
}};

struct if_operand {
  std::uint32_t value;
  bool is_signed;
};

struct stacked_op {
  op_code code;
  std::uint8_t rank;
  std::uint8_t skip;
};

// Skip flags: what a stacked operator says about the operands behind it.
constexpr std::uint8_t skip_branch = 1;  // the branch of ?: that is not chosen
constexpr std::uint8_t skip_right = 2;   // the right side of a decided && or ||

constexpr std::size_t operand_limit = 127;
constexpr std::size_t operator_limit = 127;

// ---- Arithmetic.

std::uint32_t divide(const if_operand& a, const if_operand& b, bool both_signed, bool remainder) {
  if (b.value == 0) return 0;
  if (!both_signed) return remainder ? a.value % b.value : a.value / b.value;
  if (b.value == UINT32_MAX) return remainder ? 0 : 0U - a.value;  // -1: avoids the one overflow
  const auto x = static_cast<std::int32_t>(a.value);
  const auto y = static_cast<std::int32_t>(b.value);
  return static_cast<std::uint32_t>(remainder ? x % y : x / y);
}

// -1, 0 or 1 for less, equal and greater.
int order(const if_operand& a, const if_operand& b, bool both_signed) {
  if (a.value == b.value) return 0;
  const bool less = both_signed
                        ? static_cast<std::int32_t>(a.value) < static_cast<std::int32_t>(b.value)
                        : a.value < b.value;
  return less ? -1 : 1;
}

std::uint32_t shift_right(const if_operand& a, std::uint32_t count) {
  if (!a.is_signed) return a.value >> count;
  return static_cast<std::uint32_t>(static_cast<std::int32_t>(a.value) >> count);
}

std::uint32_t binary_result(op_code code, const if_operand& a, const if_operand& b,
                            bool both_signed) {
  switch (code) {
    case IFOP_ADD: return a.value + b.value;
    case IFOP_SUB: return a.value - b.value;
    case IFOP_MUL: return a.value * b.value;
    case IFOP_DIV: return divide(a, b, both_signed, false);
    case IFOP_MOD: return divide(a, b, both_signed, true);
    case IFOP_SHL: return a.value << (b.value & 31);
    case IFOP_SHR: return shift_right(a, b.value & 31);
    case IFOP_BITAND: return a.value & b.value;
    case IFOP_BITOR: return a.value | b.value;
    case IFOP_BITXOR: return a.value ^ b.value;
    case IFOP_EQ: return a.value == b.value;
    case IFOP_NE: return a.value != b.value;
    case IFOP_LT: return order(a, b, both_signed) < 0;
    case IFOP_LE: return order(a, b, both_signed) <= 0;
    case IFOP_GE: return order(a, b, both_signed) >= 0;
    case IFOP_GT: return order(a, b, both_signed) > 0;
    case IFOP_LOGAND: return a.value != 0 && b.value != 0;
    case IFOP_LOGOR: return a.value != 0 || b.value != 0;
    default: return 0;
  }
}

std::uint32_t unary_result(op_code code, std::uint32_t v) {
  switch (code) {
    case IFOP_UMINUS: return 0U - v;
    case IFOP_COMPL: return ~v;
    case IFOP_NOT: return v == 0;
    default: return v;
  }
}

int hex_value(int c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return 16;
}

// The number that begins with `c`, already read; `next` gives the units behind it, and has given
// the one that ended it.
template <class Next>
if_operand read_number(int c, Next next) {
  int radix = 10;
  std::uint32_t value = 0;
  if (c == '0') {
    radix = 8;
    c = next();
    if (c == 'x' || c == 'X') {
      radix = 16;
      c = next();
    }
  }
  for (; hex_value(c) < radix; c = next()) {
    value = value * static_cast<std::uint32_t>(radix) + static_cast<std::uint32_t>(hex_value(c));
  }
  bool is_signed = value <= INT32_MAX;
  for (; c == 'u' || c == 'U' || c == 'l' || c == 'L'; c = next()) {
    if (c == 'u' || c == 'U') is_signed = false;
  }
  return {value, is_signed};
}

// ---- The evaluator. One for each #if; it reads, and ends at the end of the line or at an error.

enum class token { operand, op, stop };

class evaluator {
 public:
  std::int32_t run();

 private:
  // Ends the evaluation with the value 1.
  token stop() {
    ended = true;
    result = 1;
    return token::stop;
  }
  template <class... A>
  token fail(unsigned number, const A&... args) {
    alert_msg(number, args...);
    return stop();
  }
  // The same for an offending unit: a line's end is given back first.
  template <class... A>
  token fail_at(int c, unsigned number, const A&... args) {
    if (ends_line(c)) unget();
    return fail(number, args...);
  }

  token give(std::uint32_t value, bool is_signed) {
    operand = {value, is_signed};
    return token::operand;
  }
  token give_op(int c) {
    code = static_cast<op_code>(c);
    return token::op;
  }

  token next_token();
  bool take_calm_token(token& found);
  bool take_calm_word(unsigned char* p, token& found);
  token illegal_unit(int c);
  token character_constant();
  std::uint32_t escape_sequence(int& c);
  token number(int c) {
    const if_operand n = read_number(c, get);
    unget();
    return give(n.value, n.is_signed);
  }
  token identifier();
  token defined_operand();
  token operator_token(int c);
  token two_unit_operator(int first);

  void take_operand();
  void take_operator();
  void stack(op_code incoming);
  std::uint8_t skip_flags(op_code incoming) const;
  bool reduce_for(op_code incoming);
  bool reduce_conditional();
  void reduce_binary();
  void reduce_unary() {
    top_value().value = unary_result(top().code, top_value().value);
    --nops;
  }

  stacked_op& top() { return ops[nops - 1]; }
  const stacked_op& top() const { return ops[nops - 1]; }
  if_operand& top_value() { return values[nvalues - 1]; }
  const if_operand& top_value() const { return values[nvalues - 1]; }
  bool skipped() const { return top().skip != 0; }

  // What next_token() found.
  if_operand operand{};
  op_code code = IFOP_EOE;

  bool have_operand = false;  // an operand has just been read
  bool ended = false;
  std::int32_t result = 1;

  std::array<if_operand, operand_limit> values;
  std::size_t nvalues = 0;
  std::array<stacked_op, operator_limit + 1> ops;  // one for the bottom marker
  std::size_t nops = 0;
};

// ---- Tokens.

token evaluator::next_token() {
  for (;;) {
    if (token found; take_calm_token(found)) return found;
    const int c = next_expanded();
    if (ends_line(c)) {
      unget();
      return give_op(IFOP_EOE);
    }
    switch (char_class(c)) {
      case CT_OTHER: return illegal_unit(c);
      case CT_QUOTE: return c == '"' ? fail(126) : character_constant();
      case CT_DIGIT: return number(c);
      case CT_LETTER: return identifier();
      case CT_BACKSLASH: {
        if (get() != '\n') return fail(129);
        continue;  // the expression goes on with the next line
      }
      default: return operator_token(c);
    }
  }
}

// Lane: takes the token ahead in the line of the file on top without asking whether it is to be
// expanded or pasted, where that shows in the line. A token is calm if it can be told by itself and
// the unit behind it has no effect when it is read ahead.
bool evaluator::take_calm_token(token& found) {
  input_frame* f = cur_frame;
  if (!lanes || f == nullptr || f->rdptr == f->line_end || settings.cmode_asm) {
    return false;
  }
  unsigned char* const p = lane::skip_blanks(f->rdptr);
  if (*p == '\n') {
    f->rdptr = p;
    found = give_op(IFOP_EOE);
    return true;
  }
  const int cls = char_class(*p);
  if (cls == CT_LETTER) return take_calm_word(p, found);
  if (cls == CT_OTHER || cls > IFOP_BOTTOM || !lane::is_calm(p) || !lane::is_calm(p + 1)) {
    return false;
  }
  f->rdptr = p + 1;
  found = cls == CT_DIGIT ? number(*p) : operator_token(*p);
  return true;
}

// Where the name that a calm `defined` asks for begins and ends.
struct defined_name {
  const unsigned char* start;
  const unsigned char* end;
  unsigned char* behind;  // what follows the operand
};

// The operand at `p`, behind the word; `start` is null where it must be read in the plain way.
defined_name calm_defined_name(unsigned char* p) {
  constexpr defined_name none = {nullptr, nullptr, nullptr};
  p = lane::skip_blanks(p);
  const bool parenthesised = *p == '(';
  if (parenthesised) p = lane::skip_blanks(p + 1);
  if (char_class(*p) != CT_LETTER) return none;
  const unsigned char* const start = p;
  const unsigned char* const end = lane::end_of_run(start);
  p += end - start;
  if (static_cast<std::size_t>(end - start) > settings.ident_max || !lane::is_calm(end))
    return none;
  if (!parenthesised) return {start, end, p};
  p = lane::skip_blanks(p);
  if (*p != ')') return none;
  return {start, end, p + 1};
}

// The value of a macro that is nothing but a number; false for all others.
bool number_of(const symbol* macro, if_operand& value) {
  if (macro->nargs != NARGS_OBJECT || macro->disable != 0) return false;
  if (settings.macro_report || observing) return false;
  const unit* p = macro->body;
  if (p == nullptr || char_class(*p) != CT_DIGIT) return false;
  value = read_number(*p++, [&] { return int{*p++}; });
  return p == macro->body + macro->body_len + 1;
}

bool evaluator::take_calm_word(unsigned char* p, token& found) {
  symbol* macro = nullptr;
  const unsigned char* const end = lane::end_of_word(p, macro);
  if (end == nullptr) return false;
  const std::string_view word(reinterpret_cast<const char*>(p), static_cast<std::size_t>(end - p));
  unsigned char* behind = p + word.size();
  if (macro != nullptr) {
    // A message about this operand would be raised inside the macro.
    if_operand value;
    if (have_operand || nvalues == values.size() || !number_of(macro, value)) return false;
    found = give(value.value, value.is_signed);
  } else if (word == "defined") {
    const defined_name name = calm_defined_name(behind);
    if (name.start == nullptr) return false;
    const auto name_len = static_cast<std::size_t>(name.end - name.start);
    const symbol* known = sym_find(name.start, name_len);
    const bool is_known = known != nullptr && known->disable == 0;
    if (observing) observe::name_tested(name.start, name_len, is_known);
    found = give(is_known ? 1 : 0, true);
    behind = name.behind;
  } else if (word == "sizeof") {
    return false;
  } else {
    if (observing) observe::name_unknown(word);
    found = give(0, true);
  }
  cur_frame->rdptr = behind;
  return true;
}

token evaluator::illegal_unit(int c) {
  if (skipped()) return stop();
  if (c >= MARK_STRINGIZE && c <= MARK_EXP_END) return fail(1500);
  if (c < 0x20 || c > 0x7E) return fail(125, c);
  return fail(124, static_cast<char>(c));
}

// The value of the escape sequence behind a backslash; `c` becomes the unit behind it.
std::uint32_t evaluator::escape_sequence(int& c) {
  constexpr std::string_view letters = "abfnrtv";
  constexpr std::string_view codes = "\a\b\f\n\r\t\v";
  c = get();
  if (ends_line(c)) return 0;
  const bool hex = c == 'x';
  const int radix = hex ? 16 : 8;
  if (hex) {
    c = get();
  } else if (hex_value(c) >= radix) {
    const std::size_t n = c < 256 ? letters.find(static_cast<char>(c)) : letters.npos;
    const int value = n == letters.npos ? c : codes[n];
    c = get();
    return static_cast<std::uint32_t>(value);
  }
  std::uint32_t value = 0;
  for (int digits = 0; digits < 3 && hex_value(c) < radix; ++digits, c = get()) {
    value = value * static_cast<std::uint32_t>(radix) + static_cast<std::uint32_t>(hex_value(c));
  }
  return value;
}

token evaluator::character_constant() {
  const raw_reading raw;
  std::uint32_t value = 0;
  int c = get();
  if (c == '\\') {
    value = escape_sequence(c);
  } else if (c != '\'' && !ends_line(c)) {
    value = static_cast<std::uint32_t>(c);
    c = get();
  }
  for (; c != '\'' && !ends_line(c); c = get()) {
    value = value * 256 + static_cast<std::uint32_t>(c);
    if (!skipped()) alert_msg(174, static_cast<char>(c));
  }
  if (ends_line(c)) unget();
  return give(value, true);
}

token evaluator::identifier() {
  const unit* name = token_buf::bare_text();
  if (str16_cmp(name, u"defined") == 0) return defined_operand();
  if (str16_cmp(name, u"sizeof") == 0) {
    std::uint32_t size = 0;
    return eval_sizeof(size) ? give(size, false) : stop();
  }
  if (observing) observe::name_unknown(alert_str(name));
  return give(0, true);
}

token evaluator::defined_operand() {
  int c = skip_ws();
  const bool parenthesised = c == '(';
  if (parenthesised) c = skip_ws();
  if (char_class(c) != CT_LETTER) return fail_at(c, 127);
  const bool known = scan_macro(c) != nullptr;
  if (observing) observe::name_tested(token_buf::bare_text(), token_buf::len(), known);
  if (parenthesised && (c = skip_ws()) != ')') return fail_at(c, 127);
  return give(known ? 1 : 0, true);
}

token evaluator::operator_token(int c) {
  switch (c) {
    case '|':
    case '&':
    case '!':
    case '=':
    case '<':
    case '>': return two_unit_operator(c);
    case '+': return give_op(have_operand ? IFOP_ADD : IFOP_UPLUS);
    case '-': return give_op(have_operand ? IFOP_SUB : IFOP_UMINUS);
    default: break;
  }
  const int cls = char_class(c);
  return cls > IFOP_BOTTOM ? fail(119) : give_op(cls);
}

token evaluator::two_unit_operator(int first) {
  struct pair {
    char first;
    char second;
    op_code code;
  };
  static constexpr pair pairs[] = {
      {'|', '|', IFOP_LOGOR}, {'&', '&', IFOP_LOGAND}, {'!', '=', IFOP_NE}, {'=', '=', IFOP_EQ},
      {'<', '<', IFOP_SHL},   {'>', '>', IFOP_SHR},    {'<', '=', IFOP_LE}, {'>', '=', IFOP_GE},
  };
  const int second = get();
  for (const pair& p : pairs) {
    if (p.first == first && p.second == second) return give_op(p.code);
  }
  if (first == '=') return fail_at(second, 128);
  unget();
  return give_op(char_class(first));
}

// ---- Evaluation.

std::uint8_t evaluator::skip_flags(op_code incoming) const {
  const std::uint8_t below = top().skip;
  switch (incoming) {
    case IFOP_LOGAND: return top_value().value == 0 ? skip_right : below;
    case IFOP_LOGOR: return top_value().value != 0 ? skip_right : below;
    case IFOP_QUEST:
      return static_cast<std::uint8_t>((below & skip_right) |
                                       (top_value().value == 0 ? skip_branch : 0));
    case IFOP_COLON: return static_cast<std::uint8_t>(below ^ skip_branch);
    default: return below;
  }
}

void evaluator::stack(op_code incoming) {
  if (nops == ops.size()) {
    fail(121, op_table[incoming].name);
    return;
  }
  const std::uint8_t skip = skip_flags(incoming);
  ops[nops++] = {incoming, op_table[incoming].stacked_rank, skip};
}

// `a ? b : c` with the `:` on top. Returns false after an error.
bool evaluator::reduce_conditional() {
  const stacked_op& below = ops[nops - 2];
  if (below.code != IFOP_QUEST) {
    fail(123, op_table[below.code].name);
    return false;
  }
  nops -= 2;
  nvalues -= 2;
  const if_operand* v = &values[nvalues - 1];
  const if_operand chosen = v[0].value != 0 ? v[1] : v[2];
  values[nvalues - 1] = {chosen.value, chosen.is_signed && v[2].is_signed};
  return true;
}

void evaluator::reduce_binary() {
  const if_operand right = values[--nvalues];
  const op_code op = top().code;
  if (right.value == 0 && !skipped()) {
    if (op == IFOP_DIV) alert_msg(175);
    if (op == IFOP_MOD) alert_msg(990);
  }
  const if_operand left = top_value();
  const bool both_signed = left.is_signed && right.is_signed;
  top_value() = {binary_result(op, left, right, both_signed), both_signed};
  --nops;
}

// Evaluates stacked operators that bind at least as strongly as `incoming`. Returns whether
// `incoming` is to be stacked; otherwise it has been used up, or the evaluation has ended.
bool evaluator::reduce_for(op_code incoming) {
  const std::uint8_t rank = op_table[incoming].rank;
  while (top().rank >= rank) {
    switch (top().code) {
      case IFOP_LPAREN:
        if (incoming == IFOP_RPAREN) {
          --nops;
        } else {
          fail(122, op_table[incoming].name);
        }
        return false;
      case IFOP_BOTTOM:
        if (incoming == IFOP_EOE) {
          ended = true;
          result = static_cast<std::int32_t>(top_value().value);
        }
        return false;
      case IFOP_QUEST: return false;
      case IFOP_COLON:
        if (!reduce_conditional()) return false;
        break;
      case IFOP_UPLUS:
      case IFOP_UMINUS:
      case IFOP_COMPL:
      case IFOP_NOT: reduce_unary(); break;
      default: reduce_binary();
    }
  }
  return true;
}

void evaluator::take_operand() {
  if (have_operand) {
    fail(117);
  } else if (nvalues == values.size()) {
    fail(118);
  } else {
    values[nvalues++] = operand;
    have_operand = true;
    if (observing) observe::operand_seen(operand.value, operand.is_signed);
  }
}

void evaluator::take_operator() {
  const op_info& info = op_table[code];
  if (((info.rank & binary_position) != 0) != have_operand) {
    fail(120, info.name);
    return;
  }
  have_operand = (info.rank & leaves_operand) != 0;
  if (observing && code != IFOP_EOE) observe::operator_seen(info.name);
  const bool prefix = (code >= IFOP_UPLUS && code <= IFOP_NOT) || code == IFOP_LPAREN;
  if (prefix || reduce_for(code)) stack(code);
}

std::int32_t evaluator::run() {
  ops[nops++] = {IFOP_BOTTOM, op_table[IFOP_BOTTOM].stacked_rank, 0};
  while (!ended) {
    switch (next_token()) {
      case token::operand: take_operand(); break;
      case token::op: take_operator(); break;
      case token::stop: break;
    }
  }
  return result;
}

}  // namespace

std::int32_t eval_if() {
  return evaluator().run();
}

}  // namespace kv::cpp
