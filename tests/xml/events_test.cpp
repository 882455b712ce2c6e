#include <gtest/gtest.h>

#include <functional>
#include <tuple>

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

// The events as one text, each followed by a blank.
std::u16string Joined(const Lines& events) {
  std::u16string text;
  for (const auto& e : events) text += e + u" ";
  return text;
}

const std::u16string kDeleteB =
    u"d:Deleted c:ChildDeleted(d) b:ChildDeleted(d) a:ChildDeleted(d) root:ChildDeleted(d) "
    u"c:Deleted b:ChildDeleted(c) a:ChildDeleted(c) root:ChildDeleted(c) b:Deleted "
    u"a:ChildDeleted(b) root:ChildDeleted(b) ";

// A change is told to the node, then its ancestors upwards, then its descendants in pre-order;
// an added subtree hears its new parent; a deleted one goes depth-first, each node announced.
// A lock silences changes at and below the locked node, not node events or ParentDeleted; a
// throwing listener ends its own part of the walk only, and is logged.
TEST(XmlNodeEvents, EachChangeFamilyInItsOrderToListenersAndReceivers) {
  const std::pair<std::function<void(Tree&)>, std::u16string> rows[] = {
      {[](Tree& t) {
         // The name, the encoding and the raw text raise nothing, nor the same Value; another
         // case is another text.
         t.c->RawValue(u"X");
         t.c->Name(u"c");
         t.c->XMLEncoding(u"utf-8");
         t.c->Value(u"X");
         t.c->Value(u"x");
       },
       u"c:Modified() b:ChildModified(c,) a:ChildModified(c,) root:ChildModified(c,) "
       u"d:ParentModifed(c,) "},
      {[](Tree& t) { t.a->Attribut(u"id", u"7"); },
       u"a:Modified(id) root:ChildModified(a,id) b:ParentModifed(a,id) c:ParentModifed(a,id) "
       u"d:ParentModifed(a,id) s:ParentModifed(a,id) "},
      {[](Tree& t) {
         XmlNodePtr leaf = Node(u"leaf"), sub = Node(u"sub", {leaf});
         sub->AddEventSink(t.rec);
         leaf->AddEventSink(t.rec);
         EXPECT_EQ(t.b->AddChild(sub), 2);
       },
       u"sub:Added b:ChildAdded(sub) a:ChildAdded(sub) root:ChildAdded(sub) leaf:ParentAdded(b) "},
      {[](Tree& t) {
         t.a->DelChild(t.b);
         EXPECT_TRUE(t.b->Deleted && t.c->Deleted && t.d->Deleted && !t.s->Deleted);
         EXPECT_EQ(t.d->Parent(), nullptr);
       },
       kDeleteB},
      // A listener that the root gains during a delete hears the rest of it, even
      // within the same raise.
      {[](Tree& t) {
         auto receiver = std::make_shared<xml::EventReceiver>();
         receiver->RegisterMethod(u"m", [&t](auto&, auto&) { t.root->AddEventSink(t.rec); });
         t.root->RemoveEventSink(t.rec.get());
         t.d->EventProxyObject(receiver);
         t.d->EventProxyFunctionName(u"m");
         t.a->DelChild(t.b);
       },
       kDeleteB},
      // Release deletes the children with their events and the attributes, keeps the node and
      // clears its link only: the parent still lists it.
      {[](Tree& t) {
         t.b->Attribut(u"k", u"v");
         t.events.clear();
         t.b->Release();
         EXPECT_EQ(xml_test::Dump(t.b) + t.a->Child(1)->Name(), u"bb");
         EXPECT_TRUE(!t.b->Parent() && t.c->Deleted && !t.b->Deleted);
       },
       kDeleteB.substr(0, kDeleteB.find(u"b:Deleted"))},
      {[](Tree& t) {
         t.b->RaiseNodeEvent(u"Go");
         t.d->RaiseNodeEvent(u"Ping");  // a missing list is made empty
       },
       u"b:NodeEvent(Go) a:ChildNodeEvent(Go,b) root:ChildNodeEvent(Go,b) c:ParentNodeEvent(Go,b) "
       u"d:ParentNodeEvent(Go,b) d:NodeEvent(Ping) c:ChildNodeEvent(Ping,d) "
       u"b:ChildNodeEvent(Ping,d) a:ChildNodeEvent(Ping,d) root:ChildNodeEvent(Ping,d) "},
      {[](Tree& t) {
         XmlNodeTestPeer::SetEventLockFlag(*t.root, true);
         t.c->Value(u"x");
         t.d->Attribut(u"k", u"v");
         t.c->AddChild(Node(u"e"));
         t.c->DelChild(2.0);
         t.c->RaiseNodeEvent(u"Go");
       },
       u"c:NodeEvent(Go) b:ChildNodeEvent(Go,c) a:ChildNodeEvent(Go,c) root:ChildNodeEvent(Go,c) "
       u"d:ParentNodeEvent(Go,c) "},
      {[](Tree& t) {
         XmlNodeTestPeer::SetEventLockFlag(*t.c, true);
         t.d->Value(u"z");  // below the lock: not even the unlocked ancestors hear
         t.b->Value(u"y");
         XmlNodeTestPeer::RaiseDeleted(*t.b);
       },
       u"b:Modified() a:ChildModified(b,) root:ChildModified(b,) b:Deleted a:ChildDeleted(b) "
       u"root:ChildDeleted(b) c:ParentDeleted(b) d:ParentDeleted(b) "},
      {[](Tree& t) {
         t.a->AddEventSink(std::make_shared<Thrower>());  // held weakly: gone at once
         t.a->RemoveEventSink(t.rec.get());
         { auto temporary = Recorder::On({t.c}, t.events); }
         t.b->Value(u"v");
       },
       u"b:Modified() root:ChildModified(b,) c:ParentModifed(b,) d:ParentModifed(b,) "}};
  for (const auto& [change, events] : rows) {
    LogCapture log;
    Tree t;
    change(t);
    EXPECT_EQ(Joined(t.events), events);
    EXPECT_EQ(log.lines, Lines{});
  }
  // A throwing listener on an ancestor stops the walk up there, the descendants are still
  // told; on a descendant its subtree hears nothing, its next sibling does; on the node itself
  // nothing more is told.
  using N = XmlNodePtr Tree::*;
  const std::tuple<N, N, std::u16string, const char16_t*> throwing[] = {
      {&Tree::a, &Tree::b,
       u"b:Modified() a:ChildModified(b,) c:ParentModifed(b,) d:ParentModifed(b,) ",
       u"RaiseChildModified"},
      {&Tree::b, &Tree::a,
       u"a:Modified() root:ChildModified(a,) b:ParentModifed(a,) s:ParentModifed(a,) ",
       u"RaiseParentModified"},
      {&Tree::c, &Tree::c, u"c:Modified() ", u"RaiseModified"}};
  const auto thrower = std::make_shared<Thrower>();
  for (const auto& [listener, changed, events, sub] : throwing) {
    LogCapture log;
    Tree t;
    (t.*listener)->AddEventSink(thrower);
    (t.*changed)->Value(u"v");
    EXPECT_EQ(Joined(t.events) + (t.*changed)->Value(), events + u"v");
    EXPECT_EQ(log.lines, Lines{u"Error 5 (Invalid procedure call or argument) in Sub cXmlNode." +
                               std::u16string(sub)});
  }
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
  t.root->RaiseNodeEvent(u"Go", params);  // the very list reaches the receiver, not a copy
  t.root->EventProxyFunctionName(u"Boom");
  t.a->Value(u"x");  // a failing receiver stops nothing and logs nothing
  EXPECT_EQ(Joined(calls),
            u"ChildModified:[c]'id'[b] ChildModified:[c]'id'[root] ParentModifed:[c]'id'[d] "
            u"NodeEvent:'Go'L[root] "
            u"ParentNodeEvent:'Go'[root]L[b] ParentNodeEvent:'Go'[root]L[d] boom "
            u"ParentModifed:[a]''[b] ParentModifed:[a]''[d] ");
  EXPECT_EQ(t.events.back() + u"|" + Joined(log.lines), u"s:ParentModifed(a,)|");
}

}  // namespace
