// Fast searches for one, two or three UTF-16 code units in a stretch of text, used by the
// XML reader's hot loops (finding "<", ">" and the space that ends a tag name).
//
// Every function looks at [from, end) of `text` and returns the index of the first match, or
// `end` when there is none. They test 8 code units at a time with SSE2 on x86 (both the Linux
// and the mingw-w64 builds have it) and fall back to a plain loop elsewhere. They are inline:
// the reader calls them once or twice per tag, mostly over a few characters.
//
//   std::size_t lt = xml::FindChar(text.data(), 0, text.size(), u'<');
#pragma once

#include <cstddef>
#include <string_view>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace xml {

#if defined(__SSE2__)

namespace simd {

inline __m128i Load(const char16_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}
inline unsigned Mask(__m128i eq) {
  return static_cast<unsigned>(_mm_movemask_epi8(eq));
}
inline std::size_t FirstLane(unsigned mask) {
  return static_cast<std::size_t>(__builtin_ctz(mask)) / 2;
}

}  // namespace simd

inline std::size_t FindChar(const char16_t* text, std::size_t from, std::size_t end, char16_t a) {
  const __m128i va = _mm_set1_epi16(static_cast<short>(a));
  std::size_t i = from;
  while (i + 16 <= end) {
    const unsigned m0 = simd::Mask(_mm_cmpeq_epi16(simd::Load(text + i), va));
    const unsigned m1 = simd::Mask(_mm_cmpeq_epi16(simd::Load(text + i + 8), va));
    if (m0 | m1) return m0 ? i + simd::FirstLane(m0) : i + 8 + simd::FirstLane(m1);
    i += 16;
  }
  if (i + 8 <= end) {
    if (const unsigned m = simd::Mask(_mm_cmpeq_epi16(simd::Load(text + i), va)))
      return i + simd::FirstLane(m);
    i += 8;
  }
  for (; i < end; ++i) {
    if (text[i] == a) return i;
  }
  return end;
}

inline std::size_t FindChar2(const char16_t* text, std::size_t from, std::size_t end, char16_t a,
                             char16_t b) {
  const __m128i va = _mm_set1_epi16(static_cast<short>(a));
  const __m128i vb = _mm_set1_epi16(static_cast<short>(b));
  std::size_t i = from;
  while (i + 8 <= end) {
    const __m128i v = simd::Load(text + i);
    if (const unsigned m = simd::Mask(_mm_or_si128(_mm_cmpeq_epi16(v, va), _mm_cmpeq_epi16(v, vb))))
      return i + simd::FirstLane(m);
    i += 8;
  }
  for (; i < end; ++i) {
    if (text[i] == a || text[i] == b) return i;
  }
  return end;
}

inline std::size_t FindChar3(const char16_t* text, std::size_t from, std::size_t end, char16_t a,
                             char16_t b, char16_t c) {
  const __m128i va = _mm_set1_epi16(static_cast<short>(a));
  const __m128i vb = _mm_set1_epi16(static_cast<short>(b));
  const __m128i vc = _mm_set1_epi16(static_cast<short>(c));
  std::size_t i = from;
  while (i + 8 <= end) {
    const __m128i v = simd::Load(text + i);
    const __m128i ab = _mm_or_si128(_mm_cmpeq_epi16(v, va), _mm_cmpeq_epi16(v, vb));
    if (const unsigned m = simd::Mask(_mm_or_si128(ab, _mm_cmpeq_epi16(v, vc))))
      return i + simd::FirstLane(m);
    i += 8;
  }
  for (; i < end; ++i) {
    if (text[i] == a || text[i] == b || text[i] == c) return i;
  }
  return end;
}

#else

inline std::size_t FindChar(const char16_t* text, std::size_t from, std::size_t end, char16_t a) {
  for (std::size_t i = from; i < end; ++i) {
    if (text[i] == a) return i;
  }
  return end;
}

inline std::size_t FindChar2(const char16_t* text, std::size_t from, std::size_t end, char16_t a,
                             char16_t b) {
  for (std::size_t i = from; i < end; ++i) {
    if (text[i] == a || text[i] == b) return i;
  }
  return end;
}

inline std::size_t FindChar3(const char16_t* text, std::size_t from, std::size_t end, char16_t a,
                             char16_t b, char16_t c) {
  for (std::size_t i = from; i < end; ++i) {
    if (text[i] == a || text[i] == b || text[i] == c) return i;
  }
  return end;
}

#endif

// The first occurrence of `needle` starting at or after `from`, compared code unit by code unit;
// std::u16string_view::npos when there is none. An empty needle is found at `from`.
std::size_t FindText(std::u16string_view text, std::u16string_view needle, std::size_t from);

}  // namespace xml
