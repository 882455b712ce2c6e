// cXmlNode: writing a node and its subtree back as text.
//
// The format: one element per line, children one tab deeper than their parent, CR LF between
// lines, no line break after the last closing tag, text on the same line as its tags, "<a/>"
// for an element with neither children nor text, attribute values in double quotes.
//
// How deep each line is indented follows from the way the format was first defined: each
// parent indents the whole text of each child by one tab, line by line, except the lines it
// meets inside a CDATA section (from a line holding "<![CDATA[" up to a line holding "]]>").
// Each level starts that CDATA watch afresh at its child's first line, so a section left open
// in a value stops the indentation only of the levels that began before it.
//
// Doing that literally re-indents a subtree once per ancestor. The writer emits every line
// once instead, with the number of tabs the levels above would have given it: a line that holds
// "]]>" (or "<![CDATA[" and "]]>") closes any section for every level; a line that holds only
// "<![CDATA[" opens one for the levels that began at or before it, that is, those of its node
// and its ancestors; the levels that begin later (any node that starts after it, deeper or a
// sibling) indent as usual.
// So the text is built in one pass, in time proportional to its length, without recursion.
#include "base/text.h"
#include "base/trap.h"
#include "text/encoding.h"
#include "text/strings.h"
#include "text/utf8.h"
#include "xml/char_search.h"
#include "xml/node.h"
#include "xml/walk.h"

namespace {

constexpr std::u16string_view kCdataOpen = u"<![CDATA[";
constexpr std::u16string_view kCdataClose = u"]]>";

bool IsUtf8Name(std::u16string_view encoding) {
  return base::EqualNoCase(encoding, u"utf-8");
}

// Whether UTF-8 encoding leaves the text as it is (7-bit, no NUL, at which it would end).
bool Utf8Neutral(std::u16string_view text) {
  return xml::AllSevenBit(text.data(), text.size());
}

std::u16string Utf8Text(const std::u16string& text) {
  return mStringTools::BytesToStr(mUTF8::UTF8_Encode(text, false));
}

}  // namespace

struct cXmlNode::Writer {
  std::u16string out;
  std::size_t line_start = 0;  // where the current line's text begins (after its tabs)
  std::int32_t line_depth = 0;
  // The levels, counted from the top, that are inside a CDATA section opened on an earlier
  // line: they give no tab to the lines that follow.
  std::int32_t blind = 0;
  // Whether the current line may hold a CDATA marker: only then is it searched for one.
  bool line_has_brackets = false;

  void MarkLine() {
    if (!line_has_brackets) return;
    line_has_brackets = false;
    const char16_t* s = out.data();
    const std::size_t end = out.size();
    bool open = false;
    bool close = false;
    for (std::size_t i = xml::FindChar2(s, line_start, end, u'[', u']'); i < end;
         i = xml::FindChar2(s, i + 1, end, u'[', u']')) {
      if (s[i] == u'[') {
        if (!open && i >= line_start + 2 && s[i - 1] == u'!' && s[i - 2] == u'<' &&
            std::u16string_view(s + i - 2, end - (i - 2)).starts_with(kCdataOpen))
          open = true;
      } else if (i + 2 < end && s[i + 1] == u']' && s[i + 2] == u'>') {
        close = true;
        break;
      }
    }
    if (close) {
      blind = 0;
    } else if (open) {
      blind = line_depth;
    }
  }

  // A line at `depth`; `new_node` when it begins a node of its own (a child or a sibling), whose
  // level then starts after any section opened before.
  void NewLine(std::int32_t depth, bool new_node = false) {
    MarkLine();
    const std::int32_t started_before = new_node ? depth - 1 : depth;
    if (blind > started_before) blind = started_before;
    const auto tabs = static_cast<std::size_t>(depth - blind);
    const std::size_t at = out.size();
    out.resize(at + 2 + tabs);
    char16_t* p = out.data() + at;
    p[0] = u'\r';
    p[1] = u'\n';
    std::char_traits<char16_t>::assign(p + 2, tabs, u'\t');
    line_start = out.size();
    line_depth = depth;
  }

  // Text that may hold line breaks: each CR LF starts a new line at the same depth. `traits`
  // are the text's ClassifyText answer.
  void Append(std::u16string_view text, std::int32_t depth, unsigned traits) {
    const bool brackets = (traits & xml::kBrackets) != 0;
    line_has_brackets |= brackets;
    if (!(traits & xml::kCarriageReturn)) {
      out.append(text);
      return;
    }
    const char16_t* s = text.data();
    const std::size_t end = text.size();
    std::size_t from = 0;
    for (std::size_t i = xml::FindChar(s, 0, end, u'\r'); i < end;
         i = xml::FindChar(s, i + 1, end, u'\r')) {
      if (i + 1 < end && s[i + 1] == u'\n') {
        out.append(text.substr(from, i - from));
        NewLine(depth);
        line_has_brackets = brackets;
        from = i + 2;
        ++i;
      }
    }
    out.append(text.substr(from));
  }
  void Append(std::u16string_view text, std::int32_t depth) {
    Append(text, depth, xml::ClassifyText(text.data(), text.size()));
  }

