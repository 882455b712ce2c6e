#include <gtest/gtest.h>

#include <functional>
#include <tuple>
#include <utility>

#include "xml/node.h"
#include "xml_test_util.h"

namespace {

using xml_test::Lines;
using xml_test::LogCapture;
using xml_test::Node;
using xml_test::Recorder;

// root > a > b > c > d, with a sibling s of b.
struct Tree {
  XmlNodePtr d = Node(u"d"), c = Node(u"c", {d}), b = Node(u"b", {c}), s = Node(u"s");
  XmlNodePtr a = Node(u"a", {b, s}), root = Node(u"root", {a});
  Lines events;
  std::shared_ptr<Recorder> rec = Recorder::On({root, a, b, c, d, s}, events);
};

// A listener that throws on every change it hears.
struct Thrower : xml::XmlNodeEvents {
  void Modified(cXmlNode&, const std::u16string&) override { throw 1; }
  void ChildModified(cXmlNode&, const XmlNodePtr&, const std::u16string&) override { throw 1; }
  void ParentModifed(cXmlNode&, const XmlNodePtr&, const std::u16string&) override { throw 1; }
};

// Runs its action once, on the first deletion it hears.
struct Subscriber : xml::XmlNodeEvents {
  std::function<void()> once = [] {};
  void Deleted(cXmlNode&) override { Fire(); }
  void ChildDeleted(cXmlNode&, const XmlNodePtr&) override { Fire(); }
  void Fire() {
    std::exchange(once, [] {})();
  }
};

const Lines kDeleteB = {u"d:Deleted",         u"c:ChildDeleted(d)",    u"b:ChildDeleted(d)",
                        u"a:ChildDeleted(d)", u"root:ChildDeleted(d)", u"c:Deleted",
                        u"b:ChildDeleted(c)", u"a:ChildDeleted(c)",    u"root:ChildDeleted(c)",
                        u"b:Deleted",         u"a:ChildDeleted(b)",    u"root:ChildDeleted(b)"};

// A change is told to the node, then its ancestors upwards, then its descendants in pre-order;
// an added subtree hears its new parent; a deleted one goes depth-first, each node announced.
// A lock silences changes at and below the locked node, not node events or ParentDeleted; a
// throwing listener ends its own part of the walk only, and is logged.
TEST(XmlNodeEvents, EachChangeFamilyInItsOrder) {
  const std::pair<std::function<void(Tree&)>, Lines> rows[] = {
      {[](Tree& t) {
         // The name, the encoding and the raw text raise nothing, nor the same Value; another
         // case is another text.
         t.c->RawValue(u"X");
         t.c->Name(u"c");
         t.c->XMLEncoding(u"utf-8");
         t.c->Value(u"X");
         t.c->Value(u"x");
       },
       {u"c:Modified()", u"b:ChildModified(c,)", u"a:ChildModified(c,)", u"root:ChildModified(c,)",
        u"d:ParentModifed(c,)"}},
      {[](Tree& t) { t.a->Attribut(u"id", u"7"); },
       {u"a:Modified(id)", u"root:ChildModified(a,id)", u"b:ParentModifed(a,id)",
        u"c:ParentModifed(a,id)", u"d:ParentModifed(a,id)", u"s:ParentModifed(a,id)"}},
      {[](Tree& t) {
         XmlNodePtr leaf = Node(u"leaf"), sub = Node(u"sub", {leaf});
         sub->AddEventSink(t.rec);
         leaf->AddEventSink(t.rec);
         EXPECT_EQ(t.b->AddChild(sub), 2);
       },
       {u"sub:Added", u"b:ChildAdded(sub)", u"a:ChildAdded(sub)", u"root:ChildAdded(sub)",
        u"leaf:ParentAdded(b)"}},
      {[](Tree& t) {
         t.a->DelChild(t.b);
         EXPECT_TRUE(t.b->Deleted && t.c->Deleted && t.d->Deleted && !t.s->Deleted);
         EXPECT_EQ(t.d->Parent(), nullptr);
       },
       kDeleteB},
      // A listener that the root gains during a delete hears the rest of it, even
      // within the same raise.
      {[](Tree& t) {
         auto sub = std::make_shared<Subscriber>();
         sub->once = [&t] { t.root->AddEventSink(t.rec); };
         t.root->RemoveEventSink(t.rec.get());
         t.d->AddEventSink(sub);
         t.a->DelChild(t.b);
       },
       kDeleteB},
      // Release deletes the children with their events, keeps the node and clears its link
      // only: the parent still lists it.
      {[](Tree& t) {
         t.a->Attribut(u"k", u"v");
         t.events.clear();
         t.a->Release();
         EXPECT_EQ(xml_test::Dump(t.a) + t.root->Child(1)->Name(), u"aa");
         EXPECT_TRUE(!t.a->Parent() && t.b->Deleted && !t.a->Deleted);
       },
       {u"s:Deleted", u"a:ChildDeleted(s)", u"root:ChildDeleted(s)", u"d:Deleted",
        u"c:ChildDeleted(d)", u"b:ChildDeleted(d)", u"a:ChildDeleted(d)", u"root:ChildDeleted(d)",
        u"c:Deleted", u"b:ChildDeleted(c)", u"a:ChildDeleted(c)", u"root:ChildDeleted(c)",
        u"b:Deleted", u"a:ChildDeleted(b)", u"root:ChildDeleted(b)"}},
      {[](Tree& t) {
         t.b->RaiseNodeEvent(u"Go");
         t.d->RaiseNodeEvent(u"Ping");  // a missing list is made empty
       },
       {u"b:NodeEvent(Go)", u"a:ChildNodeEvent(Go,b)", u"root:ChildNodeEvent(Go,b)",
        u"c:ParentNodeEvent(Go,b)", u"d:ParentNodeEvent(Go,b)", u"d:NodeEvent(Ping)",
        u"c:ChildNodeEvent(Ping,d)", u"b:ChildNodeEvent(Ping,d)", u"a:ChildNodeEvent(Ping,d)",
        u"root:ChildNodeEvent(Ping,d)"}},
      {[](Tree& t) {
         XmlNodeTestPeer::SetEventLockFlag(*t.root, true);
         t.c->Value(u"x");
         t.d->Attribut(u"k", u"v");
         t.c->AddChild(Node(u"e"));
         t.c->DelChild(2.0);
         t.c->RaiseNodeEvent(u"Go");
       },
       {u"c:NodeEvent(Go)", u"b:ChildNodeEvent(Go,c)", u"a:ChildNodeEvent(Go,c)",
        u"root:ChildNodeEvent(Go,c)", u"d:ParentNodeEvent(Go,c)"}},
      {[](Tree& t) {
         XmlNodeTestPeer::SetEventLockFlag(*t.c, true);
         t.d->Value(u"z");  // below the lock: not even the unlocked ancestors hear
         t.b->Value(u"y");
         XmlNodeTestPeer::RaiseDeleted(*t.b);
       },
       {u"b:Modified()", u"a:ChildModified(b,)", u"root:ChildModified(b,)", u"b:Deleted",
        u"a:ChildDeleted(b)", u"root:ChildDeleted(b)", u"c:ParentDeleted(b)",
        u"d:ParentDeleted(b)"}},
      {[](Tree& t) {
         t.a->AddEventSink(std::make_shared<Thrower>());  // held weakly: gone at once
         t.a->RemoveEventSink(t.rec.get());
         { auto temporary = Recorder::On({t.c}, t.events); }
         t.b->Value(u"v");
       },
       {u"b:Modified()", u"root:ChildModified(b,)", u"c:ParentModifed(b,)",
        u"d:ParentModifed(b,)"}}};
  for (const auto& [change, events] : rows) {
    LogCapture log;
    Tree t;
    change(t);
    EXPECT_EQ(t.events, events);
    EXPECT_EQ(log.lines, Lines{});
  }
  // A throwing listener on an ancestor stops the walk up there, the descendants are still
  // told; on a descendant its subtree hears nothing, its next sibling does; on the node itself
  // nothing more is told.
  const std::tuple<XmlNodePtr Tree::*, XmlNodePtr Tree::*, Lines, const char16_t*> throwing[] = {
      {&Tree::a,
       &Tree::b,
       {u"b:Modified()", u"a:ChildModified(b,)", u"c:ParentModifed(b,)", u"d:ParentModifed(b,)"},
       u"RaiseChildModified"},
      {&Tree::b,
       &Tree::a,
       {u"a:Modified()", u"root:ChildModified(a,)", u"b:ParentModifed(a,)", u"s:ParentModifed(a,)"},
       u"RaiseParentModified"},
      {&Tree::c, &Tree::c, {u"c:Modified()"}, u"RaiseModified"}};
  const auto thrower = std::make_shared<Thrower>();
  for (const auto& [listener, changed, events, sub] : throwing) {
    LogCapture log;
    Tree t;
    (t.*listener)->AddEventSink(thrower);
    (t.*changed)->Value(u"v");
    EXPECT_EQ(t.events, events);
    EXPECT_EQ((t.*changed)->Value(), u"v");
    EXPECT_EQ(log.lines, Lines{u"Error 5 (Invalid procedure call or argument) in Sub cXmlNode." +
                               std::u16string(sub)});
  }
}

TEST(XmlNodeEvents, ReceiverGetsTheEventIdAndTheParametersThenTheRaisingNode) {
  LogCapture log;
  Tree t;
  auto receiver = std::make_shared<xml::EventReceiver>();
  Lines calls;
  auto params = std::make_shared<xml::EventParams>(xml::EventParams{u"p1", std::int32_t{2}});
  receiver->RegisterMethod(u"onxml", [&](const std::u16string& id, xml::EventParams& p) {
    std::u16string line = id + u":";
    for (const auto& q : p) {
      const auto n = q.Node();
      line += n ? u"[" + n->Name() + u"]" : q.List() == params ? u"L" : u"'" + q.Text() + u"'";
    }
    calls.push_back(line);
  });
  receiver->RegisterMethod(u"Boom", [&](auto&, auto&) { throw(calls.push_back(u"boom"), 1); });
  // Methods are looked up without regard to case; without a name (a) or with an unknown one
  // (s) nothing is called.
  for (const auto& n : {t.root, t.b, t.d, t.a, t.s}) n->EventProxyObject(receiver);
  for (const auto& n : {t.root, t.b, t.d}) n->EventProxyFunctionName(u"OnXml");
  t.s->EventProxyFunctionName(u"NoSuchMethod");
  t.c->Attribut(u"id", u"1");
  t.b->Value(u"v");
  t.root->RaiseNodeEvent(u"Go", params);  // the very list reaches the receiver, not a copy
  t.root->EventProxyFunctionName(u"Boom");
  t.a->Value(u"x");  // a failing receiver stops nothing and logs nothing
  EXPECT_EQ(calls,
            (Lines{u"ChildModified:[c]'id'[b]", u"ChildModified:[c]'id'[root]",
                   u"ParentModifed:[c]'id'[d]", u"Modified:''[b]", u"ChildModified:[b]''[root]",
                   u"ParentModifed:[b]''[d]", u"NodeEvent:'Go'L[root]",
                   u"ParentNodeEvent:'Go'[root]L[b]", u"ParentNodeEvent:'Go'[root]L[d]", u"boom",
                   u"ParentModifed:[a]''[b]", u"ParentModifed:[a]''[d]"}));
  EXPECT_EQ(t.events.back(), u"s:ParentModifed(a,)");
  EXPECT_TRUE(log.lines.empty());
}

}  // namespace
