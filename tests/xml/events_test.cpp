#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <utility>

#include "base/text.h"
#include "xml/node.h"
#include "xml_test_util.h"

namespace {

using xml_test::LogCapture;
using xml_test::Node;
using xml_test::Recorder;
using Lines = std::vector<std::u16string>;

// root > a > b > c > d, with a sibling s of b.
struct Tree {
  XmlNodePtr d = Node(u"d");
  XmlNodePtr c = Node(u"c", {d});
  XmlNodePtr b = Node(u"b", {c});
  XmlNodePtr s = Node(u"s");
  XmlNodePtr a = Node(u"a", {b, s});
  XmlNodePtr root = Node(u"root", {a});
  Lines events;
  std::shared_ptr<Recorder> rec = Recorder::On({root, a, b, c, d, s}, events);
};

// A change is told to the node, then its ancestors upwards, then its descendants in pre-order;
// an added subtree hears its new parent; a deleted one goes depth-first, each node announced.
TEST(XmlNodeEvents, EachChangeFamilyInItsOrder) {
  struct Row {
    std::function<void(Tree&)> change;
    Lines events;
  } rows[] = {
      {[](Tree& t) { t.c->Value(u"x"); },
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
         EXPECT_EQ(t.a->ChildCount() + t.b->ChildCount(), 1);
         EXPECT_EQ(t.d->Parent(), nullptr);
       },
       {u"d:Deleted", u"c:ChildDeleted(d)", u"b:ChildDeleted(d)", u"a:ChildDeleted(d)",
        u"root:ChildDeleted(d)", u"c:Deleted", u"b:ChildDeleted(c)", u"a:ChildDeleted(c)",
        u"root:ChildDeleted(c)", u"b:Deleted", u"a:ChildDeleted(b)", u"root:ChildDeleted(b)"}},
  };
  for (const Row& row : rows) {
    Tree t;
    row.change(t);
    EXPECT_EQ(t.events, row.events);
  }
}

TEST(XmlNodeEvents, AListenerSubscribedDuringADeleteHearsTheRestOfIt) {
  // When `hearer` first hears of the delete, it subscribes the root, with a listener or a
  // receiver: every deletion announced after that reaches the root, even within the same raise.
  struct Subscriber : xml::XmlNodeEvents {
    std::function<void()> once;
    void Deleted(cXmlNode&) override { Fire(); }
    void ChildDeleted(cXmlNode&, const XmlNodePtr&) override { Fire(); }
    void Fire() {
      if (auto f = std::exchange(once, nullptr)) f();
    }
  };
  struct Row {
    const char16_t* hearer;
    bool receiver;
    Lines root_hears;
  } rows[] = {
      {u"d", false, {u"root:ChildDeleted(d)", u"root:ChildDeleted(c)", u"root:ChildDeleted(b)"}},
      {u"d", true, {u"root:ChildDeleted(d)", u"root:ChildDeleted(c)", u"root:ChildDeleted(b)"}},
      {u"c", false, {u"root:ChildDeleted(d)", u"root:ChildDeleted(c)", u"root:ChildDeleted(b)"}},
      {u"c", true, {u"root:ChildDeleted(d)", u"root:ChildDeleted(c)", u"root:ChildDeleted(b)"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(base::Narrow(row.hearer) + (row.receiver ? " receiver" : " listener"));
    XmlNodePtr d = Node(u"d");
    XmlNodePtr c = Node(u"c", {d});
    XmlNodePtr b = Node(u"b", {c});
    XmlNodePtr root = Node(u"root", {Node(u"a", {b})});
    Lines heard;
    auto recorder = std::make_shared<Recorder>(heard);
    auto receiver = std::make_shared<xml::EventReceiver>();
    receiver->RegisterMethod(u"On", [&](const std::u16string& id, xml::EventParams& p) {
      heard.push_back(u"root:" + id + u"(" + p[0].Node()->Name() + u")");
    });
    auto subscriber = std::make_shared<Subscriber>();
    subscriber->once = [&] {
      if (row.receiver) {
        root->EventProxyObject(receiver);
        root->EventProxyFunctionName(u"On");
      } else {
        root->AddEventSink(recorder);
      }
    };
    (row.hearer == std::u16string_view(u"d") ? d : c)->AddEventSink(subscriber);
    b->Parent()->DelChild(b);
    EXPECT_EQ(heard, row.root_hears);
  }
}

TEST(XmlNodeEvents, RaiseNodeEventReachesEveryNodeWithTheSameList) {
  Tree t;
  auto params = std::make_shared<xml::EventParams>(xml::EventParams{u"p1", std::int32_t{2}});
  auto receiver = std::make_shared<xml::EventReceiver>();
  std::vector<xml::EventParamList> seen;
  receiver->RegisterMethod(u"OnEvent", [&](const std::u16string&, xml::EventParams& p) {
    seen.push_back(p[p.size() - 2].List());
  });
  t.root->EventProxyObject(receiver);
  t.root->EventProxyFunctionName(u"OnEvent");
  t.b->RaiseNodeEvent(u"Refresh", params);
  EXPECT_EQ(t.events, (Lines{u"b:NodeEvent(Refresh)", u"a:ChildNodeEvent(Refresh,b)",
                             u"root:ChildNodeEvent(Refresh,b)", u"c:ParentNodeEvent(Refresh,b)",
                             u"d:ParentNodeEvent(Refresh,b)"}));
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0], params);  // the very list, not a copy
  t.events.clear();
  t.d->RaiseNodeEvent(u"Ping");  // a missing list is made empty
  EXPECT_EQ(t.events.front(), u"d:NodeEvent(Ping)");
}

