#include "cpp/usage.h"

namespace kv::cpp {

namespace {

constexpr std::string_view preface = R"(usage: cpp [options] [input [output]]
       cpp @FILE
       cpp

Preprocesses C source text, from the input to the output. `-` stands for standard
input or output, and so does a file that is not named. @FILE stands for the
arguments in a file. Without any argument they are asked for.

An option's argument is joined to it: -Iinc adds the directory inc. In
`cpp -I inc main.c` the file inc is the input, and main.c is overwritten.
Capital letters and long keywords may be written in either case.
)";

constexpr std::size_t help_column = 26;

void append_option(std::string& page, const option_doc& row) {
  std::string line = "  ";
  line.append(row.spelling).append(row.argument);
  if (line.size() + 2 > help_column) {
    page += line + '\n';
    line.clear();
  }
  line.resize(help_column, ' ');
  page += line.append(row.help) + '\n';
}

}  // namespace

std::string usage_page(std::span<const option_doc> rows) {
  std::string page(preface);
  std::string_view group;
  for (const option_doc& row : rows) {
    if (row.group != group) {
      group = row.group;
      page.append("\n").append(group).append(":\n");
    }
    append_option(page, row);
  }
  return page;
}

}  // namespace kv::cpp
