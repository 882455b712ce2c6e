#include "xml/sort_strings.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "base/trap.h"

namespace {

using xml::kBinaryCompare;
using xml::kTextCompare;

TEST(SortStrings, CompareStringsModes) {
  struct Row {
    std::u16string a, b;
    int mode, expected;
  } rows[] = {
      {u"a", u"b", kBinaryCompare, -1},  {u"b", u"a", kBinaryCompare, 1},
      {u"a", u"a", kBinaryCompare, 0},   {u"a", u"ab", kBinaryCompare, -1},  // prefix first
      {u"B", u"a", kBinaryCompare, -1},  {u"B", u"a", kTextCompare, 1},      // case
      {u"ABC", u"abc", kTextCompare, 0}, {u"\u00C9t\u00E9", u"\u00E9T\u00C9", kTextCompare, 0},
      {u"_", u"a", kTextCompare, 1},     {u"z", u"_", kTextCompare, -1},  // upper-case order
      {u"", u"", kTextCompare, 0},       {u"\uFFFF", u"\U00010000", kBinaryCompare, 1},  // units
  };
  for (const auto& row : rows)
    EXPECT_EQ(xml::CompareStrings(row.a, row.b, row.mode), row.expected)
        << testing::PrintToString(row.a) << " " << testing::PrintToString(row.b);
}

TEST(SortStrings, OrderDirectionAndMode) {
  using List = std::vector<std::u16string>;
  struct Row {
    List items;
    bool ascending;
    int mode;
    List expected;
  } rows[] = {
      {{u"c", u"a", u"b"}, true, kBinaryCompare, {u"a", u"b", u"c"}},
      {{u"c", u"a", u"b"}, false, kBinaryCompare, {u"c", u"b", u"a"}},
      {{u"b", u"C", u"a"}, true, kBinaryCompare, {u"C", u"a", u"b"}},
      {{u"b", u"C", u"a"}, true, kTextCompare, {u"a", u"b", u"C"}},
      {{u"b", u"C", u"a"}, false, kTextCompare, {u"C", u"b", u"a"}},
      {{u"10", u"9", u"009"}, true, kTextCompare, {u"009", u"10", u"9"}},  // text, not numbers
      // Short ranges are selection-sorted: the first of equal keys is the one moved forward.
      {{u"b", u"A", u"a", u"B"}, true, kTextCompare, {u"A", u"a", u"b", u"B"}},
      {{}, true, kTextCompare, {}},
      {{u"x"}, false, kTextCompare, {u"x"}},
  };
  for (auto row : rows) {
    xml::SortStrings(row.items, row.ascending, row.mode);
    EXPECT_EQ(row.items, row.expected);
  }
}

// Sorted as the direction and mode ask, and a permutation of the input (equal keys may come
// in any order: the sort is not stable).
void ExpectSorted(std::vector<std::u16string> items, bool ascending, int mode) {
  std::vector<std::u16string> sorted = items;
  xml::SortStrings(sorted, ascending, mode);
  const int wrong = ascending ? 1 : -1;
  for (std::size_t i = 1; i < sorted.size(); ++i)
    ASSERT_NE(xml::CompareStrings(sorted[i - 1], sorted[i], mode), wrong) << "at " << i;
  std::sort(items.begin(), items.end());
  std::sort(sorted.begin(), sorted.end());
  ASSERT_EQ(sorted, items);
}

TEST(SortStrings, RandomInputsOfEverySizeAroundTheSelectionSortLimit) {
  std::mt19937 rng(99);
  const char16_t letters[] = u"aAbB_\u00E9\u00C9";
  for (std::size_t n = 0; n < 300; ++n) {
    std::vector<std::u16string> items(n);
    for (auto& s : items)
      for (int k = std::uniform_int_distribution<int>(0, 3)(rng); k > 0; --k)
        s.push_back(letters[std::uniform_int_distribution<int>(0, 6)(rng)]);
    for (bool ascending : {true, false})
      for (int mode : {kBinaryCompare, kTextCompare}) {
        ExpectSorted(items, ascending, mode);
        if (HasFatalFailure()) return;
      }
  }
}

TEST(SortStrings, AdversarialShapes) {
  // Kept small: the middle pivot makes the organ pipe quadratic (the rule, not a fault).
  const std::size_t n = 10000;
  auto key = [](std::size_t i) {
    std::u16string s = u"0000000";
    for (std::size_t k = 7; k-- > 0; i /= 10) s[k] = static_cast<char16_t>(u'0' + i % 10);
    return s;
  };
  std::vector<std::vector<std::u16string>> shapes(6);
  for (std::size_t i = 0; i < n; ++i) {
    shapes[0].push_back(key(i));                      // already sorted
    shapes[1].push_back(key(n - i));                  // reversed
    shapes[2].push_back(u"same");                     // all equal
    shapes[3].push_back(key(i < n / 2 ? i : n - i));  // organ pipe
    shapes[4].push_back(key(i % 3));                  // few distinct keys
    shapes[5].push_back(i % 2 ? u"Case" : u"cASE");   // equal without case
  }
  // Middle elements smallest: each middle pivot splits off little on one side.
  std::vector<std::u16string> middle(n);
  for (std::size_t i = 0; i < n; ++i) middle[i] = key(i % 2 ? n - i : i);
  shapes.push_back(middle);
  for (const auto& shape : shapes)
    for (bool ascending : {true, false}) {
      ExpectSorted(shape, ascending, kTextCompare);
      if (HasFatalFailure()) return;
    }
}

TEST(SortStrings, LargeInput) {
  std::mt19937 rng(5);
  std::vector<std::u16string> items(300000);
  for (auto& s : items)
    for (int k = 0; k < 8; ++k) s.push_back(static_cast<char16_t>(u'A' + rng() % 52));
  ExpectSorted(items, true, kTextCompare);
}

TEST(SortStrings, UnknownModeRaisesAndLeavesTheItems) {
  std::vector<std::u16string> items{u"b", u"a"};
  try {
    xml::SortStrings(items, true, 2);
    FAIL() << "no error raised";
  } catch (const base::RuntimeError& e) {
    EXPECT_EQ(e.Number(), 5);
  }
  EXPECT_EQ(items, (std::vector<std::u16string>{u"b", u"a"}));
}

}  // namespace
