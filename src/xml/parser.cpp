// cXmlNode: reading XML text into nodes.
//
// Two paths, as callers expect:
//   - XmlData assignment reads one element (name, attributes, text) and keeps the element's
//     text asleep; waking the node (one level, from ChildCount) builds its children the same
//     way, each keeping its own element asleep.
//   - XmlData___NonRecursif (and a full wake-up) builds the whole subtree at once, walking
//     down and up with an explicit stack.
//
// Both read a document prepared once (xml/element_scan.h: declarations and comments cut, every
// tag paired with its closing tag by one index). A sleeping node holds nothing but a view of
// its element in that shared document (xml/sleep_text.h), so a document is never copied per
// level and never searched twice, however deep it is and however it is woken.
//
// The text rules are those of xml/scan.h, kept as they are because existing files depend on
// them: only a space ends a tag name, closing tags match without regard to case, only double
// quotes delimit attribute values, comments are cut before tags are looked for.
#include <limits>

#include "base/text.h"
#include "base/trap.h"
#include "text/encoding.h"
#include "text/strings.h"
#include "text/utf8.h"
#include "xml/char_search.h"
#include "xml/comment_cut.h"
#include "xml/element_scan.h"
#include "xml/node.h"
#include "xml/node_internal.h"
#include "xml/scan.h"

namespace {

constexpr std::u16string_view kCdataOpen = u"<![CDATA[";
constexpr std::u16string_view kCdataClose = u"]]>";

// Whether UTF-8 decoding can change the text: it leaves 7-bit characters as they are, but stops
// at a NUL and reads every other character as a byte of the ANSI code page.
bool Utf8Neutral(std::u16string_view text) {
  return xml::AllSevenBit(text.data(), text.size());
}

void Utf8DecodeInPlace(std::u16string& text) {
  if (Utf8Neutral(text)) return;
  text = mUTF8::UTF8_Decode(mStringTools::StrToBytes(text), 2);
}

std::int32_t ToPosition(std::size_t value) {
  if (value > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max()))
    base::Raise(base::kOverflow);
  return static_cast<std::int32_t>(value);
}

}  // namespace

// Reads elements of one prepared document into nodes.
struct cXmlNode::Reader {
  std::shared_ptr<const xml::ScannedText> doc;
  std::u16string_view text;

  // Whether values are UTF-8-decoded: the XMLEncoding of the node being read, which its new
  // children inherit. Looked up (up the ancestors) only when a value could change.
  cXmlNode* encoding_of = nullptr;
  int utf8 = -1;
  // A buffer reused for every attribute value read.
  std::u16string scratch;

  Reader() = default;
  explicit Reader(std::shared_ptr<const xml::ScannedText> d)
      : doc(std::move(d)), text(doc->Text()) {}

  std::u16string_view Span(std::uint32_t begin, std::uint32_t end) const {
    return text.substr(begin, end - begin);
  }

  bool Utf8() {
    if (utf8 < 0) utf8 = base::EqualNoCase(encoding_of->XMLEncoding(), u"utf-8") ? 1 : 0;
    return utf8 == 1;
  }

  // value = raw with its references resolved (DecodeSpecialChars), reusing value's buffer.
  static void Decode(std::u16string_view raw, std::u16string& value) {
    if (!xml::detail::DecodeNamedReferences(raw, value)) {
      value.assign(raw);
      DecodeSpecialCharsInPlace(value);
    }
  }

  // GetTagAttribs: the attributes go through the attribute setter's rules (a name met again,
  // in any case, replaces the value; an empty value removes it), without events. A value is
  // stored with its references resolved, then UTF-8-decoded when the document says so.
  void ReadAttributes(cXmlNode& node, std::u16string_view attribute_text) {
    std::u16string& value = scratch;
    // One block for the tag's pairs: as many as it has "=", in as many characters as its text.
    std::size_t pairs = 0;
    for (char16_t c : attribute_text) pairs += c == u'=';
    if (pairs != 0) node.attrs_.Reserve(pairs, attribute_text.size());
    xml::ForEachTagAttrib(attribute_text, [&](std::u16string_view name, std::u16string_view raw) {
      Decode(raw, value);
      if (!Utf8Neutral(value) && Utf8()) Utf8DecodeInPlace(value);
      node.UpdateAttribut(name, value);
    });
  }

