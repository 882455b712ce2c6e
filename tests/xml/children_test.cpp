#include <gtest/gtest.h>

#include <optional>

#include "xml/node.h"
#include "xml_test_util.h"

namespace {

using xml_test::ChildNames;
using xml_test::LogCapture;
using xml_test::Node;
using xml_test::Recorder;
using Lines = std::vector<std::u16string>;

TEST(XmlNodeChildren, ChildValueReadsTheFirstMatchAndCreatesOnlyForAText) {
  XmlNodePtr p = Node(u"p", {Node({u"Lang", u"fr"}), Node({u"lang", u"en"})});
  EXPECT_EQ(p->ChildValue(u"LANG"), u"fr");
  EXPECT_EQ(p->ChildValue(u"none"), u"");
  EXPECT_TRUE(p->ChildExists(u"lang"));
  EXPECT_FALSE(p->ChildExists(u"lan"));

  p->ChildValue(u"lang", u"de");
  EXPECT_EQ(p->Child(1)->Value(), u"de");
  EXPECT_EQ(p->Child(2)->Value(), u"en");
  p->ChildValue(u"new", u"");
  EXPECT_EQ(p->ChildCount(), 2);
  Lines events;
  auto rec = Recorder::On({p}, events);
  p->ChildValue(u"new", u"1");
  EXPECT_EQ(ChildNames(p), u"Lang,lang,new");
  EXPECT_EQ(p->Child(3)->Value(), u"1");
  EXPECT_EQ(events, Lines{u"p:ChildAdded(new)"});
}

TEST(XmlNodeChildren, ChildAttributGetFindsOnlyWhileTheSetterCreatesAPath) {
  XmlNodePtr p =
      Node({u"item", u"", {{u"id", u"self"}}}, {Node({u"item", u"", {{u"id", u"child"}}})});
  // The node's own name matches first.
  EXPECT_EQ(p->ChildAttribut(u"item", u"id"), u"self");
  EXPECT_EQ(p->ChildAttribut(u"a", u"id"), u"");
  EXPECT_EQ(p->ChildCount(), 1);
  p->ChildAttribut(u"a.b", u"id", u"7");
  EXPECT_EQ(p->GetChildNode(u"a.b")->Attribut(u"id"), u"7");
  EXPECT_EQ(ChildNames(p), u"item,a");
}

TEST(XmlNodeChildren, AddChildPositions) {
  struct Row {
    std::optional<std::int32_t> before, after;
    const char16_t* names;
    std::int32_t result;
    const char16_t* log;
  } rows[] = {
      {{}, {}, u"x,y,z,n", 4, nullptr},
      {1, {}, u"n,x,y,z", 4, nullptr},
      {3, {}, u"x,y,n,z", 4, nullptr},
      {{}, 1, u"x,n,y,z", 4, nullptr},
      {{}, 3, u"x,y,z,n", 4, nullptr},
      {4, {}, u"x,y,z", 0, u"Erreur 9 (Subscript out of range) dans Function cXmlNode.AddChild"},
      {0, {}, u"x,y,z", 0, u"Erreur 9 (Subscript out of range) dans Function cXmlNode.AddChild"},
      {{}, 0, u"x,y,z", 0, u"Erreur 9 (Subscript out of range) dans Function cXmlNode.AddChild"},
      {{}, 4, u"x,y,z", 0, u"Erreur 9 (Subscript out of range) dans Function cXmlNode.AddChild"},
      {1, 1, u"x,y,z", 0,
       u"Erreur 5 (Invalid procedure call or argument) dans Function cXmlNode.AddChild"},
  };
  for (const auto& r : rows) {
    LogCapture log;
    XmlNodePtr p = Node(u"p", {Node(u"x"), Node(u"y"), Node(u"z")});
    XmlNodePtr n = Node(u"n");
    EXPECT_EQ(p->AddChild(n, r.before, r.after), r.result);
    EXPECT_EQ(ChildNames(p), r.names);
    // The link is made even when the position is refused.
    EXPECT_EQ(n->Parent(), p);
    const std::u16string listed = u"," + std::u16string(r.names) + u",";
    const std::size_t at = listed.find(u",n,");
    const std::int32_t expected_index =
        at == std::u16string::npos ? 0 : static_cast<std::int32_t>(at / 2 + 1);
    EXPECT_EQ(n->Index(), expected_index);
    EXPECT_EQ(log.lines, r.log ? Lines{r.log} : Lines{});
  }
}

TEST(XmlNodeChildren, AChildKeptAfterItsParentIsReadAgainCannotTakeThatParent) {
  XmlNodePtr p = cXmlNode::Create();
  p->XmlData(u"<p><c/></p>");
  const XmlNodePtr c = p->Child(1);
  p->XmlData(u"<p/>");  // c is no longer listed but still links to p
  xml_test::LogCapture log;
  EXPECT_EQ(c->AddChild(p), 0);  // p would become its own ancestor
  EXPECT_EQ(log.lines,
            std::vector<std::u16string>{
                u"Erreur 5 (Invalid procedure call or argument) dans Function cXmlNode.AddChild"});
  EXPECT_EQ(c->ChildCount(), 0);
  EXPECT_EQ(p->Parent(), nullptr);
}

TEST(XmlNodeChildren, AddChildMovesANodeFromItsOldPlace) {
  XmlNodePtr y = Node(u"y");
  XmlNodePtr p = Node(u"p", {Node(u"x"), y, Node(u"z")});
  EXPECT_EQ(p->AddChild(y), 3);
  EXPECT_EQ(ChildNames(p), u"x,z,y");
  EXPECT_EQ(p->AddChild(y, 1), 3);  // positions count after the node left its old one
  EXPECT_EQ(ChildNames(p), u"y,x,z");
  XmlNodePtr q = Node(u"q");
  Lines events;
  auto rec = Recorder::On({p, q, y}, events);
  q->AddChild(y);
  EXPECT_EQ(ChildNames(p), u"x,z");
  EXPECT_EQ(y->Parent(), q);
  // Leaving the old parent raises nothing there.
  EXPECT_EQ(events, (Lines{u"y:Added", u"q:ChildAdded(y)"}));
}

TEST(XmlNodeChildren, CreateChildAddsTheNewNodeWhereAsked) {
  XmlNodePtr p = Node(u"p", {Node(u"x"), Node(u"y")});
  XmlNodePtr made = p->CreateChild(u"", 2);
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(p->Child(2), made);
  EXPECT_EQ(p->ChildCount(), 3);
}

TEST(XmlNodeChildren, EmancipateChildByNodeOrRoundedPositionWithoutEvents) {
  struct Row {
    int form;  // 0 node y, 1 number, 2 text
    double number;
    const char16_t* text;
    const char16_t* left;
    bool logged;
  } rows[] = {
      {0, 0, nullptr, u"x,z,w", false},   {1, 2, nullptr, u"x,z,w", false},
      {1, 1.5, nullptr, u"x,z,w", false},  // to the nearest
      {1, 2.5, nullptr, u"x,z,w", false},  // halves to even
      {1, 3.5, nullptr, u"x,y,z", false}, {2, 0, u" 2 ", u"x,z,w", false},
      {1, 0, nullptr, u"x,y,z,w", true},  {1, 5, nullptr, u"x,y,z,w", true},
      {2, 0, u"two", u"x,y,z,w", true},
  };
  for (const auto& r : rows) {
    LogCapture log;
    XmlNodePtr y = Node(u"y");
    XmlNodePtr p = Node(u"p", {Node(u"x"), y, Node(u"z"), Node(u"w")});
    Lines events;
    auto rec = Recorder::On({p, y}, events);
    if (r.form == 0) p->EmancipateChild(y);
    if (r.form == 1) p->EmancipateChild(r.number);
    if (r.form == 2) p->EmancipateChild(std::u16string_view(r.text));
    EXPECT_EQ(ChildNames(p), r.left) << r.number;
    EXPECT_TRUE(events.empty());
    EXPECT_EQ(log.lines.size(), r.logged ? 1u : 0u);
    if (r.logged) {
      EXPECT_TRUE(log.lines[0].ends_with(u"dans Sub cXmlNode.ChildEmancipate"));
    }
  }
  // The node survives its release from the list, without a parent.
  XmlNodePtr y = Node(u"y");
  XmlNodePtr p = Node(u"p", {y});
  p->EmancipateChild(1);
  EXPECT_EQ(y->Parent(), nullptr);
  EXPECT_FALSE(y->Deleted);
}

TEST(XmlNodeChildren, DelChildLeavesEveryNodeOfTheSubtreeDeleted) {
  XmlNodePtr c = Node(u"c"), b = Node(u"b", {c}), a = Node(u"a", {b}), s = Node(u"s");
  XmlNodePtr p = Node(u"p", {a, s});
  p->DelChild(1);
  EXPECT_TRUE(a->Deleted && b->Deleted && c->Deleted);
  EXPECT_FALSE(s->Deleted || p->Deleted);
  EXPECT_EQ(ChildNames(p), u"s");
  EXPECT_EQ(a->ChildCount(), 0);
  EXPECT_EQ(b->ChildCount(), 0);
  EXPECT_EQ(b->Parent(), nullptr);
}

TEST(XmlNodeChildren, DelChildIgnoresStrangersAndLogsBadPositions) {
  LogCapture log;
  XmlNodePtr x = Node(u"x");
  XmlNodePtr p = Node(u"p", {x});
  XmlNodePtr stranger = Node(u"x");
  p->DelChild(stranger);
  p->DelChild(XmlNodePtr());
  EXPECT_TRUE(log.lines.empty());
  p->DelChild(2);
  p->DelChild(std::u16string_view(u"first"));
  EXPECT_EQ(log.lines, (Lines{u"Erreur 9 (Subscript out of range) dans Sub cXmlNode.DelChild",
                              u"Erreur 13 (Type mismatch) dans Sub cXmlNode.DelChild"}));
  EXPECT_EQ(p->ChildCount(), 1);
  EXPECT_FALSE(stranger->Deleted);
  p->DelChild(std::u16string_view(u"1"));
  EXPECT_EQ(p->ChildCount(), 0);
}

TEST(XmlNodeChildren, DelChildsFromTheLastAndUnderRules) {
  XmlNodePtr p = Node(u"p", {Node(u"x"), Node(u"y")});
  Lines events;
  auto rec = Recorder::On({p}, events);
  p->DelChilds();
  EXPECT_EQ(events, (Lines{u"p:ChildDeleted(y)", u"p:ChildDeleted(x)"}));

  // Rules: delete every node with attribute tmp; search the others.
  XmlNodePtr rules =
      Node(u"Rules", {Node(u"MatchRule", {Node({u"Attribut", u"", {{u"name", u"tmp"}}})})});
  XmlNodePtr t1 = Node({u"t1", u"", {{u"tmp", u"1"}}}, {Node(u"inner")});
  XmlNodePtr keep = Node(u"keep", {Node({u"t2", u"", {{u"tmp", u"1"}}}), Node(u"k2")});
  XmlNodePtr root = Node(u"root", {t1, keep});
  root->DelChilds(rules);
  EXPECT_EQ(ChildNames(root), u"keep");
  EXPECT_EQ(ChildNames(keep), u"k2");
  EXPECT_TRUE(t1->Deleted);
}

TEST(XmlNodeChildren, DeleteEmptyChildsWithAndWithoutRecursion) {
  const auto make = [] {
    return Node(u"p",
                {Node(u"empty"), Node({u"text", u"t"}), Node({u"attr", u"", {{u"a", u"1"}}}),
                 Node(u"holder", {Node(u"e1"), Node(u"e2")}), Node({u"cdata", u"<![CDATA[]]>"})});
  };
  XmlNodePtr flat = make();
  flat->DeleteEmptyChilds(false);
  EXPECT_EQ(ChildNames(flat), u"text,attr,holder");  // Value of an empty CDATA is empty
  EXPECT_EQ(flat->Child(3)->ChildCount(), 2);
  XmlNodePtr deep = make();
  deep->DeleteEmptyChilds(true);
  // holder is emptied first, then deleted itself.
  EXPECT_EQ(ChildNames(deep), u"text,attr");
}

TEST(XmlNodeChildren, CloneCopiesTheSubtreeButNotTextBesideChildren) {
  XmlNodePtr leaf = Node({u"leaf", u"<![CDATA[a<b]]>", {{u"k", u"v"}}});
  XmlNodePtr inner = Node({u"inner", u"dropped", {{u"id", u"1"}, {u"x", u"2"}}}, {leaf});
  XmlNodePtr root = Node(u"root", {inner});
  root->XMLEncoding(u"utf-8");
  XmlNodeTestPeer::SetXmlVersion(*root, u"1.0");
  auto receiver = std::make_shared<xml::EventReceiver>();
  inner->EventProxyObject(receiver);
  inner->EventProxyFunctionName(u"x");
  inner->ItemData = 3;
  leaf->ItemData = 4;

  XmlNodePtr copy = inner->Clone();
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->Parent(), nullptr);
  EXPECT_EQ(copy->EventProxyObject(), nullptr);
  EXPECT_EQ(copy->XMLVersion(), u"");
  EXPECT_EQ(copy->XMLEncoding(), u"utf-8");  // inherited on the source, own on the copy
  EXPECT_EQ(copy->Name(), u"inner");
  EXPECT_EQ(copy->AttrName(2), u"x");
  EXPECT_EQ(copy->Attribut(u"ID"), u"1");
  EXPECT_EQ(copy->RawValue(), u"");  // text beside children is dropped
  EXPECT_EQ(copy->ItemData, 3);
  XmlNodePtr leaf_copy = copy->Child(1);
  ASSERT_NE(leaf_copy, leaf);
  EXPECT_EQ(leaf_copy->RawValue(), u"a<b");  // through Value: the markers go
  EXPECT_EQ(leaf_copy->Attribut(u"k"), u"v");
  EXPECT_EQ(leaf_copy->ItemData, 4);
  EXPECT_EQ(leaf_copy->Parent(), copy);
  // The copy is independent.
  leaf_copy->Attribut(u"k", u"changed");
  EXPECT_EQ(leaf->Attribut(u"k"), u"v");
}

