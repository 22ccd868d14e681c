// Macro expansion: calls, arguments, stringizing and pasting.
//
// Expanding pushes the macro's body as a new input frame; going on reading is the rescan. Parameter
// references that are no operands of `#` and `##` stay in the pushed text, and the reader replaces
// each by an argument frame when it gets there.
#pragma once

#include "cpp/reader.h"
#include "cpp/scan.h"
#include "cpp/symtab.h"

namespace kv::cpp {

/// Scans the identifier that begins with `c`, already read, into token_buf and returns its macro if
/// there is one that may be expanded here, else null.
symbol* scan_macro(int c);

/// Expands `sym`, which may be expanded here and whose name has just been read, with no `##` behind
/// it. Returns whether it was expanded: the replacement is then on top of the stack, and nothing of
/// it has been read. Raises what try_expand raises.
bool expand_name(symbol* sym);

/// Called with every unit `c` of text that may begin an identifier. Returns either `c`, with the
/// identifier it begins (if any) in token_buf, or, when a macro was expanded, the first unit behind
/// the completed expansion, to be treated afresh. Raises 115, 116, the warnings 171 and 172, and
/// the fatal 149, 150, 151 and 153.
int try_expand(int c);

bool paste_at_marker(int c);

/// Called behind try_expand when the unit `c` it returned is of an operand class: carries out a
/// `##` that follows and pushes the joined token. Returns whether there was one; the caller then
/// reads on. The left operand is the identifier in token_buf, or `c` itself. Raises 169 and the
/// fatal 155.
inline bool paste_tokens(int c) {
  return peek_plain() < 0 && paste_at_marker(c);
}

}  // namespace kv::cpp
