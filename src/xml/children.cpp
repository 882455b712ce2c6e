// cXmlNode: the members that work on children: counts and lookups, child values and
// attributes by name, adding, moving, deleting and copying subtrees, and the FindNode query
// language.
//
// Every walk below a node is a loop with an explicit stack. Where the members were recursive
// procedures, each stack frame stands for one call, in the same order, and a failure inside a
// frame ends that frame only (its trap line is written) while its caller goes on, as the
// nested calls did.
#include <algorithm>
#include <utility>

#include "base/text.h"
#include "base/trap.h"
#include "xml/node.h"
#include "xml/node_internal.h"

namespace {

bool IsRealChild(std::size_t position, std::size_t count) {
  return position >= 1 && position <= count;
}

}  // namespace

// A FindNode query taken apart once: the whole text, and its halves around the first "=".
struct cXmlNode::Query {
  explicit Query(std::u16string_view text) : whole(text) {
    const std::size_t eq = text.find(u'=');
    has_eq = eq != std::u16string_view::npos;
    left = has_eq ? text.substr(0, eq) : text;
    right = has_eq ? text.substr(eq + 1) : std::u16string_view();
    // The prefix is tested exactly: "A:id" is a plain name.
    attr_form = text.starts_with(u"a:");
    if (attr_form) attr_name = left.substr(2);
  }
  std::u16string_view whole;
  std::u16string_view left;
  std::u16string_view right;
  std::u16string_view attr_name;
  bool has_eq = false;
  bool attr_form = false;
};

bool cXmlNode::MatchesQuery(const Query& query, bool full_test) const {
  const auto attribut_matches = [&] {
    const std::size_t i = FindAttribut(query.attr_name);
    const std::u16string_view value = i < attrs_.size() ? attrs_.value(i) : std::u16string_view();
    return base::EqualNoCase(value, query.right);
  };
  if (!full_test) {
    // Children in the non-recursive search: the "a:" form or the name alone.
    return query.attr_form ? attribut_matches() : base::EqualNoCase(name_, query.whole);
  }
  if (base::EqualNoCase(name_, query.whole)) return true;
  if (query.attr_form) return attribut_matches();
  if (query.has_eq) return base::EqualNoCase(name_, query.left) && ValueView() == query.right;
  return false;
}

// ---- Counts and lookups -------------------------------------------------------------------

std::int32_t cXmlNode::ChildCount() {
  return base::Trap(base::InProperty(u"cXmlNode.ChildCount"), std::int32_t{0}, [&] {
    WakeUp(false);
    return static_cast<std::int32_t>(childs_.size());
  });
}

XmlNodePtr cXmlNode::Child(std::int32_t position) {
  return base::Trap(base::InProperty(u"cXmlNode.Child"), XmlNodePtr(), [&] {
    WakeUp(true);
    if (position < 1 || static_cast<std::size_t>(position) > childs_.size()) {
      base::Raise(base::kSubscriptOutOfRange);
    }
    return childs_[static_cast<std::size_t>(position) - 1];
  });
}

std::int32_t cXmlNode::NodeCount() {
  return base::Trap(base::InProperty(u"cXmlNode.NodeCount"), std::int32_t{0}, [&] {
    WakeUp(true);
    std::int32_t count = 0;
    struct Frame {
      XmlNodePtr node;
      std::size_t next;
    };
    std::vector<Frame> stack;
    stack.push_back({Self(), 0});
    while (!stack.empty()) {
      Frame& top = stack.back();
      if (top.next >= top.node->childs_.size()) {
        stack.pop_back();
        continue;
      }
      XmlNodePtr child = top.node->childs_[top.next++];
      count = base::CheckedAdd(count, 1);
      child->WakeUp(true);
      if (!child->childs_.empty()) stack.push_back({std::move(child), 0});
    }
    return count;
  });
}

bool cXmlNode::ChildExists(std::u16string_view name) {
  return base::Trap(base::InFunction(u"cXmlNode.ChildExists"), false, [&] {
    WakeUp(true);
    for (const auto& child : childs_) {
      if (base::EqualNoCase(child->name_, name)) return true;
    }
    return false;
  });
}

