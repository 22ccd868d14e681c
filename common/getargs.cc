// Reading and splitting of argument lines.
//
// Choices where the format leaves room: an empty word is never an argument, so runs of separators
// and blank lines do no harm; a carriage return at the end of a line belongs to the newline, so
// command files of either kind of host work.

#include "common/getargs.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "common/alert.h"
#include "common/alloc.h"
#include "common/stringcache.h"
#include "host/host.h"

namespace kv {

constinit char** arg_vec = nullptr;
constinit unsigned arg_count = 0;

namespace {

constexpr int standard_input = 0;
constexpr int standard_output = 1;
constexpr unsigned message_cannot_open = 141;
constexpr unsigned message_too_long = 917;
constexpr unsigned first_capacity = 1024;

// The room of arg_vec in entries; arg_count stays below it, as the terminating null needs a slot.
constinit unsigned arg_capacity = 0;

char** new_vector(unsigned entries) {
  return static_cast<char**>(checked_alloc(entries * sizeof(char*)));
}

void make_room() {
  if (arg_vec != nullptr && arg_count < arg_capacity - 1) return;
  const unsigned capacity = arg_vec == nullptr ? first_capacity : 2 * arg_capacity;
  char** const larger = new_vector(capacity);
  if (arg_vec != nullptr) {
    std::memcpy(larger, arg_vec, arg_count * sizeof(char*));
    std::free(arg_vec);
  }
  arg_vec = larger;
  arg_capacity = capacity;
}

// The word under construction and the two pieces of state that outlive it.
class word_splitter {
 public:
  // Appends the words of a line to the vector. False when one was too long.
  bool split(std::string_view line) {
    if (line.ends_with('\n')) line.remove_suffix(1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    for (const char c : line) {
      if (!take(c)) return false;
    }
    end_word();
    return true;
  }

 private:
  bool take(char c) {
    if (c == '\t') {
      end_word();
      return true;
    }
    if (c == '\\' && !escaped_) {
      escaped_ = true;
      return true;
    }
    const bool escaped = escaped_;
    escaped_ = false;
    if (!escaped && is_quote(c) && (quote_ == '\0' || quote_ == c)) {
      quote_ = quote_ == '\0' ? c : '\0';
      return true;
    }
    if (!escaped && c == ' ' && quote_ == '\0') {
      end_word();
      return true;
    }
    const bool protectable = is_quote(c) || c == ' ' || c == '\\';
    if (escaped && !protectable && !store('\\')) return false;
    return store(c);
  }

  static bool is_quote(char c) { return c == '\'' || c == '"'; }

  bool store(char c) {
    if (length_ == word_.size() - 1) {
      alert_msg(message_too_long);
      end_word();
      return false;
    }
    word_[length_++] = c;
    return true;
  }

  void end_word() {
    if (length_ == 0) return;
    word_[length_] = '\0';
    add_arg(word_.data());
    length_ = 0;
  }

  std::array<char, 2048> word_;
  std::size_t length_ = 0;
  char quote_ = '\0';
  bool escaped_ = false;
};

// Appends the words of `file`, open as `fd`, each line asked for with `prompt`.
void add_words_of(int fd, const char* file, std::string_view prompt) {
  line_reader lines(fd);
  word_splitter words;
  const char* line;
  do {
    host::write_all(standard_output, prompt.data(), prompt.size());
    line = read_long_line(lines);
  } while (line != nullptr && words.split(line));
  if (lines.error == 0) return;
  errno = lines.error;
  alert_msg_fatal(message_cannot_open, "command", file);
}

// Whether `arg` stands for the words of a file. A file that is really called so comes first.
bool names_command_file(const char* arg) {
  return arg[0] == '@' && arg[1] != 0 && !host::exists(arg) && host::exists(arg + 1);
}

void add_words_of_file(const char* path) {
  const int fd = host::open_input(path);
  if (fd < 0) alert_msg_fatal(message_cannot_open, "command", path);
  add_words_of(fd, path, {});
}

}  // namespace

void add_arg(const char* text) {
  make_room();
  const std::size_t size = std::strlen(text) + 1;
  arg_vec[arg_count] = static_cast<char*>(checked_alloc(size));
  std::memcpy(arg_vec[arg_count], text, size);
  arg_vec[++arg_count] = nullptr;
}

char** getargs(const char* progname, const char* file) {
  arg_count = 0;
  add_arg(progname);
  const std::string prompt =
      host::is_terminal(standard_input) ? std::string(progname) + "> " : std::string();
  add_words_of(standard_input, file, prompt);
  return arg_vec;
}

char** expand_command_files(int& argc, char** argv) {
  if (std::none_of(argv + 1, argv + argc, names_command_file)) return argv;
  // What is still to be looked at, the next one last; a file's words go where its name was.
  std::vector<char*> ahead(argv + 1, argv + argc);
  std::reverse(ahead.begin(), ahead.end());
  char* const progname = argv[0];
  arg_count = 0;
  add_arg(progname);
  unsigned files = 0;
  while (!ahead.empty()) {
    const char* const arg = ahead.back();
    ahead.pop_back();
    if (!names_command_file(arg)) {
      add_arg(arg);
      continue;
    }
    if (++files > command_file_limit) {
      errno = EMFILE;
      alert_msg_fatal(message_cannot_open, "command", arg + 1);
    }
    const unsigned first = arg_count;
    add_words_of_file(arg + 1);
    ahead.insert(ahead.end(), std::reverse_iterator(arg_vec + arg_count),
                 std::reverse_iterator(arg_vec + first));
    arg_count = first;
  }
  argc = static_cast<int>(arg_count);
  return arg_vec;
}

}  // namespace kv
