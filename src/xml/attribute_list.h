// A node's attributes: (name, value) pairs in the order they were added, held in one block of
// memory (a table of positions, then the characters), so that an element with ten attributes
// costs one allocation instead of twenty strings. An empty list holds no memory at all.
//
//   xml::AttributeList a;
//   a.push_back(u"id", u"7");
//   a.set_value(0, u"8");
//   a.name(0);   // u"id"
//   a.value(0);  // u"8"
//
// Changing a value that does not fit in place, or erasing, leaves the old characters unused;
// they are dropped the next time the block grows, so a list never holds more than twice the
// most its pairs took at one time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

namespace xml {

class AttributeList {
 public:
  AttributeList() = default;
  AttributeList(const AttributeList& other);
  AttributeList& operator=(const AttributeList& other);
  AttributeList(AttributeList&&) noexcept = default;
  AttributeList& operator=(AttributeList&&) noexcept = default;

  std::size_t size() const { return block_ ? header().count : 0; }
  bool empty() const { return size() == 0; }
  std::u16string_view name(std::size_t i) const {
    const Entry& e = entries()[i];
    return {chars() + e.name_at, e.name_length};
  }
  std::u16string_view value(std::size_t i) const {
    const Entry& e = entries()[i];
    return {chars() + e.value_at, e.value_length};
  }

  void push_back(std::u16string_view name, std::u16string_view value);
  void set_value(std::size_t i, std::u16string_view value);
  void erase(std::size_t i);
  void clear() { block_.reset(); }
  // Makes room for `more_entries` more pairs of `more_chars` characters in all (dropping the
  // unused characters), so that adding them allocates nothing.
  void Reserve(std::size_t more_entries, std::size_t more_chars);

  // Bytes held.
  std::size_t MemoryBytes() const;

 private:
  struct Header {
    std::uint32_t count;
    std::uint32_t entry_capacity;
    std::uint32_t chars_used;
    std::uint32_t char_capacity;
  };
  struct Entry {
    std::uint32_t name_at;
    std::uint32_t name_length;
    std::uint32_t value_at;
    std::uint32_t value_length;
  };
  static_assert(sizeof(Header) == 16 && sizeof(Entry) == 16);

  Header& header() const { return *reinterpret_cast<Header*>(block_.get()); }
  Entry* entries() const { return reinterpret_cast<Entry*>(block_.get() + 1); }
  char16_t* chars() const {
    return reinterpret_cast<char16_t*>(entries() + header().entry_capacity);
  }
  // Whether text lies in this list's block.
  bool Inside(std::u16string_view text) const;
  // Copies `text` to the end of the characters; room must be there.
  std::uint32_t Store(std::u16string_view text);

  // 16-byte units: the header, the entries, then the characters.
  struct alignas(16) Unit {
    unsigned char bytes[16];
  };
  std::unique_ptr<Unit[]> block_;
};

}  // namespace xml
