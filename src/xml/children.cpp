// cXmlNode: the members that work on children: counts and lookups, child values and
// attributes by name, adding, moving, deleting and copying subtrees, and the FindNode query
// language.
//
// Every walk below a node goes through the one walk of xml/walk.h. Where the members were
// recursive procedures, each frame stands for one call, in the same order.
#include <algorithm>
#include <utility>

#include "base/text.h"
#include "base/trap.h"
#include "xml/node.h"
#include "xml/node_internal.h"
#include "xml/walk.h"

namespace {

bool IsRealChild(std::size_t position, std::size_t count) {
  return position >= 1 && position <= count;
}

// A walk from the last child to the first met a position past the end: a handler removed
// children meanwhile. The node's search ends with the error line; the walk goes on above it.
void StaleChild(std::u16string_view site) {
  base::Trap(base::InSub(site), [] { base::Raise(base::kSubscriptOutOfRange); });
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
    Walker::Run(Self(), Walker::Empty{}, [&](auto&, const XmlNodePtr& child, auto&) {
      count = base::CheckedAdd(count, 1);
      child->WakeUp(true);
      return child->childs_.empty() ? xml::WalkStep::kSkip : xml::WalkStep::kDescend;
    });
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
  // The walk's frames carry whether each node's chain is locked.
  using Frame = WalkFrame<bool>;
  std::vector<Frame>* frames = nullptr;     // the walk's stack, while it is told of a node
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
    for (Frame& f : *frames) {
      linked = linked && f.node->parent_ == below;
      locked = locked || f.node->event_lock_flag_;
      f.state = locked;
      if (f.node->listening_) listening_frames.push_back(f.node.get());
      below = f.node.get();
    }
  };
  // "While the node has children, delete its first child": the subtree goes depth-first,
  // each level woken one step at a time, as the child count wakes it.
  const auto enter = [&](cXmlNode& node, bool locked_parent) {
    node.Deleted = true;
    if (node.listening_) listening_frames.push_back(&node);
    node.WakeUp(false);
    return locked_parent || node.event_lock_flag_;
  };
  const auto leave = [&](std::vector<Frame>& stack) {
    frames = &stack;
    const bool events = AnyListeners();
    if (events && seen != xml::detail::tree_epoch) survey();
    const Frame& done = stack.back();
    if (!listening_frames.empty() && listening_frames.back() == done.node.get()) {
      listening_frames.pop_back();
    }
    if (events && !linked) {
      done.node->RaiseDeleted(done.node->EventLock(), nullptr);
    } else if (events && !done.state) {
      ancestors.assign(listening_frames.rbegin(), listening_frames.rend());
      for (const auto& a : listening_above) ancestors.push_back(a.get());
      done.node->RaiseDeleted(false, &ancestors);
    }
    cXmlNode* owner = stack.size() == 1 ? this : stack[stack.size() - 2].node.get();
    // Taking the deleted node off its chain changes nothing of what was found for the rest.
    const bool current = seen == xml::detail::tree_epoch;
    done.node->parent_ = nullptr;
    if (current) seen = ++xml::detail::tree_epoch;
    const std::size_t pos = owner->childs_.find(done.node.get());
    if (pos != ChildList::npos) owner->childs_.erase(pos);
    if (owner != this) owner->WakeUp(false);
    return true;
  };
  const bool top_locked = enter(*top, false);
  Walker::Run<xml::WalkOrder::kFirstUntilEmpty>(
      top, top_locked,
      [&](Frame& parent, const XmlNodePtr& child, bool& locked) {
        locked = enter(*child, parent.state);
        return xml::WalkStep::kDescend;
      },
      leave);
}

void cXmlNode::DelChilds(const XmlNodePtr& rules) {
  base::Trap(base::InSub(u"cXmlNode.DelChilds"), [&] {
    WakeUp(true);
    if (!rules) {
      for (std::size_t i = childs_.size(); i >= 1; --i) DelChild(static_cast<double>(i));
      return;
    }
    // Each node searched from its last child to its first; a child that the rules accept is
    // deleted, any other is searched the same way.
    Walker::Run<xml::WalkOrder::kLastToFirst>(
        Self(), Walker::Empty{},
        [&](auto& parent, const XmlNodePtr& child, auto&) {
          if (!child->MatchRule(rules)) {
            child->WakeUp(true);
            return xml::WalkStep::kDescend;
          }
          parent.node->DelChild(child);
          return xml::WalkStep::kSkip;
        },
        Walker::NoLeave{}, [](auto&) { StaleChild(u"cXmlNode.DelChilds"); });
  });
}

