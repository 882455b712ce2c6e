#include "base/text.h"

#include <gtest/gtest.h>

#ifdef _WIN32
#include <windows.h>
#endif

#include "xml/node.h"
#include "xml/sort_strings.h"

namespace {

TEST(BaseText, Utf8RoundTripAndRepair) {
  struct Row {
    std::string utf8;
    std::u16string text;
  } rows[] = {
      // clang-format off
      {"", u""}, {"abc", u"abc"}, {"\xC3\xA9t\xC3\xA9", u"\u00E9t\u00E9"}, {"\xC3", u"\uFFFD"},
      {"\xE2\x82\xAC", u"\u20AC"}, {"\xF0\x9F\x98\x80", u"\U0001F600"},
      {"\xC0\xAF", u"\uFFFD\uFFFD"},
      {"\xED\xA0\x80", u"\uFFFD\uFFFD"},  // encoded surrogate: "ED A0" is one, as Windows reads it
      // clang-format on
  };
  for (const auto& row : rows) EXPECT_EQ(base::Widen(row.utf8), row.text) << row.utf8;
  EXPECT_EQ(base::Narrow(u"\u00E9\U0001F600"), "\xC3\xA9\xF0\x9F\x98\x80");
  EXPECT_EQ(base::Narrow(std::u16string(1, char16_t(0xD800))), "\xEF\xBF\xBD");
}

TEST(BaseText, NumbersAndCase) {
  EXPECT_EQ(base::ToText(-2147483648LL) + base::ToText(0), u"-21474836480");
  EXPECT_EQ(base::ToHex(1252) + base::ToHex(0), u"4E40");
  EXPECT_TRUE(base::EqualNoCase(u"TarvelUSBEject", u"tarvelusbeject"));
  EXPECT_TRUE(base::EqualNoCase(u"\u00C9T\u00C9", u"\u00E9t\u00E9"));
  EXPECT_FALSE(base::EqualNoCase(u"ab", u"abc"));
  EXPECT_EQ(base::Upper(u"fr-ca"), u"FR-CA");
}

// Pairs of names and whether they are one name without regard to case, which must not depend
// on the platform or the locale. wine: Wine's table leaves this one-way mapping out (an upper
// case whose own lower case is another letter), where Windows has it.
struct CasePair {
  std::u16string a, b;
  bool same;
  bool wine = false;
};
const CasePair kCasePairs[] = {
    // clang-format off
    {u"Name", u"nAME", true}, {u"\u0414\u0430", u"\u0434\u0410", true},
    {u"\u03A3", u"\u03C3", true},
    {u"\u03A3", u"\u03C2", true, true}, {u"\u03C3", u"\u03C2", true, true},  // final sigma
    {u"\u01C4", u"\u01C6", true}, {u"\u01C5", u"\u01C4", true, true},
    {u"\u01C5", u"\u01C6", true, true},
    {u"\u0131", u"I", false}, {u"\u0131", u"i", false}, {u"\u0130", u"i", false},  // not Turkish
    {u"\u0130", u"\u0131", false}, {u"\uFF21", u"\uFF41", true}, {u"\u0531", u"\u0561", true},
    {u"\u10A0", u"\u2D00", true}, {u"\u0150", u"\u0151", true}, {u"\u0178", u"\u00FF", true},
    {u"\u00D7", u"\u00F7", false}, {u"[", u"{", false}, {u"\u212A", u"k", false},  // Kelvin
    {u"\u1E9E", u"\u00DF", false},
    // clang-format on
};

TEST(BaseText, NamesMatchWithoutRegardToCaseBeyondLatin1) {
  for (const CasePair& p : kCasePairs) {
    SCOPED_TRACE(base::Narrow(p.a) + " " + base::Narrow(p.b));
    EXPECT_EQ(base::EqualNoCase(p.a, p.b), p.same);
    // A closing tag in the other case closes the element, on both reading paths.
    const std::u16string element = u"<" + p.a + u">v</" + p.b + u">";
    XmlNodePtr lazy = cXmlNode::Create(), full = cXmlNode::Create(), doc = cXmlNode::Create();
    lazy->XmlData(element);
    full->XmlData___NonRecursif(element);
    EXPECT_EQ(lazy->Value() == u"v", p.same);
    EXPECT_EQ(full->Value() == u"v", p.same);
    // Lookups by name, and the sort's text mode.
    doc->XmlData(u"<doc><" + p.a + u" k=\"1\">v</" + p.a + u"></doc>");
    EXPECT_EQ(doc->ChildAttribut(p.b, u"K") == u"1", p.same);
    EXPECT_EQ(xml::CompareStrings(p.a, p.b, xml::kTextCompare) == 0, p.same);
  }
}

#ifdef _WIN32
// The platform's own answer, CompareStringOrdinal without regard to case, for every code unit
// against its two cases and its neighbour.
TEST(BaseText, CaseAgreesWithCompareStringOrdinal) {
  const bool wine = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
  const auto one_way = [](char16_t c) {
    const char16_t upper = base::UpperChar(c);
    return upper != c && base::LowerChar(upper) != c;
  };
  const auto platform = [](std::u16string_view a, std::u16string_view b) {
    return CompareStringOrdinal(reinterpret_cast<const wchar_t*>(a.data()), int(a.size()),
                                reinterpret_cast<const wchar_t*>(b.data()), int(b.size()), TRUE) -
           CSTR_EQUAL;
  };
  int compared = 0;
  for (std::uint32_t u = 0; u <= 0xFFFF; ++u) {
    const char16_t c = static_cast<char16_t>(u);
    for (char16_t d : {base::UpperChar(c), base::LowerChar(c), char16_t(c + 1)}) {
      if (wine && (one_way(c) || one_way(d))) continue;
      const std::u16string_view a(&c, 1), b(&d, 1);
      ASSERT_EQ(xml::CompareStrings(a, b, xml::kTextCompare), platform(a, b)) << u << " " << +d;
      ++compared;
    }
  }
  EXPECT_GT(compared, 3 * 0xFF00);
  for (const CasePair& p : kCasePairs) {
    if (wine && p.wine) continue;
    EXPECT_EQ(platform(p.a, p.b) == 0, p.same) << base::Narrow(p.a) << " " << base::Narrow(p.b);
  }
}
#endif

}  // namespace