std::u16string cXmlNode::ChildValue(std::u16string_view name) {
  return base::Trap(base::InProperty(u"cXmlNode.ChildValue"), std::u16string(), [&] {
    WakeUp(true);
    for (const auto& child : childs_) {
      if (base::EqualNoCase(child->name_, name)) return child->Value();
    }
    return std::u16string();
  });
}

void cXmlNode::ChildValue(std::u16string_view name, std::u16string_view value) {
  base::Trap(base::InProperty(u"cXmlNode.ChildValue"), [&] {
    WakeUp(true);
    for (const auto& child : childs_) {
      if (base::EqualNoCase(child->name_, name)) {
        const XmlNodePtr keep = child;
        keep->Value(value);
        return;
      }
    }
    if (value.empty()) return;
    const XmlNodePtr node = Create();
    node->Name(name);
    node->Value(value);
    AddChild(node);
  });
}

std::u16string cXmlNode::ChildAttribut(std::u16string_view child_name,
                                       std::u16string_view attribut) {
  return base::Trap(base::InProperty(u"cXmlNode.ChildAttribut"), std::u16string(), [&] {
    WakeUp(true);
    const XmlNodePtr node = FindNode(child_name, false, false);
    return node ? node->Attribut(attribut) : std::u16string();
  });
}

void cXmlNode::ChildAttribut(std::u16string_view child_path, std::u16string_view attribut,
                             std::u16string_view value) {
  base::Trap(base::InProperty(u"cXmlNode.ChildAttribut"), [&] {
    WakeUp(true);
    const XmlNodePtr node = GetChildNode(child_path, true, false, u".");
    if (!node) base::Raise(base::kObjectNotSet);
    node->Attribut(attribut, value);
  });
}

// ---- Adding and moving --------------------------------------------------------------------

std::int32_t cXmlNode::AddChild(const XmlNodePtr& child, std::optional<std::int32_t> before,
                                std::optional<std::int32_t> after) {
  return base::Trap(base::DansFunction(u"cXmlNode.AddChild"), std::int32_t{0}, [&] {
    WakeUp(true);
    // Our own reference: the caller's may be an entry of a list this call changes.
    const XmlNodePtr node = child;
    if (!node) base::Raise(base::kObjectNotSet);
    // A node cannot go under itself or under its own descendant. Only a node that has
    // children, or is some node's parent link without listing it, can be an ancestor, so the
    // walk up is needed only then: building a tree from the top or from the bottom never pays
    // for it.
    if (node.get() == this ||
        ((!node->childs_.empty() || node->parent_of_orphan_) && IsAncestorOrSelf(node.get()))) {
      base::Raise(base::kInvalidCall);
    }
    node->SetParentLink(this);
    // The link is made before the list takes the node, as it always was: a refused position
    // leaves the node pointing here without being listed, and this node marked for it.
    const bool was_parent_of_orphan = parent_of_orphan_;
    parent_of_orphan_ = true;
    const std::size_t count = childs_.size();
    if (before && after) base::Raise(base::kInvalidCall);
    if (before) {
      if (*before < 1 || !IsRealChild(static_cast<std::size_t>(*before), count)) {
        base::Raise(base::kSubscriptOutOfRange);
      }
      childs_.insert(static_cast<std::size_t>(*before) - 1, node);
    } else if (after) {
      if (*after < 1 || !IsRealChild(static_cast<std::size_t>(*after), count)) {
        base::Raise(base::kSubscriptOutOfRange);
      }
      childs_.insert(static_cast<std::size_t>(*after), node);
    } else {
      childs_.push_back(node);
    }
    parent_of_orphan_ = was_parent_of_orphan;
    node->RaiseAdded();
    return static_cast<std::int32_t>(childs_.size());
  });
}

XmlNodePtr cXmlNode::CreateChild(std::u16string_view xml_data, std::optional<std::int32_t> before,
                                 std::optional<std::int32_t> after) {
  return base::Trap(base::InFunction(u"cXmlNode.CreateChild"), XmlNodePtr(), [&] {
    const XmlNodePtr node = Create();
    node->XmlData(xml_data);
    AddChild(node, before, after);
    return node;
  });
}

