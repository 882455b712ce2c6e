#include "xml/tag_index.h"

#include <algorithm>
#include <string>
#include <unordered_map>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "base/trap.h"
#include "xml/char_search.h"
#include "xml/scan.h"

namespace xml {

namespace {

constexpr std::uint32_t kNo = TagIndex::kNoTag;

// How many unpaired openings a closing tag looks past before it falls back to the name table.
// Stray tags between an element's tags ("<a>1<2</a>") are skipped this way without the table.
constexpr int kWalkBack = 4;

// Exact identities for names compared without regard to case. A name with no "<" is its folded
// text; a name with a "<" is (part before its first "<", identity of the rest), so the names of
// a run of "<" sharing one end ("<<<<a>") cost their own length once, not the run's length each.
class KeyTable {
 public:
  explicit KeyTable(const char16_t* text) : text_(text) {}

  std::uint32_t Leaf(std::size_t begin, std::size_t end, bool insert) {
    std::u16string key(end - begin, u'\0');
    for (std::size_t i = 0; i < key.size(); ++i) key[i] = FoldCase(text_[begin + i]);
    auto it = leaves_.find(key);
    if (it != leaves_.end()) return it->second;
    if (!insert) return kNo;
    leaves_.emplace(std::move(key), next_);
    return next_++;
  }

  std::uint32_t Pair(std::uint32_t head, std::uint32_t rest, bool insert) {
    if (head == kNo || rest == kNo) return kNo;
    const std::uint64_t key = (static_cast<std::uint64_t>(head) << 32) | rest;
    auto it = pairs_.find(key);
    if (it != pairs_.end()) return it->second;
    if (!insert) return kNo;
    pairs_.emplace(key, next_);
    return next_++;
  }

 private:
  const char16_t* text_;
  std::unordered_map<std::u16string, std::uint32_t> leaves_;
  std::unordered_map<std::uint64_t, std::uint32_t> pairs_;
  std::uint32_t next_ = 0;
};

// Where "<", ">" and " " lie, 64 characters at a time: one vector pass classifies a block and
// every tag in it is then found with bit operations, instead of a new search per tag.
class Marks {
 public:
  static constexpr unsigned kLt = 1, kGt = 2, kSpace = 4;

  Marks(const char16_t* text, std::size_t n) : s_(text), n_(n) {}

  // The first position at or after `pos` holding one of the chosen characters, or n.
  template <unsigned kWhich>
  std::size_t Next(std::size_t pos) {
    while (pos < n_) {
      const std::size_t base = pos & ~std::size_t{63};
      if (base != base_) Load(base);
      std::uint64_t m = 0;
      if (kWhich & kLt) m |= lt_;
      if (kWhich & kGt) m |= gt_;
      if (kWhich & kSpace) m |= sp_;
      m &= ~std::uint64_t{0} << (pos - base);
      if (m != 0) return base + static_cast<std::size_t>(__builtin_ctzll(m));
      pos = base + 64;
    }
    return n_;
  }

 private:
  void Load(std::size_t base) {
    base_ = base;
    lt_ = gt_ = sp_ = 0;
    const char16_t* p = s_ + base;
#if defined(__SSE2__)
    if (base + 64 <= n_) {
      const __m128i lt = _mm_set1_epi16(u'<');
      const __m128i gt = _mm_set1_epi16(u'>');
      const __m128i sp = _mm_set1_epi16(u' ');
      for (int k = 0; k < 4; ++k) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16 * k));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16 * k + 8));
        const int shift = 16 * k;
        lt_ |= static_cast<std::uint64_t>(static_cast<unsigned>(_mm_movemask_epi8(
                   _mm_packs_epi16(_mm_cmpeq_epi16(a, lt), _mm_cmpeq_epi16(b, lt)))))
               << shift;
        gt_ |= static_cast<std::uint64_t>(static_cast<unsigned>(_mm_movemask_epi8(
                   _mm_packs_epi16(_mm_cmpeq_epi16(a, gt), _mm_cmpeq_epi16(b, gt)))))
               << shift;
        sp_ |= static_cast<std::uint64_t>(static_cast<unsigned>(_mm_movemask_epi8(
                   _mm_packs_epi16(_mm_cmpeq_epi16(a, sp), _mm_cmpeq_epi16(b, sp)))))
               << shift;
      }
      return;
    }
