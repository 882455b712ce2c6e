#include "xml/element_scan.h"

#include <gtest/gtest.h>

#include <random>

#include "support/xml_generate.h"
#include "support/xml_structure.h"

namespace {

using testing_support::CompareStructures;
using testing_support::ElementRecord;
using testing_support::IndexedStructure;
using testing_support::ReadMode;
using testing_support::ReferenceStructure;

// One line per element: depth, name, {attribute text}, then "/" self-closing, "!" not read,
// ":" element content, or "=" and the text content; "-" where no tag was found.
std::vector<std::u16string> Outline(const testing_support::Structure& s) {
  std::vector<std::u16string> out;
  for (const ElementRecord& e : s.elements) {
    std::u16string line(e.depth, u' ');
    if (!e.found) {
      out.push_back(line + u"-");
      continue;
    }
    line += e.name;
    if (e.has_attributes) line.append(u"{").append(e.attributes).append(u"}");
    if (e.self_closing)
      line += u"/";
    else if (!e.ok)
      line += u"!";
    else if (e.element_content)
      line += u":";
    else
      line.append(u"=").append(s.prepared, e.content_begin, e.content_end - e.content_begin);
    out.push_back(line);
  }
  return out;
}

void ExpectIndexAgrees(std::u16string_view text) {
  for (bool full : {false, true}) {
    ReadMode mode;
    mode.full_parse = full;
    const auto diff =
        CompareStructures(ReferenceStructure(text, mode), IndexedStructure(text, mode));
    ASSERT_FALSE(diff) << *diff << "\nin " << testing::PrintToString(std::u16string(text))
                       << (full ? " (full parse)" : " (element parse)");
  }
}

TEST(ElementScan, ReadsWhatTheElementParseReads) {
  struct Row {
    std::u16string text;
    std::vector<std::u16string> outline;
  } rows[] = {
      {u"<a>x</A>", {u"a=x"}},
      {u"<r><ab/><a>1</a></r>", {u"r:", u" ab/", u" a=1"}},
      {u"<r><a k='v'/></r>", {u"r:", u" a{k='v'}/"}},
      {u"<r><a><a>1</a></a></r>", {u"r:", u" a:", u"  a=1"}},
      {u"<r><a>1</a></b></r>", {u"r:", u" a=1"}},        // a stray closing tag ends the list
      {u"<r><a>1</b></r>", {u"r:"}},                     // no closing tag: no child
      {u"<r><a><b></a></b></r>", {u"r:", u" a:"}},       // "<b>" is not closed inside a
      {u"<r>\r\n\t<a\tk=\"1\">x</a>\r\n</r>", {u"r:"}},  // the tab is in the name
      {u"<r><!-- <a>x</a> --><b/></r>", {u"r:", u" b/"}},
      {u"<r><a>x<!-- open</a></r>", {u"r:", u" a=x<!-- open"}},
      {u"<r><a><![CDATA[1<2]]></a></r>", {u"r:", u" a=<![CDATA[1<2]]>"}},
      {u"<r><!DOCTYPE x><a/></r>", {u"r=<!DOCTYPE x><a/>"}},  // "<!" content is text
      {u"<?xml version=\"1.0\"?><r><a/></r>", {u"r:", u" a/"}},
      {u"<r><a>1</a><b>2</b>tail</r>", {u"r:", u" a=1", u" b=2"}},
      {u"<r><a/><b></r>", {u"r:", u" a/"}},
      {u"<r> x </r>", {u"r= x "}},
      {u"<r><a </a></r>", {u"r:", u" a{</a}!"}},  // the closing tag is in the tag
      {u"<r/>", {u"r/"}},
      {u"x", {u"-"}},
      {u"", {u"-"}},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Outline(IndexedStructure(row.text, {})), row.outline)
        << testing::PrintToString(row.text);
    ExpectIndexAgrees(row.text);
  }
}

TEST(ElementScan, AgreesWithTheRulesOnGeneratedMarkup) {
  std::mt19937 rng(12345);
  for (int round = 0; round < 30000; ++round) {
    const std::u16string text =
        round % 2 ? testing_support::MarkupSoup(rng, 24) : testing_support::MangledTree(rng, 12);
    ExpectIndexAgrees(text);
    if (HasFatalFailure()) return;
  }
}

