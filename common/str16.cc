#include "common/str16.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "common/alloc.h"

namespace kv {

std::size_t str16_len(const char16_t* t) {
  return std::char_traits<char16_t>::length(t);
}

int str16_cmp(const char16_t* a, const char16_t* b) {
  for (; *a == *b; ++a, ++b) {
    if (*a == 0) return 0;
  }
  return *b < *a ? 1 : -1;
}

char16_t* str16_dup(const char16_t* t) {
  const std::size_t size = (str16_len(t) + 1) * sizeof(char16_t);
  return static_cast<char16_t*>(std::memcpy(checked_alloc(size), t, size));
}

void str16_copy(char16_t* dst, const char16_t* t) {
  std::copy_n(t, str16_len(t) + 1, dst);
}

void str16_lower(char16_t* t) {
  for (; *t != 0; ++t) {
    if (*t >= u'A' && *t <= u'Z') *t = static_cast<char16_t>(*t - u'A' + u'a');
  }
}

void str8to16(char16_t* dst, const char* s) {
  do {
    *dst++ = static_cast<unsigned char>(*s);
  } while (*s++ != '\0');
}

void str8to16n(char16_t* dst, const char* s, std::size_t n) {
  for (; n != 0; --n) {
    *dst++ = static_cast<unsigned char>(*s);
    if (*s != '\0') ++s;
  }
}

void str16to8(char* dst, const char16_t* t) {
  do {
    *dst++ = static_cast<char>(*t & 0xFF);
  } while (*t++ != 0);
}

const char16_t* str16_rchr(const char16_t* t, char16_t c) {
  const char16_t* found = nullptr;
  for (;; ++t) {
    if (*t == c) found = t;
    if (*t == 0) return found;
  }
}

int str16_atoi(const char16_t* t) {
  unsigned number = 0;
  for (; *t >= u'0' && *t <= u'9'; ++t) number = number * 10 + (*t - u'0');
  return static_cast<int>(number);
}

int str16_cmp8(const char16_t* t, const char* s) {
  for (;; ++t, ++s) {
    const int difference = *t - static_cast<signed char>(*s);
    if (difference != 0 || *t == 0) return difference;
  }
}

}  // namespace kv