TEST(XmlNodeChildren, CopyItemDataToFollowsOnlyTheSameShape) {
  const auto tree = [](std::int32_t data, int extra) {
    XmlNodePtr b = Node(u"b");
    for (int i = 0; i < extra; ++i) b->AddChild(Node(u"e"));
    XmlNodePtr root = Node(u"root", {Node(u"a"), b});
    root->ItemData = data;
    root->Child(1)->ItemData = data + 1;
    b->ItemData = data + 2;
    return root;
  };
  XmlNodePtr from = tree(10, 1);
  XmlNodePtr same = tree(0, 1);
  from->CopyItemDataTo(same);
  EXPECT_EQ(same->ItemData, 10);
  EXPECT_EQ(same->Child(1)->ItemData, 11);
  EXPECT_EQ(same->Child(2)->ItemData, 12);

  // b differs in its child count: nothing at b or below, the rest is copied.
  XmlNodePtr other = tree(0, 2);
  from->CopyItemDataTo(other);
  EXPECT_EQ(other->ItemData, 10);
  EXPECT_EQ(other->Child(1)->ItemData, 11);
  EXPECT_EQ(other->Child(2)->ItemData, 2);

  // The top differs: nothing at all, not even the top.
  XmlNodePtr top = tree(0, 1);
  top->AddChild(Node(u"c"));
  from->CopyItemDataTo(top);
  EXPECT_EQ(top->ItemData, 0);
  EXPECT_EQ(top->Child(1)->ItemData, 1);
}

