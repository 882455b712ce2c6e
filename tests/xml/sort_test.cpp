#include <gtest/gtest.h>

#include <tuple>

#include "base/text.h"
#include "xml_test_util.h"

namespace {

using xml_test::ChildNames;
using xml_test::Lines;
using xml_test::Read;

TEST(XmlSort, OrdersChildrenByTheirKeysToTheDepthAskedWithoutEvents) {
  // Text, key, ascendant, order.
  const std::tuple<const char16_t*, const char16_t*, bool, const char16_t*> cases[] = {
      // Numeric columns compare by value through their leading zeros; one value that is not a
      // number (or missing) makes the column text: 10 before 9.
      {u"<r><a n=\"10\"/><b n=\"9\"/><c n=\" 1.5 \"/></r>", u"a:n", true, u"c,b,a"},
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
      // A shorter text pads with spaces: "ab" before "ab!" whatever the rest.
      {u"<r><a k=\"ab!\"/><b k=\"ab\"/></r>", u"a:k", true, u"b,a"},
      // Thirteen children and more go through the quicksort: equal keys still by position.
      {u"<r><a k=\"b\"/><b k=\"A\"/><c k=\"a\"/><d k=\"\u00E9\"/><e k=\"B\"/><f k=\"a\"/><g "
       u"k=\"\"/>"
       u"<h k=\"\u00C9\"/><i k=\"b\"/><j k=\"_\"/><k k=\"A\"/><l k=\"ab\"/><m k=\"a\"/><n "
       u"k=\"B\"/></r>",
       u"a:k", true, u"g,b,c,f,k,m,l,a,e,i,n,j,d,h"},
      {u"<r><a k=\"b\"/><b k=\"A\"/><c k=\"a\"/><d k=\"\u00E9\"/><e k=\"B\"/><f k=\"a\"/><g "
       u"k=\"\"/>"
       u"<h k=\"\u00C9\"/><i k=\"b\"/><j k=\"_\"/><k k=\"A\"/><l k=\"ab\"/><m k=\"a\"/><n "
       u"k=\"B\"/></r>",
       u"a:k", false, u"h,d,j,n,i,e,a,l,m,k,f,c,b,g"},
      // Negative numbers do not sort by value.
      {u"<r><a k=\"-5\"/><b k=\"3\"/><c k=\"-10\"/></r>", u"a:k", true, u"a,c,b"}};
  for (const auto& [text, key, ascendant, order] : cases) {
    XmlNodePtr r = Read(text);
    r->SortChilds(key, ascendant, 0, true);
    EXPECT_EQ(ChildNames(r), order) << base::Narrow(text) << " " << base::Narrow(key);
  }
  // Recursive: the depth asked, -1 for all levels.
  const std::tuple<std::int32_t, const char16_t*, const char16_t*> depths[] = {
      {0, u"z,y", u"q,p"}, {1, u"y,z", u"q,p"}, {-1, u"y,z", u"p,q"}, {-2, u"z,y", u"q,p"}};
  for (const auto& [depth, b, y] : depths) {
    XmlNodePtr r = Read(u"<r><b><z/><y><q/><p/></y></b><a><d/><c/></a></r>");
    Lines events;
    auto rec = xml_test::Recorder::On({r}, events);
    r->SortChilds(u"name", true, depth, true);
    EXPECT_EQ(ChildNames(r), u"a,b");
    EXPECT_EQ(ChildNames(r->FindNode(u"b", true)), b);
    EXPECT_EQ(ChildNames(r->FindNode(u"y", true)), y);
    EXPECT_EQ(events, Lines{});
  }
}

}  // namespace
