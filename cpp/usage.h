// The page of usage, made from the rows of the option table.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace kv::cpp {

/// The groups that --help shows the options in, by their headings.
inline constexpr std::string_view in_general = "General";
inline constexpr std::string_view in_output = "Output";
inline constexpr std::string_view in_macros = "Macros and names";
inline constexpr std::string_view in_headers = "Headers";
inline constexpr std::string_view in_rules = "Rules for make";
inline constexpr std::string_view in_messages = "Messages";

/// What a row of the option table tells a reader.
struct option_doc {
  std::string_view group;
  std::string_view spelling;  ///< "-D", "--edf=", "--ver": what is written as it stands
  /// What is joined to it, or empty: NAMES in capitals stand for something of that kind, small
  /// letters for themselves, `|` is between words to choose from, `[]` around what can be left out.
  std::string_view argument;
  std::string_view help;  ///< one line
};

/// Returns the page: how the program is called, then each group of
/// `rows` under its heading. A heading is a line from the first column that ends in ':'; an option
/// is a line that begins with two blanks and '-', its help follows behind at least two blanks, or
/// on the next line. Completions and the manual page are made from that form.
std::string usage_page(std::span<const option_doc> rows);

}  // namespace kv::cpp
