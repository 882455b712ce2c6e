// cXmlNode: the program's one document model. Configuration, language files and backup lists
// are trees of it; one class serves as element, as document root and as the handle through
// which a file is read and written.
//
//   XmlNodePtr root = cXmlNode::Create();
//   root->Name(u"TarvelUSBEject");
//   root->GetChildNode(u"Language.Current", /*create=*/true)->Value(u"fr");
//   root->ChildValue(u"Language");  // "" (Language has children, no text)
//
// Ownership: nodes are shared (std::shared_ptr, made only by Create); a parent owns its
// children, a child knows its parent by a plain address, so a tree holds no cycle. A subtree
// lives as long as its parent's list or an outside holder keeps its top node.
//
// Conventions of this class:
// - A property is a pair of overloads: the getter takes the property's arguments, the setter
//   takes them plus the new value (Name() / Name(u"x"); Attribut(u"id") / Attribut(u"id", u"1")).
// - Positions are 1-based and counts are signed 32-bit, as callers and files expect.
// - Names of nodes and attributes are compared without regard to case in lookups, values
//   exactly. Two members break that rule on purpose and callers rely on it: AttributExists
//   compares names exactly, and the "a:" prefix of a FindNode query is exact lower case.
// - Every member traps its own failures: the failure becomes one line in the debug log
//   ("Error 9 (Subscript out of range) in Property cXmlNode.Child", some members in the French
//   form) and the member returns its neutral value (nothing, "", 0, false).
// - Sleeping: a node read lazily from text keeps its subtree as text (its sleep text) until a
//   member needs the children. Every member that reads or changes children or attributes wakes
//   the node first (ChildCount only one level at a time); reading attributes does not.
// - Walks over a subtree or up the ancestors never recurse: a chain of a million nested nodes
//   and a node with a million children are ordinary input.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "xml/attribute_list.h"
#include "xml/events.h"
#include "xml/sleep_text.h"

struct XmlNodeTestPeer;

class cXmlNode : public std::enable_shared_from_this<cXmlNode> {
  struct Token {
    explicit Token() = default;
  };

 public:
  // ---- Creation and destruction -------------------------------------------------------------

  // A new, empty node. The only way to make one.
  static XmlNodePtr Create();
  explicit cXmlNode(Token);
  // Clears the parent link of every remaining child (a child held from outside survives,
  // without a parent). Destroying a deep tree does not recurse.
  ~cXmlNode();
  cXmlNode(const cXmlNode&) = delete;
  cXmlNode& operator=(const cXmlNode&) = delete;

  // Number of nodes alive in the process.
  static std::int64_t LiveNodeCount();

  // ---- Public fields ------------------------------------------------------------------------

  // Set on a node just before DelChild removes it.
  bool Deleted = false;
  // Free value for the caller; the tree never interprets it (the program uses the root's as
  // the "changed" mark).
  std::int32_t ItemData = 0;
  // While set, a declaration's encoding is not copied into XMLEncoding when text is read.
  bool IgnoreDataXmlEncoding = true;

  // ---- Event receiver and listeners ---------------------------------------------------------

  // The receiver called by method name for every event this node raises (see xml/events.h).
  std::shared_ptr<xml::EventReceiver> EventProxyObject() const;
  void EventProxyObject(std::shared_ptr<xml::EventReceiver> receiver);
  std::u16string EventProxyFunctionName() const;
  void EventProxyFunctionName(std::u16string_view name);

  // Typed listeners. The node keeps only a weak reference: a listener that dies is dropped.
  void AddEventSink(const std::shared_ptr<xml::XmlNodeEvents>& sink);
  void RemoveEventSink(const xml::XmlNodeEvents* sink);

  // Raises NodeEvent here, ChildNodeEvent on every ancestor (parent first) and ParentNodeEvent
  // on every descendant (pre-order), whatever the event lock says. A missing list is made
  // empty; the same list object reaches every listener.
  void RaiseNodeEvent(std::u16string_view event_id, xml::EventParamList event_params = nullptr);

  // ---- Parent link and identity -------------------------------------------------------------

