#include "lang/lang.h"

#include "base/text.h"
#include "base/trap.h"

namespace {}  // namespace

XmlNodePtr cLang::Xml() const {
  return xml_;
}

void cLang::Xml(const XmlNodePtr& node) {
  base::Trap(base::InProperty(u"cLang.Xml"), [&] { xml_ = node; });
}

std::u16string cLang::LangID() const {
  return base::Trap(base::InProperty(u"cLang.LangID"), std::u16string(),
                    [&] { return xml_ ? xml_->Name() : std::u16string(); });
}

std::u16string cLang::LangName() const {
  return base::Trap(base::InProperty(u"cLang.LangName"), std::u16string(),
                    [&] { return xml_ ? xml_->Attribut(u"name") : std::u16string(); });
}

std::u16string cLang::GetString(std::u16string_view Key, std::u16string_view Default) {
  std::u16string result(Default);
  base::Trap(base::DansFunction(u"cLang.GetString"), [&] {
    if (!xml_) return;
    XmlNodePtr node = xml_;
    std::size_t start = 0;
    for (;;) {
      std::size_t dot = Key.find(u'.', start);
      std::u16string_view segment =
          Key.substr(start, dot == std::u16string_view::npos ? dot : dot - start);
      // A child only: a node named like the segment does not answer for itself.
      XmlNodePtr child = node->FindNode(segment, false, true);
      if (!child) {
        child = cXmlNode::Create();
        // A lookup without a default leaves the document as it was.
        if (!Default.empty()) {
          child->Name(segment);
          node->AddChild(child);
          xml_->ItemData = 1;
        }
      }
      node = child;
      if (dot == std::u16string_view::npos) break;
      start = dot + 1;
    }
    const std::u16string value = node->Value();
    if (value.empty() && !Default.empty()) {
      if (node->ChildCount() == 0) {
        xml_->ItemData = 1;
        node->Value(base::ReplaceAll(std::u16string(Default), u"\r\n", u"\\n"));
      }
      result = std::u16string(Default);
      return;
    }
    result = base::ReplaceAll(value, u"\\n", u"\r\n");
  });
  return result;
}

std::u16string cLang::LocalChildValue(const XmlNodePtr& Node, std::u16string_view ChildName) {
  return base::Trap(base::InProperty(u"cLang.LocalChildValue"), std::u16string(), [&] {
    cXmlNode& node = base::Need(Node);
    const std::u16string id = LangID();
    const std::u16string name(ChildName);
    if (node.ChildExists(name + u"." + id)) return node.ChildValue(name + u"." + id);
    if (id != u"en" && node.ChildExists(name + u".en")) return node.ChildValue(name + u".en");
    if (node.ChildExists(name)) {
      // The child, not Node itself when Node carries the same name.
      const XmlNodePtr plain = node.FindNode(name, false, true);
      std::u16string value = base::Need(plain).Value();
      plain->Name(name + u"." + id);
      return value;
    }
    const std::u16string prefix = name + u".";
    for (std::int32_t i = 1, n = node.ChildCount(); i <= n; ++i) {
      const XmlNodePtr child = node.Child(i);
      if (base::Need(child).Name().rfind(prefix, 0) == 0) return child->Value();
    }
    return std::u16string();
  });
}

void cLang::LocalChildValue(const XmlNodePtr& Node, std::u16string_view ChildName,
                            std::u16string_view Value) {
  base::Trap(base::InProperty(u"cLang.LocalChildValue"), [&] {
    base::Need(Node).ChildValue(std::u16string(ChildName) + u"." + LangID(), Value);
  });
}

namespace mLang {
cLang& Lang() {
  static cLang lang;
  return lang;
}
}  // namespace mLang
