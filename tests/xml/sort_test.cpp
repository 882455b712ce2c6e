#include <gtest/gtest.h>

#include "base/text.h"
#include "xml/node.h"
#include "xml_test_util.h"

namespace {

using xml_test::ChildNames;
using Lines = std::vector<std::u16string>;

XmlNodePtr Read(std::u16string_view text) {
  XmlNodePtr n = cXmlNode::Create();
  n->XmlData(text);
  return n;
}

struct SortCase {
  const char16_t* text;
  const char16_t* key;
  bool ascendant;
  const char16_t* order;
};

TEST(XmlSort, OrdersChildrenByTheirKeys) {
  const SortCase cases[] = {
      // Numeric columns compare by value through their leading zeros.
      {u"<r><a n=\"10\"/><b n=\"9\"/><c n=\" 1.5 \"/></r>", u"a:n", true, u"c,b,a"},
      // One value that is not a number (or missing) makes the column text: 10 before 9.
      {u"<r><a n=\"10\"/><b n=\"9\"/><c n=\"x\"/></r>", u"a:n", true, u"a,b,c"},
      {u"<r><a n=\"10\"/><b n=\"9\"/><c/></r>", u"a:n", true, u"c,a,b"},
      // Text compares without regard to case.
      {u"<r><a t=\"b\"/><b t=\"A\"/><c t=\"a\"/></r>", u"a:t", true, u"b,c,a"},
      // Equal keys keep their order ascending and come out reversed descending.
      {u"<r><a k=\"1\"/><b k=\"1\"/><c k=\"0\"/></r>", u"a:k", true, u"c,a,b"},
      {u"<r><a k=\"1\"/><b k=\"1\"/><c k=\"0\"/></r>", u"a:k", false, u"b,a,c"},
      // Child values, grandchild attributes, names, several keys, unknown kinds.
      {u"<r><a><t>y</t></a><b><t>x</t></b></r>", u"c:t", true, u"b,a"},
      {u"<r><a><t d=\"2\"/></a><b><t d=\"1\"/></b></r>", u"c:t/a:d", true, u"b,a"},
      {u"<r><zz/><Y/><x/></r>", u"name", true, u"x,Y,zz"},
      {u"<r><a g=\"1\" n=\"2\"/><b g=\"0\" n=\"3\"/><c g=\"1\" n=\"1\"/></r>", u"a:g,a:n", true,
       u"b,c,a"},
      {u"<r><a k=\"2\"/><b k=\"1\"/></r>", u"q:k", true, u"a,b"},
      {u"<r><a k=\"2\"/><b k=\"1\"/></r>", u"", true, u"a,b"},
      // A shorter text pads with spaces: "ab" before "ab!" whatever the rest.
      {u"<r><a k=\"ab!\"/><b k=\"ab\"/></r>", u"a:k", true, u"b,a"},
      // Negative numbers do not sort by value.
      {u"<r><a k=\"-5\"/><b k=\"3\"/><c k=\"-10\"/></r>", u"a:k", true, u"a,c,b"},
  };
  for (const SortCase& c : cases) {
    SCOPED_TRACE(base::Narrow(c.text) + " " + base::Narrow(c.key));
    XmlNodePtr r = Read(c.text);
    r->SortChilds(c.key, c.ascendant, 0, true);
    EXPECT_EQ(ChildNames(r), c.order);
  }
}

TEST(XmlSort, TwelveOrMoreChildrenGoThroughTheQuicksortWithStablePositions) {
  std::u16string text = u"<r>";
  const int keys[] = {5, 3, 5, 1, 9, 3, 5, 0, 2, 7, 3, 1, 8, 5, 6, 4, 3, 2, 0, 9, 5, 1, 5};
  for (int i = 0; i < 23; ++i)
    text += u"<n" + base::ToText(i) + u" k=\"" + base::ToText(keys[i]) + u"\"/>";
  XmlNodePtr r = Read(text + u"</r>");
  r->SortChilds(u"a:k", true, 0, false);
  std::vector<std::pair<int, int>> expected;
  for (int i = 0; i < 23; ++i) expected.push_back({keys[i], i});
  std::sort(expected.begin(), expected.end());
  ASSERT_EQ(r->ChildCount(), 23);
  for (int i = 0; i < 23; ++i)
    EXPECT_EQ(r->Child(i + 1)->Name(), u"n" + base::ToText(expected[i].second));
}

TEST(XmlSort, RecursesToTheDepthAskedWithoutEvents) {
  const char16_t* text = u"<r><b><z/><y><q/><p/></y></b><a><d/><c/></a></r>";
  struct Case {
    std::int32_t depth;
    const char16_t* top;
    const char16_t* b;
    const char16_t* y;
  } cases[] = {
      {0, u"a,b", u"z,y", u"q,p"},
      {1, u"a,b", u"y,z", u"q,p"},
      {-1, u"a,b", u"y,z", u"p,q"},
      {-2, u"a,b", u"z,y", u"q,p"},
  };
  for (const Case& c : cases) {
    XmlNodePtr r = Read(text);
    Lines events;
    auto rec = xml_test::Recorder::On({r}, events);
    r->SortChilds(u"name", true, c.depth, true);
    EXPECT_EQ(ChildNames(r), c.top);
    EXPECT_EQ(ChildNames(r->FindNode(u"b", true)), c.b);
    EXPECT_EQ(ChildNames(r->FindNode(u"y", true)), c.y);
    EXPECT_EQ(events, Lines{});
  }
}

}  // namespace
