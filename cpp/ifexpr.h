// The evaluator of #if and #elif: integer constant expressions of 32 bits, signed or unsigned.
#pragma once

#include <array>
#include <cstdint>

namespace kv::cpp {

/// One row of the sizes that sizeof() knows; -S changes them.
struct size_row {
  std::uint16_t code;          ///< type code: the bits of the type words, reduced
  std::uint16_t size;          ///< bytes
  std::uint16_t pointer_size;  ///< bytes of a pointer to the type
};

// Rows of size_table that options address.
inline constexpr std::size_t size_row_int24 = 3;
inline constexpr std::size_t size_row_function_pointer = 7;

/// char, short, int, 24-bit integer, long, float, double, function pointer.
extern std::array<size_row, 8> size_table;

/// Reads the rest of a control line as an expression and returns its value; the newline that ends
/// the line is given back. After an error message (117 to 134, 1500) the rest of the line is left
/// unread and the value is 1, so that the group is kept. Warnings: 174, 175, 990, 1486, 2035.
std::int32_t eval_if();

}  // namespace kv::cpp
