// cXmlNode::Path: a node named by its place in the tree ("root.section.item").
#include "base/trap.h"
#include "xml/node.h"
#include "xml/node_internal.h"

std::u16string cXmlNode::Path(std::u16string_view attribut, std::u16string_view sep,
                              const XmlNodePtr& path_root_node) {
  // Segments from this node upwards; joined at the end, so a deep chain costs one pass.
  std::vector<std::u16string> segments;
  const bool complete = base::Trap(base::DansProperty(u"cXmlNode.Path"), [&] {
    const std::vector<std::u16string_view> names = xml::detail::SplitText(attribut, u"|");
    const cXmlNode* stop = path_root_node.get();
    for (const cXmlNode* node = this; node != stop; node = node->parent_) {
      // A stop node that is not an ancestor: the walk runs past the top.
      if (!node) base::Raise(base::kObjectNotSet);
      std::u16string segment = node->name_;
      for (const std::u16string_view name : names) {
        const std::u16string value = node->Attribut(name);
        if (!value.empty()) {
          segment.append(u"-").append(value);
          break;
        }
      }
      segments.push_back(std::move(segment));
    }
  });
  std::u16string path;
  std::size_t size = 0;
  for (const auto& s : segments) size += s.size() + sep.size();
  path.reserve(size);
  for (auto it = segments.rbegin(); it != segments.rend(); ++it) path.append(*it).append(sep);
  // The final separator is cut only when the walk completed: a failed one hands back what it
  // had built, separator and all.
  if (complete && !path.empty()) path.resize(path.size() - sep.size());
  return path;
}
