// cXmlNode: the rule language and the searches built on it.
//
// A rule set is a node whose "MatchRule" children are rules:
//
//   <Rules>
//     <MatchRule path="list.item">
//       <Attribut name="kind" type="filter">file</Attribut>   <!-- chooses the rule -->
//       <Child name="id"/>                                     <!-- binding: must hold -->
//       <Attribut name="lang" parentdepth="1">fr</Attribut>    <!-- on the parent -->
//     </MatchRule>
//   </Rules>
//
// "path" is a plain suffix of the node's Path (separator ".", no attributes). A criterion
// tests the node, or the ancestor "parentdepth" levels up (an empty node past the top): an
// attribute ("Attribut") or a child ("Child") of that name exists and, when the criterion has
// a text, has that value. MatchRule tries the rules whose path fits in order, and their
// criteria in order: a failing "filter" criterion passes on to the next rule, any other
// failing criterion rejects the node at once, and a rule whose criteria all hold accepts it.
//
// NodeMatch, behind Match and FindFirstMatch, pairs a node with another one under the same
// vocabulary; its rules are described at Match in node.h.
#include "base/text.h"
#include "base/trap.h"
#include "xml/node.h"
#include "xml/node_internal.h"
#include "xml/walk.h"

namespace {

enum class CriterionKind { kOther, kAttribut, kChild };

CriterionKind KindOf(const cXmlNode& criterion) {
  const std::u16string name = criterion.Name();
  if (name == u"Attribut") return CriterionKind::kAttribut;
  if (name == u"Child") return CriterionKind::kChild;
  return CriterionKind::kOther;
}

bool IsFilter(const cXmlNode& criterion) {
  return criterion.Attribut(u"type") == u"filter";
}

std::int32_t ParentDepth(const cXmlNode& criterion) {
  const std::u16string text = criterion.Attribut(u"parentdepth");
  if (text.empty()) return 0;
  return xml::detail::RoundToInt32(xml::detail::TextToNumber(text));
}

// The node a criterion looks at: the ancestor depth levels up, or an empty node past the top
// (on which every existence test fails).
XmlNodePtr TargetOf(cXmlNode& node, const cXmlNode& criterion) {
  XmlNodePtr target = node.GetParent(ParentDepth(criterion));
  return target ? target : cXmlNode::Create();
}

// Whether a criterion holds on node, as MatchRule reads it.
bool CriterionHolds(cXmlNode& node, cXmlNode& criterion) {
  const XmlNodePtr target = TargetOf(node, criterion);
  const std::u16string name = criterion.Attribut(u"name");
  const std::u16string value = criterion.Value();
  switch (KindOf(criterion)) {
    case CriterionKind::kAttribut:
      return target->AttributExists(name, value);
    case CriterionKind::kChild:
      return target->ChildExists(name) && (value.empty() || target->ChildValue(name) == value);
    case CriterionKind::kOther:
      return true;
  }
  return true;
}

// The value of the attribute with exactly this name, or nothing.
std::optional<std::u16string> ExactAttribut(cXmlNode& node, std::u16string_view name) {
  const std::int32_t count = node.AttrCount();
  for (std::int32_t i = 1; i <= count; ++i) {
    if (node.AttrName(i) == name) return node.Attribut(name);
  }
  return std::nullopt;
}

// Whether a binding criterion agrees between the two sides of a pair.
bool CriterionAgrees(cXmlNode& a, cXmlNode& b, cXmlNode& criterion) {
  const XmlNodePtr ta = TargetOf(a, criterion);
  const XmlNodePtr tb = TargetOf(b, criterion);
  const std::u16string name = criterion.Attribut(u"name");
  const std::u16string value = criterion.Value();
  std::optional<std::u16string> va;
  std::optional<std::u16string> vb;
  switch (KindOf(criterion)) {
    case CriterionKind::kAttribut:
      va = ExactAttribut(*ta, name);
      vb = ExactAttribut(*tb, name);
      break;
    case CriterionKind::kChild:
      if (ta->ChildExists(name)) va = ta->ChildValue(name);
      if (tb->ChildExists(name)) vb = tb->ChildValue(name);
      break;
    case CriterionKind::kOther:
      return true;
  }
  return va && vb && *va == *vb && (value.empty() || *va == value);
}

// The number of children, the node woken as ChildrenOf wakes it.
std::int32_t WakeChildren(cXmlNode& node) {
  const std::int32_t count = node.ChildCount();
  if (count > 0) node.WakeUp(true);
  return count;
}

std::vector<XmlNodePtr> ChildrenOf(cXmlNode& node) {
  std::vector<XmlNodePtr> children;
  const std::int32_t count = node.ChildCount();
  children.reserve(static_cast<std::size_t>(count));
  for (std::int32_t i = 1; i <= count; ++i) children.push_back(node.Child(i));
  return children;
}

}  // namespace

