// cXmlNode: moving around a tree: containment, siblings, document order and the root.
#include "base/trap.h"
#include "xml/node.h"
#include "xml/walk.h"

bool cXmlNode::Contains(const XmlNodePtr& node, bool recursive) {
  return base::Trap(base::InFunction(u"cXmlNode.Contains"), false, [&] {
    if (!node) return false;
    const cXmlNode* target = node.get();
    if (!recursive) return childs_.find(target) != ChildList::npos;
    // Quick answer along the node's own parent links, each one checked against the list of
    // the parent it names.
    for (const cXmlNode* n = target; n->parent_; n = n->parent_) {
      if (n->parent_->childs_.find(n) == ChildList::npos) break;
      if (n->parent_ == this) return true;
    }
    // Links and lists can disagree (a node whose link was cleared stays listed), so a "no"
    // is only trusted after a search of the subtree.
    return !Walker::Run(Self(), Walker::Empty{}, [&](auto&, const XmlNodePtr& child, auto&) {
      if (child.get() == target) return xml::WalkStep::kStop;
      return child->childs_.empty() ? xml::WalkStep::kSkip : xml::WalkStep::kDescend;
    });
  });
}

XmlNodePtr cXmlNode::PrevSibling() {
  return base::Trap(base::InProperty(u"cXmlNode.PrevSibling"), XmlNodePtr(), [&]() -> XmlNodePtr {
    const XmlNodePtr parent = Parent();
    const std::int32_t i = Index();
    if (!parent || i < 2) return nullptr;
    return parent->Child(i - 1);
  });
}

XmlNodePtr cXmlNode::NextSibling() {
  return base::Trap(base::InProperty(u"cXmlNode.NextSibling"), XmlNodePtr(), [&]() -> XmlNodePtr {
    const XmlNodePtr parent = Parent();
    if (!parent) return nullptr;
    // Note: a node its parent does not list has Index 0, so it answers the parent's first
    // child, as it always did.
    const std::int32_t i = Index();
    if (i >= parent->ChildCount()) return nullptr;
    return parent->Child(i + 1);
  });
}

XmlNodePtr cXmlNode::PrevNode() {
  return base::Trap(base::InProperty(u"cXmlNode.PrevNode"), XmlNodePtr(), [&] {
    XmlNodePtr previous = PrevSibling();
    return previous ? previous : Parent();
  });
}

XmlNodePtr cXmlNode::NextNode() {
  return base::Trap(base::InProperty(u"cXmlNode.NextNode"), XmlNodePtr(), [&]() -> XmlNodePtr {
    if (ChildCount() > 0) return Child(1);
    for (XmlNodePtr n = Self(); n; n = n->Parent()) {
      if (XmlNodePtr next = n->NextSibling()) return next;
    }
    return nullptr;
  });
}

XmlNodePtr cXmlNode::RootNode() {
  return base::Trap(base::InProperty(u"cXmlNode.RootNode"), XmlNodePtr(), [&] {
    cXmlNode* root = this;
    while (root->parent_) root = root->parent_;
    return root == this ? Self() : NodeFromPtr(root);
  });
}
