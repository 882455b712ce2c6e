#include <gtest/gtest.h>

#include "xml/node.h"
#include "xml_test_util.h"

namespace {

using xml_test::LogCapture;
using xml_test::Node;

TEST(XmlPath, Forms) {
  XmlNodePtr c = Node({u"c", u"", {{u"name", u"nc"}}});
  XmlNodePtr b = Node({u"b", u"", {{u"id", u"7"}, {u"name", u"nb"}}}, {c});
  XmlNodePtr a = Node(u"a", {b});
  XmlNodePtr other = Node(u"other");
  struct Row {
    const char16_t* attribut;
    const char16_t* sep;
    XmlNodePtr root;
    const char16_t* path;
  } rows[] = {
      {u"", u".", nullptr, u"a.b.c"},
      {u"", u".", a, u"b.c"},
      {u"", u".", b, u"c"},
      {u"", u".", c, u""},
      {u"id|name", u".", nullptr, u"a.b-7.c-nc"},
      {u"name|id", u".", nullptr, u"a.b-nb.c-nc"},
      {u"ID", u".", nullptr, u"a.b-7.c"},  // attribute names any case
      {u"none||id", u".", nullptr, u"a.b-7.c"},
      {u"", u"::", nullptr, u"a::b::c"},
      {u"", u"", nullptr, u"abc"},
  };
  for (const auto& r : rows) {
    EXPECT_EQ(c->Path(r.attribut, r.sep, r.root), r.path)
        << testing::PrintToString(std::u16string(r.attribut)) << " "
        << testing::PrintToString(std::u16string(r.sep));
  }
}

TEST(XmlPath, EmptyNamesStillGetSeparators) {
  XmlNodePtr c = Node(u"");
  XmlNodePtr b = Node(u"", {c});
  XmlNodePtr a = Node(u"a", {b});
  EXPECT_EQ(c->Path(u"", u"."), u"a..");
  EXPECT_EQ(c->Path(u"", u".", a), u".");
}

TEST(XmlPath, AStopNodeOutsideTheChainGivesWhatWasBuiltWithItsSeparator) {
  LogCapture log;
  XmlNodePtr c = Node(u"c");
  XmlNodePtr a = Node(u"a", {Node(u"b", {c})});
  EXPECT_EQ(c->Path(u"", u".", Node(u"elsewhere")), u"a.b.c.");
  EXPECT_EQ(log.lines,
            std::vector<std::u16string>{u"Erreur 91 (Object variable or With block "
                                        u"variable not set) dans Property cXmlNode.Path"});
}

}  // namespace
