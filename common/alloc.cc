// The C library's heap, because blocks are handed to callers who release them with std::free.
//
// A run that is out of memory still has to say so, complete its files and clean up, and all of that
// asks for memory here and there. A reserve is given back to the heap for it. Nobody can promise
// that it suffices, so a second failure does not try again what has just failed.

#include "common/alloc.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "common/alert.h"
#include "common/host.h"
#include "common/outfile.h"

namespace kv {
namespace {

constexpr std::size_t work_block_size = 4096;

// Enough for a directory's listing and some dozen texts; small enough to come from the first piece
// of heap that the process gets anyway.
constexpr std::size_t reserve_size = std::size_t{64} * 1024;
constinit void* reserve = nullptr;
constexpr int standard_error = 2;

struct release {
  void operator()(void* block) const { std::free(block); }
};

void* checked(void* block) {
  if (block == nullptr) alloc_failed();
  return block;
}

}  // namespace

void alloc_prepare() {
  reserve = std::malloc(reserve_size);
  std::set_new_handler(alloc_failed);
}

void alloc_failed() {
  static constinit enum { not_reported, in_report, reported } stage = not_reported;
  std::free(std::exchange(reserve, nullptr));
  if (stage == not_reported) {
    stage = in_report;
    alert_no_memory();
    stage = reported;
    alert_leave(1);
  }
  if (stage == in_report) {
    constexpr std::string_view complaint = "(296) out of memory\n";
    host::write_all(standard_error, complaint.data(), complaint.size());
  }
  std::_Exit(1);
}

void* checked_alloc(std::size_t size) {
  return checked(std::calloc(std::max<std::size_t>(size, 1), 1));
}

void* checked_alloc_raw(std::size_t size) {
  return checked(std::malloc(std::max<std::size_t>(size, 1)));
}

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
