// Helpers for the cXmlNode tests: building small trees inline, recording events and log lines,
// and reaching the few internals a test must set (the event lock).
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
  // Raises the Deleted family on a node as it stands (children included).
  static void RaiseDeleted(cXmlNode& node) { node.RaiseDeleted(node.EventLock(), nullptr); }
};

namespace xml_test {

using testing_support::LogCapture;
using Lines = std::vector<std::u16string>;

// A node with a name, a raw text, attributes and children.
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

// A node read lazily (XmlData) or all at once (XmlData___NonRecursif), taking a declaration's
// encoding on request.
inline XmlNodePtr Read(std::u16string_view text, bool full = false, bool encoding = false) {
  XmlNodePtr n = cXmlNode::Create();
  n->IgnoreDataXmlEncoding = !encoding;
  full ? n->XmlData___NonRecursif(text) : n->XmlData(text);
  return n;
}

// The names of a node's children, joined by ",".
inline std::u16string ChildNames(const XmlNodePtr& node) {
  std::u16string names;
  for (std::int32_t i = 1; i <= node->ChildCount(); ++i)
    names += (i > 1 ? u"," : u"") + node->Child(i)->Name();
  return names;
}

// A small tree as one line: name, [attributes], "raw value", {children; ...}. Reading it wakes
// the nodes one level at a time, as ChildCount does.
inline std::u16string Dump(const XmlNodePtr& n) {
  std::u16string out = n->Name();
  for (std::int32_t i = 1; i <= n->AttrCount(); ++i)
    out += (i > 1 ? u"," : u"[") + n->AttrName(i) + u"=" + n->Attribut(n->AttrName(i));
  if (n->AttrCount() > 0) out += u"]";
  if (!n->RawValue().empty()) out += u"\"" + n->RawValue() + u"\"";
  for (std::int32_t i = 1; i <= n->ChildCount(); ++i)
    out += (i > 1 ? u";" : u"{") + Dump(n->Child(i));
  return n->ChildCount() > 0 ? out + u"}" : out;
}

// A typed listener that writes one line per event: "sender:Event" followed by the names of
// the node parameters and the texts, e.g. "b:ChildModified(c,id)". With keep_sleep_text it
// keeps a sleeping node's text itself, and gives back what kept holds.
class Recorder : public xml::XmlNodeEvents {
 public:
  explicit Recorder(Lines& out) : out_(out) {}
  static std::shared_ptr<Recorder> On(std::initializer_list<XmlNodePtr> nodes, Lines& out) {
    auto r = std::make_shared<Recorder>(out);
    for (const auto& n : nodes) n->AddEventSink(r);
    return r;
  }
  using S = cXmlNode;
  using N = XmlNodePtr;
  using T = std::u16string;
  using P = xml::EventParamList;
  void Modified(S& s, const T& a) override { Put(s, __func__, a); }
  void ChildModified(S& s, const N& n, const T& a) override { Put(s, __func__, n, a); }
  void ParentModifed(S& s, const N& n, const T& a) override { Put(s, __func__, n, a); }
  void Deleted(S& s) override { Put(s, __func__); }
  void ChildDeleted(S& s, const N& n) override { Put(s, __func__, n); }
  void ParentDeleted(S& s, const N& n) override { Put(s, __func__, n); }
  void Added(S& s) override { Put(s, __func__); }
  void ChildAdded(S& s, const N& n) override { Put(s, __func__, n); }
  void ParentAdded(S& s, const N& n) override { Put(s, __func__, n); }
  void NodeEvent(S& s, const T& id, const P&) override { Put(s, __func__, id); }
  void ChildNodeEvent(S& s, const T& i, const N& n, const P&) override { Put(s, __func__, i, n); }
  void ParentNodeEvent(S& s, const T& i, const N& n, const P&) override { Put(s, __func__, i, n); }
  void SaveSleepData(S& s, const N& n, T& data, bool& saved) override {
    Put(s, __func__, n, data);
    if (keep_sleep_text) saved = true, kept = data;
  }
  void RestoreSleepData(S& s, const N& n, T& data) override { Put(s, __func__, n), data = kept; }

  bool keep_sleep_text = false;
  std::u16string kept;

 private:
  static T Of(const N& n) { return n ? n->Name() : u"<none>"; }
  static T Of(const T& t) { return t; }
  template <class... A>
  void Put(S& sender, std::string_view event, const A&... params) {
    T line = sender.Name() + u":" + T(event.begin(), event.end());
    [[maybe_unused]] const char16_t* sep = u"(";
    ((line += sep + Of(params), sep = u","), ...);
    out_.push_back(sizeof...(A) ? line + u")" : line);
  }
  Lines& out_;
};

}  // namespace xml_test