TEST(XmlNodeEvents, EventLockSilencesChangesButNotNodeEventsOrParentDeleted) {
  Tree t;
  XmlNodeTestPeer::SetEventLockFlag(*t.root, true);
  t.c->Value(u"x");
  t.d->Attribut(u"k", u"v");
  t.c->AddChild(Node(u"e"));
  t.c->DelChild(2.0);
  EXPECT_TRUE(t.events.empty());
  t.b->RaiseNodeEvent(u"Go");
  EXPECT_EQ(t.events.size(), 5u);
  XmlNodeTestPeer::SetEventLockFlag(*t.root, false);

  // A locked node in the middle: descendants below it are skipped by ParentModifed, but
  // ParentDeleted reaches them.
  XmlNodeTestPeer::SetEventLockFlag(*t.c, true);
  t.events.clear();
  t.b->Value(u"y");
  EXPECT_EQ(t.events, (Lines{u"b:Modified()", u"a:ChildModified(b,)", u"root:ChildModified(b,)"}));
  t.events.clear();
  XmlNodeTestPeer::RaiseDeleted(*t.b);
  EXPECT_EQ(t.events, (Lines{u"b:Deleted", u"a:ChildDeleted(b)", u"root:ChildDeleted(b)",
                             u"c:ParentDeleted(b)", u"d:ParentDeleted(b)"}));
  // Changes below the locked node raise nothing, not even on the unlocked ancestors.
  t.events.clear();
  t.d->Value(u"z");
  EXPECT_TRUE(t.events.empty());
}

TEST(XmlNodeEvents, ReceiverGetsTheEventIdAndTheParametersThenTheRaisingNode) {
  Tree t;
  auto receiver = std::make_shared<xml::EventReceiver>();
  Lines calls;
  receiver->RegisterMethod(u"onxml", [&](const std::u16string& id, xml::EventParams& p) {
    std::u16string line = id + u":";
    for (const auto& param : p) {
      if (auto n = param.Node()) {
        line += u"[" + n->Name() + u"]";
      } else {
        line += u"'" + param.Text() + u"'";
      }
    }
    calls.push_back(line);
  });
  for (const auto& n : {t.root, t.b, t.d}) {
    n->EventProxyObject(receiver);
    n->EventProxyFunctionName(u"OnXml");  // looked up without regard to case
  }
  t.c->Attribut(u"id", u"1");
  t.b->Value(u"v");
  XmlNodePtr e = Node(u"e");
  t.d->AddChild(e);
  t.d->DelChild(e);
  t.root->RaiseNodeEvent(u"Go");
  EXPECT_EQ(calls, (Lines{
                       u"ChildModified:[c]'id'[b]",
                       u"ChildModified:[c]'id'[root]",
                       u"ParentModifed:[c]'id'[d]",
                       u"Modified:''[b]",
                       u"ChildModified:[b]''[root]",
                       u"ParentModifed:[b]''[d]",
                       u"ChildAdded:[e][d]",
                       u"ChildAdded:[e][b]",
                       u"ChildAdded:[e][root]",
                       u"ChildDeleted:[e][d]",
                       u"ChildDeleted:[e][b]",
                       u"ChildDeleted:[e][root]",
                       u"NodeEvent:'Go'''[root]",
                       u"ParentNodeEvent:'Go'[root]''[b]",
                       u"ParentNodeEvent:'Go'[root]''[d]",
                   }));
}

