// Reading elements, and the children of elements, from an indexed text: what the element parse
// does with NextTag, FindTagEnd, GetTagInfo and IsXML (xml/scan.h), in time proportional to
// the element's own tags and to the number of its children.
//
// A document is prepared once (ScannedText): the declaration step and DeleteRems give the text
// the elements are read from, and TagIndex indexes it. From then on an element that is not yet
// built is nothing but a span of that shared text (ElementSpan). Reading it (ScanElement) gives
// its name, attribute text and content as spans; ChildCursor lists its children as spans again,
// each ready to be read the same way when it is woken. No text is copied or searched twice:
// a child's closing tag comes from the index, and the cursor steps over whole children.
//
// Why the spans give the same elements as the rules applied to copies of the text:
//   - An element's text is a stretch of the prepared text, and DeleteRems of such a stretch
//     changes nothing: the prepared text holds no "<!--" but an unterminated one, after which
//     no "-->" follows. So NextTag meeting a "<!--" always answers 0.
//   - FindTagEnd within a stretch finds what it finds in the whole text when that closing tag
//     ends inside the stretch, and nothing otherwise: the tags it counts all lie before it.
//   - A declaration can be cut from an element's text only where cutting comments joined one;
//     the index lists every "<?xml" so that costs nothing when there is none.
//
//   auto doc = xml::ScannedText::ForElementParse(u"<a x=\"1\"><b>2</b></a>");
//   xml::ElementScan top = xml::ScanElement(*doc, doc->Top(), xml::DeclarationRule::kNone);
//   xml::ChildCursor children(*doc, top);
//   xml::ElementSpan child;
//   while (children.Next(child)) { /* a child node sleeping on (doc, child) */ }
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "xml/tag_index.h"

namespace xml {

// One element's text inside the prepared text: [begin, end), and the number of the first "<"
// at or after begin. This is all a sleeping element needs besides the shared ScannedText.
struct ElementSpan {
  std::uint32_t begin = 0;
  std::uint32_t end = 0;
  std::uint32_t first_tag = 0;
};

// A document's text ready for reading, shared by every element read from it.
class ScannedText {
 public:
  // The element parse of a node's text (XmlData assignment): declarations cut first (all of
  // them, the first one's attributes kept), then comments.
  static std::shared_ptr<const ScannedText> ForElementParse(std::u16string text);
  // The full parse (XmlData___NonRecursif): comments cut first, then the first declaration.
  static std::shared_ptr<const ScannedText> ForFullParse(std::u16string text);

  // The prepared text: the text after the declaration step and DeleteRems.
  std::u16string_view Text() const { return text_; }
  const TagIndex& Index() const { return index_; }
  // The span the top element is read from.
  ElementSpan Top() const { return top_; }

  // The declaration read while preparing ("<?xml" ... "?>"), and its attribute text.
  bool HasDeclaration() const { return has_declaration_; }
  std::u16string_view DeclarationAttributes() const { return declaration_; }
  // Whether the text a node keeps while asleep was empty: for the element parse the text after
  // the declarations, before comments are cut ("<!-- x -->" alone leaves a node asleep with
  // nothing to read); for the full parse the text as given.
  bool SleepTextEmpty() const { return sleep_text_empty_; }
  // For the element parse of a text that holds nothing but comments (after its declarations):
  // that text as it was, which the node keeps asleep. Empty otherwise.
  std::u16string_view CommentOnlyText() const { return comment_only_; }

  // Bytes held: the text and the index.
  std::size_t MemoryBytes() const;

 private:
  ScannedText(std::u16string text, TagIndex index, std::size_t start, std::u16string declaration,
              bool has_declaration, bool sleep_text_empty);

  std::u16string text_;
  TagIndex index_;
  ElementSpan top_;
  std::u16string declaration_;
  bool has_declaration_ = false;
  bool sleep_text_empty_ = false;
  std::u16string comment_only_;
};

// Whether reading an element's text starts with the declaration step: not at all, the full
// parse's (first declaration only) or the element parse's (every declaration).
enum class DeclarationRule { kNone, kFirst, kAll };

// What the element parse finds in one element's text. Positions are 0-based in the prepared
// text, each stretch [begin, end).
struct ElementScan {
  bool has_declaration = false;  // a declaration was cut from this element's text
  std::uint32_t declaration_begin = 0, declaration_end = 0;  // its attribute text
  std::uint32_t text_begin = 0;  // where the element's text begins after the declarations

  bool found = false;                        // NextTag found a tag; nothing below is set otherwise
  std::uint32_t tag = 0;                     // the number of its "<"
  std::uint32_t tag_begin = 0, tag_end = 0;  // the element, "<" to the end of its closing tag
  std::uint32_t open_end = 0;                // after the opening tag's ">"
  std::uint32_t name_begin = 0, name_end = 0;
  bool self_closing = false;
  bool has_attributes = false;
  std::uint32_t attributes_begin = 0, attributes_end = 0;
  bool ok = false;                                   // GetTagInfo's answer
  std::uint32_t content_begin = 0, content_end = 0;  // the raw content (empty unless ok)
  bool element_content = false;                      // IsXML(content): children, not text
};

// Reads one element's text as the element parse does (declaration step, NextTag, GetTagInfo,
// IsXML). The text must be the one the index was built on.
ElementScan ScanElement(std::u16string_view text, const TagIndex& index, ElementSpan span,
                        DeclarationRule rule);
inline ElementScan ScanElement(const ScannedText& doc, ElementSpan span, DeclarationRule rule) {
  return ScanElement(doc.Text(), doc.Index(), span, rule);
}

// The children of an element with element content, in order: what NextTag finds from the
// start of the content, then from the end of each child, until it answers 0.
class ChildCursor {
 public:
  ChildCursor(std::u16string_view text, const TagIndex& index, const ElementScan& parent);
  ChildCursor(const ScannedText& doc, const ElementScan& parent)
      : ChildCursor(doc.Text(), doc.Index(), parent) {}

  // The next child's span; false when there is none (and from then on).
  bool Next(ElementSpan& child);
  // The same, and what reading the child's text finds: ScanElement(child, rule), without
  // looking at its tag a second time.
  bool Next(ElementSpan& child, ElementScan& scan, DeclarationRule rule);

 private:
  std::u16string_view text_;
  const TagIndex* index_;
  std::uint32_t end_ = 0;
  std::size_t tag_ = 0;
  bool done_ = false;
};

}  // namespace xml
