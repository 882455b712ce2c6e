#include <gtest/gtest.h>

#include "xml/node.h"
#include "xml_test_util.h"

namespace {

using xml_test::Dump;
using xml_test::Lines;
using xml_test::Node;
using xml_test::Recorder;

XmlNodePtr Sample() {
  XmlNodePtr root = xml_test::Read(
      u"<root v=\"1\"><a><a1 k=\"x\">1</a1><a2/></a><b><b1><![CDATA[<q>\r\n]]></b1></b></root>");
  root->WakeUp(true);
  return root;
}

TEST(XmlLifecycle, ReleaseBreaksTheSubtreeUpWithDeletedEvents) {
  XmlNodePtr x1 = Node(u"x1");
  XmlNodePtr x = Node({u"x", u"", {{u"k", u"v"}}}, {x1, Node(u"x2")});
  XmlNodePtr p = Node(u"p", {x});
  Lines events;
  auto rec = Recorder::On({p, x, x1}, events);
  x->Release();
  EXPECT_EQ(events, (Lines{u"x:ChildDeleted(x2)", u"p:ChildDeleted(x2)", u"x1:Deleted",
                           u"x:ChildDeleted(x1)", u"p:ChildDeleted(x1)"}));
  EXPECT_EQ(Dump(x), u"x");
  EXPECT_TRUE(!x->Parent() && x1->Deleted && !x->Deleted);
  EXPECT_EQ(p->Child(1), x);  // only the link went: the former parent still lists the node
}

TEST(XmlLifecycle, SleepKeepsTheTextAndWakingBringsTheSameTreeQuietly) {
  XmlNodePtr root = Sample();
  const std::u16string before = Dump(root);
  Lines events;
  auto rec = Recorder::On({root}, events);
  root->Child(1)->Sleep();
  EXPECT_TRUE(root->Child(1)->IsSleeping());
  EXPECT_EQ(events, Lines{u"root:SaveSleepData(a,<a>\r\n\t<a1 k=\"x\">1</a1>\r\n\t<a2/>\r\n</a>)"});
  root->Sleep();
  EXPECT_TRUE(root->IsSleeping() && root->ExternalRefCount() == 0);
  EXPECT_EQ(root->Attribut(u"v"), u"1");  // what is read without waking stays
  events.clear();
  EXPECT_EQ(Dump(root), before);
  EXPECT_EQ(events, Lines{});
  root->Sleep();
  root->WakeUp(true);
  EXPECT_FALSE(root->IsSleeping());
  EXPECT_EQ(Dump(root), before);
  // Kept by the application: asked back when woken; nothing given back leaves it empty.
  rec->keep_sleep_text = true;
  XmlNodePtr b = root->Child(2);
  b->Sleep();
  EXPECT_EQ(XmlNodeTestPeer::SleepText(*b), u"_-_STORED_-_");
  EXPECT_EQ(Dump(root), before);
  EXPECT_EQ(events.back(), u"root:RestoreSleepData(b)");
  b->Sleep();
  rec->kept.clear();
  EXPECT_EQ(b->ChildCount(), 0);
  EXPECT_FALSE(b->IsSleeping());
}

TEST(XmlLifecycle, SleepSparesTheBranchesHeldFromOutside) {
  XmlNodePtr root = Sample();
  XmlNodePtr held = root->FindNode(u"a1", true);
  EXPECT_EQ(cXmlNode::GetRefCount(held), 2);  // the list entry and this variable
  EXPECT_EQ(root->ExternalRefCount(), 1);
  EXPECT_EQ(root->Child(2)->ExternalRefCount(), 0);
  root->Sleep();
  EXPECT_FALSE(root->IsSleeping() || root->Child(1)->IsSleeping());
  EXPECT_TRUE(root->Child(2)->IsSleeping());  // nobody holds anything below b
  // Nothing is held below the held node itself or its sibling: both sleep, in place.
  EXPECT_TRUE(held->IsSleeping() && root->Child(1)->Child(2)->IsSleeping());
  EXPECT_EQ(held->Parent(), root->Child(1));
  held->Value(u"2");
  EXPECT_EQ(root->GetChildValue(u"a.a1"), u"2");
}

}  // namespace
