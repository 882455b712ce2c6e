// The tag structure of a whole document, found in one pass, so that the reader can build any
// element, and the children of any element, without searching the text again.
//
// The reader's FindTagEnd (xml/scan.h) pairs an opening tag with its closing tag by counting
// the same-named "<name" and "</name>" that follow it, without regard to case and to anything
// else in the text. That count is a bracket match per name: an element's closing tag is the
// first "</name>" at which the tags of that name seen since the opening balance. One pass over
// the text with one pending stack per name answers it for every "<" at once:
//
//   - every "<" is a tag start; its tag runs to the first ">" after it, its name to the first
//     space (or to the ">"). A tag is an opening of its name unless its ">" follows a "/"; a
//     tag "</key>" with no space is also a closing of "key". The "<" found inside another tag
//     (in an attribute value, in text between tags, in a CDATA section) counts as well: the
//     rule does not look at context, so neither does the index.
//   - a closing of a name is paired with the most recent unpaired opening of the same name.
//
// Well-formed text needs no name comparison but the one between a closing tag and the opening
// on top of the stack, so the pass runs at the speed of finding "<" and ">". Names are put into
// a table only when tags of different names interleave; names that begin with "!", "?" or "/"
// (CDATA sections, declarations, and every closing tag read as an opening of "/name") and names
// that contain a "<" are kept apart, since they can only equal names of their own kind.
//
// Costs: the pass is linear in the text (a name with "<" in it is stored as its part before
// the "<" plus a reference to the rest, so even "<<<<...>" stays linear); the index holds two
// 32-bit numbers per "<". Recursion is never used.
//
// The index must be built on the text the elements are read from: the text after DeleteRems
// (see xml/element_scan.h, which also reads elements and children from it).
//
//   xml::TagIndex index(text);
//   std::size_t k = index.FirstTagAtOrAfter(0);        // the first "<"
//   std::uint32_t c = index.Closing(k);                // the "<" of "</name>", or kNoTag
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace xml {

class TagIndex {
 public:
  static constexpr std::uint32_t kNoTag = 0xFFFFFFFFu;

  // Indexes `text`; the text is not kept. Raises error 7 for a text of 4 G characters or more.
  // With stop_at_comment, gives up at the first "<!--" (Complete() is then false): a caller
  // that must cut comments first learns so without a separate search.
  explicit TagIndex(std::u16string_view text, bool stop_at_comment = false);
  bool Complete() const { return complete_; }

  // The number of "<" characters in the text.
  std::size_t TagCount() const { return position_.size(); }
  // 0-based position of the k-th "<".
  std::uint32_t Position(std::size_t k) const { return position_[k]; }
  // For the element whose opening tag starts at the k-th "<": the number of the "<" that
  // begins the closing tag FindTagEnd finds for it over the whole text; kNoTag when there is
  // none, or when the tag is not an opening (self-closing, or no ">" after it).
  std::uint32_t Closing(std::size_t k) const { return closing_[k]; }
  // The number of the first "<" at or after the 0-based position `pos` (TagCount() if none).
  std::size_t FirstTagAtOrAfter(std::size_t pos) const;

  // The numbers of the "<" that begin "<?xml", and for each the 0-based position of the first
  // "?>" after it (kNoTag when none). Usually empty: the declaration step runs before comments
  // are cut, so a declaration is left in the text only where a cut joined one.
  const std::vector<std::uint32_t>& DeclarationTags() const { return declaration_tags_; }
  const std::vector<std::uint32_t>& DeclarationEnds() const { return declaration_ends_; }

  // Bytes held by the index.
  std::size_t MemoryBytes() const {
    return (position_.capacity() + closing_.capacity() + declaration_tags_.capacity() +
            declaration_ends_.capacity()) *
           sizeof(std::uint32_t);
  }

 private:
  std::vector<std::uint32_t> position_;
  std::vector<std::uint32_t> closing_;
  std::vector<std::uint32_t> declaration_tags_;
  std::vector<std::uint32_t> declaration_ends_;
  bool complete_ = true;
};

}  // namespace xml
