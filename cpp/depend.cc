#include "cpp/depend.h"

#include <string>
#include <string_view>

#include "common/cmode.h"
#include "cpp/include.h"
#include "cpp/options.h"
#include "cpp/outbuf.h"

namespace kv::cpp {

const char* dep_target = nullptr;
bool dep_output = false;

namespace {

bool dep_head_done = false;

// Headers that --dep_nosys leaves out.
bool is_left_out(const char* path) {
  return settings.dep_nosys && is_installed_header(path);
}

void put_escaped(std::string_view path) {
  for (const char c : path) {
    if (c == ' ') out_byte('\\');
    out_byte(static_cast<unsigned char>(c == '\\' ? '/' : c));
  }
}

// A file name cut at its last '.', the point going with the extension; a name whose last '.'
// belongs to a directory has none.
struct split_name {
  std::string_view stem;
  std::string_view extension;
};

split_name split_at_point(std::string_view name) {
  const auto point = name.rfind('.');
  const auto separator = name.find_last_of("\\/:");
  if (point == name.npos || (separator != name.npos && separator > point))
    return {name, name.substr(name.size())};
  return {name.substr(0, point), name.substr(point)};
}

std::string_view object_extension(std::string_view source_extension) {
  if (source_extension != ".c") return "obj";
  return cmode_is(CMODE_LVX | CMODE_SSC) != 0 ? "p1" : "o";
}

// Returns whether the head stands in the output: a target without a '.' gives no head.
bool write_rule_head() {
  const std::string_view source = settings.source_name;
  if (source.empty()) return false;
  const split_name input = split_at_point(source);
  const std::string target =
      dep_target != nullptr ? std::string(dep_target) : std::string(input.stem) + ".d";
  const auto point = target.rfind('.');
  if (point == target.npos) return false;

  out_byte(' ');
  put_escaped(target);
  out_text("  ");
  put_escaped(std::string_view(target).substr(0, point));
  out_byte('.');
  out_text(object_extension(input.extension));
  out_text(":  ");
  put_escaped(input.stem);
  out_text(input.extension);
  return true;
}

}  // namespace

int write_dep(void* /*context*/, std::uintptr_t /*key*/, std::uintptr_t value) {
  const auto* path = reinterpret_cast<const char*>(value);
  if (settings.dep_mode == dep_gcc && !dep_head_done) dep_head_done = write_rule_head();
  if (!is_left_out(path)) {
    out_byte(' ');
    put_escaped(path);
    if (settings.dep_mode == dep_list) out_byte('\n');
  }
  return 0;
}

}  // namespace kv::cpp
