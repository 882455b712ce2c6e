#include "text/utf8.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "os/codepage.h"
#include "support/ansi.h"
#include "text/encoding.h"

namespace {

TEST(Utf8, IsUTF8FollowsTheLeadBytePatternsOnly) {
  struct Row {
    const char* label;
    std::string bytes;
    bool utf8;
  } rows[] = {
      {"empty", "", false},
      {"pure ASCII is not UTF-8", "plain text, 7 bits only", false},
      {"é", "caf\xC3\xA9", true},
      {"lone C3 at the very end", "caf\xC3", false},
      {"C3 A9 at the very end", "caf\xC3\xA9", true},
      {"euro sign", "\xE2\x82\xAC 5", true},
      {"four-byte form", "\xF0\x9F\x98\x80", true},
      {"five-byte form F8 88 80 80 80 passes", "\xF8\x88\x80\x80\x80", true},
      {"six-byte form FC 84 80 80 80 80 passes", "\xFC\x84\x80\x80\x80\x80", true},
      {"overlong C0 AF passes (no value checks)", "\xC0\xAF", true},
      {"encoded surrogate passes", "\xED\xA0\x80", true},
      {"stray continuation byte", "a\x80z", false},
      {"FE", "a\xFEz", false},
      {"FF", "a\xFF", false},
      {"lead followed by ASCII",
       "\xC3"
       "A",
       false},
      {"three-byte form cut by the end", "x\xE2\x82", false},
      {"cp1252 text", "Caf\xE9 cr\xE8me", false},
      {"a valid sequence, then a broken one", "\xC3\xA9\xC3", false},
      {"a zero byte is just ASCII", std::string("\xC3\xA9\0A", 4), true},
  };
  for (const Row& row : rows) EXPECT_EQ(mUTF8::IsUTF8(row.bytes), row.utf8) << row.label;
}

TEST(Utf8, IsUTF8FindsTheFirstBadByteBehindLongAsciiRuns) {
  // The bad byte sits at every position around the 16-byte blocks of the ASCII skip.
  for (std::size_t at = 0; at < 68; ++at) {
    std::string bytes(70, 'a');
    bytes.replace(bytes.size() - 2, 2, "\xC3\xA9");
    bytes[at] = '\x80';
    EXPECT_FALSE(mUTF8::IsUTF8(bytes)) << at;
    bytes[at] = 'b';
    EXPECT_TRUE(mUTF8::IsUTF8(bytes)) << at;
  }
}

TEST(Utf8, DecodeAndEncodeModes) {
  const std::string cafe = "caf\xC3\xA9";
  EXPECT_EQ(mUTF8::UTF8_Decode(cafe, 1), u"caf\u00E9");
  EXPECT_EQ(mUTF8::UTF8_Decode(cafe, 0), u"caf\u00E9") << "raw bytes are not UTF-16";
  EXPECT_EQ(mUTF8::UTF8_Decode("", 1), u"");
  EXPECT_EQ(mUTF8::UTF8_Decode(std::string("ab\0cd", 5), 1), u"ab");
  if (testing_support::AnsiIs1252()) {
    // One character per byte: the UTF-8 bytes as a 1252 text ("cafÃ©"), held as UTF-16.
    const std::string widened = mStringTools::StrToBytes(u"caf\u00C3\u00A9");
    EXPECT_EQ(mUTF8::UTF8_Decode(widened, 2), u"caf\u00E9");
    EXPECT_EQ(mUTF8::UTF8_Decode(widened, 0), u"caf\u00E9") << "detected as UTF-16";
    EXPECT_EQ(mUTF8::UTF8_Encode(u"caf\u00E9", false), widened);
  }
  EXPECT_EQ(mUTF8::UTF8_Encode(u"caf\u00E9", true), cafe);
  EXPECT_EQ(mUTF8::UTF8_Encode(u"\uFEFFA", true),
            "\xEF\xBB\xBF"
            "A");
  EXPECT_EQ(mUTF8::UTF8_Encode(u"", true), "");
  EXPECT_EQ(mUTF8::UTF8_Encode(std::u16string(u"ab\0cd", 5), true), "ab");
}

}  // namespace