  // The declaration's attributes are read onto the node, copied into XMLVersion (and, unless
  // the node ignores it, XMLEncoding), and dropped again.
  void ReadDeclaration(cXmlNode& node, std::u16string_view attribute_text) {
    node.attrs_.clear();
    ReadAttributes(node, attribute_text);
    std::u16string version = node.Attribut(u"version");
    std::u16string encoding = node.Attribut(u"encoding");
    node.GetExtras().xml_version = std::move(version);
    if (!node.IgnoreDataXmlEncoding) {
      node.GetExtras().xml_encoding = std::move(encoding);
      utf8 = -1;
    }
    node.attrs_.clear();
  }

  // A text value: a CDATA section (after trimming) is kept with its markers, anything else is
  // decoded untrimmed; then Base64 content is decoded, then UTF-8.
  void ReadText(cXmlNode& node, std::u16string_view content) {
    const std::u16string_view trimmed = xml::xTrim(content);
    if (trimmed.starts_with(kCdataOpen) && trimmed.ends_with(kCdataClose)) {
      node.raw_value_.assign(trimmed);
    } else {
      Decode(content, node.raw_value_);
    }
    if (!node.attrs_.empty() && base::EqualNoCase(node.Attribut(u"ContentEncoding"), u"base64")) {
      std::u16string symbols;
      symbols.reserve(node.raw_value_.size());
      for (char16_t c : node.raw_value_) {
        if (!xml::IsBlank(c)) symbols.push_back(c);
      }
      node.raw_value_ = mStringTools::BytesToStr(
          mStringTools::Base64_Decode(mStringTools::StrToBytes(symbols), 2, 1));
    }
    if (!Utf8Neutral(node.raw_value_) && Utf8()) Utf8DecodeInPlace(node.raw_value_);
  }

  // GetTagInfo and the text step of one element found by the scan. A closing tag that closes
  // nothing ("<a </a>") leaves the name and attributes read and no value.
  void ReadElement(cXmlNode& node, const xml::ElementScan& scan) {
    node.name_.assign(Span(scan.name_begin, scan.name_end));
    if (scan.has_attributes) ReadAttributes(node, Span(scan.attributes_begin, scan.attributes_end));
    if (!scan.ok) {
      node.raw_value_.clear();
      return;
    }
    if (scan.element_content) {
      node.raw_value_.clear();
      return;
    }
    ReadText(node, Span(scan.content_begin, scan.content_end));
  }

  // A child as its XmlData assignment builds it: its own element read, the rest asleep.
  XmlNodePtr LazyChild(cXmlNode& parent, xml::ElementSpan span, const xml::ElementScan& scan) {
    XmlNodePtr child = Create();
    child->parent_ = &parent;
    if (scan.has_declaration) {
      ReadDeclaration(*child, Span(scan.declaration_begin, scan.declaration_end));
      span.begin = scan.text_begin;
      span.first_tag = static_cast<std::uint32_t>(doc->Index().FirstTagAtOrAfter(span.begin));
    }
    child->sleep_ = xml::SleepText::Element(doc, span);
    if (scan.found) ReadElement(*child, scan);
    return child;
  }

  // The element parse of one node. With recursion, its children are built, each asleep.
  void ElementParse(cXmlNode& node, xml::ElementSpan span, bool recursion) {
    const xml::ElementScan scan = xml::ScanElement(*doc, span, xml::DeclarationRule::kNone);
    if (!scan.found) return;
    ReadElement(node, scan);
    if (!scan.ok || !scan.element_content || !recursion) return;
    xml::ChildCursor cursor(*doc, scan);
    xml::ElementSpan child_span;
    xml::ElementScan child_scan;
    while (cursor.Next(child_span, child_scan, xml::DeclarationRule::kAll)) {
      node.AppendChildQuiet(LazyChild(node, child_span, child_scan));
    }
  }