bool cXmlNode::PathEndsWith(std::u16string_view suffix) const {
  if (suffix.empty()) return true;
  // Only the tail of the path is built, from this node upwards, until it is long enough.
  std::vector<std::u16string_view> names;
  std::size_t length = 0;
  for (const cXmlNode* n = this; n; n = n->parent_) {
    names.push_back(n->name_);
    length += n->name_.size() + (names.size() > 1 ? 1 : 0);
    if (length >= suffix.size()) break;
  }
  if (length < suffix.size()) return false;  // the whole path is shorter than the suffix
  std::u16string tail;
  tail.reserve(length);
  for (auto it = names.rbegin(); it != names.rend(); ++it) {
    if (!tail.empty() || it != names.rbegin()) tail.push_back(u'.');
    tail.append(*it);
  }
  return std::u16string_view(tail).ends_with(suffix);
}

bool cXmlNode::MatchRule(const XmlNodePtr& rules) {
  return base::Trap(base::InFunction(u"cXmlNode.MatchRule"), false, [&] {
    WakeUp(true);
    if (!rules) base::Raise(base::kObjectNotSet);
    for (const XmlNodePtr& rule : ChildrenOf(*rules)) {
      if (rule->Name() != u"MatchRule") continue;
      if (!PathEndsWith(rule->Attribut(u"path"))) continue;
      bool applies = true;
      for (const XmlNodePtr& criterion : ChildrenOf(*rule)) {
        if (CriterionHolds(*this, *criterion)) continue;
        // A failing filter only means this rule is not the one; any other criterion is
        // binding and rejects the node, whatever later rules would say.
        if (!IsFilter(*criterion)) return false;
        applies = false;
        break;
      }
      if (applies) return true;
    }
    return false;
  });
}

XmlNodePtr cXmlNode::GetParent(std::int32_t depth) {
  return base::Trap(base::InFunction(u"cXmlNode.GetParent"), XmlNodePtr(), [&]() -> XmlNodePtr {
    cXmlNode* node = this;
    for (std::int32_t i = 0; i < depth; ++i) {
      node = node->parent_;
      if (!node) return nullptr;
    }
    return node == this ? Self() : NodeFromPtr(node);
  });
}

XmlNodePtr cXmlNode::FindFirstMatch(const XmlNodePtr& rules, const XmlNodePtr& match_node,
                                    std::int32_t max_depth) {
  return base::Trap(
      base::InFunction(u"cXmlNode.FindFirstMatch"), XmlNodePtr(), [&]() -> XmlNodePtr {
        WakeUp(true);
        if (Match(rules, match_node)) return Self();
        if (max_depth < 1) return nullptr;
        // Pre-order, each node with the levels it may still descend.
        XmlNodePtr found;
        Walker::Run(Self(), max_depth,
                    [&](auto& parent, const XmlNodePtr& child, std::int32_t& levels) {
                      levels = parent.state - 1;
                      child->WakeUp(true);
                      if (child->Match(rules, match_node)) {
                        found = child;
                        return xml::WalkStep::kStop;
                      }
                      return levels < 1 ? xml::WalkStep::kSkip : xml::WalkStep::kDescend;
                    });
        return found;
      });
}

bool cXmlNode::Match(const XmlNodePtr& rules, const XmlNodePtr& match_node, bool recursive) {
  return base::Trap(base::InFunction(u"cXmlNode.Match"), false, [&] {
    WakeUp(true);
    return NodeMatch(rules, match_node ? match_node : Create(), recursive);
  });
}

bool cXmlNode::NodeMatch(const XmlNodePtr& rules, const XmlNodePtr& match_node, bool recursive) {
  return base::Trap(base::InFunction(u"cXmlNode.NodeMatch"), false, [&] {
    if (!rules || !match_node) base::Raise(base::kObjectNotSet);
    const std::vector<XmlNodePtr> rule_list = ChildrenOf(*rules);
    const auto pair_matches = [&](cXmlNode& a, cXmlNode& b) {
      if (!base::EqualNoCase(a.name_, b.name_)) return false;
      for (const XmlNodePtr& rule : rule_list) {
        if (rule->Name() != u"MatchRule") continue;
        if (!a.PathEndsWith(rule->Attribut(u"path"))) continue;
        const std::vector<XmlNodePtr> criteria = ChildrenOf(*rule);
        bool applies = true;
        for (const XmlNodePtr& c : criteria) {
          if (IsFilter(*c) && !CriterionHolds(a, *c)) {
            applies = false;
            break;
          }
        }
        if (!applies) continue;
        for (const XmlNodePtr& c : criteria) {
          if (!IsFilter(*c) && !CriterionAgrees(a, b, *c)) return false;
        }
        return true;
      }
      return true;
    };
    // With recursive, the children of each matching pair must pair too, in order: the walk
    // goes over this subtree, each frame carrying the node it is paired with.
    const auto judge = [&](cXmlNode& a, cXmlNode& b) {
      if (!pair_matches(a, b)) return false;
      return !recursive || WakeChildren(a) == WakeChildren(b);
    };
    if (!judge(*this, *match_node)) return false;
    if (!recursive) return true;
    return Walker::Run(Self(), match_node, [&](auto& parent, const XmlNodePtr& a, XmlNodePtr& b) {
      const std::size_t at = parent.next - 1;
      // Only a handler woken meanwhile could have shortened the list.
      if (at >= parent.state->childs_.size()) return xml::WalkStep::kStop;
      b = parent.state->childs_[at];
      return judge(*a, *b) ? xml::WalkStep::kDescend : xml::WalkStep::kStop;
    });
  });
}
