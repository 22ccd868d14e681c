// Checked allocation and the string building on top of it.
//
// No caller tests for exhausted memory: an allocation that fails reports the fatal message 296,
// which ends the run. So does a `new` that fails, and with it every container of the standard
// library. Blocks come from the C library's heap, are zero-filled unless it is said, belong to the
// caller and are released with std::free.

#pragma once

#include <cstddef>
#include <span>
#include <string_view>

#include "common/format.h"

namespace kv {

/// To be called once, before anything is allocated that is to be reported: makes a `new` that fails
/// call alloc_failed, and sets memory aside for the end of a run that has none left.
void alloc_prepare();

/// Raises 296 (fatal), which ends the run. The report needs no memory; what was set aside is for
/// the way out. Where even that is not enough the process ends at once, with status 1.
[[noreturn]] void alloc_failed();

/// A new zero-filled block of `size` bytes, never null. Raises 296 (fatal) without memory.
void* checked_alloc(std::size_t size);

/// As `checked_alloc`, but what the block holds is not defined.
void* checked_alloc_raw(std::size_t size);

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
