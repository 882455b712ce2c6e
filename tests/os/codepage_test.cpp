// The code-page seam against the Windows answers: these tables run unchanged natively and, in
// the Windows build, against the real API under Wine.
#include "os/codepage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <tuple>

#include "os/types.h"

namespace {

// MultiByteToWideChar over the given bytes (length -1 when whole is false: up to the first
// zero byte, terminator included in the answer), as hex units.
std::string Decode(std::uint32_t cp, const std::string& bytes, bool whole = false) {
  const int length = whole ? static_cast<int>(bytes.size()) : -1;
  const int n = os::MultiByteToWideChar(cp, bytes.c_str(), length, nullptr, 0);
  std::u16string out(static_cast<std::size_t>(std::max(n, 0)), u'\0');
  EXPECT_EQ(os::MultiByteToWideChar(cp, bytes.c_str(), length, out.data(), n), n);
  std::string hex;
  for (char16_t c : out)
    for (int shift : {16, 12, 8, 4, 0})
      hex += shift == 16 ? ' ' : "0123456789ABCDEF"[(c >> shift) & 15];
  return hex;
}

std::string Encode(std::uint32_t cp, const std::u16string& text) {
  const int n = os::WideCharToMultiByte(cp, text.c_str(), -1, nullptr, 0);
  std::string out(static_cast<std::size_t>(std::max(n, 0)), '\0');
  EXPECT_EQ(os::WideCharToMultiByte(cp, text.c_str(), -1, out.data(), n), n);
  return out;
}

TEST(CodePage, DecodingReplacesBrokenSequencesAsWindowsDoes) {
  struct Row {
    std::uint32_t cp;
    std::string bytes;
    const char* units;
    bool whole = false;  // explicit length instead of -1
  } rows[] = {
      // clang-format off
      // A lead byte before the end; overlong; a surrogate (ED A0 is one); cut short; above
      // U+10FFFF.
      {65001, "\xC3\xA9\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF", " 00E9 D83D DE00 DBFF DFFF 0000"},
      {65001, "a\xC3", " 0061 FFFD 0000"}, {65001, "\xC0\xAF", " FFFD FFFD 0000"},
      {65001, "\xED\xA0\x80z", " FFFD FFFD 007A 0000"}, {65001, "\xE2\x82z", " FFFD 007A 0000"},
      {65001, "\xF4\x90\x80\x80", " FFFD FFFD FFFD 0000"}, {65001, "\xF0\x9F", " FFFD", true},
      {65001, "\xF5\x80\x80\x80", " FFFD FFFD FFFD FFFD 0000"},
      {65001, "A\xC3", " 0041 FFFD", true}, {1253, "\xC1\xE1", " 0391 03B1 0000"},
      {65001, "\x80\xFEz", " FFFD FFFD 007A 0000"}, {65001, "\xC2\xC3\xA9", " FFFD 00E9 0000"},
      {65001, std::string("AB\0CD", 5), " 0041 0042 0000"},
      {65001, std::string("\xC3\0\xA9", 3), " FFFD 0000 FFFD", true},
      {932, "\x82\xA0\x93\xFA", " 3042 65E5 0000"},
      // clang-format on
  };
  for (const Row& row : rows) EXPECT_EQ(Decode(row.cp, row.bytes, row.whole), row.units);
}

TEST(CodePage, Windows1252RoundTripsEveryByte) {
  // Bytes 0x80..0x9F as Windows maps them; the five it leaves undefined pass through.
  const char16_t high[32] = {0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                             0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                             0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                             0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};
  for (int b = 0; b < 256; ++b) {
    const char byte = static_cast<char>(b);
    char16_t unit = 0;
    ASSERT_EQ(os::MultiByteToWideChar(1252, &byte, 1, &unit, 1), 1) << b;
    EXPECT_EQ(unit, b >= 0x80 && b < 0xA0 ? high[b - 0x80] : char16_t(b)) << "byte " << b;
    char back = 0;
    ASSERT_EQ(os::WideCharToMultiByte(1252, &unit, 1, &back, 1), 1) << b;
    EXPECT_EQ(static_cast<unsigned char>(back), b);
  }
}

TEST(CodePage, EncodingFallsBackToLookAlikesThenQuestionMarksAndRefuses) {
  const std::u16string lone = std::u16string(u"a") + char16_t(0xD800) + u"b";
  const struct {
    std::uint32_t cp;
    std::u16string text;
    std::string bytes;
  } rows[] = {
      // clang-format off
      {1252, u"\u0100\u0141\uFF21\u2033", "ALA?"},  // Ā Ł full-width A; double prime has no match
      {1252, u"\u4E00\U0001F600", "???"},            // each half of a pair on its own
      {1252, u"\u20AC\u00E9\u0081", "\x80\xE9\x81"}, {1251, u"\u041F\u0440\u0438", "\xCF\xF0\xE8"},
      {932, u"\u3042\u65E5", "\x82\xA0\x93\xFA"}, {65001, lone, "a\xEF\xBF\xBD" "b"},
      {65001, u"\U0001F600\u00E9", "\xF0\x9F\x98\x80\xC3\xA9"},
      // clang-format on
  };
  for (const auto& row : rows) EXPECT_EQ(Encode(row.cp, row.text), row.bytes + '\0');

  char16_t small[2];
  // Sizing with and without a length, an empty source, a short buffer, unknown pages.
  for (auto [cp, source, length, target, target_length, result, error] :
       {std::tuple<std::uint32_t, const char*, int, char16_t*, int, int, std::uint32_t>{
            1252, "abc", -1, nullptr, 0, 4, 0},
        // clang-format off
        {1252, "abc", 3, nullptr, 0, 3, 0},
        {1252, "abc", -1, small, 2, 0, os::kErrorInsufficientBuffer},
        {65001, "abc", 0, nullptr, 0, 0, os::kErrorInvalidParameter},
        {12345, "abc", -1, nullptr, 0, 0, os::kErrorInvalidParameter},
        {1200, "abc", -1, nullptr, 0, 0, os::kErrorInvalidParameter},  // UTF-16 is no such page
        {0, nullptr, -1, nullptr, 0, 0, os::kErrorInvalidParameter}}) {
    // clang-format on
    os::SetLastError(0);
    EXPECT_EQ(os::MultiByteToWideChar(cp, source, length, target, target_length), result);
    EXPECT_EQ(os::GetLastError(), error) << cp;
  }
  char bytes[2];
  EXPECT_EQ(os::WideCharToMultiByte(1252, u"abc", -1, bytes, 2), 0);
  EXPECT_EQ(os::GetLastError(), os::kErrorInsufficientBuffer);
  EXPECT_EQ(os::WideCharToMultiByte(1252, u"abc", 3, nullptr, 0), 3);
}

std::string Utf16(const std::u16string& s) {
  std::string out;
  for (char16_t c : s) out += {static_cast<char>(c & 0xFF), static_cast<char>(c >> 8)};
  return out;
}

TEST(CodePage, IsTextUnicodeStatisticsAndSignature) {
  std::mt19937 random(20261121);
  std::string noise;
  for (int i = 0; i < 600; ++i) noise += static_cast<char>(random() & 0xFF);
  struct Row {
    std::string bytes;
    bool unicode;
    int passed;  // the tests of 10 (statistics 2, signature 8) the data passes
  } rows[] = {
      // clang-format off
      {"Hello world, this is plain ASCII text.", false, 0}, {Utf16(u"Hello world"), true, 2},
      {Utf16(u"\u041F\u0440\u0438\u0432\u0435\u0442 \u043C\u0438\u0440"), false, 0},  // blanks only
      {Utf16(u"\uFEFF\u041F\u0440\u0438\u0432\u0435\u0442"), true, 8},
      {Utf16(u"\uFEFFHello"), true, 10}, {Utf16(u"\uFFFEHello"), true, 2},
      {Utf16(u"ab\u4F60\u597D"), false, 0},  // half the units low is not more than half
      {"Caf\xC3\xA9 cr\xC3\xA8me br\xC3\xBBl\xC3\xA9" "e", false, 0}, {noise, false, 0},
      {std::string("A\0", 2), false, 0},  // the zero last byte is not looked at
      {std::string("a\0b\0c", 5), true, 2},
      {Utf16(std::u16string(256, u'\u0436')) + Utf16(std::u16string(1000, u'e')), false, 0},
      {Utf16(std::u16string(256, u'e')) + Utf16(std::u16string(1000, u'\u0436')), true, 2},
      // clang-format on
  };
  for (const Row& row : rows) {
    int tests = os::kIsTextUnicodeStatistics | os::kIsTextUnicodeSignature;
    EXPECT_EQ(os::IsTextUnicode(row.bytes.data(), static_cast<int>(row.bytes.size()), &tests),
              row.unicode)
        << row.bytes;
    EXPECT_EQ(tests, row.passed) << row.bytes;
  }
}

}  // namespace
