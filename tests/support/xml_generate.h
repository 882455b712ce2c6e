// Random markup for the reader's differential tests: token soup built from the reader's
// tricky pieces, and element trees with mismatched closings, stray text, comments, CDATA and
// declarations, then cut and spliced at random places.
#pragma once

#include <cstdint>
#include <random>
#include <string>

namespace testing_support {

// A run of 1 to max_tokens tokens such as "<a>", "</A>", "<!--", "]]>", "<<a>", "<//a>".
std::u16string MarkupSoup(std::mt19937& rng, int max_tokens);
// A tree of up to `elements` elements, then up to three random cuts, insertions and copies.
std::u16string MangledTree(std::mt19937& rng, int elements);

}  // namespace testing_support
