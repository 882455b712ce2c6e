// cXmlNode: creation and destruction, the parent link, name and value, attributes, and the
// child list's storage.
#include "xml/node.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "base/debug_log.h"
#include "base/text.h"
#include "base/trap.h"
#include "xml/node_internal.h"

namespace {

std::int64_t g_live_nodes = 0;

constexpr std::u16string_view kCdataOpen = u"<![CDATA[";
constexpr std::u16string_view kCdataClose = u"]]>";

}  // namespace

namespace xml::detail {

std::int64_t listening_nodes = 0;
std::uint64_t tree_epoch = 0;

std::int32_t RoundToInt32(double value) {
  if (!(value >= -2147483648.5 && value <= 2147483647.5)) base::Raise(base::kOverflow);
  double whole = std::floor(value);
  const double rest = value - whole;
  if (rest > 0.5 || (rest == 0.5 && std::fmod(whole, 2.0) != 0.0)) whole += 1.0;
  if (whole > 2147483647.0 || whole < -2147483648.0) base::Raise(base::kOverflow);
  return static_cast<std::int32_t>(whole);
}

double TextToNumber(std::u16string_view text) {
  std::size_t used = 0;
  const double value = base::ReadNumber(text, used);
  while (used < text.size() && (text[used] == u' ' || text[used] == u'\t')) ++used;
  if (used == 0 || used != text.size()) base::Raise(base::kTypeMismatch);
  return value;
}

std::vector<std::u16string_view> SplitText(std::u16string_view text, std::u16string_view sep) {
  std::vector<std::u16string_view> parts;
  if (text.empty()) return parts;
  if (sep.empty()) {
    parts.push_back(text);
    return parts;
  }
  std::size_t start = 0;
  for (;;) {
    const std::size_t at = text.find(sep, start);
    if (at == std::u16string_view::npos) {
      parts.push_back(text.substr(start));
      return parts;
    }
    parts.push_back(text.substr(start, at - start));
    start = at + sep.size();
  }
}

}  // namespace xml::detail

// ---- Child list ---------------------------------------------------------------------------

void cXmlNode::ChildList::renumber(std::size_t from_slot, std::size_t to_slot) {
  for (std::size_t s = from_slot; s < to_slot; ++s) {
    slots_[s]->index_hint_ = static_cast<std::uint32_t>(s);
  }
}

void cXmlNode::ChildList::compact() {
  // Give the front back once it holds more dead slots than live ones: amortised constant.
  if (begin_ < 64 || begin_ * 2 < slots_.size()) return;
  slots_.erase(slots_.begin(), slots_.begin() + static_cast<std::ptrdiff_t>(begin_));
  begin_ = 0;
  renumber(0, slots_.size());
}

void cXmlNode::ChildList::push_back(XmlNodePtr node) {
  node->index_hint_ = static_cast<std::uint32_t>(slots_.size());
  slots_.push_back(std::move(node));
}

void cXmlNode::ChildList::insert(std::size_t i, XmlNodePtr node) {
  if (i == size()) return push_back(std::move(node));
  if (i <= size() / 2) {
    if (begin_ == 0) {
      // Open room at the front, in proportion to the list, so that a run of insertions near
      // the start costs one move of the whole list, not one per insertion.
      const std::size_t gap = std::max<std::size_t>(8, size() / 2);
      slots_.insert(slots_.begin(), gap, nullptr);
      begin_ = gap;
      renumber(begin_, slots_.size());
    }
    // Cheaper to move the head one slot towards the front.
    const std::size_t at = begin_ + i;
    std::move(slots_.begin() + static_cast<std::ptrdiff_t>(begin_),
              slots_.begin() + static_cast<std::ptrdiff_t>(at),
              slots_.begin() + static_cast<std::ptrdiff_t>(begin_ - 1));
    --begin_;
    slots_[at - 1] = std::move(node);
    renumber(begin_, at);
    return;
  }
  const std::size_t at = begin_ + i;
  slots_.insert(slots_.begin() + static_cast<std::ptrdiff_t>(at), std::move(node));
  renumber(at, slots_.size());
}

