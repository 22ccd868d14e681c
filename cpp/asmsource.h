// What is special about the source of the assembler mode.
#pragma once

namespace kv::cpp {

/// With reading at the start of a text line: replaces an IFDEF or IFNDEF of the assembler by its
/// own `if 1` or `if 0`, decided by the macro table.
void asm_ifdef_rewrite();

}  // namespace kv::cpp
