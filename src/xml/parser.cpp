// cXmlNode: reading XML text into nodes.
//
// TODO(reader): the element parse and the full parse are not written yet. Until they are, an
// XmlData assignment keeps its text as the node's sleep text without reading it, and waking
// such a node fails (logged as "Error 5 ... in Sub cXmlNode.WakeUp") and leaves it asleep with
// its text. Nodes that are never given text never sleep, so nothing else is affected.
#include "base/trap.h"
#include "xml/node.h"

void cXmlNode::XmlData(std::u16string_view xml_data) {
  base::Trap(base::DansProperty(u"cXmlNode.XmlData"), [&] {
    sleep_ = xml::SleepText::Owned(xml_data);
    RaiseModified(std::u16string());
  });
}

void cXmlNode::ParseSleepText(const xml::SleepText& text, bool full) {
  base::Raise(base::kInvalidCall);
}
