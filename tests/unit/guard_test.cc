// Include guards in a header's bytes: what is one, what it leaves to be counted, and what is too
// unusual to be taken for one.
#include "cpp/guard.h"

#include <gtest/gtest.h>

#include <string>

#include "cpp/lanes.h"

namespace kv::cpp {
namespace {

// "name newlines depth", with a `c` behind it for comments outside the group; empty for no guard.
std::string seen(const std::string& text) {
  // The name lies in the text, so both are looked at together.
  const std::string ended = text + '\n' + std::string(search_slack, ' ');
  const include_guard g =
      guard_of(reinterpret_cast<const unsigned char*>(ended.data()), text.size());
  if (g.name == nullptr) return {};
  return std::string(reinterpret_cast<const char*>(g.name), g.name_len) + ' ' +
         std::to_string(g.newlines) + ' ' + std::to_string(g.depth) +
         (g.outer_comments ? " c" : "");
}

// The group of a guard around `inner`, which holds whole lines.
std::string around(const std::string& inner) {
  return "#ifndef G\n" + inner + "#endif\n";
}

TEST(Guard, IsFoundWithWhatIsLeftOfIt) {
  EXPECT_EQ(seen("#ifndef G\n#define G\nint x;\n#endif\n"), "G 4 1");
  EXPECT_EQ(seen("#ifndef G\n#define G\n#endif"), "G 3 1");
  EXPECT_EQ(seen("\n\n # ifndef\t_g$1 \n\f\n\t#\v endif \n\n"), "_g$1 6 1");
  EXPECT_EQ(seen("#ifndef G\r\n\r\nx\r\n#endif\r\n"), "G 4 1");
}

TEST(Guard, NewlinesInCommentsAndOfJoinedLinesAreNotHeldBack) {
  EXPECT_EQ(seen("/* a\n b */\n// c\n#ifndef G\n#endif /* d\n */\n"), "G 4 1 c");
  EXPECT_EQ(seen("/* a */ #ifndef G // b\n#endif\n"), "G 2 1 c");
  EXPECT_EQ(seen("#ifndef G /* a\n*/\n/* b */ #endif // c"), "G 2 1");
  EXPECT_EQ(seen("#ifndef G\n#endif\n/**//* a */"), "G 3 1 c");
  EXPECT_EQ(seen(around("#define A 1 \\\n  + 2 \\\r\n  + 3\nx /* a\nb */ y\n")), "G 4 1");
}

TEST(Guard, NestedGroupsBelongToIt) {
  EXPECT_EQ(seen(around("#if 1\n#ifdef A\n#elif B /* \n */\n#else\n#endif\n#endif\n#ifndef C\n"
                        "#endif // c\n")),
            "G 10 3");
  std::string deep;
  for (int i = 0; i < 31; ++i) deep = "#if x\n" + deep + "#endif\n";
  EXPECT_EQ(seen(around(deep)), "G 64 32");
  EXPECT_EQ(seen(around("#if x\n" + deep + "#endif\n")), "");
}

TEST(Guard, TextOutsideOrABranchOfItsOwnUndoesIt) {
  for (const char* text :
       {"", "\n", "x\n", "x\n#ifndef G\n#endif\n", "#ifndef G\n#endif\nx\n",
        "#ifndef G\n#endif x\n", "#ifndef G\n#else\n#endif\n", "#ifndef G\n#elif 1\n#endif\n",
        "#ifndef G\n", "#ifndef G\n#if 1\n#endif\n", "#ifndef G x\n#endif\n", "#ifndef\n#endif\n",
        "#ifndef 1\n#endif\n", "#ifdef G\n#endif\n", "#ifndef G\n#endif\n#define A\n",
        "#ifndef G\n#endif\n#ifndef G\n#endif\n"}) {
    EXPECT_EQ(seen(text), "") << text;
  }
}

TEST(Guard, WhatMayRaiseAMessageOrNeedsTranslationUndoesIt) {
  for (const char* inner :
       {"/* /* */\n", "/* open\n", "// joined \\\nx\n", "a \\ \nb\n", "\\\n#endif\n", "a \\\\\nb\n",
        "\"?\?/\"\n", "a\rb\n", "#unknown x\n", "#if 1\n#endif x\n", "#if 1\n#else x\n#endif\n",
        "#if 1\n#else\n#else\n#endif\n", "#if 1\n#else\n#elif 1\n#endif\n", "#\n",
        "#define\\\nX\n"}) {
    EXPECT_EQ(seen(around(inner)), "") << inner;
  }
  EXPECT_EQ(seen(around(std::string("a\0b\n", 4))), "");
  EXPECT_EQ(seen("#ifndef G\n#endif \\"), "");
  EXPECT_EQ(seen("#ifndef G\n#if 1\nx \\\n"), "");
}

TEST(Guard, LinesOfUpToTheLimitArePartOfIt) {
  EXPECT_EQ(seen(around(std::string(10238, 'x') + '\n')), "G 3 1");
  EXPECT_EQ(seen(around(std::string(10239, 'x') + '\n')), "");
}

TEST(Guard, OfSkippedTextOnlyClosedLiteralsAndCommentsHaveAMeaning) {
  EXPECT_EQ(seen(around("'don\"t\n \"\\n\" '\\\\x' / * ? @ \\# //\n#error it's\n")), "G 5 1");
  EXPECT_EQ(seen(around("\"/*\"\n\"*/\"\n")), "G 4 1");
  EXPECT_EQ(seen(around("\"/*\n\"*/\"\n")), "G 3 1");
}

}  // namespace
}  // namespace kv::cpp