  XmlNodePtr Parent();
  // Note: giving a node a new parent first takes it out of its old parent's children, but
  // does not put it into the new parent's: AddChild does that. Clearing the parent only
  // clears the link; the old parent still lists the node.
  void Parent(const XmlNodePtr& parent);
  // A counted reference to the node at ptr (nothing for null or a node being destroyed).
  // Refuses to re-enter: a nested call returns nothing and logs
  // "Warning: XmlNode.NodeFromPtr loop".
  XmlNodePtr NodeFromPtr(cXmlNode* ptr);
  // Number of ancestors.
  std::int32_t Depth() const;
  // 1 without a parent; else the position in the parent's children (0 if the parent does not
  // list this node).
  std::int32_t Index();
  // The root's version rules the whole tree: any node with a parent answers its parent's.
  std::u16string XMLVersion() const;
  // The own encoding when set, else the nearest ancestor's.
  std::u16string XMLEncoding() const;
  void XMLEncoding(std::u16string_view encoding);

  std::u16string Name() const;
  // Wakes the node; raises nothing.
  void Name(std::u16string_view name);

  // RawValue without the CDATA markers around it, when it has both.
  std::u16string Value() const;
  // Wakes the node; raises Modified("") when the text differs (case-sensitive). The text is
  // stored as given: no CDATA markers are added.
  void Value(std::u16string_view value);
  // The stored text, CDATA markers included; no wake-up, no event.
  std::u16string RawValue() const;
  void RawValue(std::u16string_view value);

  // ---- Attributes (two ordered lists, linear scans, insertion order kept) --------------------

  // Value of the first attribute whose name matches without regard to case; "" when none.
  std::u16string Attribut(std::u16string_view name) const;
  // Wakes the node. A new name with a non-empty value is appended; a changed value replaces
  // the old in place; an empty value removes the attribute. Raises Modified(name) on change.
  void Attribut(std::u16string_view name, std::u16string_view value);
  // Note: compares the name exactly (unlike Attribut). With a non-empty value, also whether
  // the stored value equals it exactly.
  bool AttributExists(std::u16string_view name, std::u16string_view value = {}) const;
  std::int32_t AttrCount() const;
  // Name of the attribute at a 1-based position.
  std::u16string AttrName(std::int32_t position) const;
  // Replaces both lists by copies of keys and values; does nothing (false) when their counts
  // differ. Raises nothing.
  bool SetAttributs(const std::vector<std::u16string>& keys,
                    const std::vector<std::u16string>& values);

  // ---- Children -----------------------------------------------------------------------------

