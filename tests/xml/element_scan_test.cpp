#include "xml/element_scan.h"

#include <gtest/gtest.h>

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
