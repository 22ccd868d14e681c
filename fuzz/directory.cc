#include "fuzz/directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace kv::fuzz {
namespace {

// The program asks the system for the place of its file, and finds its installation from there.
// This stands where the answer is looked up.
constexpr std::string_view installation_link = "proc";

[[noreturn]] void give_up(const std::string& what) {
  std::perror(what.c_str());
  std::_Exit(2);
}

std::string file_text(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat status;
  if (fd < 0 || ::fstat(fd, &status) != 0) give_up(path);
  std::string text(static_cast<std::size_t>(status.st_size), '\0');
  if (::read(fd, text.data(), text.size()) != status.st_size) give_up(path);
  ::close(fd);
  return text;
}

bool is_plain(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::string_view("._-+/ ").find(c) != std::string_view::npos;
}

}  // namespace

run_directory::run_directory() {
  const char* parent = std::getenv("TMPDIR");
  if (parent == nullptr) parent = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
  root_ = std::string(parent) + "/fuzz-XXXXXX";
  if (::mkdtemp(root_.data()) == nullptr) give_up(root_);
  root_ += '/';
  std::filesystem::create_directories(root_ + "proc/self");
  std::filesystem::create_symlink("/inst/bin/cpp", root_ + "proc/self/exe");
}

void run_directory::remove() const {
  std::filesystem::remove_all(root_);
}

bool run_directory::takes(std::string_view name) {
  constexpr std::size_t longest = 60;
  return !name.empty() && name.size() <= longest && name.front() != '/' && name.back() != '/' &&
         std::all_of(name.begin(), name.end(), is_plain) &&
         name.find("..") == std::string_view::npos && !name.starts_with(installation_link) &&
         !name.starts_with(temp);
}

void run_directory::fill(const std::vector<input_file>& files) const {
  ::mkdir((root_ + std::string(temp)).c_str(), 0777);
  for (const input_file& file : files) write_file(file);
}

void run_directory::write_file(const input_file& file) const {
  for (std::size_t at = file.name.find('/'); at != std::string::npos;
       at = file.name.find('/', at + 1)) {
    ::mkdir((root_ + file.name.substr(0, at)).c_str(), 0777);
  }
  const std::string path = root_ + file.name;
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0) return;
  const ssize_t written = ::write(fd, file.text.data(), file.text.size());
  if (written != static_cast<ssize_t>(file.text.size())) give_up(path);
  ::close(fd);
}

std::map<std::string, std::string> run_directory::take() const {
  std::map<std::string, std::string> files;
  take_from("", files);
  return files;
}

void run_directory::take_from(const std::string& name,
                              std::map<std::string, std::string>& files) const {
  DIR* const dir = ::opendir((root_ + name).c_str());
  if (dir == nullptr) give_up(root_ + name);
  while (const dirent* entry = ::readdir(dir)) {
    const std::string_view own = entry->d_name;
    if (own == "." || own == ".." || (name.empty() && own == installation_link)) continue;
    std::string inner = name + entry->d_name;
    if (entry->d_type == DT_DIR) {
      inner += '/';
      take_from(inner, files);
      ::rmdir((root_ + inner).c_str());
      files.try_emplace(inner);
    } else {
      files[inner] = file_text(root_ + inner);
      ::unlink((root_ + inner).c_str());
    }
  }
  ::closedir(dir);
}

}  // namespace kv::fuzz
