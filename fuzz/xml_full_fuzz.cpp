// cXmlNode's full path: XmlData___NonRecursif on any text, then the tree counted, written,
// put to sleep and woken (the same count where the tree writes back as read), sorted and
// released. Never a crash, a hang or a leak.
#include <cstdio>
#include <cstdlib>

#include "xml/node.h"
#include "xml_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz_input::Input in = fuzz_input::Read(data, size);
  const std::int64_t live = cXmlNode::LiveNodeCount();
  {
    XmlNodePtr root = cXmlNode::Create();
    root->IgnoreDataXmlEncoding = !in.take_encoding;
    root->XmlData___NonRecursif(in.text);
    const std::int32_t count = root->NodeCount();
    const std::u16string text = root->XmlData();
    const bool comparable = fuzz_input::WritesBackAsRead(root);
    root->Sleep();
    if (comparable && root->NodeCount() != count) {
      std::fprintf(stderr, "MISMATCH: sleeping and waking changed the node count\n");
      std::abort();
    }
    root->SortChilds(u"name,a:id", true, -1, false);
    root->Release();
  }
  if (cXmlNode::LiveNodeCount() != live) {
    std::fprintf(stderr, "MISMATCH: nodes left alive\n");
    std::abort();
  }
  return 0;
}
