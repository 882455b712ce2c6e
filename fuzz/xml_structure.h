// The element structure of a document as the reader builds it, two ways: by applying the
// reader's rules (xml/scan.h) to copies of the text the way the element parse does, level by
// level, and from the one-pass index (xml/element_scan.h). The scan fuzz target compares
// the two element by element.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "xml/element_scan.h"

namespace testing_support {

// How the top element's text is prepared: the element parse (declarations, then comments) or
// the full parse (comments, then the first declaration); and the declaration step run on each
// child's own text.
struct ReadMode {
  bool full_parse = false;
  xml::DeclarationRule child_rule = xml::DeclarationRule::kAll;
};

// One element as read: where its text lies in the prepared text and what was found in it.
struct ElementRecord {
  std::size_t depth = 0;
  std::size_t text_begin = 0, text_end = 0;
  bool has_declaration = false;
  std::u16string declaration;
  std::size_t read_begin = 0;  // after the declaration step
  bool found = false;
  std::size_t tag_begin = 0, tag_end = 0;
  std::u16string name;
  bool self_closing = false;
  bool has_attributes = false;
  std::u16string attributes;
  bool ok = false;
  std::size_t content_begin = 0, content_end = 0;
  bool element_content = false;

  bool operator==(const ElementRecord&) const = default;
};

std::string Describe(const ElementRecord& e);

struct Structure {
  std::u16string prepared;       // the text after the declaration step and DeleteRems
  bool has_declaration = false;  // the declaration read while preparing, and its attributes
  std::u16string declaration;
  std::vector<ElementRecord> elements;  // in document order (pre-order)
  // The reference saw a child's text change under DeleteRems, so its positions no longer map
  // into the prepared text. The index assumes this never happens; a test reports it.
  bool child_text_changed = false;
};

// The rules applied as written (quadratic: meant for small documents).
Structure ReferenceStructure(std::u16string_view text, ReadMode mode);
// The same from ScannedText, TagIndex, ScanElement and ChildCursor. Stops after max_elements.
Structure IndexedStructure(std::u16string_view text, ReadMode mode,
                           std::size_t max_elements = static_cast<std::size_t>(-1));

// The first difference between the two, described; nullopt when they agree.
std::optional<std::string> CompareStructures(const Structure& reference, const Structure& indexed);

// Every "<" of the prepared text that is not self-closing: FindTagEnd over the whole text
// against the index's closing tag. The first disagreement, described; nullopt when none.
std::optional<std::string> CompareClosings(std::u16string_view prepared);

}  // namespace testing_support
