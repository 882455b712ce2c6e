#include <gtest/gtest.h>

#include <tuple>

#include "base/text.h"
#include "xml/scan.h"
#include "xml_test_util.h"

namespace {

using xml_test::Dump;
using xml_test::Lines;
using xml_test::LogCapture;
using xml_test::Read;

// Both reading paths, and a lazy read woken fully, build the same tree from the same text.
TEST(XmlParser, BothPathsReadTheRulesAsWritten) {
  const std::pair<const char16_t*, const char16_t*> cases[] = {
      {u"<a>x</A>", u"a\"x\""},                              // closing tags match in any case
      {u"<a>x</b>", u""},                                    // no closing tag: nothing read
      {u"<\u00C9>x</\u00E9>", u"\u00C9\"x\""},               // Latin-1 letters fold too
      {u"<a/ >x</a/>", u"a/\"x\""},                          // "/ >" is not self-closing
      {u"<r><a><a/><a >x</a></A></r>", u"r{a{a;a\"x\"}}"},   // "<a/" opens no "a", "<a " does
      {u"<a><ab/><a>1</a></a>", u"a{ab;a\"1\"}"},            // "<ab" opens no "a"
      {u"<a><![CDATA[1<2]]></a>", u"a\"<![CDATA[1<2]]>\""},  // CDATA kept with its markers
      {u"<a> <![CDATA[&amp;]]>\r\n</a>", u"a\"<![CDATA[&amp;]]>\""},  // trimmed, not decoded
      {u"<a k='v' j=\"w\"/>", u"a[k=w]"},                             // up to the next double quote
      {u"<a\tx=\"1\"/>", u"a\tx=\"1\""},                              // only a space ends a name
      {u"<a> x </a>", u"a\" x \""},                                   // text is not trimmed
      {u"<a>a &amp; b &lt;&AMP;</a>", u"a\"a & b <?\""},              // entities, names exact
      {u"<a><!DOCTYPE x><b/></a>", u"a\"<!DOCTYPE x><b/>\""},         // "<!" content is text
      {u"<a><!-- c --><b/><!-- <c/> --></a>", u"a{b}"},               // comments cut first
      {u"<a><!<!-- x -->-- y --><b/><!-<!-- -->- z --></a>", u"a{b}"},  // a cut joins a comment
      {u"<a>x<!-- y</a>", u"a\"x<!-- y\""},                             // unterminated comment kept
      {u"<a><![CDATA[x</a>", u"a\"<![CDATA[x\""},                // unterminated CDATA is text
      {u"<a", u""},                                              // no ">"
      {u"<a><b>1</a>", u"a"},                                    // child without closing tag
      {u"<a b=\"1\" B=\"2\" c=\"\"/>", u"a[b=2]"},               // the attribute setter's rules
      {u"<a x=\"1\" y=\"2/>", u"a[x=1]"},                        // unclosed quote ends reading
      {u"<a  x = \"1\"   y=\"&quot;\" />", u"a[x=1,y=\"]"},      // blanks around names trimmed
      {u"junk <a>1</a><b>2</b>", u"a\"1\""},                     // the first element only
      {u"<a>t<b/>u</a>", u"a\"t<b/>u\""},                        // text first: all text
      {u"<a>\r\n <b>1</b> stray <c/>\r\n</a>", u"a{b\"1\";c}"},  // stray text between children
      {u"<a>&#65;&#x42;&#233;</a>", u"a\"AB\u00E9\""},           // numeric references
      {u"<a>&#8364;</a>", u"a\"&#8364;\""},                      // beyond the code page: undecoded
      {u"<a ContentEncoding=\"BASE64\">QQBC\r\n\t AA==</a>",     // "AB" in UTF-16LE, any case
       u"a[ContentEncoding=BASE64]\"AB\""},
      {u"<a ContentEncoding=\"b64\">QQBCAA==</a>", u"a[ContentEncoding=b64]\"QQBCAA==\""},
      {u"<a><b><b><b/></b></b><B>1</b></a>", u"a{b{b{b}};B\"1\"}"},
      {u"<a><c><!-- </c> --></c><c>x</C></a>", u"a{c;c\"x\"}"},
      {u"<?xml version=\"1.0\"?>\r\n<!-- h -->\r\n<cfg a=\"1\">\r\n\t<x k=\"&amp;\">t</x>\r\n\t"
       u"<y><z/><z>2</z></y>\r\n\t<w><![CDATA[<p>\r\n q</p>]]></w>\r\n</cfg>",
       u"cfg[a=1]{x[k=&]\"t\";y{z;z\"2\"};w\"<![CDATA[<p>\r\n q</p>]]>\"}"}};
  for (const auto& [text, tree] : cases) {
    XmlNodePtr woken = Read(text);
    woken->WakeUp(true);
    EXPECT_EQ(Dump(Read(text)) + u"|" + Dump(Read(text, true)) + u"|" + Dump(woken),
              tree + (u"|" + std::u16string(tree)) + u"|" + tree);
  }
}

TEST(XmlParser, DeclarationsAndLazyReadingUntilAskedAndTheFullPathDeletesWithEvents) {
  // Ignore the encoding, text, version, encoding, tree.
  const std::tuple<bool, const char16_t*, const char16_t*, const char16_t*, const char16_t*>
      cases[] = {
          {true, u"<?xml version=\"1.0\" encoding=\"utf-8\"?><a>\u00C3\u00A9</a>", u"1.0", u"",
           u"a\"\u00C3\u00A9\""},
          {false,
           u"<?xml version=\"1.0\" encoding=\"UTF-8\"?><a x=\"\u00C3\u00A9\">\u00C3\u00A9</a>",
           u"1.0", u"UTF-8", u"a[x=\u00E9]\"\u00E9\""},
          {false, u"<?xml version=\"1.1\" encoding=\"utf-8\"?><r><c>\u00C3\u00A8</c></r>", u"1.1",
           u"utf-8", u"r{c\"\u00E8\"}"},
          {false, u"<?xml version=\"1.1\" encoding=\"windows-1252\"?><a>\u00C3\u00A9</a>", u"1.1",
           u"windows-1252", u"a\"\u00C3\u00A9\""}};
  for (const auto& [ignore, text, version, encoding, tree] : cases) {
    for (bool full : {false, true}) {
      XmlNodePtr n = Read(text, full, !ignore);
      EXPECT_EQ(n->XMLVersion() + u"|" + n->XMLEncoding() + u"|" + Dump(n),
                version + (u"|" + std::u16string(encoding)) + u"|" + tree);
    }
  }
  // The lazy path cuts every declaration, the full path only the first: the second is then
  // read as an element named "?xml", which closes itself.
  const char16_t* two = u"<?xml encoding=\"utf-8\"?><?xml version=\"2\"?><a>\u00C3\u00A9</a>";
  XmlNodePtr lazy = Read(two, false, true);
  EXPECT_EQ(Dump(lazy) + lazy->XMLEncoding(), u"a\"\u00E9\"utf-8");
  EXPECT_EQ(Dump(Read(two, true)), u"?xml[version=2]");
  // A comment cut that joins a declaration: the lazy path stripped declarations before.
  EXPECT_EQ(Dump(Read(u"<?x<!-- -->ml v=\"1\"?><a/>")), u"?xml[v=1]");
  EXPECT_EQ(Dump(Read(u"<?x<!-- -->ml v=\"1\"?><a/>", true)), u"a");
  XmlNodePtr root = xml_test::Node(u"root");
  XmlNodePtr n = cXmlNode::Create();
  root->AddChild(n);
  Lines events;
  auto rec = xml_test::Recorder::On({root, n}, events);
  n->XmlData(u"<r a=\"1\"><b><c>1</c></b><d>2</d></r>");
  EXPECT_EQ(events, (Lines{u"r:Modified()", u"root:ChildModified(r,)"}));
  // Attributes are read without waking; a text-only child is read at once, and still counts
  // as asleep until woken; waking raises nothing.
  EXPECT_TRUE(n->IsSleeping() && n->Attribut(u"a") == u"1" && n->ChildCount() == 2);
  XmlNodePtr b = n->Child(1);
  EXPECT_TRUE(!n->IsSleeping() && b->IsSleeping() && n->Child(2)->IsSleeping());
  EXPECT_EQ(n->Child(2)->RawValue(), u"2");
  EXPECT_TRUE(b->ChildCount() == 1 && b->Child(1)->Parent() == b && n->NodeCount() == 3);
  EXPECT_EQ(events.size(), 2u);
  // New text replaces name, attributes and children; an empty text changes nothing.
  n->XmlData(u"<z y=\"2\">t</z>");
  n->XmlData(u"");
  EXPECT_EQ(Dump(n), u"z[y=2]\"t\"");
  // Malformed text keeps the name the lazy path had (not its attributes); the full path
  // starts from nothing.
  n->XmlData(u"<a>no end");
  EXPECT_EQ(n->Name() + n->Attribut(u"y"), u"z");
  n->XmlData___NonRecursif(u"<a>no end");
  EXPECT_EQ(n->Name(), u"");
  // A comment alone stays asleep and reads as nothing.
  XmlNodePtr c = Read(u"<!-- only -->");
  EXPECT_TRUE(c->IsSleeping() && c->ChildCount() == 0 && !c->IsSleeping());
  // Awake or still asleep, the old children go with their events.
  for (const XmlNodePtr& n :
       {xml_test::Node(u"n", {xml_test::Node(u"old")}), Read(u"<n><old/></n>")}) {
    Lines events;
    auto rec = xml_test::Recorder::On({n}, events);
    n->XmlData___NonRecursif(u"<m><x/></m>");
    EXPECT_EQ(events, Lines{u"n:ChildDeleted(old)"});
    EXPECT_FALSE(n->IsSleeping());
    EXPECT_EQ(n->XmlData(), u"<m>\r\n\t<x/>\r\n</m>");
  }
}

TEST(XmlParser, RuleMembersAndEntitiesAnswerAsTheReaderReads) {
  for (std::uint32_t c = 0; c <= 0xFFFF; ++c)  // names fold as the program's upper case does
    ASSERT_EQ(xml::FoldCase(static_cast<char16_t>(c)), base::UpperChar(static_cast<char16_t>(c)));
  XmlNodePtr n = cXmlNode::Create();
  std::int32_t length = 0;
  std::u16string name;
  EXPECT_EQ(n->NextTag(u"xx<!-- <b> --><a k=\"1\"><a/></a>", 1, length, name), 15);
  EXPECT_EQ(name + base::ToText(length), u"a17");
  EXPECT_EQ(n->NextTag(u"<a/>", 0, length, name), 1);  // before the first: from the first
  EXPECT_EQ(n->FindTagEnd(u"<a><A>x</a></A>", 2, u"a"), 12);
  LogCapture log;
  // No position 0: a trapped call.
  EXPECT_TRUE(n->FindTagEnd(u"<a></a>", 0, u"a") == 0 && log.lines.size() == 1);
  EXPECT_TRUE(n->GetTagInfo(u"<t k=\"&lt;\">v</T>"));
  EXPECT_EQ(Dump(n), u"t[k=<]\"v\"");
  EXPECT_FALSE(n->GetTagInfo(u"x") || n->GetTagInfo(u"<u>v</t>"));
  EXPECT_EQ(n->Name(), u"u");
  EXPECT_FALSE(n->GetTagInfo(u"<w k=\"2\" </w>"));
  EXPECT_EQ(Dump(n), u"w[k=2]\"v\"");  // attributes read, the value left as it was
  EXPECT_TRUE(cXmlNode::IsXML(u" \r\n\t<a>", 1) && !cXmlNode::IsXML(u" <![CDATA[x]]>", 1));
  EXPECT_EQ(cXmlNode::xTrim(u" \t\r\nx y\n "), u"x y");
  EXPECT_EQ(cXmlNode::DeleteRems(u"a<!-<!-- x -->- y -->b<!-- z", u"<!--", u"-->"), u"ab<!-- z");
  // Encoding escapes outside CDATA sections and drops the indentation after CR LF; decoding
  // resolves names exactly and numbers through the code page, and is not the mirror of encoding.
  const std::tuple<bool, std::u16string, std::u16string> rows[] = {
      {false, u"say \"x\" & <y> it's", u"say &quot;x&quot; &amp; &lt;y&gt; it&apos;s"},
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
      {true, std::u16string(u"&#0;x", 5), std::u16string(u"\0x", 2)},
      {true, u"", u""}};
  for (const auto& [decode, in, out] : rows)
    EXPECT_EQ(decode ? cXmlNode::DecodeSpecialChars(in) : cXmlNode::EncodeSpecialChars(in), out)
        << base::Narrow(in);
  // A reference the code page cannot give leaves the whole text alone, and is logged.
  for (const char16_t* in :
       {u"&#300;", u"&amp; &#256;", u"&lt;&#x20AC;", u"&#-1;&amp;", u"&#99999999999;&gt;"}) {
    LogCapture log;
    EXPECT_EQ(cXmlNode::DecodeSpecialChars(in), in) << base::Narrow(in);
    ASSERT_EQ(log.lines.size(), 1u);
    EXPECT_TRUE(log.lines[0].ends_with(u") in Function cXmlNode.DecodeSpecialChars"));
  }
}

}  // namespace
