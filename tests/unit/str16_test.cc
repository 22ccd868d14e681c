// 16-bit text.

#include "common/str16.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

using namespace kv;

namespace {

TEST(Str16, TextIsComparedAndConvertedByUnits) {
  EXPECT_EQ(str16_cmp(u"ab", u"ab"), 0);
  EXPECT_EQ(str16_cmp(u"b", u"ab"), 1);
  EXPECT_EQ(str16_cmp(u"a", u"a\u7f1c"), -1);
  EXPECT_EQ(str16_cmp8(u"ab", "ab"), 0);
  EXPECT_EQ(str16_cmp8(u"ab", "a"), 'b');
  EXPECT_EQ(str16_cmp8(u"\u00e9", "\xe9"), 256);  // bytes are signed here
  EXPECT_EQ(str16_atoi(u"0120x"), 120);
  EXPECT_EQ(str16_atoi(u"-1"), 0);
  EXPECT_EQ(str16_rchr(u"abca", u'd'), nullptr);

  char16_t* copy = str16_dup(u"A/Z[\u00c9/\u7f1c");
  EXPECT_EQ(str16_rchr(copy, u'/'), copy + 5);
  str16_lower(copy);
  EXPECT_EQ(str16_cmp(copy, u"a/z[\u00c9/\u7f1c"), 0);
  char narrow[8];
  str16to8(narrow, copy);
  EXPECT_STREQ(narrow, "a/z[\xc9/\x1c");
  std::free(copy);

  char16_t wide[5] = {1, 1, 1, 1, 1};
  str8to16n(wide, "\xff", 4);
  EXPECT_EQ(std::u16string(wide, 5), std::u16string(u"\u00ff\0\0\0\u0001", 5));
  str8to16n(wide, "abcdef", 2);
  EXPECT_EQ(std::u16string(wide, 3), std::u16string(u"ab\0", 3));
}

}  // namespace
