// cXmlNode: waking a sleeping node, breaking a tree up, and counting who holds its nodes.
#include "base/trap.h"
#include "xml/node.h"

bool cXmlNode::IsSleeping() const {
  return base::Trap(base::InProperty(u"cXmlNode.IsSleeping"), false,
                    [&] { return !sleep_.empty(); });
}

void cXmlNode::WakeUp(bool full_wakeup) {
  if (sleep_.empty()) return;  // the common case, on every read: no trap needed
  base::Trap(base::InSub(u"cXmlNode.WakeUp"), [&] {
    const XmlNodePtr keep = Self();
    // Rebuilding the subtree is not a change anyone should hear about.
    event_lock_flag_ = true;
    struct Unlock {
      bool& flag;
      ~Unlock() { flag = false; }
    } unlock{event_lock_flag_};
    // The node counts as awake from here on, so the members the reader calls on it, and any
    // handler of RestoreSleepData that reads it, do not start another wake-up.
    xml::SleepText text = std::move(sleep_);
    sleep_.clear();
    try {
      if (text.IsStoredMarker()) {
        std::u16string data;
        RequestRestoreSleepData(data);
        text = xml::SleepText::Owned(std::move(data));
      }
      ParseSleepText(text, full_wakeup);
    } catch (...) {
      // Still asleep: the text stays for a later attempt.
      if (sleep_.empty()) sleep_ = std::move(text);
      throw;
    }
  });
}

void cXmlNode::Release() {
  base::Trap(base::InSub(u"cXmlNode.Release"), [&] {
    const XmlNodePtr keep = Self();
    attrs_.reset();
    DelChilds(nullptr);
    // Only the link: the former parent still lists this node.
    parent_ = nullptr;
    sleep_.clear();
  });
}

std::int32_t cXmlNode::ExternalRefCount() {
  return base::Trap(base::InFunction(u"cXmlNode.ExternalRefCount"), std::int32_t{0}, [&] {
    // Every node below counts its holders other than its parent's list entry; a sleeping node
    // has nothing below it in memory. Read through plain pointers, so that the walk itself
    // holds nothing.
    std::int64_t total = 0;
    std::vector<const cXmlNode*> stack{this};
    while (!stack.empty()) {
      const cXmlNode* node = stack.back();
      stack.pop_back();
      if (!node->sleep_.empty()) continue;
      for (const auto& child : node->childs_) {
        total += child.use_count() - 1;
        if (!child->childs_.empty()) stack.push_back(child.get());
      }
    }
    if (total > INT32_MAX) base::Raise(base::kOverflow);
    return static_cast<std::int32_t>(total);
  });
}

std::int32_t cXmlNode::GetRefCount(const XmlNodePtr& node) {
  return base::Trap(base::InFunction(u"cXmlNode.GetRefCount"), std::int32_t{0}, [&] {
    if (!node) return std::int32_t{0};
    return static_cast<std::int32_t>(node.use_count());
  });
}
