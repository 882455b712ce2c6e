// DeleteRems in one pass: the same text as the rule (xml/scan.h), in time proportional to the
// text, however many comments it holds and however their cuts join.
//
// The rule searches again from the start of the text after every cut. Since the text before a
// cut holds no start mark (the cut was at the first one), the only new start mark a cut can
// create is one that straddles the join; so one pass that checks the join after each cut, then
// searches on from where it is, finds the same marks in the same order.
//
//   std::u16string s = xml::DeleteRemsOnePass(u"a<!-- x -->b", u"<!--", u"-->");  // "ab"
#pragma once

#include <string>
#include <string_view>

namespace xml {

// Same result as DeleteRems(text, start_mark, end_mark).
std::u16string DeleteRemsOnePass(std::u16string_view text, std::u16string_view start_mark,
                                 std::u16string_view end_mark);

// The same cut, for a caller that keeps sharing the original text when there is nothing to cut:
// false (and `out` untouched) when nothing is cut, otherwise true with the result in `out`.
bool CutRems(std::u16string_view text, std::u16string_view start_mark, std::u16string_view end_mark,
             std::u16string& out);

}  // namespace xml
