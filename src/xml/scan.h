// The XML reader's text rules, one function per rule, written exactly as the reader applies
// them to a string: NextTag, FindTagEnd, GetTagInfo, GetTagAttribs, IsXML, xTrim, DeleteRems
// and the declaration step.
//
// The rules are quirky on purpose, because existing files depend on them: only a space ends a
// tag name, closing tags match without regard to case, only double quotes delimit attribute
// values, and comments are cut out of the text before tags are looked for.
//
// Positions are 1-based character positions in the text given; 0 means "not found". Returned
// texts are views into the text given (nothing is copied, nothing is decoded: entity and UTF-8
// decoding of values is the caller's step).
//
// NextTag, FindTagEnd and DeleteRems search from scratch on every call, as the rules read;
// building a tree by calling them level by level rescans the text once per level. The tree is
// built from TagIndex (xml/tag_index.h) instead, which finds the same tags in one pass; these
// functions stay as the plain statement of the rules that TagIndex is checked against.
//
//   std::size_t length = 0;
//   std::u16string_view name;
//   std::size_t p = xml::NextTag(u"<a><b/></a>", 1, length, name);  // p = 1, length = 11, "a"
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "base/text.h"
#include "xml/char_search.h"

namespace xml {

// The characters xTrim strips and IsXML skips: space, tab, carriage return, line feed.
constexpr bool IsBlank(char16_t c) {
  return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n';
}

// The key the reader compares without regard to case (closing tags, FindTagEnd's nesting
// count): base::UpperChar, with the 7-bit letters spelt out here because the tag index calls it
// for every character of every closing tag's name.
inline char16_t FoldCase(char16_t c) {
  if (c < 0x80) return c >= u'a' && c <= u'z' ? static_cast<char16_t>(c - 32) : c;
  return base::UpperChar(c);
}
inline bool EqualFolded(const char16_t* a, const char16_t* b, std::size_t length) {
  for (std::size_t i = 0; i < length; ++i) {
    if (a[i] != b[i] && FoldCase(a[i]) != FoldCase(b[i])) return false;
  }
  return true;
}

// The text without the space, tab, CR and LF characters at both ends.
std::u16string_view xTrim(std::u16string_view text);

// Removes every stretch from start_mark to the next end_mark after it, both included, and
// searches again from the start of the text after each cut, so a cut that joins the two halves
// of a new start mark is cut again. A start mark with no end mark after it stops the removal:
// the text from that mark on is kept as it is. The end mark is looked for after the whole start
// mark ("<!-->" does not end the comment it opens). An empty start mark removes nothing.
// Note: quadratic on purpose (the rule as written); DeleteRemsOnePass gives the same text.
std::u16string DeleteRems(std::u16string_view text, std::u16string_view start_mark,
                          std::u16string_view end_mark);

// The next element tag at or after `start`: its position, and in `length` the characters from
// its "<" to the end of its closing tag (or of the tag itself when it is self-closing), in
// `name` its name. Skips "<!--" ... "-->"; 0 when there is no "<", no ">" after it, an
// unterminated comment, a tag that is a whole "<![CDATA[...]]>" section, or no closing tag.
// `length` and `name` are left as they were when 0 is returned.
std::size_t NextTag(std::u16string_view text, std::size_t start, std::size_t& length,
                    std::u16string_view& name);

// The position of the "</name>" (compared without regard to case) that closes the element
// whose "<" is at start - 1, counting nested elements of the same name; 0 when it is missing.
// A nested "<name" counts only when a space or ">" follows the name and its tag does not end
// with "/>": "<nameX" and "<name/>" do not open anything.
std::size_t FindTagEnd(std::u16string_view text, std::size_t start, std::u16string_view name);

// What GetTagInfo reads from one element's text ("<name attrs>content</name>" or "<name/>").
struct TagInfo {
  bool ok = false;        // GetTagInfo's result
  bool has_name = false;  // the name was read (also when ok is false: the node keeps it)
  std::u16string_view name;
  bool self_closing = false;    // "/>" at the end of the opening tag, or the name "?xml"
  bool has_attributes = false;  // the opening tag holds a space: `attributes` was read
  std::u16string_view attributes;
  std::u16string_view content;  // the raw text between the tags ("" when self-closing)
};

// Reads one element's text. Not ok when it does not begin with "<", has no ">", or (not
// self-closing) does not end with "</" + name + ">" compared lower-cased. A closing tag that
// lies inside the opening tag itself ("<a </a>") closes nothing: not ok, name and attributes
// read, no content.
TagInfo GetTagInfo(std::u16string_view element);

// One attribute as written: its name and its raw value, neither decoded.
struct AttributeText {
  std::u16string_view name;
  std::u16string_view value;
};

// The attributes of a tag's attribute text, in order. Only the double quote delimits a value;
// reading stops at the first pair with no "=", or no opening or no closing double quote after
// its "=". Names are trimmed; "a b="1"" gives the name "a b". Values are raw: the caller decodes
// entities (and UTF-8 where the document says so) and stores them through the attribute setter.
std::vector<AttributeText> GetTagAttribs(std::u16string_view attribute_text);

// The same reading, handing each pair to `visit(name, value)` without building a list.
template <class Visit>
void ForEachTagAttrib(std::u16string_view attribute_text, Visit&& visit) {
  std::u16string_view rest = xTrim(attribute_text);
  while (true) {
    const char16_t* s = rest.data();
    const std::size_t n = rest.size();
    const std::size_t eq = FindChar(s, 0, n, u'=');
    if (eq == n) return;
    const std::size_t q1 = FindChar(s, eq + 1, n, u'"');
    if (q1 == n) return;
    const std::size_t q2 = FindChar(s, q1 + 1, n, u'"');
    if (q2 == n) return;
    visit(xTrim(rest.substr(0, eq)), rest.substr(q1 + 1, q2 - q1 - 1));
    rest = xTrim(rest.substr(q2 + 1));
  }
}

// Whether the content starting at `start` is element markup: after blanks, a "<" that does not
// begin "<!" (so neither a comment, a CDATA section nor a document type line). Only blanks, or
// any other first character: false.
bool IsXML(std::u16string_view text, std::size_t start);

// The declaration step ("<?xml" ... "?>") of reading an element's text.
struct DeclarationStrip {
  bool found = false;              // a "<?xml" with a "?>" after it was cut
  std::u16string_view attributes;  // the first declaration's attribute text
  std::u16string_view rest;        // the text after the last declaration cut
};

// The lazy element parse's step: while "<?xml" occurs with a "?>" after it, keep only the text
// after that "?>" (what came before the declaration is dropped too). The attribute text of the
// first one is the text from the sixth character after its "<" up to its "?>" ("<?xml?>" has
// none). With `all` false only the first declaration is cut (the full parse's step).
DeclarationStrip StripDeclarations(std::u16string_view text, bool all);

}  // namespace xml
