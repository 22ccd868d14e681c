// sizeof() in #if: type words, and the sizes of the target that -S sets.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kv::cpp {

// The rows of sizes: char, short, int, 24-bit integer, long, float, double, function pointer.
inline constexpr std::size_t size_row_int24 = 3;
inline constexpr std::size_t size_row_function_pointer = 7;
inline constexpr std::size_t size_rows = 8;

/// Makes `bytes` the size of the type of `row`, or of a pointer to it.
void set_type_size(std::size_t row, std::uint16_t bytes);
void set_pointer_size(std::size_t row, std::uint16_t bytes);

/// Reads the operand of a sizeof from behind the word, its parentheses included. Returns false
/// after an error message (130 to 134). Warnings: 1486, 2035.
bool eval_sizeof(std::uint32_t& size);

/// The next unit behind white space, its macros expanded and pastes carried out.
int next_expanded();

}  // namespace kv::cpp
