// Growth doubles, so pushing is cheap on average; the array is always zero beyond the elements, so
// storing far beyond the end needs no filling in.
//
// Iterator states come from a cache shared by all vectors: once it is warm, iterating allocates
// nothing. The statistics records are made only while the master list is on and are never released,
// since the report at exit wants the dead vectors too.

#include "common/vector.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>
#include <utility>
#include <vector>

#include "common/alloc.h"
#include "common/trace.h"

namespace kv {

struct vec_iterator {
  std::uint32_t position;  // of the next element
  vec_iterator* below;
};

struct vector_stats {
  const vector* owner;
  std::uint32_t flags;  // bit 0: alive
  const char* file;
  unsigned line;
  std::uint32_t capacity;
  std::uint32_t max_count;
};

namespace {

constexpr std::uint32_t default_chunk = 10;
constexpr std::uint32_t stats_alive = 1;

vec_iterator* free_iterators = nullptr;  // states at rest, for all vectors
vector* master_list = nullptr;           // of vector_stats, in creation order; made at first use
bool debug_on = false;                   // implies that master_list exists

// A vector lives until it is released; its memory must not be asked after that.
void check_alive(const vector* v, unsigned line) {
  if (db_asserts_on() && v == nullptr) db_assert("is_alive(v)", __FILE__, line);
}

// Whether an iteration is in progress; the callers' fault if not.
bool check_iterating(const vector* v, unsigned line) {
  check_alive(v, line);
  if (db_asserts_on() && v->iterators == nullptr) {
    db_assert("v->iterators != NULL", __FILE__, line);
  }
  return v->iterators != nullptr;
}

vector_stats* register_stats(const vector* v, const char* file, unsigned line) {
  if (!debug_on) return nullptr;
  auto* const stats = static_cast<vector_stats*>(checked_alloc(sizeof(vector_stats)));
  *stats = {v, stats_alive, file, line, v->capacity, v->count};
  vec_push(master_list, to_word(stats));
  return stats;
}

void set_count(vector* v, std::uint32_t count) {
  v->count = count;
  if (v->stats) v->stats->max_count = std::max(v->stats->max_count, count);
}

word* alloc_slots(std::uint64_t slots) {
  // A capacity has 32 bits; on a small host the address space is the narrower limit.
  constexpr std::uint64_t most =
      std::min<std::uint64_t>(std::numeric_limits<std::uint32_t>::max(),
                              std::numeric_limits<std::size_t>::max() / sizeof(word));
  if (slots > most) alloc_failed();
  return static_cast<word*>(checked_alloc(static_cast<std::size_t>(slots) * sizeof(word)));
}

void grow(vector* v, std::uint32_t needed_index) {
  if (needed_index < v->capacity) return;
  std::uint64_t capacity = v->data ? std::uint64_t{v->capacity} * 2 : v->chunk;
  while (capacity <= needed_index) capacity *= 2;
  word* const data = alloc_slots(capacity);
  std::copy_n(v->data, v->count, data);
  std::free(v->data);
  v->data = data;
  v->capacity = static_cast<std::uint32_t>(capacity);
  if (v->stats) v->stats->capacity = v->capacity;
}

void push_iterator(vector* v) {
  vec_iterator* state = free_iterators;
  if (state != nullptr) {
    free_iterators = state->below;
  } else {
    state = static_cast<vec_iterator*>(checked_alloc(sizeof(vec_iterator)));
  }
  *state = {0, v->iterators};
  v->iterators = state;
}

void pop_iterator(vector* v) {
  vec_iterator* const state = v->iterators;
  v->iterators = state->below;
  state->below = free_iterators;
  free_iterators = state;
}

}  // namespace

vector* vec_create(const char* file, unsigned line) {
  return vec_create_chunk(default_chunk, file, line);
}

vector* vec_create_chunk(std::uint32_t chunk, const char* file, unsigned line) {
  if (db_asserts_on() && !(chunk != 0)) db_assert("chunk != 0", __FILE__, __LINE__);
  auto* const v = static_cast<vector*>(checked_alloc(sizeof(vector)));
  v->chunk = std::max<std::uint32_t>(chunk, 1);  // with 0, doubling would never end
  v->stats = register_stats(v, file, line);
  return v;
}

vector* vec_copy(const vector* v, const char* file, unsigned line) {
  if (v == nullptr) return nullptr;
  check_alive(v, __LINE__);
  auto* const copy = static_cast<vector*>(checked_alloc(sizeof(vector)));
  copy->chunk = v->chunk;
  copy->count = v->count;
  if (v->data) {
    copy->data = alloc_slots(v->capacity);
    copy->capacity = v->capacity;
    std::copy_n(v->data, v->count, copy->data);
  }
  copy->stats = register_stats(copy, file, line);
  return copy;
}

void vec_destroy(vector* v) {
  if (v == nullptr) return;
  check_alive(v, __LINE__);
  while (v->iterators) pop_iterator(v);
  if (v->stats) v->stats->flags &= ~stats_alive;
  std::free(v->data);
  std::free(v);
}

void vec_push(vector* v, word x) {
  check_alive(v, __LINE__);
  vec_set(v, x, v->count);
}

word vec_pop(vector* v) {
  check_alive(v, __LINE__);
  if (v->count == 0) return 0;
  return std::exchange(v->data[--v->count], 0);
}

void vec_set(vector* v, word x, std::uint32_t i) {
  check_alive(v, __LINE__);
  grow(v, i);
  v->data[i] = x;
  if (i >= v->count) set_count(v, i + 1);
}

std::uint32_t vec_insert(vector* v, word x, std::uint32_t i) {
  check_alive(v, __LINE__);
  i = std::min(i, v->count);
  grow(v, v->count);
  std::copy_backward(v->data + i, v->data + v->count, v->data + v->count + 1);
  v->data[i] = x;
  set_count(v, v->count + 1);
  for (vec_iterator* it = v->iterators; it; it = it->below) {
    if (it->position >= i) ++it->position;
  }
  return i;
}

void vec_move(vector* v, std::uint32_t from, std::uint32_t to) {
  check_alive(v, __LINE__);
  if (from >= v->count) return;
  if (db_asserts_on() && !(to < v->count)) db_assert("to < v->count", __FILE__, __LINE__);
  if (to >= v->count) return;
  word* const data = v->data;
  if (from < to) {
    std::rotate(data + from, data + from + 1, data + to + 1);
  } else {
    std::rotate(data + to, data + from, data + from + 1);
  }
}

int vec_remove_at(vector* v, std::uint32_t i) {
  check_alive(v, __LINE__);
  if (i >= v->count) return 0;
  std::copy(v->data + i + 1, v->data + v->count, v->data + i);
  v->data[--v->count] = 0;
  for (vec_iterator* it = v->iterators; it; it = it->below) {
    if (it->position > i) --it->position;
  }
  return 1;
}

int vec_remove(vector* v, word x) {
  const std::uint32_t i = vec_index(v, x);
  return i == vec_no_index ? 0 : vec_remove_at(v, i);
}

std::uint32_t vec_index(const vector* v, word x) {
  check_alive(v, __LINE__);
  word* const end = v->data + v->count;
  word* const found = std::find(v->data, end, x);
  return found == end ? vec_no_index : static_cast<std::uint32_t>(found - v->data);
}

void vec_clear(vector* v) {
  check_alive(v, __LINE__);
  std::fill_n(v->data, v->count, 0);
  v->count = 0;
}

void vec_reserve(vector* v, std::uint32_t n) {
  check_alive(v, __LINE__);
  if (n != 0) grow(v, n - 1);
}

void vec_sort(vector* v, vec_compare compare) {
  check_alive(v, __LINE__);
  if (db_asserts_on() && !(compare != nullptr)) db_assert("compare != NULL", __FILE__, __LINE__);
  if (compare == nullptr) return;
  // A stable sort gives the same order on every host, which the hosts' own routines do not.
  std::stable_sort(v->data, v->data + v->count,
                   [compare](const word& a, const word& b) { return compare(&a, &b) < 0; });
}

void vec_iter_begin(vector* v) {
  check_alive(v, __LINE__);
  push_iterator(v);
}

int vec_iter_more(const vector* v) {
  return check_iterating(v, __LINE__) && v->iterators->position < v->count ? 1 : 0;
}

word vec_iter_next(vector* v) {
  if (!check_iterating(v, __LINE__)) return 0;
  std::uint32_t& position = v->iterators->position;
  return position < v->count ? v->data[position++] : 0;
}

word vec_iter_current(const vector* v) {
  return check_iterating(v, __LINE__) ? vec_get(v, v->iterators->position) : 0;
}

word vec_iter_first(vector* v) {
  vec_iter_begin(v);
  return vec_iter_next(v);
}

int vec_iter_end(vector* v, int more) {
  if (more == 0 && check_iterating(v, __LINE__)) pop_iterator(v);
  return more;
}

void vec_set_debug(bool on) {
  // Made before the switch is set, so that the list does not list itself.
  if (on && master_list == nullptr) master_list = vec_create(__FILE__, __LINE__);
  debug_on = on;
}

// ---------------------------------------------------------------------------------------------
// The report.

namespace {

struct tally {
  std::uintmax_t vectors = 0;
  std::uintmax_t capacity = 0;

