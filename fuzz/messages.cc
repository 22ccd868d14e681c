// A message file of the installation, and one that is named on the command line, for a program that
// raises many messages.
#include "fuzz/harness.h"

namespace kv::fuzz {

program_run plan_run(input_parts input) {
  input.add_default("in.c", faulty_program);
  program_run run;
  run.arguments = {"-W-9", "--emax=-1", "--edf=20990101000001_en.msgs", "in.c"};
  run.files = std::move(input.files);
  run.files.push_back({"inst/vex/dat/20990101000000_en.msgs", std::move(input.first)});
  return run;
}

}  // namespace kv::fuzz
