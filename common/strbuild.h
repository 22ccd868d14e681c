// New strings, joined or formatted.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

#include "common/format.h"

namespace kv {

/// A new string: `a` followed by `b`. Raises 296 (fatal) without memory.
char* str_concat(const char* a, const char* b);

/// As `str_concat`, then releases `a`, which must come from this module.
char* str_append(char* a, const char* b);

/// A new string with the formatted text. A result of more than 4,095 characters is cut there,
/// after "buffer overflow in vsnprintf" (no newline) on standard error. Raises 296 (fatal) without
/// memory.
char* str_vformat(std::string_view text, std::span<const format_arg> args);

/// `str_vformat` with the arguments listed.
template <formattable... A>
char* str_format(std::string_view text, const A&... args) {
  const auto packed = format_args(args...);
  return str_vformat(text, packed);
}

/// Writes the formatted text to the descriptor `stream`; returns whether all of it was written.
bool file_vprintf(int stream, std::string_view text, std::span<const format_arg> args);

/// `file_vprintf` with the arguments listed.
template <formattable... A>
bool file_printf(int stream, std::string_view text, const A&... args) {
  const auto packed = format_args(args...);
  return file_vprintf(stream, text, packed);
}

/// Writes the formatted text and a zero byte into `buf`, which the caller has made large enough;
/// returns the text's length.
template <formattable... A>
std::size_t buf_printf(char* buf, std::string_view text, const A&... args) {
  const auto packed = format_args(args...);
  return format_text(buf, static_cast<std::size_t>(-1), text, std::span<const format_arg>(packed));
}

}  // namespace kv
