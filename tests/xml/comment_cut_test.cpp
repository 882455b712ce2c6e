#include "xml/comment_cut.h"

#include <gtest/gtest.h>

#include <random>

#include "xml/scan.h"

namespace {

// Every text over a small alphabet up to a length, checked against the rule as written.
void ExpectSameAsRule(std::u16string_view alphabet, std::size_t max_length,
                      std::u16string_view start_mark, std::u16string_view end_mark) {
  std::u16string text;
  std::vector<std::size_t> digits;
  for (std::size_t length = 0; length <= max_length; ++length) {
    digits.assign(length, 0);
    while (true) {
      text.clear();
      for (std::size_t d : digits) text.push_back(alphabet[d]);
      ASSERT_EQ(xml::DeleteRemsOnePass(text, start_mark, end_mark),
                xml::DeleteRems(text, start_mark, end_mark))
          << testing::PrintToString(text);
      std::size_t k = 0;
      while (k < length && ++digits[k] == alphabet.size()) digits[k++] = 0;
      if (k == length) break;
    }
  }
}

TEST(CommentCut, SameTextAsTheRuleForEveryShortText) {
  ExpectSameAsRule(u"<!->a", 8, u"<!--", u"-->");
  ExpectSameAsRule(u"ab", 12, u"aab", u"ba");  // a start mark that overlaps itself
  ExpectSameAsRule(u"ab", 12, u"ab", u"");     // empty end mark: the start mark is cut
  ExpectSameAsRule(u"xy", 10, u"x", u"yx");
}

TEST(CommentCut, SameTextAsTheRuleForLongerRandomTexts) {
  std::mt19937 rng(7);
  const char16_t* pieces[] = {u"<!--", u"-->", u"<!-", u"--",      u"<",    u"!",
                              u"-",    u">",   u"ab",  u"<!---->", u"<!-->"};
  for (int round = 0; round < 20000; ++round) {
    std::u16string text;
    for (int n = std::uniform_int_distribution<int>(0, 40)(rng); n > 0; --n)
      text += pieces[std::uniform_int_distribution<std::size_t>(0, std::size(pieces) - 1)(rng)];
    ASSERT_EQ(xml::DeleteRemsOnePass(text, u"<!--", u"-->"), xml::DeleteRems(text, u"<!--", u"-->"))
        << testing::PrintToString(text);
  }
}

TEST(CommentCut, CutRemsTellsWhetherAnythingWasCut) {
  std::u16string out = u"untouched";
  EXPECT_FALSE(xml::CutRems(u"<a/><!-- open", u"<!--", u"-->", out));
  EXPECT_EQ(out, u"untouched");
  EXPECT_TRUE(xml::CutRems(u"<a/><!-- x --><!-- open", u"<!--", u"-->", out));
  EXPECT_EQ(out, u"<a/><!-- open");
}

TEST(CommentCut, ManyJoinedCommentsInOnePass) {
  // Each cut joins the halves of the next mark: the rule would restart from the start every
  // time; the one-pass cut gives the same empty text.
  std::u16string text;
  const int n = 200000;
  for (int i = 0; i < n; ++i) text += u"<!";
  text += u"<!---->";
  for (int i = 0; i < n; ++i) text += u"---->";
  EXPECT_EQ(xml::DeleteRemsOnePass(text, u"<!--", u"-->"), u"");
}

}  // namespace
