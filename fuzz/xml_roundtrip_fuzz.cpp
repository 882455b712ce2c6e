// Reading, writing and reading again gives the same tree, but for the spots the format loses
// on purpose: the blanks after a line break inside a text or a name (the writer drops them from
// texts, then indents every line by its depth); names the writer cannot give back as they were read
// (empty, or with
// "<", ">", "/", "=", quotes or blanks in them), and attribute names with "<" or ">" (names are
// written unescaped); and a "ContentEncoding" of "base64" in another case, which the reader
// decodes and the writer does not encode; and values holding "<![CDATA[", which the
// writer copies unescaped (to the end of the value when no "]]>" follows) while the reader
// pairs tags without regard to CDATA. Such trees are only written and read.
#include <cstdio>
#include <cstdlib>

#include "base/text.h"
#include "xml/node.h"
#include "xml/xml_test_util.h"
#include "xml_input.h"

namespace {

// A text with the blanks after each CR LF removed.
std::u16string WithoutIndentation(const std::u16string& dump) {
  std::u16string out;
  for (std::size_t i = 0; i < dump.size(); ++i) {
    out.push_back(dump[i]);
    if (dump[i] == u'\n' && i > 0 && dump[i - 1] == u'\r') {
      while (i + 1 < dump.size() && (dump[i + 1] == u' ' || dump[i + 1] == u'\t')) ++i;
    }
  }
  return out;
}

std::u16string Normalised(const XmlNodePtr& n) {
  return WithoutIndentation(xml_test::Dump(n));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz_input::Input in = fuzz_input::Read(data, size);
  XmlNodePtr first = cXmlNode::Create();
  first->XmlData___NonRecursif(in.text);
  const std::u16string text = first->XmlData();
  XmlNodePtr second = cXmlNode::Create();
  second->XmlData(text);
  const std::u16string again = second->XmlData();
  if (!fuzz_input::WritesBackAsRead(first)) return 0;
  if (Normalised(first) != Normalised(second)) {
    std::fprintf(stderr, "MISMATCH: the tree read back differs\n");
    std::abort();
  }
  if (WithoutIndentation(again) != WithoutIndentation(text)) {
    std::fprintf(stderr, "MISMATCH: writing the tree read back gives another text\n");
    std::abort();
  }
  return 0;
}
