// UTF-8 to UTF-16 for the POSIX side of the seam. Well-formed UTF-8 (checked 32 or 16 bytes at
// a time) is decoded by a fast path; anything else goes through the general decoder, which
// reproduces Windows' replacement of broken sequences byte for byte.
#include "base/utf8.h"

#include <cstdint>
#include <cstring>

#include "base/utf8_scan.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#include <tmmintrin.h>
#endif

namespace base {
namespace {

// Windows' UTF-8 decoding (as Wine answers it): a lead byte C2..F4 announces 1 to 3 continuation
// bytes; a sequence that breaks off is replaced by one U+FFFD covering the bytes read so far; the
// checks for overlong forms, surrogates and values above U+10FFFF are made as the bytes arrive,
// so "ED A0 80" gives two U+FFFD (ED A0, then 80) and "F4 90 80 80" three. A sequence cut by the
// end of the source swallows the rest of the source into one U+FFFD.
constexpr char32_t kBad = 0xFFFFFFFF;

inline bool Continuation(unsigned char c) {
  return (c & 0xC0) == 0x80;
}

// Decodes the sequence whose lead byte s[p - 1] is at least 0x80; advances p past what it used.
inline char32_t DecodeSequence(unsigned char lead, const unsigned char* s, std::size_t& p,
                               std::size_t n) {
  int follow = lead >= 0xC2 && lead <= 0xDF   ? 1
               : lead >= 0xE0 && lead <= 0xEF ? 2
               : lead >= 0xF0 && lead <= 0xF4 ? 3
                                              : 0;
  if (follow == 0) return kBad;
  if (p + follow > n) {
    p = n;
    return kBad;
  }
  char32_t value = lead & (follow == 1 ? 0x1F : follow == 2 ? 0x0F : 0x07);
  if (follow == 3) {
    if (!Continuation(s[p])) return kBad;
    value = (value << 6) | (s[p] & 0x3F);
    ++p;
    if (value < 0x10) return kBad;  // overlong four-byte form
  }
  if (follow >= 2) {
    if (!Continuation(s[p])) return kBad;
    value = (value << 6) | (s[p] & 0x3F);
    if (value >= (0x110000 >> 6)) return kBad;  // above U+10FFFF: this byte is not used
    ++p;
    if (value < 0x20) return kBad;                                      // overlong three-byte form
    if (value >= (0xD800 >> 6) && value <= (0xDFFF >> 6)) return kBad;  // a surrogate
  }
  if (!Continuation(s[p])) return kBad;
  value = (value << 6) | (s[p] & 0x3F);
  ++p;
  return value;
}

// The general decoder, for any bytes: counts (target null) or writes.
bool DecodeCareful(const unsigned char* s, std::size_t n, char16_t* target, std::size_t capacity,
                   std::size_t* written) {
  std::size_t p = 0;
  std::size_t q = 0;
  const bool write = target != nullptr;
  while (p < n) {
#if defined(__SSE2__)
    // ASCII runs 16 bytes at a time: widen the block, keep the part before the first byte >= 0x80.
    if (n - p >= 16 && (!write || capacity - q >= 16)) {
      __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + p));
      unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(block));
      unsigned ascii = mask == 0 ? 16 : static_cast<unsigned>(__builtin_ctz(mask));
      if (write) {
        __m128i zero = _mm_setzero_si128();
        _mm_storeu_si128(reinterpret_cast<__m128i*>(target + q), _mm_unpacklo_epi8(block, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(target + q + 8),
                         _mm_unpackhi_epi8(block, zero));
      }
      p += ascii;
      q += ascii;
      if (ascii == 16) continue;
    }
#endif
    unsigned char c = s[p++];
    char32_t value = c < 0x80 ? char32_t{c} : DecodeSequence(c, s, p, n);
    if (value == kBad) {
      value = 0xFFFD;
    }
    if (value >= 0x10000) {
      if (write) {
        if (capacity - q < 2) return false;
        value -= 0x10000;
        target[q] = static_cast<char16_t>(0xD800 + (value >> 10));
        target[q + 1] = static_cast<char16_t>(0xDC00 + (value & 0x3FF));
      }
      q += 2;
    } else {
      if (write) {
        if (capacity == q) return false;
        target[q] = static_cast<char16_t>(value);
      }
      ++q;
    }
  }
  *written = q;
  return true;
}

