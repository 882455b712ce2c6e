#include "xml/scan.h"

#include <gtest/gtest.h>

#include "base/text.h"

namespace {

using xml::AttributeText;

TEST(XmlScan, xTrimStripsOnlyTheFourBlanks) {
  EXPECT_EQ(xml::xTrim(u" \t\r\nx y\n "), u"x y");
  EXPECT_EQ(xml::xTrim(u""), u"");
  EXPECT_EQ(xml::xTrim(u"   "), u"");
  EXPECT_EQ(xml::xTrim(u"\v x\f"), u"\v x\f");
}

TEST(XmlScan, FoldCaseIsTheProgramsCaseFolding) {
  for (std::uint32_t c = 0; c <= 0xFFFF; ++c)
    ASSERT_EQ(xml::FoldCase(static_cast<char16_t>(c)), base::UpperChar(static_cast<char16_t>(c)))
        << c;
}

TEST(XmlScan, DeleteRemsCutsCommentsAndStopsAtAnUnterminatedOne) {
  struct Row {
    std::u16string text, expected;
  } rows[] = {
      {u"a<!-- x -->b", u"ab"},         {u"a<!-- 1 --><!-- 2 -->b", u"ab"}, {u"<!---->", u""},
      {u"a<!-- x", u"a<!-- x"},          // unterminated: kept from the mark on
      {u"<!-- a --><!-- b", u"<!-- b"},  // cut, then stop at the next one
      {u"<!<!-- x -->-- y -->z", u"z"},  // the first cut joins a new comment
      {u"<!-<!-- -->- x -->y", u"y"},    // ... also across "<!-" and "-"
      {u"a<!-->b-->c", u"ac"},           // "-->" is looked for after the whole mark
      {u"x-->y<!", u"x-->y<!"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(xml::DeleteRems(row.text, u"<!--", u"-->"), row.expected)
        << testing::PrintToString(row.text);
  EXPECT_EQ(xml::DeleteRems(u"a[[b]]c", u"", u"]]"), u"a[[b]]c");  // no start mark: no cut
}

TEST(XmlScan, NextTagFindsTheElementAndItsLength) {
  struct Row {
    std::u16string text;
    std::size_t start;
    std::size_t position, length;
    std::u16string name;
  } rows[] = {
      {u"<a>x</A>", 1, 1, 8, u"a"},          // closing tag matched without case
      {u"<a>x</b>", 1, 0, 0, u""},           // no closing tag
      {u"<a><a>1</a></a>", 1, 1, 15, u"a"},  // nesting counted
      {u"<ab/><a>1</a>", 1, 1, 5, u"ab"},    // self-closing
      {u"<ab/><a>1</a>", 6, 6, 8, u"a"},
      {u"<a><b></a></b>", 1, 1, 10, u"a"},      // only same-named tags count
      {u"<a\tk=\"1\">x</a>", 1, 0, 0, u""},     // the tab is part of the name
      {u"  <!-- <b> --><c/>", 1, 15, 4, u"c"},  // a comment is stepped over
      {u"<!-- x <c/>", 1, 0, 0, u""},           // unterminated comment
      {u"<![CDATA[x]]>", 1, 0, 0, u""},         // CDATA text, no tag
      {u"<a", 1, 0, 0, u""},                    // "<" without ">"
      {u"<?xml version=\"1.0\"?><r/>", 1, 1, 21, u"?xml"},
      {u"<a />x", 1, 1, 5, u"a"},
      {u"<a/ >x</a/>", 1, 1, 11, u"a/"},  // "/ >" is not self-closing
      {u"<a>1</a>", 2, 0, 0, u""},        // a stray closing tag is no element
      {u"x<>y</>", 1, 2, 6, u""},         // the empty name
  };
  for (const auto& row : rows) {
    std::size_t length = 99;
    std::u16string_view name = u"unset";
    const std::size_t p = xml::NextTag(row.text, row.start, length, name);
    EXPECT_EQ(p, row.position) << testing::PrintToString(row.text);
    if (p == 0) continue;
    EXPECT_EQ(length, row.length) << testing::PrintToString(row.text);
    EXPECT_EQ(name, row.name) << testing::PrintToString(row.text);
  }
}

TEST(XmlScan, FindTagEndCountsRealOpeningsOfTheSameName) {
  struct Row {
    std::u16string text;
    std::size_t start;
    std::u16string name;
    std::size_t expected;
  } rows[] = {
      {u"<a><a>1</a></a>", 2, u"a", 12},
      {u"<ab/><a>1</a>", 2, u"ab", 0},
      {u"<a><ab>1</ab></a>", 2, u"a", 14},       // "<ab" opens no "a"
      {u"<a><a/><a >x</a></A>", 2, u"a", 17},    // "<a/" no, "<a " yes
      {u"<a><a />x</a>", 2, u"a", 10},           // self-closing: skipped
      {u"<\u00C9>x</\u00E9>", 2, u"\u00C9", 5},  // Latin-1 letters fold too
      {u"<a>x", 2, u"a", 0},
      {u"<a><a></a>", 2, u"a", 0},  // one closing short
  };
  for (const auto& row : rows)
    EXPECT_EQ(xml::FindTagEnd(row.text, row.start, row.name), row.expected)
        << testing::PrintToString(row.text);
}

TEST(XmlScan, GetTagInfoReadsOneElement) {
  struct Row {
    std::u16string element;
    bool ok, has_name;
    std::u16string name;
    bool self_closing, has_attributes;
    std::u16string attributes, content;
  } rows[] = {
      {u"<a>x</A>", true, true, u"a", false, false, u"", u"x"},
      {u"<a>  x  </a>", true, true, u"a", false, false, u"", u"  x  "},  // not trimmed
      {u"<a>x</b>", false, true, u"a", false, false, u"", u""},          // name kept
      {u"<a k=\"1\"/>", true, true, u"a", true, true, u"k=\"1\"", u""},
      {u"<a k=\"1\" />", true, true, u"a", true, true, u"k=\"1\" ", u""},
      {u"<?xml version=\"1.0\"?>", true, true, u"?xml", true, true, u"version=\"1.0\"?", u""},
      {u"<a </a>", false, true, u"a", false, true, u"</a", u""},  // closing inside the tag
      {u"<a\tb>1</a\tb>", true, true, u"a\tb", false, false, u"", u"1"},
      {u"x<a/>", false, false, u"", false, false, u"", u""},
      {u"<a", false, false, u"", false, false, u"", u""},
  };
  for (const auto& row : rows) {
    const xml::TagInfo info = xml::GetTagInfo(row.element);
    const auto where = testing::PrintToString(row.element);
    EXPECT_EQ(info.ok, row.ok) << where;
    EXPECT_EQ(info.has_name, row.has_name) << where;
    EXPECT_EQ(info.name, row.name) << where;
    EXPECT_EQ(info.self_closing, row.self_closing) << where;
    EXPECT_EQ(info.has_attributes, row.has_attributes) << where;
    EXPECT_EQ(info.attributes, row.attributes) << where;
    EXPECT_EQ(info.content, row.content) << where;
  }
}

TEST(XmlScan, GetTagAttribsTakesOnlyDoubleQuotedValues) {
  using List = std::vector<std::pair<std::u16string, std::u16string>>;
  struct Row {
    std::u16string text;
    List expected;
  } rows[] = {
      {u"k=\"v\"", {{u"k", u"v"}}},
      {u"k='v'", {}},                      // single quotes delimit nothing
      {u"k='v' j=\"w\"", {{u"k", u"w"}}},  // up to the next double quote
      {u" a b=\"1\"  c = \"2\" ", {{u"a b", u"1"}, {u"c", u"2"}}},
      {u"k=\"v", {}},                      // no closing quote
      {u"k=\"1\" j=\"2", {{u"k", u"1"}}},  // reading stops, the first stays
      {u"=\"x\"", {{u"", u"x"}}},
      {u"k=\"a=b\" j=\"&lt;\"", {{u"k", u"a=b"}, {u"j", u"&lt;"}}},  // values stay raw
      {u"novalue", {}},
  };
  for (const auto& row : rows) {
    List got;
    for (const AttributeText& a : xml::GetTagAttribs(row.text))
      got.emplace_back(std::u16string(a.name), std::u16string(a.value));
    EXPECT_EQ(got, row.expected) << testing::PrintToString(row.text);
  }
}

TEST(XmlScan, IsXMLWantsATagThatIsNoBangForm) {
  struct Row {
    std::u16string text;
    std::size_t start;
    bool expected;
  } rows[] = {
      {u" \r\n\t<a>", 1, true},
      {u"x<a>", 1, false},
      {u"<![CDATA[x]]>", 1, false},
      {u"<!-- c --><a/>", 1, false},
      {u"<!DOCTYPE x>", 1, false},
      {u"   ", 1, false},
      {u"", 1, false},
      {u"x <a>", 2, true},
      {u"<", 1, true},
  };
  for (const auto& row : rows)
    EXPECT_EQ(xml::IsXML(row.text, row.start), row.expected) << testing::PrintToString(row.text);
}

TEST(XmlScan, StripDeclarationsKeepsTheTextAfterTheLastOne) {
  struct Row {
    std::u16string text;
    bool all, found;
    std::u16string attributes, rest;
  } rows[] = {
      {u"<?xml version=\"1.0\"?><a/>", true, true, u"version=\"1.0\"", u"<a/>"},
      {u"x<?xml a?>y<?xml b?>z", true, true, u"a", u"z"},
      {u"x<?xml a?>y<?xml b?>z", false, true, u"a", u"y<?xml b?>z"},
      {u"<?xml?>r", true, true, u"", u"r"},
      {u"<?xml version", true, false, u"", u"<?xml version"},
      {u"?><?xml a", true, false, u"", u"?><?xml a"},
  };
  for (const auto& row : rows) {
    const xml::DeclarationStrip strip = xml::StripDeclarations(row.text, row.all);
    EXPECT_EQ(strip.found, row.found) << testing::PrintToString(row.text);
    EXPECT_EQ(strip.attributes, row.attributes) << testing::PrintToString(row.text);
    EXPECT_EQ(strip.rest, row.rest) << testing::PrintToString(row.text);
  }
}

}  // namespace
