// A call that stands in a file is followed to its end: every replacement on the way is a step. Its
// result is what has been written meanwhile, in a condition the tokens that the evaluator has
// taken; so it is what happened and not what this module believes should have. Only the first of
// equal calls is followed, the others are counted.
#include "cpp/report/calls.h"

#include <algorithm>
#include <string_view>
#include <unordered_map>

#include "cpp/frames.h"
#include "cpp/outbuf.h"
#include "cpp/replacement.h"
#include "cpp/report/conditions.h"
#include "cpp/report/files.h"
#include "cpp/report/macros.h"
#include "cpp/report/observe.h"
#include "cpp/settings.h"
#include "cpp/symtab.h"

namespace kv::cpp::observe {

namespace {

using limits = observed_limits;

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

struct call_watch {
  decltype(observed_run::calls) calls;
  std::unordered_map<std::uint64_t, int> numbers;  // of calls by macro and arguments
  followed_call top;
};

constexpr auto& w = the<call_watch>;

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
  return kept_text(std::move(result));
}

std::string call_text(const call_step& step, bool takes_arguments) {
  std::string text = macro_name(step.macro);
  if (!takes_arguments) return text;
  text += '(';
  for (const std::string& arg : step.args) text += (&arg == step.args.data() ? "" : ", ") + arg;
  return kept_text(text + ')');
}

// From here to end_call() a call in a file is carried out.
void begin_call() {
  call_watch& o = w();
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
  call_watch& o = w();
  o.top.active = false;
  change_phase(line_phase());
  if (observed_condition* const c = current_condition(); c != nullptr && o.top.name >= 0) {
    condition_name& name = c->names[o.top.name];
    name.value = c->evaluated.substr(std::min(o.top.evaluated, c->evaluated.size()));
    if (name.value.starts_with(' ')) name.value.erase(0, 1);
  }
  if (o.top.call < 0 || line_phase() != run_phase::text || !text_output()) return;
  const std::string_view result = outbuf::last(outbuf::count() - o.top.written);
  if (result.data() == nullptr) return;
  observed_call& call = o.calls[o.top.call];
  call.has_result = true;
  call.result = kept_text(std::string(result));
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
  call_step step{macro, 1, {}, visible(cur_frame->text, args)};
  for (int n = 0; n < args.count; ++n) step.args.push_back(visible(args.first[n].text));
  return step;
}

// With the arguments of the call in the file known: counts it, and keeps its steps if it is the
// first of its kind.
void identify_call(int macro, const call_arguments& args) {
  call_watch& o = w();
  const bool own = o.top.at.file == 0;
  const std::uint64_t key = o.top.key = call_key(0, macro, args);
  const auto known = o.numbers.find(key);
  const bool is_new = known == o.numbers.end();
  if (is_new) {
    o.top.call = o.calls.add({});
    if (o.top.call < 0) return;
    o.numbers.emplace(key, o.top.call);
  }
  observed_call& call = o.calls[is_new ? o.top.call : known->second];
  if (is_new || (own && !call.own)) call.at = o.top.at;
  call.macro = macro;
  call.own |= own;
  ++call.count;
}

// What the call came to takes arguments from behind it, so that they belong to what it is: counts
// it anew. A call that had a record until now without them loses it to the first one that has them.
void identify_further(int macro, const call_arguments& args) {
  call_watch& o = w();
  const std::uint64_t before = o.top.key;
  const auto record = o.numbers.find(before);
  o.top.key = call_key(before, macro, args);
  if (record == o.numbers.end()) return;
  observed_call& until_now = o.calls[record->second];
  const auto known = o.numbers.find(o.top.key);
  if (o.top.call < 0) {
    --until_now.count;
    if (known != o.numbers.end()) {
      ++o.calls[known->second].count;
    } else {
      ++o.calls.left_out;  // its first steps were not kept
    }
    return;
  }
  o.numbers.erase(record);
  if (known == o.numbers.end()) {
    o.numbers.emplace(o.top.key, o.top.call);
    return;
  }
  observed_call& same = o.calls[known->second];
  ++same.count;
  if (until_now.own && !same.own) same.at = until_now.at;
  same.own |= until_now.own;
  o.calls.all.pop_back();
  o.top.call = -1;
}

void add_step(call_step step) {
  const followed_call& top = w().top;
  observed_call& call = w().calls[top.call];
  if (call.steps.size() == limits::steps) {
    call.cut = true;
    return;
  }
  step.depth = std::max(1, cur_frame->depth - top.depth + 1);
  call.steps.push_back(std::move(step));
}

}  // namespace

// Those of the input come first, then the most frequent; a name that is replaced once and for all
// is told by its definition.
void finish_calls(observed_run& run) {
  run.calls = std::move(w().calls);
  std::vector<observed_call>& calls = run.calls.all;
  std::erase_if(calls, [&](const observed_call& c) {
    return c.steps.empty() || (c.steps.size() == 1 && run.macros[c.macro].nargs < 0);
  });
  std::stable_sort(calls.begin(), calls.end(), [](const observed_call& a, const observed_call& b) {
    return a.own != b.own ? a.own : a.count > b.count;
  });
  if (calls.size() > limits::calls_shown) calls.resize(limits::calls_shown);
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
  count_expansion(sym);
  const int number = macro_number(sym);
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
    if (observed_condition* const c = current_condition()) {
      top.name = c->names.add({call_text(make_step(number, args), takes_arguments), "", false});
    }
  }
  if (top.call >= 0) add_step(make_step(number, args));
}

void replaced_by_place(const symbol* sym) {
  count_expansion(sym);
  const int number = macro_number(sym);
  const followed_call& top = w().top;
  if (number < 0) return;
  if (top.active && top.call >= 0) add_step(make_step(number, {}));
  if (!top.active) add_condition_name({macro_name(number), visible(cur_frame->text), false});
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

}  // namespace kv::cpp::observe