  // Wakes one level only.
  std::int32_t ChildCount();
  // The child at a 1-based position; nothing (and a log line) when out of range.
  XmlNodePtr Child(std::int32_t position);
  // Number of all descendants (wakes the whole subtree).
  std::int32_t NodeCount();
  bool ChildExists(std::u16string_view name);
  // Value of the first direct child of that name.
  std::u16string ChildValue(std::u16string_view name);
  // Sets the first such child's Value; with none, appends a new child, unless value is empty.
  void ChildValue(std::u16string_view name, std::u16string_view value);
  // Note: finds with FindNode(child_name, false, false), so this node itself answers when its
  // own name matches.
  std::u16string ChildAttribut(std::u16string_view child_name, std::u16string_view attribut);
  // Note: unlike the getter, takes a dotted path and creates the missing nodes.
  void ChildAttribut(std::u16string_view child_path, std::u16string_view attribut,
                     std::u16string_view value);
  // Moves child here (out of its old parent), at the end or before/after a 1-based position,
  // and raises Added on it. Returns the new number of children (not the position).
  // Adding a node under itself or under one of its descendants is refused (error 5).
  std::int32_t AddChild(const XmlNodePtr& child, std::optional<std::int32_t> before = {},
                        std::optional<std::int32_t> after = {});
  // A new node read from xml_data and added with AddChild.
  XmlNodePtr CreateChild(std::u16string_view xml_data, std::optional<std::int32_t> before = {},
                         std::optional<std::int32_t> after = {});
  // Takes a child out of the list without destroying it and without any event. A node is
  // found by identity; a position is rounded to the nearest integer.
  void EmancipateChild(const XmlNodePtr& child);
  void EmancipateChild(double position);
  void EmancipateChild(std::u16string_view position);
  // Deletes a child: marks it Deleted, deletes its subtree depth-first (first child first,
  // each marked and announced), raises Deleted on it, clears its parent and removes it.
  // Nothing for an empty reference or a node that is not a child.
  void DelChild(const XmlNodePtr& child);
  void DelChild(double position);
  void DelChild(std::u16string_view position);
  // From the last child to the first: without rules deletes every child; with rules deletes
  // the children MatchRule accepts and searches the others the same way.
  void DelChilds(const XmlNodePtr& rules = nullptr);
  // From the last child to the first, deletes children with no children, no text and no
  // attributes; with recursive, each child cleans its own children first.
  void DeleteEmptyChilds(bool recursive);
  // A deep copy without parent, receiver or XMLVersion. Note: a node with children loses its
  // text, and a childless node's text is copied through Value (CDATA markers dropped).
  XmlNodePtr Clone();
  // Copies ItemData over a subtree of the same shape; where child counts differ nothing is
  // copied at that level or below.
  void CopyItemDataTo(const XmlNodePtr& target);
  // Query forms: "name" (name, any case); "a:attr=value" (attribute value, any case; without
  // "=" finds a missing or empty attribute); "name=value" (name any case, Value exact).
  // Recursive: first match in pre-order. Not recursive: this node (full test), then the direct
  // children by name or by the "a:" form only.
  XmlNodePtr FindNode(std::u16string_view node_name, bool recursive = false, bool skip_me = false);
  // Appends, in pre-order, every node MatchRule accepts; stops when results holds exactly
  // max_found entries (max_found <= 0: no limit).
  void FindNodes(const XmlNodePtr& rules, std::vector<XmlNodePtr>& results,
                 std::int32_t max_found = 0);
  // Obsolete; does nothing.
  void BuildXml();

  // ---- Special characters and paths ---------------------------------------------------------

  // Escapes > < & ' " outside CDATA sections and drops the indentation after each CR LF.
  static std::u16string EncodeSpecialChars(std::u16string_view str);
  // Resolves &amp; &lt; &gt; &apos; &quot; (other names give "?") and numeric references
  // through the ANSI code page. Note: not the mirror of EncodeSpecialChars; a reference the
  // code page cannot give leaves the whole text undecoded.
  static std::u16string DecodeSpecialChars(std::u16string_view xml);
  // Names from the top (or from below path_root_node) down to this node, joined by sep. With
  // attribut ("id|name"), each segment is Name + "-" + the first of those attributes that has
  // a value.
  std::u16string Path(std::u16string_view attribut = {}, std::u16string_view sep = u".",
                      const XmlNodePtr& path_root_node = nullptr);

  // ---- Rules --------------------------------------------------------------------------------

  // Whether this node satisfies a rule set (children named "MatchRule", see rules.cpp).
  bool MatchRule(const XmlNodePtr& rules);
  // The ancestor depth levels up (this node for 0 or less); nothing past the top.
  XmlNodePtr GetParent(std::int32_t depth);
  // The first node in pre-order, at most max_depth levels down, that Match accepts.
  XmlNodePtr FindFirstMatch(const XmlNodePtr& rules, const XmlNodePtr& match_node,
                            std::int32_t max_depth);
  // Whether this node pairs with match_node under the rules: the search that merging trees
  // relies on ("is this the node that one stands for?"). It is judged by NodeMatch:
  //   1. The names must be equal without regard to case.
  //   2. The rule that applies is chosen on this node alone, the way MatchRule chooses: the
  //      first "MatchRule" whose path fits this node and whose "filter" criteria hold here.
  //   3. No rule applies: the names decide (a match).
  //   4. Otherwise every other criterion of that rule is a key that must agree between the two
  //      nodes, each side read at the same "parentdepth": an "Attribut" present on both (exact
  //      name) with equal values, a "Child" present on both with equal values; a criterion
  //      with a text also requires that value. Values compare exactly.
  //   5. With recursive, the children must pair too, in order and equal in number.
  // A missing match_node is an empty node, which pairs only with a node without a name.
  bool Match(const XmlNodePtr& rules, const XmlNodePtr& match_node = nullptr,
             bool recursive = false);

