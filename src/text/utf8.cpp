#include "text/utf8.h"

#include "base/trap.h"
#include "base/utf8_scan.h"
#include "text/encoding.h"

namespace mUTF8 {

bool IsUTF8(std::string_view bytes) {
  return base::Trap(base::DansFunction(u"mUTF8.IsUTF8"), false, [&] {
    return base::utf8_scan::Lenient(reinterpret_cast<const unsigned char*>(bytes.data()),
                                    bytes.size());
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
