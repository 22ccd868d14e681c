// The evaluator of #if and #elif: integer constant expressions of 32 bits, signed or unsigned.
#pragma once

#include <cstdint>

namespace kv::cpp {

/// Reads the rest of a control line as an expression and returns its value; the newline that ends
/// the line is given back. After an error message (117 to 134, 1500) the rest of the line is left
/// unread and the value is 1, so that the group is kept. Warnings: 174, 175, 990, 1486, 2035.
std::int32_t eval_if();

}  // namespace kv::cpp
