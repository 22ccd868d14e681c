// Paths within an installation. Where it is, depends on where the program file lies; the cases of
// toolchain.case put it into trees of all kinds.

#include "common/registry.h"

#include <gtest/gtest.h>

using namespace kv;

namespace {

TEST(Registry, LibraryLevelAppliesToLaterPathsOnly) {
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