void cXmlNode::AppendChildQuiet(XmlNodePtr child) {
  child->parent_ = this;
  childs_.push_back(std::move(child));
}

void cXmlNode::DropChildList() {
  if (childs_.empty()) return;
  parent_of_orphan_ = true;
  // Let the list go the way the destructor does, without one nested destructor per level.
  std::vector<XmlNodePtr> work = childs_.take_all();
  while (!work.empty()) {
    XmlNodePtr node = std::move(work.back());
    work.pop_back();
    if (node.use_count() == 1 && !node->childs_.empty()) {
      node->parent_ = nullptr;
      for (auto& g : node->childs_.take_all()) {
        g->parent_ = nullptr;
        work.push_back(std::move(g));
      }
    }
  }
}

void cXmlNode::EmancipateChildAt(std::size_t index) {
  const XmlNodePtr child = childs_[index];
  child->parent_ = nullptr;
  ++xml::detail::tree_epoch;
  childs_.erase(index);
}

void cXmlNode::EmancipateChild(const XmlNodePtr& child) {
  base::Trap(base::DansSub(u"cXmlNode.ChildEmancipate"), [&] {
    WakeUp(true);
    if (!child) return;
    const std::size_t pos = childs_.find(child.get());
    if (pos != ChildList::npos) EmancipateChildAt(pos);
  });
}

void cXmlNode::EmancipateChild(double position) {
  base::Trap(base::DansSub(u"cXmlNode.ChildEmancipate"), [&] {
    WakeUp(true);
    const std::int32_t i = xml::detail::RoundToInt32(position);
    if (i < 1 || static_cast<std::size_t>(i) > childs_.size()) {
      base::Raise(base::kSubscriptOutOfRange);
    }
    EmancipateChildAt(static_cast<std::size_t>(i) - 1);
  });
}

void cXmlNode::EmancipateChild(std::u16string_view position) {
  base::Trap(base::DansSub(u"cXmlNode.ChildEmancipate"), [&] {
    WakeUp(true);
    const std::int32_t i = xml::detail::RoundToInt32(xml::detail::TextToNumber(position));
    if (i < 1 || static_cast<std::size_t>(i) > childs_.size()) {
      base::Raise(base::kSubscriptOutOfRange);
    }
    EmancipateChildAt(static_cast<std::size_t>(i) - 1);
  });
}

// ---- Deleting -----------------------------------------------------------------------------

void cXmlNode::DelChild(const XmlNodePtr& child) {
  base::Trap(base::DansSub(u"cXmlNode.DelChild"), [&] {
    if (!child) return;
    WakeUp(true);
    const std::size_t pos = childs_.find(child.get());
    if (pos != ChildList::npos) DeleteChildAt(pos);
  });
}

void cXmlNode::DelChild(double position) {
  base::Trap(base::DansSub(u"cXmlNode.DelChild"), [&] { DelChildAtPosition(position); });
}

void cXmlNode::DelChild(std::u16string_view position) {
  base::Trap(base::DansSub(u"cXmlNode.DelChild"),
             [&] { DelChildAtPosition(xml::detail::TextToNumber(position)); });
}

void cXmlNode::DelChildAtPosition(double position) {
  WakeUp(true);
  const std::int32_t i = xml::detail::RoundToInt32(position);
  if (i < 1 || static_cast<std::size_t>(i) > childs_.size()) {
    base::Raise(base::kSubscriptOutOfRange);
  }
  DeleteChildAt(static_cast<std::size_t>(i) - 1);
}

