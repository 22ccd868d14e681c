// Texts that fit their arguments are held against the C library; hostile ones against fixed results
// and a guarded buffer.

#include "common/format.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

namespace kv {
namespace {

#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wformat"
#endif
#ifdef __clang__
#pragma clang diagnostic ignored "-Wformat"
#pragma clang diagnostic ignored "-Wformat-nonliteral"
#endif
#pragma GCC diagnostic ignored "-Wformat-security"

// What the C library makes of the text, cut like ours.
template <class... A>
std::string by_c_library(const std::string& text, A... args) {
  char buf[512];
  std::snprintf(buf, sizeof buf, text.c_str(), args...);
  return buf;
}

template <class T>
void expect_like_c_library(const std::string& letters, const std::string& modifier, T value) {
  for (const char* flags : {"", "-", "+", " ", "0", "#", "-+", "+0", "#0", "-#", " 0", "-+ 0#"}) {
    for (const char* width : {"", "1", "7", "25"}) {
      for (const char* precision : {"", ".", ".0", ".3", ".22"}) {
        for (const char letter : letters) {
          const std::string text =
              "<%" + std::string(flags) + width + precision + modifier + letter + ">";
          EXPECT_EQ(format_string(text, value), by_c_library(text, value)) << text;
        }
      }
    }
  }
}

TEST(format, numbers_read_as_the_c_library_writes_them) {
  for (const int n : {0, 1, -1, 42, 12345678, INT_MAX, INT_MIN}) {
    expect_like_c_library("dixXou", "", n);
  }
  for (const unsigned n : {0u, 7u, 0x80000000u, UINT_MAX}) expect_like_c_library("dixXou", "", n);
  for (const long long n : {0LL, -9LL, LLONG_MAX, LLONG_MIN}) {
    expect_like_c_library("dixXou", "ll", n);
    expect_like_c_library("dixXou", "j", n);
  }
  for (const std::size_t n : {std::size_t{0}, SIZE_MAX}) expect_like_c_library("uxo", "z", n);
}

TEST(format, strings_and_characters_read_as_the_c_library_writes_them) {
  for (const char* s : {"", "a", "seven..", "longer than all widths of the table"}) {
    for (const char* text : {"<%s>", "<%10s>", "<%-10s>", "<%.3s>", "<%10.3s>", "<%-10.3s>",
                             "<%.0s>", "<%.s>", "100%% %s%%"}) {
      EXPECT_EQ(format_string(text, s), by_c_library(text, s)) << text;
    }
  }
  for (const char* text : {"<%c>", "<%3c>", "<%-3c>"}) {
    EXPECT_EQ(format_string(text, 'x'), by_c_library(text, 'x')) << text;
  }
  EXPECT_EQ(format_string("%*d|%-*d|%*d", 5, 1, 5, 2, -5, 3),
            by_c_library("%*d|%-*d|%*d", 5, 1, 5, 2, -5, 3));
  EXPECT_EQ(format_string("%.*s|%.*s", 2, "abc", -1, "abc"),
            by_c_library("%.*s|%.*s", 2, "abc", -1, "abc"));
}

TEST(format, argument_types_keep_their_size_and_sign) {
  EXPECT_EQ(format_string("%d %u %x", std::int8_t{-1}, std::uint8_t{255}, std::int16_t{-2}),
            "-1 255 fffffffe");
  EXPECT_EQ(format_string("%d %lu", INT64_C(-5000000000), UINT64_MAX),
            "-5000000000 18446744073709551615");
  EXPECT_EQ(format_string("%d %c%c", true, 65, u'B'), "1 AB");
  EXPECT_EQ(format_string("%s-%s", std::string("own"), std::string_view("viewed", 4)), "own-view");
  EXPECT_EQ(format_string("%p %p %#x", reinterpret_cast<const void*>(0xBEEF), std::uintptr_t{0}, 9),
            "0xbeef (nil) 0x9");
  const char unended[] = {'a', 'b', 'c'};
  EXPECT_EQ(format_string("%.3s", unended), "abc");
}

TEST(format, text16_loses_its_markers_and_high_bytes) {
  const char16_t text[] = {u'a', 0x7F1D, 0x7F1E, 0x7F1F, 0x01E4, 0x7F1C, u'b', 0};
  EXPECT_EQ(format_string("[%ls]", text),
            "[a\xE4\x1C"
            "b]");
  EXPECT_EQ(format_string("[%s]", text),
            "[a\xE4\x1C"
            "b]");
  EXPECT_EQ(format_string("[%5.2ls]", text), "[   a\xE4]");
}

TEST(format, misfits_print_something_sensible) {
  const struct {
    const char* text;
    const char* expected;
  } cases[] = {
      {"%d|%x|%f|%c", "str|str|str|str"},  // strings where numbers are wanted
      {"%5.1d|", "  str|"},
      {"%n%s%n%s", "strstr"},  // uses up arguments 1 and 3
      {"%s %s %s %s %s %d", "str str str str (null) (null)"},
      {"tail %", "tail %"},
      {"tail %-08.3l", "tail %-08.3l"},
      {"%y%s", "%ystr"},
      {"%5%|%-%", "%|%"},
      {"%*d|%.*s", "str|str"},  // a width and a precision that are no numbers
  };
  for (const auto& c : cases) {
    const bool star = std::strchr(c.text, '*') != nullptr;
    EXPECT_EQ(star ? format_string(c.text, "w", "str", 99, "str")
                   : format_string(c.text, "str", "str", "str", "str"),
              c.expected)
        << c.text;
  }
  EXPECT_EQ(format_string("%s|%s|%.1s|%g", -1, 4000000000u, 12345, 7), "-1|4000000000|12345|7");
  EXPECT_EQ(format_string("%s|%d", 'x', 'x'), "x|120");
  const char* const none = nullptr;
  EXPECT_EQ(
      format_string("%s %d %.2s %ls", none, none, none, static_cast<const char16_t*>(nullptr)),
      "(null) (null) (null) (null)");
}

TEST(format, output_is_cut_to_the_buffer_and_counted_in_full) {
  char buf[12];
  std::memset(buf, '!', sizeof buf);
  EXPECT_EQ(format_text(buf, 6, "abc%s", "defgh"), 8u);
  EXPECT_STREQ(buf, "abcde");
  EXPECT_EQ(buf[6], '!');
  EXPECT_EQ(format_text(buf, 1, "abc"), 3u);
  EXPECT_STREQ(buf, "");
  EXPECT_EQ(format_text(nullptr, 0, "%d", 1234), 4u);
  for (const std::size_t length : {510u, 511u, 512u, 513u, 5000u}) {
    EXPECT_EQ(format_string("%s", std::string(length, 'x')), std::string(length, 'x'));
  }
}

TEST(format, hostile_widths_cost_bounded_work) {
  char buf[32];
  std::memset(buf, '!', sizeof buf);
  EXPECT_EQ(format_text(buf, 16, "%1000000d", 5), 1000000u);
  EXPECT_STREQ(buf, "               ");
  EXPECT_EQ(buf[16], '!');
  std::string text;
  for (int i = 0; i < 1000; ++i) text += "%1000000000000000000000000000000.99999999999d%-*s";
  EXPECT_LE(format_text(buf, 16, text, 5, INT_MIN, "x"), format_padding_limit + 8 * 2000);
  EXPECT_LE(format_string(text, 5, SIZE_MAX, "x").size(), format_padding_limit + 8 * 2000);
}

}  // namespace
}  // namespace kv
