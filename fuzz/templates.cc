// The three message templates, one a line, for a program that raises many messages.
#include "fuzz/harness.h"

namespace kv::fuzz {

program_run plan_run(input_parts input) {
  input.add_default("in.c", faulty_program);
  program_run run;
  run.arguments = {"-W-9", "--emax=-1", "-E1", "in.c"};
  run.files = std::move(input.files);
  std::vector<std::string> templates = split_lines(input.first);
  templates.resize(3);
  run.settings = {"LVX_ERR_FORMAT=" + templates[0], "LVX_WARN_FORMAT=" + templates[1],
                  "LVX_MSG_FORMAT=" + templates[2]};
  return run;
}

}  // namespace kv::fuzz
