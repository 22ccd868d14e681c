#include "cpp/outbuf.h"

#include "common/host.h"

namespace kv::cpp {

unsigned char out_block[out_size];
unsigned char* out_next = out_block;

void out_flush() {
  const auto n = static_cast<std::size_t>(out_next - out_block);
  out_next = out_block;
  if (n != 0) host::write_all(1, out_block, n);
}

void out_large(const void* p, std::size_t n) {
  out_flush();
  if (n >= out_size) {
    host::write_all(1, p, n);
  } else {
    std::memcpy(out_next, p, n);
    out_next += n;
  }
}

}  // namespace kv::cpp
