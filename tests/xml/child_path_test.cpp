#include <gtest/gtest.h>

#include "xml/node.h"
#include "xml_test_util.h"

namespace {

using xml_test::ChildNames;
using xml_test::LogCapture;
using xml_test::Node;
using xml_test::Recorder;

TEST(XmlChildPath, GetChildValueReadsAndCreatesOnRequest) {
  XmlNodePtr root = Node(u"cfg", {Node({u"a", u"", {{u"id", u"A"}}}, {Node({u"b", u"B"})})});
  struct Row {
    const char16_t* path;
    bool create;
    const char16_t* attr;
    const char16_t* value;
    std::int32_t nodes_after;
  } rows[] = {
      {u"a.b", false, u"", u"B", 2},
      {u"A.B", false, u"", u"B", 2},
      {u"a", false, u"id", u"A", 2},
      {u"a", false, u"none", u"", 2},
      {u"a.x.y", false, u"", u"", 2},  // nothing made
      {u"", false, u"", u"", 2},       // no steps: the node itself (no text)
      {u"a.x.y", true, u"", u"", 4},
      // Empty steps are empty names; the first made answers the second step for itself.
      {u"a..", true, u"", u"", 5},
      {u"a..", false, u"", u"", 5},
  };
  for (const auto& r : rows) {
    EXPECT_EQ(root->GetChildValue(r.path, r.create, r.attr), r.value)
        << testing::PrintToString(std::u16string(r.path));
    EXPECT_EQ(root->NodeCount(), r.nodes_after) << testing::PrintToString(std::u16string(r.path));
  }
  EXPECT_EQ(ChildNames(root->GetChildNode(u"a")), u"b,x,");
}

TEST(XmlChildPath, GetChildNodeCreatesWithEventsAndEachStepCanAnswerForItself) {
  XmlNodePtr root = Node(u"x", {Node(u"y", {Node(u"z")})});
  xml_test::Lines events;
  auto rec = Recorder::On({root}, events);
  root->GetChildNode(u"p/q", true, false, u"/");
  EXPECT_EQ(events, (xml_test::Lines{u"x:ChildAdded(p)", u"x:ChildAdded(q)"}));
  EXPECT_EQ(root->GetChildNode(u"p/q", false, false, u"/")->Path(), u"x.p.q");
  EXPECT_EQ(root->GetChildNode(u"p/q"), nullptr);  // with ".", one step named "p/q"
  // FindNode tests the current node first: a step named like the node itself stays there.
  EXPECT_EQ(root->GetChildNode(u"x.y")->Name(), u"y");
  EXPECT_EQ(root->GetChildNode(u"z"), nullptr);
  EXPECT_EQ(root->GetChildNode(u"z", false, true)->Name(), u"z");
}

TEST(XmlChildPath, FixSplit) {
  using Fields = std::vector<std::u16string>;
  struct Row {
    const char16_t* text;
    std::vector<std::int32_t> lengths;
    std::int32_t sep;
    Fields fields;
  } rows[] = {
      {u"20120113>07", {8, 2}, 1, {u"20120113", u"07"}},
      {u"abcdef", {2, 2, 2}, 0, {u"ab", u"cd", u"ef"}},
      {u"ab", {1, 5, 3}, 0, {u"a", u"b", u""}},  // past the end: short, then empty
      {u"a-b-c", {1, 1}, 1, {u"a", u"b"}},
      {u"abc", {}, 1, {}},
      {u"abc", {0, 1}, 1, {u"", u"b"}},
  };
  for (const auto& r : rows) {
    EXPECT_EQ(cXmlNode::FixSplit(r.text, r.lengths, r.sep), r.fields)
        << testing::PrintToString(std::u16string(r.text));
  }
  LogCapture log;
  EXPECT_EQ(cXmlNode::FixSplit(u"abc", {1, -1}, 0), Fields{});
  EXPECT_EQ(cXmlNode::FixSplit(u"abc", {1, 1}, -5), Fields{});
  const std::u16string error =
      u"Error 5 (Invalid procedure call or argument) in Function cXmlNode.FixSplit";
  EXPECT_EQ(log.lines, (xml_test::Lines{error, error}));
}

}  // namespace
