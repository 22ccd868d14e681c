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

// Inline even where the compiler would not think it worth its while.
#if defined(_MSC_VER) && !defined(__clang__)
#define CPP_INLINE __forceinline
#else
#define CPP_INLINE [[gnu::always_inline]] inline
#endif

namespace kv::cpp {

#if defined(CPP_NO_LANES)
inline constexpr bool lanes = false;
#else
inline constexpr bool lanes = true;
#endif

/// The units that must be readable behind the text given to the searches below: they look at whole
/// blocks, since a line's last bytes are many where lines are short.
inline constexpr std::size_t search_slack = 16;

/// The bytes that must be readable behind a name that lies in bytes.
inline constexpr std::size_t name_slack = 8;
static_assert(search_slack >= name_slack);

/// The first byte in [p, end) that is one of those given, or `end`.
template <class Text, class... Byte>
inline Text* find_any(Text* p, Text* end, Byte... wanted) {
  static_assert(std::is_same_v<std::remove_const_t<Text>, unsigned char>);
#if defined(CPP_SSE2)
  for (; p < end; p += 16) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    __m128i hit = _mm_setzero_si128();
    ((hit = _mm_or_si128(hit, _mm_cmpeq_epi8(bytes, _mm_set1_epi8(static_cast<char>(wanted))))),
     ...);
    const int mask = _mm_movemask_epi8(hit);
    if (mask == 0) continue;
    p += std::countr_zero(static_cast<unsigned>(mask));
    return p < end ? p : end;
  }
  return end;
#else
  while (p != end && ((*p != wanted) && ...)) ++p;
  return p;
#endif
}

/// What the copiers below may write behind the `n` units that they are given: most texts are short,
/// and a copy in whole blocks has no loop for the rest.
inline constexpr std::size_t copy_slack = 8;

/// Writes the low bytes of `n` units, all below 256, to `to`.
inline void narrow(unsigned char* to, const char16_t* from, std::size_t n) {
#if defined(CPP_SSE2)
  for (std::size_t i = 0; i < n; i += 8) {
    const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + i));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to + i), _mm_packus_epi16(units, units));
  }
#else
  while (n-- != 0) *to++ = static_cast<unsigned char>(*from++);
#endif
}

/// Writes `n` bytes, or units, as units to `to`.
template <class Unit>
inline void widen(char16_t* to, const Unit* from, std::size_t n) {
#if defined(CPP_SSE2)
  for (std::size_t i = 0; i < n; i += 8) {
    __m128i units;
    if constexpr (sizeof(Unit) == 1) {
      units = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(from + i)),
                                _mm_setzero_si128());
    } else {
      units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + i));
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to + i), units);
  }
#else
  while (n-- != 0) *to++ = *from++;
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

#if defined(CPP_SSE2)
/// A bit for each byte of `v` that continues no identifier.
inline unsigned no_word_bits(__m128i v) {
  // In signed comparison the bytes of a range of n, moved to the bottom, are those below it.
  const auto in_range = [](__m128i bytes, char first, char n) {
    const __m128i moved = _mm_add_epi8(bytes, _mm_set1_epi8(static_cast<char>(-128 - first)));
    return _mm_cmplt_epi8(moved, _mm_set1_epi8(static_cast<char>(-128 + n)));
  };
  const auto is = [v](char c) { return _mm_cmpeq_epi8(v, _mm_set1_epi8(c)); };
  const __m128i letter = in_range(_mm_or_si128(v, _mm_set1_epi8(0x20)), 'a', 26);
  const __m128i digit = in_range(v, '0', 10);
  const __m128i other = _mm_or_si128(is('_'), _mm_or_si128(is('$'), is(0x1D)));
  const __m128i word = _mm_or_si128(letter, _mm_or_si128(digit, other));
  return static_cast<unsigned>(_mm_movemask_epi8(word)) ^ 0xFFFFU;
}

inline __m128i load16(const unsigned char* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}
/// The low bytes of 16 units; those that are no bytes become such that continue no identifier.
inline __m128i load16(const char16_t* p) {
  const auto* const eight = reinterpret_cast<const __m128i*>(p);
  return _mm_packus_epi16(_mm_loadu_si128(eight), _mm_loadu_si128(eight + 1));
}
#endif

/// The first unit from `p` on that continues no identifier, as `word_units` has it. Up to
/// search_slack units behind that one are looked at.
template <class Unit>
inline const Unit* find_word_end(const Unit* p,
                                 [[maybe_unused]] const std::array<bool, 256>& word_units) {
#if defined(CPP_SSE2)
  for (;; p += 16) {
    const unsigned mask = no_word_bits(load16(p));
    if (mask != 0) return p + std::countr_zero(mask);
  }
#else
  while (*p < 256 && word_units[*p]) ++p;
  return p;
#endif
}

}  // namespace kv::cpp