  void AppendEncoded(std::u16string_view text, std::int32_t depth, bool utf8) {
    const unsigned traits = xml::ClassifyText(text.data(), text.size());
    if (!(traits & (xml::kMarkupChars | xml::kCarriageReturn)) &&
        (!utf8 || !(traits & xml::kNotSevenBit))) {
      Append(text, depth, traits);
      return;
    }
    if (!(traits & (xml::kCarriageReturn | xml::kBrackets)) &&
        (!utf8 || !(traits & xml::kNotSevenBit))) {
      // No line break and no CDATA section: EncodeSpecialChars comes down to replacing the
      // five characters, which can be done on the way out.
      AppendEscaped(text);
      return;
    }
    std::u16string encoded = EncodeSpecialChars(text);
    if (utf8 && !Utf8Neutral(encoded)) encoded = Utf8Text(encoded);
    Append(encoded, depth);
  }

  void AppendEscaped(std::u16string_view text) {
    const char16_t* s = text.data();
    const std::size_t end = text.size();
    std::size_t from = 0;
    for (std::size_t i = xml::FindMarkup(s, 0, end, false); i < end;
         i = xml::FindMarkup(s, i + 1, end, false)) {
      out.append(s + from, i - from);
      out.append(xml::EntityFor(s[i]));
      from = i + 1;
    }
    out.append(s + from, end - from);
  }

  void Close(const cXmlNode& node, std::int32_t depth) {
    out.append(u"</");
    Append(node.name_, depth);
    out.push_back(u'>');
  }

  // The node's opening tag; with no children also its text and closing tag. True when its
  // children follow.
  bool Open(cXmlNode& node, std::int32_t depth, bool utf8) {
    out.push_back(u'<');
    Append(node.name_, depth);
    const xml::AttributeList& a = node.attrs_;
    for (std::size_t i = 0; i < a.size(); ++i) {
      out.push_back(u' ');
      Append(a.name(i), depth);
      out.append(u"=\"");
      AppendEncoded(a.value(i), depth, utf8);
      out.push_back(u'"');
    }
    if (!node.childs_.empty()) {
      out.push_back(u'>');
      return true;
    }
    if (node.raw_value_.empty()) {
      out.append(u"/>");
      return false;
    }
    out.push_back(u'>');
    if (!node.attrs_.empty() && node.Attribut(u"ContentEncoding") == u"base64") {
      const std::u16string symbols = mStringTools::BytesToStr(
          mStringTools::Base64_Encode(mStringTools::StrToBytes(node.raw_value_), 1, 2));
      Append(mStringTools::SplitLines(symbols, 81), depth);
    } else {
      AppendEncoded(node.raw_value_, depth, utf8);
    }
    Close(node, depth);
    return false;
  }

  void Write(cXmlNode& top) {
    top.WakeUp(true);
    const bool utf8 = IsUtf8Name(top.XMLEncoding());
    if (!Open(top, 0, utf8)) return;
    struct Level {
      bool utf8;
      std::int32_t depth;
    };
    Walker::Run(
        top.Self(), Level{utf8, 0},
        [&](auto& parent, const XmlNodePtr& child, Level& level) {
          level.depth = parent.state.depth + 1;
          level.utf8 = parent.state.utf8;
          NewLine(level.depth, true);
          child->WakeUp(true);
          if (child->extras_ && !child->extras_->xml_encoding.empty())
            level.utf8 = IsUtf8Name(child->extras_->xml_encoding);
          return Open(*child, level.depth, level.utf8) ? xml::WalkStep::kDescend
                                                       : xml::WalkStep::kSkip;
        },
        [&](auto& stack) {
          const auto& done = stack.back();
          NewLine(done.state.depth);
          Close(*done.node, done.state.depth);
          return true;
        });
  }
};

std::u16string cXmlNode::XmlData() {
  return base::Trap(base::InProperty(u"cXmlNode.XmlData"), std::u16string(), [&] {
    const XmlNodePtr keep = Self();
    Writer writer;
    writer.Write(*this);
    return std::move(writer.out);
  });
}

std::u16string cXmlNode::BuiltXML() {
  return base::Trap(base::InProperty(u"cXmlNode.BuiltXML"), std::u16string(),
                    [&] { return XmlData(); });
}

std::u16string cXmlNode::EncodeText(std::u16string_view text) const {
  return base::Trap(base::InFunction(u"cXmlNode.EncodeText"), std::u16string(), [&] {
    std::u16string encoded = EncodeSpecialChars(text);
    if (IsUtf8Name(XMLEncoding()) && !Utf8Neutral(encoded)) encoded = Utf8Text(encoded);
    return encoded;
  });
}

std::u16string cXmlNode::Indent(std::u16string_view text, std::int32_t level,
                                std::u16string_view indent_string) {
  return base::Trap(base::InFunction(u"cXmlNode.Indent"), std::u16string(), [&] {
    if (level < 0) base::Raise(base::kInvalidCall);
    const std::u16string prefix =
        indent_string.empty() ? std::u16string()
                              : std::u16string(static_cast<std::size_t>(level), indent_string[0]);
    std::u16string out;
    out.reserve(text.size() + prefix.size() * (text.size() / 16 + 1));
    bool in_cdata = false;
    bool first = true;
    std::size_t from = 0;
    // Splitting an empty text gives no lines at all.
    while (!text.empty() && from <= text.size()) {
      std::size_t end = text.find(u"\r\n", from);
      if (end == std::u16string_view::npos) end = text.size();
      const std::u16string_view line = text.substr(from, end - from);
      if (!first) out.append(u"\r\n");
      first = false;
      if (!in_cdata) {
        out.append(prefix);
        if (line.find(kCdataOpen) != std::u16string_view::npos) in_cdata = true;
      }
      if (in_cdata && line.find(kCdataClose) != std::u16string_view::npos) in_cdata = false;
      out.append(line);
      from = end + 2;
    }
    return out;
  });
}
