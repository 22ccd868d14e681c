#include "common/json.h"

#include <gtest/gtest.h>

#include <string>

namespace kv {
namespace {

// What a text comes to as a value.
std::string written(std::string_view text) {
  std::string result;
  json_writer j([&](std::string_view piece) { result += piece; });
  j.value(text);
  j.flush();
  return result;
}

TEST(JsonTest, NestingPutsCommasWhereTheyBelong) {
  std::string result;
  json_writer j([&](std::string_view piece) { result += piece; });
  j.begin_object().key("a").begin_array().value(1).value(-2).null().begin_array().end_array();
  j.value("x").end_array().member("b", true).key("c").begin_object().end_object();
  j.member("d", std::uint64_t{18446744073709551615U}).end_object();
  j.flush();
  EXPECT_EQ(result, R"({"a":[1,-2,null,[],"x"],"b":true,"c":{},"d":18446744073709551615})");
}

TEST(JsonTest, NothingOfAStringCanEndItOrThePageAroundIt) {
  EXPECT_EQ(written("say \"a\\b\""), R"("say \"a\\b\"")");
  EXPECT_EQ(written("</script><!-- &"), R"("\u003C/script\u003E\u003C!-- \u0026")");
  EXPECT_EQ(written(std::string_view("\0\n\t\x1F\x7F", 5)), R"("\u0000\u000A\u0009\u001F\u007F")");
}

TEST(JsonTest, Utf8IsReadAsSuch) {
  EXPECT_EQ(written("\xC3\xA9 \xE2\x80\xA8"), R"("\u00E9 \u2028")");
  EXPECT_EQ(written("\xF0\x9F\x98\x80"), R"("\uD83D\uDE00")") << "a pair beyond 16 bits";
}

TEST(JsonTest, OtherBytesAreLatin1) {
  EXPECT_EQ(written("\xE9t\xE9"), R"("\u00E9t\u00E9")");
  EXPECT_EQ(written("\xC3\xA9\xFF"), R"("\u00C3\u00A9\u00FF")") << "one bad byte tells of all";
  EXPECT_EQ(written("\xC0\xAF"), R"("\u00C0\u00AF")") << "overlong";
  EXPECT_EQ(written("\xED\xA0\x80"), R"("\u00ED\u00A0\u0080")") << "a surrogate";
  EXPECT_EQ(written("\xE2\x82"), R"("\u00E2\u0082")") << "cut off";
  EXPECT_EQ(written("\xF4\x90\x80\x80"), R"("\u00F4\u0090\u0080\u0080")") << "too large";
}

TEST(JsonTest, LongTextsGoToTheSinkInPieces) {
  std::string result;
  std::size_t pieces = 0;
  json_writer j([&](std::string_view piece) {
    result += piece;
    ++pieces;
  });
  j.begin_array();
  for (int n = 0; n < 50000; ++n) j.value(1);
  j.end_array().flush();
  EXPECT_GT(pieces, 1U);
  ASSERT_EQ(result.size(), 100001U);
  EXPECT_EQ(result.substr(0, 4), "[1,1");
  EXPECT_EQ(result.find(",,"), result.npos);
}

}  // namespace
}  // namespace kv
