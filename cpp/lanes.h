// The switch for the fast lanes: bulk paths that must give byte for byte what unit-by-unit reading
// gives. A build with CPP_NO_LANES leaves them out, so that both can be compared on any input.
#pragma once

#include <bit>
#include <cstddef>
#include <cstring>

// Some compilers have no macro of their own for what every 64-bit x86 processor can do.
#if defined(__SSE2__) || defined(_M_X64)
#define CPP_SSE2
#include <emmintrin.h>
#endif

namespace kv::cpp {

#if defined(CPP_NO_LANES)
inline constexpr bool lanes = false;
#else
inline constexpr bool lanes = true;
#endif

/// The bytes that must be readable behind the `end` given to the searches below: they look at whole
/// blocks, since a line's last bytes are many where lines are short.
inline constexpr std::size_t search_slack = 16;

#if defined(CPP_SSE2)
/// Sixteen bytes of text and what is found in them; a set bit in a mask is a byte found.
struct byte_block {
  explicit byte_block(const unsigned char* p)
      : bytes(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))) {}
  __m128i where(unsigned char c) const {
    return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(static_cast<char>(c)));
  }
  __m128i bytes;
};

/// Searches [p, end) in blocks: `find` takes a place and gives the mask of what is found in the
/// sixteen bytes there. The first byte found, or `end`.
template <class Find>
inline unsigned char* search_blocks(unsigned char* p, unsigned char* end, Find find) {
  for (; p < end; p += 16) {
    const int mask = _mm_movemask_epi8(find(p));
    if (mask == 0) continue;
    p += std::countr_zero(static_cast<unsigned>(mask));
    return p < end ? p : end;
  }
  return end;
}
#endif

/// The first byte in [p, end) that is one of those given, or `end`.
template <class... Byte>
inline unsigned char* find_any(unsigned char* p, unsigned char* end, Byte... wanted) {
#if defined(CPP_SSE2)
  return search_blocks(p, end, [=](const unsigned char* at) {
    const byte_block block(at);
    __m128i hit = _mm_setzero_si128();
    ((hit = _mm_or_si128(hit, block.where(static_cast<unsigned char>(wanted)))), ...);
    return hit;
  });
#else
  while (p != end && ((*p != wanted) && ...)) ++p;
  return p;
#endif
}

/// The first place in [p, end) that can matter in the text of a block comment: its end, what looks
/// like the start of another comment or of a trigraph, a zero byte or a newline. Looks at the byte
/// behind each place too. `end` without one.
inline unsigned char* find_in_comment(unsigned char* p, unsigned char* end) {
#if defined(CPP_SSE2)
  return search_blocks(p, end, [](const unsigned char* at) {
    const byte_block block(at);
    const byte_block behind(at + 1);
    const __m128i closes = _mm_and_si128(block.where('*'), behind.where('/'));
    const __m128i opens = _mm_and_si128(block.where('/'), behind.where('*'));
    const __m128i trigraph = _mm_and_si128(block.where('?'), behind.where('?'));
    const __m128i line_end = _mm_or_si128(block.where('\n'), block.where(0));
    return _mm_or_si128(_mm_or_si128(closes, opens), _mm_or_si128(trigraph, line_end));
  });
#else
  for (; p != end && *p != '\n' && *p != 0; ++p) {
    if ((*p == '*' && p[1] == '/') || (*p == '/' && p[1] == '*') || (*p == '?' && p[1] == '?')) {
      break;
    }
  }
  return p;
#endif
}

/// The first newline in [p, end), or null. Lines are short: a call to the C library would cost more
/// than the search.
inline unsigned char* find_newline(unsigned char* p, unsigned char* end) {
#if defined(CPP_SSE2)
  p = find_any(p, end, '\n');
  return p != end ? p : nullptr;
#else
  return static_cast<unsigned char*>(std::memchr(p, '\n', static_cast<std::size_t>(end - p)));
#endif
}

}  // namespace kv::cpp
