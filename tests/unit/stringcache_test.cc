#include "common/stringcache.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/host.h"
#include "tests/unit/fixtures.h"

namespace kv {
namespace {

TEST(stringcache, equal_texts_are_one_string) {
  const char* const s = str_printf("%s-%d", "abc", 7);
  EXPECT_STREQ(s, "abc-7");
  EXPECT_EQ(str_printf("abc-%s", "7"), s);
  EXPECT_EQ(str_cat("abc", "-7"), s);
  EXPECT_EQ(str_left("abc-789", 5), s);
  EXPECT_EQ(str_intern(std::string_view("abc-78", 5)), s);
  EXPECT_EQ(str_intern(std::string(s).c_str()), s);
  EXPECT_EQ(str_left(s, 99), s);
  const std::string longer(20000, 'y');
  EXPECT_EQ(str_printf("%s", longer), str_intern(longer.c_str()));
}

TEST(stringcache, null_is_passed_through) {
  EXPECT_EQ(str_intern(static_cast<const char*>(nullptr)), nullptr);
  EXPECT_EQ(str_left(nullptr, 3), nullptr);
  EXPECT_STREQ(str_cat_opt(nullptr, "b"), "b");
  EXPECT_STREQ(str_cat_opt("a", nullptr), "a");
  EXPECT_STREQ(str_cat_opt("a", "b"), "ab");
  EXPECT_EQ(str_cat_opt(nullptr, nullptr), nullptr);
}

TEST(stringcache, without_a_cache_or_past_its_limit_results_are_copies) {
  str_cache_set_size(0);
  EXPECT_NE(str_intern("uncached"), str_intern("uncached"));
  str_cache_set_size(5077);
  str_cache_set_limit(2);
  for (const char* s : {"limit 1", "limit 2", "limit 3"}) EXPECT_EQ(str_intern(s), str_intern(s));
  EXPECT_NE(str_intern("limit 4"), str_intern("limit 4"));
  str_cache_set_limit(0);
  EXPECT_EQ(str_intern("limit 4"), str_intern("limit 4"));
}

TEST(stringcache, paths_are_joined_by_one_backslash) {
  const struct {
    const char *dir, *name, *joined;
  } cases[] = {{"a", "b", "a\\b"},       {"a\\", "b", "a\\b"}, {"a", "\\b", "a\\b"},
               {"a\\", "\\b", "a\\b"},   {"\\", "\\", "\\"},   {"", "b", "b"},
               {nullptr, "b", "b"},      {"a", "", "a"},       {"a", nullptr, "a"},
               {"a\\\\", "b", "a\\\\b"}, {"a/", "b", "a/\\b"}};
  for (const auto& c : cases) EXPECT_STREQ(str_path_join(c.dir, c.name), c.joined);
}

TEST(stringcache, ends_are_compared) {
  EXPECT_TRUE(str_ends_with("file.msgs", ".msgs"));
  EXPECT_TRUE(str_ends_with("x", ""));
  EXPECT_FALSE(str_ends_with("file.MSGS", ".msgs"));
  EXPECT_FALSE(str_ends_with("s", "msgs"));
  EXPECT_TRUE(str_starts_with("option:x", "option"));
  EXPECT_FALSE(str_starts_with("Option", "option"));
  EXPECT_TRUE(str_starts_with_nocase("OpTion", "oPtion"));
  EXPECT_FALSE(str_starts_with_nocase("opt", "option"));
  for (const auto matches : {str_ends_with, str_starts_with, str_starts_with_nocase}) {
    EXPECT_FALSE(matches(nullptr, "o"));
    EXPECT_FALSE(matches("o", nullptr));
  }
}

std::vector<std::string> split(const char* s, const char* delims) {
  vector* const tokens = str_split(s, delims);
  std::vector<std::string> result;
  for (std::uint32_t i = 0; i < vec_count(tokens); ++i) {
    result.emplace_back(vec_get_ptr<const char>(tokens, i));
  }
  vec_destroy(tokens);
  return result;
}

TEST(stringcache, tokens_are_separated_by_runs_of_delimiters) {
  using tokens = std::vector<std::string>;
  EXPECT_EQ(split("  two   words ", " "), (tokens{"two", "words"}));
  EXPECT_EQ(split("a,b:;c", ",:;"), (tokens{"a", "b", "c"}));
  EXPECT_EQ(split(",,,", ","), tokens{});
  EXPECT_EQ(split("", ","), tokens{});
  EXPECT_EQ(split(nullptr, ","), tokens{});
  EXPECT_EQ(split("whole", ""), tokens{"whole"});
  EXPECT_EQ(split("whole", nullptr), tokens{"whole"});
}

using read_long_line_test = directory_test;

TEST_F(read_long_line_test, lines_of_any_length_come_whole) {
  const std::string x(1022, 'x');
  const std::string huge(3000000, 'h');
  const struct {
    std::string text;
    std::vector<std::string> lines;
  } cases[] = {
      {"", {}},
      {"one\ntwo", {"one\n", "two"}},
      {"\n\n", {"\n", "\n"}},
      {"a\r\nb\rc\n", {"a\r\n", "b\rc\n"}},
      {x + "\nb", {x + "\n", "b"}},
      {x + "x\nb", {x + "x\n", "b"}},
      {x + "\rb\n", {x + "\r", "b\n"}},  // a piece of 1023 characters that ends in a return
      {x + "x" + x + "\nb", {x + "x" + x + "\n", "b"}},
      {std::string("z\0y\n", 4), {"zy\n"}},
      {huge + "\n" + huge, {huge + "\n", huge}},
  };
  for (const auto& c : cases) {
    file("f", c.text);
    const int fd = host::open_read((dir / "f").c_str());
    line_reader reader(fd);
    std::vector<std::string> lines;
    while (const char* line = read_long_line(reader)) lines.emplace_back(line);
    host::close_file(fd);
    EXPECT_EQ(lines, c.lines);
  }
}

}  // namespace
}  // namespace kv
