// Results are put together in the scratch buffer and then interned: looked up in the cache table
// and copied only when they are new. Interning traces nothing that would need the scratch buffer
// again.

#include "common/stringcache.h"
#include "common/strbuild.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "common/alloc.h"
#include "common/hash.h"
#include "common/outfile.h"
#include "host/host.h"

namespace kv {
namespace {

constexpr std::size_t scratch_minimum = 4096;
constexpr std::size_t piece_limit = 1023;  // characters read at a time by read_long_line

std::uint32_t cache_size = 5077;
std::uint32_t cache_limit = 0;
std::uint32_t cached_count = 0;  // strings entered while a limit was set
hash_table* cache = nullptr;     // key and value are the same string; made at first use

char* scratch = nullptr;
std::size_t scratch_size = 0;

// Makes the scratch buffer at least `size` bytes large, keeping its first `keep` bytes.
char* scratch_room(std::size_t size, std::size_t keep = 0) {
  if (scratch_size < size) {
    const std::size_t new_size = std::max(2 * size, scratch_minimum);
    auto* const bigger = static_cast<char*>(checked_alloc(new_size));
    std::copy_n(scratch, keep, bigger);
    std::free(scratch);
    scratch = bigger;
    scratch_size = new_size;
  }
  return scratch;
}

// The interned copy of the zero-ended text s, in the scratch buffer or elsewhere.
const char* intern(const char* s) {
  if (cache_size == 0) return str_concat(s, "");
  if (cache == nullptr) {
    cache = hash_create(cache_size, str_hash, str_compare, __FILE__, __LINE__);
    hash_use_index(cache, str_spread);
  }
  if (const char* const found = hash_find_ptr<const char>(cache, to_word(s))) return found;
  const char* const copy = str_concat(s, "");
  if (cache_limit != 0) {
    if (cached_count > cache_limit) return copy;
    ++cached_count;
  }
  hash_insert(cache, to_word(copy), to_word(copy), __FILE__, __LINE__);
  return copy;
}

const char* intern_parts(std::string_view a, std::string_view b) {
  char* const text = scratch_room(a.size() + b.size() + 1);
  std::copy(a.begin(), a.end(), text);
  std::copy(b.begin(), b.end(), text + a.size());
  text[a.size() + b.size()] = '\0';
  return intern(text);
}

bool is_empty(const char* s) {
  return s == nullptr || *s == '\0';
}

[[noreturn]] void formatting_failed() {
  constexpr std::string_view complaint = "vsnprintf failed in a mysterious way\n";
  write_error_text(complaint);
  std::abort();
}

// Refills an exhausted reader; false at the end of the file.
bool fill(line_reader& in) {
  if (in.at_end) return false;
  const long got = host::read_block(in.fd, in.buffer, sizeof in.buffer);
  if (got < 0) in.error = errno;
  in.at_end = got <= 0;
  in.next = 0;
  in.end = in.at_end ? 0 : static_cast<std::size_t>(got);
  return !in.at_end;
}

// Appends the next piece of a line to the scratch buffer, which holds `length` characters; returns
// the new length.
std::size_t read_piece(line_reader& in, std::size_t length) {
  char* const text = scratch_room(length + piece_limit + 1, length);
  const std::size_t piece_end = length + piece_limit;
  while (length < piece_end && (in.next < in.end || fill(in))) {
    const char c = in.buffer[in.next++];
    if (c == '\0') continue;
    text[length++] = c;
    if (c == '\n') break;
  }
  return length;
}

}  // namespace

const char* str_intern(const char* s) {
  return s ? intern(s) : nullptr;
}

const char* str_intern(std::string_view s) {
  return intern_parts(s, {});
}

const char* str_vprintf(std::string_view text, std::span<const format_arg> args) {
  scratch_room(10 * text.size());
  std::size_t length = format_text(scratch, scratch_size, text, args);
  if (length >= scratch_size) {
    scratch_room(length + 1);
    length = format_text(scratch, scratch_size, text, args);
    if (length >= scratch_size) formatting_failed();
  }
  return intern(scratch);
}

const char* str_cat(const char* a, const char* b) {
  return intern_parts(a, b);
}

const char* str_cat_opt(const char* a, const char* b) {
  if (a == nullptr) return b;
  if (b == nullptr) return a;
  return str_cat(a, b);
}

const char* str_left(const char* s, std::size_t n) {
  if (s == nullptr) return nullptr;
  const void* const zero = std::memchr(s, '\0', n);
  return str_intern(
      std::string_view(s, zero ? static_cast<std::size_t>(static_cast<const char*>(zero) - s) : n));
}

const char* str_path_join(const char* dir, const char* name) {
  if (is_empty(dir)) return name;
  if (is_empty(name)) return dir;
  std::string_view head = dir;
  if (head.ends_with('\\')) head.remove_suffix(1);
  return str_printf("%s\\%s", head, *name == '\\' ? name + 1 : name);
}

bool str_ends_with(const char* s, const char* tail) {
  if (s == nullptr || tail == nullptr || !std::string_view(s).ends_with(tail)) return false;
  str_intern(tail);
  return true;
}

bool str_starts_with(const char* s, const char* head) {
  if (s == nullptr || head == nullptr || !std::string_view(s).starts_with(head)) return false;
  str_intern(s + std::strlen(head));
  return true;
}

bool str_starts_with_nocase(const char* s, const char* head) {
  if (s == nullptr || head == nullptr) return false;
  const std::string start(std::string_view(s).substr(0, std::strlen(head)));
  if (str_compare_nocase(to_word(start.c_str()), to_word(head)) != 0) return false;
  str_intern(s + start.size());
  return true;
}

vector* str_split(const char* s, const char* delims) {
  vector* const tokens = vec_create(__FILE__, __LINE__);
  if (s == nullptr) return tokens;
  const std::string_view text = s;
  const std::string_view separators = delims ? delims : "";
  std::size_t begin = text.find_first_not_of(separators);
  while (begin != std::string_view::npos) {
    const std::size_t end = std::min(text.find_first_of(separators, begin), text.size());
    vec_push(tokens, to_word(str_intern(text.substr(begin, end - begin))));
    begin = text.find_first_not_of(separators, end);
  }
  return tokens;
}

void str_cache_set_size(std::uint32_t buckets) {
  cache_size = buckets;
}

void str_cache_set_limit(std::uint32_t limit) {
  cache_limit = limit;
}

const char* read_long_line(line_reader& in) {
  std::size_t length = 0;
  std::size_t before;
  do {
    before = length;
    length = read_piece(in, length);
  } while (length - before == piece_limit && scratch[length - 1] != '\n' &&
           scratch[length - 1] != '\r');
  if (length == 0) return nullptr;
  scratch[length] = '\0';
  return intern(scratch);
}

}  // namespace kv
