// The text a sleeping node keeps instead of its subtree.
//
// A SleepText is either an element of a shared, prepared document, or a text of its own:
//
//   - The nodes read from one document all point into that document (xml::ScannedText: the text
//     after the declaration step and the comment cut, and its tag index), each at the stretch
//     its element takes there, together with the number of that stretch's first "<". Waking
//     such a node reads its element straight from the index: nothing is copied or searched
//     again, and a whole document costs one text and one index however it is woken.
//   - Text that belongs to a single node (the stored marker, text handed back by a
//     RestoreSleepData handler, the text a node writes for itself when it goes to sleep) is a
//     buffer of its own, read from scratch when the node wakes.
//
//   xml::SleepText m = xml::SleepText::Owned(xml::kStoredMarker);
//   xml::SleepText e = xml::SleepText::Element(doc, span);  // doc: shared_ptr<const ScannedText>
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "base/trap.h"
#include "xml/element_scan.h"

namespace xml {

// What a node keeps when an application took its sleep text into its own keeping.
inline constexpr std::u16string_view kStoredMarker = u"_-_STORED_-_";

class SleepText {
 public:
  SleepText() = default;
  SleepText(const SleepText&) = default;
  SleepText& operator=(const SleepText&) = default;
  // A moved-from text is empty.
  SleepText(SleepText&& other) noexcept
      : owner_(std::move(other.owner_)),
        data_(std::exchange(other.data_, nullptr)),
        length_(std::exchange(other.length_, 0)),
        first_tag_(std::exchange(other.first_tag_, kOwnText)) {}
  SleepText& operator=(SleepText&& other) noexcept {
    owner_ = std::move(other.owner_);
    data_ = std::exchange(other.data_, nullptr);
    length_ = std::exchange(other.length_, 0);
    first_tag_ = std::exchange(other.first_tag_, kOwnText);
    return *this;
  }

  // A text of its own. Raises 7 (Out of memory) from 4 G characters on.
  static SleepText Owned(std::u16string text) {
    SleepText s;
    if (!text.empty()) {
      if (text.size() > UINT32_MAX) base::Raise(base::kOutOfMemory);
      auto buffer = std::make_shared<const std::u16string>(std::move(text));
      s.data_ = buffer->data();
      s.length_ = static_cast<std::uint32_t>(buffer->size());
      s.owner_ = std::move(buffer);
    }
    return s;
  }
  static SleepText Owned(std::u16string_view text) { return Owned(std::u16string(text)); }

  // The element at `span` of a prepared document (empty for an empty span). A document's text
  // and its tag numbers stay below 2 G (the index refuses 4 G characters; 2 G tag numbers would
  // need a text of 8 GB): raises 7 beyond.
  static SleepText Element(std::shared_ptr<const ScannedText> doc, ElementSpan span) {
    SleepText s;
    if (span.end > span.begin) {
      if (span.first_tag >= kOwnText) base::Raise(base::kOutOfMemory);
      s.data_ = doc->Text().data() + span.begin;
      s.length_ = span.end - span.begin;
      s.first_tag_ = span.first_tag;
      s.owner_ = std::move(doc);
    }
    return s;
  }

  bool empty() const { return length_ == 0; }
  std::size_t size() const { return length_; }
  std::u16string_view view() const { return std::u16string_view(data_, length_); }
  std::u16string str() const { return std::u16string(view()); }
  bool IsStoredMarker() const { return view() == kStoredMarker; }

  // The document this text is an element of, or nothing for a text of its own.
  const ScannedText* Document() const {
    return first_tag_ == kOwnText ? nullptr : static_cast<const ScannedText*>(owner_.get());
  }
  std::shared_ptr<const ScannedText> SharedDocument() const {
    if (first_tag_ == kOwnText) return nullptr;
    return std::static_pointer_cast<const ScannedText>(owner_);
  }
  // The element's stretch of its document (only for an element of a document).
  ElementSpan Span() const {
    const auto begin = static_cast<std::uint32_t>(data_ - Document()->Text().data());
    return ElementSpan{begin, begin + length_, first_tag_};
  }

  void clear() {
    owner_.reset();
    data_ = nullptr;
    length_ = 0;
    first_tag_ = kOwnText;
  }

 private:
  static constexpr std::uint32_t kOwnText = 0x80000000u;

  // The ScannedText for an element of a document, the std::u16string for a text of its own.
  std::shared_ptr<const void> owner_;
  const char16_t* data_ = nullptr;
  std::uint32_t length_ = 0;
  std::uint32_t first_tag_ = kOwnText;
};

}  // namespace xml
