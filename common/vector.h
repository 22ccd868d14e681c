// The growable array of words that lists, stacks and number-indexed tables are made of.
//
// An element is a machine word: a pointer or a small integer. Several iterations over one vector
// may be in progress at a time, nested like a stack, and they stay right while elements are
// inserted and removed around them, because each keeps a position that insertion and removal
// adjust. The creator passes its place in the source; with the master list switched on, every
// vector created from then on has a statistics record that outlives it and can be reported.
//
// What may surprise: reading beyond the end gives 0, and storing beyond it grows the vector.

#pragma once

#include <cstdint>

namespace kv {

/// An element, key or value of a container: a pointer or an integer.
using word = std::uintptr_t;

/// A pointer as a word.
inline word to_word(const void* p) {
  return reinterpret_cast<word>(p);
}

/// A word as the pointer it holds: `from_word<const char>(w)`.
template <class T>
T* from_word(word w) {
  // The word was made of such a pointer. NOLINTNEXTLINE(performance-no-int-to-ptr)
  return reinterpret_cast<T*>(w);
}

/// The index that means "not found".
inline constexpr std::uint32_t vec_no_index = 0xFFFFFFFF;

struct vec_iterator;
struct vector_stats;

/// Made by `vec_create` only. Slots from `count` to `capacity` are always 0.
struct vector {
  std::uint32_t count;
  std::uint32_t capacity;   ///< allocated slots; 0 until the first store
  std::uint32_t chunk;      ///< first capacity to allocate
  vec_iterator* iterators;  ///< iterations in progress, innermost first
  word* data;
  vector_stats* stats;  ///< null unless the master list was on at creation
};

/// Compares two elements, given by address: negative, zero or positive.
using vec_compare = int (*)(const void* a, const void* b);

/// A new empty vector with chunk 10, owned by the caller; `file` must outlive the run. Every
/// operation that needs memory raises 296 (fatal) without it.
vector* vec_create(const char* file, unsigned line);

/// As `vec_create` with the given chunk, which must not be 0.
vector* vec_create_chunk(std::uint32_t chunk, const char* file, unsigned line);

/// A new vector with the same chunk, count, capacity and elements; null for null.
vector* vec_copy(const vector* v, const char* file, unsigned line);

/// Releases the vector and its iterations, not what its elements point to; null is ignored.
void vec_destroy(vector* v);

/// Appends x.
void vec_push(vector* v, word x);

/// Removes and returns the last element; 0 when empty.
word vec_pop(vector* v);

/// Element i; 0 when there is none.
inline word vec_get(const vector* v, std::uint32_t i) {
  return i < v->count ? v->data[i] : 0;
}

/// Element i as a pointer; null when there is none.
template <class T>
T* vec_get_ptr(const vector* v, std::uint32_t i) {
  return from_word<T>(vec_get(v, i));
}

/// Number of elements; 0 for null.
inline std::uint32_t vec_count(const vector* v) {
  return v ? v->count : 0;
}

/// The last element; 0 when empty.
inline word vec_last(const vector* v) {
  return v->count ? v->data[v->count - 1] : 0;
}

/// Stores x at index i; the vector grows to hold it, slots in between read 0.
void vec_set(vector* v, word x, std::uint32_t i);

/// Inserts x before index min(i, count) and returns the index used.
std::uint32_t vec_insert(vector* v, word x, std::uint32_t i);

/// Moves element `from` to index `to`, which must be below count, shifting those between. Nothing
/// happens when either is not below count. Iterations are not adjusted.
void vec_move(vector* v, std::uint32_t from, std::uint32_t to);

/// Removes element i: 1, or 0 when there is none.
int vec_remove_at(vector* v, std::uint32_t i);

/// Removes the first element equal to x: 1, or 0 when absent.
int vec_remove(vector* v, word x);

/// Index of the first element equal to x; `vec_no_index` when absent.
std::uint32_t vec_index(const vector* v, word x);

/// Removes all elements; the capacity stays.
void vec_clear(vector* v);

/// Makes room for at least n elements.
void vec_reserve(vector* v, std::uint32_t n);

/// Sorts the elements in place; equal ones keep their order.
void vec_sort(vector* v, vec_compare compare);

/// Begins an iteration at position 0; it becomes the innermost one.
void vec_iter_begin(vector* v);

/// 1 when the innermost iteration has an element left, else 0.
int vec_iter_more(const vector* v);

/// The innermost iteration's next element, which is passed over; 0 at the end.
word vec_iter_next(vector* v);

/// The innermost iteration's next element; 0 at the end.
word vec_iter_current(const vector* v);

/// Begins an iteration and returns the first element, passed over; 0 when the vector is empty.
word vec_iter_first(vector* v);

/// Ends the innermost iteration when `more` is 0. Returns `more`, so that it can stand as a loop's
/// condition.
int vec_iter_end(vector* v, int more);

/// Switches the master list on or off for vectors created later.
void vec_set_debug(bool on);

/// Writes the master-list report to the trace.
void vec_report();

}  // namespace kv
