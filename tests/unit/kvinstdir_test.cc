// Finding the installation. The answer depends on where the program file lies, so these tests put
// copies of their own program into directory trees and ask them.

#include "common/kvinstdir.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "common/registry.h"
#include "host/host.h"

namespace fs = std::filesystem;
using namespace kv;

namespace {

#ifndef _WIN32
std::string shown(const char* directory) {
  return directory != nullptr ? host::native_path(directory) : "none";
}

// What a copy prints about itself, one line each.
TEST(Kvinstdir, DISABLED_Answer) {
  std::string answer;
  for (const unsigned which : {0U, 1U, 6U, 9U, 10U}) answer += '>' + shown(kvinstdir(which)) + '\n';
  for (const unsigned kind : {0U, 5U, 10U}) answer += '>' + shown(reg_instdir(kind)) + '\n';
  reg_set_c_stdlib("c90");
  for (const unsigned kind : {2U, 4U, 10U}) answer += '>' + shown(reg_instdir(kind)) + '\n';
  std::fputs(answer.c_str(), stdout);
}

std::string ask_program_in(const fs::path& directory) {
  fs::create_directories(directory);
  const fs::path program = directory / "cpp.exe";
  fs::copy_file(host::program_path(), program);
  const std::string command = program.string() +
                              " --gtest_also_run_disabled_tests"
                              " --gtest_filter=Kvinstdir.DISABLED_Answer";
  std::string answer;
  std::FILE* pipe = popen(command.c_str(), "r");
  char line[4096];
  while (std::fgets(line, sizeof line, pipe) != nullptr) {
    if (line[0] == '>') answer += line + 1;
  }
  pclose(pipe);
  fs::remove(program);
  return answer;
}

TEST(Kvinstdir, InstallationIsFoundFromTheProgramsPlace) {
  const struct {
    const char *program, *family, *found_family;
  } cases[] = {
      {"R246/bin", "vex", "vex"}, {"R246/vex/bin", "vex", "vex"},
      {"R246/BIN", "VEX", "VEX"}, {"R246/Vex-AS/Bin", "vex", "vex"},
      {"R246/tools", "vex", ""},  {"R246/vexes/bin", "vex", ""},
      {"R246/bin", "docs", ""},   {"R246/vex/bin/x", "vex", ""},
  };
  for (const auto& [program, family, found_family] : cases) {
    const fs::path root = fs::temp_directory_path() / ("kvinst-" + host::fresh_name());
    const fs::path version = root / "R246";
    fs::create_directories(version / family);
    const bool spelled_otherwise = fs::path(program) == "R246/Vex-AS/Bin";

    std::string expected;
    if (*found_family != '\0') {
      const std::string v = version.string() + '/';
      const std::string f = v + found_family;
      expected = root.string() + '\n' + version.string() + '\n' + f + '\n';
      expected += v + (spelled_otherwise ? "Vex-AS" : "vex-as") + "\nnone\n";
      for (const char* sub : {"", "/dat", "/include", "/lib/c90", "/include", "/include/c90"}) {
        expected += f + sub + '\n';
      }
    } else {
      for (int i = 0; i < 11; ++i) expected += "none\n";
    }
    EXPECT_EQ(ask_program_in(root / program), expected) << program << " with " << family;
    fs::remove_all(root);
  }
}
#endif

TEST(Kvinstdir, LibraryLevelAppliesToLaterPathsOnly) {
  reg_set_c_stdlib(nullptr);
  EXPECT_STREQ(reg_create_path("b\\", REG_LIB), "b\\lib");
  char name[] = "c90";
  reg_set_c_stdlib(name);
  name[0] = 'x';
  EXPECT_STREQ(reg_get_c_stdlib(), "c90");
  EXPECT_STREQ(reg_create_path("b", REG_SOURCES), "b\\sources\\c90");
  EXPECT_STREQ(reg_create_path("b", REG_DOCS), "b\\docs");
  EXPECT_STREQ(reg_create_path("b", REG_BASE), "b");
  EXPECT_EQ(reg_create_path("b", 9), nullptr);
  EXPECT_EQ(reg_create_path("b", 11), nullptr);
  EXPECT_EQ(reg_create_path(nullptr, REG_BASE), nullptr);
  reg_set_c_stdlib(nullptr);
}

}  // namespace
