// Node events: the receiver registry, delivery to a node's listeners, and the walks that raise
// an event on a node, then on its ancestors (parent first), then on its descendants
// (pre-order).
//
// The walks are loops over the parent links and an explicit stack, so a chain of a million
// levels neither overflows the stack nor costs more than one visit per node. The event lock of
// a node is the OR of the flags on its chain; a walk that starts on an unlocked node knows every
// ancestor unlocked and only looks at each node's own flag on the way down (a locked node locks
// its whole subtree, so the walk skips it).
//
// Failures follow the structure of the original recursive procedures: a listener that throws
// on the node itself ends the whole raise; on an ancestor it ends the upward walk; on a
// descendant it skips that descendant's subtree and the walk goes on with its next sibling.
// Each writes its procedure's trap line. A receiver is called with errors suppressed.
#include <utility>

#include "base/text.h"
#include "base/trap.h"
#include "xml/node.h"
#include "xml/node_internal.h"
#include "xml/walk.h"

namespace xml {

std::u16string_view EventName(XmlEvent event) {
  switch (event) {
    case XmlEvent::SaveSleepData:
      return u"SaveSleepData";
    case XmlEvent::RestoreSleepData:
      return u"RestoreSleepData";
    case XmlEvent::Modified:
      return u"Modified";
    case XmlEvent::ChildModified:
      return u"ChildModified";
    case XmlEvent::ParentModifed:
      return u"ParentModifed";
    case XmlEvent::Deleted:
      return u"Deleted";
    case XmlEvent::ChildDeleted:
      return u"ChildDeleted";
    case XmlEvent::ParentDeleted:
      return u"ParentDeleted";
    case XmlEvent::Added:
      return u"Added";
    case XmlEvent::ChildAdded:
      return u"ChildAdded";
    case XmlEvent::ParentAdded:
      return u"ParentAdded";
    case XmlEvent::NodeEvent:
      return u"NodeEvent";
    case XmlEvent::ChildNodeEvent:
      return u"ChildNodeEvent";
    case XmlEvent::ParentNodeEvent:
      return u"ParentNodeEvent";
  }
  return u"";
}

XmlNodePtr EventParam::Node() const {
  const auto* p = std::get_if<XmlNodePtr>(&value);
  return p ? *p : XmlNodePtr();
}

std::u16string EventParam::Text() const {
  if (const auto* p = std::get_if<std::u16string>(&value)) return *p;
  if (const auto* p = std::get_if<std::u16string*>(&value)) return *p ? **p : std::u16string();
  return std::u16string();
}

EventParamList EventParam::List() const {
  const auto* p = std::get_if<EventParamList>(&value);
  return p ? *p : EventParamList();
}

std::u16string* EventParam::TextRef() const {
  const auto* p = std::get_if<std::u16string*>(&value);
  return p ? *p : nullptr;
}

bool* EventParam::BoolRef() const {
  const auto* p = std::get_if<bool*>(&value);
  return p ? *p : nullptr;
}

void EventReceiver::RegisterMethod(std::u16string name, Method method) {
  for (auto& entry : methods_) {
    if (base::EqualNoCase(entry.first, name)) {
      entry.second = std::move(method);
      return;
    }
  }
  methods_.emplace_back(std::move(name), std::move(method));
}

void EventReceiver::UnregisterMethod(std::u16string_view name) {
  for (auto it = methods_.begin(); it != methods_.end(); ++it) {
    if (base::EqualNoCase(it->first, name)) {
      methods_.erase(it);
      return;
    }
  }
}

bool EventReceiver::CallByName(std::u16string_view name, const std::u16string& event_id,
                               EventParams& params) const {
  for (const auto& entry : methods_) {
    if (!base::EqualNoCase(entry.first, name)) continue;
    // A copy, so that a method that unregisters itself keeps running.
    const Method method = entry.second;
    if (method) method(event_id, params);
    return true;
  }
  return false;
}

}  // namespace xml

// One event as it travels: which one, and pointers to its parameters (the by-reference ones
// are writable).
struct cXmlNode::EventCall {
  xml::XmlEvent id;
  const XmlNodePtr* node = nullptr;
  const std::u16string* text = nullptr;  // the attribute name, or an application event's ID
  std::u16string* data = nullptr;        // sleep text
  bool* data_saved = nullptr;
  const xml::EventParamList* params = nullptr;
};

namespace {

using xml::XmlEvent;

const XmlNodePtr kNoNode;
const std::u16string kNoText;
const xml::EventParamList kNoList;

}  // namespace

