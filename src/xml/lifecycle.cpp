// cXmlNode: waking a sleeping node, breaking a tree up, and counting who holds its nodes.
#include "base/trap.h"
#include "xml/node.h"
#include "xml/node_internal.h"

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
    attrs_.clear();
    DelChilds(nullptr);
    // Only the link: the former parent still lists this node.
    parent_ = nullptr;
    ++xml::detail::tree_epoch;
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

void cXmlNode::Sleep() {
  base::Trap(base::InSub(u"cXmlNode.Sleep"), [&] {
    const XmlNodePtr keep = Self();
    // Who holds what, counted once for the whole subtree: the nodes are listed level by level
    // (each node's children together, after it), so every count can be summed from the back.
    // A node nobody holds below goes to sleep whole; one that is held stays awake and its
    // children are tried in order, as if Sleep were called on each.
    struct Entry {
      cXmlNode* node;
      std::size_t parent;
      std::size_t first_child = 0;
      std::size_t child_count = 0;
      std::int64_t external = 0;
    };
    std::vector<Entry> order{{this, 0}};
    for (std::size_t i = 0; i < order.size(); ++i) {
      cXmlNode* node = order[i].node;
      if (!node->sleep_.empty()) continue;
      order[i].first_child = order.size();
      order[i].child_count = node->childs_.size();
      for (const auto& child : node->childs_) order.push_back({child.get(), i});
    }
    for (std::size_t i = order.size(); i-- > 1;) {
      const Entry& e = order[i];
      // Holders besides the parent's list entry and the reference taken to ask.
      order[e.parent].external += e.external + (e.node->Self().use_count() - 2);
    }
    std::vector<std::size_t> to_visit{0};
    while (!to_visit.empty()) {
      const Entry& e = order[to_visit.back()];
      to_visit.pop_back();
      if (e.external != 0) {
        for (std::size_t k = e.child_count; k-- > 0;) to_visit.push_back(e.first_child + k);
        continue;
      }
      cXmlNode* node = e.node;
      if (!node->sleep_.empty()) continue;
      const auto fall_asleep = [node] {
        const XmlNodePtr hold = node->Self();
        std::u16string text = node->XmlData();
        if (text.empty()) base::Raise(base::kInvalidCall);  // the writer failed: stay awake
        node->sleep_ = xml::SleepText::Owned(std::move(text));
        node->DropChildList();
        node->RequestSaveSleepData();
      };
      if (node == this) {
        fall_asleep();
      } else {
        base::Trap(base::InSub(u"cXmlNode.Sleep"), fall_asleep);
      }
    }
  });
}
