// cXmlNode's lazy path: XmlData assignment, then every node woken one level at a time; the
// tree must be the one the full path builds from the same text (they read declarations
// differently, so texts with "<?xml", also one that cutting comments joins, are only read). Never a
// crash, a hang or a leak.
#include <cstdio>
#include <cstdlib>

#include "xml/comment_cut.h"
#include "xml/node.h"
#include "xml/xml_test_util.h"
#include "xml_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz_input::Input in = fuzz_input::Read(data, size);
  const std::int64_t live = cXmlNode::LiveNodeCount();
  {
    XmlNodePtr lazy = cXmlNode::Create();
    lazy->IgnoreDataXmlEncoding = !in.take_encoding;
    lazy->XmlData(in.text);
    const std::u16string tree = xml_test::Dump(lazy);
    const bool declarations =
        in.text.find(u"<?xml") != std::u16string::npos ||
        xml::DeleteRemsOnePass(in.text, u"<!--", u"-->").find(u"<?xml") != std::u16string::npos;
    if (!declarations) {
      XmlNodePtr full = cXmlNode::Create();
      full->IgnoreDataXmlEncoding = !in.take_encoding;
      full->XmlData___NonRecursif(in.text);
      // The full path starts from an empty name; the lazy one keeps the node's (empty too).
      if (xml_test::Dump(full) != tree) {
        std::fprintf(stderr, "MISMATCH: lazy and full trees differ\n");
        std::abort();
      }
    }
    // A second, full wake-up of a fresh lazy node reads the same.
    XmlNodePtr again = cXmlNode::Create();
    again->IgnoreDataXmlEncoding = !in.take_encoding;
    again->XmlData(in.text);
    again->WakeUp(true);
    if (!declarations && xml_test::Dump(again) != tree) {
      std::fprintf(stderr, "MISMATCH: lazy tree and full wake-up differ\n");
      std::abort();
    }
  }
  if (cXmlNode::LiveNodeCount() != live) {
    std::fprintf(stderr, "MISMATCH: nodes left alive\n");
    std::abort();
  }
  return 0;
}
