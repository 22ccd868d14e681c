// The chained hash table used wherever something is looked up by a word or a string.
//
// Keys and values are words; each table is given its hash and comparison functions, and without
// them it keys by the word itself, so two equal strings at different addresses are two keys. Keys
// are not copied: the caller keeps them alive. The number of buckets is fixed at creation, so the
// creator chooses it for the load expected; a table that may get far more than that, or whose hash
// is weak, is given an index that grows, and keeps its order. Nodes are recycled through one list
// shared by all tables and never released. With the master list switched on, every table created
// from then on has a statistics record that outlives it and can be reported.

#pragma once

#include <cstdint>

#include "common/vector.h"

namespace kv {

struct hash_node;
struct hash_index;
struct hash_stats;

using hash_fn = std::uint32_t (*)(word key);
/// Returns 0 when the keys are equal. Equal keys of different buckets are not recognised.
using hash_compare = int (*)(word a, word b);
/// Returns non-zero to end the visit.
using hash_visitor = int (*)(void* context, word key, word value);

/// Made by `hash_create` only.
struct hash_table {
  std::uint32_t size;   ///< buckets, fixed, never 0
  std::uint32_t count;  ///< entries
  hash_fn hash;
  hash_compare compare;
  hash_node** buckets;  ///< heads of the chains
  hash_index* index;    ///< null unless the table was given one
  hash_stats* stats;    ///< null unless the master list was on at creation
};

/// A new empty table of `size` buckets, which must not be 0, owned by the caller. A null `hash` or
/// `compare` stands for the key word itself; `file` must outlive the run. Every operation that
/// needs memory raises 296 (fatal) without it.
hash_table* hash_create(std::uint32_t size, hash_fn hash, hash_compare compare, const char* file,
                        unsigned line);

/// Gives an empty table an index for when it is no longer small, so that its operations, the
/// removal of one entry apart, cost the same however long the chains get. `spread` is equal for
/// equal keys, as the table's own hash must be then, and differs for nearly all others. Order and
/// statistics are those of the chains.
void hash_use_index(hash_table* table, hash_fn spread);

/// text_hash of a key that is a string, for hash_use_index.
std::uint32_t str_spread(word key);

/// Adds an entry: 1, or 0 when an equal key is present (nothing changes).
int hash_insert(hash_table* table, word key, word value, const char* file, unsigned line);

/// The value stored with an equal key; 0 without one.
word hash_find(const hash_table* table, word key);

/// `hash_find` for pointers: the value as a T*, null without an equal key.
template <class T>
T* hash_find_ptr(const hash_table* table, word key) {
  return from_word<T>(hash_find(table, key));
}

/// 1 when an equal key is present, else 0.
int hash_contains(const hash_table* table, word key);

/// Removes the entry of an equal key and returns its value; 0 without one.
word hash_remove(hash_table* table, word key);

/// Calls fn for each entry, buckets in order and each chain in order of insertion, until it
/// returns non-zero; returns that result or 0. fn may remove the entry it is called with.
int hash_visit(const hash_table* table, void* context, hash_visitor fn);

/// Removes every entry.
void hash_clear(hash_table* table);

/// Removes every entry and releases the table; null is ignored.
void hash_destroy(hash_table* table);

/// A new vector of the keys, or of the values, in visiting order; it belongs to the caller.
vector* hash_keys(const hash_table* table);
vector* hash_values(const hash_table* table);

/// Switches the master list on or off for tables created later.
void hash_set_debug(bool on);

/// Writes the master-list report to the trace.
void hash_report();

/// D. J. Bernstein's times-33 string hash from 5381, over signed characters.
std::uint32_t str_hash(const char* s);
std::uint32_t str_hash(word key);

/// The same over the lower-case form of each byte.
std::uint32_t str_hash_nocase(const char* s);
std::uint32_t str_hash_nocase(word key);

/// Byte order of two strings, negative, zero or positive; with and without regard to ASCII case.
int str_compare(word a, word b);
int str_compare_nocase(word a, word b);

}  // namespace kv