#if defined(__SSE2__)

// Unsigned "byte >= v" through the signed comparison, on bytes already flipped by 0x80.
inline __m128i Ge(__m128i flipped, unsigned char v) {
  return _mm_cmpgt_epi8(flipped, _mm_set1_epi8(static_cast<char>((v - 1) ^ 0x80)));
}
// One character of well-formed UTF-8 at s[p], written at target[q].
inline void DecodeOne(const unsigned char* s, std::size_t& p, char16_t* target, std::size_t& q) {
  const unsigned b = s[p];
  if (b < 0x80) {
    target[q++] = static_cast<char16_t>(b);
    p += 1;
  } else if (b < 0xE0) {
    target[q++] = static_cast<char16_t>(((b & 0x1F) << 6) | (s[p + 1] & 0x3F));
    p += 2;
  } else if (b < 0xF0) {
    target[q++] =
        static_cast<char16_t>(((b & 0x0F) << 12) | ((s[p + 1] & 0x3F) << 6) | (s[p + 2] & 0x3F));
    p += 3;
  } else {
    char32_t c = ((b & 0x07u) << 18) | ((s[p + 1] & 0x3Fu) << 12) | ((s[p + 2] & 0x3Fu) << 6) |
                 (s[p + 3] & 0x3Fu);
    c -= 0x10000;
    target[q++] = static_cast<char16_t>(0xD800 + (c >> 10));
    target[q++] = static_cast<char16_t>(0xDC00 + (c & 0x3FF));
    p += 4;
  }
}

// With SSSE3, blocks of one-, two- and three-byte characters are decoded 16 bytes at a time:
// each byte position gets the character that starts there, and the positions that start a
// character are packed together with a byte shuffle.
struct PackTable {
  alignas(16) unsigned char shuffle[256][16];
  unsigned char count[256];
};

const PackTable& Pack() {
  static const PackTable table = [] {
    PackTable t{};
    for (int m = 0; m < 256; ++m) {
      int k = 0;
      for (int j = 0; j < 8; ++j) {
        if (m & (1 << j)) {
          t.shuffle[m][2 * k] = static_cast<unsigned char>(2 * j);
          t.shuffle[m][2 * k + 1] = static_cast<unsigned char>(2 * j + 1);
          ++k;
        }
      }
      for (int r = 2 * k; r < 16; ++r) t.shuffle[m][r] = 0x80;
      t.count[m] = static_cast<unsigned char>(k);
    }
    return t;
  }();
  return table;
}

__attribute__((target("ssse3"))) inline __m128i Select(__m128i mask, __m128i a, __m128i b) {
  return _mm_or_si128(_mm_and_si128(mask, a), _mm_andnot_si128(mask, b));
}

// The character starting at each of eight positions, from the bytes there and after.
__attribute__((target("ssse3"))) inline __m128i Characters(__m128i b0, __m128i b1, __m128i b2) {
  const __m128i low6 = _mm_set1_epi16(0x3F);
  const __m128i two = _mm_or_si128(_mm_slli_epi16(_mm_and_si128(b0, _mm_set1_epi16(0x1F)), 6),
                                   _mm_and_si128(b1, low6));
  const __m128i three = _mm_or_si128(
      _mm_slli_epi16(b0, 12),
      _mm_or_si128(_mm_slli_epi16(_mm_and_si128(b1, low6), 6), _mm_and_si128(b2, low6)));
  const __m128i is_two =
      _mm_cmpeq_epi16(_mm_and_si128(b0, _mm_set1_epi16(0xE0)), _mm_set1_epi16(0xC0));
  const __m128i is_three =
      _mm_cmpeq_epi16(_mm_and_si128(b0, _mm_set1_epi16(0xF0)), _mm_set1_epi16(0xE0));
  return Select(is_three, three, Select(is_two, two, b0));
}

