// The host layer against the real file system: what the limit counts, what the table of listings
// answers, how names are spelled, and what happens to the standard descriptors.

#include "host/host.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace kv;

namespace {

// Each test has an empty directory of its own.
class Host : public testing::Test {
 protected:
  Host() : root(fs::temp_directory_path() / ("kvhost-" + host::fresh_name())) {
    fs::create_directories(root);
  }
  ~Host() override { fs::remove_all(root); }

  // The path as the program would build it below the test's directory.
  std::string at(const std::string& name) const { return root.string() + '\\' + name; }

  // Makes a file behind the host layer's back.
  void put(const std::string& name, const std::string& text = "") const {
    fs::create_directories((root / name).parent_path());
    std::ofstream(root / name, std::ios::binary) << text;
  }

  // The outcome of a probe: 0 for a file that opens, else errno.
  int probe(const std::string& name) const {
    const int fd = host::open_probe(at(name).c_str());
    if (fd < 0) return errno;
    host::close_file(fd);
    return 0;
  }

  fs::path root;
};

TEST_F(Host, WritesAppendsAndReadsBytesUnchanged) {
  const std::string path = at("file");
  const std::string text("a\r\n\x1a\0b\n", 7);
  for (const auto place : {host::write_place::from_start, host::write_place::at_end}) {
    const int fd = host::open_write(path.c_str(), place).fd;
    EXPECT_TRUE(host::write_all(fd, text.data(), text.size()));
    host::close_file(fd);
  }
  std::string got(100, '\0');
  const int fd = host::open_read(path.c_str());
  got.resize(static_cast<std::size_t>(host::read_block(fd, got.data(), got.size())));
  EXPECT_EQ(host::read_block(fd, got.data(), 1), 0);
  host::close_file(fd);
  EXPECT_EQ(got, text + text);
}

TEST_F(Host, ProbeOpensWhatExistsInEverySpellingOfThePath) {
  put("sub/deep/x.h");
  EXPECT_EQ(probe("absent.h"), ENOENT);  // the listing is read here
  EXPECT_EQ(probe("sub\\deep\\x.h"), 0);
  EXPECT_EQ(probe("sub/deep/../deep\\x.h"), 0);
  EXPECT_EQ(probe("sub//./deep/x.h"), 0);
  EXPECT_EQ(probe("sub\\deep"), EISDIR);
  EXPECT_EQ(probe("sub\\other\\x.h"), ENOENT);
  EXPECT_EQ(probe("nowhere\\x.h"), ENOENT);
}

#ifndef _WIN32
TEST_F(Host, LaterMissesAreAnsweredFromMemoryUntilTheProgramCreatesAFile) {
  EXPECT_EQ(probe("late.h"), ENOENT);
  EXPECT_EQ(probe("later\\x.h"), ENOENT);
  put("late.h");
  put("later/x.h");
  put("LATE2.h");
  EXPECT_EQ(probe("late.h"), ENOENT);
  EXPECT_EQ(probe("later\\x.h"), ENOENT);
  host::close_file(host::open_write(at("own.h").c_str(), host::write_place::from_start).fd);
  EXPECT_EQ(probe("late.h"), 0);
  EXPECT_EQ(probe("later\\x.h"), 0);
  EXPECT_EQ(probe("own.h"), 0);
}

TEST_F(Host, SpellingIsFoundWhateverTheCase) {
  put("Inc/Sys/Types.H");
  put("Inc/both.h");
  put("Inc/Both.h");
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
#endif

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

TEST_F(Host, AFileIsWrittenUnderOneNameOnlyAndNotWhatIsRead) {
  put("read", "text");
  put("written", "text");
  fs::create_hard_link(root / "written", root / "link");
  const auto open_write = [this](const char* name) {
    return host::open_write(at(name).c_str(), host::write_place::from_start);
  };
  EXPECT_GE(host::open_input(at("read").c_str()), 0);
  EXPECT_LT(open_write("read").fd, 0);
  EXPECT_EQ(errno, host::error_in_use);

  const host::written_file file = open_write("written");
  EXPECT_EQ(file.size, 4U);
  EXPECT_TRUE(file.regular && !file.created);
  EXPECT_LT(open_write("link").fd, 0);
  EXPECT_LT(host::open_input(at("link").c_str()), 0);
  EXPECT_EQ(probe("link"), host::error_in_use);
  EXPECT_FALSE(host::use_replaced(at("link").c_str()));
  EXPECT_EQ(fs::file_size(root / "written"), 4U);
  host::close_file(file.fd);
  EXPECT_EQ(probe("link"), 0);

  EXPECT_TRUE(host::use_replaced(at("link").c_str()));
  EXPECT_EQ(probe("written"), host::error_in_use);
}

TEST_F(Host, NamelessFileHoldsTextAndLeavesNothing) {
  const int fd = host::open_nameless(root.string().c_str());
  ASSERT_GE(fd, 0);
#ifndef _WIN32
  EXPECT_TRUE(fs::is_empty(root));
#endif
  char text[4] = {};
  EXPECT_TRUE(host::write_bytes(fd, "text", 4) && host::seek_file(fd, 1));
  EXPECT_EQ(host::read_block(fd, text, 4), 3);
  EXPECT_STREQ(text, "ext");
  host::close_file(fd);
  EXPECT_TRUE(fs::is_empty(root));
  EXPECT_LT(host::open_nameless(at("nowhere").c_str()), 0);
}

#ifndef _WIN32
TEST_F(Host, ClosedStandardDescriptorsNeverReceiveAFile) {
  put("file");
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
#endif

}  // namespace