void cXmlNode::DeleteChildAt(std::size_t index) {
  const XmlNodePtr self = Self();
  const XmlNodePtr top = childs_[index];

  // Who hears a deletion is found by the parent links as they are when it is raised. Walking
  // them up from every node of a deep subtree would cost its depth each time, so what the walk
  // finds is kept: the listening ancestors above this node, whether this node's chain is locked,
  // and for the chain of nodes being deleted (the frames) which of them listen and which are
  // locked, each frame adding its own flag and, when it listens, itself. A handler that
  // subscribes a listener or moves a node while it is told moves the tree's epoch; the kept
  // answer is then found again before the next raise, so the rest of the delete is told the way
  // the links and listeners then stand.
  struct Frame {
    XmlNodePtr node;
    bool locked;
  };
  std::vector<Frame> frames;
  std::vector<cXmlNode*> listening_frames;  // outermost first
  std::vector<XmlNodePtr> listening_above;  // nearest first
  std::vector<cXmlNode*> ancestors;         // scratch: listening ancestors, nearest first
  bool locked_above = false;
  // Whether each frame still hangs under the one before it (the first under this node); when a
  // handler has moved one, each raise walks the links itself.
  bool linked = true;
  std::uint64_t seen = xml::detail::tree_epoch - 1;  // nothing found yet

  const auto survey = [&] {
    seen = xml::detail::tree_epoch;
    listening_above.clear();
    listening_frames.clear();
    locked_above = EventLock();
    if (!locked_above) {
      for (cXmlNode* a = this; a; a = a->parent_) {
        if (a->listening_) listening_above.push_back(a->Self());
      }
    }
    linked = true;
    bool locked = locked_above;
    const cXmlNode* below = this;
    for (Frame& f : frames) {
      linked = linked && f.node->parent_ == below;
      locked = locked || f.node->event_lock_flag_;
      f.locked = locked;
      if (f.node->listening_) listening_frames.push_back(f.node.get());
      below = f.node.get();
    }
  };
  const auto push = [&](XmlNodePtr node, bool locked_parent) {
    node->Deleted = true;
    const bool locked = locked_parent || node->event_lock_flag_;
    if (node->listening_) listening_frames.push_back(node.get());
    frames.push_back({std::move(node), locked});
  };
  push(top, false);

  while (!frames.empty()) {
    Frame& frame = frames.back();
    // "While the node has children, delete its first child": the subtree goes depth-first,
    // each level woken one step at a time, as the child count wakes it.
    frame.node->WakeUp(false);
    if (!frame.node->childs_.empty()) {
      XmlNodePtr first = frame.node->childs_.front();
      push(std::move(first), frame.locked);
      continue;
    }
    const bool events = AnyListeners();
    if (events && seen != xml::detail::tree_epoch) survey();
    Frame done = std::move(frames.back());
    frames.pop_back();
    if (!listening_frames.empty() && listening_frames.back() == done.node.get()) {
      listening_frames.pop_back();
    }
    if (events && !linked) {
      done.node->RaiseDeleted(done.node->EventLock(), nullptr);
    } else if (events && !done.locked) {
      ancestors.assign(listening_frames.rbegin(), listening_frames.rend());
      for (const auto& a : listening_above) ancestors.push_back(a.get());
      done.node->RaiseDeleted(false, &ancestors);
    }
    cXmlNode* owner = frames.empty() ? this : frames.back().node.get();
    // Taking the deleted node off its chain changes nothing of what was found for the rest.
    const bool current = seen == xml::detail::tree_epoch;
    done.node->parent_ = nullptr;
    if (current) seen = ++xml::detail::tree_epoch;
    const std::size_t pos = owner->childs_.find(done.node.get());
    if (pos != ChildList::npos) owner->childs_.erase(pos);
  }
}

void cXmlNode::DelChilds(const XmlNodePtr& rules) {
  base::Trap(base::InSub(u"cXmlNode.DelChilds"), [&] {
    WakeUp(true);
    if (!rules) {
      for (std::size_t i = childs_.size(); i >= 1; --i) DelChild(static_cast<double>(i));
      return;
    }
    // One frame per node searched: the position it looks at next, counting down.
    constexpr std::size_t kNotStarted = static_cast<std::size_t>(-1);
    struct Frame {
      XmlNodePtr node;
      std::size_t next;
    };
    std::vector<Frame> frames;
    frames.push_back({Self(), childs_.size()});
    while (!frames.empty()) {
      const XmlNodePtr node = frames.back().node;
      const std::size_t next = frames.back().next;
      if (next == 0) {
        frames.pop_back();
        continue;
      }
      const bool ok = base::Trap(base::InSub(u"cXmlNode.DelChilds"), [&] {
        if (next == kNotStarted) {
          node->WakeUp(true);
          frames.back().next = node->childs_.size();
          return;
        }
        frames.back().next = next - 1;
        if (next > node->childs_.size()) base::Raise(base::kSubscriptOutOfRange);
        const XmlNodePtr child = node->childs_[next - 1];
        if (child->MatchRule(rules)) {
          node->DelChild(child);
        } else {
          frames.push_back({child, kNotStarted});
        }
      });
      if (!ok) frames.pop_back();
    }
  });
}

