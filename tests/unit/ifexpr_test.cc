// The #if evaluator, fed with generated text: value by value, with the messages kept apart.
#include "cpp/ifexpr.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "common/alert.h"
#include "cpp/reader.h"
#include "cpp/scan.h"

namespace kv::cpp {
namespace {

class IfExpr : public testing::Test {
 protected:
  // Warnings are not what is tested here.
  static void SetUpTestSuite() {
    set_ident_max(31);
    alert_set_action(0, ALERT_ACTION_PUSH);
    alert_msgdisable("0");
  }
  static void TearDownTestSuite() { alert_set_action(0, ALERT_ACTION_POP); }

  // The value of `expression` as the rest of a control line; the newline must be left unread.
  static std::int32_t value(const std::string& expression) {
    std::u16string text(expression.begin(), expression.end());
    push_text((text + u"\n").c_str());
    const std::int32_t result = eval_if();
    EXPECT_EQ('\n', get()) << expression;
    EXPECT_EQ(0, get()) << expression;
    return result;
  }
};

TEST_F(IfExpr, PrecedenceAndAssociativity) {
  EXPECT_EQ(7, value("1 + 2 * 3"));
  EXPECT_EQ(1, value("10 - 4 - 5"));
  EXPECT_EQ(1, value("1 | 2 ^ 2"));  // left to right: | and ^ share a precedence
  EXPECT_EQ(1, value("1 << 2 < 5"));
  EXPECT_EQ(0, value("4 & 2 == 2"));
  EXPECT_EQ(1, value("0 && 0 || 1"));
  EXPECT_EQ(3, value("- -3"));
  EXPECT_EQ(4, value("(1 ? 0 : 1) ? 3 : 4"));
  EXPECT_EQ(4, value("1 ? 0 : 1 ? 3 : 4"));  // ?: groups from the left
  EXPECT_EQ(9, value("((((((9))))))"));
}

TEST_F(IfExpr, SignednessFollowsTheOperands) {
  EXPECT_EQ(1, value("-1 < 0"));
  EXPECT_EQ(0, value("-1 < 0u"));
  EXPECT_EQ(1, value("0xFFFFFFFF > 0"));
  EXPECT_EQ(-1, value("-1 >> 1"));
  EXPECT_EQ(1, value("0x80000000 >> 31"));
  EXPECT_EQ(-2, value("-7 / 3"));
  EXPECT_EQ(-1, value("-7 % 3"));
  EXPECT_EQ(0x55555553, value("-7u / 3"));
  EXPECT_EQ(1, value("(0 ? 1u : -1) < 0"));
  EXPECT_EQ(0, value("(1 ? -1 : 1u) < 0"));  // the last operand's flag counts as well
}

TEST_F(IfExpr, EdgesOfTheRangeAreDefined) {
  EXPECT_EQ(INT32_MIN, value("(-2147483647 - 1) / -1"));
  EXPECT_EQ(0, value("(-2147483647 - 1) % -1"));
  EXPECT_EQ(INT32_MIN, value("2147483647 + 1"));
  EXPECT_EQ(0, value("4294967296"));
  EXPECT_EQ(2, value("1 << 33"));
  EXPECT_EQ(0, value("5 / 0"));
  EXPECT_EQ(0, value("5 % 0"));
}

TEST_F(IfExpr, CharacterConstants) {
  EXPECT_EQ(0x6162, value("'ab'"));
  EXPECT_EQ(10, value("'\\n'"));
  EXPECT_EQ('A', value("'\\x41'"));
  EXPECT_EQ('A', value("'\\101'"));
  EXPECT_EQ(0, value("''"));
  EXPECT_EQ('\'', value("'\\''"));
  EXPECT_EQ(0, value("'"));
  EXPECT_EQ(0, value("'\\"));
  EXPECT_EQ('a', value("'a"));
}

TEST_F(IfExpr, DeepNestingNeedsNoStack) {
  EXPECT_EQ(1, value(std::string(126, '(') + "1" + std::string(126, ')')));
  EXPECT_EQ(1, value(std::string(126, '!') + "1"));
}

}  // namespace
}  // namespace kv::cpp