TEST(XmlNodeChildren, FindNodeQueryForms) {
  // doc > (lang="fr" named Language "fr"), (item id=main > sub), (Lang value "fr"), (A:id)
  XmlNodePtr doc =
      Node({u"doc", u"", {{u"ver", u""}}},
           {Node({u"Language", u"fr", {{u"lang", u"fr"}}}),
            Node({u"item", u"", {{u"id", u"main"}}}, {Node({u"sub", u"x", {{u"id", u"deep"}}})}),
            Node({u"lang", u"fr"}), Node(u"a:id=main")});
  struct Row {
    const char16_t* query;
    bool recursive, skip_me;
    const char16_t* found;  // name and the id attribute, or "" for nothing
  } rows[] = {
      {u"LANGUAGE", false, false, u"Language"},
      {u"a:lang=FR", false, false, u"Language"},  // attribute value without regard to case
      {u"a:id=main", false, false, u"item"},      // children by the attribute form only
      {u"a:id=MAIN", false, false, u"item"},
      {u"a:id=deep", false, false, u""},  // not recursive: children only
      {u"a:id=deep", true, false, u"sub"},
      {u"A:id=main", false, false, u"a:id=main"},  // the prefix is exact: a plain name
      {u"a:ver", false, false, u"doc"},            // empty attribute: the node itself
      {u"a:nothing", false, true, u"Language"},    // missing counts as empty
      {u"Lang=FR", true, false, u""},              // the value is exact
      {u"lang=fr", true, false, u"lang"},          // the name any case: Language has "fr" too,
      {u"Language=fr", true, false, u"Language"},  // but its name is not "lang"
      {u"lang=fr", false, false, u""},             // not recursive: children by name only
      {u"doc", false, false, u"doc"},
      {u"doc", false, true, u""},
      {u"sub", false, false, u""},
      {u"sub", true, true, u"sub"},
      {u"", false, false, u""},
  };
  // The whole query is tried as a name before its forms.
  EXPECT_EQ(doc->Child(4)->FindNode(u"a:id=main"), doc->Child(4));
  for (const auto& r : rows) {
    XmlNodePtr found = doc->FindNode(r.query, r.recursive, r.skip_me);
    EXPECT_EQ(found ? found->Name() : u"", r.found)
        << testing::PrintToString(std::u16string(r.query)) << " recursive " << r.recursive
        << " skip_me " << r.skip_me;
  }
}