  // ---- Child paths --------------------------------------------------------------------------

  // Value (or attribute src_attribut) of the node at a dotted path; "" when the walk fails.
  // With create, missing steps are made and added.
  std::u16string GetChildValue(std::u16string_view child_path, bool create = false,
                               std::u16string_view src_attribut = {});
  // The node at a path split at path_separator; recursive is handed to every FindNode step.
  XmlNodePtr GetChildNode(std::u16string_view child_path, bool create = false,
                          bool recursive = false, std::u16string_view path_separator = u".");
  // Cuts text into consecutive fields of the given lengths, skipping separator_length
  // characters after each; result[i] belongs to lengths[i].
  static std::vector<std::u16string> FixSplit(std::u16string_view text,
                                              const std::vector<std::int32_t>& lengths,
                                              std::int32_t separator_length);

  // ---- Reading (parser.cpp) ------------------------------------------------------------------

  // Reads an element from text into this node: its name, attributes and text, and keeps the
  // element's text asleep; the children are built one level at a time as members need them.
  // Raises Modified(""). An empty text changes nothing but the sleep text.
  void XmlData(std::u16string_view xml_data);
  // The same, taking over the caller's text instead of copying it (a file just read, say).
  void XmlData(std::u16string&& xml_data);
  void XmlData(const char16_t* xml_data) { XmlData(std::u16string_view(xml_data)); }
  // Reads a whole element subtree into this node at once (children deleted first, with events).
  void XmlData___NonRecursif(std::u16string_view xml_data);
  // The reader's rules, as members (positions 1-based, 0 for none; see xml/scan.h):
  // the next element tag at or after start, with the characters up to the end of its closing
  // tag in length and its name in tag_name.
  std::int32_t NextTag(std::u16string_view text, std::int32_t start, std::int32_t& length,
                       std::u16string& tag_name);
  // The "</tag_name>" that closes the element whose "<" is at start - 1, nesting counted.
  std::int32_t FindTagEnd(std::u16string_view text, std::int32_t start,
                          std::u16string_view tag_name);
  // Reads one element's text into this node (name, attributes, raw content); false when its
  // closing tag does not match (the name stays set).
  bool GetTagInfo(std::u16string_view element);
  // Replaces the attributes by those of a tag's attribute text (values decoded).
  void GetTagAttribs(std::u16string_view attribute_text);
  // Whether the content from start on is element markup.
  static bool IsXML(std::u16string_view text, std::int32_t start);
  // Without space, tab, CR and LF at both ends.
  static std::u16string xTrim(std::u16string_view text);
  // Cuts every start_mark ... end_mark stretch; stops at a start mark with no end after it.
  static std::u16string DeleteRems(std::u16string_view text, std::u16string_view start_mark,
                                   std::u16string_view end_mark);

  // ---- Writing (writer.cpp) -----------------------------------------------------------------

  // This node and its subtree as text: one element per line, children one tab deeper, CR LF
  // between lines, "<a/>" for an empty element. Wakes what sleeps.
  std::u16string XmlData();
  // Obsolete name of XmlData.
  std::u16string BuiltXML();
  // EncodeSpecialChars, then UTF-8 bytes as characters when XMLEncoding is "utf-8".
  std::u16string EncodeText(std::u16string_view text) const;
  // Puts level copies of the indent string's first character before every line (lines are
  // split at CR LF), leaving the lines inside a CDATA section as they are.
  static std::u16string Indent(std::u16string_view text, std::int32_t level,
                               std::u16string_view indent_string);

  // ---- Sorting (sort.cpp) -------------------------------------------------------------------

