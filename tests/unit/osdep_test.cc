// Path names and private temporary files.

#include "common/osdep.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "host/host.h"
#include "tests/unit/fixtures.h"

namespace fs = std::filesystem;
using namespace kv;

namespace {

constexpr const char* none = "(none)";

TEST(Osdep, PathsAreCutAtTheMostImportantSeparator) {
  const struct {
    const char *path, *dir, *tail, *stem;
  } cases[] = {
      {"foo.h", none, "foo.h", "foo."},
      {"C:foo.h", "C", "foo.h", "foo."},
      {"C:\\a/b.c", "C:", "a/b.c", "a/b."},
      {"a.d/b", "a.d", "b", "b"},
      {"\\\\srv\\s\\x.y.z", "\\\\srv\\s", "x.y.z", "x.y."},
      {"a\\", "a", "", ""},
      {"", none, "", ""},
  };
  for (const auto& [path, dir, tail, stem] : cases) {
    EXPECT_EQ(path_dir(path).value_or(none), dir);
    EXPECT_STREQ(path_tail(path), tail);
    EXPECT_EQ(path_tail_copy(path), tail);
    EXPECT_EQ(path_stem_dot(path), stem);
  }
  EXPECT_EQ(path_tail(nullptr), nullptr);
  EXPECT_EQ(path_tail_copy(nullptr), "");
  EXPECT_FALSE(path_dir(nullptr));
}

TEST(Osdep, PathsAreJoinedByOneBackslash) {
  EXPECT_EQ(path_join("C:\\a\\", "\\b"), "C:\\a\\b");
  EXPECT_EQ(path_join("a", "b"), "a\\b");
  EXPECT_EQ(path_join("a\\\\", "\\\\b"), "a\\\\\\b");
  EXPECT_FALSE(path_join("", "b"));
  EXPECT_EQ(path_join("a", nullptr), "a\\");
  EXPECT_FALSE(path_join(nullptr, "b"));
}

TEST(Osdep, NormalisingDropsDotsAndDoubledSeparators) {
  const struct {
    const char *path, *normal;
  } cases[] = {
      {"C:\\a\\.\\b\\..\\c\\", "C:\\a\\c"},
      {"C:\\", "C:\\"},
      {"C:\\a\\..", "C:\\"},
      {"C:\\..\\a", "C:\\a"},
      {"a\\/b//c", "a/b/c"},
      {"./a/./b/.", "./a/b"},
      {"\\\\srv\\x", "\\srv\\x"},
      {"/a/../../b", "/b"},
      {"a/b/../../c", "a/c"},
      {"..\\a", "..\\a"},
      {"/a/.../b.", "/a/.../b."},
      {"/", "/"},
      {"a/", "a/"},
      {"ab/", "ab"},
      {"", ""},
  };
  for (const auto& [path, normal] : cases) EXPECT_EQ(normalize_path(path), normal) << path;
  EXPECT_EQ(normalize_path(nullptr), "");

  EXPECT_EQ(absolute_path("C:\\a\\..\\b"), "C:\\b");
  EXPECT_EQ(absolute_path("\\a\\..\\b"), "\\b");
  EXPECT_EQ(absolute_path("a\\..\\b"), normalize_path((current_dir() + "\\b").c_str()));
  EXPECT_EQ(absolute_path(nullptr), normalize_path(current_dir().c_str()));
  EXPECT_FALSE(is_abs_path(nullptr));
  EXPECT_TRUE(is_abs_path("\\\\s"));
  EXPECT_TRUE(is_abs_path("c:x"));
  EXPECT_FALSE(is_abs_path("\\x"));
  EXPECT_FALSE(is_abs_path("c"));
}

using OsdepFiles = directory_test;

TEST_F(OsdepFiles, DirectoriesAreMadeWithTheirParentsAndRemovedWithoutFollowingLinks) {
  const std::string root = dir.string() + "/root";
  EXPECT_EQ(make_dirs((root + "\\tree\\deep").c_str()), 0);
  EXPECT_EQ(make_dirs((root + "\\outside\\").c_str()), 0);
  EXPECT_NE(make_dirs((root + "\\outside").c_str()), 0);
  EXPECT_NE(make_dirs("\\"), 0);
  EXPECT_NE(make_dirs("Q:\\x"), 0);
  EXPECT_FALSE(file_exists("Q:")) << "a drive is not made";
  const fs::path outside = fs::path(root) / "outside";
  file("root/outside/Kept.txt", "text");
  EXPECT_NE(make_dirs((root + "\\outside\\Kept.txt\\x").c_str()), 0);
  EXPECT_NE(make_dirs((root + "\\outside\\Kept.txt\\x\\y").c_str()), 0);
  EXPECT_FALSE(file_exists(nullptr));
  EXPECT_FALSE(is_directory(nullptr));
  EXPECT_EQ(make_dirs(nullptr), -1);
  EXPECT_EQ(remove_tree(nullptr), -1);
  EXPECT_FALSE(name_case_matches(nullptr));

  EXPECT_TRUE(name_case_matches((root + "\\outside\\Kept.txt").c_str()));
  EXPECT_FALSE(name_case_matches((root + "\\outside\\kept.txt").c_str()));
  EXPECT_FALSE(name_case_matches((root + "\\outside\\gone.txt").c_str()));

  fs::create_directory_symlink(outside, fs::path(root) / "tree/deep/link");
  EXPECT_EQ(remove_tree((root + "\\outside\\Kept.txt").c_str()), -1);
  EXPECT_EQ(remove_tree((root + "\\tree\\deep\\link").c_str()), -1);
  EXPECT_EQ(remove_tree((root + "\\tree").c_str()), 0);
  EXPECT_FALSE(file_exists((root + "\\tree").c_str()));
  EXPECT_TRUE(fs::exists(outside / "Kept.txt"));
  EXPECT_EQ(remove_tree(root.c_str()), 0);
}

// The directory that an open file without a name lies in.
fs::path directory_of(int fd) {
  return fs::read_symlink("/proc/self/fd/" + std::to_string(fd)).parent_path();
}

TEST_F(OsdepFiles, TemporaryFilesLieInTheFirstDirectoryThatTakesThem) {
  const fs::path root = fs::canonical(dir);
  const fs::path other = root / "other";
  fs::create_directory(other);
  const struct {
    const char *temp, *tmp, *tmpdir;
    fs::path expected;
  } cases[] = {{root.c_str(), other.c_str(), "", root},
               {"", root.c_str(), other.c_str(), root},
               {"/nonexistent", "/dev/null", root.c_str(), root},
               {"", "", "/nonexistent", "/tmp"}};
  for (const auto& [temp, tmp, tmpdir, expected] : cases) {
    setenv("TEMP", temp, 1);
    setenv("TMP", tmp, 1);
    setenv("TMPDIR", tmpdir, 1);
    const int fd = open_temp_file();
    ASSERT_GE(fd, 0);
    EXPECT_EQ(directory_of(fd), expected);
    host::close_file(fd);
  }
  for (const char* variable : {"TEMP", "TMP", "TMPDIR"}) unsetenv(variable);
}

}  // namespace