TEST(XmlNodeChildren, FindNodesCollectsInPreOrderAndStopsAtExactlyMaxFound) {
  XmlNodePtr rules =
      Node(u"R", {Node(u"MatchRule", {Node({u"Attribut", u"", {{u"name", u"hit"}}})})});
  const auto hit = [](const char16_t* name, std::initializer_list<XmlNodePtr> children = {}) {
    return Node({name, u"", {{u"hit", u"1"}}}, children);
  };
  XmlNodePtr root =
      Node(u"root", {hit(u"a", {hit(u"a1"), Node(u"a2", {hit(u"a21")})}), Node(u"b"), hit(u"c")});
  const auto names = [](const std::vector<XmlNodePtr>& v) {
    std::u16string s;
    for (const auto& n : v) s += n->Name() + u" ";
    return s;
  };
  EXPECT_EQ(root->NodeCount(), 6);
  std::vector<XmlNodePtr> all;
  root->FindNodes(rules, all);
  EXPECT_EQ(names(all), u"a a1 a21 c ");
  std::vector<XmlNodePtr> two;
  root->FindNodes(rules, two, 2);
  EXPECT_EQ(names(two), u"a a1 ");
  // A list that already holds more than the limit never reaches it.
  std::vector<XmlNodePtr> over{root, root, root};
  root->FindNodes(rules, over, 2);
  EXPECT_EQ(over.size(), 7u);
  // One that holds exactly the limit stops after the first child's search has added nothing.
  XmlNodePtr late = Node(u"late", {Node(u"b"), hit(u"c")});
  std::vector<XmlNodePtr> none;
  late->FindNodes(rules, none, 2);
  EXPECT_EQ(names(none), u"c ");
  std::vector<XmlNodePtr> exact{root, root};
  late->FindNodes(rules, exact, 2);
  EXPECT_EQ(names(exact), u"root root ");
}

}  // namespace
