#include "xml/attribute_list.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::u16string Contents(const xml::AttributeList& a) {
  std::u16string out;
  for (std::size_t i = 0; i < a.size(); ++i)
    out += std::u16string(a.name(i)) + u"=" + std::u16string(a.value(i)) + u";";
  return out;
}

// Each step changes the list in place, also from pieces of its own storage; every other pair
// and the order stay.
TEST(XmlAttributeList, EditsKeepOrderAndEveryOtherPair) {
  const std::u16string long_value = u"a value longer than before";
  const struct {
    void (*apply)(xml::AttributeList&);
    std::u16string expected;
  } steps[] = {
      {[](auto& a) { a.push_back(u"id", u"7"), a.push_back(u"name", u"long enough to move"); },
       u"id=7;name=long enough to move;"},
      {[](auto& a) { a.push_back(u"e", u""), a.set_value(1, u"short"); }, u"id=7;name=short;e=;"},
      {[](auto& a) { a.set_value(0, u"a value longer than before"), a.erase(1); },
       u"id=a value longer than before;e=;"},
      {[](auto& a) { a.push_back(a.value(0), a.name(0)), a.set_value(2, a.value(0).substr(2, 5)); },
       u"id=a value longer than before;e=;a value longer than before=value;"},
      {[](auto& a) { a.set_value(1, a.value(0)); },
       u"id=a value longer than before;e=a value longer than before;a value longer than "
       u"before=value;"},
  };
  xml::AttributeList list;
  for (const auto& step : steps) {
    step.apply(list);
    EXPECT_EQ(Contents(list), step.expected);
  }
  const xml::AttributeList copy = list;
  list.erase(0), list.erase(0), list.erase(0);
  EXPECT_TRUE(list.empty());
  EXPECT_EQ(list.MemoryBytes(), 0u) << "an empty list holds nothing";
  EXPECT_EQ(Contents(copy), steps[std::size(steps) - 1].expected) << "the copy is its own";
}

}  // namespace
