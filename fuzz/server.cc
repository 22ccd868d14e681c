#include "fuzz/server.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

#include "fuzz/program.h"

// Interfaces of the sanitizers' run-time, which the plain server is built without.
extern "C" {
[[gnu::weak]] void __sanitizer_symbolize_pc(void* pc, const char* format, char* text,
                                            std::size_t size);
[[gnu::weak]] void __sanitizer_sandbox_on_notify(void* arguments);
}

namespace kv::fuzz {
namespace {

// A worker's runs leave their memory behind; these many are less work than a new process each.
constexpr int runs_of_a_worker = 100;

// The statuses with which a worker ends between two runs.
constexpr int worker_retires = 100;
constexpr int no_more_requests = 101;
constexpr int server_fails = 102;

board* shared = nullptr;

[[noreturn]] void give_up(const char* what) {
  std::perror(what);
  _exit(server_fails);
}

// ---- What the server does once

// A report's symbolizer must be running before the files are out of reach; it serves the first run
// that needs it.
void prepare_reports() {
  if (__sanitizer_symbolize_pc == nullptr) return;
  char text[256];
  __sanitizer_symbolize_pc(reinterpret_cast<void*>(&prepare_reports), "%f", text, sizeof text);
  __sanitizer_sandbox_on_notify(nullptr);
}

// Only a privileged process may change its root; anyone is privileged in a name space of their own.
void lock_in(const char* root) {
  if (::chdir(root) != 0) give_up(root);
  if (::chroot(".") == 0) return;
  if (::unshare(CLONE_NEWUSER) != 0 || ::chroot(".") != 0) give_up("cannot lock the runs in");
}

// The memory that this process has now, as the limit on it counts.
rlim_t data_size() {
  std::ifstream status("/proc/self/status");
  std::string word;
  while (status >> word) {
    if (word != "VmData:") continue;
    rlim_t kilobytes = 0;
    status >> kilobytes;
    return kilobytes * 1024;
  }
  give_up("/proc/self/status");
}

void limit_runs() {
  constexpr rlim_t memory_of_a_worker = rlim_t{2} << 30;
  const rlim_t memory = data_size() + memory_of_a_worker;
  const rlimit data = {memory, memory};
  const rlimit core = {0, 0};
  if (::setrlimit(RLIMIT_DATA, &data) != 0 || ::setrlimit(RLIMIT_CORE, &core) != 0) {
    give_up("setrlimit");
  }
}

// ---- A run

// A limit that the next run can change again.
void limit_output(rlim_t size) {
  const rlimit limit = {size, RLIM_INFINITY};
  if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) give_up("setrlimit");
}

// Sends a signal, which ends the process, when the time has been used up; 0 calls it off.
void limit_time(unsigned seconds) {
  const itimerval timer = {{0, 0}, {static_cast<time_t>(seconds), 0}};
  ::setitimer(ITIMER_PROF, &timer, nullptr);
}

// The `count` words from `at` on, and a null behind them; moves `at` behind the last.
std::vector<char*> take_words(char*& at, unsigned count) {
  std::vector<char*> words;
  for (unsigned i = 0; i < count; ++i) {
    words.push_back(at);
    at += std::strlen(at) + 1;
  }
  words.push_back(nullptr);
  return words;
}

int run_once(const program_memory& memory) {
  memory.restore();
  for (const int fd : {stdin_fd, stdout_fd, stderr_fd}) {
    if (::dup2(fd, fd - stdin_fd) < 0) give_up("dup2");
  }
  char* at = shared->words.data();
  std::vector<char*> arguments = take_words(at, shared->argument_count);
  std::vector<char*> settings = take_words(at, shared->setting_count);
  environ = settings.data();
  limit_output(shared->output_limit);
  limit_time(seconds_limit);
  const int status = run_program(static_cast<int>(shared->argument_count), arguments.data());
  limit_time(0);
  limit_output(RLIM_INFINITY);
  environ = nullptr;
  std::ranges::copy(coverage_counters(), shared->counters.begin());
  ::close_range(STDERR_FILENO + 1, first_server_fd - 1, 0);
  ::close_range(last_server_fd + 1, UINT_MAX, 0);
  return W_EXITCODE(status, 0);
}

void answer(int wait_status) {
  if (::write(request_fd, &wait_status, sizeof wait_status) != sizeof wait_status) {
    _exit(no_more_requests);
  }
}

[[noreturn]] void work() {
  const program_memory memory;
  request wanted{};
  for (int runs = 0; runs < runs_of_a_worker; ++runs) {
    if (::read(request_fd, &wanted, 1) != 1) _exit(no_more_requests);
    if (wanted == request::renew_worker) break;
    answer(run_once(memory));
  }
  _exit(worker_retires);
}

}  // namespace

board* map_board() {
  void* const memory =
      ::mmap(nullptr, sizeof(board), PROT_READ | PROT_WRITE, MAP_SHARED, board_fd, 0);
  if (memory == MAP_FAILED) give_up("mmap");
  return static_cast<board*>(memory);
}

void serve(const char* root) {
  shared = map_board();
  if (coverage_counters().size() > counters_room) give_up("counters_room is too small");
  limit_runs();
  prepare_reports();
  lock_in(root);
  for (;;) {
    const pid_t worker = ::fork();
    if (worker == 0) work();
    int status = 0;
    if (worker < 0 || ::waitpid(worker, &status, 0) != worker) give_up("fork");
    if (WIFEXITED(status)) {
      if (WEXITSTATUS(status) == worker_retires) continue;
      if (WEXITSTATUS(status) >= no_more_requests) _exit(WEXITSTATUS(status));
    }
    answer(status);  // of a run that has ended its worker
  }
}

}  // namespace kv::fuzz
