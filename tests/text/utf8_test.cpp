#include "text/utf8.h"

#include <gtest/gtest.h>

#include <string>

#include "support/ansi.h"
#include "text/encoding.h"

namespace {

// Only the lead-byte patterns count: no value checks, and pure ASCII is not UTF-8.
TEST(Utf8, IsUTF8FollowsTheLeadBytePatternsOnly) {
  struct Row {
    std::string bytes;
    bool utf8;
  } rows[] = {
      // clang-format off
      {"", false}, {"plain text", false}, {"caf\xC3\xA9", true}, {"caf\xC3", false},
      {"\xE2\x82\xAC 5", true}, {"\xF0\x9F\x98\x80", true}, {"\xFC\x84\x80\x80\x80\x80", true},
      {"\xC0\xAF", true}, {"a\x80z", false}, {"a\xFEz", false}, {"\xC3\x41", false},
      {"x\xE2\x82", false}, {"Caf\xE9 cr\xE8me", false}, {std::string("\xC3\xA9\0A", 4), true},
      // clang-format on
  };
  for (const Row& row : rows) EXPECT_EQ(mUTF8::IsUTF8(row.bytes), row.utf8) << row.bytes;
}

TEST(Utf8, DecodeAndEncodeModes) {
  const std::string cafe = "caf\xC3\xA9";
  EXPECT_EQ(mUTF8::UTF8_Decode(cafe, 1), u"caf\u00E9");
  EXPECT_EQ(mUTF8::UTF8_Decode(cafe, 0), u"caf\u00E9") << "raw bytes are not UTF-16";
  EXPECT_EQ(mUTF8::UTF8_Decode(std::string("ab\0cd", 5), 1), u"ab");
  EXPECT_EQ(mUTF8::UTF8_Encode(u"caf\u00E9", true), cafe);
  EXPECT_EQ(mUTF8::UTF8_Encode(std::u16string(u"ab\0cd", 5), true), "ab");
  if (testing_support::AnsiIs1252()) {
    // One character per byte: the UTF-8 bytes as a 1252 text ("cafÃ©"), held as UTF-16.
    const std::string widened = mStringTools::StrToBytes(u"caf\u00C3\u00A9");
    EXPECT_EQ(mUTF8::UTF8_Decode(widened, 2), u"caf\u00E9");
    EXPECT_EQ(mUTF8::UTF8_Decode(widened, 0), u"caf\u00E9") << "detected as UTF-16";
    EXPECT_EQ(mUTF8::UTF8_Encode(u"caf\u00E9", false), widened);
  }
}

}  // namespace
