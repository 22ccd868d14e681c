#include <gtest/gtest.h>

#include <cstdlib>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "common/alloc.h"
#include "common/hash.h"
#include "common/strbuild.h"
#include "common/text_table.h"
#include "common/vector.h"

namespace kv {
namespace {

using words = std::vector<word>;

vector* make(std::initializer_list<word> elements) {
  vector* const v = vec_create(__FILE__, __LINE__);
  for (const word x : elements) vec_push(v, x);
  return v;
}

words contents(const vector* v) {
  return words(v->data, v->data + v->count);
}

words take(vector* v) {
  words result = contents(v);
  vec_destroy(v);
  return result;
}

TEST(vector, grows_by_doubling_from_its_chunk_and_reads_zero_in_between) {
  vector* v = vec_create(__FILE__, __LINE__);
  EXPECT_EQ(v->capacity, 0u);
  for (word i = 0; i < 10; ++i) vec_push(v, i);
  EXPECT_EQ(v->capacity, 10u);
  vec_push(v, 10);
  EXPECT_EQ(v->capacity, 20u);
  vec_destroy(v);

  v = vec_create(__FILE__, __LINE__);
  vec_set(v, 7, 100);
  EXPECT_EQ(v->capacity, 160u);
  EXPECT_EQ(vec_count(v), 101u);
  for (std::uint32_t i = 0; i < 100; ++i) EXPECT_EQ(vec_get(v, i), 0u);
  EXPECT_EQ(vec_get(v, 100), 7u);
  vec_clear(v);
  vec_set(v, 1, 50);
  EXPECT_EQ(vec_get(v, 49), 0u) << "removed elements must not show again";
  vec_destroy(v);

  v = vec_create_chunk(3, __FILE__, __LINE__);
  vec_reserve(v, 7);
  EXPECT_EQ(v->capacity, 12u);
  EXPECT_EQ(v->count, 0u);
  vec_destroy(v);
}

TEST(vector, ends_read_zero_and_take_nothing_away) {
  vector* const v = make({});
  EXPECT_EQ(vec_pop(v), 0u);
  EXPECT_EQ(vec_last(v), 0u);
  EXPECT_EQ(vec_get(v, 0), 0u);
  EXPECT_EQ(vec_remove_at(v, 0), 0);
  EXPECT_EQ(vec_remove(v, 5), 0);
  EXPECT_EQ(vec_index(v, 5), 4294967295u);
  EXPECT_EQ(vec_count(v), 0u);
  EXPECT_EQ(vec_count(nullptr), 0u);
  EXPECT_EQ(vec_copy(nullptr, __FILE__, __LINE__), nullptr);
  vec_reserve(v, 0);
  EXPECT_EQ(v->capacity, 0u);
  EXPECT_EQ(vec_iter_first(v), 0u);
  vec_destroy(nullptr);
  vec_destroy(v);
  hash_destroy(nullptr);
}

TEST(vector, elements_are_inserted_moved_removed_and_sorted) {
  vector* const v = make({1, 2, 3});
  EXPECT_EQ(vec_insert(v, 9, 99), 3u);
  EXPECT_EQ(vec_insert(v, 8, 1), 1u);
  EXPECT_EQ(contents(v), (words{1, 8, 2, 3, 9}));
  vec_move(v, 1, 4);
  EXPECT_EQ(contents(v), (words{1, 2, 3, 9, 8}));
  vec_move(v, 3, 0);
  EXPECT_EQ(contents(v), (words{9, 1, 2, 3, 8}));
  vec_move(v, 5, 0);
  vec_move(v, 0, 5);
  EXPECT_EQ(contents(v), (words{9, 1, 2, 3, 8}));
  EXPECT_EQ(vec_remove(v, 2), 1);
  EXPECT_EQ(vec_remove_at(v, 0), 1);
  EXPECT_EQ(vec_pop(v), 8u);
  EXPECT_EQ(vec_last(v), 3u);
  vec_push(v, 2);
  vec_sort(v, [](const void* a, const void* b) {
    return static_cast<int>(*static_cast<const word*>(b)) -
           static_cast<int>(*static_cast<const word*>(a));
  });
  EXPECT_EQ(contents(v), (words{3, 2, 1}));
  vector* const copy = vec_copy(v, __FILE__, __LINE__);
  EXPECT_EQ(copy->capacity, v->capacity);
  vec_push(v, 0);
  EXPECT_EQ(take(copy), (words{3, 2, 1}));
  vec_destroy(v);
}

// Walks v by the idiom of begin, more, next and end; `visit` may change v.
template <class Visit>
words walk(vector* v, Visit visit) {
  words seen;
  word x = 0;
  vec_iter_begin(v);
  const auto fetch = [&] { return vec_iter_more(v) ? (x = vec_iter_next(v), 1) : 0; };
  while (vec_iter_end(v, fetch())) {
    seen.push_back(x);
    visit(x);
  }
  return seen;
}

TEST(vector, iterations_stay_right_under_insertion_and_removal) {
  vector* const v = make({1, 2, 3, 4});
  EXPECT_EQ(walk(v, [&](word x) { vec_remove(v, x); }), (words{1, 2, 3, 4}));
  EXPECT_EQ(vec_count(v), 0u);
  for (const word x : words{1, 2, 3}) vec_push(v, x);
  // What is inserted at or before the position is not visited.
  EXPECT_EQ(walk(v, [&](word x) { vec_insert(v, x + 10, vec_index(v, x)); }), (words{1, 2, 3}));
  EXPECT_EQ(contents(v), (words{11, 1, 12, 2, 13, 3}));
  // What changes behind the position does not move it.
  const auto exchange = [&](word x) {
    return x == 11 && vec_remove(v, 12) && vec_insert(v, 14, 2);
  };
  EXPECT_EQ(walk(v, exchange), (words{11, 1, 14, 2, 13, 3}));
  words pairs;
  walk(v, [&](word outer) {
    if (outer < 10) walk(v, [&](word inner) { pairs.push_back(outer * 100 + inner); });
  });
  EXPECT_EQ(pairs.size(), 18u);
  EXPECT_EQ(pairs[1], 101u);
  EXPECT_EQ(v->iterators, nullptr);
  EXPECT_EQ(vec_iter_first(v), 11u);
  EXPECT_EQ(vec_iter_current(v), 1u);
  EXPECT_EQ(vec_iter_end(v, 0), 0);
  EXPECT_EQ(vec_iter_next(v), 0u) << "no iteration is in progress";
  vec_iter_begin(v);
  vec_destroy(v);
}

TEST(hash_table, equal_keys_are_entered_once) {
  hash_table* const h = hash_create(7, nullptr, nullptr, __FILE__, __LINE__);
  EXPECT_EQ(hash_insert(h, 3, 30, __FILE__, __LINE__), 1);
  EXPECT_EQ(hash_insert(h, 3, 31, __FILE__, __LINE__), 0);
  EXPECT_EQ(hash_find(h, 3), 30u);
  EXPECT_EQ(hash_find(h, 10), 0u);
  EXPECT_EQ(hash_contains(h, 10), 0);
  EXPECT_EQ(hash_remove(h, 10), 0u);
  EXPECT_EQ(h->count, 1u);
  EXPECT_EQ(hash_remove(h, 3), 30u);
  EXPECT_EQ(hash_contains(h, 3), 0);
  EXPECT_EQ(h->count, 0u);
  hash_destroy(h);
}

TEST(hash_table, entries_are_visited_by_bucket_and_in_order_of_insertion) {
  hash_table* const h = hash_create(3, nullptr, nullptr, __FILE__, __LINE__);
  for (const word key : words{5, 1, 4, 3, 7}) hash_insert(h, key, key * 10, __FILE__, __LINE__);
  EXPECT_EQ(take(hash_keys(h)), (words{3, 1, 4, 7, 5}));
  EXPECT_EQ(take(hash_values(h)), (words{30, 10, 40, 70, 50}));
  int calls = 0;
  const auto stop_at_second = [](void* context, word, word) {
    return ++*static_cast<int*>(context) == 2 ? 77 : 0;
  };
  EXPECT_EQ(hash_visit(h, &calls, stop_at_second), 77);
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(hash_remove(h, 4), 40u);
  const auto remove_each = [](void* table, word key, word) {
    return hash_remove(static_cast<hash_table*>(table), key) == key * 10 ? 0 : 1;
  };
  EXPECT_EQ(hash_visit(h, h, remove_each), 0);
  EXPECT_EQ(h->count, 0u);
  hash_insert(h, 8, 1, __FILE__, __LINE__);
  hash_clear(h);
  EXPECT_EQ(take(hash_keys(h)), words{});
  EXPECT_EQ(hash_insert(h, 8, 1, __FILE__, __LINE__), 1);
  hash_destroy(h);
}

TEST(hash_table, keys_are_words_unless_functions_say_otherwise) {
  const char a[] = "Name";
  const char b[] = "Name";
  const char c[] = "nAME";
  const struct {
    hash_fn hash;
    hash_compare compare;
    std::uint32_t different;
  } cases[] = {{nullptr, nullptr, 3},
               {str_hash, str_compare, 2},
               {nullptr, str_compare, 2},
               {str_hash_nocase, str_compare_nocase, 1}};
  for (const auto& row : cases) {
    hash_table* const h = hash_create(1, row.hash, row.compare, __FILE__, __LINE__);
    for (const char* key : {a, b, c}) hash_insert(h, to_word(key), 1, __FILE__, __LINE__);
    EXPECT_EQ(h->count, row.different);
    hash_destroy(h);
  }
  EXPECT_EQ(str_hash(""), 5381u);
  EXPECT_EQ(str_hash("ab"), (5381u * 33 + 'a') * 33 + 'b');
  EXPECT_EQ(str_hash("\xFF"), 5381u * 33 - 1) << "bytes are signed";
}

TEST(hash_table, an_index_changes_nothing_that_can_be_seen) {
  std::vector<std::string> names;
  for (int i = 0; i < 300; ++i) names.push_back("n" + std::to_string(i * i % 251));
  hash_table* tables[2];
  for (hash_table*& h : tables) h = hash_create(5, str_hash, str_compare, __FILE__, __LINE__);
  hash_use_index(tables[1], str_spread);
  const auto same = [&](auto operation) {
    EXPECT_EQ(operation(tables[0]), operation(tables[1]));
    EXPECT_EQ(take(hash_keys(tables[0])), take(hash_keys(tables[1])));
  };
  for (int round = 0; round < 2; ++round) {
    for (std::size_t i = 0; i < names.size(); ++i) {
      const word key = to_word(names[i].c_str());
      same([=](hash_table* h) { return hash_insert(h, key, i, __FILE__, __LINE__); });
      const word other = to_word(names[i * 7 % names.size()].c_str());
      same([=](hash_table* h) { return hash_find(h, other); });
      if (i % 3 == 0) same([=](hash_table* h) { return hash_remove(h, other); });
    }
    EXPECT_GT(tables[1]->count, 70u);
    same([](hash_table* h) { return hash_clear(h), h->count; });
  }
  for (hash_table* h : tables) hash_destroy(h);
}

TEST(alloc, blocks_are_zero_filled_and_strings_are_joined) {
  auto* const block = static_cast<unsigned char*>(checked_alloc(100));
  for (int i = 0; i < 100; ++i) EXPECT_EQ(block[i], 0);
  std::free(block);
  char* s = str_concat("", "");
  EXPECT_STREQ(s, "");
  s = str_append(str_append(s, "ab"), "cd");
  EXPECT_STREQ(s, "abcd");
  std::free(s);
  char buf[16];
  EXPECT_EQ(buf_printf(buf, "%s-%d", "x", 12), 4u);
  EXPECT_STREQ(buf, "x-12");
}

TEST(alloc, formatted_strings_are_cut_at_4095_characters) {
  const struct {
    std::size_t wanted, got;
    const char* complaint;
  } cases[] = {{4095, 4095, ""},
               {4096, 4095, "buffer overflow in vsnprintf"},
               {5000, 4095, "buffer overflow in vsnprintf"}};
  for (const auto& c : cases) {
    testing::internal::CaptureStderr();
    char* const s = str_format("%s", std::string(c.wanted, 'x'));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), c.complaint);
    EXPECT_EQ(std::string(s).size(), c.got);
    std::free(s);
  }
}

TEST(text_table, finds_each_text_again_and_tells_it_from_others_by_every_byte) {
  static text_table<std::size_t> table;
  std::vector<std::string> texts = {"", "a", "aa", {"a\0", 2}, "b", std::string(20000, 'x')};
  for (int i = 0; i < 2000; ++i) texts.push_back("name" + std::to_string(i));
  std::vector<text_table<std::size_t>::entry*> entries;
  for (const std::string& text : texts) {
    entries.push_back(&table[text]);
    EXPECT_EQ(entries.back()->record, 0U);
    entries.back()->record = entries.size();
  }
  for (std::size_t i = 0; i < texts.size(); ++i) {
    EXPECT_EQ(&table[texts[i]], entries[i]);
    EXPECT_EQ(entries[i]->record, i + 1);
    EXPECT_EQ(std::string_view(entries[i]->text, entries[i]->length), texts[i]);
  }
}

}  // namespace
}  // namespace kv