#endif
    const std::size_t count = n_ - base < 64 ? n_ - base : 64;
    for (std::size_t i = 0; i < count; ++i) {
      const std::uint64_t bit = std::uint64_t{1} << i;
      if (p[i] == u'<') lt_ |= bit;
      if (p[i] == u'>') gt_ |= bit;
      if (p[i] == u' ') sp_ |= bit;
    }
  }

  const char16_t* s_;
  std::size_t n_;
  std::size_t base_ = ~std::size_t{0};
  std::uint64_t lt_ = 0, gt_ = 0, sp_ = 0;
};

class Builder {
 public:
  Builder(std::u16string_view text, std::vector<std::uint32_t>& position,
          std::vector<std::uint32_t>& closing, std::vector<std::uint32_t>& declarations)
      : s_(text.data()),
        n_(text.size()),
        position_(position),
        closing_(closing),
        declarations_(declarations),
        keys_(s_),
        marks_(s_, n_) {}

  // Indexes the whole text; false when stopped at the first "<!--" (with stop_at_comment).
  bool Run(bool stop_at_comment);

 private:
  // An unpaired opening tag: its "<" number and its name's place in the text.
  struct Open {
    std::uint32_t tag;
    std::uint32_t name;
    std::uint32_t length;
  };
  // The unpaired openings of one kind of name, oldest first. Entries below `interned` are also
  // in the name table's chains. Entries paired out of order stay until they reach the top.
  struct Family {
    std::vector<Open> stack;
    std::size_t interned = 0;
  };

  std::uint32_t AddTag(std::size_t pos) {
    position_.push_back(static_cast<std::uint32_t>(pos));
    closing_.push_back(kNo);
    return static_cast<std::uint32_t>(position_.size() - 1);
  }
  bool Paired(std::uint32_t tag) const { return closing_[tag] != kNo; }
  bool IsComment(std::size_t q) const {
    return q + 3 < n_ && s_[q + 1] == u'!' && s_[q + 2] == u'-' && s_[q + 3] == u'-';
  }

  std::size_t Group(std::size_t q, bool stop_at_comment, bool& stopped);
  void Tag(std::uint32_t tag, std::size_t q, std::size_t name_end, std::size_t next, std::size_t gt,
           bool self_closing, std::size_t group_first, std::size_t group_count);
  Family& FamilyOf(std::size_t name, std::size_t length);
  void Close(Family& family, std::uint32_t tag, std::size_t key, std::size_t length);
  void ChainPush(std::uint32_t key, std::uint32_t tag);
  void ChainClose(std::uint32_t key, std::uint32_t tag);
  void ComputeRawNameKeys(std::size_t first, std::size_t count, std::size_t gt);
  void ActivateSlashFamily(std::uint32_t current);

  const char16_t* s_;
  std::size_t n_;
  std::vector<std::uint32_t>& position_;
  std::vector<std::uint32_t>& closing_;
  std::vector<std::uint32_t>& declarations_;
  KeyTable keys_;
  Marks marks_;
  std::vector<std::vector<std::uint32_t>> chains_;  // per name identity, unpaired openings

  Family plain_;  // ordinary names
  Family bang_;   // names beginning "!" or "?": CDATA sections, document types, declarations
  Family slash_;  // names beginning "/": every closing tag is also an opening of "/name"
  // Every closing tag is also an opening of "/name", but only a "<//name>" can close one. Until
  // such a tag shows up, they are not kept; then the text before it is read again, once.
  bool slash_active_ = false;

  std::vector<std::uint32_t> name_end_;  // per tag of the current group
  std::vector<std::uint32_t> raw_key_;   // per tag of the current group, when needed
  bool raw_keys_ready_ = false;
};

