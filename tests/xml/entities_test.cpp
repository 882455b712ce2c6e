#include <gtest/gtest.h>

#include "xml/node.h"
#include "xml_test_util.h"

namespace {

using xml_test::LogCapture;

TEST(XmlEntities, EncodeEscapesOutsideCdataAndDropsIndentAfterCrLf) {
  struct Row {
    const char16_t* in;
    const char16_t* out;
  } rows[] = {
      {u"a<b", u"a&lt;b"},
      {u"it's", u"it&apos;s"},
      {u"say \"x\" & <y>", u"say &quot;x&quot; &amp; &lt;y&gt;"},
      {u"&amp;", u"&amp;amp;"},  // no memory of earlier escaping
      {u"\r\n    x", u"\r\nx"},
      {u"\r\n\t \tx\r\n y", u"\r\nx\r\ny"},
      {u"\n    x", u"\n    x"},  // a lone LF is no line break here
      {u"\r    x", u"\r    x"},
      {u"<![CDATA[<&>]]>", u"<![CDATA[<&>]]>"},
      {u"a<![CDATA[<]]>>", u"a<![CDATA[<]]>&gt;"},
      {u"\r\n  <![CDATA[<\r\n  x]]>", u"\r\n<![CDATA[<\r\n  x]]>"},  // CDATA checked after CR LF
      {u"<![CDATA[<& open", u"<![CDATA[<& open"},  // unterminated: the rest as it is
      {u"<![CDATA]]>", u"&lt;![CDATA]]&gt;"},
      {u"\u00e9\u20ac", u"\u00e9\u20ac"},
      {u"", u""}};
  for (const auto& r : rows) {
    EXPECT_EQ(cXmlNode::EncodeSpecialChars(r.in), r.out)
        << testing::PrintToString(std::u16string(r.in));
  }
}

TEST(XmlEntities, DecodeNamesNumbersAndTheLostLastCharacter) {
  struct Row {
    const char16_t* in;
    std::u16string out;
  } rows[] = {
      {u"a &amp; b", u"a & b"},
      {u"&lt;&gt;&apos;&quot;", u"<>'\""},
      {u"&AMP;", u"?"},  // names are case-sensitive
      {u"&nbsp;", u"?"},
      {u"&;", u"?"},
      {u"x & y", u"x ?"},  // no ";": the reference runs to the end, taking the last character
      {u"x &", u"x ?"},
      {u"&amp", u"?"},  // "&am" is no name
      {u"&a&b;c", u"?c"},
      {u"&#65;&#x41;", u"AA"},
      {u"&#x6a;&#x6A;", u"jj"},
      {u"&#X41;", std::u16string(1, u'\0')},  // only a lower-case x means hexadecimal
      {u"&#;", std::u16string(1, u'\0')},     // no digits read as 0
      {u"&#65abc;", u"A"},                    // digits up to the first other character
      {u"&#6 5;", u"A"},                      // blanks inside the number are skipped
      {u"&#65.5;", u"B"},                     // rounded, halves to even
      {u"&#66.5;", u"B"},
      {u"&#233;", u"\u00e9"},
      {u"&#128;&#x80;", u"\u20ac\u20ac"},  // the code page's character, not the code point
      {u"&#129;&#141;&#143;&#144;&#157;", u"\u0081\u008d\u008f\u0090\u009d"},
      {u"&#146;&#159;&#255;", u"\u2019\u0178\u00ff"},
      {u"no reference", u"no reference"},
      {u"", u""}};
  for (const auto& r : rows) {
    EXPECT_EQ(cXmlNode::DecodeSpecialChars(r.in), r.out)
        << testing::PrintToString(std::u16string(r.in));
  }
  EXPECT_EQ(cXmlNode::DecodeSpecialChars(u"&#0;x"), std::u16string(u"\0x", 2));
}

TEST(XmlEntities, AReferenceTheCodePageCannotGiveLeavesTheWholeTextAlone) {
  const char16_t* inputs[] = {u"&#300;", u"&amp; &#256;", u"&lt;&#x20AC;", u"&#-1;&amp;",
                              u"&#99999999999;&gt;"};
  for (const char16_t* in : inputs) {
    LogCapture log;
    EXPECT_EQ(cXmlNode::DecodeSpecialChars(in), in) << testing::PrintToString(std::u16string(in));
    ASSERT_EQ(log.lines.size(), 1u);
    EXPECT_TRUE(log.lines[0].starts_with(u"Error "));
    EXPECT_TRUE(log.lines[0].ends_with(u") in Function cXmlNode.DecodeSpecialChars"));
  }
}

}  // namespace
