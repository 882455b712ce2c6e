#include "xml/node.h"

#include <gtest/gtest.h>

#include <tuple>

#include "base/text.h"
#include "xml_test_util.h"

namespace {

using xml_test::Dump;
using xml_test::Lines;
using xml_test::LogCapture;
using xml_test::Node;
using xml_test::Recorder;

std::u16string NameOf(const XmlNodePtr& n) {
  return n ? n->Name() : u"-";
}

TEST(XmlNodeTree, ValueAttributesVersionEncodingParentAndIndex) {
  // Value drops the CDATA markers only when the text has both.
  const std::pair<const char16_t*, const char16_t*> values[] = {
      {u"<![CDATA[a<b]]>", u"a<b"},
      {u"<![CDATA[a<b", u"<![CDATA[a<b"},
      {u"a<b]]>", u"a<b]]>"},
      {u" <![CDATA[x]]>", u" <![CDATA[x]]>"},  // the marker must open the text
      {u"<![CDATA[<![CDATA[x]]>]]>", u"<![CDATA[x]]>"}};
  for (const auto& [raw, value] : values) {
    XmlNodePtr n = Node({u"n", raw});
    EXPECT_EQ(n->Value() + u"|" + n->RawValue(), value + (u"|" + std::u16string(raw)));
  }
  // Found without regard to case: position and name kept; the same value raises nothing; an
  // empty value removes (or adds nothing); a removed name comes back at the end.
  const std::tuple<const char16_t*, const char16_t*, const char16_t*, bool> steps[] = {
      {u"ID", u"1", u"n[ID=1]", true},           {u"lang", u"fr", u"n[ID=1,lang=fr]", true},
      {u"Id", u"2", u"n[ID=2,lang=fr]", true},   {u"id", u"2", u"n[ID=2,lang=fr]", false},
      {u"id", u"2 ", u"n[ID=2 ,lang=fr]", true}, {u"missing", u"", u"n[ID=2 ,lang=fr]", false},
      {u"iD", u"", u"n[lang=fr]", true},         {u"ID", u"3", u"n[lang=fr,ID=3]", true}};
  XmlNodePtr n = Node(u"n");
  Lines events;
  auto rec = Recorder::On({n}, events);
  for (const auto& [name, value, after, modified] : steps) {
    events.clear();
    n->Attribut(name, value);
    EXPECT_EQ(Dump(n), after);
    EXPECT_EQ(events, modified ? Lines{u"n:Modified(" + std::u16string(name) + u")"} : Lines{});
  }
  // AttributExists compares the name exactly, and the value when one is given.
  const std::tuple<const char16_t*, const char16_t*, const char16_t*, bool> rows[] = {
      {u"ID", u"", u"3", true},  {u"id", u"", u"3", false},  {u"Id", u"3", u"3", false},
      {u"ID", u"3", u"3", true}, {u"ID", u"2", u"3", false}, {u"lang", u"FR", u"fr", false},
      {u"none", u"", u"", false}};
  for (const auto& [name, value, attribut, exists] : rows)
    EXPECT_EQ(n->Attribut(name) + (n->AttributExists(name, value) ? u"+" : u"-"),
              std::u16string(attribut) + (exists ? u"+" : u"-"));
  EXPECT_FALSE(n->SetAttributs({u"x", u"y"}, {u"1"}));
  EXPECT_EQ(Dump(n), u"n[lang=fr,ID=3]");
  EXPECT_TRUE(n->SetAttributs({u"x", u"y"}, {u"1", u"2"}));
  EXPECT_EQ(Dump(n), u"n[x=1,y=2]");
  // b's own version is never read while b has a parent.
  XmlNodePtr a = xml_test::Read(u"<?xml version=\"1.0\"?><a><x/></a>", true), c = Node(u"c");
  XmlNodePtr b = xml_test::Read(u"<?xml version=\"2.0\"?><b/>", true);
  a->AddChild(b);
  b->AddChild(c);
  a->XMLEncoding(u"utf-8");
  EXPECT_EQ(c->XMLVersion() + c->XMLEncoding(), u"1.0utf-8");
  b->XMLEncoding(u"windows-1252");
  EXPECT_EQ(c->XMLEncoding() + a->XMLEncoding(), u"windows-1252utf-8");
  EXPECT_EQ(std::make_tuple(a->Index(), b->Index(), c->Depth()), std::make_tuple(1, 2, 2));
  a->EmancipateChild(1);
  a->EmancipateChild(b->Index() == 1 ? b : nullptr);
  EXPECT_EQ(c->XMLVersion(), u"2.0");
  // The parent setter takes the node out of the old list but does not put it into the new.
  XmlNodePtr p2 = Node(u"p2");
  c->Parent(p2);
  EXPECT_EQ(std::make_tuple(b->ChildCount(), p2->ChildCount(), c->Parent(), c->Index()),
            std::make_tuple(0, 0, p2, 0));
}

// Members handed nothing for a node or a position past the children answer their neutral
// value and log a trap line (error 91 as a call through an unset object), never crash.
TEST(XmlNavigation, MissingNodesNeutralAndDocumentOrderSiblingsContains) {
  const XmlNodePtr p = Node(u"p", {Node(u"c")});
  LogCapture log;
  EXPECT_TRUE(p->AddChild(nullptr) == 0 && p->ChildCount() == 1 && !p->Child(0) && !p->Child(2) &&
              p->AttrName(0).empty() && !p->MatchRule(nullptr) && !p->Match(nullptr));
  p->CopyItemDataTo(nullptr);
  const std::u16string not_set = u" 91 (Object variable or With block variable not set) ";
  const std::u16string range = u"Error 9 (Subscript out of range) in Property cXmlNode.";
  EXPECT_EQ(log.lines, (Lines{u"Erreur" + not_set + u"dans Function cXmlNode.AddChild",
                              range + u"Child", range + u"Child", range + u"AttrName",
                              u"Error" + not_set + u"in Function cXmlNode.MatchRule",
                              u"Error" + not_set + u"in Function cXmlNode.NodeMatch",
                              u"Error" + not_set + u"in Sub cXmlNode.CopyItemDataTo"}));
  // No parent, no neighbours, no such path: neutral answers without a log line.
  log.lines.clear();
  p->SortChilds(u"c:missing,c:none/a:id");
  EXPECT_TRUE(!p->Parent() && !p->PrevSibling() && !p->NextSibling() && !p->PrevNode() &&
              !p->GetParent(2) && p->RootNode() == p && p->Child(1)->NextNode() == nullptr);
  EXPECT_TRUE(!p->GetChildNode(u"c.d.e") && p->GetChildValue(u"x.y").empty() &&
              p->ChildAttribut(u"x", u"id").empty() && p->ChildValue(u"x").empty());
  EXPECT_EQ(log.lines, Lines{});
  // root > a > (a1, a2 > a21), b, c
  XmlNodePtr a21 = Node(u"a21"), a1 = Node(u"a1"), a2 = Node(u"a2", {a21});
  XmlNodePtr a = Node(u"a", {a1, a2}), b = Node(u"b"), c = Node(u"c");
  XmlNodePtr root = Node(u"root", {a, b, c});
  std::u16string forward;
  for (XmlNodePtr n = root; n; n = n->NextNode()) forward += n->Name() + u" ";
  EXPECT_EQ(forward, u"root a a1 a2 a21 b c ");
  // Previous sibling, next sibling, previous node: never into a sibling's subtree.
  const std::pair<XmlNodePtr, const char16_t*> rows[] = {{root, u"- - -"}, {a, u"- b root"},
                                                         {a1, u"- a2 a"},  {a21, u"- - a2"},
                                                         {b, u"a c a"},    {c, u"b - b"}};
  for (const auto& [n, around] : rows) {
    EXPECT_EQ(
        NameOf(n->PrevSibling()) + u" " + NameOf(n->NextSibling()) + u" " + NameOf(n->PrevNode()),
        around);
    EXPECT_EQ(n->RootNode(), root);
  }
  // A node its parent does not list steps to the first child.
  XmlNodePtr stray = Node(u"stray");
  stray->Parent(a);
  EXPECT_EQ(std::make_pair(stray->NextSibling(), stray->PrevSibling()),
            std::make_pair(a1, XmlNodePtr()));
  EXPECT_TRUE(root->Contains(a, false) && !root->Contains(a21, false) && root->Contains(a21, true));
  EXPECT_FALSE(a->Contains(b, true) || a->Contains(a, true) || a->Contains(nullptr, true));
  a21->Parent(nullptr);  // the link cleared, the node still listed and contained
  EXPECT_TRUE(a2->Contains(a21, false) && root->Contains(a21, true));
}

TEST(XmlLifecycle, SleepSparesHeldBranchesAndMillionLevelsOrChildrenAreOrdinary) {
  XmlNodePtr root = xml_test::Read(
      u"<root v=\"1\"><a><a1 k=\"x\">1</a1><a2/></a><b><b1><![CDATA[<q>\r\n]]></b1></b></root>");
  root->WakeUp(true);
  const std::u16string before = Dump(root);
  Lines events;
  auto rec = Recorder::On({root}, events);
  root->Child(1)->Sleep();
  EXPECT_TRUE(root->Child(1)->IsSleeping());
  EXPECT_EQ(events, Lines{u"root:SaveSleepData(a,<a>\r\n\t<a1 k=\"x\">1</a1>\r\n\t<a2/>\r\n</a>)"});
  root->Sleep();
  // What is read without waking stays.
  EXPECT_TRUE(root->IsSleeping() && root->ExternalRefCount() == 0 && root->Attribut(u"v") == u"1");
  events.clear();
  EXPECT_EQ(Dump(root), before);  // woken one level at a time, quietly
  EXPECT_EQ(events, Lines{});
  // Kept by the application: asked back when woken; nothing given back leaves it empty.
  rec->keep_sleep_text = true;
  XmlNodePtr b = root->Child(2);
  b->Sleep();
  EXPECT_EQ(Dump(root), before);
  EXPECT_EQ(events.back(), u"root:RestoreSleepData(b)");
  b->Sleep();
  rec->kept.clear();
  EXPECT_TRUE(b->ChildCount() == 0 && !b->IsSleeping());
  rec->keep_sleep_text = false;

  // A node held below keeps its ancestors awake; the branches nobody holds sleep, in place.
  XmlNodePtr held = root->FindNode(u"a1", true);
  EXPECT_EQ(cXmlNode::GetRefCount(held), 2);  // the list entry and this variable
  EXPECT_EQ(std::make_pair(root->ExternalRefCount(), b->ExternalRefCount()), std::make_pair(2, 0));
  root->Sleep();
  EXPECT_TRUE(!root->IsSleeping() && !root->Child(1)->IsSleeping() && b->IsSleeping() &&
              held->IsSleeping() && root->Child(1)->Child(2)->IsSleeping());
  EXPECT_EQ(held->Parent(), root->Child(1));  // in place
  held->Value(u"2");
  EXPECT_EQ(root->GetChildValue(u"a.a1"), u"2");
  // A chain of a million nested nodes and a node with a million children, as users' files and
  // other programs produce them. Every member that visits a subtree goes through one walk, so
  // one of them at depth stands for all; the walks up the parent links, the bulk delete and the
  // destructor are their own loops.
  constexpr std::int32_t kMillion = 1000000;
  struct Counter : xml::XmlNodeEvents {
    void ChildModified(cXmlNode&, const XmlNodePtr&, const std::u16string&) override { ++heard; }
    void ParentModifed(cXmlNode&, const XmlNodePtr&, const std::u16string&) override { ++heard; }
    void ChildDeleted(cXmlNode&, const XmlNodePtr&) override { ++heard; }
    int heard = 0;
  };
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
    // The walk down, the walks up.
    EXPECT_TRUE(root->NodeCount() == kMillion - 1 && root->FindNode(u"leaf", true) == leaf);
    EXPECT_TRUE(leaf->Depth() == kMillion - 1 && leaf->GetParent(kMillion - 1) == root);
    EXPECT_EQ(leaf->Path().size(), 4u + 2u * (kMillion - 2) + 5u);
    std::int32_t steps = 0;
    for (XmlNodePtr n = root; n; n = n->NextNode()) ++steps;
    EXPECT_EQ(steps, kMillion);
    auto top = std::make_shared<Counter>();
    root->AddEventSink(top);
    leaf->AddEventSink(top);
    leaf->Value(u"y");
    root->Attribut(u"k", u"v");
    EXPECT_EQ(top->heard, 2);
    root->Sleep();  // held at the bottom: every level stays awake
    EXPECT_FALSE(root->IsSleeping() || leaf->Parent()->IsSleeping());
    // Release deletes the chain from the bottom, each deletion heard once at the top.
    root->Release();
    EXPECT_EQ(top->heard, 2 + kMillion - 1);
    EXPECT_TRUE(leaf->Deleted && !leaf->Parent());

    XmlNodePtr wide = Node(u"root");
    for (std::int32_t i = 0; i < kMillion; ++i) wide->AddChild(Node(u"c"));
    XmlNodePtr last = wide->Child(kMillion);
    for (XmlNodePtr n = last; n; n = n->PrevSibling()) --steps;
    EXPECT_EQ(steps + last->Index(), kMillion);
    // Taking children off the front one by one and inserting at the front stay linear.
    wide->AddEventSink(top);
    for (std::int32_t i = 0; i < kMillion / 2; ++i) wide->DelChild(1);
    for (std::int32_t i = 0; i < 1000; ++i) wide->AddChild(Node(u"front"), 1);
    EXPECT_EQ(top->heard, 1 + kMillion + kMillion / 2);
    EXPECT_TRUE(last->Index() == kMillion / 2 + 1000 && wide->Child(1001)->Name() == u"c");
  }
  EXPECT_EQ(cXmlNode::LiveNodeCount(), live);  // no nested destructor per level either
}

