#include <gtest/gtest.h>

#include "base/text.h"
#include "xml/node.h"
#include "xml_test_util.h"

namespace {

using xml_test::Dump;
using Lines = std::vector<std::u16string>;

XmlNodePtr Lazy(std::u16string_view text) {
  XmlNodePtr n = cXmlNode::Create();
  n->XmlData(text);
  return n;
}

XmlNodePtr Full(std::u16string_view text) {
  XmlNodePtr n = cXmlNode::Create();
  n->XmlData___NonRecursif(text);
  return n;
}

struct ReadCase {
  const char16_t* text;
  const char16_t* tree;  // what both paths build
};

// Both reading paths build the same tree from the same text, well-formed or not.
TEST(XmlParser, BothPathsReadTheRulesAsWritten) {
  const ReadCase cases[] = {
      {u"<a>x</A>", u"a\"x\""},                              // closing tags match in any case
      {u"<a>x</b>", u""},                                    // no closing tag: nothing read
      {u"<a><a>1</a></a>", u"a{a\"1\"}"},                    // nesting counted
      {u"<a><ab/><a>1</a></a>", u"a{ab;a\"1\"}"},            // "<ab" opens no "a"
      {u"<a><![CDATA[1<2]]></a>", u"a\"<![CDATA[1<2]]>\""},  // CDATA kept with its markers
      {u"<a> <![CDATA[&amp;]]>\r\n</a>", u"a\"<![CDATA[&amp;]]>\""},  // trimmed, not decoded
      {u"<a k='v'/>", u"a"},                                     // single quotes delimit nothing
      {u"<a k='v' j=\"w\"/>", u"a[k=w]"},                        // up to the next double quote
      {u"<a\tx=\"1\"/>", u"a\tx=\"1\""},                         // only a space ends a name
      {u"<a> x </a>", u"a\" x \""},                              // text is not trimmed
      {u"<a>a &amp; b &lt;&AMP;</a>", u"a\"a & b <?\""},         // entities, names exact
      {u"<a><!DOCTYPE x><b/></a>", u"a\"<!DOCTYPE x><b/>\""},    // "<!" content is text
      {u"<a><!-- c --><b/><!-- <c/> --></a>", u"a{b}"},          // comments cut first
      {u"<a>x<!-- y</a>", u"a\"x<!-- y\""},                      // unterminated comment kept
      {u"<a><![CDATA[x</a>", u"a\"<![CDATA[x\""},                // unterminated CDATA is text
      {u"<a", u""},                                              // no ">"
      {u"<a><b>1</a>", u"a"},                                    // child without closing tag
      {u"<a><b></a></b>", u"a"},                                 // crossed closings
      {u"<a b=\"1\" B=\"2\" c=\"\"/>", u"a[b=2]"},               // the attribute setter's rules
      {u"<a x=\"1\" y=\"2/>", u"a[x=1]"},                        // unclosed quote ends reading
      {u"<a  x = \"1\"   y=\"&quot;\" />", u"a[x=1,y=\"]"},      // blanks around names trimmed
      {u"<a>1</a><b>2</b>", u"a\"1\""},                          // the first element only
      {u"junk <a/> more", u"a"},                                 // text around it ignored
      {u"<a>t<b/>u</a>", u"a\"t<b/>u\""},                        // text first: all text
      {u"<a>\r\n <b>1</b> stray <c/>\r\n</a>", u"a{b\"1\";c}"},  // stray text between children
      {u"<a>&#65;&#x42;&#233;</a>", u"a\"AB\u00E9\""},           // numeric references
      {u"<a>&#8364;</a>", u"a\"&#8364;\""},                      // beyond the code page: undecoded
  };
  for (const ReadCase& c : cases) {
    SCOPED_TRACE(base::Narrow(c.text));
    EXPECT_EQ(Dump(Lazy(c.text)), c.tree);
    EXPECT_EQ(Dump(Full(c.text)), c.tree);
  }
}

TEST(XmlParser, ClosingInsideTheOpeningTagLeavesNameAndNoValue) {
  for (const auto& n : {Lazy(u"<a x=\"1\" </a>"), Full(u"<a x=\"1\" </a>")}) {
    EXPECT_EQ(n->Name(), u"a");
    EXPECT_EQ(n->RawValue(), u"");
    EXPECT_EQ(n->Attribut(u"x"), u"1");
  }
}

TEST(XmlParser, MalformedTextKeepsTheNameTheLazyPathHad) {
  XmlNodePtr n = cXmlNode::Create();
  n->Name(u"kept");
  n->XmlData(u"<a>no end");
  EXPECT_EQ(n->Name(), u"kept");
  EXPECT_EQ(n->ChildCount(), 0);
  // The full path starts from an empty name.
  n->XmlData___NonRecursif(u"<a>no end");
  EXPECT_EQ(n->Name(), u"");
}

struct DeclarationCase {
  bool ignore_encoding;
  const char16_t* text;
  const char16_t* version;
  const char16_t* encoding;
  const char16_t* value;
  std::int32_t attributes;  // the element's own: the declaration's do not stay
};

TEST(XmlParser, DeclarationSetsVersionAndOnlyOnRequestTheEncoding) {
  const DeclarationCase cases[] = {
      {true, u"<?xml version=\"1.0\" encoding=\"utf-8\"?><a>caf\u00C3\u00A9</a>", u"1.0", u"",
       u"caf\u00C3\u00A9", 0},
      {false,
       u"<?xml version=\"1.0\" encoding=\"UTF-8\"?><a x=\"\u00C3\u00A9\">caf\u00C3\u00A9</a>",
       u"1.0", u"UTF-8", u"caf\u00E9", 1},
      {false, u"<?xml version=\"1.1\" encoding=\"windows-1252\"?><a>caf\u00C3\u00A9</a>", u"1.1",
       u"windows-1252", u"caf\u00C3\u00A9", 0},
  };
  for (const DeclarationCase& c : cases) {
    SCOPED_TRACE(base::Narrow(c.text));
    for (bool full : {false, true}) {
      XmlNodePtr n = cXmlNode::Create();
      n->IgnoreDataXmlEncoding = c.ignore_encoding;
      if (full) {
        n->XmlData___NonRecursif(c.text);
      } else {
        n->XmlData(c.text);
      }
      EXPECT_EQ(n->XMLVersion(), c.version);
      EXPECT_EQ(n->XMLEncoding(), c.encoding);
      EXPECT_EQ(n->RawValue(), c.value);
      EXPECT_EQ(n->AttrCount(), c.attributes);
    }
  }
}

TEST(XmlParser, LazyPathCutsEveryDeclarationFullPathOnlyTheFirst) {
  const char16_t* text = u"<?xml encoding=\"utf-8\"?><?xml version=\"2\"?><a>\u00C3\u00A9</a>";
  XmlNodePtr lazy = cXmlNode::Create();
  lazy->IgnoreDataXmlEncoding = false;
  lazy->XmlData(text);
  EXPECT_EQ(Dump(lazy), u"a\"\u00E9\"");
  EXPECT_EQ(lazy->XMLVersion(), u"");
  EXPECT_EQ(lazy->XMLEncoding(), u"utf-8");
  // The second declaration is read as an element named "?xml", which closes itself.
  EXPECT_EQ(Dump(Full(text)), u"?xml[version=2]");
}

TEST(XmlParser, Utf8AppliesToAttributesAndChildrenBelowTheDeclaringRoot) {
  XmlNodePtr n = cXmlNode::Create();
  n->IgnoreDataXmlEncoding = false;
  n->XmlData(
      u"<?xml version=\"1.0\" encoding=\"utf-8\"?><r><c k=\"\u00C3\u00A9\">\u00C3\u00A8</c></r>");
  XmlNodePtr c = n->Child(1);
  ASSERT_TRUE(c);
  EXPECT_EQ(c->Attribut(u"k"), u"\u00E9");
  EXPECT_EQ(c->RawValue(), u"\u00E8");
}

TEST(XmlParser, Base64ContentIsDecodedWhateverTheCaseOfItsName) {
  // "AB" as UTF-16LE bytes is QQBCAA==.
  EXPECT_EQ(Lazy(u"<a ContentEncoding=\"BASE64\">QQBC\r\n\t AA==</a>")->RawValue(), u"AB");
  EXPECT_EQ(Full(u"<a contentencoding=\"base64\">QQBCAA==</a>")->RawValue(), u"AB");
  EXPECT_EQ(Lazy(u"<a ContentEncoding=\"b64\">QQBCAA==</a>")->RawValue(), u"QQBCAA==");
}

TEST(XmlParser, LazyReadingKeepsChildrenAsleepUntilAsked) {
  XmlNodePtr n = Lazy(u"<r a=\"1\"><b><c>1</c></b><d>2</d></r>");
  EXPECT_TRUE(n->IsSleeping());
  EXPECT_EQ(n->Name(), u"r");
  EXPECT_EQ(n->Attribut(u"a"), u"1");
  EXPECT_EQ(n->RawValue(), u"");
  EXPECT_EQ(n->ChildCount(), 2);
  EXPECT_FALSE(n->IsSleeping());
  XmlNodePtr b = n->Child(1);
  EXPECT_TRUE(b->IsSleeping());
  EXPECT_EQ(b->Name(), u"b");
  // A text-only child is read at once, and still counts as asleep until woken.
  XmlNodePtr d = n->Child(2);
  EXPECT_EQ(d->RawValue(), u"2");
  EXPECT_TRUE(d->IsSleeping());
  EXPECT_EQ(b->ChildCount(), 1);
  EXPECT_EQ(b->Child(1)->RawValue(), u"1");
  EXPECT_EQ(b->Child(1)->Parent(), b);
}

TEST(XmlParser, AssignmentRaisesOneModifiedAndWakingRaisesNothing) {
  XmlNodePtr root = cXmlNode::Create();
  root->Name(u"root");
  XmlNodePtr n = cXmlNode::Create();
  root->AddChild(n);
  Lines events;
  auto rec = xml_test::Recorder::On({root, n}, events);
  n->XmlData(u"<n><a/><b><c/></b></n>");
  EXPECT_EQ(events, (Lines{u"n:Modified()", u"root:ChildModified(n,)"}));
  events.clear();
  EXPECT_EQ(n->NodeCount(), 3);
  EXPECT_EQ(events, Lines{});
}

TEST(XmlParser, AssigningTextReplacesChildrenAndAttributes) {
  XmlNodePtr n = Lazy(u"<a x=\"1\"><b/></a>");
  n->XmlData(u"<z y=\"2\">t</z>");
  EXPECT_EQ(Dump(n), u"z[y=2]\"t\"");
  // An empty text changes nothing.
  n->XmlData(u"");
  EXPECT_EQ(Dump(n), u"z[y=2]\"t\"");
  EXPECT_FALSE(n->IsSleeping());
}

TEST(XmlParser, FullPathDeletesChildrenWithEvents) {
  // Awake or still asleep, the old children go with their events, and only the new text is
  // left to read.
  for (const XmlNodePtr& n :
       {xml_test::Node(u"n", {xml_test::Node(u"old")}), Lazy(u"<n><old/></n>")}) {
    Lines events;
    auto rec = xml_test::Recorder::On({n}, events);
    n->XmlData___NonRecursif(u"<m><x/></m>");
    EXPECT_EQ(events, Lines{u"n:ChildDeleted(old)"});
    EXPECT_FALSE(n->IsSleeping());
    EXPECT_EQ(Dump(n), u"m{x}");
    EXPECT_EQ(n->XmlData(), u"<m>\r\n\t<x/>\r\n</m>");
  }
}

TEST(XmlParser, CommentOnlyTextStaysAsleepAndReadsAsNothing) {
  XmlNodePtr n = Lazy(u"<!-- only -->");
  EXPECT_TRUE(n->IsSleeping());
  EXPECT_EQ(n->Name(), u"");
  EXPECT_EQ(n->ChildCount(), 0);
  EXPECT_FALSE(n->IsSleeping());
}

TEST(XmlParser, RuleMembersAnswerAsTheReaderReads) {
  XmlNodePtr n = cXmlNode::Create();
  std::int32_t length = 0;
  std::u16string name;
  EXPECT_EQ(n->NextTag(u"xx<!-- <b> --><a k=\"1\"><a/></a>", 1, length, name), 15);
  EXPECT_EQ(length, 17);
  EXPECT_EQ(name, u"a");
  EXPECT_EQ(n->NextTag(u"<a>", 1, length, name), 0);
  EXPECT_EQ(n->FindTagEnd(u"<a><A>x</a></A>", 2, u"a"), 12);
  EXPECT_TRUE(n->GetTagInfo(u"<t k=\"&lt;\">v</T>"));
  EXPECT_EQ(Dump(n), u"t[k=<]\"v\"");
  EXPECT_FALSE(n->GetTagInfo(u"<u>v</t>"));
  EXPECT_EQ(n->Name(), u"u");
  EXPECT_FALSE(n->GetTagInfo(u"<w k=\"2\" </w>"));
  EXPECT_EQ(Dump(n), u"w[k=2]\"v\"");  // attributes read, the value left as it was
  EXPECT_TRUE(cXmlNode::IsXML(u" \r\n\t<a>", 1));
  EXPECT_FALSE(cXmlNode::IsXML(u" <![CDATA[x]]>", 1));
  EXPECT_FALSE(cXmlNode::IsXML(u"<!x>", 1));
  EXPECT_FALSE(cXmlNode::IsXML(u" \t", 1));
  EXPECT_EQ(cXmlNode::xTrim(u" \t\r\nx y\n "), u"x y");
  EXPECT_EQ(cXmlNode::DeleteRems(u"a<!-<!-- x -->- y -->b<!-- z", u"<!--", u"-->"), u"ab<!-- z");
}

TEST(XmlParser, MillionLevelChainReadWithoutRecursion) {
  const std::size_t depth = 1000000;
  std::u16string text;
  text.reserve(depth * 7 + 1);
  for (std::size_t i = 0; i < depth; ++i) text += u"<e>";
  text += u"x";
  for (std::size_t i = 0; i < depth; ++i) text += u"</e>";
  // Lazily, one level woken at a time, and all at once by a full wake-up.
  XmlNodePtr node = Lazy(text);
  std::size_t levels = 1;
  for (; node->ChildCount() == 1; ++levels) node = node->Child(1);
  EXPECT_EQ(levels, depth);
  EXPECT_EQ(node->RawValue(), u"x");
  XmlNodePtr full = Lazy(text);
  full->WakeUp(true);
  EXPECT_EQ(full->NodeCount(), static_cast<std::int32_t>(depth - 1));
}

TEST(XmlParser, LazyAndFullTreesAgreeOnMixedDocuments) {
  const char16_t* texts[] = {
      u"<?xml version=\"1.0\"?>\r\n<!-- head -->\r\n<cfg a=\"1\">\r\n\t<x k=\"&amp;\">t</x>\r\n\t"
      u"<y><z/><z>2</z></y>\r\n\t<w><![CDATA[<p>\r\n q</p>]]></w>\r\n</cfg>",
      u"<a><b><b><b/></b></b><B>1</b></a>",
      u"<a><c><!-- </c> --></c><c>x</C></a>",
  };
  for (const char16_t* t : texts) {
    SCOPED_TRACE(base::Narrow(t));
    XmlNodePtr lazy = Lazy(t);
    const std::u16string one_level = Dump(lazy);
    XmlNodePtr woken = Lazy(t);
    woken->WakeUp(true);
    EXPECT_EQ(one_level, Dump(Full(t)));
    EXPECT_EQ(one_level, Dump(woken));
  }
}

}  // namespace
