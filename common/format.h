// The program's one printf-like formatter.
//
// Message texts come from files that users may edit, so they cannot be handed to the C library's
// printf: a text that asks for more, or for other, arguments than the program passes would read
// wild memory. Here every argument carries its type, and the formatter lets the argument decide
// what is printed; the conversion only says how. For texts that fit their arguments the result is
// the C library's.
//
// What may surprise: a conversion that does not fit prints the argument in its own natural form; a
// missing argument and a null string print "(null)"; "%n" prints nothing but uses up an argument;
// an unknown or unfinished conversion is printed as it stands. At most `format_padding_limit`
// characters of padding are produced in one call, so a hostile width costs bounded time and memory.

#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

namespace kv {

/// Padding (blanks and zeros for widths and precisions) that one call produces at most.
inline constexpr std::size_t format_padding_limit = std::size_t{1} << 20;

/// One argument of a formatted text. It refers to strings without copying them, so they must
/// outlive the call.
class format_arg {
 public:
  enum class kind : std::uint8_t {
    character,
    signed_number,
    unsigned_number,
    text,
    text16,
    pointer
  };

  template <std::integral T>
  constexpr format_arg(T value) noexcept
      : kind_(std::same_as<T, char> ? kind::character
              : std::is_signed_v<T> ? kind::signed_number
                                    : kind::unsigned_number),
        size_(sizeof(T) < sizeof(int) ? sizeof(int) : sizeof(T)),
        bits_(static_cast<std::uint64_t>(value)) {}
  template <class T>
  requires std::is_enum_v<T>
  constexpr format_arg(T value) noexcept
      : format_arg(static_cast<std::underlying_type_t<T>>(value)) {}
  constexpr format_arg(const char* s) noexcept : kind_(kind::text), text_(s) {}
  constexpr format_arg(std::string_view s) noexcept
      : kind_(kind::text), counted_(true), bits_(s.size()), text_(s.data() ? s.data() : "") {}
  format_arg(const std::string& s) noexcept : format_arg(std::string_view(s)) {}
  constexpr format_arg(const char16_t* s) noexcept : kind_(kind::text16), text16_(s) {}
  constexpr format_arg(std::nullptr_t) noexcept : kind_(kind::text), text_(nullptr) {}
  format_arg(const void* p) noexcept
      : kind_(kind::pointer), size_(sizeof p), bits_(reinterpret_cast<std::uintptr_t>(p)) {}

  constexpr kind type() const noexcept { return kind_; }
  /// Bytes of the number after the usual promotion to int.
  constexpr std::size_t size() const noexcept { return size_; }
  /// The number, sign-extended to 64 bits; the length of a counted text.
  constexpr std::uint64_t bits() const noexcept { return bits_; }
  /// Whether the text's length is known (else it is zero-ended).
  constexpr bool counted() const noexcept { return counted_; }
  constexpr const char* text() const noexcept { return text_; }
  constexpr const char16_t* text16() const noexcept { return text16_; }

 private:
  kind kind_;
  bool counted_ = false;
  std::uint8_t size_ = sizeof(int);
  std::uint64_t bits_ = 0;
  union {
    const char* text_ = nullptr;
    const char16_t* text16_;
  };
};

/// Something that can be an argument of a formatted text.
template <class T>
concept formattable = std::constructible_from<format_arg, const T&>;

/// Formats `text` with `args` into `buf` of `cap` bytes: at most cap - 1 characters and a final
/// zero byte; nothing is written when cap is 0. Returns the length of the full result, which was
/// cut when that is cap or more.
std::size_t format_text(char* buf, std::size_t cap, std::string_view text,
                        std::span<const format_arg> args);

/// Formats `text` with `args` into a new string of the length needed.
std::string format_string(std::string_view text, std::span<const format_arg> args);

/// The arguments with their types; holds references, to be used within one expression.
template <formattable... A>
std::array<format_arg, sizeof...(A)> format_args(const A&... args) {
  return {{format_arg(args)...}};
}

/// `format_text` with the arguments listed.
template <formattable... A>
std::size_t format_text(char* buf, std::size_t cap, std::string_view text, const A&... args) {
  const auto packed = format_args(args...);
  return format_text(buf, cap, text, std::span<const format_arg>(packed));
}

/// `format_string` with the arguments listed.
template <formattable... A>
std::string format_string(std::string_view text, const A&... args) {
  const auto packed = format_args(args...);
  return format_string(text, std::span<const format_arg>(packed));
}

}  // namespace kv
