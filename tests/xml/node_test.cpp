#include "xml/node.h"

#include <gtest/gtest.h>

#include <functional>
#include <tuple>

#include "base/text.h"
#include "xml_test_util.h"

namespace {

using xml_test::Lines;
using xml_test::LogCapture;
using xml_test::Node;
using xml_test::Recorder;

TEST(XmlNodeValue, StripsCdataMarkersOnlyWhenBothArePresentAndRaisesOnlyOnChange) {
  const struct {
    const char16_t *raw, *value;
  } rows[] = {{u"<![CDATA[a<b]]>", u"a<b"},
              {u"<![CDATA[]]>", u""},
              {u"<![CDATA[a<b", u"<![CDATA[a<b"},
              {u"a<b]]>", u"a<b]]>"},
              {u" <![CDATA[x]]>", u" <![CDATA[x]]>"},  // the marker must open the text
              {u"<![CDATA[<![CDATA[x]]>]]>", u"<![CDATA[x]]>"}};
  for (const auto& row : rows) {
    XmlNodePtr n = cXmlNode::Create();
    n->RawValue(row.raw);
    EXPECT_EQ(n->Value(), row.value) << base::Narrow(row.raw);
    EXPECT_EQ(n->RawValue(), row.raw);
  }
  Lines events;
  XmlNodePtr n = Node({u"n", u"Text"});
  auto rec = Recorder::On({n}, events);
  n->Value(u"Text");
  n->Value(u"text");  // other case is another text
  n->Value(u"a<b");
  n->Name(u"m");  // the name, the encoding, the raw text and ItemData raise nothing
  n->XMLEncoding(u"utf-8");
  n->RawValue(u"x");
  EXPECT_EQ(events, (Lines{u"n:Modified()", u"n:Modified()"}));
}

TEST(XmlNodeAttributes, UpdateRulesKeepPositionsAndReportChanges) {
  const struct {
    const char16_t *name, *value, *after;
    bool modified;
  } steps[] = {
      // Found without regard to case: position and name kept; the same value raises nothing;
      // an empty value removes (or adds nothing); a removed name comes back at the end.
      {u"ID", u"1", u"ID=1", true},           {u"lang", u"fr", u"ID=1 lang=fr", true},
      {u"Id", u"2", u"ID=2 lang=fr", true},   {u"id", u"2", u"ID=2 lang=fr", false},
      {u"id", u"2 ", u"ID=2  lang=fr", true}, {u"missing", u"", u"ID=2  lang=fr", false},
      {u"iD", u"", u"lang=fr", true},         {u"ID", u"3", u"lang=fr ID=3", true}};
  XmlNodePtr n = Node(u"n");
  Lines events;
  auto rec = Recorder::On({n}, events);
  for (const auto& s : steps) {
    events.clear();
    n->Attribut(s.name, s.value);
    std::u16string listed;
    for (std::int32_t i = 1; i <= n->AttrCount(); ++i)
      listed += (i > 1 ? u" " : u"") + n->AttrName(i) + u"=" + n->Attribut(n->AttrName(i));
    EXPECT_EQ(listed, s.after) << base::Narrow(s.name);
    EXPECT_EQ(events, s.modified ? Lines{u"n:Modified(" + std::u16string(s.name) + u")"} : Lines{});
  }
  // AttributExists compares the name exactly, and the value when one is given.
  const struct {
    const char16_t *name, *value, *attribut;
    bool exists;
  } rows[] = {{u"ID", u"", u"3", true},  {u"id", u"", u"3", false},  {u"Id", u"3", u"3", false},
              {u"ID", u"3", u"3", true}, {u"ID", u"2", u"3", false}, {u"lang", u"FR", u"fr", false},
              {u"none", u"", u"", false}};
  for (const auto& r : rows) {
    EXPECT_EQ(n->Attribut(r.name), r.attribut) << base::Narrow(r.name);
    EXPECT_EQ(n->AttributExists(r.name, r.value), r.exists) << base::Narrow(r.name);
  }
  EXPECT_FALSE(n->SetAttributs({u"x", u"y"}, {u"1"}));
  EXPECT_EQ(xml_test::Dump(n), u"n[lang=fr,ID=3]");
  EXPECT_TRUE(n->SetAttributs({u"x", u"y"}, {u"1", u"2"}));
  EXPECT_EQ(xml_test::Dump(n), u"n[x=1,y=2]");
}

TEST(XmlNodeTree, VersionEncodingParentAndIndex) {
  XmlNodePtr c = Node(u"c");
  XmlNodePtr b = Node(u"b", {c});
  XmlNodePtr a = Node(u"a", {Node(u"x"), b});
  XmlNodeTestPeer::SetXmlVersion(*a, u"1.0");
  XmlNodeTestPeer::SetXmlVersion(*b, u"2.0");  // never read while b has a parent
  a->XMLEncoding(u"utf-8");
  EXPECT_EQ(c->XMLVersion() + c->XMLEncoding(), u"1.0utf-8");
  b->XMLEncoding(u"windows-1252");
  EXPECT_EQ(c->XMLEncoding() + a->XMLEncoding(), u"windows-1252utf-8");
  EXPECT_EQ(std::make_tuple(a->Index(), b->Index(), c->Depth()), std::make_tuple(1, 2, 2));
  a->EmancipateChild(1);
  EXPECT_EQ(b->Index(), 1);
  a->EmancipateChild(b);
  EXPECT_EQ(c->XMLVersion(), u"2.0");
  // The parent setter takes the node out of the old list but does not put it into the new.
  XmlNodePtr p2 = Node(u"p2");
  c->Parent(p2);
  EXPECT_EQ(b->ChildCount() + p2->ChildCount(), 0);
  EXPECT_EQ(c->Parent(), p2);
  EXPECT_EQ(c->Index(), 0);
  // Clearing the link leaves the old parent's list alone.
  p2->AddChild(c);
  c->Parent(nullptr);
  EXPECT_EQ(p2->ChildCount(), 1);
  EXPECT_EQ(c->Index(), 1);
}

// Members handed nothing for a node, a position past the children, or a node with no parent
// and no neighbours: each answers its neutral value, a missing node being at most a trap line
// (error 91, as a call through an unset object), never a crash.
TEST(XmlNodeTree, MissingNodesGiveNeutralResults) {
  const std::u16string not_set = u" 91 (Object variable or With block variable not set) ";
  const std::u16string range = u" 9 (Subscript out of range) ";
  const struct {
    const char* what;
    std::function<bool(const XmlNodePtr&)> neutral;  // on a node "p" with one child "c"
    std::u16string log;                              // the first line logged, "" for none
  } rows[] = {{"AddChild(nothing)",
               [](auto& p) { return p->AddChild(nullptr) == 0 && p->ChildCount() == 1; },
               u"Erreur" + not_set + u"dans Function cXmlNode.AddChild"},
              {"Child(0)", [](auto& p) { return !p->Child(0); },
               u"Error" + range + u"in Property cXmlNode.Child"},
              {"Child past the end", [](auto& p) { return !p->Child(2); },
               u"Error" + range + u"in Property cXmlNode.Child"},
              {"AttrName(0)", [](auto& p) { return p->AttrName(0).empty(); },
               u"Error" + range + u"in Property cXmlNode.AttrName"},
              {"CopyItemDataTo(nothing)", [](auto& p) { return p->CopyItemDataTo(nullptr), true; },
               u"Error" + not_set + u"in Sub cXmlNode.CopyItemDataTo"},
              {"MatchRule(nothing)", [](auto& p) { return !p->MatchRule(nullptr); },
               u"Error" + not_set + u"in Function cXmlNode.MatchRule"},
              {"Match(nothing)", [](auto& p) { return !p->Match(nullptr); },
               u"Error" + not_set + u"in Function cXmlNode.NodeMatch"},
              {"neighbours of a node without a parent",
               [](auto& p) {
                 return !p->Parent() && !p->PrevSibling() && !p->NextSibling() && !p->PrevNode() &&
                        !p->GetParent(2) && p->RootNode() == p &&
                        p->Child(1)->NextNode() == nullptr;
               },
               u""},
              {"paths and children that are not there",
               [](auto& p) {
                 p->SortChilds(u"c:missing,c:none/a:id");
                 return !p->GetChildNode(u"c.d.e") && p->GetChildValue(u"x.y").empty() &&
                        p->ChildAttribut(u"x", u"id").empty() && p->ChildValue(u"x").empty();
               },
               u""}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    const XmlNodePtr p = Node(u"p", {Node(u"c")});
    LogCapture log;
    EXPECT_TRUE(row.neutral(p));
    EXPECT_EQ(log.lines.empty() ? u"" : log.lines.front(), row.log);
  }
}

}  // namespace