TEST(ElementScan, DeclarationsBeforeAndAfterCommentsAreCut) {
  // The element parse cuts declarations before comments, the full parse after: here the
  // comment hides the first "?>" from one and not from the other.
  const std::u16string text = u"<?xml v<!-- ?> -->?><r/>";
  auto element = xml::ScannedText::ForElementParse(text);
  EXPECT_EQ(element->DeclarationAttributes(), u"v<!-- ");
  EXPECT_EQ(element->Text().substr(element->Top().begin), u" -->?><r/>");
  auto full = xml::ScannedText::ForFullParse(text);
  EXPECT_EQ(full->DeclarationAttributes(), u"v");
  EXPECT_EQ(full->Text().substr(full->Top().begin), u"<r/>");
  ExpectIndexAgrees(text);

  auto only_comment = xml::ScannedText::ForElementParse(u"<?xml a?><!-- x -->");
  EXPECT_TRUE(only_comment->HasDeclaration());
  EXPECT_FALSE(only_comment->SleepTextEmpty());  // the node keeps "<!-- x -->" asleep
  EXPECT_TRUE(xml::ScannedText::ForElementParse(u"<?xml a?>")->SleepTextEmpty());
}

// Walks the whole tree from the index, without recursion; returns the element count and the
// deepest element's content.
std::size_t WalkAll(const xml::ScannedText& doc, std::u16string_view* deepest) {
  std::size_t count = 0;
  std::size_t max_depth = 0;
  struct Item {
    xml::ElementScan scan;
    std::size_t depth;
  };
  std::vector<Item> stack{{xml::ScanElement(doc, doc.Top(), xml::DeclarationRule::kNone), 0}};
  while (!stack.empty()) {
    const Item item = stack.back();
    stack.pop_back();
    if (!item.scan.found) continue;
    ++count;
    if (item.depth >= max_depth) {
      max_depth = item.depth;
      *deepest = doc.Text().substr(item.scan.content_begin,
                                   item.scan.content_end - item.scan.content_begin);
    }
    if (!item.scan.element_content) continue;
    xml::ChildCursor children(doc, item.scan);
    xml::ElementSpan span;
    xml::ElementScan child;
    while (children.Next(span, child, xml::DeclarationRule::kAll))
      stack.push_back({child, item.depth + 1});
  }
  return count;
}

TEST(ElementScan, MillionLevelsAndMillionSiblings) {
  const std::size_t n = 1000000;
  std::u16string deep;
  deep.reserve(n * 7 + 4);
  for (std::size_t i = 0; i < n; ++i) deep += u"<d>";
  deep += u"leaf";
  for (std::size_t i = 0; i < n; ++i) deep += u"</d>";
  std::u16string_view deepest;
  auto doc = xml::ScannedText::ForElementParse(std::move(deep));
  EXPECT_EQ(WalkAll(*doc, &deepest), n);
  EXPECT_EQ(deepest, u"leaf");

  std::u16string wide = u"<r>";
  for (std::size_t i = 0; i < n; ++i) wide += u"<i>v</i>";
  wide += u"</r>";
  doc = xml::ScannedText::ForElementParse(std::move(wide));
  EXPECT_EQ(WalkAll(*doc, &deepest), n + 1);
  EXPECT_EQ(deepest, u"v");
}

TEST(ElementScan, UnterminatedCommentOrCdataAtEveryCut) {
  // A document cut short at every position, and with "<!--" or "<![CDATA[" pushed in there.
  const std::u16string whole =
      u"<?xml version=\"1.0\"?><r a=\"1\"><!-- c --><b><![CDATA[x<y]]></b><c k=\"2\"/></r>";
  for (std::size_t cut = 0; cut <= whole.size(); ++cut) {
    ExpectIndexAgrees(whole.substr(0, cut));
    ExpectIndexAgrees(whole.substr(0, cut) + u"<!--" + whole.substr(cut));
    ExpectIndexAgrees(whole.substr(0, cut) + u"<![CDATA[" + whole.substr(cut));
    if (HasFatalFailure()) return;
  }
}

}  // namespace
