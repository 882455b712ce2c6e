#include "text/encoding.h"

#include <gtest/gtest.h>

#include <string>

#include "support/ansi.h"
#include "support/log_capture.h"

namespace {

using mStringTools::StrToBytes;

TEST(Encoding, StrDataToUnicodeDecidesAndConverts) {
  const std::string ab_zero_cd("AB\0CD", 5);
  struct Row {
    std::string data;
    std::int32_t encoding;  // in, then as detected
    std::uint32_t code_page;
    bool with_bom, bom_changed;  // in, then as the call leaves it
    std::u16string text;
    std::int32_t encoding_after;
    bool bom_changed_after;
  } rows[] = {
      // clang-format off
      {"Hello, world", 0, 1252, false, false, u"Hello, world", 3, false},  // ASCII is ANSI
      {"\xEF\xBB\xBF" "caf\xC3\xA9", 0, 1252, false, false, u"caf\u00E9", 2, true},  // mark dropped
      {"\xEF\xBB\xBF" "caf\xC3\xA9", 0, 1252, true, false, u"\uFEFFcaf\u00E9", 2, false},
      {"caf\xC3\xA9", 0, 1252, true, false, u"\uFEFFcaf\u00E9", 2, true},  // gains a mark
      {"Hello", 0, 1252, true, false, u"\uFEFFHello", 3, true},
      {"Hello", 0, 1252, false, true, u"Hello", 3, true},  // an unchanged mark leaves the flag
      {StrToBytes(u"\uFEFFHi there"), 0, 1252, false, false, u"Hi there", 1, true},
      {StrToBytes(u"Gr\u00FC\u00DFe"), 0, 1252, false, false, u"Gr\u00FC\u00DFe", 1, false},
      {"Caf\xE9 \x80 5", 0, 1252, false, false, u"Caf\u00E9 \u20AC 5", 3, false},
      {"\xCF\xF0\xE8", 3, 1251, false, false, u"\u041F\u0440\u0438", 3, false},
      {ab_zero_cd, 2, 1252, false, false, u"AB", 2, false},  // a zero byte ends every decoding
      {ab_zero_cd, 0, 1252, false, false, u"AB", 3, false},
      {std::string("a\0b", 3), 1, 1252, false, false, u"a", 1, false},  // odd last byte left out
      {std::string("\0abc", 4), 2, 1252, true, false, u"", 2, false},  // nothing: no mark added
      {"Hello", 4, 1252, true, false, u"", 4, false},  // no decodable encoding
      {"Hello", 1252, 1252, false, false, u"", 1252, false},
      {"", 0, 1252, true, false, u"", 0, false},
      // clang-format on
  };
  for (const Row& row : rows) {
    std::int32_t encoding = row.encoding;
    bool changed = row.bom_changed;
    EXPECT_EQ(
        mStringTools::StrDataToUnicode(row.data, encoding, row.code_page, row.with_bom, changed),
        row.text)
        << row.data;
    EXPECT_EQ(encoding, row.encoding_after) << row.data;
    EXPECT_EQ(changed, row.bom_changed_after) << row.data;
  }
  EXPECT_EQ(mStringTools::EncodingName(1), u"UNICODE");
  EXPECT_EQ(mStringTools::EncodingName(1252), u"0x4E4");
  EXPECT_EQ(mStringTools::EncodingName(-1), u"0xFFFFFFFF");
}

TEST(Encoding, CodePageAndRawConversions) {
  testing_support::LogCapture log;
  EXPECT_EQ(mStringTools::StrCodePageToUnicode("caf\xC3\xA9", 65001), u"caf\u00E9");
  EXPECT_EQ(mStringTools::StrCodePageToUnicode("\x93q\x94", 1252), u"\u201Cq\u201D");
  EXPECT_EQ(mStringTools::StrCodePageToUnicode("abc", 12345), u"") << "unknown code page";
  EXPECT_EQ(mStringTools::StrUnicodeToCodePage(u"a\u4E00\u0100\u20AC", 1252), "a?A\x80");
  EXPECT_EQ(mStringTools::StrUnicodeToCodePage(std::u16string(u"ab\0c", 4), 1252), "ab");
  EXPECT_EQ(mStringTools::StrUnicodeToCodePage(u"abc", 12345), "");
  EXPECT_TRUE(log.lines.empty()) << "a refused conversion is not reported";
  EXPECT_EQ(mStringTools::StrToBytes(u"A\u20AC"), std::string("A\0\xAC\x20", 4));
  EXPECT_EQ(mStringTools::BytesToStr(std::string("A\0\xAC\x20", 4)), u"A\u20AC");
  EXPECT_EQ(mStringTools::BytesToStr(std::string("A\0B", 3)), u"A");
  EXPECT_FALSE(mStringTools::IsUnicode("text"));
  EXPECT_TRUE(mStringTools::IsUnicode(StrToBytes(u"text")));
  if (!testing_support::AnsiIs1252()) return;  // the ANSI rows are written for code page 1252
  const std::u16string text(u"\u00E9\u20AC\0x", 4);
  const std::string bytes("\xE9\x80\0x", 4);
  EXPECT_EQ(mStringTools::StrToAnsiBytes(text), bytes) << "a NUL inside is kept";
  EXPECT_EQ(mStringTools::AnsiBytesToStr(bytes), text);
}

}  // namespace