// ---- Receiver and listeners ---------------------------------------------------------------

std::shared_ptr<xml::EventReceiver> cXmlNode::EventProxyObject() const {
  return base::Trap(base::InProperty(u"cXmlNode.EventProxyObject"),
                    std::shared_ptr<xml::EventReceiver>(),
                    [&] { return extras_ ? extras_->proxy : nullptr; });
}

void cXmlNode::EventProxyObject(std::shared_ptr<xml::EventReceiver> receiver) {
  base::Trap(base::InProperty(u"cXmlNode.EventProxyObject"), [&] {
    if (!receiver && !extras_) return;
    GetExtras().proxy = std::move(receiver);
    UpdateListening();
  });
}

std::u16string cXmlNode::EventProxyFunctionName() const {
  return base::Trap(base::InProperty(u"cXmlNode.EventProxyFunctionName"), std::u16string(),
                    [&] { return extras_ ? extras_->proxy_name : std::u16string(); });
}

void cXmlNode::EventProxyFunctionName(std::u16string_view name) {
  base::Trap(base::InProperty(u"cXmlNode.EventProxyFunctionName"), [&] {
    if (name.empty() && !extras_) return;
    GetExtras().proxy_name.assign(name);
    UpdateListening();
  });
}

void cXmlNode::AddEventSink(const std::shared_ptr<xml::XmlNodeEvents>& sink) {
  base::Trap(base::InSub(u"cXmlNode.AddEventSink"), [&] {
    if (!sink) return;
    auto& sinks = GetExtras().sinks;
    std::erase_if(sinks, [](const auto& w) { return w.expired(); });
    sinks.push_back(sink);
    UpdateListening();
  });
}

void cXmlNode::RemoveEventSink(const xml::XmlNodeEvents* sink) {
  base::Trap(base::InSub(u"cXmlNode.RemoveEventSink"), [&] {
    if (!extras_) return;
    std::erase_if(extras_->sinks, [&](const auto& w) {
      const auto s = w.lock();
      return !s || s.get() == sink;
    });
    UpdateListening();
  });
}

bool cXmlNode::AnyListeners() {
  return xml::detail::listening_nodes > 0;
}

void cXmlNode::UpdateListening() {
  const bool now =
      extras_ && (!extras_->sinks.empty() || (extras_->proxy && !extras_->proxy_name.empty()));
  if (now == listening_) return;
  listening_ = now;
  xml::detail::listening_nodes += now ? 1 : -1;
  ++xml::detail::tree_epoch;
}

bool cXmlNode::EventLock() const {
  return base::Trap(base::InProperty(u"cXmlNode.EventLock"), false, [&] {
    for (const cXmlNode* p = this; p; p = p->parent_) {
      if (p->event_lock_flag_) return true;
    }
    return false;
  });
}

// ---- Delivery to one node -----------------------------------------------------------------

void cXmlNode::Deliver(const EventCall& call) {
  if (!listening_) return;
  if (!extras_->sinks.empty()) {
    // A copy: a listener may subscribe or unsubscribe others while it runs.
    const auto sinks = extras_->sinks;
    const XmlNodePtr& node = call.node ? *call.node : kNoNode;
    const std::u16string& text = call.text ? *call.text : kNoText;
    const xml::EventParamList& params = call.params ? *call.params : kNoList;
    for (const auto& weak : sinks) {
      const auto sink = weak.lock();
      if (!sink) continue;
      switch (call.id) {
        case XmlEvent::SaveSleepData:
          sink->SaveSleepData(*this, node, *call.data, *call.data_saved);
          break;
        case XmlEvent::RestoreSleepData:
          sink->RestoreSleepData(*this, node, *call.data);
          break;
        case XmlEvent::Modified:
          sink->Modified(*this, text);
          break;
        case XmlEvent::ChildModified:
          sink->ChildModified(*this, node, text);
          break;
        case XmlEvent::ParentModifed:
          sink->ParentModifed(*this, node, text);
          break;
        case XmlEvent::Deleted:
          sink->Deleted(*this);
          break;
        case XmlEvent::ChildDeleted:
          sink->ChildDeleted(*this, node);
          break;
        case XmlEvent::ParentDeleted:
          sink->ParentDeleted(*this, node);
          break;
        case XmlEvent::Added:
          sink->Added(*this);
          break;
        case XmlEvent::ChildAdded:
          sink->ChildAdded(*this, node);
          break;
        case XmlEvent::ParentAdded:
          sink->ParentAdded(*this, node);
          break;
        case XmlEvent::NodeEvent:
          sink->NodeEvent(*this, text, params);
          break;
        case XmlEvent::ChildNodeEvent:
          sink->ChildNodeEvent(*this, text, node, params);
          break;
        case XmlEvent::ParentNodeEvent:
          sink->ParentNodeEvent(*this, text, node, params);
          break;
      }
    }
  }
  if (extras_->proxy && !extras_->proxy_name.empty()) CallReceiver(call);
}

