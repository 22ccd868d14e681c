// Chains are singly linked and new entries go to their ends, so a visit meets the entries of a
// bucket in order of insertion. Every operation that looks for a key walks links rather than nodes,
// which makes appending and unlinking one assignment.
//
// The order of the chains is output, and their number is fixed, so a table with an index has two
// sets of chains over the same nodes: the buckets for the order, with their ends at hand, and the
// slots of the index, which double, for the search.

#include "common/hash.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "common/alloc.h"
#include "common/text_hash.h"
#include "common/trace.h"

namespace kv {

struct hash_node {
  word value;
  word key;
  hash_node* next;
  hash_node* next_in_slot;  // in a table with an index
  std::uint32_t spread;     // the same
};

struct hash_index {
  hash_fn spread;
  std::uint32_t slot_count;  // a power of two, at least the number of entries
  hash_node** slots;         // null while the table is small; then there are no `ends` either
  struct bucket_end {
    hash_node** link;      // the last link of the chain
    std::uint32_t length;  // of the chain
  };
  bucket_end* ends;  // by bucket
};

struct hash_stats {
  const hash_table* table;
  std::uint32_t flags;
  const char* file;
  unsigned line;
  std::uint32_t capacity;
  std::uint32_t max_usage;  // highest entry count
  std::uint32_t max_util;   // highest number of occupied buckets
  std::uint32_t util;       // buckets occupied now
  std::uint32_t clashes;    // chain nodes passed over by insertions
};

namespace {

constexpr std::uint32_t first_slot_count = 64;  // also the entries that do without an index

enum stats_flag : std::uint32_t {
  stats_alive = 1,
  stats_default_compare = 2,
  stats_default_hash = 4,
};

hash_node* free_nodes = nullptr;  // nodes at rest, for all tables
vector* master_list = nullptr;    // of hash_stats, in creation order; made at first use
bool debug_on = false;            // implies that master_list exists

std::uint32_t default_hash(word key) {
  return static_cast<std::uint32_t>(key);
}

int default_compare(word a, word b) {
  return a == b ? 0 : 1;
}

// A table lives until it is released; its memory must not be asked after that.
void check_alive(const hash_table* h, const char* file, unsigned line) {
  if (db_asserts_on() && h == nullptr) db_assert("is_alive(h)", file, line);
}

void register_stats(hash_table* h, const char* file, unsigned line) {
  if (!debug_on) return;
  auto* const stats = static_cast<hash_stats*>(checked_alloc(sizeof(hash_stats)));
  stats->table = h;
  stats->flags = stats_alive | (h->compare == default_compare ? stats_default_compare : 0u) |
                 (h->hash == default_hash ? stats_default_hash : 0u);
  stats->file = file;
  stats->line = line;
  stats->capacity = h->size;
  vec_push(master_list, to_word(stats));
  h->stats = stats;
}

hash_node* new_node(word key, word value) {
  hash_node* node = free_nodes;
  if (node != nullptr) {
    free_nodes = node->next;
  } else {
    constexpr std::size_t slab = 32;
    node = static_cast<hash_node*>(checked_alloc(slab * sizeof(hash_node)));
    for (std::size_t i = 1; i < slab; ++i) node[i].next = i + 1 < slab ? &node[i + 1] : nullptr;
    free_nodes = node + 1;
  }
  *node = {value, key, nullptr, nullptr, 0};
  return node;
}

// Unlinks the node that `link` points to and puts it on the free list.
void drop_node(hash_node** link) {
  hash_node* const node = *link;
  *link = node->next;
  node->next = free_nodes;
  free_nodes = node;
}

std::uint32_t bucket_of(const hash_table* h, word key) {
  return h->hash(key) % h->size;
}

// The link to the first node of a bucket's chain whose key is equal, else the chain's last link.
// Counts the nodes passed over.
hash_node** find_link(const hash_table* h, std::uint32_t bucket, word key, std::uint32_t& passed) {
  hash_node** link = &h->buckets[bucket];
  for (passed = 0; *link != nullptr; ++passed, link = &(*link)->next) {
    if (h->compare(key, (*link)->key) == 0) break;
  }
  return link;
}

bool is_indexed(const hash_table* h) {
  return h->index != nullptr && h->index->slots != nullptr;
}

hash_node** slot_of(const hash_index* index, std::uint32_t spread) {
  return &index->slots[spread & (index->slot_count - 1)];
}

// The link in the index to the node with an equal key, else a slot's last link.
hash_node** find_in_index(const hash_table* h, word key, std::uint32_t spread) {
  hash_node** link = slot_of(h->index, spread);
  while (*link != nullptr && ((*link)->spread != spread || h->compare(key, (*link)->key) != 0))
    link = &(*link)->next_in_slot;
  return link;
}

const hash_node* find_node(const hash_table* h, word key) {
  if (is_indexed(h)) return *find_in_index(h, key, h->index->spread(key));
  std::uint32_t passed;
  return *find_link(h, bucket_of(h, key), key, passed);
}

void put_into_slot(hash_index* index, hash_node* node) {
  hash_node** const slot = slot_of(index, node->spread);
  node->next_in_slot = *slot;
  *slot = node;
}

void allocate_slots(hash_index* index, std::uint32_t count) {
  index->slot_count = count;
  index->slots = static_cast<hash_node**>(checked_alloc(std::size_t{count} * sizeof(void*)));
}

// Enters the nodes of all chains into the index.
void build_index(hash_table* h) {
  hash_index* const index = h->index;
  allocate_slots(index, first_slot_count);
  index->ends = static_cast<hash_index::bucket_end*>(
      checked_alloc(std::size_t{h->size} * sizeof(hash_index::bucket_end)));
  for (std::uint32_t i = 0; i < h->size; ++i) {
    hash_index::bucket_end& end = index->ends[i];
    for (end.link = &h->buckets[i]; *end.link != nullptr; end.link = &(*end.link)->next) {
      (*end.link)->spread = index->spread((*end.link)->key);
      put_into_slot(index, *end.link);
      ++end.length;
    }
  }
}

void double_index(hash_index* index) {
  const std::uint32_t old_count = index->slot_count;
  hash_node** const old = index->slots;
  allocate_slots(index, 2 * old_count);
  for (std::uint32_t i = 0; i < old_count; ++i) {
    for (hash_node *node = old[i], *next; node != nullptr; node = next) {
      next = node->next_in_slot;
      put_into_slot(index, node);
    }
  }
  std::free(old);
}

void release_slots(hash_index* index) {
  std::free(std::exchange(index->slots, nullptr));
  std::free(std::exchange(index->ends, nullptr));
}

// The insertion into a table with an index. Null when an equal key is present; `passed` as in
// find_link.
hash_node* insert_indexed(hash_table* h, word key, word value, std::uint32_t& passed) {
  const std::uint32_t spread = h->index->spread(key);
  if (*find_in_index(h, key, spread) != nullptr) return nullptr;
  if (h->count == h->index->slot_count) double_index(h->index);
  hash_index::bucket_end& end = h->index->ends[bucket_of(h, key)];
  hash_node* const node = new_node(key, value);
  node->spread = spread;
  put_into_slot(h->index, node);
  *end.link = node;
  end.link = &node->next;
  passed = end.length++;
  return node;
}

// Takes the node that `link` points to out of the index, which its bucket's chain still has.
void remove_from_index(hash_table* h, std::uint32_t bucket, hash_node** link) {
  hash_node* const node = *link;
  *find_in_index(h, node->key, node->spread) = node->next_in_slot;
  hash_index::bucket_end& end = h->index->ends[bucket];
  if (end.link == &node->next) end.link = link;
  --end.length;
}

void count_insertion(const hash_table* h, word key, word value, std::uint32_t passed) {
  hash_stats& stats = *h->stats;
  if (passed != 0) {
    stats.clashes += passed;
    db_printf("HASH @ %s:%d (%u/%u) clashed %d times inserting (%p,%p)", stats.file, stats.line,
              h->count, h->size, passed, key, value);
  } else {
    ++stats.util;
    stats.max_util = std::max(stats.max_util, stats.util);
  }
  stats.max_usage = std::max(stats.max_usage, h->count);
}

int push_key(void* list, word key, word) {
  vec_push(static_cast<vector*>(list), key);
  return 0;
}

int push_value(void* list, word, word value) {
  vec_push(static_cast<vector*>(list), value);
  return 0;
}

unsigned char lower(unsigned char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<unsigned char>(c - 'A' + 'a') : c;
}

std::uint32_t hash_step(std::uint32_t h, unsigned char c) {
  return h * 33 + static_cast<std::uint32_t>(static_cast<signed char>(c));
}

}  // namespace

hash_table* hash_create(std::uint32_t size, hash_fn hash, hash_compare compare, const char* file,
                        unsigned line) {
  if (db_asserts_on() && !(size != 0)) db_assert("size != 0", __FILE__, __LINE__);
  auto* const h = static_cast<hash_table*>(checked_alloc(sizeof(hash_table)));
  h->size = std::max<std::uint32_t>(size, 1);  // a key's bucket is found modulo size
  h->hash = hash ? hash : default_hash;
  h->compare = compare ? compare : default_compare;
  h->buckets = static_cast<hash_node**>(checked_alloc(std::size_t{h->size} * sizeof(void*)));
  register_stats(h, file, line);
  return h;
}

void hash_use_index(hash_table* table, hash_fn spread) {
  check_alive(table, __FILE__, __LINE__);
  auto* const index = static_cast<hash_index*>(checked_alloc(sizeof(hash_index)));
  index->spread = spread;
  table->index = index;
}

std::uint32_t str_spread(word key) {
  return text_hash(from_word<const char>(key));
}

int hash_insert(hash_table* table, word key, word value, const char* file, unsigned line) {
  check_alive(table, file, line);
  std::uint32_t passed;
  if (table->index != nullptr && !is_indexed(table) && table->count == first_slot_count)
    build_index(table);
  if (is_indexed(table)) {
    if (insert_indexed(table, key, value, passed) == nullptr) return 0;
  } else {
    hash_node** const link = find_link(table, bucket_of(table, key), key, passed);
    if (*link) return 0;
    *link = new_node(key, value);
  }
  ++table->count;
  if (table->stats) count_insertion(table, key, value, passed);
  return 1;
}

word hash_find(const hash_table* table, word key) {
  check_alive(table, __FILE__, __LINE__);
  const hash_node* const node = find_node(table, key);
  return node ? node->value : 0;
}

int hash_contains(const hash_table* table, word key) {
  check_alive(table, __FILE__, __LINE__);
  return find_node(table, key) ? 1 : 0;
}

word hash_remove(hash_table* table, word key) {
  check_alive(table, __FILE__, __LINE__);
  const std::uint32_t bucket = bucket_of(table, key);
  std::uint32_t passed;
  hash_node** const link = find_link(table, bucket, key, passed);
  if (!*link) return 0;
  const word value = (*link)->value;
  if (is_indexed(table)) remove_from_index(table, bucket, link);
  drop_node(link);
  --table->count;
  if (table->stats && !table->buckets[bucket]) --table->stats->util;
  return value;
}

int hash_visit(const hash_table* table, void* context, hash_visitor fn) {
  check_alive(table, __FILE__, __LINE__);
  for (std::uint32_t i = 0; i < table->size; ++i) {
    for (const hash_node *node = table->buckets[i], *next; node; node = next) {
      next = node->next;  // fn may remove this entry
      if (const int result = fn(context, node->key, node->value)) return result;
    }
  }
  return 0;
}

void hash_clear(hash_table* table) {
  check_alive(table, __FILE__, __LINE__);
  for (std::uint32_t i = 0; i < table->size; ++i) {
    while (table->buckets[i]) drop_node(&table->buckets[i]);
  }
  table->count = 0;
  if (table->index != nullptr) release_slots(table->index);
  if (table->stats) table->stats->util = 0;
}

void hash_destroy(hash_table* table) {
  if (table == nullptr) return;
  hash_clear(table);
  if (table->stats) table->stats->flags &= ~std::uint32_t{stats_alive};
  std::free(table->index);
  std::free(table->buckets);
  std::free(table);
}

vector* hash_keys(const hash_table* table) {
  vector* const keys = vec_create(__FILE__, __LINE__);
  hash_visit(table, keys, push_key);
  return keys;
}

vector* hash_values(const hash_table* table) {
  vector* const values = vec_create(__FILE__, __LINE__);
  hash_visit(table, values, push_value);
  return values;
}

void hash_set_debug(bool on) {
  if (on && master_list == nullptr) master_list = vec_create(__FILE__, __LINE__);
  debug_on = on;
}

void hash_report() {
  if (!db_is_open()) return;
  db_puts("# Hash Table Master List:");
  db_puts(
      "# ptr    file:line    max_util/capacity    max_usage/capacity    clashes    voidcmp    "
      "voidhash    alive");
  if (vec_count(master_list) == 0) return db_puts("# No hash tables were used");
  std::vector<const hash_stats*> sorted;
  for (std::uint32_t i = 0; i < vec_count(master_list); ++i) {
    sorted.push_back(vec_get_ptr<const hash_stats>(master_list, i));
  }
  std::stable_sort(sorted.begin(), sorted.end(), [](const hash_stats* a, const hash_stats* b) {
    return a->clashes > b->clashes;
  });
  const auto mark = [](const hash_stats* s, stats_flag f) { return (s->flags & f) ? 'Y' : 'n'; };
  for (const hash_stats* s : sorted) {
    db_printf("# %p    %s:%d    %u/%u    %u/%u    %u    %c    %c    %c",
              static_cast<const void*>(s->table), s->file, s->line, s->max_util, s->capacity,
              s->max_usage, s->capacity, s->clashes, mark(s, stats_default_compare),
              mark(s, stats_default_hash), mark(s, stats_alive));
  }
}

std::uint32_t str_hash(const char* s) {
  std::uint32_t h = 5381;
  for (; *s; ++s) h = hash_step(h, static_cast<unsigned char>(*s));
  return h;
}

std::uint32_t str_hash(word key) {
  return str_hash(from_word<const char>(key));
}

std::uint32_t str_hash_nocase(const char* s) {
  std::uint32_t h = 5381;
  for (; *s; ++s) h = hash_step(h, lower(static_cast<unsigned char>(*s)));
  return h;
}

std::uint32_t str_hash_nocase(word key) {
  return str_hash_nocase(from_word<const char>(key));
}

int str_compare(word a, word b) {
  return std::strcmp(from_word<const char>(a), from_word<const char>(b));
}

int str_compare_nocase(word a, word b) {
  const auto* s = from_word<const unsigned char>(a);
  const auto* t = from_word<const unsigned char>(b);
  while (*s && lower(*s) == lower(*t)) {
    ++s;
    ++t;
  }
  return lower(*s) - lower(*t);
}

}  // namespace kv