  void add(const vector_stats& stats) {
    ++vectors;
    capacity += stats.capacity;
  }
};

// The vectors created at one place.
struct place {
  std::string_view file;
  unsigned line;
  tally living;
  tally dead;

  void add(const vector_stats& stats) {
    ((stats.flags & stats_alive) != 0 ? living : dead).add(stats);
  }
};

void report_living() {
  db_puts("# Living Vector Master List:");
  db_puts("# ptr    file:line    max_count/capacity    alive");
  for (std::uint32_t i = 0; i < vec_count(master_list); ++i) {
    const auto& stats = *vec_get_ptr<vector_stats>(master_list, i);
    if ((stats.flags & stats_alive) == 0) continue;
    db_printf("# %p    %s:%d    %u/%u    %c", static_cast<const void*>(stats.owner), stats.file,
              stats.line, stats.max_count, stats.capacity, 'Y');
  }
}

std::vector<place> tally_places() {
  std::vector<place> places;
  for (std::uint32_t i = 0; i < vec_count(master_list); ++i) {
    const auto& stats = *vec_get_ptr<vector_stats>(master_list, i);
    auto found = std::find_if(places.begin(), places.end(), [&](const place& p) {
      return p.line == stats.line && p.file == stats.file;
    });
    if (found == places.end()) found = places.insert(found, {stats.file, stats.line, {}, {}});
    found->add(stats);
  }
  return places;
}

void report_place(const place& p) {
  db_printf("# %35s:%-5d                        %ju/%ju    %ju/%ju    %ju/%ju", p.file, p.line,
            p.living.vectors, p.living.capacity, p.dead.vectors, p.dead.capacity,
            p.living.vectors + p.dead.vectors, p.living.capacity + p.dead.capacity);
}

}  // namespace

void vec_report() {
  if (!db_is_open()) return;
  report_living();
  db_puts("# Vector Master List Summary:");
  db_puts(
      "#                                                                  Living              Dead "
      "               Total");
  db_puts(
      "#                                file:line                         vectors/capacity    "
      "vectors/capacity    vectors/capacity");
  const std::vector<place> places = tally_places();
  std::for_each(places.rbegin(), places.rend(), report_place);
  place total = {"Total Summary", 0, {}, {}};
  for (std::uint32_t i = 0; i < vec_count(master_list); ++i) {
    total.add(*vec_get_ptr<vector_stats>(master_list, i));
  }
  report_place(total);
}

}  // namespace kv
