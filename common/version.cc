// The version banner: the block of labelled lines that every tool of the toolchain prints.

#include "common/version.h"

#include <array>
#include <string>
#include <string_view>

namespace kv {
namespace {

// The date in the compiler's own layout, "Mmm dd yyyy" with the day padded with a blank.
std::string build_date() {
  constexpr std::array<std::string_view, 12> months = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  constexpr long long date = build_stamp / 1'000'000;
  constexpr long long month = date / 100 % 100;
  constexpr long long day = date % 100;
  static_assert(month >= 1 && month <= 12 && day >= 1 && day <= 31);

  std::string text(months[month - 1]);
  text += day < 10 ? "  " : " ";
  text += std::to_string(day) + ' ' + std::to_string(date / 10'000);
  return text;
}

}  // namespace

std::string version_banner() {
  struct row {
    std::string_view label;
    std::string value;
  };
  const std::array<row, 6> rows = {{{"Product", product_name},
                                    {"Component", component_name},
                                    {"Version", std::string(product_version) + version_suffix},
                                    {"Build date", build_date()},
                                    {"Release", release_name},
                                    {"Build number", std::to_string(build_stamp)}}};
  std::string banner = "\n";
  for (const auto& [label, value] : rows) {
    banner += label;
    banner += ":\t" + value + '\n';
  }
  return banner;
}

}  // namespace kv