void cXmlNode::ChildList::erase(std::size_t i) {
  const std::size_t at = begin_ + i;
  if (i < size() / 2) {
    // Move the head one slot towards the back and give up the first slot.
    std::move_backward(slots_.begin() + static_cast<std::ptrdiff_t>(begin_),
                       slots_.begin() + static_cast<std::ptrdiff_t>(at),
                       slots_.begin() + static_cast<std::ptrdiff_t>(at + 1));
    slots_[begin_].reset();
    ++begin_;
    renumber(begin_, at + 1);
    compact();
    return;
  }
  slots_.erase(slots_.begin() + static_cast<std::ptrdiff_t>(at));
  renumber(at, slots_.size());
  if (empty()) {
    slots_.clear();
    begin_ = 0;
  }
}

void cXmlNode::ChildList::pop_back() {
  slots_.pop_back();
  if (empty()) {
    slots_.clear();
    begin_ = 0;
  }
}

void cXmlNode::ChildList::assign(std::vector<XmlNodePtr> nodes) {
  slots_ = std::move(nodes);
  begin_ = 0;
  renumber(0, slots_.size());
}

std::vector<XmlNodePtr> cXmlNode::ChildList::take_all() {
  if (begin_ > 0)
    slots_.erase(slots_.begin(), slots_.begin() + static_cast<std::ptrdiff_t>(begin_));
  begin_ = 0;
  return std::exchange(slots_, {});
}

std::size_t cXmlNode::ChildList::find(const cXmlNode* node) const {
  const std::size_t hint = node->index_hint_;
  if (hint >= begin_ && hint < slots_.size() && slots_[hint].get() == node) return hint - begin_;
  for (std::size_t s = begin_; s < slots_.size(); ++s) {
    if (slots_[s].get() == node) {
      node->index_hint_ = static_cast<std::uint32_t>(s);
      return s - begin_;
    }
  }
  return npos;
}

// ---- Creation and destruction -------------------------------------------------------------

XmlNodePtr cXmlNode::Create() {
  return std::make_shared<cXmlNode>(Token());
}

cXmlNode::cXmlNode(Token) {
  ++g_live_nodes;
}

cXmlNode::~cXmlNode() {
  --g_live_nodes;
  if (listening_) --xml::detail::listening_nodes;
  if (childs_.empty()) return;
  // Children that only this node holds die with it; their own children are taken over here
  // first, so that a deep tree is torn down in a loop instead of one nested destructor per
  // level.
  try {
    std::vector<XmlNodePtr> work = childs_.take_all();
    while (!work.empty()) {
      XmlNodePtr node = std::move(work.back());
      work.pop_back();
      if (!node) continue;
      node->parent_ = nullptr;
      if (node.use_count() == 1 && !node->childs_.empty()) {
        std::vector<XmlNodePtr> grand = node->childs_.take_all();
        for (auto& g : grand) {
          if (g) work.push_back(std::move(g));
        }
      }
    }
  } catch (...) {
    // Out of memory for the work list: what is left is released the ordinary way.
  }
}

std::int64_t cXmlNode::LiveNodeCount() {
  return g_live_nodes;
}

cXmlNode::Extras& cXmlNode::GetExtras() {
  if (!extras_) extras_ = std::make_unique<Extras>();
  return *extras_;
}

// ---- Parent link and identity -------------------------------------------------------------

XmlNodePtr cXmlNode::Parent() {
  return base::Trap(base::InProperty(u"cXmlNode.Parent"), XmlNodePtr(),
                    [&] { return parent_ ? NodeFromPtr(parent_) : XmlNodePtr(); });
}

