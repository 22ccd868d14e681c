// The switch for the fast lanes: bulk paths that must give byte for byte what unit-by-unit reading
// gives. A build with CPP_NO_LANES leaves them out, so that both can be compared on any input.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstring>
#include <type_traits>

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

/// The first byte in [p, end) that is one of the four given, or `end`.
template <class Byte>
inline Byte* find_any(Byte* p, Byte* end, unsigned char a, unsigned char b, unsigned char c,
                      unsigned char d) {
  static_assert(std::is_same_v<std::remove_const_t<Byte>, unsigned char>);
#if defined(CPP_SSE2)
  const __m128i va = _mm_set1_epi8(static_cast<char>(a));
  const __m128i vb = _mm_set1_epi8(static_cast<char>(b));
  const __m128i vc = _mm_set1_epi8(static_cast<char>(c));
  const __m128i vd = _mm_set1_epi8(static_cast<char>(d));
  for (; end - p >= 16; p += 16) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i hit = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(v, va), _mm_cmpeq_epi8(v, vb)),
                                     _mm_or_si128(_mm_cmpeq_epi8(v, vc), _mm_cmpeq_epi8(v, vd)));
    const int mask = _mm_movemask_epi8(hit);
    if (mask != 0) return p + std::countr_zero(static_cast<unsigned>(mask));
  }
#endif
  while (p != end && *p != a && *p != b && *p != c && *p != d) ++p;
  return p;
}

/// The bytes that must be readable behind the text given to find_word_end().
inline constexpr std::size_t word_slack = 16;

/// The first byte from `p` on that continues no identifier, as `word_units` has it. Up to
/// word_slack bytes behind that one are looked at.
inline const unsigned char* find_word_end(
    const unsigned char* p, [[maybe_unused]] const std::array<bool, 256>& word_units) {
#if defined(CPP_SSE2)
  // In signed comparison the bytes of a range of n, moved to the bottom, are those below it.
  const auto in_range = [](__m128i v, char first, char n) {
    const __m128i moved = _mm_add_epi8(v, _mm_set1_epi8(static_cast<char>(-128 - first)));
    return _mm_cmplt_epi8(moved, _mm_set1_epi8(static_cast<char>(-128 + n)));
  };
  const auto is = [](__m128i v, char c) { return _mm_cmpeq_epi8(v, _mm_set1_epi8(c)); };
  for (;; p += 16) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i letter = in_range(_mm_or_si128(v, _mm_set1_epi8(0x20)), 'a', 26);
    const __m128i digit = in_range(v, '0', 10);
    const __m128i other = _mm_or_si128(is(v, '_'), _mm_or_si128(is(v, '$'), is(v, 0x1D)));
    const __m128i word = _mm_or_si128(letter, _mm_or_si128(digit, other));
    const auto mask = static_cast<unsigned>(_mm_movemask_epi8(word)) ^ 0xFFFFU;
    if (mask != 0) return p + std::countr_zero(mask);
  }
#else
  while (word_units[*p]) ++p;
  return p;
#endif
}

}  // namespace kv::cpp
