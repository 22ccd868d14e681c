// The C library's heap, because blocks are handed to callers who release them with std::free.
//
// A run that is out of memory still has to say so, complete its files and clean up, and all of that
// asks for memory here and there. A reserve is given back to the heap for it. Nobody can promise
// that it suffices, so a second failure does not try again what has just failed.

#include "common/alloc.h"

#include <algorithm>
#include <cstdlib>
#include <new>
#include <string_view>
#include <utility>

#include "common/alert.h"
#include "host/host.h"

namespace kv {
namespace {

// Enough for a directory's listing and some dozen texts; small enough to come from the first piece
// of heap that the process gets anyway.
constexpr std::size_t reserve_size = std::size_t{64} * 1024;
constinit void* reserve = nullptr;
constexpr int standard_error = 2;

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

}  // namespace kv