void cXmlNode::DeleteEmptyChilds(bool recursive) {
  base::Trap(base::InSub(u"cXmlNode.DeleteEmptyChilds"), [&] {
    struct Frame {
      explicit Frame(XmlNodePtr n) : node(std::move(n)) {}
      XmlNodePtr node;
      std::size_t next = 0;
      bool started = false;
      XmlNodePtr pending;  // the child whose own clean-up runs above this frame
    };
    std::vector<Frame> frames;
    frames.emplace_back(Self());
    const auto delete_if_empty = [](const XmlNodePtr& node, const XmlNodePtr& child) {
      if (child->ChildCount() == 0 && child->ValueView().empty() && child->AttrCount() == 0) {
        node->DelChild(child);
      }
    };
    while (!frames.empty()) {
      const std::size_t depth = frames.size();
      Frame& frame = frames.back();
      const XmlNodePtr node = frame.node;
      const bool ok = base::Trap(base::InSub(u"cXmlNode.DeleteEmptyChilds"), [&] {
        if (!frame.started) {
          frame.started = true;
          node->WakeUp(true);
          frame.next = node->childs_.size();
          return;
        }
        if (frame.pending) {
          const XmlNodePtr child = std::move(frame.pending);
          frame.pending.reset();
          delete_if_empty(node, child);
          return;
        }
        if (frame.next == 0) {
          frames.pop_back();
          return;
        }
        const std::size_t i = frame.next--;
        if (i > node->childs_.size()) base::Raise(base::kSubscriptOutOfRange);
        const XmlNodePtr child = node->childs_[i - 1];
        if (recursive) {
          frame.pending = child;
          frames.emplace_back(child);
        } else {
          delete_if_empty(node, child);
        }
      });
      if (!ok) {
        while (frames.size() >= depth) frames.pop_back();
      }
    }
  });
}

// ---- Copying ------------------------------------------------------------------------------

XmlNodePtr cXmlNode::Clone() {
  return base::Trap(base::InFunction(u"cXmlNode.Clone"), XmlNodePtr(), [&] {
    WakeUp(true);
    const auto shallow = [](const cXmlNode& source) {
      XmlNodePtr copy = Create();
      copy->name_ = source.name_;
      copy->attrs_ = source.attrs_;
      return copy;
    };
    // Each copy takes its source's XMLEncoding as its own, inherited one included; the
    // effective encoding travels down with the frames instead of being looked up per node.
    struct Frame {
      XmlNodePtr source;
      XmlNodePtr copy;
      std::size_t next;
      std::u16string encoding;
    };
    const XmlNodePtr root = shallow(*this);
    std::vector<Frame> frames;
    frames.push_back({Self(), root, 0, XMLEncoding()});
    while (!frames.empty()) {
      Frame& frame = frames.back();
      if (frame.next < frame.source->childs_.size()) {
        XmlNodePtr source = frame.source->childs_[frame.next++];
        source->WakeUp(true);
        XmlNodePtr copy = shallow(*source);
        // Nobody can listen to a copy under construction, so the children go in without the
        // Added events that AddChild would raise for no one.
        frame.copy->AppendChildQuiet(copy);
        std::u16string encoding = source->extras_ && !source->extras_->xml_encoding.empty()
                                      ? source->extras_->xml_encoding
                                      : frame.encoding;
        frames.push_back({std::move(source), std::move(copy), 0, std::move(encoding)});
        continue;
      }
      // A node with children loses its text; a childless one passes it through Value, which
      // drops CDATA markers.
      if (frame.source->childs_.empty()) frame.copy->raw_value_ = frame.source->ValueView();
      if (!frame.encoding.empty()) frame.copy->GetExtras().xml_encoding = frame.encoding;
      frames.pop_back();
    }
    CopyItemDataTo(root);
    return root;
  });
}

