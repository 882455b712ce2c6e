// Trees of the shapes that users' files and other programs produce at the extremes: a chain of
// a million nested nodes and a node with a million children. Every member that visits a subtree
// goes through one walk, so one of them at depth stands for all; the walks up the parent links,
// the bulk delete and the destructor are their own loops and are checked here too.
#include <gtest/gtest.h>

#include "xml/node.h"
#include "xml_test_util.h"

namespace {

using xml_test::Node;

constexpr std::int32_t kMillion = 1000000;

class Counter : public xml::XmlNodeEvents {
 public:
  void ChildModified(cXmlNode&, const XmlNodePtr&, const std::u16string&) override { ++heard; }
  void ParentModifed(cXmlNode&, const XmlNodePtr&, const std::u16string&) override { ++heard; }
  void ChildDeleted(cXmlNode&, const XmlNodePtr&) override { ++heard; }
  int heard = 0;
};

TEST(XmlTreeShapes, MillionLevelChain) {
  const std::int64_t live = cXmlNode::LiveNodeCount();
  {
    // root > e > ... > leaf, read lazily and woken one level at a time on the way down; a
    // second copy read at once.
    std::u16string text = u"<root>";
    for (std::int32_t i = 2; i < kMillion; ++i) text += u"<e>";
    text += u"<leaf>x</leaf>";
    for (std::int32_t i = 2; i < kMillion; ++i) text += u"</e>";
    XmlNodePtr root = xml_test::Read(text + u"</root>");
    XmlNodePtr leaf = root;
    while (leaf->ChildCount() == 1) leaf = leaf->Child(1);
    EXPECT_EQ(leaf->Name() + leaf->Value(), u"leafx");
    EXPECT_EQ(xml_test::Read(text + u"</root>", true)->NodeCount(), kMillion - 1);
    EXPECT_EQ(root->NodeCount(), kMillion - 1);  // the walk down
    EXPECT_EQ(root->FindNode(u"leaf", true), leaf);
    EXPECT_EQ(leaf->Depth(), kMillion - 1);  // the walks up
    EXPECT_EQ(leaf->GetParent(kMillion - 1), root);
    EXPECT_EQ(leaf->Path().size(), 4u + 2u * (kMillion - 2) + 5u);
    std::int32_t steps = 0;
    for (XmlNodePtr n = root; n; n = n->NextNode()) ++steps;
    EXPECT_EQ(steps, kMillion);

    auto top = std::make_shared<Counter>(), bottom = std::make_shared<Counter>();
    root->AddEventSink(top);
    leaf->AddEventSink(bottom);
    leaf->Value(u"y");
    root->Attribut(u"k", u"v");
    EXPECT_EQ(top->heard + bottom->heard, 2);
    root->Sleep();  // held at the bottom: every level stays awake
    EXPECT_FALSE(root->IsSleeping() || leaf->Parent()->IsSleeping());
    // Release deletes the chain from the bottom, each deletion heard once at the top.
    root->Release();
    EXPECT_EQ(top->heard, 1 + kMillion - 1);
    EXPECT_TRUE(leaf->Deleted);
    EXPECT_EQ(leaf->Parent(), nullptr);
  }
  EXPECT_EQ(cXmlNode::LiveNodeCount(), live);  // no nested destructor per level either
}

TEST(XmlTreeShapes, MillionChildren) {
  const std::int64_t live = cXmlNode::LiveNodeCount();
  {
    XmlNodePtr root = Node(u"root");
    for (std::int32_t i = 0; i < kMillion; ++i) root->AddChild(Node(u"c"));
    XmlNodePtr last = root->Child(kMillion);
    EXPECT_EQ(last->Index(), kMillion);
    std::int32_t steps = 0;
    for (XmlNodePtr n = last; n; n = n->PrevSibling()) ++steps;
    EXPECT_EQ(steps, kMillion);
    // Taking children off the front one by one and inserting at the front stay linear.
    auto top = std::make_shared<Counter>();
    root->AddEventSink(top);
    for (std::int32_t i = 0; i < kMillion / 2; ++i) root->DelChild(1);
    for (std::int32_t i = 0; i < 1000; ++i) root->AddChild(Node(u"front"), 1);
    EXPECT_EQ(top->heard, kMillion / 2);
    EXPECT_EQ(last->Index(), kMillion / 2 + 1000);
    EXPECT_EQ(root->Child(1001)->Name(), u"c");
  }
  EXPECT_EQ(cXmlNode::LiveNodeCount(), live);
}

}  // namespace
