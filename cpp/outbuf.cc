#include "cpp/outbuf.h"

#include "common/alert.h"
#include "common/outfile.h"
#include "cpp/observe.h"

namespace kv::cpp {

unsigned char out_block[out_size];
unsigned char* out_next = out_block;

namespace {

constexpr int standard_output = 1;

// Where the text goes; nowhere when it is closed.
constinit out_file output("output", standard_output);

constinit bool discarding = false;

// The last byte that has left the block.
constinit unsigned char last_gone = '\n';

// The bytes that have left the block.
constinit std::uint64_t gone = 0;

void write(const void* p, std::size_t n) {
  gone += n;
  if (n == 0 || discarding) return;
  const observe::timed time(run_phase::output);
  last_gone = static_cast<const unsigned char*>(p)[n - 1];
  if (!output.write(p, n)) alert_leave(1);
}

std::size_t gathered() {
  return static_cast<std::size_t>(out_next - out_block);
}

// Empties the block without writing it. Returns what was in it.
std::size_t drop_gathered() {
  const std::size_t n = gathered();
  gone += n;
  out_next = out_block;
  return n;
}

}  // namespace

std::uint64_t out_count() {
  return gone + gathered();
}

std::string_view out_last(std::uint64_t n) {
  if (n > gathered()) return {};
  const auto len = static_cast<std::size_t>(n);
  return {reinterpret_cast<const char*>(out_next) - len, len};
}

bool out_at_line_start() {
  return (out_next != out_block ? out_next[-1] : last_gone) == '\n';
}

bool out_open(const char* path, bool replace) {
  if (!output.open(path, host::write_place::from_start, host::content::text)) return false;
  if (!replace && output.replaces()) output.leave_alone(false);
  return true;
}

void out_flush() {
  const std::size_t n = gathered();
  out_next = out_block;
  write(out_block, n);
}

void out_large(const void* p, std::size_t n) {
  out_flush();
  if (n >= out_size) {
    write(p, n);
  } else {
    std::memcpy(out_next, p, n);
    out_next += n;
  }
}

void out_discard(bool on) {
  drop_gathered();
  discarding = on;
}

void out_finish() {
  const observe::timed time(run_phase::output);
  const std::size_t n = drop_gathered();
  output.finish(out_block, n);
}

void out_remove() {
  output.remove();
}

void out_leave_alone(bool remove_new) {
  drop_gathered();
  output.leave_alone(remove_new);
}

}  // namespace kv::cpp
