#include "cpp/replacement.h"

#include "cpp/scan.h"

namespace kv::cpp {

namespace {

// Whether what follows can be joined to a run of digits.
bool can_join_digits(int c) {
  return continues_id(c) || is_param_ref(c);
}

}  // namespace

// `#`: the argument as a string. Returns the body behind it.
const unit* replacement::stringize(const unit* body, const call_arguments& args) {
  if (!is_param_ref(*body)) {
    if (!full) ++stray_stringizes;
    put('#');
    return body;
  }
  put('"');
  if (const unit* arg = args.of(*body)) {
    for (; *arg != 0; ++arg) {
      if (*arg == '"' || *arg == '\\') put('\\');
      put(*arg);
    }
  }
  put('"');
  return body + 1;
}

// `##`: its operands enter as they were written. Returns the body behind it.
const unit* replacement::paste(const unit* body, const call_arguments& args) {
  if (is_param_ref(last())) {
    const unit* left = args.of(last());
    --len;
    --references;
    if (left != nullptr) put_text(left);
  }
  put(MARK_PASTE);
  if (!is_param_ref(*body)) return body;
  if (const unit* right = args.of(*body)) {
    if (*right != MARK_NOEXPAND) put(MARK_NOEXPAND);
    put_text(right);
  }
  return body + 1;
}

void replacement::make(const symbol* sym, const call_arguments& args) {
  for (const unit* body = sym->body; *body != 0;) {
    const int c = *body++;
    if (c == MARK_DIGITS_END && !can_join_digits(*body)) continue;
    if (c == MARK_STRINGIZE) {
      body = stringize(body, args);
    } else if (c == MARK_PASTE || c == MARK_DIGITS_END) {
      body = paste(body, args);
    } else {
      if (is_param_ref(c)) ++references;
      put(c);
    }
  }
  text[len] = 0;
}

}  // namespace kv::cpp
