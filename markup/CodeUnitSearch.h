// Fast forward search for one UTF-16 code unit: the inner step of the tag scanner and of anything
// that skips text up to a delimiter. Sixteen units per step with SSE2, a plain loop elsewhere and
// for the tail. Reads only [p, end).
#pragma once

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace ferncast {

// The first position in [p, end) holding `unit`, or `end`.
inline const char16_t* findCodeUnit(const char16_t* p, const char16_t* end, char16_t unit) {
#if defined(__SSE2__)
  const __m128i needle = _mm_set1_epi16(static_cast<short>(unit));
  for (; end - p >= 16; p += 16) {
    __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 8));
    // Each equal unit compares to 0xFFFF; packing saturates that to one 0xFF byte per unit.
    __m128i hits = _mm_packs_epi16(_mm_cmpeq_epi16(low, needle), _mm_cmpeq_epi16(high, needle));
    if (int mask = _mm_movemask_epi8(hits)) return p + __builtin_ctz(static_cast<unsigned>(mask));
  }
#endif
  for (; p < end; ++p) {
    if (*p == unit) return p;
  }
  return end;
}

}  // namespace ferncast
