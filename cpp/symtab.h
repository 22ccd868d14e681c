// The macro table.
//
// Every macro lives in one of 8192 chains whose order is part of the program's output (the -dM dump
// and the macro report walk them). The chains are a poor place to search: the sums they are keyed
// by are close together for names of one program. Look-ups therefore go through an index of their
// own, an open-addressed hash table keyed by the whole name; both always hold the same records.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "cpp/lanes.h"
#include "cpp/owned.h"
#include "cpp/text16.h"

namespace kv::cpp {

inline constexpr std::size_t symtab_chains = 8192;

// The `nargs` of macros that take no arguments.
inline constexpr int NARGS_OBJECT = -1;
inline constexpr int NARGS_LINE = -2;
inline constexpr int NARGS_FILE = -3;

/// The most parameters or arguments a macro can have.
inline constexpr int max_macro_args = 31;

struct retired_body;

/// One macro. The body is a heap block owned by the record, the name lies behind the record.
struct symbol {
  symbol* link;              ///< next record of the chain
  symbol** linked_from;      ///< what points at this record in the chain
  unit* body;                ///< encoded replacement text; null for dynamic and abandoned macros
  std::uint32_t body_len;    ///< units in `body`
  bool has_operators;        ///< `body` holds a `#` or `##`
  bool has_references;       ///< `body` refers to parameters
  std::uint32_t hash;        ///< sum of the name's units plus their number
  std::int32_t nargs;        ///< parameters of a function-like macro, or a NARGS_ value
  std::int32_t disable;      ///< expansion frames being read, less those re-enabled for an argument
  std::uint32_t frame_refs;  ///< expansion frames that refer to it
  retired_body* retired;     ///< bodies it had before that may still be read
  bool removed;              ///< out of the table, waiting for frame_refs to reach 0
  bool from_command_line;    ///< entered by -D
  mutable std::int32_t record;  ///< belongs to observe: the number of its record, plus one
  const char* def_file;         ///< file of the first #define, null for start-up and command-line
                                ///< macros; not owned
  std::int32_t def_line;        ///< line of that #define
  std::uint32_t name_len;       ///< units in `name`
  std::uint64_t key;            ///< name_key of `name`
  unit* name;
};

/// The first record of chain `n`, for walks over all macros in their documented order.
const symbol* symtab(std::size_t n);

/// The index key of a name of `len` units.
std::uint64_t name_key(const unit* name, std::size_t len);
/// The same key for a name that lies in bytes, as in a source line, with name_slack bytes behind
/// it.
std::uint64_t name_key(const unsigned char* name, std::size_t len);

/// The search of the index behind sym_find().
symbol* sym_search(const unit* name, std::size_t len);
symbol* sym_search(const unsigned char* name, std::size_t len);

/// Goes up by one with every name entered, from 1: what is known of a text that names no macro
/// holds as long as it stays.
inline constinit owned<std::uint32_t, struct table_changes> names_entered{1};

/// Goes up by one with every record taken out, from 1: what was found stays found as long as it
/// stays.
inline constinit owned<std::uint32_t, struct table_changes> names_removed{1};

/// The shapes of all names entered so far: a name's length, first and last unit, modulo the size of
/// this set of bits. Nearly all identifiers of a text are no macros, and most of those are told by
/// their shape alone.
class name_shapes {
 public:
  /// Whether the name of `len` units, at least one, has the shape of one entered.
  template <class Unit>
  static bool hold(const Unit* name, std::size_t len) {
    const std::size_t shape = shape_of(name, len);
    return (bits_[shape / 64] >> (shape % 64) & 1U) != 0;
  }

 private:
  friend struct table_changes;

  template <class Unit>
  static std::size_t shape_of(const Unit* name, std::size_t len) {
    return (name[0] + name[len - 1] * std::size_t{151} + len * 1031) % size;
  }

  static constexpr std::size_t size = 65536;
  static inline constinit std::array<std::uint64_t, size / 64> bits_ = {};
};

/// The record of the name of `len` units, at least one, or null.
template <class Unit>
symbol* sym_find(const Unit* name, std::size_t len) {
  return name_shapes::hold(name, len) ? sym_search(name, len) : nullptr;
}

/// Removes the record of `name` (zero-ended) if there is one. With `remove` set returns a non-null
/// value exactly when there was one; that value must not be followed. Otherwise enters a fresh
/// record (all fields but the name's zero) and returns it.
symbol* sym_enter(const unit* name, bool remove);
/// Enters a fresh record of a name of which there is none.
symbol* sym_enter_new(const unsigned char* name, std::size_t len);
/// Takes a record found with sym_find out of the table.
void sym_remove(symbol* sym);

/// Makes a copy of `text` (encoded, `len` units and a zero) the body of `sym`; what it had before
/// is not freed.
void sym_set_body(symbol* sym, const unit* text, std::size_t len);

/// Frees `body`, or null, which `sym` had until now, as soon as no frame reads it any more.
void sym_release_body(symbol* sym, unit* body);

/// Gives up one frame's reference to `sym`; the last one frees a removed record.
void sym_release(symbol* sym);

}  // namespace kv::cpp
