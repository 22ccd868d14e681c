// The main input and its headers, under one of several sets of options that the first character
// chooses.
#include <array>

#include "fuzz/harness.h"

namespace kv::fuzz {

program_run plan_run(input_parts input) {
  static constexpr std::array<std::string_view, 13> modes = {
      "-W-9\n--emax=1000",
      "-W-9\n-C",
      "-W-9\n--cmode=tsasm",
      "-W-9\n-dM",
      "-W-9\n-Llist\n-H",
      "-W-9\n--cmode=tslink\n-N255",
      "-W-9\n-E1\n-H\n--emax=-1",
      "-W-9\n-Lgcc\n--dep_nosys",
      "-W!\n--udf=report.htm\n--emax=1000",
      "",
      "-W-9\n--markers=gcc\n--messages=gcc\n--emax=1000",
      "-W-9\n--dep=rule\n--dep_phony\n--delete_on_error\n-oout.i",
      "-W-9\n--report=report.htm",
  };
  std::size_t mode = 0;
  if (!input.first.empty()) {
    mode = (static_cast<unsigned char>(input.first.front()) + modes.size() - 'a' % modes.size()) %
           modes.size();
    input.first.erase(0, 1);
  }
  program_run run;
  run.arguments = split_lines(modes[mode]);
  run.files = std::move(input.files);
  run.arguments.insert(run.arguments.end(), {"-I./", "-Isub", "in.c"});
  run.files.push_back({"in.c", std::move(input.first)});
  return run;
}

}  // namespace kv::fuzz
