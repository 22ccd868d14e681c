#include "common/language.h"

#include <gtest/gtest.h>

namespace kv {
namespace {

TEST(language, ids_have_codes_and_names_and_are_found_by_either) {
  EXPECT_STREQ(lang_code(7), "de");
  EXPECT_STREQ(lang_names(12), "French;Francais");
  for (const int id : {9, 255, 8, -1}) {
    EXPECT_STREQ(lang_code(id), "en");
    EXPECT_STREQ(lang_names(id), "English");
  }
  EXPECT_EQ(lang_id("DE"), 7);
  EXPECT_EQ(lang_id("deutsch"), 7);
  EXPECT_EQ(lang_id("English"), 9);
  EXPECT_EQ(lang_id("Francais"), 12);
  for (const char* other : {"Fran", "German;Deutsch", "it", "", ";"}) {
    EXPECT_EQ(lang_id(other), 255) << other;
  }
  EXPECT_EQ(lang_id(nullptr), 255);
}

}  // namespace
}  // namespace kv
