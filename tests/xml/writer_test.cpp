#include <gtest/gtest.h>

#include <tuple>

#include "xml_test_util.h"

namespace {

using xml_test::Node;

TEST(XmlWriter, WritesOneElementPerLineIndentedByTabsInItsEncoding) {
  const std::pair<XmlNodePtr, const char16_t*> cases[] = {
      {Node(u"a"), u"<a/>"},
      {Node({u"a", u"", {{u"x", u"1 < 2"}, {u"y&", u"'\""}}}),
       u"<a x=\"1 &lt; 2\" y&=\"&apos;&quot;\"/>"},
      {Node({u"a", u"lost"}, {Node(u"b")}), u"<a>\r\n\t<b/>\r\n</a>"},
      {Node(u"r", {Node(u"b", {Node({u"c", u"1"})}), Node(u"d")}),
       u"<r>\r\n\t<b>\r\n\t\t<c>1</c>\r\n\t</b>\r\n\t<d/>\r\n</r>"},
      {Node(u"r", {Node({u"c", u"<![CDATA[x\r\ny]]>"})}),
       u"<r>\r\n\t<c><![CDATA[x\r\ny]]></c>\r\n</r>"},
      {Node(u"r", {Node({u"c", u"a\r\n    b\nc"})}), u"<r>\r\n\t<c>a\r\n\tb\nc</c>\r\n</r>"},
      {Node({u"a", u"AB", {{u"ContentEncoding", u"base64"}}}),
       u"<a ContentEncoding=\"base64\">QQBCAA==\r\n</a>"},
      {Node({u"a", u"AB", {{u"ContentEncoding", u"Base64"}}}),
       u"<a ContentEncoding=\"Base64\">AB</a>"}};
  for (const auto& [tree, text] : cases) {
    EXPECT_EQ(tree->XmlData(), text);
    EXPECT_EQ(tree->BuiltXML(), text);
  }
  // Base64 lines are cut at 81 symbols, and the last ends the line too: 200 bytes, 268 symbols.
  const std::u16string value(100, u'x');
  const std::u16string text = Node({u"a", value, {{u"ContentEncoding", u"base64"}}})->XmlData();
  const std::u16string body = text.substr(28, text.size() - 32);
  EXPECT_EQ(std::make_tuple(body.size(), body.find(u"\r\n"), body.rfind(u"\r\n")),
            std::make_tuple(268u + 4 * 2, 81u, 268u + 3 * 2));
  EXPECT_EQ(cXmlNode::Create()->CreateChild(text)->RawValue(), value);
  XmlNodePtr root = Node(u"r", {Node({u"c", u"\u00E9", {{u"k", u"\u20AC"}}})});
  root->XMLEncoding(u"UTF-8");
  EXPECT_EQ(root->XmlData(), u"<r>\r\n\t<c k=\"\u00E2\u201A\u00AC\">\u00C3\u00A9</c>\r\n</r>");
  EXPECT_EQ(root->Child(1)->EncodeText(u"\u00E9<"), u"\u00C3\u00A9&lt;");
  root->XMLEncoding(u"iso-8859-1");
  EXPECT_EQ(root->Child(1)->EncodeText(u"\u00E9<"), u"\u00E9&lt;");
  // Indent leaves the lines inside CDATA alone.
  const std::tuple<const char16_t*, std::int32_t, const char16_t*, const char16_t*> indents[] = {
      {u"a\r\nb", 2, u"\tx", u"\t\ta\r\n\t\tb"},
      {u"a\r\n", 1, u"-", u"-a\r\n-"},
      {u"<![CDATA[x\r\ny\r\nz]]>\r\nw", 1, u"\t", u"\t<![CDATA[x\r\ny\r\nz]]>\r\n\tw"},
      {u"<![CDATA[x]]>\r\nw", 1, u"\t", u"\t<![CDATA[x]]>\r\n\tw"},
      {u"]]><![CDATA[\r\nw", 1, u"\t", u"\t]]><![CDATA[\r\n\tw"},
      {u"a", -1, u"\t", u""}};
  for (const auto& [text, level, indent, out] : indents)
    EXPECT_EQ(cXmlNode::Indent(text, level, indent), out);
}

}  // namespace
