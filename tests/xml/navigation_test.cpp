#include <gtest/gtest.h>

#include "base/text.h"
#include "xml/node.h"
#include "xml_test_util.h"

namespace {

using xml_test::LogCapture;
using xml_test::Node;

std::u16string NameOf(const XmlNodePtr& n) {
  return n ? n->Name() : u"-";
}

// root > a > (a1, a2 > a21), b, c
struct Doc {
  XmlNodePtr a21 = Node(u"a21"), a1 = Node(u"a1"), a2 = Node(u"a2", {a21});
  XmlNodePtr a = Node(u"a", {a1, a2}), b = Node(u"b"), c = Node(u"c");
  XmlNodePtr root = Node(u"root", {a, b, c});
};

TEST(XmlNavigation, DocumentOrderSiblingsAndContains) {
  Doc d;
  std::u16string forward;
  for (XmlNodePtr n = d.root; n; n = n->NextNode()) forward += n->Name() + u" ";
  EXPECT_EQ(forward, u"root a a1 a2 a21 b c ");
  const struct {
    XmlNodePtr node;
    const char16_t* around;  // previous sibling, next sibling, previous node
  } rows[] = {
      {d.root, u"- - -"}, {d.a, u"- b root"}, {d.a1, u"- a2 a"},
      {d.a21, u"- - a2"}, {d.b, u"a c a"},    {d.c, u"b - b"},  // never into a sibling's subtree
  };
  for (const auto& r : rows) {
    EXPECT_EQ(NameOf(r.node->PrevSibling()) + u" " + NameOf(r.node->NextSibling()) + u" " +
                  NameOf(r.node->PrevNode()),
              r.around)
        << base::Narrow(r.node->Name());
    EXPECT_EQ(r.node->RootNode(), d.root);
  }
  // A node its parent does not list steps to the first child.
  XmlNodePtr stray = Node(u"stray");
  stray->Parent(d.a);
  EXPECT_EQ(stray->NextSibling(), d.a1);
  EXPECT_EQ(stray->PrevSibling(), nullptr);
  EXPECT_TRUE(d.root->Contains(d.a, false));
  EXPECT_FALSE(d.root->Contains(d.a21, false));
  EXPECT_TRUE(d.root->Contains(d.a21, true));
  EXPECT_FALSE(d.a->Contains(d.b, true) || d.a->Contains(d.a, true) ||
               d.a->Contains(nullptr, true));
  EXPECT_FALSE(d.a->Contains(Node(u"a1"), true));  // same name, another node
  d.a21->Parent(nullptr);  // the link cleared, the node still listed and contained
  EXPECT_TRUE(d.a2->Contains(d.a21, false));
}

TEST(XmlPath, Forms) {
  XmlNodePtr c = Node({u"c", u"", {{u"name", u"nc"}}});
  XmlNodePtr b = Node({u"b", u"", {{u"id", u"7"}, {u"name", u"nb"}}}, {c});
  XmlNodePtr a = Node(u"a", {b});
  XmlNodePtr e2 = Node(u""), e1 = Node(u"", {e2}), top = Node(u"a", {e1});
  // Attribute names any case; nodes without a name still get their separators.
  const struct {
    XmlNodePtr node;
    const char16_t *attribut, *sep;
    XmlNodePtr root;
    const char16_t* path;
  } rows[] = {{c, u"", u".", nullptr, u"a.b.c"},
              {c, u"", u".", a, u"b.c"},
              {c, u"", u".", c, u""},
              {c, u"id|name", u".", nullptr, u"a.b-7.c-nc"},
              {c, u"name|id", u".", nullptr, u"a.b-nb.c-nc"},
              {c, u"ID", u".", nullptr, u"a.b-7.c"},
              {c, u"none||id", u".", nullptr, u"a.b-7.c"},
              {c, u"", u"::", nullptr, u"a::b::c"},
              {e2, u"", u".", nullptr, u"a.."},
              {e2, u"", u".", top, u"."}};
  for (const auto& r : rows)
    EXPECT_EQ(r.node->Path(r.attribut, r.sep, r.root), r.path) << base::Narrow(r.path);
  // A stop node outside the chain gives what was built, with its separator.
  LogCapture log;
  EXPECT_EQ(c->Path(u"", u".", Node(u"elsewhere")), u"a.b.c.");
  EXPECT_EQ(log.lines, xml_test::Lines{u"Erreur 91 (Object variable or With block variable not "
                                       u"set) dans Property cXmlNode.Path"});
}

TEST(XmlChildPath, GetChildValueReadsAndCreatesOnRequest) {
  XmlNodePtr root = Node(u"cfg", {Node({u"a", u"", {{u"id", u"A"}}}, {Node({u"b", u"B"})})});
  struct Row {
    const char16_t* path;
    bool create;
    const char16_t* attr;
    const char16_t* value;
    std::int32_t nodes_after;
  } rows[] = {
      // A missing step makes nothing unless asked; no steps is the node itself; empty steps are
      // empty names, and the first made answers the second step for itself.
      {u"a.b", false, u"", u"B", 2},  {u"A.B", false, u"", u"B", 2},  {u"a", false, u"id", u"A", 2},
      {u"a", false, u"none", u"", 2}, {u"a.x.y", false, u"", u"", 2}, {u"", false, u"", u"", 2},
      {u"a.x.y", true, u"", u"", 4},  {u"a..", true, u"", u"", 5},    {u"a..", false, u"", u"", 5}};
  for (const auto& r : rows) {
    EXPECT_EQ(root->GetChildValue(r.path, r.create, r.attr), r.value)
        << testing::PrintToString(std::u16string(r.path));
    EXPECT_EQ(root->NodeCount(), r.nodes_after) << testing::PrintToString(std::u16string(r.path));
  }
  EXPECT_EQ(xml_test::ChildNames(root->GetChildNode(u"a")), u"b,x,");
}

TEST(XmlChildPath, GetChildNodeCreatesWithEventsAndEachStepCanAnswerForItself) {
  XmlNodePtr root = Node(u"x", {Node(u"y", {Node(u"z")})});
  xml_test::Lines events;
  auto rec = xml_test::Recorder::On({root}, events);
  root->GetChildNode(u"p/q", true, false, u"/");
  EXPECT_EQ(events, (xml_test::Lines{u"x:ChildAdded(p)", u"x:ChildAdded(q)"}));
  EXPECT_EQ(root->GetChildNode(u"p/q", false, false, u"/")->Path(), u"x.p.q");
  EXPECT_EQ(root->GetChildNode(u"p/q"), nullptr);  // with ".", one step named "p/q"
  // FindNode tests the current node first: a step named like the node itself stays there.
  EXPECT_EQ(root->GetChildNode(u"x.y")->Name(), u"y");
  EXPECT_EQ(root->GetChildNode(u"z"), nullptr);
  EXPECT_EQ(root->GetChildNode(u"z", false, true)->Name(), u"z");
}

// Fields past the end of the text are short, then empty.
TEST(XmlChildPath, FixSplit) {
  using Fields = std::vector<std::u16string>;
  struct Row {
    const char16_t* text;
    std::vector<std::int32_t> lengths;
    std::int32_t sep;
    Fields fields;
  } rows[] = {{u"20120113>07", {8, 2}, 1, {u"20120113", u"07"}},
              {u"abcdef", {2, 2, 2}, 0, {u"ab", u"cd", u"ef"}},
              {u"ab", {1, 5, 3}, 0, {u"a", u"b", u""}},
              {u"a-b-c", {1, 1}, 1, {u"a", u"b"}},
              {u"abc", {}, 1, {}},
              {u"abc", {0, 1}, 1, {u"", u"b"}}};
  for (const auto& r : rows) {
    EXPECT_EQ(cXmlNode::FixSplit(r.text, r.lengths, r.sep), r.fields)
        << testing::PrintToString(std::u16string(r.text));
  }
  LogCapture log;
  EXPECT_EQ(cXmlNode::FixSplit(u"abc", {1, -1}, 0), Fields{});
  EXPECT_EQ(cXmlNode::FixSplit(u"abc", {1, 1}, -5), Fields{});
  const std::u16string error =
      u"Error 5 (Invalid procedure call or argument) in Function cXmlNode.FixSplit";
  EXPECT_EQ(log.lines, (xml_test::Lines{error, error}));
}

}  // namespace