  // The full parse from `span`: every level at once, no recursion. With kFirst the first
  // declaration left in the text is read and cut first.
  void FullParse(cXmlNode& top, xml::ElementSpan span, xml::DeclarationRule rule) {
    const xml::ElementScan scan = xml::ScanElement(*doc, span, rule);
    if (scan.has_declaration) ReadDeclarationThroughScratch(top, scan);
    if (!scan.found) return;
    ReadElement(top, scan);
    if (!scan.ok || !scan.element_content) return;
    struct Level {
      cXmlNode* node;
      xml::ChildCursor cursor;
    };
    std::vector<Level> stack;
    stack.push_back({&top, xml::ChildCursor(*doc, scan)});
    xml::ElementSpan child_span;
    xml::ElementScan child_scan;
    while (!stack.empty()) {
      Level& level = stack.back();
      if (!level.cursor.Next(child_span, child_scan, xml::DeclarationRule::kNone)) {
        stack.pop_back();
        continue;
      }
      cXmlNode* parent = level.node;
      XmlNodePtr child = Create();
      child->parent_ = parent;
      cXmlNode* raw = child.get();
      parent->AppendChildQuiet(std::move(child));
      if (!child_scan.found) continue;
      ReadElement(*raw, child_scan);
      if (child_scan.ok && child_scan.element_content)
        stack.push_back({raw, xml::ChildCursor(*doc, child_scan)});
    }
  }

  // The full path reads a declaration on a node of its own, so that the node's attributes are
  // not touched and its encoding does not apply.
  void ReadDeclarationThroughScratch(cXmlNode& top, const xml::ElementScan& scan) {
    ReadDeclarationText(top, Span(scan.declaration_begin, scan.declaration_end));
  }
  void ReadDeclarationText(cXmlNode& top, std::u16string_view attribute_text) {
    const XmlNodePtr scratch = Create();
    Reader scratch_reader;
    scratch_reader.encoding_of = scratch.get();
    scratch_reader.ReadAttributes(*scratch, attribute_text);
    top.GetExtras().xml_version = scratch->Attribut(u"version");
    if (!top.IgnoreDataXmlEncoding) {
      top.GetExtras().xml_encoding = scratch->Attribut(u"encoding");
      utf8 = -1;
    }
  }
};

void cXmlNode::XmlData(std::u16string_view xml_data) {
  base::Trap(base::DansProperty(u"cXmlNode.XmlData"), [&] { XmlData(std::u16string(xml_data)); });
}

void cXmlNode::XmlData(std::u16string&& xml_data) {
  base::Trap(base::DansProperty(u"cXmlNode.XmlData"), [&] {
    const XmlNodePtr keep = Self();
    sleep_.clear();
    if (!xml_data.empty()) {
      DropChildList();
      attrs_.clear();
      Reader reader(xml::ScannedText::ForElementParse(std::move(xml_data)));
      reader.encoding_of = this;
      const xml::ScannedText& doc = *reader.doc;
      if (doc.HasDeclaration()) reader.ReadDeclaration(*this, doc.DeclarationAttributes());
      const xml::ElementSpan top = doc.Top();
      if (top.end > top.begin) {
        sleep_ = xml::SleepText::Element(reader.doc, top);
        reader.ElementParse(*this, top, false);
      } else if (!doc.SleepTextEmpty()) {
        // Nothing but comments: the text stays asleep as it was, and reads as nothing.
        sleep_ = xml::SleepText::Owned(doc.CommentOnlyText());
      }
    }
    RaiseModified(std::u16string());
  });
}

void cXmlNode::XmlData___NonRecursif(std::u16string_view xml_data) {
  base::Trap(base::InFunction(u"cXmlNode.XmlData___NonRecursif"), [&] {
    const XmlNodePtr keep = Self();
    // A sleeping node's old children are woken to be deleted, each with its events, as the
    // child count that this loop asks wakes them; its old text must not come back later.
    WakeUp(false);
    while (!childs_.empty()) DeleteChildAt(0);
    sleep_.clear();
    attrs_.clear();
    name_.clear();
    if (xml_data.empty()) return;
    Reader reader(xml::ScannedText::ForFullParse(std::u16string(xml_data)));
    reader.encoding_of = this;
    if (reader.doc->HasDeclaration())
      reader.ReadDeclarationText(*this, reader.doc->DeclarationAttributes());
    reader.FullParse(*this, reader.doc->Top(), xml::DeclarationRule::kNone);
  });
}

