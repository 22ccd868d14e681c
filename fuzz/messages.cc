// A message file of the installation, one that is named on the command line, and in the part
// "templates" the three message templates, one a line, for a program that raises many messages.
#include "fuzz/harness.h"

namespace kv::fuzz {

program_run plan_run(input_parts input) {
  input.add_default("in.c", faulty_program);
  program_run run;
  run.arguments = {"-W-9", "--emax=-1", "--edf=20990101000001_en.msgs", "in.c"};
  if (const std::string lines = input.take_file("templates"); !lines.empty()) {
    std::vector<std::string> templates = split_lines(lines);
    templates.resize(3);
    run.arguments.emplace_back("-E1");
    run.settings = {"LVX_ERR_FORMAT=" + templates[0], "LVX_WARN_FORMAT=" + templates[1],
                    "LVX_MSG_FORMAT=" + templates[2]};
  }
  run.files = std::move(input.files);
  run.files.push_back({"inst/vex/dat/20990101000000_en.msgs", std::move(input.first)});
  return run;
}

}  // namespace kv::fuzz
