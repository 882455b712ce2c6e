#include "base/text.h"

#include <gtest/gtest.h>

namespace {

TEST(BaseText, Utf8RoundTripAndRepair) {
  struct Row {
    std::string utf8;
    std::u16string text;
  } rows[] = {
      {"", u""},
      {"abc", u"abc"},
      {"\xC3\xA9t\xC3\xA9", u"\u00E9t\u00E9"},  // été
      {"\xE2\x82\xAC", u"\u20AC"},              // euro sign
      {"\xF0\x9F\x98\x80", u"\U0001F600"},      // emoji, a surrogate pair
      {"\xC3", u"\uFFFD"},                      // truncated sequence
      {"\xC0\xAF", u"\uFFFD\uFFFD"},            // overlong slash
      {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},  // encoded surrogate
  };
  for (const auto& row : rows) {
    EXPECT_EQ(base::Widen(row.utf8), row.text) << row.utf8;
  }
  EXPECT_EQ(base::Narrow(u"\u00E9\U0001F600"), "\xC3\xA9\xF0\x9F\x98\x80");
  EXPECT_EQ(base::Narrow(std::u16string(1, char16_t(0xD800))), "\xEF\xBF\xBD");
}

TEST(BaseText, NumbersAndCase) {
  EXPECT_EQ(base::ToText(0), u"0");
  EXPECT_EQ(base::ToText(-2147483648LL), u"-2147483648");
  EXPECT_EQ(base::ToHex(1252), u"4E4");
  EXPECT_EQ(base::ToHex(0), u"0");
  EXPECT_TRUE(base::EqualNoCase(u"TarvelUSBEject", u"tarvelusbeject"));
  EXPECT_TRUE(base::EqualNoCase(u"\u00C9T\u00C9", u"\u00E9t\u00E9"));
  EXPECT_FALSE(base::EqualNoCase(u"ab", u"abc"));
  EXPECT_EQ(base::Upper(u"fr-ca"), u"FR-CA");
}

}  // namespace
