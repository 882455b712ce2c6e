// cXmlNode: waking a sleeping node, breaking a tree up, and counting who holds its nodes.
#include "base/trap.h"
#include "xml/node.h"
#include "xml/node_internal.h"
#include "xml/walk.h"

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
    // Every node below counts its holders other than its parent's list entry and the walk's
    // own reference; a sleeping node has nothing below it in memory.
    std::int64_t total = 0;
    if (sleep_.empty()) {
      Walker::Run(Self(), Walker::Empty{}, [&](auto&, const XmlNodePtr& child, auto&) {
        total += child.use_count() - 2;
        return child->childs_.empty() || !child->sleep_.empty() ? xml::WalkStep::kSkip
                                                                : xml::WalkStep::kDescend;
      });
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
    // Each node is judged at its own turn, as if Sleep were called on it: when nothing outside
    // the tree holds a node below it, it sleeps whole; otherwise it stays awake and its
    // children take their turns in order. Counting the holders below a node costs its subtree,
    // so the counts of a whole subtree are taken in one pass (the nodes listed level by level,
    // each node's children together after it, summed from the back) and kept while they hold.
    // Only a handler can change them (one told of a node's sleep text may take a reference or
    // drop one), so after a node has gone to sleep with anyone listening, the next turn counts
    // again. The turns hold their nodes weakly: holding them would count as holding.
    struct Entry {
      cXmlNode* node;
      std::size_t parent;
      std::size_t first_child = 0;
      std::size_t child_count = 0;
      std::int64_t external = 0;
    };
    std::vector<Entry> counts;
    std::uint64_t counted = 0;  // which counting `counts` holds; 0: none that still holds
    std::uint64_t countings = 0;
    const auto count_below = [&](cXmlNode* top) {
      counts.assign(1, Entry{top, 0});
      for (std::size_t i = 0; i < counts.size(); ++i) {
        cXmlNode* node = counts[i].node;
        if (!node->sleep_.empty()) continue;
        counts[i].first_child = counts.size();
        counts[i].child_count = node->childs_.size();
        for (const auto& child : node->childs_) counts.push_back({child.get(), i});
      }
      for (std::size_t i = counts.size(); i-- > 1;) {
        const Entry& e = counts[i];
        // Holders besides the parent's list entry and the reference taken to ask.
        counts[e.parent].external += e.external + (e.node->Self().use_count() - 2);
      }
      counted = ++countings;
    };
    struct Turn {
      std::weak_ptr<cXmlNode> node;
      std::size_t entry;      // its place in `counts`, when
      std::uint64_t counted;  // ... that counting still holds
    };
    std::vector<Turn> turns{{weak_from_this(), 0, 0}};
    while (!turns.empty()) {
      const Turn turn = std::move(turns.back());
      turns.pop_back();
      const XmlNodePtr node = turn.node.lock();
      if (!node || !node->sleep_.empty()) continue;
      std::size_t entry = turn.entry;
      if (turn.counted == 0 || turn.counted != counted || counts[entry].node != node.get()) {
        count_below(node.get());
        entry = 0;
      }
      if (counts[entry].external != 0) {
        const Entry& e = counts[entry];
        if (e.child_count != node->childs_.size()) counted = 0;  // changed since: count again
        for (std::size_t k = node->childs_.size(); k-- > 0;) {
          turns.push_back({node->childs_[k], e.first_child + k, counted});
        }
        continue;
      }
      const auto fall_asleep = [&node] {
        std::u16string text = node->XmlData();
        if (text.empty()) base::Raise(base::kInvalidCall);  // the writer failed: stay awake
        node->sleep_ = xml::SleepText::Owned(std::move(text));
        node->DropChildList();
        node->RequestSaveSleepData();
      };
      if (node.get() == this) {
        fall_asleep();
      } else {
        base::Trap(base::InSub(u"cXmlNode.Sleep"), fall_asleep);
      }
      if (AnyListeners()) counted = 0;
    }
  });
}