TEST(XmlNodeEvents, ReceiverWithoutMethodNameOrWithAMissingOrFailingMethodChangesNothing) {
  LogCapture log;
  Tree t;
  auto receiver = std::make_shared<xml::EventReceiver>();
  int calls = 0;
  receiver->RegisterMethod(u"Boom", [&](const std::u16string&, xml::EventParams&) {
    ++calls;
    throw std::runtime_error("receiver failure");
  });
  receiver->RegisterMethod(u"", [&](const std::u16string&, xml::EventParams&) { calls += 100; });
  t.b->EventProxyObject(receiver);  // no method name: never called
  t.a->EventProxyObject(receiver);
  t.a->EventProxyFunctionName(u"NoSuchMethod");
  t.root->EventProxyObject(receiver);
  t.root->EventProxyFunctionName(u"Boom");
  t.c->Value(u"x");
  EXPECT_EQ(calls, 1);
  // Propagation went on past the failing receiver, and nothing was logged.
  EXPECT_EQ(t.events.back(), u"d:ParentModifed(c,)");
  EXPECT_TRUE(log.lines.empty());
}

// A listener that throws on one node.
class Thrower : public xml::XmlNodeEvents {
 public:
  void ChildModified(cXmlNode&, const XmlNodePtr&, const std::u16string&) override {
    throw std::runtime_error("listener failure");
  }
  void ParentModifed(cXmlNode&, const XmlNodePtr&, const std::u16string&) override {
    throw std::runtime_error("listener failure");
  }
  void Modified(cXmlNode&, const std::u16string&) override {
    throw std::runtime_error("listener failure");
  }
};

TEST(XmlNodeEvents, AFailingListenerEndsItsOwnProcedureOnly) {
  auto thrower = std::make_shared<Thrower>();
  {
    // On an ancestor: the walk up stops there, the descendants are still told.
    LogCapture log;
    Tree t;
    t.a->AddEventSink(thrower);
    t.b->Value(u"v");
    EXPECT_EQ(t.events, (Lines{u"b:Modified()", u"a:ChildModified(b,)", u"c:ParentModifed(b,)",
                               u"d:ParentModifed(b,)"}));
    EXPECT_EQ(t.b->Value(), u"v");
    EXPECT_EQ(log.lines, Lines{u"Error 5 (Invalid procedure call or argument) in Sub "
                               u"cXmlNode.RaiseChildModified"});
  }
  {
    // On a descendant: its subtree hears nothing, its next sibling does.
    LogCapture log;
    Tree t;
    t.b->AddEventSink(thrower);
    t.a->Value(u"v");
    EXPECT_EQ(t.events, (Lines{u"a:Modified()", u"root:ChildModified(a,)", u"b:ParentModifed(a,)",
                               u"s:ParentModifed(a,)"}));
    EXPECT_EQ(log.lines, Lines{u"Error 5 (Invalid procedure call or argument) in Sub "
                               u"cXmlNode.RaiseParentModified"});
  }
  {
    // On the node itself: nothing further.
    LogCapture log;
    Tree t;
    t.c->AddEventSink(thrower);
    t.c->Value(u"v");
    EXPECT_EQ(t.events, Lines{u"c:Modified()"});
    EXPECT_EQ(t.c->Value(), u"v");
    EXPECT_EQ(log.lines, Lines{u"Error 5 (Invalid procedure call or argument) in Sub "
                               u"cXmlNode.RaiseModified"});
  }
}