void cXmlNode::ParseSleepText(const xml::SleepText& text, bool full) {
  if (const auto doc = text.SharedDocument()) {
    // An element of a document already read: its text holds no comment and no declaration of
    // its own but one that cutting comments joined, which only the full path reads.
    Reader reader(doc);
    reader.encoding_of = this;
    if (full) {
      while (!childs_.empty()) DeleteChildAt(0);
      attrs_.clear();
      name_.clear();
      reader.FullParse(*this, text.Span(), xml::DeclarationRule::kFirst);
    } else {
      DropChildList();
      attrs_.clear();
      reader.ElementParse(*this, text.Span(), true);
    }
    return;
  }
  if (full) {
    XmlData___NonRecursif(text.view());
    return;
  }
  DropChildList();
  attrs_.clear();
  Reader reader(xml::ScannedText::ForElementParse(text.str()));
  reader.encoding_of = this;
  if (reader.doc->HasDeclaration())
    reader.ReadDeclaration(*this, reader.doc->DeclarationAttributes());
  const xml::ElementSpan top = reader.doc->Top();
  if (top.end > top.begin) reader.ElementParse(*this, top, true);
}

// ---- The rules as members -------------------------------------------------------------------

std::int32_t cXmlNode::NextTag(std::u16string_view text, std::int32_t start, std::int32_t& length,
                               std::u16string& tag_name) {
  return base::Trap(base::TerseFunction(u"NextTag"), std::int32_t{0}, [&] {
    std::size_t found_length = 0;
    std::u16string_view name;
    const std::size_t p =
        xml::NextTag(text, start < 1 ? 1 : static_cast<std::size_t>(start), found_length, name);
    if (p == 0) return std::int32_t{0};
    length = ToPosition(found_length);
    tag_name.assign(name);
    return ToPosition(p);
  });
}

std::int32_t cXmlNode::FindTagEnd(std::u16string_view text, std::int32_t start,
                                  std::u16string_view tag_name) {
  return base::Trap(base::InFunction(u"cXmlNode.FindTagEnd"), std::int32_t{0}, [&] {
    if (start < 1) base::Raise(base::kInvalidCall);
    return ToPosition(xml::FindTagEnd(text, static_cast<std::size_t>(start), tag_name));
  });
}

bool cXmlNode::GetTagInfo(std::u16string_view element) {
  return base::Trap(base::TerseFunction(u"GetTagInfo"), false, [&] {
    const xml::TagInfo info = xml::GetTagInfo(element);
    if (!info.has_name) return false;
    name_.assign(info.name);
    // A closing tag inside the opening tag ("<a x="1" </a>") closes nothing, but the opening
    // tag's attributes are read first.
    if (info.has_attributes) GetTagAttribs(info.attributes);
    if (!info.ok) return false;
    raw_value_.assign(info.content);
    return true;
  });
}

void cXmlNode::GetTagAttribs(std::u16string_view attribute_text) {
  base::Trap(base::TerseFunction(u"GetTagAttribs"), [&] {
    attrs_.clear();
    Reader reader;
    reader.encoding_of = this;
    reader.ReadAttributes(*this, attribute_text);
  });
}

bool cXmlNode::IsXML(std::u16string_view text, std::int32_t start) {
  return base::Trap(base::InFunction(u"cXmlNode.IsXML"), false, [&] {
    return xml::IsXML(text, start < 1 ? 1 : static_cast<std::size_t>(start));
  });
}

std::u16string cXmlNode::xTrim(std::u16string_view text) {
  return base::Trap(base::TerseFunction(u"xTrim"), std::u16string(),
                    [&] { return std::u16string(xml::xTrim(text)); });
}

std::u16string cXmlNode::DeleteRems(std::u16string_view text, std::u16string_view start_mark,
                                    std::u16string_view end_mark) {
  return base::Trap(base::TerseFunction(u"DeleteRems"), std::u16string(),
                    [&] { return xml::DeleteRemsOnePass(text, start_mark, end_mark); });
}
