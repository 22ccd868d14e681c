// What tests of the message system, the trace and the host layer need: a directory of their own,
// and processes of their own, since the library keeps one state for one run.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>

#include "common/alert.h"
#include "host/host.h"

namespace kv {

// A test with an empty directory of its own.
class directory_test : public testing::Test {
 protected:
  directory_test() : dir(std::filesystem::temp_directory_path() / ("unit-" + host::fresh_name())) {
    std::filesystem::create_directories(dir);
  }
  ~directory_test() override { std::filesystem::remove_all(dir); }

  // Makes a file, and its directories, behind the host layer's back.
  void file(const std::string& name, const std::string& text = "") const {
    std::filesystem::create_directories((dir / name).parent_path());
    std::ofstream(dir / name, std::ios::binary) << text;
  }

  std::string read(const std::string& name) const {
    std::ifstream in(dir / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  std::filesystem::path dir;
};

// A test whose parts run in child processes, in the test's directory.
class process_test : public directory_test {
 protected:
  static constexpr int expectation_failed = 30;
  static constexpr int left_with = 40;  // plus its status: a child that ended through the exit hook

  // Runs `body` and returns what it wrote to standard error; its end is in `status`: 0 or 1
  // (failed) when it returned, left_with + n when it left through the exit hook.
  std::string run(const std::function<void()>& body) {
    const std::string log = dir.string() + ".log";
    const pid_t child = fork();
    if (child == 0) {
      if (chdir(dir.c_str()) != 0 || !freopen(log.c_str(), "w", stderr)) _exit(expectation_failed);
      for (const char* name : {"LVX_ERR_FORMAT", "LVX_WARN_FORMAT", "LVX_MSG_FORMAT"})
        unsetenv(name);
      alert_set_exit([](int exit_status) { _exit(left_with + exit_status); });
      body();
      _exit(HasFailure() ? expectation_failed : alert_failed());
    }
    int state = 0;
    waitpid(child, &state, 0);
    status = WIFEXITED(state) ? WEXITSTATUS(state) : -WTERMSIG(state);
    std::filesystem::rename(log, dir / "stderr.txt");
    const std::string said = read("stderr.txt");
    std::filesystem::remove(dir / "stderr.txt");
    return said;
  }

  int status = 0;
};

}  // namespace kv
