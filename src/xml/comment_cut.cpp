#include "xml/comment_cut.h"

#include <algorithm>

#include "xml/char_search.h"

namespace xml {

namespace {

constexpr std::size_t kNone = std::u16string_view::npos;

bool EndsWith(const std::u16string& s, std::u16string_view tail) {
  return s.size() >= tail.size() && std::u16string_view(s).substr(s.size() - tail.size()) == tail;
}

}  // namespace

bool CutRems(std::u16string_view text, std::u16string_view start_mark, std::u16string_view end_mark,
             std::u16string& result) {
  if (start_mark.empty()) return false;
  std::u16string out;
  std::size_t i = 0;       // next input character not yet copied or cut
  bool after_cut = false;  // the end of `out` meets text[i..] at a fresh join
  while (true) {
    if (after_cut) {
      // A start mark made by the join begins in the last characters of `out`. The longest
      // overlap begins first, and is the first mark of the whole text: `out` holds none.
      std::size_t overlap = 0;
      for (std::size_t k = std::min(start_mark.size() - 1, out.size()); k >= 1; --k) {
        if (EndsWith(out, start_mark.substr(0, k)) &&
            text.substr(i, start_mark.size() - k) == start_mark.substr(k)) {
          overlap = k;
          break;
        }
      }
      if (overlap > 0) {
        const std::size_t e = FindText(text, end_mark, i + start_mark.size() - overlap);
        if (e == kNone) break;  // unterminated: the mark's head is in `out`, the rest follows
        out.resize(out.size() - overlap);
        i = e + end_mark.size();
        continue;
      }
    }
    const std::size_t j = FindText(text, start_mark, i);
    if (j == kNone) break;
    const std::size_t e = FindText(text, end_mark, j + start_mark.size());
    if (e == kNone) break;  // unterminated: keep the text from the mark on
    if (i == 0) out.reserve(text.size() - (e + end_mark.size() - j));
    out.append(text.substr(i, j - i));
    i = e + end_mark.size();
    after_cut = true;
  }
  if (i == 0) return false;
  out.append(text.substr(i));
  result = std::move(out);
  return true;
}

std::u16string DeleteRemsOnePass(std::u16string_view text, std::u16string_view start_mark,
                                 std::u16string_view end_mark) {
  std::u16string out;
  if (!CutRems(text, start_mark, end_mark, out)) return std::u16string(text);
  return out;
}

}  // namespace xml
