// The host layer against the real file system: what the limit counts, what the table of listings
// answers, how names are spelled, and what happens to the standard descriptors.

#include "host/host.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/unit/fixtures.h"

using namespace kv;

namespace {

class Host : public directory_test {
 protected:
  // The path as the program would build it below the test's directory.
  std::string at(const std::string& name) const { return dir.string() + '\\' + name; }

  // The outcome of a probe: 0 for a file that opens, else errno.
  int probe(const std::string& name) const {
    const int fd = host::open_probe(at(name).c_str());
    if (fd < 0) return errno;
    host::close_file(fd);
    return 0;
  }
};

TEST_F(Host, ProbeOpensWhatExistsInEverySpellingOfThePath) {
  file("sub/deep/x.h");
  EXPECT_EQ(probe("absent.h"), ENOENT);  // the listing is read here
  EXPECT_EQ(probe("sub\\deep\\x.h"), 0);
  EXPECT_EQ(probe("sub/deep/../deep\\x.h"), 0);
  EXPECT_EQ(probe("sub//./deep/x.h"), 0);
  EXPECT_EQ(probe("sub\\deep"), EISDIR);
  EXPECT_EQ(probe("sub\\other\\x.h"), ENOENT);
  EXPECT_EQ(probe("nowhere\\x.h"), ENOENT);
}

TEST_F(Host, LaterMissesAreAnsweredFromMemoryUntilTheProgramCreatesAFile) {
  EXPECT_EQ(probe("late.h"), ENOENT);
  EXPECT_EQ(probe("later\\x.h"), ENOENT);
  file("late.h");
  file("later/x.h");
  file("LATE2.h");
  EXPECT_EQ(probe("late.h"), ENOENT);
  EXPECT_EQ(probe("later\\x.h"), ENOENT);
  host::close_file(host::open_write(at("own.h").c_str(), host::write_place::from_start).fd);
  EXPECT_EQ(probe("late.h"), 0);
  EXPECT_EQ(probe("later\\x.h"), 0);
  EXPECT_EQ(probe("own.h"), 0);
}

TEST_F(Host, SpellingIsFoundWhateverTheCase) {
  file("Inc/Sys/Types.H");
  file("Inc/both.h");
  file("Inc/Both.h");
  const struct {
    const char *asked, *stored;
  } cases[] = {
      {"Inc\\Sys\\Types.H", "Inc\\Sys\\Types.H"},
      {"inc/SYS\\types.h", "Inc/Sys\\Types.H"},
      {"INC\\both.h", "Inc\\both.h"},
      {"inc\\Both.h", "Inc\\Both.h"},
      {"inc\\..\\INC", "Inc\\..\\Inc"},
  };
  for (const auto& [asked, stored] : cases) {
    std::string actual;
    EXPECT_TRUE(host::stored_spelling(at(asked).c_str(), actual)) << asked;
    EXPECT_EQ(actual, at(stored));
    EXPECT_EQ(host::spelling_to_open(at(asked).c_str()), at(stored));
  }
  std::string actual = "kept";
  EXPECT_FALSE(host::stored_spelling(at("inc\\nope.h").c_str(), actual));
  EXPECT_FALSE(host::stored_spelling(at("nope\\types.h").c_str(), actual));
  EXPECT_EQ(actual, "kept");
  EXPECT_EQ(host::spelling_to_open(at("nope").c_str()), at("nope"));
}

TEST_F(Host, FilesBeyondTheLimitAreRefusedAndDuplicatesDoNotCount) {
  host::close_file(host::open_write(at("file").c_str(), host::write_place::from_start).fd);
  std::vector<int> open;
  int fd = -1;
  while ((fd = host::open_probe(at("file").c_str())) >= 0) open.push_back(fd);
  EXPECT_EQ(errno, EMFILE);
  EXPECT_EQ(open.size() + 3, host::max_open_files);
  const int copy = host::duplicate(open.back());
  EXPECT_GE(copy, 0);
  host::close_file(copy);
  host::close_file(open.back());
  open.back() = host::open_probe(at("file").c_str());
  EXPECT_GE(open.back(), 0);
  for (const int each : open) host::close_file(each);
}

TEST_F(Host, ClosedStandardDescriptorsNeverReceiveAFile) {
  file("file");
  EXPECT_EXIT(
      {
        host::close_file(0);
        host::close_file(1);
        host::prepare_standard_handles();
        const int fd = host::open_read(at("file").c_str());
        const bool harmless = host::write_all(1, "x", 1) && host::read_block(0, &errno, 1) == 0;
        std::_Exit(fd > 2 && harmless ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
