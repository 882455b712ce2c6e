// Trees of the shapes that users' files and other programs produce at the extremes: a chain
// of a million nested nodes and a node with a million children. Every walk has to be a loop
// (the Windows main thread has 2 MB of stack) and linear (a quadratic step would not finish).
#include <gtest/gtest.h>

#include "xml/node.h"
#include "xml_test_util.h"

namespace {

using xml_test::Node;

constexpr std::int32_t kMillion = 1000000;

// Counts the events of one kind a node hears.
class Counter : public xml::XmlNodeEvents {
 public:
  void ChildModified(cXmlNode&, const XmlNodePtr&, const std::u16string&) override {
    ++child_modified;
  }
  void ParentModifed(cXmlNode&, const XmlNodePtr&, const std::u16string&) override {
    ++parent_modified;
  }
  void ChildDeleted(cXmlNode&, const XmlNodePtr&) override { ++child_deleted; }
  void ParentNodeEvent(cXmlNode&, const std::u16string&, const XmlNodePtr&,
                       const xml::EventParamList&) override {
    ++parent_node_event;
  }
  void ChildAdded(cXmlNode&, const XmlNodePtr&) override { ++child_added; }
  int child_modified = 0, parent_modified = 0, child_deleted = 0, parent_node_event = 0,
      child_added = 0;
};

// root > n > n > ... > leaf: count nodes in all. Built the way the reader builds a document,
// without events: with a listener anywhere in the process, adding each level through AddChild
// would announce it to every ancestor.
struct Chain {
  explicit Chain(std::int32_t count) {
    root = Node(u"root");
    XmlNodePtr current = root;
    for (std::int32_t i = 2; i < count; ++i) {
      XmlNodePtr next = cXmlNode::Create();
      next->Name(u"n");
      XmlNodeTestPeer::AppendChildQuiet(*current, next);
      current = std::move(next);
    }
    leaf = Node(u"leaf");
    XmlNodeTestPeer::AppendChildQuiet(*current, leaf);
  }
  XmlNodePtr root;
  XmlNodePtr leaf;
};

TEST(XmlTreeShapes, MillionLevelChainWalks) {
  const std::int64_t live = cXmlNode::LiveNodeCount();
  {
    Chain chain(kMillion);
    EXPECT_EQ(cXmlNode::LiveNodeCount(), live + kMillion);
    EXPECT_EQ(chain.leaf->Depth(), kMillion - 1);
    EXPECT_EQ(chain.root->NodeCount(), kMillion - 1);
    EXPECT_EQ(chain.root->FindNode(u"leaf", true), chain.leaf);
    EXPECT_EQ(chain.root->FindNode(u"nothing", true), nullptr);
    EXPECT_TRUE(chain.root->Contains(chain.leaf, true));
    EXPECT_FALSE(chain.root->Contains(Node(u"leaf"), true));
    EXPECT_EQ(chain.leaf->RootNode(), chain.root);
    EXPECT_EQ(chain.root->ExternalRefCount(), 1);  // this test holds the leaf
    EXPECT_EQ(chain.leaf->GetParent(kMillion - 1), chain.root);

    const std::u16string path = chain.leaf->Path();
    EXPECT_EQ(path.size(), 4u + 2u * (kMillion - 2) + 5u);
    EXPECT_TRUE(path.starts_with(u"root.n.n."));
    EXPECT_TRUE(path.ends_with(u".n.leaf"));

    // Document order runs down the chain and ends after the leaf.
    std::int32_t steps = 0;
    for (XmlNodePtr n = chain.root; n; n = n->NextNode()) ++steps;
    EXPECT_EQ(steps, kMillion);
  }
  // Destroying the chain took it apart without a nested destructor per level.
  EXPECT_EQ(cXmlNode::LiveNodeCount(), live);
}

TEST(XmlTreeShapes, MillionLevelChainEventsAndClone) {
  Chain chain(kMillion);
  auto top = std::make_shared<Counter>();
  auto bottom = std::make_shared<Counter>();
  chain.root->AddEventSink(top);
  chain.leaf->AddEventSink(bottom);

  chain.leaf->Value(u"x");  // up a million ancestors
  EXPECT_EQ(top->child_modified, 1);
  chain.root->Attribut(u"k", u"v");  // down a million descendants
  EXPECT_EQ(bottom->parent_modified, 1);
  chain.root->RaiseNodeEvent(u"Refresh");
  EXPECT_EQ(bottom->parent_node_event, 1);

  XmlNodePtr copy = chain.root->Clone();
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->NodeCount(), kMillion - 1);
  XmlNodePtr copied_leaf = copy->FindNode(u"leaf", true);
  ASSERT_NE(copied_leaf, nullptr);
  EXPECT_EQ(copied_leaf->Value(), u"x");
  EXPECT_EQ(copied_leaf->Depth(), kMillion - 1);
}

