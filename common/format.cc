// The formatter walks the text once. A conversion is first read in full, whatever it says, and only
// then looked at together with its argument, so the reading of hostile texts is in one place and
// the printing never meets an impossible state.
//
// Output goes through a sink that counts everything and stores what fits. Padding is counted, not
// looped over, once the buffer is full, and is limited per call.

#include "common/format.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstring>

namespace kv {
namespace {

// Invariant: the first min(length, capacity - 1) characters are stored.
class sink {
 public:
  sink(char* buf, std::size_t cap) : buf_(buf), room_(cap == 0 ? 0 : cap - 1), ended_(cap != 0) {}

  void put(const char* s, std::size_t n) {
    if (length_ < room_ && n != 0) std::memcpy(buf_ + length_, s, std::min(n, room_ - length_));
    length_ += n;
  }

  void put(char c) { put(&c, 1); }

  void pad(char c, std::size_t n) {
    n = std::min(n, padding_left_);
    padding_left_ -= n;
    if (length_ < room_ && n != 0) std::memset(buf_ + length_, c, std::min(n, room_ - length_));
    length_ += n;
  }

  std::size_t finish() {
    if (ended_) buf_[std::min(length_, room_)] = '\0';
    return length_;
  }

 private:
  char* buf_;
  std::size_t room_;
  bool ended_;
  std::size_t length_ = 0;
  std::size_t padding_left_ = format_padding_limit;
};

struct conversion {
  bool left = false;
  bool plus = false;
  bool space = false;
  bool zero = false;
  bool alternate = false;
  std::size_t width = 0;
  int precision = -1;  // -1: none given
  char letter = '\0';  // 0: the text ended inside the conversion
};

class argument_list {
 public:
  explicit argument_list(std::span<const format_arg> args) : args_(args) {}

  const format_arg& next() {
    static constexpr format_arg missing(nullptr);
    return used_ < args_.size() ? args_[used_++] : missing;
  }

  // The value of a '*', cut to the range of a symmetric int; 0 for an argument that is no number.
  int next_star() {
    const format_arg& arg = next();
    if (arg.type() == format_arg::kind::text || arg.type() == format_arg::kind::text16) return 0;
    const auto value = static_cast<std::int64_t>(arg.bits());
    const bool huge = arg.type() != format_arg::kind::signed_number && value < 0;
    return huge ? INT_MAX : static_cast<int>(std::clamp<std::int64_t>(value, -INT_MAX, INT_MAX));
  }

 private:
  std::span<const format_arg> args_;
  std::size_t used_ = 0;
};

// Reads one conversion; `pos` stands behind the '%' and is moved behind the conversion's letter.
class conversion_reader {
 public:
  conversion_reader(std::string_view text, std::size_t& pos, argument_list& args)
      : text_(text), pos_(pos), args_(args) {}

  conversion read() {
    conversion conv;
    while (read_flag(conv)) ++pos_;
    read_width(conv);
    if (peek() == '.') {
      ++pos_;
      conv.precision = take('*') ? std::max(args_.next_star(), -1) : read_number();
    }
    // The arguments know their own sizes.
    while (peek() != '\0' && std::strchr("hljztL", peek())) ++pos_;
    conv.letter = peek();
    if (pos_ < text_.size()) ++pos_;
    return conv;
  }

 private:
  char peek() const { return pos_ < text_.size() ? text_[pos_] : '\0'; }

  bool take(char c) {
    if (peek() != c) return false;
    ++pos_;
    return true;
  }

  bool read_flag(conversion& conv) const {
    switch (peek()) {
      case '-': return conv.left = true;
      case '+': return conv.plus = true;
      case ' ': return conv.space = true;
      case '0': return conv.zero = true;
      case '#': return conv.alternate = true;
      default: return false;
    }
  }

  void read_width(conversion& conv) {
    int width = take('*') ? args_.next_star() : read_number();
    if (width < 0) {
      conv.left = true;
      width = -width;
    }
    conv.width = static_cast<std::size_t>(width);
  }

