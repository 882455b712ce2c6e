#include "text/encoding.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "os/codepage.h"
#include "support/ansi.h"
#include "support/log_capture.h"

namespace {

using mStringTools::StrToBytes;

TEST(Encoding, StrDataToUnicodeDecidesAndConverts) {
  struct Row {
    const char* label;
    std::string data;
    std::int32_t encoding;  // in
    std::uint32_t code_page;
    bool with_bom;
    bool bom_changed;  // in
    std::u16string text;
    std::int32_t encoding_after;
    bool bom_changed_after;
  } rows[] = {
      {"plain ASCII is ANSI", "Hello, world", 0, 1252, false, false, u"Hello, world", 3, false},
      {"UTF-8 mark dropped",
       "\xEF\xBB\xBF"
       "caf\xC3\xA9",
       0, 1252, false, false, u"caf\u00E9", 2, true},
      {"UTF-8 mark kept",
       "\xEF\xBB\xBF"
       "caf\xC3\xA9",
       0, 1252, true, false, u"\uFEFFcaf\u00E9", 2, false},
      {"UTF-8 without mark gains one", "caf\xC3\xA9", 0, 1252, true, false, u"\uFEFFcaf\u00E9", 2,
       true},
      {"ANSI gains a mark", "Hello", 0, 1252, true, false, u"\uFEFFHello", 3, true},
      {"an unchanged mark leaves BOMChanged as it was", "Hello", 0, 1252, false, true, u"Hello", 3,
       true},
      {"UTF-16 with its mark", StrToBytes(u"\uFEFFHi there"), 0, 1252, false, false, u"Hi there", 1,
       true},
      {"UTF-16 without mark", StrToBytes(u"Gr\u00FC\u00DFe"), 0, 1252, false, false,
       u"Gr\u00FC\u00DFe", 1, false},
      {"cp1252", "Caf\xE9 \x80 5", 0, 1252, false, false, u"Caf\u00E9 \u20AC 5", 3, false},
      {"ANSI with another code page", "\xCF\xF0\xE8", 3, 1251, false, false, u"\u041F\u0440\u0438",
       3, false},
      {"UTF-8 stops at a zero byte", std::string("\x41\x42\x00\x43\x44", 5), 2, 1252, false, false,
       u"AB", 2, false},
      {"ANSI stops at a zero byte", std::string("\x41\x42\x00\x43\x44", 5), 3, 1252, false, false,
       u"AB", 3, false},
      {"detected ANSI stops at a zero byte", std::string("\x41\x42\x00\x43\x44", 5), 0, 1252, false,
       false, u"AB", 3, false},
      {"UTF-16 leaves an odd last byte out", std::string("a\0b", 3), 1, 1252, false, false, u"a", 1,
       false},
      {"nothing before the zero byte: no mark added", std::string("\0abc", 4), 2, 1252, true, false,
       u"", 2, false},
      {"code 4 is not decodable", "Hello", 4, 1252, true, false, u"", 4, false},
      {"code 1252 is not decodable", "Hello", 1252, 1252, false, false, u"", 1252, false},
      {"no data: nothing changes", "", 0, 1252, true, false, u"", 0, false},
  };
  for (const Row& row : rows) {
    std::int32_t encoding = row.encoding;
    bool changed = row.bom_changed;
    EXPECT_EQ(
        mStringTools::StrDataToUnicode(row.data, encoding, row.code_page, row.with_bom, changed),
        row.text)
        << row.label;
    EXPECT_EQ(encoding, row.encoding_after) << row.label;
    EXPECT_EQ(changed, row.bom_changed_after) << row.label;
  }
}

TEST(Encoding, EncodingNames) {
  EXPECT_EQ(mStringTools::EncodingName(0), u"AutoDetect");
  EXPECT_EQ(mStringTools::EncodingName(1), u"UNICODE");
  EXPECT_EQ(mStringTools::EncodingName(2), u"UTF8");
  EXPECT_EQ(mStringTools::EncodingName(3), u"ANSI");
  EXPECT_EQ(mStringTools::EncodingName(4), u"0x4");
  EXPECT_EQ(mStringTools::EncodingName(1252), u"0x4E4");
  EXPECT_EQ(mStringTools::EncodingName(-1), u"0xFFFFFFFF");
}

TEST(Encoding, CodePageConversions) {
  testing_support::LogCapture log;
  EXPECT_EQ(mStringTools::StrCodePageToUnicode("", 1252), u"");
  EXPECT_EQ(mStringTools::StrCodePageToUnicode("caf\xC3\xA9", 65001), u"caf\u00E9");
  EXPECT_EQ(mStringTools::StrCodePageToUnicode("\x93quoted\x94", 1252), u"\u201Cquoted\u201D");
  EXPECT_EQ(mStringTools::StrCodePageToUnicode("abc", 12345), u"") << "unknown code page";
  EXPECT_EQ(mStringTools::StrUnicodeToCodePage(u"", 1252), "");
  EXPECT_EQ(mStringTools::StrUnicodeToCodePage(u"caf\u00E9", 65001), "caf\xC3\xA9");
  EXPECT_EQ(mStringTools::StrUnicodeToCodePage(u"a\u4E00\u0100\u20AC", 1252), "a?A\x80");
  EXPECT_EQ(mStringTools::StrUnicodeToCodePage(std::u16string(u"ab\0c", 4), 1252), "ab");
  EXPECT_EQ(mStringTools::StrUnicodeToCodePage(u"abc", 12345), "");
  EXPECT_TRUE(log.lines.empty()) << "a refused conversion is not reported";
}

TEST(Encoding, RawBytesAndAnsiBytes) {
  EXPECT_EQ(mStringTools::StrToBytes(u"A\u20AC"), std::string("A\0\xAC\x20", 4));
  EXPECT_EQ(mStringTools::BytesToStr(std::string("A\0\xAC\x20", 4)), u"A\u20AC");
  EXPECT_EQ(mStringTools::BytesToStr(std::string("A\0B", 3)), u"A");
  EXPECT_EQ(mStringTools::ArrayLength(""), 0);
  EXPECT_EQ(mStringTools::ArrayLength("abc"), 3);
  EXPECT_EQ(mStringTools::Utf16LeBom(), "\xFF\xFE");
  EXPECT_FALSE(mStringTools::IsUnicode("a"));
  EXPECT_TRUE(mStringTools::IsUnicode(StrToBytes(u"text")));
  EXPECT_FALSE(mStringTools::IsUnicode("text"));
  if (!testing_support::AnsiIs1252())
    GTEST_SKIP() << "the ANSI rows are written for code page 1252";
  const std::u16string text(u"\u00E9\u20AC\0x", 4);
  const std::string bytes("\xE9\x80\0x", 4);
  EXPECT_EQ(mStringTools::StrToAnsiBytes(text), bytes) << "a NUL inside is kept";
  EXPECT_EQ(mStringTools::AnsiBytesToStr(bytes), text);
  EXPECT_EQ(mStringTools::StrToAnsiBytes(u"\u4E00"), "?");
  EXPECT_EQ(mStringTools::AnsiBytesToStr(""), u"");
}

}  // namespace