bool Builder::Run(bool stop_at_comment) {
  const char16_t* s = s_;
  const std::size_t n = n_;
  std::size_t pos = 0;
  plain_.stack.reserve(64);
  while (true) {
    const std::size_t q = marks_.Next<Marks::kLt>(pos);
    if (q == n) return true;
    if (stop_at_comment && IsComment(q)) return false;
    // The usual tag, "<name>" or "<name attributes>", alone up to its ">".
    const std::size_t c = marks_.Next<Marks::kLt | Marks::kGt | Marks::kSpace>(q + 1);
    if (c < n && s[c] != u'<') {
      const std::size_t gt = s[c] == u'>' ? c : marks_.Next<Marks::kLt | Marks::kGt>(c + 1);
      if (gt < n && s[gt] == u'>') {
        const std::uint32_t tag = AddTag(q);
        pos = gt + 1;
        const char16_t first = s[q + 1];
        const bool self_closing = s[gt - 1] == u'/';
        if (first == u'/' && c == gt && slash_active_ == false && !self_closing) {
          // "</name>": pairs with the top opening when the names agree; its own opening of
          // "/name" is not kept (see slash_active_).
          const std::size_t key = q + 2;
          const std::size_t length = gt - key;
          auto& stack = plain_.stack;
          if (length != 0 && !stack.empty() && stack.back().length == length && s[key] != u'/' &&
              s[key] != u'!' && s[key] != u'?') {
            const Open& top = stack.back();
            if (EqualFolded(s + top.name, s + key, length) && !Paired(top.tag)) {
              closing_[top.tag] = tag;
              stack.pop_back();
              if (plain_.interned > stack.size()) plain_.interned = stack.size();
              continue;
            }
          }
        } else if (!self_closing && c - q > 1 && first != u'/' && first != u'!' && first != u'?') {
          // "<name ...>": an opening of an ordinary name.
          plain_.stack.push_back(
              {tag, static_cast<std::uint32_t>(q + 1), static_cast<std::uint32_t>(c - q - 1)});
          continue;
        }
        Tag(tag, q, c, gt, gt, self_closing, tag, 1);
        continue;
      }
    }
    bool stopped = false;
    pos = Group(q, stop_at_comment, stopped);
    if (stopped) return false;
    if (pos >= n) return true;
  }
}

// Several "<" before one ">" (a "<" in an attribute value, "<a<b>", text like "1<2<3>"): every
// one is a tag, all ending at that ">". Returns the position after it, or n_ when there is none.
std::size_t Builder::Group(std::size_t q, bool stop_at_comment, bool& stopped) {
  const std::size_t first = AddTag(q);
  name_end_.assign(1, kNo);
  std::size_t unnamed = 0;
  std::size_t pos = q + 1;
  std::size_t c = marks_.Next<Marks::kLt | Marks::kGt | Marks::kSpace>(pos);
  while (true) {
    if (c == n_) return n_;  // no ">" after these: they open nothing, and no later tag closes
    if (s_[c] == u'>') break;
    if (s_[c] == u' ') {
      for (; unnamed < name_end_.size(); ++unnamed)
        name_end_[unnamed] = static_cast<std::uint32_t>(c);
    } else {
      if (stop_at_comment && IsComment(c)) {
        stopped = true;
        return n_;
      }
      AddTag(c);
      name_end_.push_back(kNo);
    }
    pos = c + 1;
    c = unnamed < name_end_.size() ? marks_.Next<Marks::kLt | Marks::kGt | Marks::kSpace>(pos)
                                   : marks_.Next<Marks::kLt | Marks::kGt>(pos);
  }
  const std::size_t gt = c;
  for (; unnamed < name_end_.size(); ++unnamed) name_end_[unnamed] = static_cast<std::uint32_t>(gt);
  const std::size_t count = position_.size() - first;
  const bool self_closing = s_[gt - 1] == u'/';
  raw_keys_ready_ = false;
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint32_t tag = static_cast<std::uint32_t>(first + i);
    const std::size_t next = i + 1 < count ? position_[tag + 1] : gt;
    Tag(tag, position_[tag], name_end_[i], next, gt, self_closing, first, count);
  }
  return gt + 1;
}

