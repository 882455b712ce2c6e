#include "text/strings.h"

#include <array>

#include "base/trap.h"
#include "text/encoding.h"
#include "text/utf8.h"

namespace mStringTools {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The 6-bit value of a symbol; 0 for a character outside the alphabet ("=" included).
constexpr std::array<std::uint8_t, 128> kValue = [] {
  std::array<std::uint8_t, 128> t{};
  for (int i = 0; i < 64; ++i)
    t[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::uint8_t>(i);
  return t;
}();

std::int32_t Resolve(std::int32_t mode, const std::string& input) {
  return mode == 0 ? (IsUnicode(input) ? 2 : 1) : mode;
}

bool Sep(char16_t c) {
  return c == u'\\' || c == u'/';
}

}  // namespace

std::string Base64_Decode(const std::string& text, std::int32_t input_mode,
                          std::int32_t output_mode) {
  const std::int32_t in_mode = Resolve(input_mode, text);
  const std::int32_t out_mode = Resolve(output_mode, text);
  const std::u16string symbols = in_mode == 2 ? BytesToStr(text) : AnsiBytesToStr(text);
  if (symbols.empty() || symbols.size() % 4 != 0) return std::string();

  std::string bytes(symbols.size() / 4 * 3, '\0');
  for (std::size_t g = 0; g < symbols.size() / 4; ++g) {
    // The first symbol of the group lands in the word's most significant byte; the three bytes
    // are then read out of the word under fixed masks.
    std::uint32_t word = 0;
    for (int k = 0; k < 4; ++k) {
      char16_t c = symbols[4 * g + k];
      std::uint32_t value = c < 128 ? kValue[c] : 0;
      word |= value << (8 * (3 - k));
    }
    bytes[3 * g] = static_cast<char>(mUTF8::ReadLongBits(word, 0x3F300000));
    bytes[3 * g + 1] = static_cast<char>(mUTF8::ReadLongBits(word, 0x000F3C00));
    bytes[3 * g + 2] = static_cast<char>(mUTF8::ReadLongBits(word, 0x0000033F));
  }
  std::size_t pad = symbols.find(u'=');
  if (pad != std::u16string::npos) {
    std::size_t cut = symbols.size() - pad;
    if (cut >= bytes.size()) return std::string();
    bytes.resize(bytes.size() - cut);
  }
  return out_mode == 2 ? StrToBytes(AnsiBytesToStr(bytes)) : bytes;
}

std::string Base64_Encode(const std::string& data, std::int32_t input_mode,
                          std::int32_t output_mode) {
  return base::Trap(base::DansFunction(u"mStringTools.Base64_Encode"), std::string(), [&] {
    const std::int32_t in_mode = Resolve(input_mode, data);
    const std::int32_t out_mode = Resolve(output_mode, data);
    const std::string bytes = in_mode == 2 ? StrToAnsiBytes(BytesToStr(data)) : data;
    std::string symbols;
    symbols.reserve((bytes.size() + 2) / 3 * 4);
    std::int32_t count = 0;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
      const std::uint32_t b0 = static_cast<unsigned char>(bytes[i]);
      const std::size_t left = bytes.size() - i;
      const std::uint32_t b1 = left > 1 ? static_cast<unsigned char>(bytes[i + 1]) : 0;
      const std::uint32_t b2 = left > 2 ? static_cast<unsigned char>(bytes[i + 2]) : 0;
      symbols += kAlphabet[mUTF8::ReadByteBits(static_cast<std::uint8_t>(b0), 0xFC, count)];
      symbols += kAlphabet[mUTF8::ReadLongBits((b0 << 8) | b1, 0x3F0)];
      symbols += left > 1 ? kAlphabet[mUTF8::ReadLongBits((b1 << 8) | b2, 0xFC0)] : '=';
      symbols += left > 2
                     ? kAlphabet[mUTF8::ReadByteBits(static_cast<std::uint8_t>(b2), 0x3F, count)]
                     : '=';
    }
    if (out_mode != 2) return symbols;
    std::u16string text(symbols.begin(), symbols.end());
    return StrToBytes(text);
  });
}

std::u16string SplitLines(std::u16string_view text, std::int32_t line_length) {
  return base::Trap(base::InFunction(u"mStringTools.SplitLines"), std::u16string(), [&] {
    // A zero width would never consume the text; both it and a negative one are refused.
    if (line_length < 1) base::Raise(base::kInvalidCall);
    const auto width = static_cast<std::size_t>(line_length);
    std::u16string out;
    out.reserve(text.size() + (text.size() / width + 1) * 2);
    while (!text.empty()) {
      out += text.substr(0, width);
      out += u"\r\n";
      text.remove_prefix(text.size() < width ? text.size() : width);
    }
    return out;
  });
}

std::u16string AddBackSlash(std::u16string& path) {
  return base::Trap(base::InFunction(u"mStringTools.AddBackSlash"), std::u16string(), [&] {
    if (path.empty() || !Sep(path.back())) {
      path += path.find(u'/') != std::u16string::npos ? u'/' : u'\\';
    }
    return path;
  });
}

std::u16string PathRoot(std::u16string_view path) {
  std::u16string p(path);
  for (char16_t& c : p) {
    if (c == u'/') c = u'\\';
  }
  if (p.compare(0, 4, u"\\\\?\\") == 0) p.erase(0, 4);
  if (p.compare(0, 2, u"\\\\") == 0) {
    // \\server\share\...: keep the server and the share.
    std::size_t first = p.find(u'\\', 2);
    std::size_t second = first == std::u16string::npos ? first : p.find(u'\\', first + 1);
    if (second != std::u16string::npos) p.resize(second);
    return p + u'\\';
  }
  if (p.size() >= 3 && p[1] == u':' && p[2] == u'\\') return p.substr(0, 3);
  if (p.size() == 2 && p[1] == u':') return p + u'\\';
  return std::u16string();
}

}  // namespace mStringTools
