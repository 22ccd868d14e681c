#include "cpp/outbuf.h"

#include "common/alert.h"
#include "cpp/report/observe.h"

namespace kv::cpp {

void outbuf::write(const void* p, std::size_t n) {
  gone_ += n;
  if (n == 0 || discarding_) return;
  const observe::timed time(run_phase::output);
  last_gone_ = static_cast<const unsigned char*>(p)[n - 1];
  if (!output_.write(p, n)) alert_leave(1);
}

// Empties the block without writing it. Returns what was in it.
std::size_t outbuf::drop_gathered() {
  const std::size_t n = gathered();
  gone_ += n;
  next_ = block_;
  return n;
}

std::string_view outbuf::last(std::uint64_t n) {
  if (n > gathered()) return {};
  const auto len = static_cast<std::size_t>(n);
  return {reinterpret_cast<const char*>(next_) - len, len};
}

bool outbuf::at_line_start() {
  return (next_ != block_ ? next_[-1] : last_gone_) == '\n';
}

bool outbuf::open(const char* path, bool replace) {
  if (!output_.open(path, host::write_place::from_start, host::content::text)) return false;
  if (!replace && output_.replaces()) output_.leave_alone(false);
  return true;
}

void outbuf::flush() {
  const std::size_t n = gathered();
  next_ = block_;
  write(block_, n);
}

void outbuf::large(const void* p, std::size_t n) {
  flush();
  if (n >= size) {
    write(p, n);
  } else {
    std::memcpy(next_, p, n);
    next_ += n;
  }
}

void outbuf::discard(bool on) {
  drop_gathered();
  discarding_ = on;
}

void outbuf::finish() {
  const observe::timed time(run_phase::output);
  const std::size_t n = drop_gathered();
  output_.finish(block_, n);
}

void outbuf::leave_alone(bool remove_new) {
  drop_gathered();
  output_.leave_alone(remove_new);
}

}  // namespace kv::cpp
