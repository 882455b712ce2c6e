#include "base/utf8_scan.h"

#include <cstdint>
#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define TVEJECT_UTF8_SCAN_X86 1
#endif

namespace base::utf8_scan {

#if defined(TVEJECT_UTF8_SCAN_X86)

namespace sse2 {

using Vec = __m128i;
constexpr std::size_t kWidth = 16;

inline Vec Load(const unsigned char* p) {
  return _mm_loadu_si128(reinterpret_cast<const Vec*>(p));
}
inline Vec Zero() {
  return _mm_setzero_si128();
}
inline Vec Set1(int v) {
  return _mm_set1_epi8(static_cast<char>(v));
}
inline Vec Xor(Vec a, Vec b) {
  return _mm_xor_si128(a, b);
}
inline Vec Or(Vec a, Vec b) {
  return _mm_or_si128(a, b);
}
inline Vec And(Vec a, Vec b) {
  return _mm_and_si128(a, b);
}
inline Vec AndNot(Vec a, Vec b) {
  return _mm_andnot_si128(a, b);
}
inline Vec CmpGt(Vec a, Vec b) {
  return _mm_cmpgt_epi8(a, b);
}
inline Vec CmpEq(Vec a, Vec b) {
  return _mm_cmpeq_epi8(a, b);
}
inline Vec AddB(Vec a, Vec b) {
  return _mm_add_epi8(a, b);
}
inline Vec SubB(Vec a, Vec b) {
  return _mm_sub_epi8(a, b);
}
inline Vec SubsU(Vec a, Vec b) {
  return _mm_subs_epu8(a, b);
}
inline Vec MaxU(Vec a, Vec b) {
  return _mm_max_epu8(a, b);
}
inline unsigned Mask(Vec a) {
  return static_cast<unsigned>(_mm_movemask_epi8(a));
}
inline Vec SumBytes(Vec a) {
  return _mm_sad_epu8(a, _mm_setzero_si128());
}
inline Vec Add64(Vec a, Vec b) {
  return _mm_add_epi64(a, b);
}
inline std::uint64_t Sum64(Vec a) {
  std::uint64_t v[2];
  _mm_storeu_si128(reinterpret_cast<Vec*>(v), a);
  return v[0] + v[1];
}
// Lane i holds the byte K places before it, reaching into the previous block.
template <int K>
inline Vec Before(Vec cur, Vec prev) {
  return _mm_or_si128(_mm_slli_si128(cur, K), _mm_srli_si128(prev, 16 - K));
}
// Unsigned "byte >= v" on bytes flipped by 0x80.
inline Vec Ge(Vec flipped, int v) {
  return _mm_cmpgt_epi8(flipped, Set1((v - 1) ^ 0x80));
}
// Per lane, the most a lead byte there may owe without reaching into the next block (the last
// `reach` lanes; no limit elsewhere).
inline Vec OwesNext(int reach) {
  alignas(16) signed char t[kWidth];
  for (std::size_t i = 0; i < kWidth; ++i) {
    int left = static_cast<int>(kWidth - 1 - i);
    t[i] = static_cast<signed char>(left < reach ? left : 127);
  }
  return _mm_load_si128(reinterpret_cast<const Vec*>(t));
}

#include "base/utf8_scan_blocks.inc"

}  // namespace sse2

// Everything up to the matching pop is compiled for AVX2; it only runs where the processor
// has it.
#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2")
#endif

namespace avx2 {

using Vec = __m256i;
constexpr std::size_t kWidth = 32;

inline Vec Load(const unsigned char* p) {
  return _mm256_loadu_si256(reinterpret_cast<const Vec*>(p));
}
inline Vec Zero() {
  return _mm256_setzero_si256();
}
inline Vec Set1(int v) {
  return _mm256_set1_epi8(static_cast<char>(v));
}
inline Vec Xor(Vec a, Vec b) {
  return _mm256_xor_si256(a, b);
}
inline Vec Or(Vec a, Vec b) {
  return _mm256_or_si256(a, b);
}
inline Vec And(Vec a, Vec b) {
  return _mm256_and_si256(a, b);
}
inline Vec AndNot(Vec a, Vec b) {
  return _mm256_andnot_si256(a, b);
}
inline Vec CmpGt(Vec a, Vec b) {
  return _mm256_cmpgt_epi8(a, b);
}
inline Vec CmpEq(Vec a, Vec b) {
  return _mm256_cmpeq_epi8(a, b);
}
inline Vec AddB(Vec a, Vec b) {
  return _mm256_add_epi8(a, b);
}
inline Vec SubB(Vec a, Vec b) {
  return _mm256_sub_epi8(a, b);
}
inline Vec SubsU(Vec a, Vec b) {
  return _mm256_subs_epu8(a, b);
}
inline Vec MaxU(Vec a, Vec b) {
  return _mm256_max_epu8(a, b);
}
inline unsigned Mask(Vec a) {
  return static_cast<unsigned>(_mm256_movemask_epi8(a));
}
inline Vec SumBytes(Vec a) {
  return _mm256_sad_epu8(a, _mm256_setzero_si256());
}
inline Vec Add64(Vec a, Vec b) {
  return _mm256_add_epi64(a, b);
}
inline std::uint64_t Sum64(Vec a) {
  std::uint64_t v[4];
  _mm256_storeu_si256(reinterpret_cast<Vec*>(v), a);
  return v[0] + v[1] + v[2] + v[3];
}
template <int K>
inline Vec Before(Vec cur, Vec prev) {
  // The halves [previous high, current low] give alignr the bytes that cross the middle.
  return _mm256_alignr_epi8(cur, _mm256_permute2x128_si256(prev, cur, 0x21), 16 - K);
}
inline Vec Ge(Vec flipped, int v) {
  return _mm256_cmpgt_epi8(flipped, Set1((v - 1) ^ 0x80));
}
inline Vec OwesNext(int reach) {
  alignas(32) signed char t[kWidth];
  for (std::size_t i = 0; i < kWidth; ++i) {
    int left = static_cast<int>(kWidth - 1 - i);
    t[i] = static_cast<signed char>(left < reach ? left : 127);
  }
  return _mm256_load_si256(reinterpret_cast<const Vec*>(t));
}

#include "base/utf8_scan_blocks.inc"

}  // namespace avx2

#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif

namespace {
bool HasAvx2() {
  static const bool has = __builtin_cpu_supports("avx2");
  return has;
}
}  // namespace

bool Lenient(const unsigned char* s, std::size_t n) {
  return HasAvx2() ? avx2::ScanLenient(s, n) : sse2::ScanLenient(s, n);
}

bool Strict(const unsigned char* s, std::size_t n, std::size_t* units) {
  return HasAvx2() ? avx2::ScanStrict(s, n, units) : sse2::ScanStrict(s, n, units);
}

bool LenientBaseline(const unsigned char* s, std::size_t n) {
  return sse2::ScanLenient(s, n);
}

bool StrictBaseline(const unsigned char* s, std::size_t n, std::size_t* units) {
  return sse2::ScanStrict(s, n, units);
}

#else  // no vector unit: byte by byte

bool Lenient(const unsigned char* s, std::size_t n) {
  bool multi = false;
  for (std::size_t i = 0; i < n;) {
    const unsigned lead = s[i];
    if (lead < 0x80) {
      ++i;
      continue;
    }
    int follow = (lead & 0xE0) == 0xC0   ? 1
                 : (lead & 0xF0) == 0xE0 ? 2
                 : (lead & 0xF8) == 0xF0 ? 3
                 : (lead & 0xFC) == 0xF8 ? 4
                 : (lead & 0xFE) == 0xFC ? 5
                                         : -1;
    if (follow < 0 || static_cast<std::size_t>(follow) > n - i - 1) return false;
    for (int k = 1; k <= follow; ++k) {
      if ((s[i + k] & 0xC0) != 0x80) return false;
    }
    multi = true;
    i += static_cast<std::size_t>(follow) + 1;
  }
  return multi;
}

bool Strict(const unsigned char*, std::size_t, std::size_t*) {
  return false;
}

#endif

}  // namespace base::utf8_scan