TEST(XmlPath, FormsAndChildPaths) {
  XmlNodePtr c = Node({u"c", u"", {{u"name", u"nc"}}});
  XmlNodePtr a = Node(u"a", {Node({u"b", u"", {{u"id", u"7"}, {u"name", u"nb"}}}, {c})});
  XmlNodePtr e2 = Node(u""), e1 = Node(u"", {e2}), top = Node(u"a", {e1});
  // Attribute names any case; nodes without a name still get their separators.
  const std::tuple<const char16_t*, const char16_t*, XmlNodePtr, const char16_t*> rows[] = {
      {u"", u".", nullptr, u"a.b.c"},
      {u"", u".", a, u"b.c"},
      {u"", u".", c, u""},
      {u"id|name", u".", nullptr, u"a.b-7.c-nc"},
      {u"name|id", u".", nullptr, u"a.b-nb.c-nc"},
      {u"ID", u".", nullptr, u"a.b-7.c"},
      {u"none||id", u".", nullptr, u"a.b-7.c"},
      {u"", u"::", nullptr, u"a::b::c"}};
  for (const auto& [attribut, sep, top, path] : rows) EXPECT_EQ(c->Path(attribut, sep, top), path);
  EXPECT_EQ(e2->Path() + u"|" + e2->Path(u"", u".", top), u"a..|.");
  // A stop node outside the chain gives what was built, with its separator.
  LogCapture log;
  EXPECT_EQ(c->Path(u"", u".", Node(u"elsewhere")), u"a.b.c.");
  EXPECT_EQ(log.lines, Lines{u"Erreur 91 (Object variable or With block variable not set) dans "
                             u"Property cXmlNode.Path"});
  XmlNodePtr root = Node(u"cfg", {Node({u"a", u"", {{u"id", u"A"}}}, {Node({u"b", u"B"})})});
  // A missing step makes nothing unless asked; no steps is the node itself; empty steps are
  // empty names, and the first made answers the second step for itself.
  const std::tuple<const char16_t*, bool, const char16_t*, const char16_t*, std::int32_t> steps[] =
      {{u"a.b", false, u"", u"B", 2},  {u"A.B", false, u"", u"B", 2},
       {u"a", false, u"id", u"A", 2},  {u"a", false, u"none", u"", 2},
       {u"a.x.y", false, u"", u"", 2}, {u"", false, u"", u"", 2},
       {u"a.x.y", true, u"", u"", 4},  {u"a..", true, u"", u"", 5},
       {u"a..", false, u"", u"", 5}};
  for (const auto& [path, create, attr, value, nodes_after] : steps) {
    EXPECT_EQ(root->GetChildValue(path, create, attr), value) << base::Narrow(path);
    EXPECT_EQ(root->NodeCount(), nodes_after) << base::Narrow(path);
  }
  EXPECT_EQ(xml_test::ChildNames(root->GetChildNode(u"a")), u"b,x,");

  root = Node(u"x", {Node(u"y", {Node(u"z")})});
  Lines events;
  auto rec = Recorder::On({root}, events);
  root->GetChildNode(u"p/q", true, false, u"/");
  EXPECT_EQ(events, (Lines{u"x:ChildAdded(p)", u"x:ChildAdded(q)"}));
  EXPECT_EQ(root->GetChildNode(u"p/q", false, false, u"/")->Path(), u"x.p.q");
  // With ".", one step named "p/q"; FindNode tests the current node first (a step named like
  // the node itself stays there) and is handed recursive.
  EXPECT_TRUE(!root->GetChildNode(u"p/q") && root->GetChildNode(u"x.y")->Name() == u"y" &&
              !root->GetChildNode(u"z") && root->GetChildNode(u"z", false, true)->Name() == u"z");
}

// Fields past the end of the text are short, then empty; a negative length or separator is
// refused.
TEST(XmlChildPath, FixSplit) {
  using Fields = std::vector<std::u16string>;
  const std::tuple<const char16_t*, std::vector<std::int32_t>, std::int32_t, Fields> rows[] = {
      {u"20120113>07", {8, 2}, 1, {u"20120113", u"07"}},
      {u"abcdef", {2, 2, 2}, 0, {u"ab", u"cd", u"ef"}},
      {u"ab", {1, 5, 3}, 0, {u"a", u"b", u""}},
      {u"a-b-c", {1, 1}, 1, {u"a", u"b"}},
      {u"abc", {}, 1, {}},
      {u"abc", {0, 1}, 1, {u"", u"b"}},
      {u"abc", {1, -1}, 0, {}},
      {u"abc", {1, 1}, -5, {}}};
  LogCapture log;
  for (const auto& [text, lengths, sep, fields] : rows)
    EXPECT_EQ(cXmlNode::FixSplit(text, lengths, sep), fields);
  const std::u16string error =
      u"Error 5 (Invalid procedure call or argument) in Function cXmlNode.FixSplit";
  EXPECT_EQ(log.lines, (Lines{error, error}));
}

}  // namespace