  int read_number() {
    int value = 0;
    for (; peek() >= '0' && peek() <= '9'; ++pos_) {
      const int digit = peek() - '0';
      value = value > (INT_MAX - digit) / 10 ? INT_MAX : value * 10 + digit;
    }
    return value;
  }

  std::string_view text_;
  std::size_t& pos_;
  argument_list& args_;
};

bool is_one_of(char c, std::string_view set) {
  return set.find(c) != std::string_view::npos;
}

// The blanks that `length` characters leave of the conversion's width.
std::size_t blanks(const conversion& conv, std::size_t length) {
  return conv.width > length ? conv.width - length : 0;
}

template <class Body>
void put_aligned(sink& out, const conversion& conv, std::size_t length, Body body) {
  if (!conv.left) out.pad(' ', blanks(conv, length));
  body();
  if (conv.left) out.pad(' ', blanks(conv, length));
}

void put_text(sink& out, const conversion& conv, const char* s, std::size_t length) {
  put_aligned(out, conv, length, [&] { out.put(s, length); });
}

// Digits of `value` by conversion letter; a number with precision 0 has none for zero.
std::string_view make_digits(char (&buf)[24], const conversion& conv, std::uint64_t value) {
  if (value == 0 && conv.precision == 0) return {};
  const int base = conv.letter == 'o' ? 8 : is_one_of(conv.letter, "xXp") ? 16 : 10;
  char* const end = std::to_chars(buf, buf + sizeof buf, value, base).ptr;
  if (conv.letter == 'X') {
    std::transform(buf, end, buf,
                   [](char c) { return c >= 'a' ? static_cast<char>(c - 'a' + 'A') : c; });
  }
  return {buf, static_cast<std::size_t>(end - buf)};
}

void put_number(sink& out, const conversion& conv, const format_arg& arg) {
  const bool is_signed = is_one_of(conv.letter, "di");
  std::uint64_t value = arg.bits();
  if (arg.size() < sizeof value) value = static_cast<std::uint32_t>(value);
  bool negative = false;
  if (is_signed) {
    const std::int64_t number = arg.size() < sizeof value ? static_cast<std::int32_t>(value)
                                                          : static_cast<std::int64_t>(value);
    negative = number < 0;
    value = negative ? 0 - static_cast<std::uint64_t>(number) : static_cast<std::uint64_t>(number);
  }
  if (conv.letter == 'p' && value == 0) return put_text(out, conv, "(nil)", 5);

  std::string_view prefix;
  if (is_signed) prefix = negative ? "-" : conv.plus ? "+" : conv.space ? " " : "";
  if (value != 0 && (conv.letter == 'p' || (conv.alternate && is_one_of(conv.letter, "xX")))) {
    prefix = conv.letter == 'X' ? "0X" : "0x";
  }
  char buf[24];
  const std::string_view digits = make_digits(buf, conv, value);
  std::size_t zeros = 0;
  if (conv.precision > 0) {
    const auto wanted = static_cast<std::size_t>(conv.precision);
    zeros = wanted > digits.size() ? wanted - digits.size() : 0;
  }
  if (conv.letter == 'o' && conv.alternate && zeros == 0 && !digits.starts_with('0')) zeros = 1;
  if (conv.zero && !conv.left && conv.precision < 0) {
    zeros += blanks(conv, prefix.size() + zeros + digits.size());
  }
  put_aligned(out, conv, prefix.size() + zeros + digits.size(), [&] {
    out.put(prefix.data(), prefix.size());
    out.pad('0', zeros);
    out.put(digits.data(), digits.size());
  });
}

void put_string(sink& out, const conversion& conv, const format_arg& arg) {
  const char* const s = arg.text();
  if (s == nullptr) return put_text(out, conv, "(null)", 6);
  const std::size_t most = conv.precision < 0 ? SIZE_MAX : static_cast<std::size_t>(conv.precision);
  if (arg.counted()) {
    return put_text(out, conv, s, std::min(static_cast<std::size_t>(arg.bits()), most));
  }
  if (conv.precision < 0) return put_text(out, conv, s, std::strlen(s));
  // With a precision the text need not be zero-ended.
  const void* const zero = std::memchr(s, '\0', most);
  put_text(out, conv, s,
           zero ? static_cast<std::size_t>(static_cast<const char*>(zero) - s) : most);
}

// Units 0x7F1D to 0x7F1F mark places in internal text and stand for no character.
bool is_marker(char16_t unit) {
  return unit >= 0x7F1D && unit <= 0x7F1F;
}

void put_string16(sink& out, const conversion& conv, const format_arg& arg) {
  const char16_t* const s = arg.text16();
  if (s == nullptr) return put_text(out, conv, "(null)", 6);
  std::size_t left = conv.precision < 0 ? SIZE_MAX : static_cast<std::size_t>(conv.precision);
  std::size_t length = 0;
  const char16_t* end = s;
  for (; left != 0 && *end != 0; ++end) {
    if (is_marker(*end)) continue;
    ++length;
    --left;
  }
  put_aligned(out, conv, length, [&] {
    for (const char16_t* p = s; p != end; ++p) {
      if (!is_marker(*p)) out.put(static_cast<char>(*p & 0xFF));
    }
  });
}

void put_character(sink& out, const conversion& conv, const format_arg& arg) {
  const auto c = static_cast<char>(arg.bits() & 0xFF);
  put_text(out, conv, &c, 1);
}

// The letter that prints the argument in its own natural form.
char natural_letter(format_arg::kind kind) {
  switch (kind) {
    case format_arg::kind::character: return 'c';
    case format_arg::kind::signed_number: return 'd';
    case format_arg::kind::unsigned_number: return 'u';
    case format_arg::kind::pointer: return 'p';
    case format_arg::kind::text:
    case format_arg::kind::text16: break;
  }
  return 's';
}

bool fits(char letter, format_arg::kind kind) {
  switch (kind) {
    case format_arg::kind::text:
    case format_arg::kind::text16: return letter == 's';
    case format_arg::kind::pointer: return is_one_of(letter, "diouxXp");
    default: return is_one_of(letter, "diouxXpc");
  }
}

void put_argument(sink& out, conversion conv, const format_arg& arg) {
  if (!fits(conv.letter, arg.type())) {
    // The precision was meant for something else.
    conv.letter = natural_letter(arg.type());
    conv.precision = -1;
  }
  if (arg.type() == format_arg::kind::text16) {
    put_string16(out, conv, arg);
  } else if (conv.letter == 's') {
    put_string(out, conv, arg);
  } else if (conv.letter == 'c') {
    put_character(out, conv, arg);
  } else {
    put_number(out, conv, arg);
  }
}

}  // namespace

std::size_t format_text(char* buf, std::size_t cap, std::string_view text,
                        std::span<const format_arg> args) {
  sink out(buf, cap);
  argument_list list(args);
  std::size_t pos = 0;
  while (pos < text.size()) {
    const std::size_t percent = std::min(text.find('%', pos), text.size());
    out.put(text.data() + pos, percent - pos);
    if (percent == text.size()) break;
    pos = percent + 1;
    const conversion conv = conversion_reader(text, pos, list).read();
    if (conv.letter == '%') {
      out.put('%');
    } else if (conv.letter == 'n') {
      list.next();
    } else if (conv.letter != '\0' && is_one_of(conv.letter, "diouxXcspaAeEfFgG")) {
      put_argument(out, conv, list.next());
    } else {
      out.put(text.data() + percent, pos - percent);
    }
  }
  return out.finish();
}

std::string format_string(std::string_view text, std::span<const format_arg> args) {
  char small[512];
  const std::size_t length = format_text(small, sizeof small, text, args);
  if (length < sizeof small) return std::string(small, length);
  std::string result(length, '\0');
  format_text(result.data(), length + 1, text, args);
  return result;
}

}  // namespace kv
