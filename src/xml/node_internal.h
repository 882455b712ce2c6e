// Helpers shared by the files of cXmlNode; not part of its interface.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace xml::detail {

// Nodes in the process that have a typed listener or a receiver with a method name. While it
// is 0 no event can be observed, so the tree skips raising them altogether.
extern std::int64_t listening_nodes;

// Moves whenever a node starts or stops listening or a parent link is changed by a member. A
// walk that keeps what it found on a chain of ancestors (the bulk delete) checks it before it
// trusts that: a handler told of an earlier event may have subscribed a listener or moved a node.
extern std::uint64_t tree_epoch;

// The program's conversion of a number to an integer: to the nearest, halves to even; raises
// 6 (Overflow) outside the signed 32-bit range.
std::int32_t RoundToInt32(double value);

// A number written as text ("2", " 3.5 ", "-1e1"), as a position argument may arrive; raises
// 13 (Type mismatch) for anything else.
double TextToNumber(std::u16string_view text);

// Splits at every separator, the way the program's Split does: an empty text gives no parts
// at all, an empty separator gives the whole text as one part.
std::vector<std::u16string_view> SplitText(std::u16string_view text, std::u16string_view sep);

// DecodeSpecialChars for the reader's hot path: resolves the text into `out` (replacing what
// it held, reusing its buffer) and answers true, unless the text holds a numeric reference,
// which only the full decoder (with its code page and its failure rule) may read: then false,
// and `out` holds nothing useful.
bool DecodeNamedReferences(std::u16string_view text, std::u16string& out);

}  // namespace xml::detail
