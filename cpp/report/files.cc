// There is one clock, read where the phase or the file changes, and what has passed since it was
// read last belongs to both that were. A line of text is in the phase `expansion` from the first
// unit of a call until the last frame above the file is gone.
#include "cpp/report/files.h"

#include <algorithm>
#include <unordered_map>

#include "common/text_table.h"
#include "cpp/diag.h"
#include "cpp/frames.h"
#include "cpp/headers.h"
#include "cpp/outbuf.h"
#include "cpp/report/observe.h"
#include "host/host.h"

namespace kv::cpp::observe {

namespace {

// A file being read, the innermost last.
struct open_inclusion {
  const source_file* source;
  int file;
  int node;  // among the inclusions, -1 beyond their limit
  std::uint64_t began_ns;
  std::uint64_t output_before;
};

struct bytes_of_file {
  std::uint64_t bytes = 0;
  std::uint64_t lines = 0;
};

struct file_watch {
  decltype(observed_run::files) files;
  decltype(observed_run::inclusions) inclusions;
  text_table<int> numbers;  // of files by their paths, plus one
  std::vector<open_inclusion> open;
  std::unordered_map<const source_file*, bytes_of_file> blocks;
  std::uint64_t bytes_read = 0;
  std::uint64_t last_output = 0;
  bool named_in_quotes = false;

  std::uint64_t last_ns = 0;
  std::uint64_t total_ns = 0;
  decltype(observed_run::phase_ns) phase_ns{};
  run_phase phase = run_phase::reading;  // the input is opened first
  run_phase of_line = run_phase::directives;
};

constexpr auto& w = the<file_watch>;

void tick() {
  file_watch& o = w();
  const std::uint64_t now = host::monotonic_ns();
  const std::uint64_t passed = now - o.last_ns;
  o.last_ns = now;
  o.phase_ns[static_cast<std::size_t>(o.phase)] += passed;
  o.total_ns += passed;
  if (o.open.empty()) return;
  const open_inclusion& innermost = o.open.back();
  o.files[innermost.file].self_ns += passed;
  if (innermost.node >= 0) o.inclusions[innermost.node].self_ns += passed;
}

// Counts what has been written since the last time to the file that is being read.
void count_output() {
  file_watch& o = w();
  const std::uint64_t now = outbuf::count();
  if (file_read() != nullptr) o.files[current_file()].self_output += now - o.last_output;
  o.last_output = now;
}

void enter_line(run_phase phase) {
  w().of_line = phase;
  if (w().phase != run_phase::expansion) change_phase(phase);
}

void note_place(observed_file& file, source_place at, bool spared) {
  auto place = std::find_if(file.places.begin(), file.places.end(), [&](const include_place& p) {
    return p.at.file == at.file && p.at.line == at.line;
  });
  if (place == file.places.end()) {
    if (file.places.size() == observed_limits::places) return;
    file.places.push_back({at, 0, 0});
    place = file.places.end() - 1;
  }
  ++(spared ? place->spared : place->reads);
}

// Notes that the file `number` is included at `at`, the input at no place.
int add_inclusion(int number, source_place at, bool spared) {
  file_watch& o = w();
  if (at.file >= 0) note_place(o.files[number], at, spared);
  const int parent = o.open.empty() ? -1 : o.open.back().node;
  return o.inclusions.add({.file = number, .parent = parent, .line = at.line, .spared = spared});
}

// The file `path`, about to be included.
int included_file(const char* path) {
  file_watch& o = w();
  int& number = o.numbers[path].record;
  if (number == 0) {
    number = o.files.add({}) + 1;
    o.files[number - 1].path = portable_path(path);
  }
  const observed_file* const includer = file_read();
  if (includer == nullptr || (includer->own && o.named_in_quotes && !is_installed_header(path))) {
    o.files[number - 1].own = true;
  }
  return number - 1;
}

void leave_file() {
  file_watch& o = w();
  tick();
  count_output();
  const open_inclusion ended = o.open.back();
  o.open.pop_back();
  observed_file& file = o.files[ended.file];
  const bytes_of_file read = o.blocks[ended.source];
  o.blocks.erase(ended.source);
  file.bytes += read.bytes;
  file.lines += read.lines;
  const std::uint64_t ns = o.last_ns - ended.began_ns;
  const std::uint64_t output = o.last_output - ended.output_before;
  if (--file.open == 0) {
    file.total_ns += ns;
    file.total_output += output;
  }
  if (ended.node < 0) return;
  inclusion& node = o.inclusions[ended.node];
  node.total_ns = ns;
  node.output = output;
}

// A header has an effect if it or anything that it includes has one. A header that was spared has
// that of the time when it was read, so that one pass may not do.
void find_effects() {
  file_watch& o = w();
  const bool all_known = o.inclusions.left_out == 0;
  for (observed_file& f : o.files.all) f.has_effect = f.has_text || f.macro_used || !all_known;
  for (bool changed = all_known; changed;) {
    changed = false;
    for (auto node = o.inclusions.all.rbegin(); node != o.inclusions.all.rend(); ++node) {
      if (node->parent < 0 || !o.files[node->file].has_effect) continue;
      bool& effect = o.files[o.inclusions[node->parent].file].has_effect;
      changed |= !effect;
      effect = true;
    }
  }
}

}  // namespace

void begin_files() {
  w().last_ns = host::monotonic_ns();
  w().last_output = outbuf::count();
}

void finish_files(observed_run& run) {
  file_watch& o = w();
  while (!o.open.empty()) leave_file();
  tick();
  find_effects();
  run.files = std::move(o.files);
  run.inclusions = std::move(o.inclusions);
  run.bytes_read = o.bytes_read;
  run.total_ns = o.total_ns;
  run.phase_ns = o.phase_ns;
}

void change_phase(run_phase phase) {
  if (w().phase == phase) return;
  tick();
  w().phase = phase;
}

run_phase line_phase() {
  return w().of_line;
}

int current_file() {
  return w().open.empty() ? -1 : w().open.back().file;
}

const observed_file* file_read() {
  return w().open.empty() ? nullptr : &w().files[current_file()];
}

source_place here() {
  return {current_file(), cur_line};
}

void credit_file(int number) {
  if (number >= 0) w().files[number].macro_used = true;
}

void file_pushed(const source_file* file, const char* path) {
  file_watch& o = w();
  tick();
  count_output();
  const input_frame* const includer = cur_frame->parent;
  const int number = included_file(path);
  const source_place at = {current_file(), includer != nullptr ? includer->saved_line : 0};
  const int node = add_inclusion(number, at, false);
  ++o.files[number].reads;
  ++o.files[number].open;
  o.open.push_back({file, number, node, o.last_ns, o.last_output});
}

void file_ended() {
  if (!w().open.empty()) leave_file();
}

void file_spared(const char* path) {
  const int number = included_file(path);
  ++w().files[number].spared;
  add_inclusion(number, here(), true);
}

void include_named(bool quoted) {
  w().named_in_quotes = quoted;
}

void block_read(const source_file* file, const unsigned char* bytes, std::size_t n) {
  bytes_of_file& read = w().blocks[file];
  read.bytes += n;
  read.lines += static_cast<std::uint64_t>(std::count(bytes, bytes + n, '\n'));
  w().bytes_read += n;
}

void text_line() {
  enter_line(run_phase::text);
  if (file_read() != nullptr) w().files[current_file()].has_text = true;
}

void directives() {
  enter_line(run_phase::directives);
}

run_phase timed::enter(run_phase phase) {
  const run_phase before = w().phase;
  if (observing) change_phase(phase);
  return before;
}

}  // namespace kv::cpp::observe