// One tag: `name_end` is the first space after its "<" (or its ">"), `next` the next "<" of its
// group (or its ">").
void Builder::Tag(std::uint32_t tag, std::size_t q, std::size_t name_end, std::size_t next,
                  std::size_t gt, bool self_closing, std::size_t group_first,
                  std::size_t group_count) {
  const char16_t first = s_[q + 1];
  if (first == u'?' && q + 5 <= n_ && s_[q + 2] == u'x' && s_[q + 3] == u'm' && s_[q + 4] == u'l')
    declarations_.push_back(tag);
  // "</key>" with no space in it closes "key". Its own opening part comes after.
  if (first == u'/' && name_end == gt) {
    if (next < gt) {
      if (!raw_keys_ready_) ComputeRawNameKeys(group_first, group_count, gt);
      const std::size_t rest = tag - group_first + 1;
      ChainClose(keys_.Pair(keys_.Leaf(q + 2, next, false), raw_key_[rest], false), tag);
    } else {
      const std::size_t key = q + 2;
      const std::size_t length = gt - key;
      if (length != 0 && s_[key] != u'/' && s_[key] != u'!' && s_[key] != u'?') {
        // The usual closing tag: the top opening of the ordinary names is its element.
        auto& stack = plain_.stack;
        if (!stack.empty()) {
          const Open& top = stack.back();
          if (top.length == length && EqualFolded(s_ + top.name, s_ + key, length) &&
              !Paired(top.tag)) {
            closing_[top.tag] = tag;
            stack.pop_back();
            if (plain_.interned > stack.size()) plain_.interned = stack.size();
            goto opening;
          }
        }
        Close(plain_, tag, key, length);
      } else {
        Family& family = FamilyOf(key, length);
        if (&family == &slash_ && !slash_active_) ActivateSlashFamily(tag);
        Close(family, tag, key, length);
      }
    }
  }
opening:
  if (self_closing) return;
  if (next < name_end) {  // the name holds a "<"
    if (!raw_keys_ready_) ComputeRawNameKeys(group_first, group_count, gt);
    ChainPush(raw_key_[tag - group_first], tag);
    return;
  }
  const std::size_t length = name_end - q - 1;
  if (length != 0 && first != u'/' && first != u'!' && first != u'?') {
    plain_.stack.push_back(
        {tag, static_cast<std::uint32_t>(q + 1), static_cast<std::uint32_t>(length)});
    return;
  }
  Family& family = FamilyOf(q + 1, length);
  if (&family != &slash_ || slash_active_) {
    family.stack.push_back(
        {tag, static_cast<std::uint32_t>(q + 1), static_cast<std::uint32_t>(length)});
  }
}

Builder::Family& Builder::FamilyOf(std::size_t name, std::size_t length) {
  if (length == 0) return plain_;
  const char16_t c = s_[name];
  if (c == u'!' || c == u'?') return bang_;
  if (c == u'/') return slash_;
  return plain_;
}

void Builder::Close(Family& family, std::uint32_t tag, std::size_t key, std::size_t length) {
  auto& stack = family.stack;
  while (!stack.empty() && Paired(stack.back().tag)) stack.pop_back();
  if (family.interned > stack.size()) family.interned = stack.size();
  if (!stack.empty()) {
    const Open& top = stack.back();
    if (top.length == length && EqualFolded(s_ + top.name, s_ + key, length)) {
      closing_[top.tag] = tag;
      stack.pop_back();
      if (family.interned > stack.size()) family.interned = stack.size();
      return;
    }
    int steps = 0;
    for (std::size_t i = stack.size() - 1; i-- > 0 && steps < kWalkBack; ++steps) {
      const Open& open = stack[i];
      if (Paired(open.tag)) continue;
      if (open.length == length && EqualFolded(s_ + open.name, s_ + key, length)) {
        closing_[open.tag] = tag;
        return;
      }
    }
  }
  // Names interleave here: every unpaired opening goes into the table (once), and the closing
  // takes the most recent unpaired opening of its name from there.
  for (; family.interned < stack.size(); ++family.interned) {
    const Open& open = stack[family.interned];
    if (!Paired(open.tag))
      ChainPush(keys_.Leaf(open.name, open.name + open.length, true), open.tag);
  }
  ChainClose(keys_.Leaf(key, key + length, false), tag);
}