void cXmlNode::CallReceiver(const EventCall& call) {
  try {
    const auto receiver = extras_->proxy;
    const std::u16string method = extras_->proxy_name;
    // The parameters in their declared order, then the raising node.
    xml::EventParams params;
    const XmlNodePtr& node = call.node ? *call.node : kNoNode;
    const std::u16string& text = call.text ? *call.text : kNoText;
    switch (call.id) {
      case XmlEvent::SaveSleepData:
        params = {node, call.data, call.data_saved};
        break;
      case XmlEvent::RestoreSleepData:
        params = {node, call.data};
        break;
      case XmlEvent::Modified:
        params = {text};
        break;
      case XmlEvent::ChildModified:
      case XmlEvent::ParentModifed:
        params = {node, text};
        break;
      case XmlEvent::Deleted:
      case XmlEvent::Added:
        break;
      case XmlEvent::ChildDeleted:
      case XmlEvent::ParentDeleted:
      case XmlEvent::ChildAdded:
      case XmlEvent::ParentAdded:
        params = {node};
        break;
      case XmlEvent::NodeEvent:
        params = {text, call.params ? *call.params : kNoList};
        break;
      case XmlEvent::ChildNodeEvent:
      case XmlEvent::ParentNodeEvent:
        params = {text, node, call.params ? *call.params : kNoList};
        break;
    }
    params.emplace_back(Self());
    receiver->CallByName(method, std::u16string(xml::EventName(call.id)), params);
  } catch (...) {
    // Late-bound and with errors suppressed: a missing or failing method changes nothing.
  }
}

// ---- The walks ----------------------------------------------------------------------------

void cXmlNode::RaiseUpward(const EventCall& call, std::u16string_view site, bool check_lock) {
  base::Trap(base::InSub(site), [&] {
    for (cXmlNode* a = parent_; a;) {
      if (a->listening_ && !(check_lock && a->event_lock_flag_)) {
        const XmlNodePtr keep = a->Self();
        a->Deliver(call);
      }
      a = a->parent_;
    }
  });
}

void cXmlNode::RaiseDownward(const EventCall& call, std::u16string_view site, bool check_lock) {
  if (childs_.empty()) return;
  base::Trap(base::InSub(site), [&] {
    Walker::Run(Self(), Walker::Empty{}, [&](auto&, const XmlNodePtr& child, auto&) {
      if (check_lock && child->event_lock_flag_) return xml::WalkStep::kSkip;
      if (child->listening_ && !base::Trap(base::InSub(site), [&] { child->Deliver(call); })) {
        return xml::WalkStep::kSkip;  // this descendant's procedure failed: its subtree hears
                                      // nothing
      }
      return child->childs_.empty() ? xml::WalkStep::kSkip : xml::WalkStep::kDescend;
    });
  });
}

// ---- The change families ------------------------------------------------------------------

void cXmlNode::RaiseModified(const std::u16string& attribut) {
  if (!AnyListeners()) return;
  const XmlNodePtr self = Self();
  base::Trap(base::InSub(u"cXmlNode.RaiseModified"), [&] {
    if (EventLock()) return;
    EventCall own{XmlEvent::Modified};
    own.text = &attribut;
    Deliver(own);
    EventCall up{XmlEvent::ChildModified};
    up.node = &self;
    up.text = &attribut;
    RaiseUpward(up, u"cXmlNode.RaiseChildModified", true);
    EventCall down{XmlEvent::ParentModifed};
    down.node = &self;
    down.text = &attribut;
    RaiseDownward(down, u"cXmlNode.RaiseParentModified", true);
  });
}

