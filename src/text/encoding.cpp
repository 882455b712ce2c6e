#include "text/encoding.h"

#include <climits>

#include "base/text.h"
#include "base/trap.h"
#include "os/codepage.h"
#include "text/utf8.h"

namespace mStringTools {
namespace {

int Length(std::size_t size) {
  if (size > static_cast<std::size_t>(INT_MAX)) base::Raise(base::kOverflow);
  return static_cast<int>(size);
}

}  // namespace

std::u16string EncodingName(std::int32_t Encoding) {
  switch (Encoding) {
    case kAutoDetect:
      return u"AutoDetect";
    case kUnicode:
      return u"UNICODE";
    case kUtf8:
      return u"UTF8";
    case kAnsi:
      return u"ANSI";
    default:
      return u"0x" + base::ToHex(static_cast<std::uint32_t>(Encoding));
  }
}

std::u16string StrDataToUnicode(const std::string& StrData, std::int32_t& Encoding,
                                std::uint32_t CodePage, bool WithBOM, bool& BOMChanged) {
  return base::Trap(base::DansFunction(u"mStringTools.StrDataToUnicode"), std::u16string(), [&] {
    if (StrData.empty()) return std::u16string();
    // UTF-16 is tested first: pure ASCII is neither UTF-16 nor UTF-8 and ends as ANSI.
    if (Encoding == kAutoDetect) {
      Encoding = IsUnicode(StrData) ? kUnicode : mUTF8::IsUTF8(StrData) ? kUtf8 : kAnsi;
    }
    std::u16string text;
    switch (Encoding) {
      case kUnicode:
        text = BytesToStr(StrData);
        break;
      case kUtf8:
        text = StrCodePageToUnicode(StrData, os::kCpUtf8);
        break;
      case kAnsi:
        text = StrCodePageToUnicode(StrData, CodePage);
        break;
      default:
        return std::u16string();
    }
    if (text.empty()) return text;
    const bool has_bom = text[0] == 0xFEFF;
    if (has_bom && !WithBOM) {
      text.erase(0, 1);
      BOMChanged = true;
    } else if (!has_bom && WithBOM) {
      text.insert(text.begin(), char16_t{0xFEFF});
      BOMChanged = true;
    }
    return text;
  });
}

// Both conversions read their source as zero-terminated (length -1), as the program always
// has: std::string and std::u16string keep a terminator after their data.
std::u16string StrCodePageToUnicode(const std::string& bytes, std::uint32_t code_page) {
  return base::Trap(base::DansFunction(u"mStringTools.StrCodePageToUnicode"), std::u16string(),
                    [&] {
                      if (bytes.empty()) return std::u16string();
                      int n = os::MultiByteToWideChar(code_page, bytes.c_str(), -1, nullptr, 0);
                      if (n <= 0) return std::u16string();
                      std::u16string text(static_cast<std::size_t>(n), u'\0');
                      int m = os::MultiByteToWideChar(code_page, bytes.c_str(), -1, text.data(), n);
                      if (m <= 0) return std::u16string();
                      text.resize(static_cast<std::size_t>(m - 1));
                      return text;
                    });
}

std::string StrUnicodeToCodePage(const std::u16string& text, std::uint32_t code_page) {
  return base::Trap(base::DansFunction(u"mStringTools.StrUnicodeToCodePage"), std::string(), [&] {
    if (text.empty()) return std::string();
    int n = os::WideCharToMultiByte(code_page, text.c_str(), -1, nullptr, 0);
    if (n <= 0) return std::string();
    std::string bytes(static_cast<std::size_t>(n), '\0');
    int m = os::WideCharToMultiByte(code_page, text.c_str(), -1, bytes.data(), n);
    if (m <= 0) return std::string();
    bytes.resize(static_cast<std::size_t>(m - 1));
    return bytes;
  });
}

bool IsUnicode(std::string_view bytes) {
  return base::Trap(base::DansFunction(u"mStringTools.IsUnicode"), false, [&] {
    if (bytes.size() < 2) return false;
    int tests = os::kIsTextUnicodeStatistics | os::kIsTextUnicodeSignature;
    return os::IsTextUnicode(bytes.data(), Length(bytes.size()), &tests);
  });
}

std::string StrToBytes(std::u16string_view text) {
  std::string bytes(text.size() * 2, '\0');
  for (std::size_t i = 0; i < text.size(); ++i) {
    bytes[2 * i] = static_cast<char>(text[i] & 0xFF);
    bytes[2 * i + 1] = static_cast<char>(text[i] >> 8);
  }
  return bytes;
}

std::u16string BytesToStr(std::string_view bytes) {
  std::u16string text(bytes.size() / 2, u'\0');
  for (std::size_t i = 0; i < text.size(); ++i) {
    text[i] = static_cast<char16_t>(static_cast<unsigned char>(bytes[2 * i]) |
                                    (static_cast<unsigned char>(bytes[2 * i + 1]) << 8));
  }
  return text;
}

std::string StrToAnsiBytes(std::u16string_view text) {
  return base::Trap(base::DansFunction(u"mStringTools.StrToAnsiBytes"), std::string(), [&] {
    if (text.empty()) return std::string();
    int length = Length(text.size());
    int n = os::WideCharToMultiByte(os::kCpAcp, text.data(), length, nullptr, 0);
    if (n <= 0) return std::string();
    std::string bytes(static_cast<std::size_t>(n), '\0');
    int m = os::WideCharToMultiByte(os::kCpAcp, text.data(), length, bytes.data(), n);
    bytes.resize(m > 0 ? static_cast<std::size_t>(m) : 0);
    return bytes;
  });
}

std::u16string AnsiBytesToStr(std::string_view bytes) {
  return base::Trap(base::DansFunction(u"mStringTools.AnsiBytesToStr"), std::u16string(), [&] {
    if (bytes.empty()) return std::u16string();
    int length = Length(bytes.size());
    int n = os::MultiByteToWideChar(os::kCpAcp, bytes.data(), length, nullptr, 0);
    if (n <= 0) return std::u16string();
    std::u16string text(static_cast<std::size_t>(n), u'\0');
    int m = os::MultiByteToWideChar(os::kCpAcp, bytes.data(), length, text.data(), n);
    text.resize(m > 0 ? static_cast<std::size_t>(m) : 0);
    return text;
  });
}

std::int32_t ArrayLength(std::string_view bytes) {
  return bytes.size() > static_cast<std::size_t>(INT32_MAX)
             ? INT32_MAX
             : static_cast<std::int32_t>(bytes.size());
}

std::string Utf16LeBom() {
  return std::string("\xFF\xFE", 2);
}

}  // namespace mStringTools
