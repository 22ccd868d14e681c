// sizeof() in #if: type words, and the sizes of the target that -S sets.
#pragma once

#include <array>
#include <cstddef>
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

/// Reads the operand of a sizeof from behind the word, its parentheses included. Returns false
/// after an error message (130 to 134). Warnings: 1486, 2035.
bool eval_sizeof(std::uint32_t& size);

/// The next unit behind white space, its macros expanded and pastes carried out.
int next_expanded();

}  // namespace kv::cpp