void cXmlNode::CopyItemDataTo(const XmlNodePtr& target) {
  base::Trap(base::InSub(u"cXmlNode.CopyItemDataTo"), [&] {
    if (!target) base::Raise(base::kObjectNotSet);
    struct Frame {
      XmlNodePtr from;
      XmlNodePtr to;
      std::size_t next;
    };
    std::vector<Frame> frames;
    const auto same_shape = [](const XmlNodePtr& a, const XmlNodePtr& b) {
      a->WakeUp(false);
      b->WakeUp(false);
      return a->childs_.size() == b->childs_.size();
    };
    if (!same_shape(Self(), target)) return;
    frames.push_back({Self(), target, 0});
    while (!frames.empty()) {
      Frame& frame = frames.back();
      frame.from->WakeUp(true);
      frame.to->WakeUp(true);
      const std::size_t count = std::min(frame.from->childs_.size(), frame.to->childs_.size());
      if (frame.next < count) {
        XmlNodePtr from = frame.from->childs_[frame.next];
        XmlNodePtr to = frame.to->childs_[frame.next];
        ++frame.next;
        if (same_shape(from, to)) frames.push_back({std::move(from), std::move(to), 0});
        continue;
      }
      frame.to->ItemData = frame.from->ItemData;
      frames.pop_back();
    }
  });
}

// ---- Finding ------------------------------------------------------------------------------

XmlNodePtr cXmlNode::FindNode(std::u16string_view node_name, bool recursive, bool skip_me) {
  return base::Trap(base::DansFunction(u"cXmlNode.FindNode"), XmlNodePtr(), [&]() -> XmlNodePtr {
    const Query query(node_name);
    if (!skip_me && MatchesQuery(query, true)) return Self();
    WakeUp(true);
    if (!recursive) {
      for (const auto& child : childs_) {
        if (child->MatchesQuery(query, false)) return child;
      }
      return nullptr;
    }
    // Each child answers for itself first, then for its children: pre-order, first match.
    struct Frame {
      XmlNodePtr node;
      std::size_t next;
    };
    std::vector<Frame> stack;
    stack.push_back({Self(), 0});
    while (!stack.empty()) {
      Frame& top = stack.back();
      if (top.next >= top.node->childs_.size()) {
        stack.pop_back();
        continue;
      }
      XmlNodePtr child = top.node->childs_[top.next++];
      if (child->MatchesQuery(query, true)) return child;
      child->WakeUp(true);
      if (!child->childs_.empty()) stack.push_back({std::move(child), 0});
    }
    return nullptr;
  });
}

void cXmlNode::FindNodes(const XmlNodePtr& rules, std::vector<XmlNodePtr>& results,
                         std::int32_t max_found) {
  base::Trap(base::InSub(u"cXmlNode.FindNodes"), [&] {
    // The limit is tested for equality, after each match and after each child's search, so a
    // list that already holds more entries never stops the search.
    const auto full = [&] {
      return max_found > 0 && results.size() == static_cast<std::size_t>(max_found);
    };
    const auto visit = [&](const XmlNodePtr& node) {
      node->WakeUp(true);
      if (!node->MatchRule(rules)) return false;
      results.push_back(node);
      return full();
    };
    const XmlNodePtr self = Self();
    if (visit(self)) return;
    struct Frame {
      XmlNodePtr node;
      std::size_t next;
    };
    std::vector<Frame> stack;
    stack.push_back({self, 0});
    while (!stack.empty()) {
      Frame& top = stack.back();
      if (top.next >= top.node->childs_.size()) {
        stack.pop_back();
        if (!stack.empty() && full()) return;
        continue;
      }
      XmlNodePtr child = top.node->childs_[top.next++];
      if (visit(child)) return;
      stack.push_back({std::move(child), 0});
    }
  });
}

void cXmlNode::BuildXml() {}
