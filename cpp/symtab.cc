// A record is in two structures at once: its chain, whose order is output, and the index, which is
// searched.
#include "cpp/symtab.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>
#include <set>
#include <utility>
#include <vector>

#include "common/alloc.h"
#include "common/str16.h"
#include "common/text_hash.h"
#include "cpp/lanes.h"
#include "cpp/report/observe.h"

namespace kv::cpp {

// A body that was replaced while it was being read, freed with the last frame that may read it.
struct retired_body {
  retired_body* next;
  unit* text;
};

struct table_changes {
  template <class Unit>
  static void entered(const Unit* name, std::size_t len) {
    ++names_entered.value_;
    const std::size_t shape = len == 0 ? 0 : name_shapes::shape_of(name, len);
    name_shapes::bits_[shape / 64] |= std::uint64_t{1} << (shape % 64);
  }
  static void removed() { ++names_removed.value_; }
};

namespace {

// The index: linear probing over a power of two slots, at most half of them in use, so a search for
// a name that is no macro (nearly all of them) ends at once at an empty slot. Keys begin with a
// seed of the run, so that no source can be written whose names crowd together.
struct index_slot {
  std::uint64_t key;
  symbol* sym;  // null: empty
};
struct {
  index_slot* slots;
  std::size_t mask;
  std::size_t used;
  std::uint64_t seed;  // set before the first key is made
} sym_index;

constexpr std::size_t first_index_size = 1024;

// A multiplication carries what differs upwards only; the shift brings it back down to the bits
// that choose the slot, and names that differ in their last digits need it twice.
std::uint64_t mix(std::uint64_t h, std::uint64_t v) {
  h = (h ^ v) * 0x9E3779B97F4A7C15U;
  h ^= h >> 32;
  h *= 0xD6E8FEB86659FD93U;
  return h ^ (h >> 32);
}

static_assert(std::endian::native == std::endian::little, "name_key masks the bytes of a word");

std::uint64_t load_word(const unsigned char* p) {
  std::uint64_t v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

std::size_t find_slot(std::uint64_t key, const symbol* sym) {
  std::size_t i = key & sym_index.mask;
  while (sym_index.slots[i].sym != sym) i = (i + 1) & sym_index.mask;
  return i;
}

void index_store(symbol* sym) {
  const std::size_t i = find_slot(sym->key, nullptr);
  sym_index.slots[i] = {sym->key, sym};
}

void index_grow() {
  const index_slot* old = sym_index.slots;
  const std::size_t old_size = old == nullptr ? 0 : sym_index.mask + 1;
  const std::size_t size = old == nullptr ? first_index_size : old_size * 2;
  if (old == nullptr) sym_index.seed = run_seed();
  sym_index.slots = static_cast<index_slot*>(checked_alloc(size * sizeof(index_slot)));
  sym_index.mask = size - 1;
  for (std::size_t i = 0; i < old_size; ++i) {
    if (old[i].sym != nullptr) index_store(old[i].sym);
  }
  std::free(const_cast<index_slot*>(old));
}

void index_insert(symbol* sym) {
  if (sym_index.used * 2 > sym_index.mask) index_grow();
  index_store(sym);
  ++sym_index.used;
}

// Deletion by backward shift (Knuth, Algorithm 6.4R): later entries of the run move up into the
// hole unless that would put them before their own slot.
void index_remove(const symbol* sym) {
  std::size_t hole = find_slot(sym->key, sym);
  for (std::size_t i = hole;;) {
    i = (i + 1) & sym_index.mask;
    if (sym_index.slots[i].sym == nullptr) break;
    const std::size_t home = sym_index.slots[i].key & sym_index.mask;
    if (((i - home) & sym_index.mask) >= ((i - hole) & sym_index.mask)) {
      sym_index.slots[hole] = sym_index.slots[i];
      hole = i;
    }
  }
  sym_index.slots[hole].sym = nullptr;
  --sym_index.used;
}

template <class Unit>
symbol* find(const Unit* name, std::size_t len) {
  if (sym_index.slots == nullptr) return nullptr;
  const std::uint64_t key = name_key(name, len);
  for (std::size_t i = key & sym_index.mask;; i = (i + 1) & sym_index.mask) {
    const index_slot& slot = sym_index.slots[i];
    if (slot.sym == nullptr) return nullptr;
    if (slot.key == key && slot.sym->name_len == len &&
        std::equal(name, name + len, slot.sym->name)) {
      return slot.sym;
    }
  }
}

template <class Unit>
std::uint32_t chain_hash(const Unit* name, std::size_t len) {
  auto h = static_cast<std::uint32_t>(len);
  for (std::size_t i = 0; i < len; ++i) h += name[i];
  return h;
}

// ---- The chains. By their rule a record goes before the first of its chain that has the same hash
// and a greater name, or last. As long as all records of a chain have the same hash, and nearly
// always they do, that means: sorted by name. Such a chain is sorted only when somebody walks it;
// the rule is carried out record by record from the moment another hash turns up, with the records
// of the chain sorted beside it: the next greater name of the same hash is where a record goes.

struct by_hash_and_name {
  bool operator()(const symbol* a, const symbol* b) const {
    return a->hash != b->hash ? a->hash < b->hash : str16_cmp(a->name, b->name) < 0;
  }
};
struct mixed_chain {
  std::set<symbol*, by_hash_and_name> sorted;
  symbol** end;  // the last link
};
struct chain {
  symbol* first;
  mixed_chain* mixed;  // of a chain that holds records of several hashes, or has held them since it
                       // was last empty
};
std::array<chain, symtab_chains> chains;

void link_at(symbol** at, symbol* sym) {
  sym->link = *at;
  sym->linked_from = at;
  if (sym->link != nullptr) sym->link->linked_from = &sym->link;
  *at = sym;
}

void unlink(symbol* sym) {
  *sym->linked_from = sym->link;
  if (sym->link != nullptr) sym->link->linked_from = sym->linked_from;
}

void link_by_rule(mixed_chain& m, symbol* sym) {
  const auto greater = std::next(m.sorted.insert(sym).first);
  if (greater != m.sorted.end() && (*greater)->hash == sym->hash) {
    link_at((*greater)->linked_from, sym);
  } else {
    link_at(m.end, sym);
    m.end = &sym->link;
  }
}

void sort_chain(chain& c) {
  std::vector<symbol*> records;
  for (symbol* sym = c.first; sym != nullptr; sym = sym->link) records.push_back(sym);
  std::sort(records.begin(), records.end(),
            [](const symbol* a, const symbol* b) { return str16_cmp(a->name, b->name) > 0; });
  c.first = nullptr;
  for (symbol* sym : records) link_at(&c.first, sym);
}

// Makes a chain ready for records of other hashes.
void begin_mixed(chain& c) {
  sort_chain(c);
  c.mixed = new mixed_chain{{}, &c.first};
  for (symbol* sym = c.first; sym != nullptr; sym = sym->link) {
    c.mixed->sorted.insert(c.mixed->sorted.end(), sym);
    c.mixed->end = &sym->link;
  }
}

chain& chain_of(const symbol* sym) {
  return chains[sym->hash & (symtab_chains - 1)];
}

void chain_insert(symbol* sym) {
  chain& c = chain_of(sym);
  if (c.mixed == nullptr && (c.first == nullptr || c.first->hash == sym->hash)) {
    link_at(&c.first, sym);
    return;
  }
  if (c.mixed == nullptr) begin_mixed(c);
  link_by_rule(*c.mixed, sym);
}

void chain_remove(symbol* sym) {
  chain& c = chain_of(sym);
  if (c.mixed != nullptr) {
    c.mixed->sorted.erase(sym);
    if (c.mixed->end == &sym->link) c.mixed->end = sym->linked_from;
    if (c.mixed->sorted.empty()) delete std::exchange(c.mixed, nullptr);
  }
  unlink(sym);
}

void free_retired(symbol* sym) {
  while (retired_body* r = sym->retired) {
    sym->retired = r->next;
    std::free(r->text);
    std::free(r);
  }
}

void free_record(symbol* sym) {
  std::free(sym->body);
  std::free(sym);
}

template <class Unit>
symbol* enter_new(const Unit* name, std::size_t len) {
  if (sym_index.slots == nullptr) index_grow();
  void* const block = checked_alloc_raw(sizeof(symbol) + (len + 1 + search_slack) * sizeof(unit));
  auto* sym = new (block) symbol{};
  sym->name = reinterpret_cast<unit*>(sym + 1);
  *std::copy(name, name + len, sym->name) = 0;
  sym->name_len = static_cast<std::uint32_t>(len);
  sym->hash = chain_hash(name, len);
  sym->key = name_key(name, len);
  chain_insert(sym);
  index_insert(sym);
  table_changes::entered(name, len);
  return sym;
}

}  // namespace

// The bytes are taken eight at a time, the last eight overlapping what came before; reading past a
// short name is what name_slack allows for.
std::uint64_t name_key(const unsigned char* name, std::size_t len) {
  std::uint64_t h = sym_index.seed ^ len;
  if (len < 8) return mix(h, load_word(name) & ~(~std::uint64_t{0} << (8 * len)));
  for (std::size_t i = 0; i + 8 < len; i += 8) h = mix(h, load_word(name + i));
  return mix(h, load_word(name + len - 8));
}

namespace {

// Four or eight units as bytes. A marker has none; all that counts is that it always gives the
// same.
#if defined(CPP_SSE2)
std::uint64_t narrow4(const unit* p) {
  const __m128i units = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
  return static_cast<std::uint32_t>(_mm_cvtsi128_si32(_mm_packus_epi16(units, units)));
}
std::uint64_t narrow8(const unit* p) {
  const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  return static_cast<std::uint64_t>(_mm_cvtsi128_si64(_mm_packus_epi16(units, units)));
}
#else
std::uint64_t narrow4(const unit* p) {
  std::uint64_t v = 0;
  for (std::size_t i = 0; i < 4; ++i) v |= std::uint64_t{p[i] & 0xFFU} << (8 * i);
  return v;
}
std::uint64_t narrow8(const unit* p) {
  return narrow4(p) | narrow4(p + 4) << 32;
}
#endif

}  // namespace

std::uint64_t name_key(const unit* name, std::size_t len) {
  std::uint64_t h = sym_index.seed ^ len;
  if (len >= 8) {
    for (std::size_t i = 0; i + 8 < len; i += 8) h = mix(h, narrow8(name + i));
    return mix(h, narrow8(name + len - 8));
  }
  std::uint64_t v = 0;
  if (len >= 4) {
    v = narrow4(name) | narrow4(name + len - 4) << (8 * (len - 4));
  } else {
    for (std::size_t i = 0; i < len; ++i) v |= std::uint64_t{name[i] & 0xFFU} << (8 * i);
  }
  return mix(h, v);
}

symbol* sym_search(const unit* name, std::size_t len) {
  return find(name, len);
}
symbol* sym_search(const unsigned char* name, std::size_t len) {
  return find(name, len);
}

symbol* sym_enter(const unit* name, bool remove) {
  static symbol removed;  // stands for a record that is gone
  const std::size_t len = str16_len(name);
  symbol* old = sym_search(name, len);
  if (old != nullptr) sym_remove(old);
  if (remove) return old != nullptr ? &removed : nullptr;
  return enter_new(name, len);
}

symbol* sym_enter_new(const unsigned char* name, std::size_t len) {
  return enter_new(name, len);
}

void sym_remove(symbol* sym) {
  if (observing) observe::macro_removed(sym);
  chain_remove(sym);
  index_remove(sym);
  table_changes::removed();
  sym->removed = true;
  if (sym->frame_refs == 0) free_record(sym);
}

const symbol* symtab(std::size_t n) {
  chain& c = chains[n];
  if (c.mixed == nullptr) sort_chain(c);
  return c.first;
}

void sym_set_body(symbol* sym, const unit* text, std::size_t len) {
  const std::size_t size = (len + 1) * sizeof(unit);
  void* const room = checked_alloc_raw(size + search_slack * sizeof(unit));
  sym->body = static_cast<unit*>(std::memcpy(room, text, size));
  sym->body_len = static_cast<std::uint32_t>(len);
  sym->has_operators = sym->has_references = false;
  for (const unit* p = text; p != text + len; ++p) {
    if (*p < MARK_DIGITS_END) continue;
    sym->has_operators |= *p == MARK_STRINGIZE || *p == MARK_PASTE || *p == MARK_DIGITS_END;
    sym->has_references |= is_param_ref(*p);
  }
}

void sym_release_body(symbol* sym, unit* body) {
  if (sym->frame_refs == 0 || body == nullptr) {
    std::free(body);
    return;
  }
  auto* r = static_cast<retired_body*>(checked_alloc_raw(sizeof(retired_body)));
  *r = {sym->retired, body};
  sym->retired = r;
}

void sym_release(symbol* sym) {
  if (--sym->frame_refs != 0) return;
  free_retired(sym);
  if (sym->removed) free_record(sym);
}

}  // namespace kv::cpp