void cXmlNode::RaiseAdded() {
  if (!AnyListeners()) return;
  const XmlNodePtr self = Self();
  base::Trap(base::InSub(u"cXmlNode.RaiseAdded"), [&] {
    if (EventLock()) return;
    Deliver(EventCall{XmlEvent::Added});
    EventCall up{XmlEvent::ChildAdded};
    up.node = &self;
    RaiseUpward(up, u"cXmlNode.RaiseChildAdded", true);
    // Descendants are told which node the subtree was added to.
    const XmlNodePtr parent = parent_ ? NodeFromPtr(parent_) : XmlNodePtr();
    EventCall down{XmlEvent::ParentAdded};
    down.node = &parent;
    RaiseDownward(down, u"cXmlNode.RaiseParentAdded", true);
  });
}

void cXmlNode::RaiseDeleted(bool locked, const std::vector<cXmlNode*>* ancestors) {
  if (!AnyListeners() || locked) return;
  const XmlNodePtr self = Self();
  base::Trap(base::InSub(u"cXmlNode.RaiseDeleted"), [&] {
    const std::uint64_t epoch = xml::detail::tree_epoch;
    Deliver(EventCall{XmlEvent::Deleted});
    EventCall up{XmlEvent::ChildDeleted};
    up.node = &self;
    if (ancestors && xml::detail::tree_epoch == epoch) {
      base::Trap(base::InSub(u"cXmlNode.RaiseChildDeleted"), [&] {
        for (cXmlNode* a : *ancestors) {
          if (a->listening_ && !a->event_lock_flag_) a->Deliver(up);
          // A handler subscribed someone or moved a node: the rest of the way up goes by the
          // links as they now are.
          if (xml::detail::tree_epoch != epoch) {
            a->RaiseUpward(up, u"cXmlNode.RaiseChildDeleted", true);
            return;
          }
        }
      });
    } else {
      RaiseUpward(up, u"cXmlNode.RaiseChildDeleted", true);
    }
    // Kept from the original on purpose: descendants of a deleted node are told even where
    // their events are locked.
    EventCall down{XmlEvent::ParentDeleted};
    down.node = &self;
    RaiseDownward(down, u"cXmlNode.RaiseParentDeleted", false);
  });
}

void cXmlNode::RaiseNodeEvent(std::u16string_view event_id, xml::EventParamList event_params) {
  base::Trap(base::InSub(u"cXmlNode.RaiseNodeEvent"), [&] {
    if (!event_params) event_params = std::make_shared<xml::EventParams>();
    if (!AnyListeners()) return;
    const XmlNodePtr self = Self();
    const std::u16string id(event_id);
    EventCall own{XmlEvent::NodeEvent};
    own.text = &id;
    own.params = &event_params;
    Deliver(own);
    EventCall up{XmlEvent::ChildNodeEvent};
    up.node = &self;
    up.text = &id;
    up.params = &event_params;
    RaiseUpward(up, u"cXmlNode.RaiseChildNodeEvent", false);
    EventCall down = up;
    down.id = XmlEvent::ParentNodeEvent;
    RaiseDownward(down, u"cXmlNode.RaiseParentNodeEvent", false);
  });
}

// ---- Sleep-data round trip ----------------------------------------------------------------

void cXmlNode::RequestSaveSleepData() {
  base::Trap(base::InSub(u"cXmlNode.RaiseSaveSleepData"), [&] {
    if (sleep_.empty() || !AnyListeners()) return;
    // The request climbs to the root silently; only the root raises the event.
    cXmlNode* root = this;
    while (root->parent_) root = root->parent_;
    if (!root->listening_) return;
    const XmlNodePtr keep_root = root->Self();
    const XmlNodePtr self = Self();
    std::u16string data = sleep_.str();
    bool data_saved = false;
    EventCall call{XmlEvent::SaveSleepData};
    call.node = &self;
    call.data = &data;
    call.data_saved = &data_saved;
    root->Deliver(call);
    // The text is the node's own, passed by reference: a handler that rewrites it without
    // taking it rewrites what the node keeps.
    if (data_saved) {
      sleep_ = xml::SleepText::Owned(xml::kStoredMarker);
    } else if (data != sleep_.view()) {
      sleep_ = xml::SleepText::Owned(std::move(data));
    }
  });
}

void cXmlNode::RequestRestoreSleepData(std::u16string& data) {
  base::Trap(base::InSub(u"cXmlNode.RaiseRestoreSleepData"), [&] {
    if (!AnyListeners()) return;
    cXmlNode* root = this;
    while (root->parent_) root = root->parent_;
    if (!root->listening_) return;
    const XmlNodePtr keep_root = root->Self();
    const XmlNodePtr self = Self();
    EventCall call{XmlEvent::RestoreSleepData};
    call.node = &self;
    call.data = &data;
    root->Deliver(call);
  });
}
