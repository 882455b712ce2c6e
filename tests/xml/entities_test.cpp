#include <gtest/gtest.h>

#include <tuple>

#include "base/text.h"
#include "xml/node.h"
#include "xml_test_util.h"

namespace {

// Encoding escapes outside CDATA sections and drops the indentation after CR LF; decoding
// resolves names exactly and numbers through the code page, and is not the mirror of encoding.
TEST(XmlEntities, EncodeAndDecode) {
  const std::tuple<bool, std::u16string, std::u16string> rows[] = {
      {false, u"say \"x\" & <y> it's", u"say &quot;x&quot; &amp; &lt;y&gt; it&apos;s"},
      {false, u"&amp;", u"&amp;amp;"},  // no memory of earlier escaping
      {false, u"\r\n\t \tx\r\n y", u"\r\nx\r\ny"},
      {false, u"\n    x\r    y", u"\n    x\r    y"},  // a lone LF or CR is no line break here
      {false, u"<![CDATA[<&>]]>", u"<![CDATA[<&>]]>"},
      {false, u"a<![CDATA[<]]>>", u"a<![CDATA[<]]>&gt;"},
      {false, u"\r\n  <![CDATA[<\r\n  x]]>", u"\r\n<![CDATA[<\r\n  x]]>"},  // checked after CR LF
      {false, u"<![CDATA[<& open", u"<![CDATA[<& open"},  // unterminated: the rest as it is
      {false, u"<![CDATA]]>", u"&lt;![CDATA]]&gt;"},
      {true, u"a &amp; b &lt;&gt;&apos;&quot;", u"a & b <>'\""},
      {true, u"&AMP;&nbsp;&;", u"???"},  // names are case-sensitive
      {true, u"x & y", u"x ?"},  // no ";": the reference runs to the end, taking the last character
      {true, u"&amp", u"?"},     // "&am" is no name
      {true, u"&a&b;c", u"?c"},
      {true, u"&#65;&#x41;&#x6a;&#x6A;", u"AAjj"},
      {true, u"&#X41;&#;", std::u16string(2, u'\0')},  // only "x" means hexadecimal; no digits: 0
      {true, u"&#65abc;&#6 5;", u"AA"},  // digits up to another character, blanks skipped
      {true, u"&#65.5;&#66.5;", u"BB"},  // rounded, halves to even
      {true, u"&#233;&#128;&#x80;", u"\u00e9\u20ac\u20ac"},  // the code page's characters
      {true, u"&#129;&#141;&#143;&#144;&#157;", u"\u0081\u008d\u008f\u0090\u009d"},
      {true, u"&#146;&#159;&#255;", u"\u2019\u0178\u00ff"},
      {true, std::u16string(u"&#0;x", 5), std::u16string(u"\0x", 2)},
      {false, u"", u""},
      {true, u"", u""}};
  for (const auto& [decode, in, out] : rows)
    EXPECT_EQ(decode ? cXmlNode::DecodeSpecialChars(in) : cXmlNode::EncodeSpecialChars(in), out)
        << base::Narrow(in);
  // A reference the code page cannot give leaves the whole text alone, and is logged.
  for (const char16_t* in :
       {u"&#300;", u"&amp; &#256;", u"&lt;&#x20AC;", u"&#-1;&amp;", u"&#99999999999;&gt;"}) {
    xml_test::LogCapture log;
    EXPECT_EQ(cXmlNode::DecodeSpecialChars(in), in) << base::Narrow(in);
    ASSERT_EQ(log.lines.size(), 1u);
    EXPECT_TRUE(log.lines[0].ends_with(u") in Function cXmlNode.DecodeSpecialChars"));
  }
}

}  // namespace
