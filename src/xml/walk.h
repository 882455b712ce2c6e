// The one walk over the nodes below a node, for the members of cXmlNode: pre-order, with a
// stack of frames instead of recursion, so that a chain of a million nested nodes is ordinary
// input (the Windows main thread has 2 MB of stack) and every node costs one step.
//
//   std::int32_t count = 0;
//   cXmlNode::Walker::Run(Self(), Empty{}, [&](auto& parent, const XmlNodePtr& child, auto&) {
//     ++count;
//     return child->childs_.empty() ? xml::WalkStep::kSkip : xml::WalkStep::kDescend;
//   });
//
// Each frame holds its node (a counted reference) and a State of the member's choosing (a
// depth, the copy being built, the node it is paired with). The walk holds each child while it
// is entered, so a handler that runs meanwhile (a wake-up asking the application for its
// text, an event) cannot destroy the node under the member's feet.
//
// enter(parent_frame, child, child_state) is called for each child of the frame on top, in
// the walk's order, and answers whether to descend into the child (its frame then carries
// child_state), skip its subtree, or stop the walk. leave(stack) is called when the frame on
// top has no child left, that frame still on the stack (the top frame too); false stops the
// walk. Run answers false when it was stopped.
//
// The children are read from the list as it stands at each step, so a member may change the
// list of the node it is in (delete the child just left, say), as long as its order allows it.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "xml/node.h"

namespace xml {

enum class WalkStep { kDescend, kSkip, kStop };

enum class WalkOrder {
  kFirstToLast,
  // From the last child to the first, counting down from the number of children the node had
  // when it was first looked at. A position past the end (a handler removed children
  // meanwhile) ends the node: stale is told, then leave, as for a node done.
  kLastToFirst,
  // The first child, again and again until there is none: for members whose leave removes
  // the node it is told of.
  kFirstUntilEmpty,
};

}  // namespace xml

template <class State>
struct cXmlNode::WalkFrame {
  XmlNodePtr node;
  State state;
  // kFirstToLast: the position of the next child; kLastToFirst: how many are still to come,
  // or kUnstarted.
  std::size_t next;
  static constexpr std::size_t kUnstarted = static_cast<std::size_t>(-1);
};

struct cXmlNode::Walker {
  struct Empty {};
  struct NoLeave {
    template <class Stack>
    bool operator()(Stack&) const {
      return true;
    }
  };
  struct NoStale {
    template <class Frame>
    void operator()(Frame&) const {}
  };

  template <xml::WalkOrder kOrder = xml::WalkOrder::kFirstToLast, class State, class Enter,
            class Leave = NoLeave, class Stale = NoStale>
  static bool Run(XmlNodePtr top, State state, Enter&& enter, Leave&& leave = {},
                  Stale&& stale = {}) {
    using Frame = WalkFrame<State>;
    constexpr std::size_t kFirstNext =
        kOrder == xml::WalkOrder::kLastToFirst ? Frame::kUnstarted : 0;
    std::vector<Frame> stack;
    stack.push_back(Frame{std::move(top), std::move(state), kFirstNext});
    while (!stack.empty()) {
      Frame& frame = stack.back();
      const ChildList& list = frame.node->childs_;
      std::size_t at = 0;
      bool more = false;
      if constexpr (kOrder == xml::WalkOrder::kFirstToLast) {
        more = frame.next < list.size();
        at = frame.next++;
      } else if constexpr (kOrder == xml::WalkOrder::kLastToFirst) {
        if (frame.next == Frame::kUnstarted) frame.next = list.size();
        if (frame.next > 0) {
          at = --frame.next;
          more = at < list.size();
          if (!more) stale(frame);
        }
      } else {
        more = !list.empty();
      }
      if (!more) {
        if (!leave(stack)) return false;
        stack.pop_back();
        continue;
      }
      XmlNodePtr child = list[at];
      State child_state{};
      switch (enter(frame, child, child_state)) {
        case xml::WalkStep::kStop:
          return false;
        case xml::WalkStep::kSkip:
          break;
        case xml::WalkStep::kDescend:
          stack.push_back(Frame{std::move(child), std::move(child_state), kFirstNext});
          break;
      }
    }
    return true;
  }
};
