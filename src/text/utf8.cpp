#include "text/utf8.h"

#include <array>

#include "base/trap.h"
#include "text/encoding.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace mUTF8 {
namespace {

// Continuation bytes announced by a lead byte, by its high bits: 110xxxxx one, 1110xxxx two,
// 11110xxx three, 111110xx four, 1111110x five; -1 for a byte that cannot start a sequence.
constexpr std::array<std::int8_t, 256> kFollow = [] {
  std::array<std::int8_t, 256> t{};
  for (int b = 0; b < 256; ++b) {
    t[b] = b < 0x80             ? 0
           : (b & 0xE0) == 0xC0 ? 1
           : (b & 0xF0) == 0xE0 ? 2
           : (b & 0xF8) == 0xF0 ? 3
           : (b & 0xFC) == 0xF8 ? 4
           : (b & 0xFE) == 0xFC ? 5
                                : -1;
  }
  return t;
}();

bool ScanUtf8(const unsigned char* s, std::size_t n) {
  bool multi = false;
  std::size_t i = 0;
  while (i < n) {
#if defined(__SSE2__)
    // Skip ASCII 16 bytes at a time, up to the first byte with its high bit set.
    while (n - i >= 16) {
      __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i));
      unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(block));
      if (mask != 0) {
        i += static_cast<unsigned>(__builtin_ctz(mask));
        break;
      }
      i += 16;
    }
    if (i >= n) break;
#endif
    const unsigned char lead = s[i];
    if (lead < 0x80) {
      ++i;
      continue;
    }
    const int follow = kFollow[lead];
    if (follow < 0) return false;
    if (follow > static_cast<int>(n - i - 1)) return false;
    for (int k = 1; k <= follow; ++k) {
      if ((s[i + k] & 0xC0) != 0x80) return false;
    }
    multi = true;
    i += static_cast<std::size_t>(follow) + 1;
  }
  return multi;
}

}  // namespace

bool IsUTF8(std::string_view bytes) {
  return base::Trap(base::DansFunction(u"mUTF8.IsUTF8"), false, [&] {
    return ScanUtf8(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
  });
}

std::u16string UTF8_Decode(std::string_view text, std::int32_t mode) {
  return base::Trap(base::DansFunction(u"mUTF8.UTF8_Decode"), std::u16string(), [&] {
    if (text.empty()) return std::u16string();
    if (mode == 0) mode = mStringTools::IsUnicode(text) ? 2 : 1;
    std::string bytes = mode == 2 ? mStringTools::StrToAnsiBytes(mStringTools::BytesToStr(text))
                                  : std::string(text);
    return mStringTools::StrCodePageToUnicode(bytes, 65001);
  });
}

std::string UTF8_Encode(const std::u16string& text, bool AsBytes) {
  return base::Trap(base::DansFunction(u"mUTF8.UTF8_Encode"), std::string(), [&] {
    if (text.empty()) return std::string();
    std::string bytes = mStringTools::StrUnicodeToCodePage(text, 65001);
    if (AsBytes) return bytes;
    return mStringTools::StrToBytes(mStringTools::AnsiBytesToStr(bytes));
  });
}

std::uint8_t ReadByteBits(std::uint8_t value, std::uint8_t mask, std::int32_t& count) {
  std::uint8_t result = 0;
  std::int32_t c = 0;
  for (int k = 0; k < 8; ++k) {
    if (mask & (1u << k)) {
      if (value & (1u << k)) result = static_cast<std::uint8_t>(result | (1u << c));
      ++c;
    }
  }
  count = c;
  return result;
}

std::uint32_t ReadLongBits(std::uint32_t value, std::uint32_t mask) {
  std::uint32_t result = 0;
  std::int32_t shift = 0;
  for (int k = 0; k < 4; ++k) {
    std::int32_t count = 0;
    std::uint32_t bits = ReadByteBits(static_cast<std::uint8_t>(value >> (8 * k)),
                                      static_cast<std::uint8_t>(mask >> (8 * k)), count);
    result += bits << shift;
    shift += count;
  }
  return result;
}

std::uint32_t WriteLongBits(std::uint32_t bits, std::uint32_t mask) {
  std::uint32_t result = 0;
  int c = 0;
  for (int k = 0; k < 32; ++k) {
    if (mask & (1u << k)) {
      if (bits & (1u << c)) result |= 1u << k;
      ++c;
    }
  }
  return result;
}

std::uint32_t SetLongBit(std::uint32_t value, std::int32_t bit, bool on) {
  return base::Trap(base::DansFunction(u"mUTF8.SetLongBit"), std::uint32_t{0}, [&] {
    if (bit < 0 || bit > 31) base::Raise(base::kInvalidCall);
    return on ? value | (1u << bit) : value & ~(1u << bit);
  });
}

bool IsBitSet(std::uint32_t value, std::int32_t bit) {
  return base::Trap(base::DansFunction(u"mUTF8.IsBitSet"), false, [&] {
    if (bit < 0 || bit > 31) base::Raise(base::kInvalidCall);
    return (value & (1u << bit)) != 0;
  });
}

}  // namespace mUTF8
