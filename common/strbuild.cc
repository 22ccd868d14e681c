#include "common/strbuild.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "common/alloc.h"
#include "common/outfile.h"
#include "host/host.h"

namespace kv {

namespace {

constexpr std::size_t work_block_size = 4096;

struct release {
  void operator()(void* block) const { std::free(block); }
};

}  // namespace

char* str_concat(const char* a, const char* b) {
  const std::size_t a_length = std::strlen(a);
  const std::size_t b_length = std::strlen(b);
  auto* const result = static_cast<char*>(checked_alloc(a_length + b_length + 1));
  std::copy_n(b, b_length, std::copy_n(a, a_length, result));
  return result;
}

char* str_append(char* a, const char* b) {
  char* const result = str_concat(a, b);
  std::free(a);
  return result;
}

char* str_vformat(std::string_view text, std::span<const format_arg> args) {
  const std::unique_ptr<char, release> work(static_cast<char*>(checked_alloc(work_block_size)));
  if (format_text(work.get(), work_block_size, text, args) >= work_block_size) {
    constexpr std::string_view complaint = "buffer overflow in vsnprintf";
    write_error_text(complaint);
  }
  return str_concat(work.get(), "");
}

bool file_vprintf(int stream, std::string_view text, std::span<const format_arg> args) {
  const std::string line = format_string(text, args);
  return host::write_all(stream, line.data(), line.size());
}

}  // namespace kv
