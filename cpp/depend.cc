// Both kinds of dependency output list the headers that were opened, in the order of their table.
// What -L writes has a form of its own, and escapes blanks alone. The rule of --dep= is for make
// and Ninja, and may be written by any name: what they read as one name, and nothing else, is
// decided in append_escaped().
#include "cpp/depend.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/cmode.h"
#include "common/hash.h"
#include "common/outfile.h"
#include "cpp/diag.h"
#include "cpp/headers.h"
#include "cpp/outbuf.h"
#include "cpp/settings.h"
#include "host/host.h"

namespace kv::cpp {

namespace {

const char* dep_target = nullptr;
bool list_due = false;
bool dep_head_done = false;

// Headers that --dep_nosys leaves out.
bool is_left_out(const char* path) {
  return settings.dep_nosys && is_installed_header(path);
}

void put_escaped(std::string_view path) {
  for (const char c : path) {
    if (c == ' ') outbuf::byte('\\');
    outbuf::byte(static_cast<unsigned char>(c == '\\' ? '/' : c));
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

  outbuf::byte(' ');
  put_escaped(target);
  outbuf::text("  ");
  put_escaped(std::string_view(target).substr(0, point));
  outbuf::byte('.');
  outbuf::text(object_extension(input.extension));
  outbuf::text(":  ");
  put_escaped(input.stem);
  outbuf::text(input.extension);
  return true;
}

// ---- The rule of --dep=.

constinit out_file rule_file("dependency");

// The names given with --dep_target=.
std::vector<std::string_view>& rule_targets() {
  static auto* const targets = new std::vector<std::string_view>;
  return *targets;
}

// `C:` at the start of a path is no colon to escape where paths have drives.
std::size_t drive_length(std::string_view name) {
  return host::paths_have_drives && name.size() > 2 && name[1] == ':' ? 2 : 0;
}

// Appends a name as make and Ninja both read it: `$` is doubled, a backslash goes before a blank,
// `#` and `:`. The name's own backslashes are doubled there and at its end, and nowhere else.
void append_escaped(std::string& rule, std::string_view name) {
  const std::size_t drive = drive_length(name);
  rule += name.substr(0, drive);
  std::size_t backslashes = 0;  // that lead to the next character
  for (const char c : name.substr(drive)) {
    if (c == ' ' || c == '\t' || c == '#' || c == ':') rule.append(backslashes + 1, '\\');
    if (c == '$') rule += '$';
    rule += c;
    backslashes = c == '\\' ? backslashes + 1 : 0;
  }
  rule.append(backslashes, '\\');
}

// A file's name is the one under which make finds it, whatever letters the source has for it.
std::string name_for_make(const char* path) {
  return portable_path(opened_spelling(path).c_str());
}

// The output's name; without one that of the object that the compiler will make of the source.
std::string default_target() {
  if (dep_target != nullptr) return portable_path(dep_target);
  const std::string source = portable_path(settings.source_name);
  if (source.empty()) return "-";
  const split_name input = split_at_point(source);
  return std::string(input.stem).append(".").append(object_extension(input.extension));
}

// The paths of the headers that the rule names, in the order of -L.
std::vector<std::string> rule_headers() {
  std::vector<std::string> headers;
  const auto add = [](void* to, std::uintptr_t, std::uintptr_t value) {
    const auto* path = reinterpret_cast<const char*>(value);
    if (!is_left_out(path)) {
      static_cast<std::vector<std::string>*>(to)->push_back(name_for_make(path));
    }
    return 0;
  };
  visit_opened_headers(&headers, add);
  return headers;
}

std::string make_rule() {
  std::string rule;
  if (rule_targets().empty()) append_escaped(rule, default_target());
  for (const std::string_view target : rule_targets()) {
    if (!rule.empty()) rule += ' ';
    append_escaped(rule, target);
  }
  rule += ':';
  const auto add_prerequisite = [&](std::string_view name) {
    rule += " \\\n  ";
    append_escaped(rule, name);
  };
  if (settings.source_name[0] != 0) add_prerequisite(name_for_make(settings.source_name));
  const std::vector<std::string> headers = rule_headers();
  for (const std::string& header : headers) add_prerequisite(header);
  rule += '\n';
  if (!settings.dep_phony) return rule;
  for (const std::string& header : headers) {
    rule += '\n';
    append_escaped(rule, header);
    rule += ":\n";
  }
  return rule;
}

// Lists the header `value`, a path, behind the head of a rule where there is to be one.
int write_dep(void* /*context*/, std::uintptr_t /*key*/, std::uintptr_t value) {
  const auto* path = reinterpret_cast<const char*>(value);
  if (settings.dep_mode == dep_gcc && !dep_head_done) dep_head_done = write_rule_head();
  if (!is_left_out(path)) {
    outbuf::byte(' ');
    put_escaped(path);
    if (settings.dep_mode == dep_list) outbuf::byte('\n');
  }
  return 0;
}

}  // namespace

void dep_start(const char* target) {
  dep_target = target;
  list_due = !text_output();
}

void dep_write_list() {
  if (std::exchange(list_due, false)) visit_opened_headers(nullptr, write_dep);
}

void dep_add_target(const char* name) {
  rule_targets().push_back(name);
}

bool dep_lists_headers() {
  return list_due || rule_file.is_open();
}

void dep_open_rule() {
  const char* path = settings.dep_file;
  if (path != nullptr &&
      !rule_file.open(path, host::write_place::from_start, host::content::text)) {
    refuse_file("dependency", path);
  }
}

void dep_end_rule(bool succeeded) {
  if (!rule_file.is_open()) return;
  if (succeeded) {
    rule_file.finish(make_rule());
  } else {
    rule_file.leave_alone(true);
  }
}

}  // namespace kv::cpp
