#include "xml/scan.h"

#include "xml/char_search.h"

namespace xml {

namespace {

constexpr std::size_t kNone = std::u16string_view::npos;

// 0-based position of `needle` in `text` at or after the 0-based `from`, without regard to case.
std::size_t FindFolded(std::u16string_view text, std::u16string_view needle, std::size_t from) {
  if (from > text.size() || text.size() - from < needle.size()) return kNone;
  for (std::size_t i = from; i + needle.size() <= text.size(); ++i) {
    if (EqualFolded(text.data() + i, needle.data(), needle.size())) return i;
  }
  return kNone;
}

// The tag name as NextTag and GetTagInfo read it from the tag text "<" ... ">": up to the first
// space, or with no space up to the ">" less a trailing "/" of a self-closing tag.
std::u16string_view TagName(std::u16string_view tag, bool self_closing) {
  const std::size_t space = tag.find(u' ');
  if (space != kNone) return tag.substr(1, space - 1);
  std::u16string_view name = tag.substr(1, tag.size() - 2);
  if (self_closing && !name.empty() && name.back() == u'/') name.remove_suffix(1);
  return name;
}

}  // namespace

std::u16string_view xTrim(std::u16string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

std::u16string DeleteRems(std::u16string_view text, std::u16string_view start_mark,
                          std::u16string_view end_mark) {
  std::u16string out(text);
  if (start_mark.empty()) return out;
  while (true) {
    const std::size_t p = out.find(start_mark);
    if (p == kNone) break;
    const std::size_t e = out.find(end_mark, p + start_mark.size());
    if (e == kNone) break;  // unterminated: keep the text from the start mark on
    out.erase(p, e + end_mark.size() - p);
  }
  return out;
}

std::size_t NextTag(std::u16string_view text, std::size_t start, std::size_t& length,
                    std::u16string_view& name) {
  if (start == 0) start = 1;
  std::size_t from = start - 1;  // 0-based from here on
  std::size_t p;
  while (true) {
    p = text.find(u'<', from);
    if (p == kNone) return 0;
    if (text.substr(p, 4) != u"<!--") break;
    const std::size_t e = text.find(u"-->", p + 4);
    if (e == kNone) return 0;
    from = e + 3;
  }
  const std::size_t gt = text.find(u'>', p + 1);
  if (gt == kNone) return 0;
  const std::u16string_view tag = text.substr(p, gt - p + 1);
  if (tag.substr(0, 9) == u"<![CDATA[" && text.substr(gt - 2, 3) == u"]]>") return 0;
  bool self_closing = text[gt - 1] == u'/';
  const std::u16string_view tag_name = TagName(tag, self_closing);
  if (tag_name == u"?xml") self_closing = true;
  std::size_t tag_length;
  if (self_closing) {
    tag_length = gt - p + 1;
  } else {
    const std::size_t e = FindTagEnd(text, p + 2, tag_name);  // 1-based start: after the "<"
    if (e == 0) return 0;
    tag_length = e + tag_name.size() + 3 - (p + 1);
  }
  length = tag_length;
  name = tag_name;
  return p + 1;
}

std::size_t FindTagEnd(std::u16string_view text, std::size_t start, std::u16string_view name) {
  if (start == 0) return 0;
  std::u16string closing = u"</";
  closing.append(name);
  closing.push_back(u'>');
  std::u16string opening = u"<";
  opening.append(name);

  std::size_t depth = 1;
  std::size_t pos = start - 1;  // 1-based position of the opening tag's "<", later of a closing
  std::size_t last = 0;
  while (depth >= 1) {
    // 0-based search at 1-based pos + 1 is 0-based pos.
    const std::size_t e0 = FindFolded(text, closing, pos);
    if (e0 == kNone) return 0;
    const std::size_t e = e0 + 1;
    --depth;
    // Openings of the same name that begin after the current tag's name and before e.
    std::size_t from = pos + name.size();  // 0-based form of 1-based pos + len + 1
    while (true) {
      const std::size_t o = FindFolded(text, opening, from);
      if (o == kNone || o >= e0) break;
      const std::size_t after = o + opening.size();
      if (after < text.size() && (text[after] == u' ' || text[after] == u'>')) {
        const std::size_t gt = text.find(u'>', o + 1);
        if (gt != kNone && text[gt - 1] != u'/') ++depth;
      }
      from = o + 1;
    }
    pos = e;
    last = e;
  }
  return last;
}

TagInfo GetTagInfo(std::u16string_view element) {
  TagInfo info;
  if (element.empty() || element.front() != u'<') return info;
  const std::size_t gt = element.find(u'>');
  if (gt == kNone) return info;
  const std::u16string_view open = element.substr(0, gt + 1);
  info.self_closing = open.size() >= 2 && open[open.size() - 2] == u'/';
  info.name = TagName(open, info.self_closing);
  info.has_name = true;
  if (info.name == u"?xml") info.self_closing = true;
  const std::size_t closing_length = info.name.size() + 3;
  if (!info.self_closing) {
    if (element.size() < closing_length) return info;
    const std::u16string_view tail = element.substr(element.size() - closing_length);
    if (tail[0] != u'<' || tail[1] != u'/' || tail.back() != u'>' ||
        !EqualFolded(tail.data() + 2, info.name.data(), info.name.size()))
      return info;
  }
  const std::size_t space = open.find(u' ');
  if (space != kNone) {
    std::u16string_view attributes = open.substr(space + 1, open.size() - space - 2);
    if (info.self_closing && !attributes.empty() && attributes.back() == u'/')
      attributes.remove_suffix(1);
    info.has_attributes = true;
    info.attributes = attributes;
  }
  if (!info.self_closing) {
    if (element.size() < open.size() + closing_length) return info;  // closing inside the tag
    info.content = element.substr(open.size(), element.size() - open.size() - closing_length);
  }
  info.ok = true;
  return info;
}

std::vector<AttributeText> GetTagAttribs(std::u16string_view attribute_text) {
  std::vector<AttributeText> out;
  ForEachTagAttrib(attribute_text, [&](std::u16string_view name, std::u16string_view value) {
    out.push_back({name, value});
  });
  return out;
}

bool IsXML(std::u16string_view text, std::size_t start) {
  std::size_t i = start == 0 ? 0 : start - 1;
  while (i < text.size() && IsBlank(text[i])) ++i;
  if (i >= text.size() || text[i] != u'<') return false;
  if (text.substr(i, 9) == u"<![CDATA[") return false;
  if (i + 1 < text.size() && text[i + 1] == u'!') return false;
  return true;
}

DeclarationStrip StripDeclarations(std::u16string_view text, bool all) {
  DeclarationStrip out;
  out.rest = text;
  while (true) {
    const std::size_t p = FindText(out.rest, u"<?xml", 0);
    if (p == kNone) break;
    const std::size_t q = FindText(out.rest, u"?>", p + 1);
    if (q == kNone) break;
    if (!out.found) {
      out.found = true;
      // Mid(S, p + 6, q - p - 6) in 1-based terms; "<?xml?>" leaves nothing to read.
      out.attributes = q > p + 6 ? out.rest.substr(p + 6, q - p - 6) : std::u16string_view();
    }
    out.rest = out.rest.substr(q + 2);
    if (!all) break;
  }
  return out;
}

}  // namespace xml
