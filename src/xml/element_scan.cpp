#include "xml/element_scan.h"

#include <algorithm>

#include "xml/char_search.h"
#include "xml/comment_cut.h"
#include "xml/scan.h"

namespace xml {

namespace {

constexpr std::uint32_t kNo = TagIndex::kNoTag;

// NextTag's answer for the "<" numbered `tag`, within a text that ends at `limit`.
struct FoundTag {
  bool found = false;
  std::uint32_t begin = 0, gt = 0, end = 0;
  std::uint32_t name_begin = 0, name_end = 0;
  std::uint32_t space = 0;  // the first space of the opening tag, or gt
  bool self_closing = false;
  std::size_t after = 0;  // the number of the first "<" after the element
};

FoundTag TagAt(std::u16string_view text, const TagIndex& index, std::size_t tag,
               std::uint32_t limit) {
  FoundTag t;
  if (tag >= index.TagCount()) return t;
  const std::uint32_t p = index.Position(tag);
  if (p >= limit) return t;
  const char16_t* s = text.data();
  // The prepared text has no comment but an unterminated one, so NextTag stops at any "<!--".
  if (limit - p >= 4 && s[p + 1] == u'!' && s[p + 2] == u'-' && s[p + 3] == u'-') return t;
  const std::size_t gt = FindChar(s, p + 1, limit, u'>');
  if (gt == limit) return t;
  if (gt - p + 1 >= 9 && text.compare(p, 9, u"<![CDATA[") == 0 && s[gt - 2] == u']' &&
      s[gt - 1] == u']')
    return t;
  t.begin = p;
  t.gt = static_cast<std::uint32_t>(gt);
  t.space = static_cast<std::uint32_t>(FindChar(s, p + 1, gt, u' '));
  t.self_closing = s[gt - 1] == u'/';
  t.name_begin = p + 1;
  t.name_end = t.space;
  if (t.space == gt && t.self_closing) --t.name_end;  // "<name/>"
  const std::u16string_view name = text.substr(t.name_begin, t.name_end - t.name_begin);
  if (name == u"?xml") t.self_closing = true;
  if (t.self_closing) {
    t.end = t.gt + 1;
    t.after = tag + 1;
  } else {
    const std::uint32_t closing = index.Closing(tag);
    if (closing == kNo) return t;
    const std::size_t end = std::size_t{index.Position(closing)} + name.size() + 3;
    if (end > limit) return t;
    t.end = static_cast<std::uint32_t>(end);
    t.after = closing + std::size_t{1};
  }
  // Step over the "<" inside the tags just passed (in attribute values, or in a name).
  while (t.after < index.TagCount() && index.Position(t.after) < t.end) ++t.after;
  t.found = true;
  return t;
}

// The declaration step read from the index: while a "<?xml" lies at or after `start` with a
// "?>" after it, the text starts again after that "?>". Same answer as StripDeclarations.
struct IndexedStrip {
  std::size_t start = 0;
  bool found = false;
  std::size_t attributes_begin = 0, attributes_end = 0;
};

IndexedStrip StripIndexed(const TagIndex& index, bool all) {
  IndexedStrip out;
  const auto& tags = index.DeclarationTags();
  const auto& ends = index.DeclarationEnds();
  for (std::size_t i = 0; i < tags.size(); ++i) {
    const std::size_t d = index.Position(tags[i]);
    if (d < out.start) continue;
    const std::uint32_t q = ends[i];
    if (q == kNo) break;
    if (!out.found) {
      out.found = true;
      out.attributes_begin = d + 6 < q ? d + 6 : d;
      out.attributes_end = d + 6 < q ? q : d;
    }
    out.start = q + std::size_t{2};
    if (!all) break;
  }
  return out;
}

}  // namespace

ScannedText::ScannedText(std::u16string text, TagIndex index, std::size_t start,
                         std::u16string declaration, bool has_declaration, bool sleep_text_empty)
    : text_(std::move(text)),
      index_(std::move(index)),
      declaration_(std::move(declaration)),
      has_declaration_(has_declaration),
      sleep_text_empty_(sleep_text_empty) {
  top_.begin = static_cast<std::uint32_t>(start);
  top_.end = static_cast<std::uint32_t>(text_.size());
  top_.first_tag = static_cast<std::uint32_t>(index_.FirstTagAtOrAfter(start));
}

// Both preparations first index the text as it is, stopping at a "<!--": most documents have
// no comment, and then that one pass is all the preparation there is. Otherwise the comments
// are cut (in one pass) and the text without them is indexed.
std::shared_ptr<const ScannedText> ScannedText::ForElementParse(std::u16string text) {
  TagIndex index(text, true);
  if (index.Complete()) {
    const IndexedStrip strip = StripIndexed(index, true);
    std::u16string declaration =
        text.substr(strip.attributes_begin, strip.attributes_end - strip.attributes_begin);
    const bool empty = strip.start == text.size();
    return std::shared_ptr<const ScannedText>(new ScannedText(std::move(text), std::move(index),
                                                              strip.start, std::move(declaration),
                                                              strip.found, empty));
  }
  const DeclarationStrip strip = StripDeclarations(text, true);
  const std::size_t start = text.size() - strip.rest.size();
  const bool empty = strip.rest.empty();
  std::u16string declaration(strip.attributes);
  std::u16string without;
  if (!CutRems(strip.rest, u"<!--", u"-->", without)) {  // the comment was before the start
    TagIndex whole(text);
    return std::shared_ptr<const ScannedText>(new ScannedText(
        std::move(text), std::move(whole), start, std::move(declaration), strip.found, empty));
  }
  std::u16string comment_only;
  if (without.empty()) comment_only.assign(strip.rest);
  TagIndex cut(without);
  auto* doc = new ScannedText(std::move(without), std::move(cut), 0, std::move(declaration),
                              strip.found, empty);
  doc->comment_only_ = std::move(comment_only);
  return std::shared_ptr<const ScannedText>(doc);
}

std::shared_ptr<const ScannedText> ScannedText::ForFullParse(std::u16string text) {
  const bool empty = text.empty();
  TagIndex index(text, true);
  if (!index.Complete()) {
    std::u16string without;
    if (CutRems(text, u"<!--", u"-->", without)) text = std::move(without);
    index = TagIndex(text);
  }
  const IndexedStrip strip = StripIndexed(index, false);
  std::u16string declaration =
      text.substr(strip.attributes_begin, strip.attributes_end - strip.attributes_begin);
  return std::shared_ptr<const ScannedText>(new ScannedText(
      std::move(text), std::move(index), strip.start, std::move(declaration), strip.found, empty));
}

std::size_t ScannedText::MemoryBytes() const {
  return text_.capacity() * sizeof(char16_t) + index_.MemoryBytes();
}

namespace {

// The element parse's reading of the element NextTag found (GetTagInfo, then IsXML).
void ReadFound(std::u16string_view text, const FoundTag& t, std::size_t tag, ElementScan& r) {
  r.found = true;
  r.tag = static_cast<std::uint32_t>(tag);
  r.tag_begin = t.begin;
  r.tag_end = t.end;
  r.open_end = t.gt + 1;
  r.name_begin = t.name_begin;
  r.name_end = t.name_end;
  r.self_closing = t.self_closing;
  if (t.space < t.gt) {
    r.has_attributes = true;
    r.attributes_begin = t.space + 1;
    r.attributes_end = t.gt;
    if (t.self_closing && r.attributes_end > r.attributes_begin &&
        text[r.attributes_end - 1] == u'/')
      --r.attributes_end;
  }
  if (t.self_closing) {
    r.ok = true;
    r.content_begin = r.content_end = r.open_end;
    return;
  }
  const std::uint32_t closing_begin = t.end - (t.name_end - t.name_begin) - 3;
  if (closing_begin < r.open_end) return;  // "<a </a>": the closing tag is the tag's own end
  r.ok = true;
  r.content_begin = r.open_end;
  r.content_end = closing_begin;
  std::uint32_t i = r.content_begin;
  while (i < r.content_end && IsBlank(text[i])) ++i;
  r.element_content =
      i < r.content_end && text[i] == u'<' && !(i + 1 < r.content_end && text[i + 1] == u'!');
}

// Whether a "<?xml" lies in [begin, end): only then can the declaration step change anything.
bool DeclarationInside(const TagIndex& index, std::uint32_t begin, std::uint32_t end) {
  const auto& tags = index.DeclarationTags();
  if (tags.empty()) return false;
  const auto it =
      std::lower_bound(tags.begin(), tags.end(), begin,
                       [&](std::uint32_t t, std::uint32_t b) { return index.Position(t) < b; });
  return it != tags.end() && index.Position(*it) < end;
}

}  // namespace

ElementScan ScanElement(std::u16string_view text, const TagIndex& index, ElementSpan span,
                        DeclarationRule rule) {
  ElementScan r;
  std::uint32_t begin = span.begin;
  std::size_t first_tag = span.first_tag;
  if (rule != DeclarationRule::kNone && DeclarationInside(index, span.begin, span.end)) {
    const auto& tags = index.DeclarationTags();
    const auto& ends = index.DeclarationEnds();
    while (true) {
      // The first "<?xml" of the text left, and the first "?>" after it, both inside it.
      const auto it =
          std::lower_bound(tags.begin(), tags.end(), begin,
                           [&](std::uint32_t t, std::uint32_t b) { return index.Position(t) < b; });
      if (it == tags.end()) break;
      const std::uint32_t d = index.Position(*it);
      const std::uint32_t q = ends[it - tags.begin()];
      if (std::size_t{d} + 5 > span.end || q == kNo || std::size_t{q} + 2 > span.end) break;
      if (!r.has_declaration) {
        r.has_declaration = true;
        r.declaration_begin = d + 6 < q ? d + 6 : d;
        r.declaration_end = d + 6 < q ? q : d;
      }
      begin = q + 2;
      if (rule == DeclarationRule::kFirst) break;
    }
    if (begin != span.begin) first_tag = index.FirstTagAtOrAfter(begin);
  }
  r.text_begin = begin;
  const FoundTag t = TagAt(text, index, first_tag, span.end);
  if (t.found) ReadFound(text, t, first_tag, r);
  return r;
}

ChildCursor::ChildCursor(std::u16string_view text, const TagIndex& index, const ElementScan& parent)
    : text_(text), index_(&index) {
  if (!parent.found || !parent.ok || !parent.element_content) {
    done_ = true;
    return;
  }
  end_ = parent.content_end;
  tag_ = parent.tag + std::size_t{1};
  while (tag_ < index.TagCount() && index.Position(tag_) < parent.content_begin) ++tag_;
}

bool ChildCursor::Next(ElementSpan& child) {
  if (done_) return false;
  const FoundTag t = TagAt(text_, *index_, tag_, end_);
  if (!t.found) {
    done_ = true;
    return false;
  }
  child.begin = t.begin;
  child.end = t.end;
  child.first_tag = static_cast<std::uint32_t>(tag_);
  tag_ = t.after;
  return true;
}

bool ChildCursor::Next(ElementSpan& child, ElementScan& scan, DeclarationRule rule) {
  if (done_) return false;
  const FoundTag t = TagAt(text_, *index_, tag_, end_);
  if (!t.found) {
    done_ = true;
    return false;
  }
  child.begin = t.begin;
  child.end = t.end;
  child.first_tag = static_cast<std::uint32_t>(tag_);
  tag_ = t.after;
  // The next child's tag is read next: ask for its text now, while this one is read.
  if (tag_ < index_->TagCount()) __builtin_prefetch(text_.data() + index_->Position(tag_));
  if (rule != DeclarationRule::kNone && DeclarationInside(*index_, child.begin, child.end)) {
    scan = ScanElement(text_, *index_, child, rule);
  } else {
    // The child's text begins with the tag just found, so reading it finds that tag again.
    scan = ElementScan();
    scan.text_begin = child.begin;
    ReadFound(text_, t, child.first_tag, scan);
  }
  return true;
}

}  // namespace xml
