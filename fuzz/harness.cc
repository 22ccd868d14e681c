// One input, two runs: with the fast paths, the sanitizers and the checks, and without any of them.
//
// Every run must end by itself with status 0 or 1, must not print for ever, must leave no temporary
// file, and both must print and write the same, byte for byte. What fails is described on standard
// error, and abort() makes the fuzzer keep the input.
#include "fuzz/harness.h"

#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <span>
#include <string>

#include "fuzz/directory.h"
#include "fuzz/program.h"
#include "fuzz/server.h"

namespace kv::fuzz {

// Errors, warnings of several levels, plain messages, and a fatal one at the end.
const std::string_view faulty_program =
    "#define a b\n#define a c\n#define f(x, y) x y\nf(1)\nf(1, 2, 3)\n#undef\n#define 1\n"
    "#if 1 +\n#endif\n#if (2\n#endif x\n#if 09 == 'ab'\n#elif 1 / 0\n#endif\n#else\n"
    "#error \"some\" %s text\n#warning %d\n#info 'n'\n#advisory\n#unknown x\n"
    "#include <missing.h\n\"open\n'open\n\?\?= \?\?/\n#line x\n#assert 0\n#pragma p\n"
    "#include \"IN.H\"\n#include \"missing.h\"\nf(\n";

namespace {

// Each run may write this much and the same number of times its input before it counts as endless.
constexpr std::size_t output_base = std::size_t{16} << 20;
constexpr std::size_t output_factor = 64;

// The names of what was printed, which no file has.
constexpr const char* standard_output = "/standard output";
constexpr const char* standard_error = "/standard error";

struct outcome {
  int wait_status = 0;
  std::map<std::string, std::string> texts = {{standard_output, ""}, {standard_error, ""}};

  bool operator==(const outcome&) const = default;
};

// The fuzzer's own clock interrupts calls that wait; they are made anew.
class server {
 public:
  // Starts the server: `body` runs in the new process.
  template <class Body>
  explicit server(Body body) {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) fail("socketpair");
    const pid_t pid = ::fork();
    if (pid < 0) fail("fork");
    if (pid == 0) {
      ::dup2(ends[1], request_fd);
      ::close(ends[0]);
      body();
    }
    ::close(ends[1]);
    socket_ = ends[0];
  }

  int run() const {
    int status = 0;
    ask(request::run);
    if (TEMP_FAILURE_RETRY(::read(socket_, &status, sizeof status)) != sizeof status) {
      fail("a server has ended");
    }
    return status;
  }

  // The next run is the first of its process.
  void renew_worker() const { ask(request::renew_worker); }

  [[noreturn]] static void fail(const char* what) {
    std::fprintf(stderr, "fuzz: %s: %s\n", what, std::strerror(errno));
    std::_Exit(2);
  }

 private:
  void ask(request what) const {
    if (TEMP_FAILURE_RETRY(::write(socket_, &what, sizeof what)) != sizeof what) {
      fail("a server has ended");
    }
  }

