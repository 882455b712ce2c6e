#include <gtest/gtest.h>

#include <random>

#include "base/text.h"
#include "xml/node.h"
#include "xml_test_util.h"

namespace {

using xml_test::Dump;
using xml_test::Node;

// The format as first defined: each child's whole text indented once per level above it.
// Recursive and quadratic on purpose; for small trees.
std::u16string ReferenceXml(const XmlNodePtr& n) {
  std::u16string s = u"<" + n->Name();
  for (std::int32_t i = 1; i <= n->AttrCount(); ++i) {
    const std::u16string name = n->AttrName(i);
    s += u" " + name + u"=\"" + n->EncodeText(n->Attribut(name)) + u"\"";
  }
  if (n->ChildCount() > 0) {
    s += u">\r\n";
    for (std::int32_t i = 1; i <= n->ChildCount(); ++i)
      s += cXmlNode::Indent(ReferenceXml(n->Child(i)), 1, u"\t") + u"\r\n";
  } else if (!n->RawValue().empty()) {
    s += u">" + n->EncodeText(n->RawValue());
  } else {
    return s + u"/>";
  }
  return s + u"</" + n->Name() + u">";
}

TEST(XmlWriter, WritesOneElementPerLineIndentedByTabs) {
  const struct {
    XmlNodePtr tree;
    const char16_t* text;
  } cases[] = {
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
  for (const auto& c : cases) {
    SCOPED_TRACE(base::Narrow(c.text));
    EXPECT_EQ(c.tree->XmlData(), c.text);
    EXPECT_EQ(c.tree->BuiltXML(), c.text);
  }
}

TEST(XmlWriter, Base64ContentIsSplitAt81) {
  std::u16string value(100, u'x');  // 200 bytes: 268 symbols
  XmlNodePtr n = Node({u"a", value, {{u"ContentEncoding", u"base64"}}});
  const std::u16string text = n->XmlData();
  const std::size_t open = text.find(u'>') + 1;
  const std::u16string body = text.substr(open, text.size() - open - 4);
  ASSERT_EQ(body.size(), 268u + 4 * 2);
  EXPECT_EQ(body.find(u"\r\n"), 81u);
  EXPECT_EQ(body.substr(body.size() - 2), u"\r\n");
  EXPECT_EQ(cXmlNode::Create()->CreateChild(text)->RawValue(), value);
}

TEST(XmlWriter, Utf8EncodingWritesBytesAsCharacters) {
  XmlNodePtr root = Node(u"r", {Node({u"c", u"\u00E9", {{u"k", u"\u20AC"}}})});
  root->XMLEncoding(u"UTF-8");
  EXPECT_EQ(root->XmlData(), u"<r>\r\n\t<c k=\"\u00E2\u201A\u00AC\">\u00C3\u00A9</c>\r\n</r>");
  EXPECT_EQ(root->Child(1)->EncodeText(u"\u00E9<"), u"\u00C3\u00A9&lt;");
  root->XMLEncoding(u"iso-8859-1");
  EXPECT_EQ(root->Child(1)->EncodeText(u"\u00E9<"), u"\u00E9&lt;");
}

TEST(XmlWriter, IndentLeavesCdataLinesAlone) {
  const struct {
    const char16_t* text;
    std::int32_t level;
    const char16_t *indent, *out;
  } cases[] = {{u"a\r\nb", 2, u"\tx", u"\t\ta\r\n\t\tb"},
               {u"", 1, u"\t", u""},
               {u"a\r\n", 1, u"-", u"-a\r\n-"},
               {u"<![CDATA[x\r\ny\r\nz]]>\r\nw", 1, u"\t", u"\t<![CDATA[x\r\ny\r\nz]]>\r\n\tw"},
               {u"<![CDATA[x]]>\r\nw", 1, u"\t", u"\t<![CDATA[x]]>\r\n\tw"},
               {u"]]><![CDATA[\r\nw", 1, u"\t", u"\t]]><![CDATA[\r\n\tw"},
               {u"a\nb", 1, u"", u"a\nb"}};
  for (const auto& c : cases) EXPECT_EQ(cXmlNode::Indent(c.text, c.level, c.indent), c.out);
  EXPECT_EQ(cXmlNode::Indent(u"a", -1, u"\t"), u"");
}

// Random trees whose names, attributes and values hold line breaks and CDATA markers, open
// and closed, written in one pass and by the per-level definition.
TEST(XmlWriter, OnePassIndentationMatchesPerLevelIndentation) {
  const char16_t* pieces[] = {u"a", u"\r\n", u"\r\n  ", u"<![CDATA[", u"]]>", u"x y", u"<", u"&"};
  std::mt19937 rng(7);
  const auto text = [&](int max) {
    std::u16string s;
    for (int k = std::uniform_int_distribution<int>(0, max)(rng); k > 0; --k)
      s += pieces[std::uniform_int_distribution<int>(0, 7)(rng)];
    return s;
  };
  for (int round = 0; round < 1500; ++round) {
    XmlNodePtr root = Node(u"r");
    std::vector<XmlNodePtr> nodes{root};
    for (int k = std::uniform_int_distribution<int>(0, 16)(rng); k > 0; --k) {
      XmlNodePtr parent =
          nodes[std::uniform_int_distribution<std::size_t>(0, nodes.size() - 1)(rng)];
      XmlNodePtr child = Node({u"n" + text(1), text(4)});
      if (rng() % 3 == 0) child->Attribut(u"k", text(3));
      parent->AddChild(child);
      nodes.push_back(child);
    }
    ASSERT_EQ(root->XmlData(), ReferenceXml(root)) << "round " << round;
  }
}

TEST(XmlWriter, RoundTripGivesTheSameTree) {
  XmlNodePtr root =
      Node({u"cfg", u"", {{u"v", u"1 & \"2\""}}},
           {Node({u"Language", u"fr"}),
            Node(u"Messages", {Node({u"Err", u"<![CDATA[a\r\n<b>]]>"}), Node({u"T", u"x > y"})}),
            Node({u"bin", u"\u00E9\u0001", {{u"ContentEncoding", u"base64"}}}), Node(u"empty")});
  const std::u16string text = root->XmlData();
  for (bool full : {false, true}) {
    XmlNodePtr back = xml_test::Read(text, full);
    EXPECT_EQ(Dump(back), Dump(root));
    EXPECT_EQ(back->XmlData(), text);
  }
}

}  // namespace
