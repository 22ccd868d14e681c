// The switch for the fast lanes: bulk paths that must give byte for byte what unit-by-unit reading
// gives. A build with CPP_NO_LANES leaves them out, so that both can be compared on any input.
#pragma once

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

}  // namespace kv::cpp
