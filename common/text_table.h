// A table of records found by a text, for look-ups that a run makes by the thousand.
//
// The chained table of hash.h keys by words and calls its hash and comparison through pointers;
// here both are known, a look-up costs one hash of the text, and the text lies beside its record.
// Entries are never removed, do not move and are not released with the table, so references to
// records and pointers to texts stay good until the process ends.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <type_traits>

#include "common/alloc.h"
#include "common/text_hash.h"

namespace kv {

/// Starts empty, without memory of its own; meant for tables that live as long as the process.
template <class Record>
class text_table {
  static_assert(std::is_trivially_destructible_v<Record>);

 public:
  /// A record and the text it is found by, which ends with a zero byte.
  struct entry {
    Record record;
    std::size_t length;
    const char* text;
  };

  /// The entry of `text`; made, with a fresh record, where there is none. Raises 296 (fatal)
  /// without memory.
  entry& operator[](std::string_view text) {
    if (2 * used_ >= size_) grow();
    const std::uint32_t hash = text_hash(text);
    for (std::size_t i = hash & (size_ - 1);; i = (i + 1) & (size_ - 1)) {
      slot& s = slots_[i];
      if (s.at == nullptr) {
        ++used_;
        s = {new_entry(text), hash};
      } else if (s.hash != hash || s.at->length != text.size() ||
                 std::memcmp(s.at->text, text.data(), text.size()) != 0) {
        continue;
      }
      return *s.at;
    }
  }

 private:
  struct slot {
    entry* at;  // null: empty
    std::uint32_t hash;
  };
  static constexpr std::size_t first_size = 256;  // a power of two, as all sizes are
  static constexpr std::size_t chunk_size = 8192;

  // Entries are cut off chunks that are never given back.
  void* room_for(std::size_t size) {
    size = (size + alignof(entry) - 1) & ~(alignof(entry) - 1);
    if (room_left_ < size) {
      const std::size_t chunk = size > chunk_size ? size : chunk_size;
      room_ = static_cast<char*>(checked_alloc_raw(chunk));
      room_left_ = chunk;
    }
    void* room = room_;
    room_ += size;
    room_left_ -= size;
    return room;
  }

  entry* new_entry(std::string_view text) {
    void* room = room_for(sizeof(entry) + text.size() + 1);
    char* copy = static_cast<char*>(room) + sizeof(entry);
    std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = 0;
    return new (room) entry{{}, text.size(), copy};
  }

  void grow() {
    const std::size_t size = size_ == 0 ? first_size : 2 * size_;
    auto* slots = static_cast<slot*>(checked_alloc(size * sizeof(slot)));
    for (std::size_t i = 0; i < size_; ++i) {
      if (slots_[i].at == nullptr) continue;
      std::size_t to = slots_[i].hash & (size - 1);
      while (slots[to].at != nullptr) to = (to + 1) & (size - 1);
      slots[to] = slots_[i];
    }
    std::free(slots_);
    slots_ = slots;
    size_ = size;
  }

  slot* slots_ = nullptr;  // open addressing; at most half of them are in use
  std::size_t size_ = 0;
  std::size_t used_ = 0;
  char* room_ = nullptr;  // what is left of the last chunk
  std::size_t room_left_ = 0;
};

}  // namespace kv
