#include "xml/attribute_list.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace {

using Pairs = std::vector<std::pair<std::u16string, std::u16string>>;

Pairs Contents(const xml::AttributeList& a) {
  Pairs out;
  for (std::size_t i = 0; i < a.size(); ++i)
    out.emplace_back(std::u16string(a.name(i)), std::u16string(a.value(i)));
  return out;
}

// Each step changes the list; the expected contents after it follow.
struct Step {
  const char* what;
  void (*apply)(xml::AttributeList&);
  Pairs expected;
};

TEST(XmlAttributeList, EditsKeepOrderAndEveryOtherPair) {
  const Step steps[] = {
      {"first pair", [](xml::AttributeList& a) { a.push_back(u"id", u"7"); }, {{u"id", u"7"}}},
      {"grows past the first block",
       [](xml::AttributeList& a) {
         a.push_back(u"name", u"long enough to move the block");
         a.push_back(u"e", u"");
       },
       {{u"id", u"7"}, {u"name", u"long enough to move the block"}, {u"e", u""}}},
      {"shorter value in place",
       [](xml::AttributeList& a) { a.set_value(1, u"short"); },
       {{u"id", u"7"}, {u"name", u"short"}, {u"e", u""}}},
      {"longer value moves to the end",
       [](xml::AttributeList& a) { a.set_value(0, u"a value longer than before"); },
       {{u"id", u"a value longer than before"}, {u"name", u"short"}, {u"e", u""}}},
      {"erase in the middle",
       [](xml::AttributeList& a) { a.erase(1); },
       {{u"id", u"a value longer than before"}, {u"e", u""}}},
      {"a value taken from the list itself",
       [](xml::AttributeList& a) { a.push_back(a.value(0), a.name(0)); },
       {{u"id", u"a value longer than before"},
        {u"e", u""},
        {u"a value longer than before", u"id"}}},
      {"set to a piece of its own value",
       [](xml::AttributeList& a) { a.set_value(2, a.value(0).substr(2, 5)); },
       {{u"id", u"a value longer than before"},
        {u"e", u""},
        {u"a value longer than before", u"value"}}},
      {"set longer from another pair's value",
       [](xml::AttributeList& a) { a.set_value(1, a.value(0)); },
       {{u"id", u"a value longer than before"},
        {u"e", u"a value longer than before"},
        {u"a value longer than before", u"value"}}},
  };
  xml::AttributeList list;
  for (const Step& step : steps) {
    step.apply(list);
    EXPECT_EQ(Contents(list), step.expected) << step.what;
  }
  const xml::AttributeList copy = list;
  list.erase(0);
  list.erase(0);
  list.erase(0);
  EXPECT_TRUE(list.empty());
  EXPECT_EQ(list.MemoryBytes(), 0u) << "an empty list holds nothing";
  EXPECT_EQ(Contents(copy), steps[std::size(steps) - 1].expected) << "the copy is its own";
}

TEST(XmlAttributeList, ManyEditsStayWithinTwiceTheMostThePairsTook) {
  xml::AttributeList list;
  for (int i = 0; i < 1000; ++i) {
    const char16_t name[] = {u'n', static_cast<char16_t>(u'a' + i % 26)};
    list.push_back(std::u16string_view(name, 2), u"v");
  }
  std::size_t most = 0;
  for (int round = 0; round < 50; ++round) {
    // Values grow and shrink in turn; each longer value leaves the old characters unused.
    for (std::size_t i = 0; i < list.size(); ++i)
      list.set_value(i, std::u16string(2 + (round * 3) % 7, u'x'));
    std::size_t chars = 0;
    for (std::size_t i = 0; i < list.size(); ++i)
      chars += list.name(i).size() + list.value(i).size();
    most = std::max(most, chars);
    ASSERT_LE(list.MemoryBytes(), 16 + 2 * (1000 * 16 + most * 2)) << "round " << round;
  }
  EXPECT_EQ(list.size(), 1000u);
}

}  // namespace
