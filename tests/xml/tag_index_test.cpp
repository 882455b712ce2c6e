#include "xml/tag_index.h"

#include <gtest/gtest.h>

#include "support/xml_structure.h"

namespace {

using testing_support::CompareClosings;
using xml::TagIndex;

// The index's closing tags as 1-based positions, one per "<" (0: none), for readable tables.
std::vector<std::size_t> Closings(std::u16string_view text) {
  const TagIndex index(text);
  std::vector<std::size_t> out;
  for (std::size_t k = 0; k < index.TagCount(); ++k) {
    const std::uint32_t c = index.Closing(k);
    out.push_back(c == TagIndex::kNoTag ? 0 : index.Position(c) + 1);
  }
  return out;
}

TEST(TagIndex, PairsEveryOpeningAsFindTagEndDoes) {
  struct Row {
    std::u16string text;
    std::vector<std::size_t> closings;  // per "<", the 1-based "</" FindTagEnd finds, or 0
  } rows[] = {
      {u"<a><b>x</b></a>", {12, 8, 0, 0}},
      {u"<a><b></a></b>", {7, 11, 0, 0}},  // names interleave: each finds its own
      {u"<a><A></a></A>", {11, 7, 0, 0}},  // case-insensitive nesting
      {u"<a>x<y</a>", {7, 0, 0}},          // a stray "<" is skipped over
      {u"<a k=\"<a>\"></a>", {0, 12, 0}},  // the "<a>" in the value is an opening too
      {u"<a<b>x</a<b>", {7, 0, 0, 0}},     // a name with "<" in it
      {u"<a/><a/>", {0, 0}},               // self-closing: no pairing
      {u"<x></x><//x>", {4, 8, 0}},        // "</x>" also opens "/x"
      {u"<a>", {0}},
      {u"</a><a>", {0, 0}},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Closings(row.text), row.closings) << testing::PrintToString(row.text);
  }
}

TEST(TagIndex, InterleavedNamesBeyondTheShortLookBack) {
  // Ten openings, closed in an order that defeats the look at the top few: the name table
  // takes over and must still pair each with its own.
  std::u16string text;
  for (char16_t c = u'a'; c < u'a' + 10; ++c) text += std::u16string(u"<") + c + u">";
  for (char16_t c = u'a'; c < u'a' + 10; ++c) text += std::u16string(u"</") + c + u">";
  for (char16_t c = u'a'; c < u'a' + 10; ++c) text += std::u16string(u"<") + c + u">";
  for (char16_t c = u'a' + 10; c-- > u'a';) text += std::u16string(u"</") + c + u">";
  const auto diff = CompareClosings(text);
  EXPECT_FALSE(diff) << *diff;
}

TEST(TagIndex, ListsDeclarationsAndStopsAtACommentWhenAsked) {
  const std::u16string text = u"<?xml a?><r><?xml b><!-- x --></r>?>";
  const TagIndex full(text);
  EXPECT_TRUE(full.Complete());
  ASSERT_EQ(full.DeclarationTags().size(), 2u);
  EXPECT_EQ(full.Position(full.DeclarationTags()[0]), 0u);
  EXPECT_EQ(full.DeclarationEnds()[0], 7u);               // its own "?>"
  EXPECT_EQ(full.DeclarationEnds()[1], text.size() - 2);  // the "?>" after the comment
  const TagIndex stopped(text, true);
  EXPECT_FALSE(stopped.Complete());
  EXPECT_EQ(TagIndex(u"<r>-->", true).Complete(), true);
}

}  // namespace
