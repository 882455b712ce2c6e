#include "sys/config.h"

#include <vector>

#include "base/trap.h"
#include "files/text_file.h"
#include "sys/program.h"
#include "text/msgbox.h"

namespace mGlobal {
namespace {

constexpr std::u16string_view kRootName = u"TarvelUSBEject";

XmlNodePtr& Tree() {
  static XmlNodePtr tree;
  if (!tree) tree = cXmlNode::Create();
  return tree;
}

std::vector<std::u16string_view> SplitPath(std::u16string_view path) {
  std::vector<std::u16string_view> names;
  std::size_t start = 0;
  for (;;) {
    std::size_t dot = path.find(u'.', start);
    names.push_back(path.substr(start, dot == std::u16string_view::npos ? dot : dot - start));
    if (dot == std::u16string_view::npos) return names;
    start = dot + 1;
  }
}

// The element at path, or nothing when one on the way is missing.
XmlNodePtr Walk(std::u16string_view path) {
  XmlNodePtr node = Tree();
  for (std::u16string_view name : SplitPath(path)) {
    node = node->FindNode(name);
    if (!node) return nullptr;
  }
  return node;
}

}  // namespace

const XmlNodePtr& ConfigTree() {
  return Tree();
}

std::u16string ConfigFileName() {
  return InProgramFolder(ProgramBaseName() + u".xml");
}

bool LoadConfig() {
  const std::u16string file = ConfigFileName();
  mStringTools::RecoverInterruptedSave(file);
  // Each load starts from an empty tree: nothing of an earlier load (its root, its unsaved
  // changes) may make a bad file look valid or be written over the new one.
  Tree() = cXmlNode::Create();
  Tree()->XmlData(mGlobal::LoadTextFile(file));
  if (Tree()->Name() != kRootName) {
    mUnicodePatch::MsgBox(u"Invalid configuration file", 16, u"");
    return false;
  }
  return true;
}

void SaveConfig() {
  base::Trap(base::InSub(u"mGlobal.SaveConfig"), [] {
    if (Tree()->ItemData == 0) return;
    const std::u16string text = Tree()->XmlData();
    mStringTools::SaveFile(ConfigFileName(), text, true, 2, false, 1252, 0, false, u"", 0, 5);
    Tree()->ItemData = 0;
  });
}

std::u16string GetConfigValue(std::u16string_view path) {
  XmlNodePtr node = Walk(path);
  return node ? node->Value() : std::u16string();
}

void SetConfigValue(std::u16string_view path, std::u16string_view value) {
  XmlNodePtr node = Tree();
  for (std::u16string_view name : SplitPath(path)) {
    XmlNodePtr next = node->FindNode(name);
    if (!next) {
      next = cXmlNode::Create();
      next->Name(name);
      node->AddChild(next);
    }
    node = next;
  }
  node->Value(value);
  Tree()->ItemData = 1;
}

std::u16string GetConfigAttribute(std::u16string_view path, std::u16string_view name) {
  XmlNodePtr node = Walk(path);
  return node ? node->Attribut(name) : std::u16string();
}

std::u16string SetConfigAttribute(std::u16string_view path, std::u16string_view name,
                                  std::u16string_view value) {
  XmlNodePtr node = Walk(path);
  if (node) {
    node->Attribut(name, value);
    Tree()->ItemData = 1;
  }
  return std::u16string();
}

}  // namespace mGlobal
