#include <gtest/gtest.h>

#include <optional>
#include <tuple>

#include "base/text.h"
#include "xml_test_util.h"

namespace {

using xml_test::ChildNames;
using xml_test::Dump;
using xml_test::Lines;
using xml_test::LogCapture;
using xml_test::Node;
using xml_test::Recorder;

const std::u16string kAddRange =
    u"Erreur 9 (Subscript out of range) dans Function cXmlNode.AddChild";
const std::u16string kAddRefused =
    u"Erreur 5 (Invalid procedure call or argument) dans Function cXmlNode.AddChild";

TEST(XmlNodeChildren, ChildValueChildAttributAndAddChildPositions) {
  XmlNodePtr p =
      Node({u"p", u"", {{u"id", u"self"}}}, {Node({u"Lang", u"fr"}), Node({u"lang", u"en"})});
  EXPECT_EQ(p->ChildValue(u"LANG") + p->ChildValue(u"none"), u"fr");
  EXPECT_TRUE(p->ChildExists(u"lang") && !p->ChildExists(u"lan"));
  p->ChildValue(u"lang", u"de");
  p->ChildValue(u"new", u"");  // no text: nothing made
  EXPECT_EQ(Dump(p), u"p[id=self]{Lang\"de\";lang\"en\"}");
  Lines events;
  auto rec = Recorder::On({p}, events);
  p->ChildValue(u"new", u"1");
  EXPECT_EQ(events, Lines{u"p:ChildAdded(new)"});
  // The getter finds with FindNode, so the node's own name answers first; the setter takes a
  // dotted path and makes it.
  EXPECT_EQ(p->ChildAttribut(u"p", u"id") + p->ChildAttribut(u"a", u"id"), u"self");
  p->ChildAttribut(u"a.b", u"id", u"7");
  EXPECT_EQ(Dump(p), u"p[id=self]{Lang\"de\";lang\"en\";new\"1\";a{b[id=7]}}");
  using Pos = std::optional<std::int32_t>;
  // Before, after, children after, result, index of the new node, log line.
  const std::tuple<Pos, Pos, const char16_t*, std::int32_t, std::int32_t, std::u16string> rows[] = {
      {{}, {}, u"x,y,z,n", 4, 4, u""},    {1, {}, u"n,x,y,z", 4, 1, u""},
      {3, {}, u"x,y,n,z", 4, 3, u""},     {{}, 1, u"x,n,y,z", 4, 2, u""},
      {{}, 3, u"x,y,z,n", 4, 4, u""},     {4, {}, u"x,y,z", 0, 0, kAddRange},
      {0, {}, u"x,y,z", 0, 0, kAddRange}, {{}, 0, u"x,y,z", 0, 0, kAddRange},
      {{}, 4, u"x,y,z", 0, 0, kAddRange}, {1, 1, u"x,y,z", 0, 0, kAddRefused}};
  for (const auto& [before, after, names, result, index, line] : rows) {
    LogCapture log;
    XmlNodePtr p = Node(u"p", {Node(u"x"), Node(u"y"), Node(u"z")});
    XmlNodePtr n = Node(u"n");
    EXPECT_EQ(p->AddChild(n, before, after), result);
    EXPECT_EQ(ChildNames(p), names);
    EXPECT_EQ(n->Parent(), p);  // the link is made even when the position is refused
    EXPECT_EQ(n->Index(), index);
    EXPECT_EQ(log.lines, line.empty() ? Lines{} : Lines{line});
  }
  p = Node(u"p", {Node(u"x"), Node(u"y")});
  EXPECT_EQ(p->CreateChild(u"<m/>", 2)->Index(), 2);
  EXPECT_EQ(ChildNames(p), u"x,m,y");
}

TEST(XmlNodeChildren, AddChildMovesANodeAndRefusesLoops) {
  XmlNodePtr y = Node(u"y");
  XmlNodePtr p = Node(u"p", {Node(u"x"), y, Node(u"z")});
  EXPECT_TRUE(p->AddChild(y) == 3 && ChildNames(p) == u"x,z,y");
  // Positions count after the node left its old one.
  EXPECT_TRUE(p->AddChild(y, 1) == 3 && ChildNames(p) == u"y,x,z");
  XmlNodePtr q = Node(u"q");
  Lines events;
  auto rec = Recorder::On({p, q, y}, events);
  q->AddChild(y);
  EXPECT_EQ(ChildNames(p) + u"/" + y->Parent()->Name(), u"x,z/q");
  EXPECT_EQ(events, (Lines{u"y:Added", u"q:ChildAdded(y)"}));  // nothing at the old parent

  LogCapture log;
  XmlNodePtr c = Node(u"c"), b = Node(u"b", {c}), a = Node(u"a", {b});
  c->Parent(a);  // a parent that is an ancestor is fine
  a->Parent(c);  // a parent below the node is not
  a->Parent(a);
  EXPECT_TRUE(!a->Parent() && c->AddChild(a) == 0 && b->AddChild(b) == 0);
  // A node linked to a parent that does not list it can still not take that parent: linked by
  // the setter, by a refused position, or left behind when the parent was read again.
  XmlNodePtr r = Node(u"r"), s = Node(u"s"), t = Node(u"t"), u = Node(u"u");
  s->Parent(r);
  EXPECT_EQ(s->AddChild(r) + t->AddChild(u, 5) + u->AddChild(t), 0);
  XmlNodePtr read = xml_test::Read(u"<p><c/></p>");
  const XmlNodePtr kept = read->Child(1);
  read->XmlData(u"<p/>");
  EXPECT_EQ(kept->AddChild(read), 0);
  EXPECT_TRUE(!r->Parent() && !t->Parent() && !read->Parent());
  const std::u16string parent_refused =
      u"Error 5 (Invalid procedure call or argument) in Property cXmlNode.Parent";
  EXPECT_EQ(log.lines, (Lines{parent_refused, parent_refused, kAddRefused, kAddRefused, kAddRefused,
                              kAddRange, kAddRefused, kAddRefused}));
}

// Taking a child out (EmancipateChild) or deleting it (DelChild), named by the node, by a
// number (rounded, halves to even) or by a text; y has a child yc.
TEST(XmlNodeChildren, EmancipateAndDeleteChildren) {
  const XmlNodePtr stranger = Node(u"y");
  enum Form { kNode, kNumber, kText, kStranger, kNothing };
  const std::u16string ok, e9 = u"Erreur 9 (Subscript out of range)",
                           e13 = u"Erreur 13 (Type mismatch)";
  const std::tuple<bool, Form, double, const char16_t*, const char16_t*, std::u16string> rows[] = {
      {false, kNode, 0, u"", u"x,z,w", ok},       {false, kNumber, 2.5, u"", u"x,z,w", ok},
      {false, kNumber, 3.5, u"", u"x,y,z", ok},   {false, kText, 0, u" 2 ", u"x,z,w", ok},
      {false, kNumber, 0, u"", u"x,y,z,w", e9},   {false, kNumber, 5, u"", u"x,y,z,w", e9},
      {false, kText, 0, u"two", u"x,y,z,w", e13}, {true, kNode, 0, u"", u"x,z,w", ok},
      {true, kNumber, 2.5, u"", u"x,z,w", ok},    {true, kText, 0, u"2", u"x,z,w", ok},
      {true, kStranger, 0, u"", u"x,y,z,w", ok},  {true, kNothing, 0, u"", u"x,y,z,w", ok},
      {true, kNumber, 0, u"", u"x,y,z,w", e9},    {true, kText, 0, u"first", u"x,y,z,w", e13}};
  for (const auto& [del, form, number, text, left, error] : rows) {
    LogCapture log;
    XmlNodePtr yc = Node(u"yc"), y = Node(u"y", {yc});
    XmlNodePtr p = Node(u"p", {Node(u"x"), y, Node(u"z"), Node(u"w")});
    Lines events;
    auto rec = Recorder::On({p, y}, events);
    const XmlNodePtr node = form == kNode ? y : form == kStranger ? stranger : nullptr;
    const std::u16string_view view = text;
    if (form == kNumber) del ? p->DelChild(number) : p->EmancipateChild(number);
    if (form == kText) del ? p->DelChild(view) : p->EmancipateChild(view);
    if (form == kNode || form >= kStranger) del ? p->DelChild(node) : p->EmancipateChild(node);
    EXPECT_EQ(ChildNames(p), left);
    const std::u16string where =
        del ? u" dans Sub cXmlNode.DelChild" : u" dans Sub cXmlNode.ChildEmancipate";
    EXPECT_EQ(log.lines, error.empty() ? Lines{} : Lines{error + where});
    const bool gone = ChildNames(p) == u"x,z,w";
    EXPECT_EQ(y->Parent(), gone ? nullptr : p);
    // Released: no event, nothing deleted. Deleted: the subtree first, each node marked.
    const bool deleted = gone && del;
    EXPECT_TRUE(y->Deleted == deleted && yc->Deleted == deleted && y->ChildCount() == !deleted);
    EXPECT_EQ(events, deleted ? (Lines{u"y:ChildDeleted(yc)", u"p:ChildDeleted(yc)", u"y:Deleted",
                                       u"p:ChildDeleted(y)"})
                              : Lines{});
    EXPECT_FALSE(stranger->Deleted);
  }
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
  EXPECT_EQ(Dump(root) + (t1->Deleted ? u"+" : u"-"), u"root{keep{k2}}+");
  // Recursive: holder, still asleep, is woken and emptied first, then deleted itself. The
  // Value of an empty CDATA is empty.
  for (bool recursive : {false, true}) {
    XmlNodePtr n = xml_test::Read(
        u"<p><empty/><text>t</text><attr a=\"1\"/><holder><e1/><e2/>"
        u"</holder><cdata><![CDATA[]]></cdata></p>");
    n->DeleteEmptyChilds(recursive);
    EXPECT_EQ(ChildNames(n), recursive ? u"text,attr" : u"text,attr,holder");
  }
}

TEST(XmlNodeChildren, CloneAndCopyItemData) {
  XmlNodePtr leaf = Node({u"leaf", u"<![CDATA[a<b]]>", {{u"k", u"v"}}});
  XmlNodePtr inner = Node({u"inner", u"dropped", {{u"id", u"1"}, {u"x", u"2"}}}, {leaf});
  XmlNodePtr root = xml_test::Read(u"<?xml version=\"1.0\"?><root/>");
  root->AddChild(inner);
  root->XMLEncoding(u"utf-8");
  inner->EventProxyObject(std::make_shared<xml::EventReceiver>());
  std::tie(inner->ItemData, leaf->ItemData) = std::make_pair(3, 4);
  XmlNodePtr copy = inner->Clone();
  EXPECT_TRUE(!copy->Parent() && !copy->EventProxyObject() && copy->XMLVersion().empty());
  EXPECT_EQ(copy->XMLEncoding(), u"utf-8");  // inherited on the source, own on the copy
  EXPECT_EQ(Dump(copy), u"inner[id=1,x=2]{leaf[k=v]\"a<b\"}");  // markers go
  copy->Child(1)->Attribut(u"k", u"changed");
  EXPECT_TRUE(copy->ItemData == 3 && copy->Child(1)->ItemData == 4 &&
              copy->Child(1)->Parent() == copy && leaf->Attribut(u"k") == u"v");

  // ItemData numbered in document order from first; read back the same way. Where child
  // counts differ nothing is copied at that level or below.
  const auto numbered = [](const char16_t* text, std::int32_t first) {
    XmlNodePtr top = xml_test::Read(text, true);
    for (XmlNodePtr n = top; n; n = n->NextNode()) n->ItemData = first++;
    return top;
  };
  const std::pair<const char16_t*, const char16_t*> rows[] = {
      {u"<r><a/><b><e/></b></r>", u"10 11 12 13 "},
      {u"<r><a/><b><e/><e/></b></r>", u"10 11 2 3 4 "},
      {u"<r><a/><b><e/></b><c/></r>", u"0 1 2 3 4 "}};
  for (const auto& [text, data] : rows) {
    XmlNodePtr to = numbered(text, 0);
    numbered(u"<r><a/><b><e/></b></r>", 10)->CopyItemDataTo(to);
    std::u16string read;
    for (XmlNodePtr n = to; n; n = n->NextNode()) read += base::ToText(n->ItemData) + u" ";
    EXPECT_EQ(read, data);
  }
}

TEST(XmlNodeChildren, FindNodeQueryFormsAndFindNodes) {
  XmlNodePtr doc =
      Node({u"doc", u"", {{u"ver", u""}}},
           {Node({u"Language", u"fr", {{u"lang", u"fr"}}}),
            Node({u"item", u"", {{u"id", u"main"}}}, {Node({u"sub", u"x", {{u"id", u"deep"}}})}),
            Node({u"lang", u"fr"}), Node(u"a:id=main")});
  // Query, recursive, skip_me, name found.
  const std::tuple<const char16_t*, bool, bool, const char16_t*> rows[] = {
      {u"LANGUAGE", false, false, u"Language"},
      {u"doc", false, false, u"doc"},
      {u"doc", false, true, u""},
      {u"sub", false, false, u""},
      {u"sub", true, true, u"sub"},
      {u"a:lang=FR", false, false, u"Language"},  // attribute value without regard to case
      {u"a:id=main", false, false, u"item"},      // children by the attribute form only
      {u"a:id=deep", false, false, u""},          // not recursive: children only
      {u"a:id=deep", true, false, u"sub"},
      {u"A:id=main", false, false, u"a:id=main"},  // the prefix is exact: a plain name
      {u"a:ver", false, false, u"doc"},            // empty attribute: the node itself
      {u"a:nothing", false, true, u"Language"},    // missing counts as empty
      {u"Lang=FR", true, false, u""},              // the value is exact
      {u"lang=fr", true, false, u"lang"},          // the name any case: Language has "fr" too,
      {u"Language=fr", true, false, u"Language"},  // but its name is not "lang"
      {u"lang=fr", false, false, u""}};            // not recursive: children by name only
  EXPECT_EQ(doc->Child(4)->FindNode(u"a:id=main"), doc->Child(4));  // the name before its forms
  for (const auto& [query, recursive, skip_me, name] : rows) {
    XmlNodePtr found = doc->FindNode(query, recursive, skip_me);
    EXPECT_EQ(found ? found->Name() : u"", name) << base::Narrow(query) << recursive << skip_me;
  }

  // FindNodes collects in pre-order and stops when the list holds exactly max_found entries.
  XmlNodePtr rules =
      Node(u"R", {Node(u"MatchRule", {Node({u"Attribut", u"", {{u"name", u"hit"}}})})});
  const auto hit = [](const char16_t* name, std::initializer_list<XmlNodePtr> children = {}) {
    return Node({name, u"", {{u"hit", u"1"}}}, children);
  };
  XmlNodePtr root =
      Node(u"root", {hit(u"a", {hit(u"a1"), Node(u"a2", {hit(u"a21")})}), Node(u"b"), hit(u"c")});
  XmlNodePtr late = Node(u"late", {Node(u"b"), hit(u"c")});
  // Top, entries already in the list, max_found, the list after.
  const std::tuple<XmlNodePtr, std::size_t, std::int32_t, const char16_t*> lists[] = {
      {root, 0, 0, u"a a1 a21 c "},
      {root, 0, 2, u"a a1 "},
      {root, 3, 2, u"- - - a a1 a21 c "},  // a list already past the limit never reaches it
      {late, 0, 2, u"c "},
      {late, 2, 2, u"- - "}};  // exactly at the limit: stops after the first child's search
  for (const auto& [top, held, max, names] : lists) {
    std::vector<XmlNodePtr> found(held, Node(u"-"));
    top->FindNodes(rules, found, max);
    std::u16string listed;
    for (const auto& n : found) listed += n->Name() + u" ";
    EXPECT_EQ(listed, names);
  }
  EXPECT_EQ(root->NodeCount(), 6);
}

}  // namespace
