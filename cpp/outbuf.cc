#include "cpp/outbuf.h"

#include "common/host.h"

namespace kv::cpp {

unsigned char out_block[out_size];
unsigned char* out_next = out_block;

namespace {

// The last byte that has left the block.
constinit unsigned char last_gone = '\n';

}  // namespace

bool out_at_line_start() {
  return (out_next != out_block ? out_next[-1] : last_gone) == '\n';
}

void out_flush() {
  const auto n = static_cast<std::size_t>(out_next - out_block);
  if (n != 0) last_gone = out_next[-1];
  out_next = out_block;
  if (n != 0) host::write_all(1, out_block, n);
}

void out_large(const void* p, std::size_t n) {
  out_flush();
  if (n >= out_size) {
    host::write_all(1, p, n);
    last_gone = static_cast<const unsigned char*>(p)[n - 1];
  } else {
    std::memcpy(out_next, p, n);
    out_next += n;
  }
}

}  // namespace kv::cpp