TEST(XmlTreeShapes, MillionLevelChainReleaseAndDelete) {
  {
    // Release announces every deletion to the listening root, once each.
    Chain chain(kMillion);
    auto top = std::make_shared<Counter>();
    chain.root->AddEventSink(top);
    chain.root->Release();
    EXPECT_EQ(top->child_deleted, kMillion - 1);
    EXPECT_TRUE(chain.leaf->Deleted);
    EXPECT_EQ(chain.leaf->Parent(), nullptr);
    EXPECT_EQ(chain.root->ChildCount(), 0);
  }
  {
    // Deleting the chain below a listening node in the middle.
    Chain chain(kMillion);
    XmlNodePtr middle = chain.root->GetParent(0);
    for (int i = 0; i < 10; ++i) middle = middle->Child(1);
    auto mid = std::make_shared<Counter>();
    middle->AddEventSink(mid);
    middle->DelChild(1);
    EXPECT_EQ(mid->child_deleted, kMillion - 11);
    EXPECT_EQ(chain.root->NodeCount(), 10);
  }
}

TEST(XmlTreeShapes, MillionLevelChainRuleWalks) {
  Chain chain(kMillion);
  const XmlNodePtr leaf_rule =
      Node(u"R", {Node(xml_test::NodeDef{u"MatchRule", u"", {{u"path", u"n.leaf"}}})});
  std::vector<XmlNodePtr> found;
  chain.root->FindNodes(leaf_rule, found);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0], chain.leaf);
  EXPECT_EQ(chain.root->FindFirstMatch(Node(u"R"), Node(u"leaf"), kMillion), chain.leaf);

  XmlNodePtr copy = chain.root->Clone();
  EXPECT_TRUE(chain.root->Match(Node(u"R"), copy, true));
  copy->FindNode(u"leaf", true)->Name(u"other");
  EXPECT_FALSE(chain.root->Match(Node(u"R"), copy, true));

  chain.root->DelChilds(leaf_rule);
  EXPECT_TRUE(chain.leaf->Deleted);
  EXPECT_EQ(chain.root->NodeCount(), kMillion - 2);
}

TEST(XmlTreeShapes, MillionLevelChainEmptiedFromTheBottom) {
  // A million deletions, each one of a node a million levels down: each looks for listening
  // ancestors once, which is free only while nothing in the process listens.
  if (XmlNodeTestPeer::ListeningNodes() != 0) GTEST_SKIP() << "a listener is alive elsewhere";
  Chain chain(kMillion);
  // Every node is empty once the leaf has gone: the whole chain goes, bottom first.
  chain.root->DeleteEmptyChilds(true);
  EXPECT_EQ(chain.root->ChildCount(), 0);
  EXPECT_TRUE(chain.leaf->Deleted);
}

TEST(XmlTreeShapes, MillionChildrenWalksAndEdits) {
  const std::int64_t live = cXmlNode::LiveNodeCount();
  {
    XmlNodePtr root = Node(u"root");
    for (std::int32_t i = 0; i < kMillion; ++i) {
      XmlNodePtr child = cXmlNode::Create();
      child->Name(i == kMillion - 1 ? u"last" : u"c");
      root->AddChild(child);
    }
    ASSERT_EQ(root->ChildCount(), kMillion);
    XmlNodePtr last = root->Child(kMillion);
    EXPECT_EQ(last->Index(), kMillion);
    EXPECT_EQ(root->FindNode(u"last"), last);
    EXPECT_EQ(root->FindNode(u"last", true), last);
    EXPECT_TRUE(root->Contains(last, false));

    // Sibling steps and document order over every child.
    std::int32_t steps = 0;
    for (XmlNodePtr n = root->Child(1); n; n = n->NextSibling()) ++steps;
    EXPECT_EQ(steps, kMillion);
    steps = 0;
    for (XmlNodePtr n = last; n; n = n->PrevSibling()) ++steps;
    EXPECT_EQ(steps, kMillion);

    // Taking children off the front one by one, and inserting at the front.
    auto top = std::make_shared<Counter>();
    root->AddEventSink(top);
    for (std::int32_t i = 0; i < kMillion / 2; ++i) root->DelChild(1);
    EXPECT_EQ(top->child_deleted, kMillion / 2);
    EXPECT_EQ(last->Index(), kMillion / 2);
    for (std::int32_t i = 0; i < 1000; ++i) root->AddChild(Node(u"front"), 1);
    EXPECT_EQ(top->child_added, 1000);
    EXPECT_EQ(last->Index(), kMillion / 2 + 1000);
    EXPECT_EQ(root->Child(1001)->Name(), u"c");

    XmlNodePtr copy = root->Clone();
    EXPECT_EQ(copy->ChildCount(), kMillion / 2 + 1000);
    EXPECT_EQ(copy->Child(kMillion / 2 + 1000)->Name(), u"last");

    root->Release();
    EXPECT_EQ(root->ChildCount(), 0);
    EXPECT_TRUE(last->Deleted);
  }
  EXPECT_EQ(cXmlNode::LiveNodeCount(), live);
}

TEST(XmlTreeShapes, NodeWithMillionChildrenDeletedUnderAListener) {
  XmlNodePtr wide = Node(u"wide");
  for (std::int32_t i = 0; i < kMillion; ++i) wide->AddChild(cXmlNode::Create());
  XmlNodePtr root = Node(u"root", {wide});
  auto top = std::make_shared<Counter>();
  root->AddEventSink(top);
  root->DelChild(wide);
  EXPECT_EQ(top->child_deleted, kMillion + 1);
  EXPECT_EQ(wide->ChildCount(), 0);
}

}  // namespace