  int socket_ = -1;
};

struct setup {
  run_directory& directory;
  board* shared;
  server checked;
  server plain;
};

setup* the_setup = nullptr;

// ---- Descriptors

void open_memory(const char* name, int as) {
  const int fd = ::memfd_create(name, 0);
  if (fd < 0 || ::dup2(fd, as) != as) server::fail("memfd_create");
  ::close(fd);
}

void set_memory(int fd, std::string_view text) {
  if (::ftruncate(fd, 0) != 0 || ::lseek(fd, 0, SEEK_SET) != 0 ||
      ::pwrite(fd, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
    server::fail("pwrite");
  }
}

std::string memory_text(int fd) {
  std::string text(static_cast<std::size_t>(::lseek(fd, 0, SEEK_END)), '\0');
  if (::pread(fd, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
    server::fail("pread");
  }
  return text;
}

// ---- A run

// Writes the words of the run on the board; false when there are too many.
bool write_words(const program_run& run) {
  std::vector<std::string> arguments = run.arguments;
  arguments.insert(arguments.begin(), "cpp");
  std::vector<std::string> settings = run.settings;
  settings.push_back("TEMP=/" + std::string(run_directory::temp));
  settings.emplace_back("TZ=UTC");

  std::string words;
  for (const auto* list : {&arguments, &settings}) {
    for (const std::string& word : *list) words += word.substr(0, word.find('\0')) + '\0';
  }
  board& shared = *the_setup->shared;
  if (words.size() > shared.words.size()) return false;
  std::copy(words.begin(), words.end(), shared.words.begin());
  shared.argument_count = static_cast<unsigned>(arguments.size());
  shared.setting_count = static_cast<unsigned>(settings.size());
  return true;
}

// The trace tells addresses, which are not the same in two builds.
void blank_addresses(std::string& text) {
  constexpr std::string_view digits = "0123456789abcdef";
  constexpr std::size_t shortest = 8;
  for (std::size_t at = 0; (at = text.find("0x", at)) != std::string::npos; at += 2) {
    const std::size_t end = std::min(text.find_first_not_of(digits, at + 2), text.size());
    if (end - at >= shortest) text.replace(at + 2, end - at - 2, "-");
  }
}

// A report tells what was read, and only the fast paths spare a guarded header its second reading.
bool is_report(std::string_view text) {
  return text.find("\"spared\":") != std::string_view::npos;
}

outcome ask(const server& of, const program_run& run) {
  the_setup->directory.fill(run.files);
  set_memory(stdin_fd, run.standard_input);
  set_memory(stdout_fd, "");
  set_memory(stderr_fd, "");
  outcome result;
  result.wait_status = of.run();
  result.texts = the_setup->directory.take();
  for (auto& [name, text] : result.texts) {
    blank_addresses(text);
    if (is_report(text)) text = "a report";
  }
  result.texts[standard_output] = memory_text(stdout_fd);
  result.texts[standard_error] = memory_text(stderr_fd);
  return result;
}

// A worker's memory has a limit, and the runs before have left theirs behind.
bool is_out_of_memory(const outcome& run) {
  return run.texts.at(standard_error).find("(296)") != std::string::npos;
}

// Macros that name each other several times can come to any length, so a run may reach the limit,
// but not without a word about what it reads.
bool is_cut_off(const outcome& run, std::size_t limit) {
  constexpr std::string_view write_error = "can't write";
  const std::string& told = run.texts.at(standard_error);
  return run.texts.at(standard_output).size() >= limit && !told.empty() &&
         !told.starts_with(write_error);
}

// What is wrong with a run by itself, or nothing.
std::string fault_of(const outcome& run, std::size_t limit) {
  for (const auto& [name, text] : run.texts) {
    if (text.size() >= limit && name != standard_error &&
        (name != standard_output || !is_cut_off(run, limit)))
      return "wrote for ever: " + name;
    if (name.starts_with(run_directory::temp) && name != run_directory::temp)
      return "left a temporary file: " + name;
  }
  const int status = run.wait_status;
  if (WIFSIGNALED(status) && WTERMSIG(status) == SIGPROF) return "did not end in time";
  if (WIFSIGNALED(status)) return "was killed by signal " + std::to_string(WTERMSIG(status));
  if (WEXITSTATUS(status) > 1) return "ended with status " + std::to_string(WEXITSTATUS(status));
  return "";
}

void print_text(const char* title, std::string_view text) {
  constexpr std::size_t shown = 4000;
  std::fprintf(stderr, "--- %s (%zu bytes)\n", title, text.size());
  std::fwrite(text.data(), 1, std::min(text.size(), shown), stderr);
  std::fputs(text.size() > shown ? "...\n" : "\n", stderr);
}

// What two runs of one input came to.
struct comparison {
  outcome fast;
  outcome plain;
  std::string fault;  // empty when all is well
};

comparison compare(const program_run& run, std::size_t limit) {
  comparison result;
  result.fast = ask(the_setup->checked, run);
  if (const std::string fault = fault_of(result.fast, limit); !fault.empty()) {
    result.fault = "the run with fast paths " + fault;
    return result;
  }
  result.plain = ask(the_setup->plain, run);
  if (const std::string fault = fault_of(result.plain, limit); !fault.empty()) {
    result.fault = "the run without fast paths " + fault;
  } else if (result.fast != result.plain && !is_cut_off(result.fast, limit)) {
    result.fault = "the runs with and without fast paths differ";
  }
  return result;
}

// Prints what of one run is not the same in the other.
void print_own(const outcome& run, const outcome& other, const std::string& which) {
  std::fprintf(stderr, "--- wait status %s: %d\n", which.c_str(), run.wait_status);
  for (const auto& [name, text] : run.texts) {
    const auto found = other.texts.find(name);
    if (found == other.texts.end() || found->second != text)
      print_text((name + ' ' + which).c_str(), text);
  }
}

[[noreturn]] void complain(const program_run& run, const comparison& runs) {
  std::fprintf(stderr, "\nfuzz: %s\ncpp", runs.fault.c_str());
  for (const std::string& word : run.arguments) std::fprintf(stderr, " '%s'", word.c_str());
  std::fputc('\n', stderr);
  for (const std::string& setting : run.settings) std::fprintf(stderr, "%s\n", setting.c_str());
  for (const input_file& file : run.files) print_text(file.name.c_str(), file.text);
  print_own(runs.fast, runs.plain, "with fast paths");
  print_own(runs.plain, runs.fast, "without fast paths");
  the_setup->directory.remove();
  std::abort();
}

void check(const program_run& run, std::size_t input_size) {
  const std::size_t limit = output_base + output_factor * input_size;
  the_setup->shared->output_limit = limit;
  if (!write_words(run)) return;
  comparison runs = compare(run, limit);
  if (runs.fault.empty()) {
    const std::span<unsigned char> counters = coverage_counters();
    std::copy_n(the_setup->shared->counters.begin(), counters.size(), counters.begin());
    return;
  }
  the_setup->checked.renew_worker();
  the_setup->plain.renew_worker();
  if (comparison again = compare(run, limit); !again.fault.empty()) complain(run, again);
  if (is_out_of_memory(runs.fast) || is_out_of_memory(runs.plain)) return;
  runs.fault += " (but not in new processes)";
  complain(run, runs);
}

// ---- Inputs

input_parts cut_input(std::string_view data) {
  constexpr std::string_view mark = "--- ";
  input_parts input;
  std::string* part = &input.first;
  while (!data.empty()) {
    const std::size_t length = std::min(data.find('\n'), data.size() - 1) + 1;
    std::string_view line = data.substr(0, length);
    data.remove_prefix(length);
    if (line.starts_with(mark) && line.ends_with('\n')) {
      line.remove_suffix(1);
      line.remove_prefix(mark.size());
      if (run_directory::takes(line)) {
        input.files.push_back({std::string(line), {}});
        part = &input.files.back().text;
        continue;
      }
    }
    *part += line;
  }
  return input;
}

// A server of checked runs is this very process, as it is before the fuzzer has begun.
void start(const char* plain_server) {
  auto& directory = *new run_directory;
  open_memory("board", board_fd);
  if (::ftruncate(board_fd, sizeof(board)) != 0) server::fail("ftruncate");
  open_memory("stdin", stdin_fd);
  open_memory("stdout", stdout_fd);
  open_memory("stderr", stderr_fd);
  const char* const root = directory.path();
  the_setup = new setup{directory, map_board(), server([&] { serve(root); }), server([&] {
                          ::execl(plain_server, plain_server, root, nullptr);
                          server::fail(plain_server);
                        })};
  std::atexit([] { the_setup->directory.remove(); });
}

}  // namespace

void input_parts::add_default(std::string_view name, std::string_view text) {
  const auto has_name = [&](const input_file& file) { return file.name == name; };
  if (std::none_of(files.begin(), files.end(), has_name)) {
    files.push_back({std::string(name), std::string(text)});
  }
}

std::string input_parts::take_file(std::string_view name) {
  const auto found = std::find_if(files.begin(), files.end(),
                                  [&](const input_file& file) { return file.name == name; });
  if (found == files.end()) return "";
  std::string text = std::move(found->text);
  files.erase(found);
  return text;
}

std::vector<std::string> split_lines(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::size_t length = std::min(text.find('\n'), text.size());
    lines.emplace_back(text.substr(0, length));
    text.remove_prefix(std::min(length + 1, text.size()));
  }
  return lines;
}

}  // namespace kv::fuzz

// ---- What the fuzzer and the sanitizers ask for by name

extern "C" {

int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  kv::fuzz::start(FUZZ_PLAIN_SERVER);
  return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  std::string_view temp = kv::fuzz::run_directory::temp;
  temp.remove_suffix(1);  // the slash
  if (text.find(temp) != text.npos) return 0;
  kv::fuzz::check(kv::fuzz::plan_run(kv::fuzz::cut_input(text)), size);
  return 0;
}

// What a run keeps until its end is no leak.
const char* __asan_default_options() {
  return "detect_leaks=0:abort_on_error=1:allocator_may_return_null=1:quarantine_size_mb=16";
}

const char* __ubsan_default_options() {
  return "print_stacktrace=1:halt_on_error=1:abort_on_error=1";
}
}
