// Helpers for the cXmlNode tests: building small trees inline, recording events and log lines,
// and reaching the few internals a test must set (the event lock, a sleep text).
#pragma once

#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/log_capture.h"
#include "xml/node.h"
#include "xml/node_internal.h"

// Internals that only a wake-up or the reader sets.
struct XmlNodeTestPeer {
  static void SetEventLockFlag(cXmlNode& node, bool on) { node.event_lock_flag_ = on; }
  static void SetSleepText(cXmlNode& node, std::u16string_view text) {
    node.sleep_ = xml::SleepText::Owned(text);
  }
  static std::u16string SleepText(const cXmlNode& node) { return node.sleep_.str(); }
  static void SetNodeFromPtrGuard(cXmlNode& node, bool on) { node.node_from_ptr_guard_ = on; }
  static void SetXmlVersion(cXmlNode& node, std::u16string_view v) {
    node.GetExtras().xml_version.assign(v);
  }
  static void RequestSaveSleepData(cXmlNode& node) { node.RequestSaveSleepData(); }
  // Nodes in the process that have a listener.
  static std::int64_t ListeningNodes() { return xml::detail::listening_nodes; }
  // Appends the way the reader does, without events.
  static void AppendChildQuiet(cXmlNode& parent, XmlNodePtr child) {
    parent.AppendChildQuiet(std::move(child));
  }
  // Raises the Deleted family on a node as it stands (children included).
  static void RaiseDeleted(cXmlNode& node) { node.RaiseDeleted(node.EventLock(), nullptr); }
};

namespace xml_test {

// A node with a name, a text, attributes and children.
struct NodeDef {
  std::u16string name;
  std::u16string value;
  std::vector<std::pair<std::u16string, std::u16string>> attrs = {};
};

inline XmlNodePtr Node(NodeDef def, std::initializer_list<XmlNodePtr> children = {}) {
  XmlNodePtr node = cXmlNode::Create();
  node->Name(def.name);
  node->RawValue(def.value);
  for (const auto& [k, v] : def.attrs) node->Attribut(k, v);
  for (const auto& c : children) node->AddChild(c);
  return node;
}

inline XmlNodePtr Node(const char16_t* name, std::initializer_list<XmlNodePtr> children = {}) {
  return Node(NodeDef{name, {}, {}}, children);
}

// The names of a node's children, joined by ",".
inline std::u16string ChildNames(const XmlNodePtr& node) {
  std::u16string names;
  for (std::int32_t i = 1; i <= node->ChildCount(); ++i) {
    if (i > 1) names += u",";
    names += node->Child(i)->Name();
  }
  return names;
}

// A tree as one line, for comparisons: name, [attributes], "raw value", {children; ...}.
// Reading it wakes the nodes one level at a time, as ChildCount does. Walks without recursion.
inline std::u16string Dump(const XmlNodePtr& top) {
  std::u16string out;
  struct Frame {
    XmlNodePtr node;
    std::int32_t next;
  };
  std::vector<Frame> stack;
  const auto open = [&](const XmlNodePtr& n) {
    out += n->Name();
    if (n->AttrCount() > 0) {
      out += u"[";
      for (std::int32_t i = 1; i <= n->AttrCount(); ++i) {
        if (i > 1) out += u",";
        out += n->AttrName(i) + u"=" + n->Attribut(n->AttrName(i));
      }
      out += u"]";
    }
    if (!n->RawValue().empty()) out += u"\"" + n->RawValue() + u"\"";
    stack.push_back({n, 0});
  };
  open(top);
  while (!stack.empty()) {
    Frame& f = stack.back();
    const std::int32_t count = f.node->ChildCount();
    if (f.next == count) {
      if (count > 0) out += u"}";
      stack.pop_back();
      continue;
    }
    out += f.next == 0 ? u"{" : u";";
    const XmlNodePtr child = f.node->Child(++f.next);
    open(child);
  }
  return out;
}

using testing_support::LogCapture;

// A typed listener that writes one line per event: "sender:Event" followed by the names of
// the node parameters and the texts, e.g. "b:ChildModified(c,id)".
class Recorder : public xml::XmlNodeEvents {
 public:
  explicit Recorder(std::vector<std::u16string>& out) : out_(out) {}

  static std::shared_ptr<Recorder> On(std::initializer_list<XmlNodePtr> nodes,
                                      std::vector<std::u16string>& out) {
    auto r = std::make_shared<Recorder>(out);
    for (const auto& n : nodes) n->AddEventSink(r);
    return r;
  }

  void Modified(cXmlNode& s, const std::u16string& a) override { Put(s, u"Modified", {a}); }
  void ChildModified(cXmlNode& s, const XmlNodePtr& n, const std::u16string& a) override {
    Put(s, u"ChildModified", {NameOf(n), a});
  }
  void ParentModifed(cXmlNode& s, const XmlNodePtr& n, const std::u16string& a) override {
    Put(s, u"ParentModifed", {NameOf(n), a});
  }
  void Deleted(cXmlNode& s) override { Put(s, u"Deleted", {}); }
  void ChildDeleted(cXmlNode& s, const XmlNodePtr& n) override {
    Put(s, u"ChildDeleted", {NameOf(n)});
  }
  void ParentDeleted(cXmlNode& s, const XmlNodePtr& n) override {
    Put(s, u"ParentDeleted", {NameOf(n)});
  }
  void Added(cXmlNode& s) override { Put(s, u"Added", {}); }
  void ChildAdded(cXmlNode& s, const XmlNodePtr& n) override { Put(s, u"ChildAdded", {NameOf(n)}); }
  void ParentAdded(cXmlNode& s, const XmlNodePtr& n) override {
    Put(s, u"ParentAdded", {NameOf(n)});
  }
  void NodeEvent(cXmlNode& s, const std::u16string& id, const xml::EventParamList&) override {
    Put(s, u"NodeEvent", {id});
  }
  void ChildNodeEvent(cXmlNode& s, const std::u16string& id, const XmlNodePtr& n,
                      const xml::EventParamList&) override {
    Put(s, u"ChildNodeEvent", {id, NameOf(n)});
  }
  void ParentNodeEvent(cXmlNode& s, const std::u16string& id, const XmlNodePtr& n,
                       const xml::EventParamList&) override {
    Put(s, u"ParentNodeEvent", {id, NameOf(n)});
  }
  void SaveSleepData(cXmlNode& s, const XmlNodePtr& n, std::u16string& data, bool& saved) override {
    Put(s, u"SaveSleepData", {NameOf(n), data});
    if (keep_sleep_text) {
      saved = true;
      kept = data;
    }
  }
  void RestoreSleepData(cXmlNode& s, const XmlNodePtr& n, std::u16string& data) override {
    Put(s, u"RestoreSleepData", {NameOf(n)});
    data = kept;
  }

  bool keep_sleep_text = false;
  std::u16string kept;

 private:
  static std::u16string NameOf(const XmlNodePtr& n) { return n ? n->Name() : u"<none>"; }
  void Put(cXmlNode& sender, std::u16string_view event,
           std::initializer_list<std::u16string> params) {
    std::u16string line = sender.Name() + u":" + std::u16string(event);
    if (params.size() != 0) {
      line += u"(";
      bool first = true;
      for (const auto& p : params) {
        if (!first) line += u",";
        line += p;
        first = false;
      }
      line += u")";
    }
    out_.push_back(std::move(line));
  }
  std::vector<std::u16string>& out_;
};

}  // namespace xml_test
