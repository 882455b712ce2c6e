#include "xml/char_search.h"

namespace xml {

namespace {

// Where the vector search anchors in a needle: on its rarest character in markup. "!" and "?"
// appear in few places ("<!--", "<?xml"), "<" and ">" once per tag, letters and "-" anywhere.
std::size_t Anchor(std::u16string_view needle) {
  for (char16_t rare : {u'!', u'?', u'<', u'>'}) {
    const std::size_t k = needle.find(rare);
    if (k != std::u16string_view::npos) return k;
  }
  return 0;
}

}  // namespace

std::size_t FindText(std::u16string_view text, std::u16string_view needle, std::size_t from) {
  if (needle.empty()) return from <= text.size() ? from : std::u16string_view::npos;
  if (from > text.size() || text.size() - from < needle.size()) return std::u16string_view::npos;
  const std::size_t anchor = Anchor(needle);
  const std::size_t end = text.size() - needle.size() + anchor + 1;
  std::size_t i = from + anchor;
  while (true) {
    i = FindChar(text.data(), i, end, needle[anchor]);
    if (i == end) return std::u16string_view::npos;
    const std::size_t start = i - anchor;
    if (text.compare(start, needle.size(), needle) == 0) return start;
    ++i;
  }
}

}  // namespace xml
