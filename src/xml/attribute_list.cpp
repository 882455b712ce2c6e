#include "xml/attribute_list.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>

#include "base/trap.h"

namespace xml {

AttributeList::AttributeList(const AttributeList& other) {
  *this = other;
}

AttributeList& AttributeList::operator=(const AttributeList& other) {
  if (this == &other) return *this;
  AttributeList copy;
  std::size_t chars = 0;
  for (std::size_t i = 0; i < other.size(); ++i)
    chars += other.name(i).size() + other.value(i).size();
  if (other.size() != 0) copy.Reserve(other.size(), chars);
  for (std::size_t i = 0; i < other.size(); ++i) copy.push_back(other.name(i), other.value(i));
  block_ = std::move(copy.block_);
  return *this;
}

std::size_t AttributeList::MemoryBytes() const {
  if (!block_) return 0;
  return sizeof(Header) + header().entry_capacity * sizeof(Entry) +
         header().char_capacity * sizeof(char16_t);
}

void AttributeList::Reserve(std::size_t more_entries, std::size_t more_chars) {
  const std::size_t count = size();
  std::size_t live_chars = 0;
  if (block_) {
    const Header& h = header();
    if (h.count + more_entries <= h.entry_capacity && h.chars_used + more_chars <= h.char_capacity)
      return;
    for (std::size_t i = 0; i < count; ++i)
      live_chars += entries()[i].name_length + entries()[i].value_length;
  }
  const std::size_t need_entries = count + more_entries;
  const std::size_t need_chars = live_chars + more_chars;
  // Attributes are few and small: a list beyond 4 G characters is not a document's.
  if (need_chars > UINT32_MAX / 2 || need_entries > UINT32_MAX / 2) base::Raise(base::kOutOfMemory);
  // The first block is exact (the reader reserves a whole tag's pairs at once); later ones
  // double, so adding n pairs copies O(n) characters in all.
  const std::size_t entry_capacity = block_ ? std::max(need_entries, 2 * count) : need_entries;
  // After the unused characters are dropped, as much room again as the live ones take.
  const std::size_t char_capacity = block_ ? 2 * need_chars : need_chars;
  const std::size_t bytes =
      sizeof(Header) + entry_capacity * sizeof(Entry) + char_capacity * sizeof(char16_t);
  std::unique_ptr<Unit[]> fresh(new Unit[(bytes + sizeof(Unit) - 1) / sizeof(Unit)]);
  Header& h = *reinterpret_cast<Header*>(fresh.get());
  h.count = static_cast<std::uint32_t>(count);
  h.entry_capacity = static_cast<std::uint32_t>(entry_capacity);
  h.char_capacity = static_cast<std::uint32_t>(char_capacity);
  h.chars_used = 0;
  Entry* to_entries = reinterpret_cast<Entry*>(fresh.get() + 1);
  char16_t* to_chars = reinterpret_cast<char16_t*>(to_entries + entry_capacity);
  for (std::size_t i = 0; i < count; ++i) {
    const std::u16string_view n = name(i);
    const std::u16string_view v = value(i);
    Entry& e = to_entries[i];
    e.name_at = h.chars_used;
    e.name_length = static_cast<std::uint32_t>(n.size());
    std::memcpy(to_chars + h.chars_used, n.data(), n.size() * sizeof(char16_t));
    h.chars_used += e.name_length;
    e.value_at = h.chars_used;
    e.value_length = static_cast<std::uint32_t>(v.size());
    std::memcpy(to_chars + h.chars_used, v.data(), v.size() * sizeof(char16_t));
    h.chars_used += e.value_length;
  }
  block_ = std::move(fresh);
}

std::uint32_t AttributeList::Store(std::u16string_view text) {
  Header& h = header();
  const std::uint32_t at = h.chars_used;
  if (!text.empty()) std::memcpy(chars() + at, text.data(), text.size() * sizeof(char16_t));
  h.chars_used += static_cast<std::uint32_t>(text.size());
  return at;
}

void AttributeList::push_back(std::u16string_view name, std::u16string_view value) {
  if (Inside(name) || Inside(value)) {
    // Views of this block, which Reserve may free.
    const std::u16string n(name), v(value);
    push_back(n, v);
    return;
  }
  Reserve(1, name.size() + value.size());
  Entry e;
  e.name_length = static_cast<std::uint32_t>(name.size());
  e.value_length = static_cast<std::uint32_t>(value.size());
  e.name_at = Store(name);
  e.value_at = Store(value);
  entries()[header().count++] = e;
}

void AttributeList::set_value(std::size_t i, std::u16string_view value) {
  Entry* e = &entries()[i];
  if (value.size() <= e->value_length) {
    // In place: the value may be a view of the old one (shorter, same start), so move.
    std::memmove(chars() + e->value_at, value.data(), value.size() * sizeof(char16_t));
    e->value_length = static_cast<std::uint32_t>(value.size());
    return;
  }
  if (Inside(value)) {
    const std::u16string copy(value);
    set_value(i, copy);
    return;
  }
  Reserve(0, value.size());
  e = &entries()[i];
  e->value_at = Store(value);
  e->value_length = static_cast<std::uint32_t>(value.size());
}

bool AttributeList::Inside(std::u16string_view text) const {
  if (!block_ || text.empty()) return false;
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const auto* begin = reinterpret_cast<const unsigned char*>(block_.get());
  return std::less_equal<>()(begin, p) && std::less<>()(p, begin + MemoryBytes());
}

void AttributeList::erase(std::size_t i) {
  Header& h = header();
  std::memmove(entries() + i, entries() + i + 1, (h.count - i - 1) * sizeof(Entry));
  --h.count;
  if (h.count == 0) block_.reset();
}

}  // namespace xml
