#include <gtest/gtest.h>

#include "xml/node.h"
#include "xml_test_util.h"

namespace {

using xml_test::LogCapture;
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

// root > list (lang=fr) > item (id=1, kind=file) > title "T"
//      > listitem
struct Doc {
  XmlNodePtr title = Node({u"title", u"T"});
  XmlNodePtr item = Node({u"item", u"", {{u"id", u"1"}, {u"kind", u"file"}}}, {title});
  XmlNodePtr list = Node({u"list", u"", {{u"lang", u"fr"}}}, {item});
  XmlNodePtr listitem = Node(u"listitem");
  XmlNodePtr root = Node(u"root", {list, listitem});
};

TEST(XmlRules, MatchRuleCases) {
  Doc d;
  struct Row {
    XmlNodePtr rules;
    XmlNodePtr node;
    bool match;
  } rows[] = {
      {R({Node(u"Other")}), d.item, false},                      // no MatchRule child
      {Node(u"R"), d.item, false},                               // empty rule set
      {R({Rule(u"")}), d.title, true},                           // no criteria, no path
      {R({Rule(u"list.item")}), d.item, true},                   // path suffix
      {R({Rule(u"item")}), d.listitem, true},                    // plain suffix, no separator check
      {R({Rule(u"x.root.list")}), d.list, false},                // path longer than the node's
      {R({Rule(u"List.item")}), d.item, false},                  // path is case-sensitive
      {R({Node(u"matchrule")}), d.item, false},                  // rule element name is exact
      {R({Rule(u"", {Attr(u"id")})}), d.item, true},             // attribute exists
      {R({Rule(u"", {Attr(u"ID")})}), d.item, false},            // attribute name exact
      {R({Rule(u"", {Attr(u"kind", u"file")})}), d.item, true},  // attribute value
      {R({Rule(u"", {Attr(u"kind", u"File")})}), d.item, false},        // attribute value exact
      {R({Rule(u"", {Criterion(u"Child", u"TITLE")})}), d.item, true},  // child exists
      {R({Rule(u"", {Criterion(u"Child", u"title", u"T")})}), d.item, true},   // child value
      {R({Rule(u"", {Criterion(u"Child", u"title", u"t")})}), d.item, false},  // child value exact
      {R({Rule(u"", {Attr(u"lang", u"fr", u"", u"1")})}), d.item, true},       // on the parent
      {R({Rule(u"", {Attr(u"lang", u"", u"", u"0.6")})}), d.item, true},  // parentdepth rounded
      {R({Rule(u"", {Attr(u"lang", u"", u"", u"2")})}), d.title, true},   // two levels up
      // past the top tests an empty node
      {R({Rule(u"", {Attr(u"lang", u"", u"", u"4")})}), d.title, false},
      {R({Rule(u"", {Node(u"Note")})}), d.item, true},  // other criteria count as satisfied
      // binding failure in the first fitting rule rejects
      {R({Rule(u"item", {Attr(u"missing")}), Rule(u"")}), d.item, false},
      // a failing filter passes to the next rule
      {Node(u"R", {Rule(u"item", {Attr(u"missing", u"", u"filter")}), Rule(u"")}), d.item, true},
      // filter holds, binding fails
      {R({Rule(u"", {Attr(u"kind", u"file", u"filter"), Attr(u"id", u"2")}), Rule(u"")}), d.item,
       false},
      // a rule whose path does not fit is skipped
      {R({Rule(u"title", {Attr(u"missing")}), Rule(u"")}), d.item, true},
      {R({Rule(u"", {Attr(u"x", u"", u"Filter")}), Rule(u"")}), d.item, false},  // type is exact
  };
  for (std::size_t i = 0; i < std::size(rows); ++i)
    EXPECT_EQ(rows[i].node->MatchRule(rows[i].rules), rows[i].match) << "row " << i;
}

TEST(XmlRules, BadParentDepthOrMissingRulesLogAndAnswerFalse) {
  Doc d;
  LogCapture log;
  EXPECT_FALSE(d.item->MatchRule(R({Rule(u"", {Attr(u"id", u"", u"", u"one")})})));
  EXPECT_EQ(log.lines, xml_test::Lines{u"Error 13 (Type mismatch) in Function cXmlNode.MatchRule"});
}

TEST(XmlRules, GetParent) {
  Doc d;
  const std::pair<std::int32_t, XmlNodePtr> rows[] = {
      {0, d.title}, {-3, d.title}, {2, d.list}, {3, d.root}, {4, nullptr}};
  for (const auto& [depth, parent] : rows) EXPECT_EQ(d.title->GetParent(depth), parent) << depth;
}

TEST(XmlRules, NodeMatchPairsByNameAndTheApplicableRulesKeys) {
  // Pair "item" elements by id (and the parent's lang), only where kind is "file".
  XmlNodePtr rules = R({Rule(u"list.item", {Attr(u"kind", u"file", u"filter"), Attr(u"id"),
                                            Attr(u"lang", u"", u"", u"1")})});
  std::vector<XmlNodePtr> lists;  // keeps each partner's parent alive
  const auto item = [&](const char16_t* id, const char16_t* kind, const char16_t* lang) {
    XmlNodePtr i = Node(NodeDef{u"Item", u"", {{u"id", id}, {u"kind", kind}}});
    lists.push_back(Node(NodeDef{u"list", u"", {{u"lang", lang}}}, {i}));
    return i;
  };
  Doc d;  // item id=1 kind=file under list lang=fr
  struct Row {
    const char* what;
    XmlNodePtr other;
    bool match;
  } rows[] = {{"same keys", item(u"1", u"file", u"fr"), true},
              {"other id", item(u"2", u"file", u"fr"), false},
              {"other parent lang", item(u"1", u"file", u"en"), false},
              {"the filter is judged on this node only", item(u"1", u"dir", u"fr"), true},
              {"other name", Node(NodeDef{u"title", u"", {{u"id", u"1"}}}), false}};
  for (const auto& r : rows) EXPECT_EQ(d.item->Match(rules, r.other), r.match) << r.what;

  // No rule applies (the path does not fit): the names decide.
  XmlNodePtr dir = Node(NodeDef{u"item", u"", {{u"id", u"1"}, {u"kind", u"dir"}}});
  EXPECT_TRUE(dir->Match(rules, Node(u"ITEM")));
  EXPECT_FALSE(dir->Match(rules));  // an empty stand-in has no name
  EXPECT_TRUE(Node(u"")->Match(rules));
}

TEST(XmlRules, NodeMatchRecursiveComparesChildrenInOrder) {
  XmlNodePtr rules = R({Rule(u"v", {Attr(u"n")})});
  const auto tree = [](const char16_t* n1, const char16_t* n2) {
    return Node(u"t",
                {Node(NodeDef{u"v", u"", {{u"n", n1}}}), Node(NodeDef{u"v", u"", {{u"n", n2}}})});
  };
  XmlNodePtr a = tree(u"1", u"2");
  EXPECT_TRUE(a->Match(rules, tree(u"1", u"2"), true));
  EXPECT_FALSE(a->Match(rules, tree(u"1", u"3"), true));
  EXPECT_TRUE(a->Match(rules, tree(u"1", u"3"), false));
  EXPECT_FALSE(a->Match(rules, tree(u"2", u"1"), true));
  XmlNodePtr shorter = Node(u"t", {Node(NodeDef{u"v", u"", {{u"n", u"1"}}})});
  EXPECT_FALSE(a->Match(rules, shorter, true));
}

TEST(XmlRules, FindFirstMatchSearchesPreOrderWithinTheDepth) {
  XmlNodePtr rules = R({Rule(u"", {Attr(u"id")})});
  XmlNodePtr deep = Node(NodeDef{u"x", u"", {{u"id", u"9"}}});
  XmlNodePtr first = Node(NodeDef{u"x", u"", {{u"id", u"9"}}});
  XmlNodePtr root = Node(u"root", {Node(u"a", {Node(u"b", {deep})}), Node(u"c", {first})});
  XmlNodePtr probe = Node(NodeDef{u"X", u"", {{u"id", u"9"}}});
  EXPECT_EQ(root->FindFirstMatch(rules, probe, 3), deep);
  EXPECT_EQ(root->FindFirstMatch(rules, probe, 2), first);
  EXPECT_EQ(root->FindFirstMatch(rules, probe, 1), nullptr);
  EXPECT_EQ(deep->FindFirstMatch(rules, probe, 0), deep);
}

}  // namespace