TEST(XmlNodeEvents, ListenersAreHeldWeaklyAndCanBeRemoved) {
  Tree t;
  Lines other;
  { auto temporary = Recorder::On({t.c}, other); }
  t.c->Value(u"x");
  EXPECT_TRUE(other.empty());
  t.events.clear();
  t.c->RemoveEventSink(t.rec.get());
  t.c->Value(u"y");
  EXPECT_EQ(t.events.front(), u"b:ChildModified(c,)");
}

TEST(XmlNodeEvents, SleepDataIsOfferedToTheRootAndTakenAtItsWord) {
  Tree t;
  XmlNodeTestPeer::SetSleepText(*t.d, u"<d/>");
  XmlNodeTestPeer::RequestSaveSleepData(*t.d);
  EXPECT_EQ(t.events, Lines{u"root:SaveSleepData(d,<d/>)"});
  EXPECT_EQ(XmlNodeTestPeer::SleepText(*t.d), u"<d/>");  // nobody took it

  t.events.clear();
  t.rec->keep_sleep_text = true;
  XmlNodeTestPeer::RequestSaveSleepData(*t.d);
  EXPECT_EQ(XmlNodeTestPeer::SleepText(*t.d), u"_-_STORED_-_");
  EXPECT_EQ(t.rec->kept, u"<d/>");

  // A detached subtree asks its own top node.
  t.events.clear();
  t.a->EmancipateChild(t.b);
  XmlNodeTestPeer::SetSleepText(*t.c, u"<c/>");
  XmlNodeTestPeer::RequestSaveSleepData(*t.c);
  EXPECT_EQ(t.events, Lines{u"b:SaveSleepData(c,<c/>)"});
}

TEST(XmlNodeEvents, SleepDataParametersAreWritableThroughTheReceiver) {
  XmlNodePtr n = Node(u"n");
  XmlNodePtr root = Node(u"root", {n});
  auto receiver = std::make_shared<xml::EventReceiver>();
  receiver->RegisterMethod(u"Keep", [&](const std::u16string& id, xml::EventParams& p) {
    ASSERT_EQ(id, u"SaveSleepData");
    ASSERT_EQ(p.size(), 4u);
    EXPECT_EQ(p[0].Node(), n);
    EXPECT_EQ(p[1].Text(), u"<n>1</n>");
    EXPECT_EQ(p[3].Node(), root);
    *p[2].BoolRef() = true;
  });
  root->EventProxyObject(receiver);
  root->EventProxyFunctionName(u"Keep");
  XmlNodeTestPeer::SetSleepText(*n, u"<n>1</n>");
  XmlNodeTestPeer::RequestSaveSleepData(*n);
  EXPECT_EQ(XmlNodeTestPeer::SleepText(*n), u"_-_STORED_-_");
}

TEST(XmlNodeEvents, WakingAStoredNodeAsksTheRootBackWithEventsLocked) {
  Tree t;
  t.rec->kept = u"<d>restored</d>";
  auto receiver = std::make_shared<xml::EventReceiver>();
  receiver->RegisterMethod(u"R", [&](const std::u16string& id, xml::EventParams& p) {
    // A change made on the waking node while it wakes is not announced.
    if (id == u"RestoreSleepData") p[0].Node()->Attribut(u"during", u"1");
  });
  t.root->EventProxyObject(receiver);
  t.root->EventProxyFunctionName(u"R");
  XmlNodeTestPeer::SetSleepText(*t.d, u"_-_STORED_-_");
  t.d->WakeUp(true);
  EXPECT_EQ(t.events, Lines{u"root:RestoreSleepData(d)"});
  // Events are back once the wake-up is over.
  t.events.clear();
  t.d->Attribut(u"after", u"1");
  EXPECT_EQ(t.events.front(), u"d:Modified(after)");
}

}  // namespace
