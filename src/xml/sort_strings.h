// The program's own string-array sort, used by SortChilds to order the composite key texts of
// a node's children (and so the backup list's entries).
//
// A quicksort with an explicit stack of pending ranges and a selection sort for short ranges,
// kept as the program has always sorted, so that equal keys end up in the same order as before.
// It is not stable; SortChilds makes its keys unique with a position suffix.
//
//   std::vector<std::u16string> keys{u"b", u"A", u"c"};
//   xml::SortStrings(keys, true, xml::kTextCompare);  // A, b, c
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace xml {

// Comparison modes: code unit by code unit, or without regard to case.
constexpr int kBinaryCompare = 0;
constexpr int kTextCompare = 1;

// The string comparison the sort uses: -1 when a sorts before b, 0 when equal, 1 after.
// kBinaryCompare compares UTF-16 code units as numbers (a prefix sorts first). kTextCompare
// does the same after taking each code unit's upper case (base::UpperChar), as Windows'
// CompareStringOrdinal without regard to case does: it agrees with base::EqualNoCase on
// equality, and orders by code unit otherwise, not by a locale's collation ("_" sorts after
// the letters, "z" with "Z"), the same on every platform.
// Any other mode raises error 5.
int CompareStrings(std::u16string_view a, std::u16string_view b, int mode);

// Sorts in place, ascending or descending, in the given mode. Elements are exchanged by
// swapping the strings (no text is copied but one pivot per partition). Raises error 5 for an
// unknown mode before touching the items.
void SortStrings(std::span<std::u16string> items, bool ascending, int mode);

}  // namespace xml