void cXmlNode::Parent(const XmlNodePtr& parent) {
  base::Trap(base::InProperty(u"cXmlNode.Parent"), [&] {
    // A parent link to itself or to a descendant would make every upward walk endless.
    if (parent && parent->IsAncestorOrSelf(this)) base::Raise(base::kInvalidCall);
    XmlNodePtr keep = Self();
    SetParentLink(parent.get());
    if (parent) parent->parent_of_orphan_ = true;
  });
}

void cXmlNode::SetParentLink(cXmlNode* parent) {
  if (parent && parent_) {
    if (XmlNodePtr old = NodeFromPtr(parent_)) old->EmancipateChild(Self());
  }
  parent_ = parent;
  ++xml::detail::tree_epoch;
}

bool cXmlNode::IsAncestorOrSelf(const cXmlNode* node) const {
  for (const cXmlNode* p = this; p; p = p->parent_) {
    if (p == node) return true;
  }
  return false;
}

XmlNodePtr cXmlNode::NodeFromPtr(cXmlNode* ptr) {
  return base::Trap(base::InFunction(u"cXmlNode.NodeFromPtr"), XmlNodePtr(), [&]() -> XmlNodePtr {
    if (node_from_ptr_guard_) {
      DebugLog(u"Warning: XmlNode.NodeFromPtr loop");
      return nullptr;
    }
    if (!ptr) return nullptr;
    node_from_ptr_guard_ = true;
    struct Reset {
      bool& flag;
      ~Reset() { flag = false; }
    } reset{node_from_ptr_guard_};
    // A node being destroyed has no counted reference left to share: nothing.
    return ptr->weak_from_this().lock();
  });
}

std::int32_t cXmlNode::Depth() const {
  return base::Trap(base::InProperty(u"cXmlNode.Depth"), std::int32_t{0}, [&] {
    std::int32_t depth = 0;
    for (const cXmlNode* p = parent_; p; p = p->parent_) depth = base::CheckedAdd(depth, 1);
    return depth;
  });
}

std::int32_t cXmlNode::Index() {
  return base::Trap(base::InProperty(u"cXmlNode.Index"), std::int32_t{0}, [&]() -> std::int32_t {
    if (!parent_) return 1;
    const std::size_t pos = parent_->childs_.find(this);
    return pos == ChildList::npos ? 0 : static_cast<std::int32_t>(pos + 1);
  });
}

std::u16string cXmlNode::XMLVersion() const {
  return base::Trap(base::InProperty(u"cXmlNode.XMLVersion"), std::u16string(), [&] {
    const cXmlNode* root = this;
    while (root->parent_) root = root->parent_;
    return root->extras_ ? root->extras_->xml_version : std::u16string();
  });
}

std::u16string cXmlNode::XMLEncoding() const {
  return base::Trap(base::InProperty(u"cXmlNode.XMLEncoding"), std::u16string(), [&] {
    for (const cXmlNode* p = this; p; p = p->parent_) {
      if (p->extras_ && !p->extras_->xml_encoding.empty()) return p->extras_->xml_encoding;
    }
    return std::u16string();
  });
}

void cXmlNode::XMLEncoding(std::u16string_view encoding) {
  base::Trap(base::InProperty(u"cXmlNode.XMLEncoding"), [&] {
    if (encoding.empty() && !extras_) return;
    GetExtras().xml_encoding.assign(encoding);
  });
}

// ---- Name and value -----------------------------------------------------------------------

std::u16string cXmlNode::Name() const {
  return base::Trap(base::InProperty(u"cXmlNode.Name"), std::u16string(), [&] { return name_; });
}

void cXmlNode::Name(std::u16string_view name) {
  base::Trap(base::InProperty(u"cXmlNode.Name"), [&] {
    WakeUp(true);
    name_.assign(name);
  });
}

std::u16string_view cXmlNode::ValueView() const {
  const std::u16string_view raw = raw_value_;
  if (raw.size() >= kCdataOpen.size() + kCdataClose.size() && raw.starts_with(kCdataOpen) &&
      raw.ends_with(kCdataClose)) {
    return raw.substr(kCdataOpen.size(), raw.size() - kCdataOpen.size() - kCdataClose.size());
  }
  return raw;
}

