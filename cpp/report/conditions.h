// The conditions of a watched run: what was written, what came of it, and what it was taken from.
#pragma once

#include "cpp/report/observed.h"

namespace kv::cpp::observe {

/// Puts what is known of conditions into `run`.
void finish_conditions(observed_run& run);

/// Whether the condition of #if or #elif is being read.
bool reads_condition();
/// Its record, or null where none is kept or none is read.
observed_condition* current_condition();
/// Adds `name` to that record.
void add_condition_name(condition_name name);

}  // namespace kv::cpp::observe
