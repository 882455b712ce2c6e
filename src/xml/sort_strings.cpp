#include "xml/sort_strings.h"

#include <cstddef>
#include <utility>
#include <vector>

#include "base/trap.h"
#include "xml/scan.h"

namespace xml {

int CompareStrings(std::u16string_view a, std::u16string_view b, int mode) {
  if (mode != kBinaryCompare && mode != kTextCompare) base::Raise(base::kInvalidCall);
  const std::size_t n = a.size() < b.size() ? a.size() : b.size();
  for (std::size_t i = 0; i < n; ++i) {
    char16_t x = a[i];
    char16_t y = b[i];
    if (x != y && mode == kTextCompare) {
      x = FoldCase(x);
      y = FoldCase(y);
    }
    if (x != y) return x < y ? -1 : 1;
  }
  if (a.size() == b.size()) return 0;
  return a.size() < b.size() ? -1 : 1;
}

void SortStrings(std::span<std::u16string> items, bool ascending, int mode) {
  if (mode != kBinaryCompare && mode != kTextCompare) base::Raise(base::kInvalidCall);
  if (items.size() < 2) return;
  // a comes before b when the comparison answers -1 ascending, 1 descending.
  const int direction = ascending ? -1 : 1;
  auto before = [&](const std::u16string& a, const std::u16string& b) {
    return CompareStrings(a, b, mode) == direction;
  };

  struct Range {
    std::ptrdiff_t low, high;
  };
  std::vector<Range> stack(255);  // doubled whenever it is full
  std::size_t pending = 0;
  auto push = [&](std::ptrdiff_t low, std::ptrdiff_t high) {
    if (pending == stack.size()) stack.resize(stack.size() * 2);
    stack[pending++] = {low, high};
  };
  push(0, static_cast<std::ptrdiff_t>(items.size()) - 1);

  while (pending > 0) {
    auto [low, high] = stack[--pending];
    if (high - low < 12) {
      // Selection sort: the first element that comes first moves to the front.
      for (std::ptrdiff_t p = low; p < high; ++p) {
        std::ptrdiff_t best = p;
        for (std::ptrdiff_t k = p + 1; k <= high; ++k) {
          if (before(items[k], items[best])) best = k;
        }
        if (best != p) std::swap(items[p], items[best]);
      }
      continue;
    }
    while (low < high) {
      // The pivot's text is held apart: the swaps below move the element it came from.
      const std::u16string pivot = items[(low + high) / 2];
      std::ptrdiff_t i = low;
      std::ptrdiff_t j = high;
      do {
        // The bounds never stop these loops with a consistent comparison; they are a guard.
        while (i < high && before(items[i], pivot)) ++i;
        while (j > low && before(pivot, items[j])) --j;
        if (i > j) break;
        std::swap(items[i], items[j]);
        ++i;
        --j;
      } while (i <= j);
      // Push the larger part, go on with the smaller: the stack stays logarithmic.
      if (j - low < high - i) {
        if (i < high) push(i, high);
        high = j;
      } else {
        if (low < j) push(low, j);
        low = i;
      }
    }
  }
}

}  // namespace xml