std::u16string cXmlNode::Value() const {
  return base::Trap(base::InProperty(u"cXmlNode.Value"), std::u16string(),
                    [&] { return std::u16string(ValueView()); });
}

void cXmlNode::Value(std::u16string_view value) {
  base::Trap(base::InProperty(u"cXmlNode.Value"), [&] {
    WakeUp(true);
    if (raw_value_ == value) return;
    raw_value_.assign(value);
    RaiseModified(std::u16string());
  });
}

std::u16string cXmlNode::RawValue() const {
  return base::Trap(base::InProperty(u"cXmlNode.RawValue"), std::u16string(),
                    [&] { return raw_value_; });
}

void cXmlNode::RawValue(std::u16string_view value) {
  base::Trap(base::InProperty(u"cXmlNode.RawValue"), [&] { raw_value_.assign(value); });
}

// ---- Attributes ---------------------------------------------------------------------------

std::size_t cXmlNode::FindAttribut(std::u16string_view name) const {
  for (std::size_t i = 0; i < attrs_.size(); ++i) {
    if (base::EqualNoCase(attrs_.name(i), name)) return i;
  }
  return attrs_.size();
}

std::u16string cXmlNode::Attribut(std::u16string_view name) const {
  return base::Trap(base::InProperty(u"cXmlNode.Attribut"), std::u16string(), [&] {
    const std::size_t i = FindAttribut(name);
    return i < attrs_.size() ? std::u16string(attrs_.value(i)) : std::u16string();
  });
}

bool cXmlNode::UpdateAttribut(std::u16string_view name, std::u16string_view value) {
  const std::size_t i = FindAttribut(name);
  if (i == attrs_.size()) {
    if (value.empty()) return false;
    attrs_.push_back(name, value);
    return true;
  }
  if (value.empty()) {
    attrs_.erase(i);
    return true;
  }
  // The stored name keeps its spelling; only the value is replaced, at the same position.
  if (attrs_.value(i) == value) return false;
  attrs_.set_value(i, value);
  return true;
}

void cXmlNode::Attribut(std::u16string_view name, std::u16string_view value) {
  base::Trap(base::DansProperty(u"cXmlNode.Attribut"), [&] {
    WakeUp(true);
    if (UpdateAttribut(name, value)) RaiseModified(std::u16string(name));
  });
}

bool cXmlNode::AttributExists(std::u16string_view name, std::u16string_view value) const {
  return base::Trap(base::InFunction(u"cXmlNode.AttributExists"), false, [&] {
    for (std::size_t i = 0; i < attrs_.size(); ++i) {
      if (attrs_.name(i) == name) return value.empty() || attrs_.value(i) == value;
    }
    return false;
  });
}

std::int32_t cXmlNode::AttrCount() const {
  return base::Trap(base::InProperty(u"cXmlNode.AttrCount"), std::int32_t{0},
                    [&] { return static_cast<std::int32_t>(attrs_.size()); });
}

std::u16string cXmlNode::AttrName(std::int32_t position) const {
  return base::Trap(base::InProperty(u"cXmlNode.AttrName"), std::u16string(), [&] {
    if (position < 1 || static_cast<std::size_t>(position) > attrs_.size()) {
      base::Raise(base::kSubscriptOutOfRange);
    }
    return std::u16string(attrs_.name(static_cast<std::size_t>(position) - 1));
  });
}

bool cXmlNode::SetAttributs(const std::vector<std::u16string>& keys,
                            const std::vector<std::u16string>& values) {
  return base::Trap(base::InFunction(u"cXmlNode.SetAttributs"), false, [&] {
    WakeUp(true);
    if (keys.size() != values.size()) return false;
    xml::AttributeList fresh;
    for (std::size_t i = 0; i < keys.size(); ++i) fresh.push_back(keys[i], values[i]);
    attrs_ = std::move(fresh);
    return true;
  });
}
