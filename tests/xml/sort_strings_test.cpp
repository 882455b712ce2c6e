#include "xml/sort_strings.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "base/trap.h"

namespace {

using xml::kBinaryCompare;
using xml::kTextCompare;
using List = std::vector<std::u16string>;

TEST(SortStrings, CompareAndOrderByDirectionAndMode) {
  const struct {
    std::u16string a, b;
    int mode, expected;
  } pairs[] = {
      {u"a", u"b", kBinaryCompare, -1},
      {u"b", u"a", kBinaryCompare, 1},
      {u"a", u"a", kBinaryCompare, 0},
      {u"a", u"ab", kBinaryCompare, -1},  // prefix first
      {u"B", u"a", kBinaryCompare, -1},
      {u"B", u"a", kTextCompare, 1},  // case
      {u"ABC", u"abc", kTextCompare, 0},
      {u"\u00C9t\u00E9", u"\u00E9T\u00C9", kTextCompare, 0},
      {u"_", u"a", kTextCompare, 1},
      {u"z", u"_", kTextCompare, -1},                 // upper-case order
      {u"\uFFFF", u"\U00010000", kBinaryCompare, 1},  // code units
  };
  for (const auto& p : pairs)
    EXPECT_EQ(xml::CompareStrings(p.a, p.b, p.mode), p.expected)
        << testing::PrintToString(p.a) << " " << testing::PrintToString(p.b);
  const struct {
    List items;
    bool ascending;
    int mode;
    List expected;
  } rows[] = {
      {{u"c", u"a", u"b"}, false, kBinaryCompare, {u"c", u"b", u"a"}},
      {{u"b", u"C", u"a"}, true, kBinaryCompare, {u"C", u"a", u"b"}},
      {{u"b", u"C", u"a"}, true, kTextCompare, {u"a", u"b", u"C"}},
      {{u"b", u"C", u"a"}, false, kTextCompare, {u"C", u"b", u"a"}},
      {{u"10", u"9", u"009"}, true, kTextCompare, {u"009", u"10", u"9"}},  // text, not numbers
      // Short ranges are selection-sorted: the first of equal keys is the one moved forward.
      {{u"b", u"A", u"a", u"B"}, true, kTextCompare, {u"A", u"a", u"b", u"B"}},
      {{}, true, kTextCompare, {}},
  };
  for (auto row : rows) {
    xml::SortStrings(row.items, row.ascending, row.mode);
    EXPECT_EQ(row.items, row.expected);
  }
  List items{u"b", u"a"};
  EXPECT_THROW(xml::SortStrings(items, true, 2), base::RuntimeError);  // an unknown mode
  EXPECT_EQ(items, (List{u"b", u"a"}));
}

// Random inputs of every size around the selection-sort limit, and shapes that strain the
// pivot: each comes out ordered and a permutation of the input (the sort is not stable).
TEST(SortStrings, RandomAndAdversarialInputs) {
  std::mt19937 rng(99);
  const char16_t letters[] = u"aAbB_\u00E9\u00C9";
  std::vector<List> inputs;
  for (std::size_t n = 0; n < 300; ++n) {
    List& items = inputs.emplace_back(n);
    for (auto& s : items)
      for (int k = rng() % 4; k > 0; --k) s.push_back(letters[rng() % 7]);
  }
  const std::size_t n = 5000;
  std::vector<List> shapes(4);
  const auto key = [](std::size_t k) {
    std::u16string s(7, u'0');
    for (std::size_t d = 7; d-- > 0; k /= 10) s[d] = static_cast<char16_t>(u'0' + k % 10);
    return s;
  };
  for (std::size_t i = 0; i < n; ++i) {
    shapes[0].push_back(key(i));                      // sorted
    shapes[1].push_back(key(i < n / 2 ? i : n - i));  // organ pipe
    shapes[2].push_back(key(i % 2 ? n - i : i));      // middle elements smallest
    shapes[3].push_back(i % 2 ? u"Case" : u"cASE");   // equal without case
  }
  inputs.insert(inputs.end(), shapes.begin(), shapes.end());
  for (const List& items : inputs)
    for (bool ascending : {true, false})
      for (int mode : {kBinaryCompare, kTextCompare}) {
        List sorted = items;
        xml::SortStrings(sorted, ascending, mode);
        for (std::size_t i = 1; i < sorted.size(); ++i)
          ASSERT_NE(xml::CompareStrings(sorted[i - 1], sorted[i], mode), ascending ? 1 : -1) << i;
        List expected = items;
        std::sort(expected.begin(), expected.end());
        std::sort(sorted.begin(), sorted.end());
        ASSERT_EQ(sorted, expected);
      }
}

}  // namespace