  // Reorders the children by keys read from each child: "a:attr", "c:child", "c:child/a:attr",
  // "name", separated by ",". Numeric columns compare by value, text columns without regard to
  // case; equal keys keep their order (ascending) or reverse it (descending). With
  // recursive_depth >= 1 (or -1: all levels) the children are sorted first. Raises no event.
  void SortChilds(std::u16string_view sort_key, bool ascendant = true,
                  std::int32_t recursive_depth = 0, bool raise_events = false);

  // ---- Lifecycle and navigation -------------------------------------------------------------

  // Keeps this subtree as text only (offered to the application through SaveSleepData). A node
  // that something outside the tree holds below it stays awake, and puts to sleep the branches
  // nobody holds instead.
  void Sleep();
  bool IsSleeping() const;
  // Builds the children from the sleep text (all levels when full, one level otherwise) with
  // events locked; a node whose text an application stored is asked back through
  // RestoreSleepData first.
  void WakeUp(bool full_wakeup);
  // Breaks up the subtree: drops the attributes, deletes every child (with Deleted events),
  // clears the own parent link (the old parent still lists this node) and the sleep text.
  void Release();
  // References held from outside the tree to the nodes below this one; 0 while asleep.
  std::int32_t ExternalRefCount();
  // Holders of node (use_count); 0 for nothing.
  static std::int32_t GetRefCount(const XmlNodePtr& node);
  // Whether node is a child (recursive: a descendant) of this one, by identity.
  bool Contains(const XmlNodePtr& node, bool recursive);
  XmlNodePtr PrevSibling();
  XmlNodePtr NextSibling();
  // The previous sibling, else the parent (does not descend into the sibling's subtree).
  XmlNodePtr PrevNode();
  // The pre-order successor; nothing at the end of the tree.
  XmlNodePtr NextNode();
  XmlNodePtr RootNode();

 private:
  friend struct ::XmlNodeTestPeer;

  // The children: a vector that can also give up its front cheaply, so that deleting or
  // moving children one by one from the start stays linear. Each child remembers its slot
  // (index_hint_), which makes Index and sibling steps constant time; the hint is checked on
  // every use, so a stale one costs a scan, never a wrong answer.
  class ChildList {
   public:
    std::size_t size() const { return slots_.size() - begin_; }
    bool empty() const { return size() == 0; }
    const XmlNodePtr& operator[](std::size_t i) const { return slots_[begin_ + i]; }
    const XmlNodePtr* begin() const { return slots_.data() + begin_; }
    const XmlNodePtr* end() const { return slots_.data() + slots_.size(); }
    const XmlNodePtr& front() const { return slots_[begin_]; }
    const XmlNodePtr& back() const { return slots_.back(); }

    void push_back(XmlNodePtr node);
    void insert(std::size_t i, XmlNodePtr node);
    void erase(std::size_t i);
    void pop_back();
    // Replaces the whole list (the new order of a sort, say).
    void assign(std::vector<XmlNodePtr> nodes);
    // Empties the list, handing its entries over.
    std::vector<XmlNodePtr> take_all();
    // 0-based position of node, or npos.
    std::size_t find(const cXmlNode* node) const;
    static constexpr std::size_t npos = static_cast<std::size_t>(-1);

   private:
    void renumber(std::size_t from_slot, std::size_t to_slot);
    void compact();

    std::vector<XmlNodePtr> slots_;
    std::size_t begin_ = 0;
  };

  // What few nodes need: kept apart so that the many nodes of a document stay small.
  struct Extras {
    std::u16string xml_version;
    std::u16string xml_encoding;
    std::shared_ptr<xml::EventReceiver> proxy;
    std::u16string proxy_name;
    std::vector<std::weak_ptr<xml::XmlNodeEvents>> sinks;
  };

  struct EventCall;
  struct Query;

  XmlNodePtr Self() { return weak_from_this().lock(); }
  // Value without copying: RawValue less its CDATA markers.
  std::u16string_view ValueView() const;
  Extras& GetExtras();
  std::size_t FindAttribut(std::u16string_view name) const;  // npos-like: attrs_.size()
  // The attribute update behind both setters; true when something changed.
  bool UpdateAttribut(std::u16string_view name, std::u16string_view value);
  void SetParentLink(cXmlNode* parent);
  bool IsAncestorOrSelf(const cXmlNode* node) const;

