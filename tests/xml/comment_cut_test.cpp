#include "xml/comment_cut.h"

#include <gtest/gtest.h>

#include "xml/scan.h"

namespace {

// The one-pass cut gives the rule's text for every text over a small alphabet up to a length.
TEST(CommentCut, SameTextAsTheRuleForEveryShortText) {
  const struct {
    std::u16string_view alphabet;
    std::size_t max_length;
    std::u16string_view start, end;
  } rows[] = {
      {u"<!->a", 8, u"<!--", u"-->"},
      {u"ab", 12, u"aab", u"ba"},  // a start mark that overlaps itself
      {u"ab", 12, u"ab", u""},     // empty end mark: the start mark is cut
      {u"xy", 10, u"x", u"yx"},
  };
  for (const auto& r : rows) {
    for (std::size_t length = 0; length <= r.max_length; ++length) {
      std::vector<std::size_t> digits(length, 0);
      for (std::size_t k = 0; k < length || digits.empty();) {
        std::u16string text;
        for (std::size_t d : digits) text.push_back(r.alphabet[d]);
        ASSERT_EQ(xml::DeleteRemsOnePass(text, r.start, r.end),
                  xml::DeleteRems(text, r.start, r.end))
            << testing::PrintToString(text);
        for (k = 0; k < length && ++digits[k] == r.alphabet.size();) digits[k++] = 0;
        if (digits.empty()) break;
      }
    }
  }
  std::u16string out = u"untouched";
  EXPECT_FALSE(xml::CutRems(u"<a/><!-- open", u"<!--", u"-->", out));
  EXPECT_EQ(out, u"untouched");
  EXPECT_TRUE(xml::CutRems(u"<a/><!-- x --><!-- open", u"<!--", u"-->", out));
  EXPECT_EQ(out, u"<a/><!-- open");
  // Each cut joins the halves of the next mark: the rule would restart every time.
  std::u16string text;
  for (int i = 0; i < 200000; ++i) text += u"<!";
  text += u"<!---->";
  for (int i = 0; i < 200000; ++i) text += u"---->";
  EXPECT_EQ(xml::DeleteRemsOnePass(text, u"<!--", u"-->"), u"");
}

}  // namespace
