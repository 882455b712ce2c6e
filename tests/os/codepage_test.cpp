// The code-page seam against the Windows answers: these tables run unchanged natively and, in
// the Windows build, against the real API under Wine.
#include "os/codepage.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <random>
#include <string>

#include "os/types.h"

namespace {

// MultiByteToWideChar over the given bytes (length -1 when whole is false: up to the first
// zero byte, terminator included in the answer).
std::u16string Decode(std::uint32_t cp, const std::string& bytes, bool whole = false) {
  int length = whole ? static_cast<int>(bytes.size()) : -1;
  int n = os::MultiByteToWideChar(cp, bytes.c_str(), length, nullptr, 0);
  std::u16string out(static_cast<std::size_t>(n > 0 ? n : 0), u'\0');
  int m = n > 0 ? os::MultiByteToWideChar(cp, bytes.c_str(), length, out.data(), n) : 0;
  EXPECT_EQ(m, n) << "sizing and conversion disagree";
  return out;
}

std::string Encode(std::uint32_t cp, const std::u16string& text) {
  int n = os::WideCharToMultiByte(cp, text.c_str(), -1, nullptr, 0);
  std::string out(static_cast<std::size_t>(n > 0 ? n : 0), '\0');
  int m = n > 0 ? os::WideCharToMultiByte(cp, text.c_str(), -1, out.data(), n) : 0;
  EXPECT_EQ(m, n);
  return out;
}

std::string Hex(const std::u16string& s) {
  std::string out;
  char buf[8];
  for (char16_t c : s) {
    std::snprintf(buf, sizeof buf, " %04X", static_cast<unsigned>(c));
    out += buf;
  }
  return out;
}

std::string Utf16(const std::u16string& s) {
  std::string out;
  for (char16_t c : s) {
    out += static_cast<char>(c & 0xFF);
    out += static_cast<char>(c >> 8);
  }
  return out;
}

TEST(CodePage, Utf8DecodingReplacesBrokenSequencesAsWindowsDoes) {
  struct Row {
    const char* label;
    std::string bytes;
    bool whole;  // explicit length instead of -1
    std::u16string expected;
  } rows[] = {
      {"é € U+1F600", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", false,
       std::u16string(u"\u00E9\u20AC\U0001F600") + u'\0'},
      {"U+10FFFF, the last code point", "\xF4\x8F\xBF\xBF", false,
       std::u16string(u"\U0010FFFF") + u'\0'},
      {"UTF-8 mark",
       "\xEF\xBB\xBF"
       "A",
       false, std::u16string(u"\uFEFFA") + u'\0'},
      {"lead byte before the terminator", "a\xC3", false, std::u16string(u"a\uFFFD") + u'\0'},
      {"overlong slash C0 AF", "\xC0\xAF", false, std::u16string(u"\uFFFD\uFFFD") + u'\0'},
      {"surrogate ED A0 80: ED A0 is one", "\xED\xA0\x80z", false,
       std::u16string(u"\uFFFD\uFFFDz") + u'\0'},
      {"three-byte form cut short", "\xE2\x82z", false, std::u16string(u"\uFFFDz") + u'\0'},
      {"above U+10FFFF: F4 90 is one", "\xF4\x90\x80\x80", false,
       std::u16string(u"\uFFFD\uFFFD\uFFFD") + u'\0'},
      {"F5 never leads", "\xF5\x80\x80\x80", false,
       std::u16string(u"\uFFFD\uFFFD\uFFFD\uFFFD") + u'\0'},
      {"five-byte form", "\xF8\x88\x80\x80\x80", false,
       std::u16string(u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD") + u'\0'},
      {"stray continuation bytes", "\x80\x80z", false, std::u16string(u"\uFFFD\uFFFDz") + u'\0'},
      {"FE FF", "\xFE\xFFz", false, std::u16string(u"\uFFFD\uFFFDz") + u'\0'},
      {"overlong three-byte form", "\xE0\x80\x80", false, std::u16string(u"\uFFFD\uFFFD") + u'\0'},
      {"overlong four-byte form", "\xF0\x80\x80\x80", false,
       std::u16string(u"\uFFFD\uFFFD\uFFFD") + u'\0'},
      {"four-byte form cut short", "\xF0\x9F\x98z", false, std::u16string(u"\uFFFDz") + u'\0'},
      {"lead followed by a lead", "\xC2\xC3\xA9", false, std::u16string(u"\uFFFD\u00E9") + u'\0'},
      {"embedded zero ends a -1 source", std::string("AB\0CD", 5), false,
       std::u16string(u"AB") + u'\0'},
      {"cut by the end of the source swallows it", std::string("\xF0\x9F", 2), false, u"\uFFFD"},
      {"explicit length: E2 41", "\xE2\x41", true, u"\uFFFD"},
      {"explicit length: F0 9F 41", "\xF0\x9F\x41", true, u"\uFFFD"},
      {"explicit length: A then C3", "\x41\xC3", true, u"A\uFFFD"},
      {"explicit length: zero inside", std::string("\xC3\0\xA9", 3), true,
       std::u16string(u"\uFFFD") + u'\0' + u"\uFFFD"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(Hex(Decode(os::kCpUtf8, row.bytes, row.whole)), Hex(row.expected)) << row.label;
  }
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
    const char16_t expected = b >= 0x80 && b < 0xA0 ? high[b - 0x80] : char16_t(b);
    EXPECT_EQ(unit, expected) << "byte " << b;
    char back = 0;
    ASSERT_EQ(os::WideCharToMultiByte(1252, &unit, 1, &back, 1), 1) << b;
    EXPECT_EQ(static_cast<unsigned char>(back), b);
  }
}

TEST(CodePage, EncodingFallsBackToLookAlikesThenQuestionMarks) {
  std::u16string lone = u"a";
  lone += char16_t(0xD800);
  lone += u'b';
  const struct {
    std::uint32_t cp;
    std::u16string text;
    std::string bytes;
  } rows[] = {
      {1252, u"\u0100\u0141", "AL"},  // Ā Ł written as similar letters
      {1252, u"\uFF21\u2033", "A?"},  // full-width A; double prime has no match
      {1252, u"\u4E00", "?"},         // a CJK character
      {1252, u"\u20AC\u00E9\u0081", "\x80\xE9\x81"},
      {1252, u"\U0001F600", "??"},  // each half of the pair on its own
      {65001, lone,
       "a\xEF\xBF\xBD"
       "b"},
      {65001, u"\U0001F600\u00E9", "\xF0\x9F\x98\x80\xC3\xA9"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(Encode(row.cp, row.text), row.bytes + '\0') << Hex(row.text);
}

TEST(CodePage, SizesAndRefusals) {
  char16_t small[2];
  struct Row {
    const char* label;
    std::uint32_t cp;
    const char* source;
    int length;
    char16_t* target;
    int target_length;
    int result;
    std::uint32_t error;  // checked when result is 0
  } rows[] = {
      {"size of a -1 source counts the terminator", 1252, "abc", -1, nullptr, 0, 4, 0},
      {"size of an explicit length does not", 1252, "abc", 3, nullptr, 0, 3, 0},
      {"zero-length source", 65001, "abc", 0, nullptr, 0, 0, os::kErrorInvalidParameter},
      {"target too small", 1252, "abc", -1, small, 2, 0, os::kErrorInsufficientBuffer},
      {"unknown code page", 12345, "abc", -1, nullptr, 0, 0, os::kErrorInvalidParameter},
      {"UTF-16 is no multi-byte code page", 1200, "abc", -1, nullptr, 0, 0,
       os::kErrorInvalidParameter},
      {"null source", 0, nullptr, -1, nullptr, 0, 0, os::kErrorInvalidParameter},
  };
  for (const Row& row : rows) {
    os::SetLastError(0);
    int r = os::MultiByteToWideChar(row.cp, row.source, row.length, row.target, row.target_length);
    EXPECT_EQ(r, row.result) << row.label;
    if (row.result == 0) {
      EXPECT_EQ(os::GetLastError(), row.error) << row.label;
    }
  }
  char bytes[2];
  EXPECT_EQ(os::WideCharToMultiByte(1252, u"abc", -1, bytes, 2), 0);
  EXPECT_EQ(os::GetLastError(), os::kErrorInsufficientBuffer);
  EXPECT_EQ(os::WideCharToMultiByte(1252, u"abc", 3, nullptr, 0), 3);
}

TEST(CodePage, OtherCodePagesConvertTheirOwnLetters) {
  // Cyrillic in 1251, Greek in 1253, Japanese in 932: the letters every table agrees on.
  EXPECT_EQ(Hex(Decode(1251, "\xCF\xF0\xE8")), Hex(std::u16string(u"\u041F\u0440\u0438") + u'\0'));
  EXPECT_EQ(Hex(Decode(1253, "\xC1\xE1")), Hex(std::u16string(u"\u0391\u03B1") + u'\0'));
  EXPECT_EQ(Hex(Decode(932, "\x82\xA0\x93\xFA")), Hex(std::u16string(u"\u3042\u65E5") + u'\0'));
  EXPECT_EQ(Encode(1251, u"\u041F\u0440\u0438"), std::string("\xCF\xF0\xE8", 3) + '\0');
  EXPECT_EQ(Encode(932, u"\u3042\u65E5"), std::string("\x82\xA0\x93\xFA", 4) + '\0');
}

TEST(CodePage, IsTextUnicodeStatisticsAndSignature) {
  std::mt19937 random(20261121);
  std::string noise;
  for (int i = 0; i < 600; ++i) noise += static_cast<char>(random() & 0xFF);
  std::u16string russian_256(256, u'\u0436');
  std::u16string english_256(256, u'e');

  struct Row {
    const char* label;
    std::string bytes;
    bool unicode;
    int passed;  // the tests of 10 (statistics 2, signature 8) the data passes
  } rows[] = {
      {"ASCII", "Hello world, this is plain ASCII text.", false, 0},
      {"UTF-16LE English", Utf16(u"Hello world"), true, 2},
      {"UTF-16LE French", Utf16(u"\u00C9t\u00E9 \u00E0 la for\u00EAt"), true, 2},
      {"UTF-16LE German", Utf16(u"Gr\u00FC\u00DFe aus K\u00F6ln"), true, 2},
      {"UTF-16LE Russian: no unit below U+0100 but the blanks",
       Utf16(u"\u041F\u0440\u0438\u0432"
             u"\u0435\u0442 \u043C\u0438"
             u"\u0440"),
       false, 0},
      {"UTF-16LE Greek", Utf16(u"\u039A\u03B1\u03BB\u03B7\u03BC\u03AD\u03C1\u03B1"), false, 0},
      {"UTF-16LE Chinese", Utf16(u"\u4F60\u597D\u4E16\u754C"), false, 0},
      {"UTF-16LE Russian with its mark", Utf16(u"\uFEFF\u041F\u0440\u0438\u0432\u0435\u0442"), true,
       8},
      {"UTF-16LE English with its mark", Utf16(u"\uFEFFHello"), true, 10},
      {"reversed mark before English", Utf16(u"\uFFFEHello"), true, 2},
      {"half the units low is not more than half", Utf16(u"ab\u4F60\u597D"), false, 0},
      {"UTF-8",
       "Caf\xC3\xA9 cr\xC3\xA8me br\xC3\xBBl\xC3\xA9"
       "e",
       false, 0},
      {"cp1252",
       "Caf\xE9 cr\xE8me br\xFBl\xE9"
       "e \x80 5",
       false, 0},
      {"random bytes", noise, false, 0},
      {"one byte", "a", false, 0},
      {"A NUL: the zero last byte is not looked at", std::string("A\0", 2), false, 0},
      {"A NUL B NUL", std::string("A\0B\0", 4), true, 2},
      {"odd length, UTF-16 before the last byte", std::string("a\0b\0c", 5), true, 2},
      {"odd length English", Utf16(u"Hello world") + "!", true, 2},
      {"only the first 256 units count (Russian first)",
       Utf16(russian_256) + Utf16(std::u16string(1000, u'e')), false, 0},
      {"only the first 256 units count (English first)",
       Utf16(english_256) + Utf16(std::u16string(1000, u'\u0436')), true, 2},
  };
  for (const Row& row : rows) {
    int tests = os::kIsTextUnicodeStatistics | os::kIsTextUnicodeSignature;
    EXPECT_EQ(os::IsTextUnicode(row.bytes.data(), static_cast<int>(row.bytes.size()), &tests),
              row.unicode)
        << row.label;
    EXPECT_EQ(tests, row.passed) << row.label;
  }
}

}  // namespace
