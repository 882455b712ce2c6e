// The text a sleeping node keeps instead of its subtree.
//
// A SleepText is a stretch of a shared, immutable buffer: the nodes read from one document can
// all point into that document's text instead of each holding a copy of its own element. Text
// that belongs to a single node (the stored marker, text handed back by a RestoreSleepData
// handler, the text a node writes for itself when it goes to sleep) is a buffer of its own.
//
//   auto doc = std::make_shared<const std::u16string>(u"<a><b/></a>");
//   xml::SleepText b = xml::SleepText::View(doc, 3, 4);  // "<b/>"
//   xml::SleepText m = xml::SleepText::Owned(xml::kStoredMarker);
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

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
      : buffer_(std::move(other.buffer_)),
        offset_(std::exchange(other.offset_, 0)),
        length_(std::exchange(other.length_, 0)) {}
  SleepText& operator=(SleepText&& other) noexcept {
    buffer_ = std::move(other.buffer_);
    offset_ = std::exchange(other.offset_, 0);
    length_ = std::exchange(other.length_, 0);
    return *this;
  }

  static SleepText Owned(std::u16string text) {
    SleepText s;
    if (!text.empty()) {
      s.length_ = text.size();
      s.buffer_ = std::make_shared<const std::u16string>(std::move(text));
    }
    return s;
  }
  static SleepText Owned(std::u16string_view text) { return Owned(std::u16string(text)); }

  // A view of buffer[offset, offset + length); the range must lie inside the buffer.
  static SleepText View(std::shared_ptr<const std::u16string> buffer, std::size_t offset,
                        std::size_t length) {
    SleepText s;
    if (length != 0) {
      s.buffer_ = std::move(buffer);
      s.offset_ = offset;
      s.length_ = length;
    }
    return s;
  }

  bool empty() const { return length_ == 0; }
  std::size_t size() const { return length_; }
  std::u16string_view view() const {
    return buffer_ ? std::u16string_view(*buffer_).substr(offset_, length_) : std::u16string_view();
  }
  std::u16string str() const { return std::u16string(view()); }
  bool IsStoredMarker() const { return view() == kStoredMarker; }

  // The buffer and the stretch of it, for a reader that keeps walking the same document.
  const std::shared_ptr<const std::u16string>& buffer() const { return buffer_; }
  std::size_t offset() const { return offset_; }

  void clear() {
    buffer_.reset();
    offset_ = 0;
    length_ = 0;
  }

 private:
  std::shared_ptr<const std::u16string> buffer_;
  std::size_t offset_ = 0;
  std::size_t length_ = 0;
};

}  // namespace xml
