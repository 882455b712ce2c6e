#include <gtest/gtest.h>

#include "xml/node.h"
#include "xml_test_util.h"

namespace {

using xml_test::Node;

// root > a > (a1, a2 > a21), b, c
struct Doc {
  XmlNodePtr a21 = Node(u"a21");
  XmlNodePtr a1 = Node(u"a1");
  XmlNodePtr a2 = Node(u"a2", {a21});
  XmlNodePtr a = Node(u"a", {a1, a2});
  XmlNodePtr b = Node(u"b");
  XmlNodePtr c = Node(u"c");
  XmlNodePtr root = Node(u"root", {a, b, c});
};

std::u16string NameOf(const XmlNodePtr& n) {
  return n ? n->Name() : u"-";
}

TEST(XmlNavigation, DocumentOrderForwardAndTheShortStepBack) {
  Doc d;
  std::u16string forward;
  for (XmlNodePtr n = d.root; n; n = n->NextNode()) forward += n->Name() + u" ";
  EXPECT_EQ(forward, u"root a a1 a2 a21 b c ");
  struct Row {
    XmlNodePtr node;
    const char16_t *prev_sibling, *next_sibling, *prev_node;
  } rows[] = {
      {d.root, u"-", u"-", u"-"}, {d.a, u"-", u"b", u"root"}, {d.a1, u"-", u"a2", u"a"},
      {d.a21, u"-", u"-", u"a2"}, {d.b, u"a", u"c", u"a"},    {d.c, u"b", u"-", u"b"},
  };
  for (const auto& r : rows) {
    EXPECT_EQ(NameOf(r.node->PrevSibling()), r.prev_sibling) << NameOf(r.node).size();
    EXPECT_EQ(NameOf(r.node->NextSibling()), r.next_sibling);
    EXPECT_EQ(NameOf(r.node->PrevNode()), r.prev_node);  // never into the sibling's subtree
  }
  EXPECT_EQ(d.c->NextNode(), nullptr);
  EXPECT_EQ(d.a21->RootNode(), d.root);
  EXPECT_EQ(d.root->RootNode(), d.root);
}

TEST(XmlNavigation, ANodeItsParentDoesNotListStepsToTheFirstChild) {
  Doc d;
  XmlNodePtr stray = Node(u"stray");
  stray->Parent(d.a);  // linked, not listed: Index 0
  EXPECT_EQ(stray->Index(), 0);
  EXPECT_EQ(stray->NextSibling(), d.a1);
  EXPECT_EQ(stray->PrevSibling(), nullptr);
}

TEST(XmlNavigation, ContainsByIdentity) {
  Doc d;
  EXPECT_TRUE(d.root->Contains(d.a, false));
  EXPECT_FALSE(d.root->Contains(d.a21, false));
  EXPECT_TRUE(d.root->Contains(d.a21, true));
  EXPECT_FALSE(d.a->Contains(d.b, true));
  EXPECT_FALSE(d.a->Contains(d.a, true));
  EXPECT_FALSE(d.a->Contains(nullptr, true));
  EXPECT_FALSE(d.a->Contains(Node(u"a1"), true));  // same name, another node
  // A node whose link was cleared is still in the list, and still contained.
  d.a21->Parent(nullptr);
  EXPECT_TRUE(d.root->Contains(d.a21, true));
  EXPECT_TRUE(d.a2->Contains(d.a21, false));
}

}  // namespace
