// The macros of a watched run: what became of them, and how often they were used.
#pragma once

#include "cpp/report/observed.h"
#include "cpp/symtab.h"

namespace kv::cpp::observe {

/// Notes the macros that are defined before the first line.
void begin_macros();
/// Puts what is known of macros into `run`.
void finish_macros(observed_run& run);

/// The number of the record of `sym`, made where there is none; -1 where it is left out.
int macro_number(const symbol* sym);
/// The name of the macro `number`.
const std::string& macro_name(int number);
/// Counts an expansion of `sym`.
void count_expansion(const symbol* sym);

}  // namespace kv::cpp::observe
