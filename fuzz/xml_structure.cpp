#include "xml_structure.h"

#include <utility>

#include "base/text.h"
#include "xml/scan.h"
#include "xml/tag_index.h"

namespace testing_support {

namespace {

std::string Show(std::u16string_view text) {
  std::string out;
  for (char16_t c : text) {
    if (c >= 0x20 && c < 0x7F) {
      out.push_back(static_cast<char>(c));
    } else {
      out += "\\u{" + base::Narrow(base::ToHex(c)) + "}";
    }
  }
  return out;
}

std::size_t Offset(std::u16string_view base, std::u16string_view part) {
  return static_cast<std::size_t>(part.data() - base.data());
}

}  // namespace

std::string Describe(const ElementRecord& e) {
  std::string s = "depth " + std::to_string(e.depth) + " text [" + std::to_string(e.text_begin) +
                  "," + std::to_string(e.text_end) + ")";
  if (e.has_declaration) s += " declaration \"" + Show(e.declaration) + "\"";
  s += " read from " + std::to_string(e.read_begin);
  if (!e.found) return s + " no tag";
  s += " tag [" + std::to_string(e.tag_begin) + "," + std::to_string(e.tag_end) + ") name \"" +
       Show(e.name) + "\"";
  if (e.self_closing) s += " self-closing";
  if (e.has_attributes) s += " attributes \"" + Show(e.attributes) + "\"";
  s += e.ok ? " ok" : " not ok";
  s += " content [" + std::to_string(e.content_begin) + "," + std::to_string(e.content_end) + ")";
  if (e.element_content) s += " elements";
  return s;
}

Structure ReferenceStructure(std::u16string_view text, ReadMode mode) {
  Structure out;
  std::u16string_view top;
  if (mode.full_parse) {
    out.prepared = xml::DeleteRems(text, u"<!--", u"-->");
    const xml::DeclarationStrip strip = xml::StripDeclarations(out.prepared, false);
    out.has_declaration = strip.found;
    out.declaration = std::u16string(strip.attributes);
    top = strip.rest;
  } else {
    const xml::DeclarationStrip strip = xml::StripDeclarations(text, true);
    out.has_declaration = strip.found;
    out.declaration = std::u16string(strip.attributes);
    out.prepared = xml::DeleteRems(strip.rest, u"<!--", u"-->");
    top = out.prepared;
  }
  const std::u16string_view all = out.prepared;

  struct Pending {
    std::u16string_view text;
    std::size_t depth;
  };
  std::vector<Pending> stack{{top, 0}};
  while (!stack.empty()) {
    const Pending item = stack.back();
    stack.pop_back();
    ElementRecord e;
    e.depth = item.depth;
    e.text_begin = Offset(all, item.text);
    e.text_end = e.text_begin + item.text.size();
    std::u16string_view s = item.text;
    if (item.depth > 0 && mode.child_rule != xml::DeclarationRule::kNone) {
      const xml::DeclarationStrip strip =
          xml::StripDeclarations(s, mode.child_rule == xml::DeclarationRule::kAll);
      if (strip.found) {
        e.has_declaration = true;
        e.declaration = std::u16string(strip.attributes);
        s = strip.rest;
      }
    }
    if (item.depth > 0 && mode.child_rule == xml::DeclarationRule::kAll &&
        xml::DeleteRems(s, u"<!--", u"-->") != s) {
      out.child_text_changed = true;
      return out;
    }
    e.read_begin = Offset(all, s);
    std::size_t length = 0;
    std::u16string_view name;
    const std::size_t p = xml::NextTag(s, 1, length, name);
    if (p == 0) {
      out.elements.push_back(std::move(e));
      continue;
    }
    const std::u16string_view element = s.substr(p - 1, length);
    const xml::TagInfo info = xml::GetTagInfo(element);
    e.found = true;
    e.tag_begin = Offset(all, element);
    e.tag_end = e.tag_begin + element.size();
    e.name = std::u16string(info.name);
    e.self_closing = info.self_closing;
    e.has_attributes = info.has_attributes;
    e.attributes = std::u16string(info.attributes);
    e.ok = info.ok;
    if (info.ok) {
      e.content_begin = info.self_closing ? e.tag_end : Offset(all, info.content);
      e.content_end = e.content_begin + info.content.size();
      e.element_content = xml::IsXML(info.content, 1);
    }
    out.elements.push_back(e);
    if (!e.element_content) continue;
    std::vector<Pending> children;
    std::size_t pos = 1;
    while (true) {
      std::size_t child_length = 0;
      std::u16string_view child_name;
      const std::size_t c = xml::NextTag(info.content, pos, child_length, child_name);
      if (c == 0) break;
      children.push_back({info.content.substr(c - 1, child_length), item.depth + 1});
      pos = c + child_length;
    }
    for (auto it = children.rbegin(); it != children.rend(); ++it) stack.push_back(*it);
  }
  return out;
}

Structure IndexedStructure(std::u16string_view text, ReadMode mode, std::size_t max_elements) {
  Structure out;
  auto doc = mode.full_parse ? xml::ScannedText::ForFullParse(std::u16string(text))
                             : xml::ScannedText::ForElementParse(std::u16string(text));
  // The element parse keeps the whole text when there is no comment to cut; its prepared text
  // then begins where the declarations end.
  const std::size_t base = mode.full_parse ? 0 : doc->Top().begin;
  const std::u16string_view all = doc->Text();
  out.prepared = std::u16string(all.substr(base));
  out.has_declaration = doc->HasDeclaration();
  out.declaration = std::u16string(doc->DeclarationAttributes());

  struct Pending {
    xml::ElementSpan span;
    xml::ElementScan scan;
    std::size_t depth;
  };
  std::vector<Pending> stack{
      {doc->Top(), xml::ScanElement(*doc, doc->Top(), xml::DeclarationRule::kNone), 0}};
  std::vector<Pending> children;
  while (!stack.empty() && out.elements.size() < max_elements) {
    const Pending item = stack.back();
    stack.pop_back();
    const xml::ElementScan& r = item.scan;
    ElementRecord e;
    e.depth = item.depth;
    e.text_begin = item.span.begin - base;
    e.text_end = item.span.end - base;
    e.has_declaration = r.has_declaration;
    if (r.has_declaration)
      e.declaration =
          std::u16string(all.substr(r.declaration_begin, r.declaration_end - r.declaration_begin));
    e.read_begin = r.text_begin - base;
    if (r.found) {
      e.found = true;
      e.tag_begin = r.tag_begin - base;
      e.tag_end = r.tag_end - base;
      e.name = std::u16string(all.substr(r.name_begin, r.name_end - r.name_begin));
      e.self_closing = r.self_closing;
      e.has_attributes = r.has_attributes;
      e.attributes =
          std::u16string(all.substr(r.attributes_begin, r.attributes_end - r.attributes_begin));
      e.ok = r.ok;
      if (r.ok) {
        e.content_begin = r.content_begin - base;
        e.content_end = r.content_end - base;
        e.element_content = r.element_content;
      }
    }
    out.elements.push_back(std::move(e));
    if (!r.element_content) continue;
    children.clear();
    xml::ChildCursor cursor(*doc, r);
    Pending child{{}, {}, item.depth + 1};
    // Children alternate between the cursor's own reading and ScanElement, so both are checked.
    bool use_cursor = item.depth % 2 == 0;
    while (use_cursor ? cursor.Next(child.span, child.scan, mode.child_rule)
                      : cursor.Next(child.span)) {
      if (!use_cursor) child.scan = xml::ScanElement(*doc, child.span, mode.child_rule);
      children.push_back(child);
      use_cursor = !use_cursor;
    }
    for (auto it = children.rbegin(); it != children.rend(); ++it) stack.push_back(*it);
  }
  return out;
}

std::optional<std::string> CompareStructures(const Structure& reference, const Structure& indexed) {
  if (reference.child_text_changed) return "a child's text changed under DeleteRems";
  if (reference.has_declaration != indexed.has_declaration ||
      reference.declaration != indexed.declaration)
    return "declarations differ: \"" + Show(reference.declaration) + "\" and \"" +
           Show(indexed.declaration) + "\"";
  if (reference.prepared != indexed.prepared)
    return "prepared texts differ: \"" + Show(reference.prepared) + "\" and \"" +
           Show(indexed.prepared) + "\"";
  const std::size_t n = std::min(reference.elements.size(), indexed.elements.size());
  for (std::size_t i = 0; i < n; ++i) {
    if (!(reference.elements[i] == indexed.elements[i]))
      return "element " + std::to_string(i) + ": rules " + Describe(reference.elements[i]) +
             "; index " + Describe(indexed.elements[i]);
  }
  if (reference.elements.size() != indexed.elements.size())
    return "element counts differ: " + std::to_string(reference.elements.size()) + " and " +
           std::to_string(indexed.elements.size());
  return std::nullopt;
}

std::optional<std::string> CompareClosings(std::u16string_view prepared) {
  const xml::TagIndex index(prepared);
  for (std::size_t k = 0; k < index.TagCount(); ++k) {
    const std::size_t p = index.Position(k);
    const std::size_t gt = prepared.find(u'>', p + 1);
    std::size_t expected = 0;
    if (gt != std::u16string_view::npos && prepared[gt - 1] != u'/') {
      const std::size_t space = prepared.find(u' ', p + 1);
      const std::size_t name_end = space < gt ? space : gt;
      const std::u16string_view name = prepared.substr(p + 1, name_end - p - 1);
      expected = xml::FindTagEnd(prepared, p + 2, name);
    }
    const std::uint32_t closing = index.Closing(k);
    const std::size_t got = closing == xml::TagIndex::kNoTag ? 0 : index.Position(closing) + 1;
    if (got != expected)
      return "tag at " + std::to_string(p + 1) + ": FindTagEnd " + std::to_string(expected) +
             ", index " + std::to_string(got) + " in \"" + Show(prepared) + "\"";
  }
  return std::nullopt;
}

}  // namespace testing_support
