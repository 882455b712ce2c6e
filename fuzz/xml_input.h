// How the cXmlNode fuzz targets turn bytes into text: the first byte chooses the reading (its
// low bit: each byte one character, so Latin-1 letters exercise the case folding and the code
// page; or UTF-8, for characters beyond) and whether a declaration's encoding is taken.
#pragma once

#include <cstdint>
#include <string>

#include "base/text.h"
#include "xml/node.h"

namespace fuzz_input {

struct Input {
  std::u16string text;
  bool take_encoding = false;
};

inline Input Read(const std::uint8_t* data, std::size_t size) {
  Input in;
  if (size == 0) return in;
  const std::uint8_t mode = data[0];
  const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  in.text = (mode & 1) ? base::Widen(bytes) : std::u16string(bytes.begin(), bytes.end());
  in.take_encoding = (mode & 2) != 0;
  return in;
}

// Whether writing the tree and reading it back gives the same tree but for the indentation
// after line breaks: false for names the writer cannot give back (empty, or holding "<", ">",
// "/", "=", quotes, "!", "?" or blanks; attribute names holding "<" or ">"), values holding
// "<![CDATA[" (written unescaped, to the end of the value when no "]]>" follows, while the reader
// pairs tags without regard to CDATA), and a "ContentEncoding" of "base64" in another case
// (decoded when read, not encoded when written).
inline bool WritesBackAsRead(const XmlNodePtr& top) {
  for (XmlNodePtr n = top; n; n = n->NextNode()) {
    if (n->RawValue().find(u"<![CDATA[") != std::u16string::npos) return false;
    const std::u16string content_encoding = n->Attribut(u"ContentEncoding");
    if (content_encoding != u"base64" && base::EqualNoCase(content_encoding, u"base64"))
      return false;
    for (std::int32_t i = 1; i <= n->AttrCount(); ++i) {
      const std::u16string name = n->AttrName(i);
      if (name.find_first_of(u"<>") != std::u16string::npos) return false;
      if (n->Attribut(name).find(u"<![CDATA[") != std::u16string::npos) return false;
    }
    const std::u16string name = n->Name();
    if (name.empty()) return false;
    for (char16_t c : name) {
      if (c == u'<' || c == u'>' || c == u'/' || c == u'=' || c == u'"' || c == u'\'' ||
          c == u' ' || c == u'\t' || c == u'\r' || c == u'\n' || c == u'!' || c == u'?')
        return false;
    }
  }
  return true;
}

}  // namespace fuzz_input
