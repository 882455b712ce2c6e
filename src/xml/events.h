// What a cXmlNode tells its listeners: the fourteen node events, the parameters they carry,
// and the two ways of listening.
//
// A C++ listener derives from XmlNodeEvents, overrides the events it wants and subscribes with
// cXmlNode::AddEventSink. A receiver "called by method name" is an EventReceiver: a registry of
// named methods. A node whose EventProxyObject is set and whose EventProxyFunctionName is not
// empty calls, for every event it raises, the receiver's method of that name with the event ID
// and the event's parameters followed by the raising node:
//
//   auto receiver = std::make_shared<xml::EventReceiver>();
//   receiver->RegisterMethod(u"OnXmlEvent", [](const std::u16string& id, xml::EventParams& p) {
//     if (id == u"SaveSleepData") *p[2].BoolRef() = true;  // keep the text ourselves
//   });
//   root->EventProxyObject(receiver);
//   root->EventProxyFunctionName(u"OnXmlEvent");
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

class cXmlNode;
using XmlNodePtr = std::shared_ptr<cXmlNode>;

namespace xml {

// The events in their declared order. ParentModifed is spelt so on purpose: receivers compare
// event IDs against that text.
enum class XmlEvent : std::int32_t {
  SaveSleepData = 1,
  RestoreSleepData,
  Modified,
  ChildModified,
  ParentModifed,
  Deleted,
  ChildDeleted,
  ParentDeleted,
  Added,
  ChildAdded,
  ParentAdded,
  NodeEvent,
  ChildNodeEvent,
  ParentNodeEvent,
};

// The event ID handed to receivers ("Modified", "ParentModifed", ...).
std::u16string_view EventName(XmlEvent event);

class EventParam;
// An ordered list of event parameters.
using EventParams = std::vector<EventParam>;
// A list shared by reference, as application events carry it: handlers see (and may change)
// the very list the raiser passed.
using EventParamList = std::shared_ptr<EventParams>;

// One event parameter: nothing, a boolean, a number, a text, a node, a shared list, or a
// writable reference to a text or a boolean (the by-reference parameters of the sleep-data
// events; writing through them changes the raiser's variable).
class EventParam {
 public:
  using Value = std::variant<std::monostate, bool, std::int32_t, std::u16string, XmlNodePtr,
                             EventParamList, std::u16string*, bool*>;

  EventParam() = default;
  EventParam(bool v) : value(v) {}
  EventParam(std::int32_t v) : value(v) {}
  EventParam(std::u16string v) : value(std::move(v)) {}
  EventParam(const char16_t* v) : value(std::u16string(v)) {}
  EventParam(XmlNodePtr v) : value(std::move(v)) {}
  EventParam(EventParamList v) : value(std::move(v)) {}
  EventParam(std::u16string* v) : value(v) {}
  EventParam(bool* v) : value(v) {}

  // Typed reads; each answers the neutral value (nothing, empty, null) for another type.
  XmlNodePtr Node() const;
  std::u16string Text() const;
  EventParamList List() const;
  std::u16string* TextRef() const;
  bool* BoolRef() const;

  Value value;
};

// A receiver whose methods are called by name. Names are compared without regard to case, as
// late-bound calls are; a name registered twice replaces the earlier method. Derive from it to
// register member functions in a constructor, or fill one from outside.
class EventReceiver {
 public:
  using Method = std::function<void(const std::u16string& event_id, EventParams& params)>;

  virtual ~EventReceiver() = default;

  void RegisterMethod(std::u16string name, Method method);
  void UnregisterMethod(std::u16string_view name);

  // Calls the method registered under name; false when there is none.
  bool CallByName(std::u16string_view name, const std::u16string& event_id,
                  EventParams& params) const;

 private:
  std::vector<std::pair<std::u16string, Method>> methods_;
};

// A typed listener. Every method is called with the node that raises the event (sender) and
// the event's own parameters; the default bodies ignore the event. A listener that throws ends
// the raising procedure (the failure is logged, the change stays made).
class XmlNodeEvents {
 public:
  virtual ~XmlNodeEvents() = default;

  // Raised on the root: node is the one going to sleep, data its text. Set data_saved to keep
  // the text yourself; the node then keeps only the stored marker.
  virtual void SaveSleepData(cXmlNode& sender, const XmlNodePtr& node, std::u16string& data,
                             bool& data_saved) {}
  // Raised on the root when node wakes up with the stored marker: write its text into data.
  virtual void RestoreSleepData(cXmlNode& sender, const XmlNodePtr& node, std::u16string& data) {}
  virtual void Modified(cXmlNode& sender, const std::u16string& attribut) {}
  virtual void ChildModified(cXmlNode& sender, const XmlNodePtr& node,
                             const std::u16string& attribut) {}
  virtual void ParentModifed(cXmlNode& sender, const XmlNodePtr& node,
                             const std::u16string& attribut) {}
  virtual void Deleted(cXmlNode& sender) {}
  virtual void ChildDeleted(cXmlNode& sender, const XmlNodePtr& node) {}
  virtual void ParentDeleted(cXmlNode& sender, const XmlNodePtr& node) {}
  virtual void Added(cXmlNode& sender) {}
  virtual void ChildAdded(cXmlNode& sender, const XmlNodePtr& node) {}
  // parent: the node that the added node was added to.
  virtual void ParentAdded(cXmlNode& sender, const XmlNodePtr& parent) {}
  virtual void NodeEvent(cXmlNode& sender, const std::u16string& event_id,
                         const EventParamList& params) {}
  virtual void ChildNodeEvent(cXmlNode& sender, const std::u16string& event_id,
                              const XmlNodePtr& node, const EventParamList& params) {}
  virtual void ParentNodeEvent(cXmlNode& sender, const std::u16string& event_id,
                               const XmlNodePtr& node, const EventParamList& params) {}
};

}  // namespace xml
