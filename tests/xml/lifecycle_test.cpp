#include <gtest/gtest.h>

#include "xml/node.h"
#include "xml_test_util.h"

namespace {

using xml_test::Node;
using xml_test::Recorder;
using Lines = std::vector<std::u16string>;

TEST(XmlLifecycle, ReleaseBreaksTheSubtreeUpWithDeletedEvents) {
  XmlNodePtr x1 = Node(u"x1");
  XmlNodePtr x = Node({u"x", u"", {{u"k", u"v"}}}, {x1, Node(u"x2")});
  XmlNodePtr p = Node(u"p", {x});
  Lines events;
  auto rec = Recorder::On({p, x, x1}, events);
  x->Release();
  EXPECT_EQ(events, (Lines{u"x:ChildDeleted(x2)", u"p:ChildDeleted(x2)", u"x1:Deleted",
                           u"x:ChildDeleted(x1)", u"p:ChildDeleted(x1)"}));
  EXPECT_EQ(x->AttrCount(), 0);
  EXPECT_EQ(x->ChildCount(), 0);
  EXPECT_EQ(x->Parent(), nullptr);
  EXPECT_TRUE(x1->Deleted);
  EXPECT_FALSE(x->Deleted);
  // Only the link went: the former parent still lists the node.
  EXPECT_EQ(p->ChildCount(), 1);
  EXPECT_EQ(p->Child(1), x);
}

TEST(XmlLifecycle, RefCountsSeeHoldersOutsideTheTree) {
  XmlNodePtr root = Node(u"root", {Node(u"a", {Node(u"a1"), Node(u"a2")}), Node(u"b")});
  EXPECT_EQ(root->ExternalRefCount(), 0);
  XmlNodePtr held = root->FindNode(u"a2", true);
  EXPECT_EQ(cXmlNode::GetRefCount(held), 2);  // the list entry and this variable
  EXPECT_EQ(root->ExternalRefCount(), 1);
  EXPECT_EQ(root->Child(1)->ExternalRefCount(), 1);
  EXPECT_EQ(root->Child(2)->ExternalRefCount(), 0);
  XmlNodePtr also = held;
  XmlNodePtr a = root->Child(1);
  EXPECT_EQ(root->ExternalRefCount(), 3);
  EXPECT_EQ(cXmlNode::GetRefCount(nullptr), 0);
  // A sleeping node has nothing below it to hold.
  XmlNodeTestPeer::SetSleepText(*a, u"<a/>");
  EXPECT_EQ(a->ExternalRefCount(), 0);
  EXPECT_TRUE(a->IsSleeping());
}

}  // namespace
