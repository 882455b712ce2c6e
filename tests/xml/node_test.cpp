#include "xml/node.h"

#include <gtest/gtest.h>

#include <functional>

#include "base/text.h"
#include "xml_test_util.h"

namespace {

using xml_test::LogCapture;
using xml_test::Node;
using xml_test::Recorder;

TEST(XmlNodeValue, StripsCdataMarkersOnlyWhenBothArePresent) {
  struct Row {
    const char16_t* raw;
    const char16_t* value;
  } rows[] = {
      {u"<![CDATA[a<b]]>", u"a<b"},
      {u"<![CDATA[]]>", u""},
      {u"<![CDATA[a<b", u"<![CDATA[a<b"},
      {u"a<b]]>", u"a<b]]>"},
      {u" <![CDATA[x]]>", u" <![CDATA[x]]>"},  // the marker must open the text
      {u"<![CDATA[<![CDATA[x]]>]]>", u"<![CDATA[x]]>"},
      {u"plain", u"plain"},
  };
  for (const auto& row : rows) {
    XmlNodePtr n = cXmlNode::Create();
    n->RawValue(row.raw);
    EXPECT_EQ(n->Value(), row.value) << "raw " << testing::PrintToString(std::u16string(row.raw));
    EXPECT_EQ(n->RawValue(), row.raw);
  }
}

TEST(XmlNodeValue, SetRaisesModifiedOnlyForADifferentTextAndStoresItUnchanged) {
  std::vector<std::u16string> events;
  XmlNodePtr n = Node({u"n", u"Text"});
  auto rec = Recorder::On({n}, events);
  n->Value(u"Text");
  EXPECT_TRUE(events.empty());
  n->Value(u"text");  // other case is another text
  n->Value(u"a<b");
  EXPECT_EQ(events, (std::vector<std::u16string>{u"n:Modified()", u"n:Modified()"}));
  EXPECT_EQ(n->RawValue(), u"a<b");  // no CDATA markers added
}

TEST(XmlNodeAttributes, UpdateRulesKeepPositionsAndReportChanges) {
  // Each step sets one attribute; the expected lists are names=values in order, and whether a
  // Modified event followed.
  struct Step {
    const char16_t* name;
    const char16_t* value;
    const char16_t* after;
    bool modified;
  } steps[] = {
      {u"ID", u"1", u"ID=1", true},
      {u"lang", u"fr", u"ID=1 lang=fr", true},
      {u"Id", u"2", u"ID=2 lang=fr", true},   // found case-insensitively: position and name kept
      {u"id", u"2", u"ID=2 lang=fr", false},  // same value: nothing
      {u"id", u"2 ", u"ID=2  lang=fr", true},
      {u"missing", u"", u"ID=2  lang=fr", false},  // empty value on a missing name adds nothing
      {u"iD", u"", u"lang=fr", true},              // empty value removes
      {u"ID", u"3", u"lang=fr ID=3", true},        // back at the end
  };
  XmlNodePtr n = Node(u"n");
  std::vector<std::u16string> events;
  auto rec = Recorder::On({n}, events);
  for (const auto& s : steps) {
    events.clear();
    n->Attribut(s.name, s.value);
    std::u16string listed;
    for (std::int32_t i = 1; i <= n->AttrCount(); ++i) {
      if (i > 1) listed += u" ";
      listed += n->AttrName(i) + u"=" + n->Attribut(n->AttrName(i));
    }
    EXPECT_EQ(listed, s.after) << "after setting "
                               << testing::PrintToString(std::u16string(s.name));
    if (s.modified) {
      EXPECT_EQ(events,
                std::vector<std::u16string>{u"n:Modified(" + std::u16string(s.name) + u")"});
    } else {
      EXPECT_TRUE(events.empty());
    }
  }
}

TEST(XmlNodeAttributes, AttributIsCaseInsensitiveButAttributExistsIsExact) {
  XmlNodePtr n = Node({u"n", u"", {{u"ID", u"1"}, {u"Lang", u"Fr"}}});
  struct Row {
    const char16_t* name;
    const char16_t* value;  // for AttributExists
    const char16_t* attribut;
    bool exists;
  } rows[] = {
      {u"ID", u"", u"1", true},     {u"id", u"", u"1", false},  {u"Id", u"1", u"1", false},
      {u"ID", u"1", u"1", true},    {u"ID", u"2", u"1", false}, {u"Lang", u"fr", u"Fr", false},
      {u"lang", u"", u"Fr", false}, {u"none", u"", u"", false},
  };
  for (const auto& r : rows) {
    EXPECT_EQ(n->Attribut(r.name), r.attribut) << testing::PrintToString(std::u16string(r.name));
    EXPECT_EQ(n->AttributExists(r.name, r.value), r.exists)
        << testing::PrintToString(std::u16string(r.name)) << " "
        << testing::PrintToString(std::u16string(r.value));
  }
}

TEST(XmlNodeAttributes, SetAttributsReplacesBothListsOrNothing) {
  XmlNodePtr n = Node({u"n", u"", {{u"a", u"1"}}});
  EXPECT_FALSE(n->SetAttributs({u"x", u"y"}, {u"1"}));
  EXPECT_EQ(n->Attribut(u"a"), u"1");
  EXPECT_TRUE(n->SetAttributs({u"x", u"y"}, {u"1", u"2"}));
  EXPECT_EQ(n->AttrCount(), 2);
  EXPECT_EQ(n->AttrName(1), u"x");
  EXPECT_EQ(n->Attribut(u"Y"), u"2");
  EXPECT_EQ(n->Attribut(u"a"), u"");
}

TEST(XmlNodeTree, VersionComesFromTheRootAndEncodingFromTheNearestSetter) {
  XmlNodePtr c = Node(u"c");
  XmlNodePtr b = Node(u"b", {c});
  XmlNodePtr a = Node(u"a", {b});
  XmlNodeTestPeer::SetXmlVersion(*a, u"1.0");
  XmlNodeTestPeer::SetXmlVersion(*b, u"2.0");  // never read while b has a parent
  a->XMLEncoding(u"utf-8");
  EXPECT_EQ(c->XMLVersion(), u"1.0");
  EXPECT_EQ(b->XMLVersion(), u"1.0");
  EXPECT_EQ(c->XMLEncoding(), u"utf-8");
  b->XMLEncoding(u"windows-1252");
  EXPECT_EQ(c->XMLEncoding(), u"windows-1252");
  EXPECT_EQ(a->XMLEncoding(), u"utf-8");
  a->EmancipateChild(b);
  EXPECT_EQ(c->XMLVersion(), u"2.0");
}

TEST(XmlNodeTree, ParentDepthAndIndex) {
  XmlNodePtr x = Node(u"x"), y = Node(u"y"), z = Node(u"z");
  XmlNodePtr root = Node(u"root", {x, y, z});
  XmlNodePtr deep = Node(u"deep");
  z->AddChild(deep);
  EXPECT_EQ(root->Index(), 1);
  EXPECT_EQ(y->Index(), 2);
  EXPECT_EQ(z->Index(), 3);
  EXPECT_EQ(deep->Depth(), 2);
  EXPECT_EQ(deep->Parent(), z);
  EXPECT_EQ(root->Parent(), nullptr);
  root->EmancipateChild(x);
  EXPECT_EQ(y->Index(), 1);
  EXPECT_EQ(z->Index(), 2);
  EXPECT_EQ(x->Parent(), nullptr);
}

TEST(XmlNodeTree, ParentSetterMovesOutOfTheOldListButNotIntoTheNew) {
  XmlNodePtr c = Node(u"c");
  XmlNodePtr p1 = Node(u"p1", {c});
  XmlNodePtr p2 = Node(u"p2");
  c->Parent(p2);
  EXPECT_EQ(p1->ChildCount(), 0);
  EXPECT_EQ(p2->ChildCount(), 0);
  EXPECT_EQ(c->Parent(), p2);
  EXPECT_EQ(c->Index(), 0);  // the parent does not list it
  // Clearing the link leaves the old parent's list alone.
  p2->AddChild(c);
  c->Parent(nullptr);
  EXPECT_EQ(p2->ChildCount(), 1);
  EXPECT_EQ(c->Index(), 1);
}

TEST(XmlNodeTree, LinksThatWouldLoopAreRefused) {
  LogCapture log;
  XmlNodePtr c = Node(u"c");
  XmlNodePtr b = Node(u"b", {c});
  XmlNodePtr a = Node(u"a", {b});
  c->Parent(a);  // a parent that is an ancestor is fine
  a->Parent(c);  // a parent below the node is not
  a->Parent(a);
  EXPECT_EQ(a->Parent(), nullptr);
  EXPECT_EQ(c->AddChild(a), 0);
  EXPECT_EQ(b->AddChild(b), 0);
  // A node linked to a parent that does not list it can still not take that parent.
  XmlNodePtr p = Node(u"p"), q = Node(u"q");
  q->Parent(p);
  EXPECT_EQ(q->AddChild(p), 0);
  EXPECT_EQ(p->Parent(), nullptr);
  // Nor after a refused position left such a link behind.
  XmlNodePtr r = Node(u"r"), s = Node(u"s");
  EXPECT_EQ(r->AddChild(s, 5), 0);
  EXPECT_EQ(s->AddChild(r), 0);
  EXPECT_EQ(r->Parent(), nullptr);
  const std::u16string parent_refused =
      u"Error 5 (Invalid procedure call or argument) in Property cXmlNode.Parent";
  const std::u16string add_refused =
      u"Erreur 5 (Invalid procedure call or argument) dans Function cXmlNode.AddChild";
  EXPECT_EQ(log.lines, (std::vector<std::u16string>{
                           parent_refused, parent_refused, add_refused, add_refused, add_refused,
                           u"Erreur 9 (Subscript out of range) dans Function cXmlNode.AddChild",
                           add_refused}));
}

TEST(XmlNodeTree, NodeFromPtrRefusesToReenter) {
  LogCapture log;
  XmlNodePtr p = Node(u"p");
  XmlNodePtr c = Node(u"c");
  p->AddChild(c);
  EXPECT_EQ(c->NodeFromPtr(p.get()), p);
  EXPECT_EQ(c->NodeFromPtr(nullptr), nullptr);
  XmlNodeTestPeer::SetNodeFromPtrGuard(*c, true);
  EXPECT_EQ(c->Parent(), nullptr);
  EXPECT_EQ(log.lines, std::vector<std::u16string>{u"Warning: XmlNode.NodeFromPtr loop"});
  XmlNodeTestPeer::SetNodeFromPtrGuard(*c, false);
  EXPECT_EQ(c->Parent(), p);
}

TEST(XmlNodeLifetime, LiveCountFollowsCreationAndDestruction) {
  const std::int64_t before = cXmlNode::LiveNodeCount();
  XmlNodePtr kept;
  {
    XmlNodePtr root = Node(u"root", {Node(u"a", {Node(u"a1")}), Node(u"b")});
    kept = root->FindNode(u"a1", true);
    EXPECT_EQ(cXmlNode::LiveNodeCount(), before + 4);
  }
  // The held node survives without a parent; its parent a died with the root.
  EXPECT_EQ(cXmlNode::LiveNodeCount(), before + 1);
  EXPECT_EQ(kept->Parent(), nullptr);
  EXPECT_EQ(kept->Depth(), 0);
  kept.reset();
  EXPECT_EQ(cXmlNode::LiveNodeCount(), before);
}

TEST(XmlNodeLifetime, NameSetterRaisesNothing) {
  std::vector<std::u16string> events;
  XmlNodePtr n = Node(u"n");
  auto rec = Recorder::On({n}, events);
  n->Name(u"m");
  n->XMLEncoding(u"utf-8");
  n->RawValue(u"x");
  n->ItemData = 5;
  EXPECT_TRUE(events.empty());
  EXPECT_EQ(n->Name(), u"m");
}

// Members handed nothing for a node, a position past the children, or a node with no parent
// and no neighbours: each answers its neutral value, a missing node being at most a trap line
// (error 91, as a call through an unset object), never a crash.
TEST(XmlNodeTree, MissingNodesGiveNeutralResults) {
  const std::u16string not_set = u" 91 (Object variable or With block variable not set) ";
  const std::u16string out_of_range = u" 9 (Subscript out of range) ";
  using Check = std::function<bool(const XmlNodePtr&)>;
  struct Row {
    const char* what;
    Check neutral;       // called on a node "p" with one child "c" and no parent
    std::u16string log;  // the first line logged, "" for none
  } rows[] = {
      {"AddChild(nothing)",
       [](auto& p) { return p->AddChild(nullptr) == 0 && p->ChildCount() == 1; },
       u"Erreur" + not_set + u"dans Function cXmlNode.AddChild"},
      {"AddChild before a missing position",
       [](auto& p) { return p->AddChild(Node(u"x"), 3) == 0; },
       u"Erreur" + out_of_range + u"dans Function cXmlNode.AddChild"},
      {"Child(0)", [](auto& p) { return !p->Child(0); },
       u"Error" + out_of_range + u"in Property cXmlNode.Child"},
      {"Child past the end", [](auto& p) { return !p->Child(2); },
       u"Error" + out_of_range + u"in Property cXmlNode.Child"},
      {"AttrName(0)", [](auto& p) { return p->AttrName(0).empty(); },
       u"Error" + out_of_range + u"in Property cXmlNode.AttrName"},
      {"AttrName past the end",
       [](auto& p) { return p->Attribut(u"a", u"1"), p->AttrName(2).empty(); },
       u"Error" + out_of_range + u"in Property cXmlNode.AttrName"},
      {"EmancipateChild(nothing)",
       [](auto& p) { return p->EmancipateChild(XmlNodePtr()), p->ChildCount() == 1; }, u""},
      {"EmancipateChild past the end", [](auto& p) { return p->EmancipateChild(2.0), true; },
       u"Erreur" + out_of_range + u"dans Sub cXmlNode.ChildEmancipate"},
      {"DelChild(nothing)", [](auto& p) { return p->DelChild(XmlNodePtr()), p->ChildCount() == 1; },
       u""},
      {"DelChild(0)", [](auto& p) { return p->DelChild(0.0), p->ChildCount() == 1; },
       u"Erreur" + out_of_range + u"dans Sub cXmlNode.DelChild"},
      {"CopyItemDataTo(nothing)", [](auto& p) { return p->CopyItemDataTo(nullptr), true; },
       u"Error" + not_set + u"in Sub cXmlNode.CopyItemDataTo"},
      {"MatchRule(nothing)", [](auto& p) { return !p->MatchRule(nullptr); },
       u"Error" + not_set + u"in Function cXmlNode.MatchRule"},
      {"Match(nothing)", [](auto& p) { return !p->Match(nullptr); },
       u"Error" + not_set + u"in Function cXmlNode.NodeMatch"},
      {"FindFirstMatch(nothing)", [](auto& p) { return !p->FindFirstMatch(nullptr, nullptr, 9); },
       u"Error" + not_set + u"in Function cXmlNode.NodeMatch"},
      {"FindNodes(nothing)",
       [](auto& p) {
         std::vector<XmlNodePtr> found;
         return p->FindNodes(nullptr, found), found.empty();
       },
       u"Error" + not_set + u"in Function cXmlNode.MatchRule"},
      {"AddEventSink(nothing)", [](auto& p) { return p->AddEventSink(nullptr), true; }, u""},
      {"RaiseNodeEvent without a list", [](auto& p) { return p->RaiseNodeEvent(u"x"), true; }, u""},
      {"neighbours of a node without a parent",
       [](auto& p) {
         return !p->Parent() && !p->PrevSibling() && !p->NextSibling() && !p->PrevNode() &&
                !p->GetParent(2) && p->RootNode() == p && p->Child(1)->NextNode() == nullptr;
       },
       u""},
      {"paths and children that are not there",
       [](auto& p) {
         p->SortChilds(u"c:missing,c:none/a:id");
         return !p->GetChildNode(u"c.d.e") && p->GetChildValue(u"x.y").empty() &&
                p->ChildAttribut(u"x", u"id").empty() && p->ChildValue(u"x").empty();
       },
       u""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    const XmlNodePtr p = Node(u"p", {Node(u"c")});
    LogCapture log;
    EXPECT_TRUE(row.neutral(p));
    if (row.log.empty()) {
      EXPECT_TRUE(log.lines.empty()) << base::Narrow(log.lines.front());
    } else {
      ASSERT_FALSE(log.lines.empty());
      EXPECT_EQ(log.lines.front(), row.log);
    }
  }
}

}  // namespace
