#include "fuzz/program.h"

#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <csetjmp>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <utility>

#include "cpp/driver.h"

// The linker gives the bounds of the counters in a build that has any.
extern "C" {
[[gnu::weak, gnu::visibility("hidden")]] extern unsigned char __start___sancov_cntrs[];
[[gnu::weak, gnu::visibility("hidden")]] extern unsigned char __stop___sancov_cntrs[];
}

namespace kv::fuzz {
namespace {

constexpr std::time_t now = 1'000'000'000;

std::jmp_buf caller;
int exit_status = 0;
std::vector<void (*)()>* exit_handlers = nullptr;

using range = std::pair<std::uintptr_t, std::uintptr_t>;

// The writable segments of the library, without what the loader has made read-only.
int find_segments(dl_phdr_info* object, std::size_t /*size*/, void* result) {
  const auto here = reinterpret_cast<std::uintptr_t>(&caller);
  const std::span<const ElfW(Phdr)> headers(object->dlpi_phdr, object->dlpi_phnum);
  const auto bounds = [&](const ElfW(Phdr) & header) {
    const std::uintptr_t start = object->dlpi_addr + header.p_vaddr;
    return range{start, start + header.p_memsz};
  };
  const bool is_library = std::any_of(headers.begin(), headers.end(), [&](const auto& header) {
    const auto [start, end] = bounds(header);
    return header.p_type == PT_LOAD && start <= here && here < end;
  });
  if (!is_library) return 0;

  const auto page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
  std::uintptr_t read_only_end = 0;  // such pages are the first of their segment
  for (const auto& header : headers) {
    if (header.p_type == PT_GNU_RELRO) read_only_end = bounds(header).second & ~(page - 1);
  }
  for (const auto& header : headers) {
    if (header.p_type != PT_LOAD || (header.p_flags & PF_W) == 0) continue;
    auto [start, end] = bounds(header);
    if (start < read_only_end && read_only_end <= end) start = read_only_end;
    if (start < end) static_cast<std::vector<range>*>(result)->emplace_back(start, end);
  }
  return 1;
}

// Copies block by block: what lies between variables is out of bounds for anything that the
// sanitizers look at, and they look at the C library's functions, one of which the compiler would
// make of this loop if it could.
[[gnu::no_sanitize_address]] void copy_blocks(const memory_block* from, memory_block* to,
                                              std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    to[i] = from[i];
    asm volatile("" ::: "memory");
  }
}

}  // namespace

int run_program(int argc, char** argv) {
  if (setjmp(caller) == 0) cpp::run(argc, argv);
  return exit_status;
}

std::span<unsigned char> coverage_counters() {
  return {__start___sancov_cntrs, __stop___sancov_cntrs};
}

program_memory::program_memory() {
  std::vector<range> segments;
  ::dl_iterate_phdr(find_segments, &segments);
  for (const auto& [first, end] : segments) {
    constexpr std::uintptr_t size = sizeof(memory_block);
    piece& p = pieces_.emplace_back();
    p.start = reinterpret_cast<memory_block*>(first / size * size);
    p.content.resize((end + size - 1) / size - first / size);
    copy_blocks(p.start, p.content.data(), p.content.size());
  }
}

void program_memory::restore() const {
  for (const piece& p : pieces_) copy_blocks(p.content.data(), p.start, p.content.size());
}

}  // namespace kv::fuzz

// ---- The calls that the linker leads here instead of to the C library

extern "C" {

[[noreturn]] void __wrap_exit(int status) {
  using namespace kv::fuzz;
  exit_status = status;
  while (exit_handlers != nullptr && !exit_handlers->empty()) {
    const auto handler = exit_handlers->back();
    exit_handlers->pop_back();
    handler();
  }
  std::longjmp(caller, 1);
}

int __wrap_atexit(void (*handler)()) {
  using namespace kv::fuzz;
  if (exit_handlers == nullptr) exit_handlers = new std::vector<void (*)()>;
  exit_handlers->push_back(handler);
  return 0;
}

// The clocks stand still: two runs of one input must not differ by the time of day, nor by that of
// the files they write, which an archive tells, nor by how long they took, which a report tells.
std::time_t __wrap_time(std::time_t* result) {
  if (result != nullptr) *result = kv::fuzz::now;
  return kv::fuzz::now;
}

int __wrap_clock_gettime(clockid_t, std::timespec* result) {
  *result = {kv::fuzz::now, 0};
  return 0;
}

std::tm* __real_localtime(const std::time_t* time);
std::tm* __wrap_localtime(const std::time_t*) {
  return __real_localtime(&kv::fuzz::now);
}
}
