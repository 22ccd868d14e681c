// The fast lane of macro calls: a call that lies within one line of a file.
#pragma once

#include "cpp/symtab.h"

namespace kv::cpp {

/// Lane: with reading in the line of the file on top, behind the name of `macro` at `behind_name`:
/// expands the macro and writes what comes out to the output, up to where reading is back in the
/// file. Returns the place reached in the line, the next unit to read; or null, with nothing done,
/// where the plain path must take the call.
unsigned char* expand_in_line(symbol* macro, unsigned char* behind_name);

}  // namespace kv::cpp
