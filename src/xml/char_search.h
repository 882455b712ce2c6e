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

// What the writer needs to know of a text before copying it out, found in one pass.
enum TextTraits : unsigned {
  kMarkupChars = 1,  // one of < > & ' " (escaped on the way out)
  kCarriageReturn = 2,
  kBrackets = 4,    // [ or ] (a CDATA marker may be there)
  kNotSevenBit = 8  // a NUL or a character from 0x80 on
};

// What one character adds to ClassifyText's answer.
inline unsigned CharTraits(char16_t c) {
  unsigned traits = 0;
  if (c == u'<' || c == u'>' || c == u'&' || c == u'\'' || c == u'"') traits |= kMarkupChars;
  if (c == u'\r') traits |= kCarriageReturn;
  if (c == u'[' || c == u']') traits |= kBrackets;
  if (c == 0 || c >= 0x80) traits |= kNotSevenBit;
  return traits;
}

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

// Whether every code unit of text[0, n) lies in 1..0x7F: 7-bit, no NUL.
inline bool AllSevenBit(const char16_t* text, std::size_t n) {
  const __m128i one = _mm_set1_epi16(1);
  const __m128i top = _mm_set1_epi16(0x7E);
  std::size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    // c - 1 wraps a NUL round to 0xFFFF; anything above 0x7E after that is out.
    const __m128i shifted = _mm_sub_epi16(simd::Load(text + i), one);
    const __m128i over = _mm_subs_epu16(shifted, top);
    if (simd::Mask(_mm_cmpeq_epi16(over, _mm_setzero_si128())) != 0xFFFFu) return false;
  }
  for (; i < n; ++i) {
    if (text[i] == 0 || text[i] >= 0x80) return false;
  }
  return true;
}

inline unsigned ClassifyText(const char16_t* text, std::size_t n) {
  const __m128i lt = _mm_set1_epi16(u'<'), gt = _mm_set1_epi16(u'>'), amp = _mm_set1_epi16(u'&');
  const __m128i apos = _mm_set1_epi16(u'\''), quot = _mm_set1_epi16(u'"');
  const __m128i cr = _mm_set1_epi16(u'\r');
  const __m128i open = _mm_set1_epi16(u'['), close = _mm_set1_epi16(u']');
  const __m128i one = _mm_set1_epi16(1), top = _mm_set1_epi16(0x7E), zero = _mm_setzero_si128();
  __m128i markup = zero, returns = zero, brackets = zero, wide = zero;
  std::size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    const __m128i v = simd::Load(text + i);
    markup = _mm_or_si128(markup,
                          _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi16(v, lt), _mm_cmpeq_epi16(v, gt)),
                                       _mm_cmpeq_epi16(v, amp)));
    markup = _mm_or_si128(markup, _mm_or_si128(_mm_cmpeq_epi16(v, apos), _mm_cmpeq_epi16(v, quot)));
    returns = _mm_or_si128(returns, _mm_cmpeq_epi16(v, cr));
    brackets =
        _mm_or_si128(brackets, _mm_or_si128(_mm_cmpeq_epi16(v, open), _mm_cmpeq_epi16(v, close)));
    wide = _mm_or_si128(wide, _mm_subs_epu16(_mm_sub_epi16(v, one), top));
  }
  unsigned traits = 0;
  if (simd::Mask(markup)) traits |= kMarkupChars;
  if (simd::Mask(returns)) traits |= kCarriageReturn;
  if (simd::Mask(brackets)) traits |= kBrackets;
  if (simd::Mask(_mm_cmpeq_epi16(wide, zero)) != 0xFFFFu) traits |= kNotSevenBit;
  for (; i < n; ++i) traits |= CharTraits(text[i]);
  return traits;
}

// The first of < > & ' " (and, with carriage_return, of CR) in [from, end); end if none.
inline std::size_t FindMarkup(const char16_t* text, std::size_t from, std::size_t end,
                              bool carriage_return) {
  const __m128i lt = _mm_set1_epi16(u'<'), gt = _mm_set1_epi16(u'>'), amp = _mm_set1_epi16(u'&');
  const __m128i apos = _mm_set1_epi16(u'\''), quot = _mm_set1_epi16(u'"');
  const __m128i cr = _mm_set1_epi16(carriage_return ? u'\r' : u'<');
  std::size_t i = from;
  for (; i + 8 <= end; i += 8) {
    const __m128i v = simd::Load(text + i);
    const __m128i a = _mm_or_si128(_mm_cmpeq_epi16(v, lt), _mm_cmpeq_epi16(v, gt));
    const __m128i b = _mm_or_si128(_mm_cmpeq_epi16(v, amp), _mm_cmpeq_epi16(v, apos));
    const __m128i c = _mm_or_si128(_mm_cmpeq_epi16(v, quot), _mm_cmpeq_epi16(v, cr));
    if (const unsigned m = simd::Mask(_mm_or_si128(_mm_or_si128(a, b), c)))
      return i + simd::FirstLane(m);
  }
  for (; i < end; ++i) {
    if (CharTraits(text[i]) & (carriage_return ? kMarkupChars | kCarriageReturn : kMarkupChars))
      return i;
  }
  return end;
}

#else

inline std::size_t FindMarkup(const char16_t* text, std::size_t from, std::size_t end,
                              bool carriage_return) {
  for (std::size_t i = from; i < end; ++i) {
    if (CharTraits(text[i]) & (carriage_return ? kMarkupChars | kCarriageReturn : kMarkupChars))
      return i;
  }
  return end;
}

inline bool AllSevenBit(const char16_t* text, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) {
    if (text[i] == 0 || text[i] >= 0x80) return false;
  }
  return true;
}

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

inline unsigned ClassifyText(const char16_t* text, std::size_t n) {
  unsigned traits = 0;
  for (std::size_t i = 0; i < n; ++i) traits |= CharTraits(text[i]);
  return traits;
}

#endif

// The entity the writer puts for one of < > & ' "; the character itself for any other.
inline std::u16string_view EntityFor(const char16_t& c) {
  switch (c) {
    case u'>':
      return u"&gt;";
    case u'<':
      return u"&lt;";
    case u'&':
      return u"&amp;";
    case u'\'':
      return u"&apos;";
    case u'"':
      return u"&quot;";
    default:
      return std::u16string_view(&c, 1);
  }
}

// The first occurrence of `needle` starting at or after `from`, compared code unit by code unit;
// std::u16string_view::npos when there is none. An empty needle is found at `from`.
std::size_t FindText(std::u16string_view text, std::u16string_view needle, std::size_t from);

}  // namespace xml
