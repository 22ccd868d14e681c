// Writing JSON, in pure ASCII: whatever a text holds, the result can stand in a page's script block
// and go through any pipe. `<`, `>` and `&` are escaped like control characters are, so neither
// "</script>" nor "<!--" can come up.
//
// The texts of a preprocessor are bytes of an encoding that nobody tells. One that is valid UTF-8
// is taken for that, any other for Latin-1, each as a whole.
#pragma once

#include <concepts>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace kv {

/// Puts a JSON text together, from the outside inwards. Calls must nest as JSON does: within an
/// object every value follows its key.
class json_writer {
 public:
  /// `sink` takes the text in pieces of about 64 KiB; a long one should not have to be in memory.
  explicit json_writer(std::function<void(std::string_view)> sink);

  json_writer& begin_object() { return open('{'); }
  json_writer& end_object() { return close('}'); }
  json_writer& begin_array() { return open('['); }
  json_writer& end_array() { return close(']'); }

  /// The name of the member whose value comes next; plain letters.
  json_writer& key(std::string_view name);

  json_writer& value(std::string_view text);
  json_writer& value(const char* text) { return value(std::string_view(text)); }
  json_writer& value(bool b) { return literal(b ? "true" : "false"); }
  template <std::integral Number>
  json_writer& value(Number n) {
    return literal(std::to_string(n));
  }
  json_writer& null() { return literal("null"); }

  /// key() and value() in one.
  template <class Value>
  json_writer& member(std::string_view name, const Value& v) {
    return key(name).value(v);
  }

  /// Gives the sink what it has not got yet.
  void flush();

 private:
  json_writer& open(char c);
  json_writer& close(char c);
  json_writer& literal(std::string_view text);
  void separate();
  void write_string(std::string_view text);

  std::function<void(std::string_view)> sink_;
  std::string text_;
  bool first_ = true;  // nothing stands in the innermost array or object yet, or a key just before
};

}  // namespace kv