__attribute__((target("ssse3"))) void DecodeWellFormedSsse3(const unsigned char* s, std::size_t n,
                                                            char16_t* target,
                                                            std::size_t capacity) {
  const PackTable& pack = Pack();
  const __m128i zero = _mm_setzero_si128();
  const __m128i flip = _mm_set1_epi8(static_cast<char>(0x80));
  std::size_t p = 0, q = 0;
  while (n - p >= 16 && capacity - q >= 16) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + p));
    const unsigned high = static_cast<unsigned>(_mm_movemask_epi8(block));
    if (high == 0) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(target + q), _mm_unpacklo_epi8(block, zero));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(target + q + 8), _mm_unpackhi_epi8(block, zero));
      p += 16;
      q += 16;
      continue;
    }
    const __m128i x = _mm_xor_si128(block, flip);
    const unsigned four = static_cast<unsigned>(_mm_movemask_epi8(Ge(x, 0xF0)));
    if (four != 0) {
      // A surrogate pair ahead: one character at a time past it.
      const std::size_t end = p + static_cast<unsigned>(__builtin_ctz(four)) + 1;
      while (p < end) DecodeOne(s, p, target, q);
      continue;
    }
    const unsigned cont =
        static_cast<unsigned>(_mm_movemask_epi8(_mm_andnot_si128(Ge(x, 0xC0), block)));
    const unsigned starts = ~cont & 0xFFFF;
    // Characters that start before position 14 are whole within the block; the block is used
    // up to the first character start from there on.
    const unsigned late = starts & 0xC000;
    const unsigned used = late ? static_cast<unsigned>(__builtin_ctz(late)) : 16;
    const unsigned keep = starts & ((1u << used) - 1);
    const __m128i next1 = _mm_srli_si128(block, 1), next2 = _mm_srli_si128(block, 2);
    const __m128i low = Characters(_mm_unpacklo_epi8(block, zero), _mm_unpacklo_epi8(next1, zero),
                                   _mm_unpacklo_epi8(next2, zero));
    const __m128i hi = Characters(_mm_unpackhi_epi8(block, zero), _mm_unpackhi_epi8(next1, zero),
                                  _mm_unpackhi_epi8(next2, zero));
    const unsigned keep_low = keep & 0xFF, keep_high = keep >> 8;
    _mm_storeu_si128(
        reinterpret_cast<__m128i*>(target + q),
        _mm_shuffle_epi8(low,
                         _mm_load_si128(reinterpret_cast<const __m128i*>(pack.shuffle[keep_low]))));
    q += pack.count[keep_low];
    _mm_storeu_si128(
        reinterpret_cast<__m128i*>(target + q),
        _mm_shuffle_epi8(
            hi, _mm_load_si128(reinterpret_cast<const __m128i*>(pack.shuffle[keep_high]))));
    q += pack.count[keep_high];
    p += used;
  }
  while (p < n) DecodeOne(s, p, target, q);
}

bool HasSsse3() {
  static const bool has = __builtin_cpu_supports("ssse3");
  return has;
}

#endif  // __SSE2__

}  // namespace

bool Utf8ToUtf16(const unsigned char* s, std::size_t n, char16_t* target, std::size_t capacity,
                 std::size_t* written) {
#if defined(__SSE2__)
  std::size_t units = 0;
  if (HasSsse3() && utf8_scan::Strict(s, n, &units)) {
    if (target) {
      if (units > capacity) return false;
      DecodeWellFormedSsse3(s, n, target, capacity);
    }
    *written = units;
    return true;
  }
#endif
  return DecodeCareful(s, n, target, capacity, written);
}

bool Utf8ToUtf16Careful(const unsigned char* s, std::size_t n, char16_t* target,
                        std::size_t capacity, std::size_t* written) {
  return DecodeCareful(s, n, target, capacity, written);
}

}  // namespace base
