// cXmlNode: reaching a descendant by a path of child names, creating the missing steps on
// request, and cutting a text into fixed-width fields.
#include "base/trap.h"
#include "xml/node.h"
#include "xml/node_internal.h"

namespace {

// The walk both path members share. Each step is looked up with FindNode, so a node whose own
// name is the step answers for itself; an empty step is looked up as an empty name, and an
// empty path has no steps at all.
XmlNodePtr WalkChildPath(const XmlNodePtr& start, std::u16string_view child_path, bool create,
                         bool recursive, std::u16string_view separator) {
  start->WakeUp(true);
  XmlNodePtr current = start;
  for (const std::u16string_view step : xml::detail::SplitText(child_path, separator)) {
    XmlNodePtr child = current->FindNode(step, recursive, false);
    if (!child) {
      if (!create) return nullptr;
      child = cXmlNode::Create();
      child->Name(step);
      current->AddChild(child);
    }
    current = std::move(child);
  }
  return current;
}

// Mid(text, start, length) with 1-based start: past the end gives "", a start below 1 or a
// negative length is an invalid call.
std::u16string Mid(std::u16string_view text, std::int32_t start, std::int32_t length) {
  if (start < 1 || length < 0) base::Raise(base::kInvalidCall);
  const auto from = static_cast<std::size_t>(start) - 1;
  if (from >= text.size()) return std::u16string();
  return std::u16string(text.substr(from, static_cast<std::size_t>(length)));
}

}  // namespace

std::u16string cXmlNode::GetChildValue(std::u16string_view child_path, bool create,
                                       std::u16string_view src_attribut) {
  return base::Trap(base::InFunction(u"cXmlNode.GetChildValue"), std::u16string(), [&] {
    const XmlNodePtr node = WalkChildPath(Self(), child_path, create, false, u".");
    if (!node) return std::u16string();
    return src_attribut.empty() ? node->Value() : node->Attribut(src_attribut);
  });
}

XmlNodePtr cXmlNode::GetChildNode(std::u16string_view child_path, bool create, bool recursive,
                                  std::u16string_view path_separator) {
  return base::Trap(base::InFunction(u"cXmlNode.GetChildNode"), XmlNodePtr(), [&] {
    return WalkChildPath(Self(), child_path, create, recursive, path_separator);
  });
}

std::vector<std::u16string> cXmlNode::FixSplit(std::u16string_view text,
                                               const std::vector<std::int32_t>& lengths,
                                               std::int32_t separator_length) {
  return base::Trap(base::InFunction(u"cXmlNode.FixSplit"), std::vector<std::u16string>(), [&] {
    std::vector<std::u16string> fields;
    fields.reserve(lengths.size());
    std::int32_t position = 1;
    for (const std::int32_t length : lengths) {
      fields.push_back(Mid(text, position, length));
      position = base::CheckedAdd(base::CheckedAdd(position, length), separator_length);
    }
    return fields;
  });
}