void Builder::ChainPush(std::uint32_t key, std::uint32_t tag) {
  if (key >= chains_.size()) chains_.resize(key + 1);
  chains_[key].push_back(tag);
}

void Builder::ChainClose(std::uint32_t key, std::uint32_t tag) {
  if (key == kNo || key >= chains_.size()) return;
  auto& chain = chains_[key];
  while (!chain.empty() && Paired(chain.back())) chain.pop_back();
  if (chain.empty()) return;
  closing_[chain.back()] = tag;
  chain.pop_back();
}

void Builder::ComputeRawNameKeys(std::size_t first, std::size_t count, std::size_t gt) {
  // The raw name of a tag runs from after its "<" to its name end; when the next "<" of the
  // group lies before that end, the raw name is (text up to that "<", raw name of that tag).
  raw_key_.assign(count, kNo);
  for (std::size_t i = count; i-- > 0;) {
    const std::size_t q = position_[first + i];
    const std::size_t name_end = name_end_[i];
    const std::size_t next = i + 1 < count ? position_[first + i + 1] : gt;
    raw_key_[i] = next < name_end ? keys_.Pair(keys_.Leaf(q + 1, next, true), raw_key_[i + 1], true)
                                  : keys_.Leaf(q + 1, name_end, true);
  }
  raw_keys_ready_ = true;
}

void Builder::ActivateSlashFamily(std::uint32_t current) {
  slash_active_ = true;
  // The openings of "/name" among the tags before the current one, in order: tags whose name
  // starts with "/", holds no "<" and whose ">" does not follow a "/". One forward pass.
  const std::size_t tags = position_.size();
  std::size_t k = 0;
  while (k < current) {
    const std::size_t q = position_[k];
    // The group of tags sharing the first ">" after q, and the name end of each.
    const std::size_t gt = FindChar(s_, q + 1, n_, u'>');
    std::size_t last = k;
    while (last + 1 < tags && position_[last + 1] < gt) ++last;
    const bool self_closing = gt < n_ && s_[gt - 1] == u'/';
    for (std::size_t i = k; i <= last && i < current; ++i) {
      const std::size_t p = position_[i];
      const std::size_t next = i < last ? position_[i + 1] : gt;
      const std::size_t name_end = FindChar2(s_, p + 1, next, u' ', u'>');
      if (gt < n_ && !self_closing && s_[p + 1] == u'/' && name_end < next + (next == gt))
        slash_.stack.push_back({static_cast<std::uint32_t>(i), static_cast<std::uint32_t>(p + 1),
                                static_cast<std::uint32_t>(name_end - p - 1)});
    }
    k = last + 1;
  }
}

}  // namespace

TagIndex::TagIndex(std::u16string_view text, bool stop_at_comment) {
  if (text.size() >= kNoTag) base::Raise(base::kOutOfMemory);
  position_.reserve(text.size() / 16);
  closing_.reserve(text.size() / 16);
  complete_ = Builder(text, position_, closing_, declaration_tags_).Run(stop_at_comment);
  // The index lives as long as a sleeping element needs it: give back what growing left over.
  if (position_.capacity() - position_.size() > position_.size() / 4) {
    position_.shrink_to_fit();
    closing_.shrink_to_fit();
  }
  // The "<?xml" of a declaration is a tag like any other; the first "?>" after each is found
  // in one forward pass, since those positions only grow.
  std::size_t found = std::u16string_view::npos;
  for (std::uint32_t tag : declaration_tags_) {
    const std::size_t from = position_[tag] + std::size_t{1};
    if (found == std::u16string_view::npos || found < from) {
      found = FindText(text, u"?>", from);
      if (found == std::u16string_view::npos) {
        declaration_ends_.resize(declaration_tags_.size(), kNoTag);
        break;
      }
    }
    declaration_ends_.push_back(static_cast<std::uint32_t>(found));
  }
}

std::size_t TagIndex::FirstTagAtOrAfter(std::size_t pos) const {
  return static_cast<std::size_t>(std::lower_bound(position_.begin(), position_.end(), pos) -
                                  position_.begin());
}

}  // namespace xml
