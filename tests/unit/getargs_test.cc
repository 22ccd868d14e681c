// Arguments from a command file or a prompt.

#include "common/getargs.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "common/alert.h"
#include "host/host.h"

#ifndef _WIN32
#include <unistd.h>
#endif

namespace fs = std::filesystem;
using namespace kv;

namespace {

using words = std::vector<std::string>;

words collect() {
  char** const vector = getargs("cpp", "-");
  words result(vector, vector + arg_count);
  EXPECT_EQ(vector[arg_count], nullptr);
  for (unsigned i = 0; i < arg_count; ++i) std::free(vector[i]);
  EXPECT_EQ(result.front(), "cpp");
  result.erase(result.begin());
  return result;
}

// Puts `text` in the place of standard input while the arguments are read.
words read_from(const std::string& text) {
  const fs::path file = fs::temp_directory_path() / ("kvargs-" + host::fresh_name());
  std::ofstream(file, std::ios::binary) << text;
  const int saved = host::duplicate(0);
  const int fd = host::open_read(file.string().c_str());
  EXPECT_TRUE(host::duplicate_onto(fd, 0));
  host::close_file(fd);
  words result = collect();
  host::duplicate_onto(saved, 0);
  host::close_file(saved);
  fs::remove(file);
  return result;
}

TEST(Getargs, WordsAreSplitAtBlanksAndGroupedByQuotes) {
  const struct {
    std::string text;
    words expected;
  } cases[] = {
      {"-DNAME=\"a b\"\nin.c out.i\n", {"-DNAME=a b", "in.c", "out.i"}},
      {"'it\"s' \\\" \\\\ a\\b \\ x", {"it\"s", "\"", "\\", "a\\b", " x"}},
      {"\n  a\t\tb \r\n\r\nc\r\n", {"a", "b", "c"}},
      {"\"a\tb c\"\n", {"a", "b c"}},
      {"'a\nb c' d\n", {"a", "b c", "d"}},
      {"a\\\n b\\\nc", {"a", " b", "\\c"}},
      {"\"\" '' a''b", {"ab"}},
      {std::string("a\0b", 3), {"ab"}},
      {std::string(1022, 'x') + "\r\ny", {std::string(1022, 'x'), "y"}},
      {"no-newline\\", {"no-newline"}},
      {"", {}},
  };
  for (const auto& [text, expected] : cases) EXPECT_EQ(read_from(text), expected) << text;
}

TEST(Getargs, VectorGrowsAndLinesMayBeLong) {
  words expected;
  std::string text;
  for (int i = 0; i < 5000; ++i) {
    expected.push_back(std::to_string(i) + "-word");
    text += expected.back() + ' ';
  }
  EXPECT_EQ(read_from(text), expected);
}

TEST(Getargs, WordOf2048CharactersIsCutAndEndsTheReading) {
  const std::string longest(2047, 'x');
  EXPECT_EQ(read_from(longest + " a\nb"), (words{longest, "a", "b"}));

  testing::internal::CaptureStderr();
  EXPECT_EQ(read_from("first " + longest + "y a\nb"), (words{"first", longest}));
  EXPECT_NE(testing::internal::GetCapturedStderr().find("argument too long"), std::string::npos);
}

#ifndef _WIN32
TEST(Getargs, TerminalIsAskedForEachLine) {
  const int master = posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_TRUE(master >= 0 && grantpt(master) == 0 && unlockpt(master) == 0);
  const std::string typed = "-DX a.c\n\x04";
  const int saved = host::duplicate(0);
  const int terminal = host::open_read(ptsname(master));
  ASSERT_TRUE(host::duplicate_onto(terminal, 0));
  host::close_file(terminal);
  ASSERT_TRUE(host::write_all(master, typed.data(), typed.size()));

  testing::internal::CaptureStdout();
  const words result = collect();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "cpp> cpp> ");
  EXPECT_EQ(result, (words{"-DX", "a.c"}));
  host::duplicate_onto(saved, 0);
  host::close_file(saved);
  close(master);
}
#endif

}  // namespace
