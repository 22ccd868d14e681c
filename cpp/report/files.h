// The files of a watched run, and the time that is spent in them.
#pragma once

#include "cpp/report/observed.h"

namespace kv::cpp::observe {

/// Starts the clock.
void begin_files();
/// Stops it, and puts what is known of files and times into `run`.
void finish_files(observed_run& run);

/// Lets what passes from here on belong to `phase`.
void change_phase(run_phase phase);
/// Whether what is being read is a line of text or what lies between those; outside of calls this
/// is the phase as well.
run_phase line_phase();

/// The number of the file that is being read, or -1; its record, or null; its current line.
int current_file();
const observed_file* file_read();
source_place here();
/// Notes that the file `number`, which may be -1, matters to macros of others.
void credit_file(int number);

}  // namespace kv::cpp::observe
