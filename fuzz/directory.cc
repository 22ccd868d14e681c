#include "fuzz/directory.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace fs = std::filesystem;

namespace kv::fuzz {
namespace {

// The program asks the system for the place of its file, and finds its installation from there.
// This stands where the answer is looked up.
constexpr std::string_view installation_link = "proc";

[[noreturn]] void give_up(const std::string& what) {
  std::perror(what.c_str());
  std::_Exit(2);
}

std::string file_text(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) give_up(path);
  return {std::istreambuf_iterator<char>(file), {}};
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
  fs::create_directories(root_ + "proc/self");
  fs::create_symlink("/inst/bin/cpp", root_ + "proc/self/exe");
}

void run_directory::remove() const {
  fs::remove_all(root_);
}

bool run_directory::takes(std::string_view name) {
  constexpr std::size_t longest = 60;
  return !name.empty() && name.size() <= longest && name.front() != '/' && name.back() != '/' &&
         std::all_of(name.begin(), name.end(), is_plain) &&
         name.find("..") == std::string_view::npos && !name.starts_with(installation_link) &&
         !name.starts_with(temp);
}

void run_directory::fill(const std::vector<input_file>& files) const {
  fs::create_directory(root_ + std::string(temp));
  for (const input_file& file : files) {
    const fs::path path = root_ + file.name;
    std::error_code in_the_way;
    fs::create_directories(path.parent_path(), in_the_way);
    std::ofstream out(path, std::ios::binary);
    if (out && !(out << file.text << std::flush)) give_up(path);
  }
}

std::map<std::string, std::string> run_directory::take() const {
  std::map<std::string, std::string> files;
  for (const fs::path& path : fs::directory_iterator(root_)) {
    if (path.filename() == installation_link) continue;
    take_from(path, files);
    fs::remove_all(path);
  }
  return files;
}

void run_directory::take_from(const fs::path& path,
                              std::map<std::string, std::string>& files) const {
  const std::string name = path.string().substr(root_.size());
  if (!fs::is_directory(path)) {
    files[name] = file_text(path);
    return;
  }
  files.try_emplace(name + '/');
  for (const fs::path& inner : fs::directory_iterator(path)) take_from(inner, files);
}

}  // namespace kv::fuzz
