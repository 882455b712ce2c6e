#include <gtest/gtest.h>

#include <tuple>

#include "xml_test_util.h"

namespace {

using xml_test::Node;
using xml_test::NodeDef;

// A criterion element: kind "Attribut" or "Child", its attributes and its expected text.
XmlNodePtr Criterion(const char16_t* kind, const char16_t* name, const char16_t* value = u"",
                     const char16_t* type = u"", const char16_t* depth = u"") {
  return Node(NodeDef{kind, value, {{u"name", name}, {u"type", type}, {u"parentdepth", depth}}});
}
XmlNodePtr Attr(const char16_t* name, const char16_t* value = u"", const char16_t* type = u"",
                const char16_t* depth = u"") {
  return Criterion(u"Attribut", name, value, type, depth);
}
XmlNodePtr Rule(const char16_t* path, std::initializer_list<XmlNodePtr> criteria = {}) {
  return Node(NodeDef{u"MatchRule", u"", {{u"path", path}}}, criteria);
}
XmlNodePtr R(std::initializer_list<XmlNodePtr> rules) {
  return Node(u"R", rules);
}
XmlNodePtr Item(const char16_t* name, const char16_t* id, const char16_t* kind = u"") {
  return Node(NodeDef{name, u"", {{u"id", id}, {u"kind", kind}}});
}

TEST(XmlRules, MatchRuleCasesAndGetParent) {
  // root > list (lang=fr) > item (id=1, kind=file) > title "T"; root > listitem
  XmlNodePtr title = Node({u"title", u"T"}), item = Item(u"item", u"1", u"file");
  item->AddChild(title);
  XmlNodePtr list = Node({u"list", u"", {{u"lang", u"fr"}}}, {item}), listitem = Node(u"listitem");
  XmlNodePtr root = Node(u"root", {list, listitem});
  const std::tuple<XmlNodePtr, XmlNodePtr, bool> rows[] = {
      {R({Node(u"Other")}), item, false},                       // no MatchRule child
      {Node(u"R"), item, false},                                // empty rule set
      {R({Rule(u"")}), title, true},                            // no criteria, no path
      {R({Rule(u"list.item")}), item, true},                    // path suffix
      {R({Rule(u"item")}), listitem, true},                     // plain suffix, no separator check
      {R({Rule(u"x.root.list")}), list, false},                 // path longer than the node's
      {R({Rule(u"List.item")}), item, false},                   // path is case-sensitive
      {R({Node(u"matchrule")}), item, false},                   // rule element name is exact
      {R({Rule(u"", {Attr(u"id")})}), item, true},              // attribute exists
      {R({Rule(u"", {Attr(u"kind", u"file")})}), item, true},   // attribute value
      {R({Rule(u"", {Attr(u"kind", u"File")})}), item, false},  // attribute value exact
      {R({Rule(u"", {Criterion(u"Child", u"TITLE")})}), item, true},        // child exists
      {R({Rule(u"", {Criterion(u"Child", u"title", u"T")})}), item, true},  // child value
      {R({Rule(u"", {Attr(u"lang", u"fr", u"", u"1")})}), item, true},      // on the parent
      {R({Rule(u"", {Attr(u"lang", u"", u"", u"0.6")})}), item, true},      // parentdepth rounded
      {R({Rule(u"", {Attr(u"lang", u"", u"", u"2")})}), title, true},       // two levels up
      {R({Rule(u"", {Attr(u"lang", u"", u"", u"4")})}), title, false},      // past the top: empty
      {R({Rule(u"", {Node(u"Note")})}), item, true},  // other criteria count as satisfied
      // A failing criterion in the first fitting rule rejects; a failing filter passes to the
      // next rule; a rule whose path does not fit is skipped; the type is exact.
      {R({Rule(u"item", {Attr(u"missing")}), Rule(u"")}), item, false},
      {R({Rule(u"item", {Attr(u"missing", u"", u"filter")}), Rule(u"")}), item, true},
      {R({Rule(u"", {Attr(u"kind", u"file", u"filter"), Attr(u"id", u"2")}), Rule(u"")}), item,
       false},
      {R({Rule(u"title", {Attr(u"missing")}), Rule(u"")}), item, true},
      {R({Rule(u"", {Attr(u"x", u"", u"Filter")}), Rule(u"")}), item, false}};
  for (std::size_t i = 0; i < std::size(rows); ++i)
    EXPECT_EQ(std::get<1>(rows[i])->MatchRule(std::get<0>(rows[i])), std::get<2>(rows[i])) << i;
  xml_test::LogCapture log;
  EXPECT_FALSE(item->MatchRule(R({Rule(u"", {Attr(u"id", u"", u"", u"one")})})));
  EXPECT_EQ(log.lines, xml_test::Lines{u"Error 13 (Type mismatch) in Function cXmlNode.MatchRule"});

  const std::pair<std::int32_t, XmlNodePtr> parents[] = {
      {0, title}, {-3, title}, {2, list}, {3, root}, {4, nullptr}};
  for (const auto& [depth, parent] : parents) EXPECT_EQ(title->GetParent(depth), parent) << depth;
}

TEST(XmlRules, NodeMatchAndFindFirstMatch) {
  // Pair "item" elements by id (and the parent's lang), only where kind is "file".
  XmlNodePtr rules = R({Rule(u"list.item", {Attr(u"kind", u"file", u"filter"), Attr(u"id"),
                                            Attr(u"lang", u"", u"", u"1")})});
  std::vector<XmlNodePtr> lists;  // keeps each partner's parent alive
  const auto item = [&](const char16_t* id, const char16_t* kind, const char16_t* lang,
                        const char16_t* name = u"Item") {
    XmlNodePtr i = Item(name, id, kind);
    lists.push_back(Node(NodeDef{u"list", u"", {{u"lang", lang}}}, {i}));
    return i;
  };
  XmlNodePtr mine = item(u"1", u"file", u"fr", u"item");  // the rule's path is exact
  const std::pair<XmlNodePtr, bool> rows[] = {
      {item(u"1", u"file", u"fr"), true},
      {item(u"2", u"file", u"fr"), false},
      {item(u"1", u"file", u"en"), false},  // another parent's lang
      {item(u"1", u"dir", u"fr"), true},    // the filter is judged on this node only
      {Item(u"title", u"1"), false}};
  for (const auto& [other, match] : rows) EXPECT_EQ(mine->Match(rules, other), match);
  // No rule applies (the path does not fit): the names decide; an empty stand-in has no name.
  XmlNodePtr dir = Item(u"item", u"1", u"dir");
  EXPECT_TRUE(dir->Match(rules, Node(u"ITEM")) && !dir->Match(rules) && Node(u"")->Match(rules));

  // Recursive: the children pair too, in order and equal in number.
  rules = R({Rule(u"v", {Attr(u"n")})});
  const auto tree = [](std::initializer_list<const char16_t*> ns) {
    XmlNodePtr t = Node(u"t");
    for (const char16_t* n : ns) t->AddChild(Node(NodeDef{u"v", u"", {{u"n", n}}}));
    return t;
  };
  XmlNodePtr a = tree({u"1", u"2"});
  EXPECT_TRUE(a->Match(rules, tree({u"1", u"2"}), true) && a->Match(rules, tree({u"1", u"3"})));
  EXPECT_FALSE(a->Match(rules, tree({u"1", u"3"}), true) ||
               a->Match(rules, tree({u"2", u"1"}), true) || a->Match(rules, tree({u"1"}), true));
  // FindFirstMatch: the first in pre-order, at most max_depth levels down.
  rules = R({Rule(u"", {Attr(u"id")})});
  XmlNodePtr deep = Item(u"x", u"9"), first = Item(u"x", u"9");
  XmlNodePtr root = Node(u"root", {Node(u"a", {Node(u"b", {deep})}), Node(u"c", {first})});
  XmlNodePtr probe = Item(u"X", u"9");
  EXPECT_EQ(
      std::make_tuple(root->FindFirstMatch(rules, probe, 3), root->FindFirstMatch(rules, probe, 2),
                      root->FindFirstMatch(rules, probe, 1), deep->FindFirstMatch(rules, probe, 0)),
      std::make_tuple(deep, first, XmlNodePtr(), deep));
}

}  // namespace