  // Events (events.cpp).
  static bool AnyListeners();
  void UpdateListening();
  bool EventLock() const;
  void Deliver(const EventCall& call);
  void CallReceiver(const EventCall& call);
  void RaiseUpward(const EventCall& call, std::u16string_view site, bool check_lock);
  void RaiseDownward(const EventCall& call, std::u16string_view site, bool check_lock);
  void RaiseModified(const std::u16string& attribut);
  void RaiseAdded();
  // Raises Deleted here; ancestors, when given, are the listening ancestors nearest first
  // (the bulk delete knows them), otherwise the parent links are walked. Once a handler has
  // moved the tree's epoch, the rest of the way up is walked by the links too.
  void RaiseDeleted(bool locked, const std::vector<cXmlNode*>* ancestors);
  // Sleep-data round trip through the root (lifecycle).
  void RequestSaveSleepData();
  void RequestRestoreSleepData(std::u16string& data);

  // Children (children.cpp).
  // Appends without events: for nodes nobody can listen to yet (a clone being built, a tree
  // being read with events locked).
  void AppendChildQuiet(XmlNodePtr child);
  // Deletes the child at a 0-based position with its whole subtree, depth-first, without
  // recursion.
  void DeleteChildAt(std::size_t index);
  void DelChildAtPosition(double position);
  void EmancipateChildAt(std::size_t index);
  // Drops the whole child list at once (a reader starting over, a node going to sleep).
  // Children held elsewhere survive and keep their link to this node.
  void DropChildList();
  bool MatchesQuery(const Query& query, bool full_test) const;

  // Rules (rules.cpp).
  bool PathEndsWith(std::u16string_view suffix) const;
  bool NodeMatch(const XmlNodePtr& rules, const XmlNodePtr& match_node, bool recursive);

  // Entities (entities.cpp): the in-place bodies, used by the reader directly.
  static void EncodeSpecialCharsInPlace(std::u16string& text);
  static void DecodeSpecialCharsInPlace(std::u16string& text);

  // The reader's entry for waking (parser.cpp): builds this node from text, every level when
  // full, one level otherwise. Runs with events locked and the node's own sleep text already
  // cleared, so members called on this node from inside do not wake it again. A failure
  // (thrown) puts the text back: the node stays asleep.
  //
  // What the reader and the writer build on: sleep_ (a view into the document or owned text;
  // a node is asleep exactly while it is non-empty), AppendChildQuiet (no events; the lock is
  // set anyway while waking), DropChildList (start over, or go to sleep), childs_.assign (a new
  // order, keeping the position hints right), RequestSaveSleepData (offer sleep_ to the
  // application after a node has gone to sleep), DecodeSpecialCharsInPlace, RaiseModified.
  // Invariant to keep: a node that is some node's parent_ either lists that node or has
  // parent_of_orphan_ set.
  void ParseSleepText(const xml::SleepText& text, bool full);

  // The one walk over the nodes below a node (xml/walk.h).
  template <class State>
  struct WalkFrame;
  struct Walker;

  // The reader's and the writer's workings (parser.cpp, writer.cpp, sort.cpp).
  struct Reader;
  struct Writer;
  struct Sorter;

  cXmlNode* parent_ = nullptr;
  ChildList childs_;
  std::u16string name_;
  std::u16string raw_value_;
  xml::AttributeList attrs_;
  xml::SleepText sleep_;
  std::unique_ptr<Extras> extras_;
  mutable std::uint32_t index_hint_ = 0;
  bool event_lock_flag_ = false;
  bool node_from_ptr_guard_ = false;
  bool listening_ = false;
  // Set on a node that became the parent link of a node it does not list; AddChild then
  // checks ancestry the slow way, so no parent chain can ever loop.
  bool parent_of_orphan_ = false;
};
