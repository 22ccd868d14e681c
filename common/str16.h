// 16-bit text: zero-terminated arrays of units.
#pragma once

#include <cstddef>

namespace kv {

/// Returns the number of units before the terminator.
std::size_t str16_len(const char16_t* t);

/// Returns 0 when equal, else at the first difference 1 when the unit of `b` is smaller, else -1.
int str16_cmp(const char16_t* a, const char16_t* b);

/// Returns a copy in a new block, to be released with std::free. Raises 296 (fatal) without memory.
char16_t* str16_dup(const char16_t* t);

/// Copies `t` with its terminator.
void str16_copy(char16_t* dst, const char16_t* t);

/// Converts the ASCII capitals of `t` to lower case in place.
void str16_lower(char16_t* t);

/// Widens 8-bit text byte by byte (0 to 255), terminator included.
void str8to16(char16_t* dst, const char* s);

/// Widens at most `n` bytes and fills what is left of the `n` units with 0; there is no terminator
/// when `s` has `n` bytes or more.
void str8to16n(char16_t* dst, const char* s, std::size_t n);

/// Narrows each unit to its low byte, terminator included; a unit with low byte 0 ends the result.
void str16to8(char* dst, const char16_t* t);

/// Returns the last occurrence of `c` in `t` (the terminator counts), or null.
const char16_t* str16_rchr(const char16_t* t, char16_t c);

/// Returns the number made of the leading decimal digits, modulo 2^32; 0 without digits.
int str16_atoi(const char16_t* t);

/// Compares with 8-bit text whose bytes are taken as signed. Returns the difference at the first
/// mismatch, else 0.
int str16_cmp8(const char16_t* t, const char* s);

}  // namespace kv