void cXmlNode::DeleteEmptyChilds(bool recursive) {
  base::Trap(base::InSub(u"cXmlNode.DeleteEmptyChilds"), [&] {
    WakeUp(true);
    const auto delete_if_empty = [](const XmlNodePtr& node, const XmlNodePtr& child) {
      if (child->ChildCount() == 0 && child->ValueView().empty() && child->AttrCount() == 0) {
        node->DelChild(child);
      }
    };
    // Recursive: each child cleans its own children before it is judged.
    Walker::Run<xml::WalkOrder::kLastToFirst>(
        Self(), Walker::Empty{},
        [&](auto& parent, const XmlNodePtr& child, auto&) {
          if (!recursive) {
            delete_if_empty(parent.node, child);
            return xml::WalkStep::kSkip;
          }
          child->WakeUp(true);
          return xml::WalkStep::kDescend;
        },
        [&](auto& stack) {
          if (stack.size() > 1) delete_if_empty(stack[stack.size() - 2].node, stack.back().node);
          return true;
        },
        [](auto&) { StaleChild(u"cXmlNode.DeleteEmptyChilds"); });
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
    struct Copy {
      XmlNodePtr node;
      std::u16string encoding;
    };
    const XmlNodePtr root = shallow(*this);
    Walker::Run(
        Self(), Copy{root, XMLEncoding()},
        [&](auto& parent, const XmlNodePtr& source, Copy& copy) {
          source->WakeUp(true);
          copy.node = shallow(*source);
          // Nobody can listen to a copy under construction, so the children go in without
          // the Added events that AddChild would raise for no one.
          parent.state.node->AppendChildQuiet(copy.node);
          copy.encoding = source->extras_ && !source->extras_->xml_encoding.empty()
                              ? source->extras_->xml_encoding
                              : parent.state.encoding;
          return xml::WalkStep::kDescend;
        },
        [](auto& stack) {
          // A node with children loses its text; a childless one passes it through Value,
          // which drops CDATA markers.
          auto& done = stack.back();
          if (done.node->childs_.empty()) done.state.node->raw_value_ = done.node->ValueView();
          if (!done.state.encoding.empty())
            done.state.node->GetExtras().xml_encoding = done.state.encoding;
          return true;
        });
    CopyItemDataTo(root);
    return root;
  });
}

void cXmlNode::CopyItemDataTo(const XmlNodePtr& target) {
  base::Trap(base::InSub(u"cXmlNode.CopyItemDataTo"), [&] {
    if (!target) base::Raise(base::kObjectNotSet);
    const auto same_shape = [](const XmlNodePtr& a, const XmlNodePtr& b) {
      a->WakeUp(false);
      b->WakeUp(false);
      return a->childs_.size() == b->childs_.size();
    };
    if (!same_shape(Self(), target)) return;
    WakeUp(true);
    target->WakeUp(true);
    // The walk goes over this subtree, each frame carrying its counterpart in the target.
    Walker::Run(
        Self(), target,
        [&](auto& parent, const XmlNodePtr& from, XmlNodePtr& to) {
          const std::size_t at = parent.next - 1;
          if (at >= parent.state->childs_.size()) return xml::WalkStep::kSkip;
          to = parent.state->childs_[at];
          if (!same_shape(from, to)) return xml::WalkStep::kSkip;
          from->WakeUp(true);
          to->WakeUp(true);
          return xml::WalkStep::kDescend;
        },
        [](auto& stack) {
          stack.back().state->ItemData = stack.back().node->ItemData;
          return true;
        });
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
    XmlNodePtr found;
    Walker::Run(Self(), Walker::Empty{}, [&](auto&, const XmlNodePtr& child, auto&) {
      if (child->MatchesQuery(query, true)) {
        found = child;
        return xml::WalkStep::kStop;
      }
      child->WakeUp(true);
      return child->childs_.empty() ? xml::WalkStep::kSkip : xml::WalkStep::kDescend;
    });
    return found;
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
    Walker::Run(
        self, Walker::Empty{},
        [&](auto&, const XmlNodePtr& child, auto&) {
          return visit(child) ? xml::WalkStep::kStop : xml::WalkStep::kDescend;
        },
        [&](auto& stack) { return stack.size() == 1 || !full(); });
  });
}

void cXmlNode::BuildXml() {}
