// cXmlNode: sorting a node's children by keys read from each child.
//
// Every child becomes one text in which each key fills a column of fixed width (numbers with
// leading zeros when the whole column is numeric, so that they compare by value; other values
// padded with spaces), followed by the child's position; those texts are sorted by the
// program's own string sort without regard to case, and the children are put in their order.
// The position makes every text unique: equal keys keep their order ascending and come out
// reversed descending, as the backup list expects.
#include <cmath>
#include <cstdio>

#include "base/trap.h"
#include "xml/node.h"
#include "xml/node_internal.h"
#include "xml/sort_strings.h"
#include "xml/walk.h"

namespace {

enum class KeyKind { kNone, kAttribut, kChildValue, kChildAttribut, kName };

struct SortKeyPart {
  KeyKind kind = KeyKind::kNone;
  std::u16string_view name;
  std::u16string_view attribut;
};

std::vector<SortKeyPart> ParseKeys(std::u16string_view sort_key) {
  std::vector<SortKeyPart> keys;
  for (std::u16string_view key : xml::detail::SplitText(sort_key, u",")) {
    SortKeyPart part;
    const std::size_t colon = key.find(u':');
    if (colon == std::u16string_view::npos) {
      if (key == u"name") part.kind = KeyKind::kName;
    } else {
      const std::u16string_view kind = key.substr(0, colon);
      const std::u16string_view arg = key.substr(colon + 1);
      if (kind == u"a") {
        part.kind = KeyKind::kAttribut;
        part.name = arg;
      } else if (kind == u"c") {
        const std::size_t at = arg.find(u"/a:");
        if (at == std::u16string_view::npos) {
          part.kind = KeyKind::kChildValue;
          part.name = arg;
        } else {
          part.kind = KeyKind::kChildAttribut;
          part.name = arg.substr(0, at);
          part.attribut = arg.substr(at + 3);
        }
      }
    }
    keys.push_back(part);
  }
  return keys;
}

std::u16string ReadKey(const XmlNodePtr& child, const SortKeyPart& key) {
  switch (key.kind) {
    case KeyKind::kAttribut:
      return child->Attribut(key.name);
    case KeyKind::kChildValue:
      return child->ChildValue(key.name);
    case KeyKind::kChildAttribut:
      return child->ChildAttribut(key.name, key.attribut);
    case KeyKind::kName:
      return child->Name();
    case KeyKind::kNone:
      break;
  }
  return std::u16string();
}

// The platform's numeric test: a number written as text, blanks around it allowed; "" is not.
bool IsNumeric(std::u16string_view text, double& value) {
  try {
    value = xml::detail::TextToNumber(text);
    return std::isfinite(value);
  } catch (const base::RuntimeError&) {
    return false;
  }
}

// A number through a pattern of `width` zeros: rounded to a whole number (halves away from
// zero), at least `width` digits, a minus sign in front of negative numbers.
std::u16string ZeroPadded(double value, std::size_t width) {
  const double rounded = std::round(value);
  char digits[400];
  std::snprintf(digits, sizeof digits, "%.0f", std::fabs(rounded));
  std::u16string out;
  if (rounded < 0) out.push_back(u'-');
  const std::size_t length = std::char_traits<char>::length(digits);
  if (length < width) out.append(width - length, u'0');
  for (const char* p = digits; *p; ++p) out.push_back(static_cast<char16_t>(*p));
  return out;
}

std::size_t DecimalDigits(std::size_t n) {
  std::size_t digits = 1;
  while (n >= 10) {
    n /= 10;
    ++digits;
  }
  return digits;
}

}  // namespace

struct cXmlNode::Sorter {
  // Sorts one node's own children.
  static void SortOwn(cXmlNode& node, const std::vector<SortKeyPart>& keys, bool ascendant) {
    const std::size_t count = node.childs_.size();
    if (count == 0) return;
    const std::vector<XmlNodePtr> children(node.childs_.begin(), node.childs_.end());
    const std::size_t columns = keys.size();
    std::vector<std::u16string> values(count * columns);
    std::vector<std::size_t> widths(columns, 0);
    std::vector<char> numeric(columns, 1);
    std::vector<double> numbers(count * columns, 0.0);
    for (std::size_t i = 0; i < count; ++i) {
      for (std::size_t k = 0; k < columns; ++k) {
        std::u16string& v = values[i * columns + k];
        v = ReadKey(children[i], keys[k]);
        if (v.size() > widths[k]) widths[k] = v.size();
        if (numeric[k] && !IsNumeric(v, numbers[i * columns + k])) numeric[k] = 0;
      }
    }
    const std::size_t position_width = DecimalDigits(count);
    std::vector<std::u16string> rows(count);
    for (std::size_t i = 0; i < count; ++i) {
      std::u16string& row = rows[i];
      for (std::size_t k = 0; k < columns; ++k) {
        if (numeric[k]) {
          row += ZeroPadded(numbers[i * columns + k], widths[k]);
        } else {
          const std::u16string& v = values[i * columns + k];
          row += v;
          row.append(widths[k] - v.size(), u' ');
        }
        row.push_back(u'>');
      }
      row += ZeroPadded(static_cast<double>(i + 1), position_width);
    }
    xml::SortStrings(rows, ascendant, xml::kTextCompare);
    std::vector<XmlNodePtr> sorted;
    sorted.reserve(count);
    for (const std::u16string& row : rows) {
      std::size_t position = 0;
      for (std::size_t p = row.rfind(u'>') + 1; p < row.size(); ++p)
        position = position * 10 + (row[p] - u'0');
      sorted.push_back(children[position - 1]);
    }
    node.childs_.assign(std::move(sorted));
  }
};

void cXmlNode::SortChilds(std::u16string_view sort_key, bool ascendant,
                          std::int32_t recursive_depth, bool raise_events) {
  (void)raise_events;  // handed down as false; it changes nothing
  base::Trap(base::InSub(u"cXmlNode.SortChilds"), [&] {
    if (sort_key.empty()) return;
    const XmlNodePtr keep = Self();
    const std::vector<SortKeyPart> keys = ParseKeys(sort_key);
    // Each node's children are sorted (to the depth asked) before the node itself, children in
    // order; each node's own sort fails or succeeds on its own.
    keep->WakeUp(true);
    Walker::Run(
        keep, recursive_depth,
        [&](auto& parent, const XmlNodePtr& child, std::int32_t& depth) {
          if (parent.state < 1 && parent.state != -1) return xml::WalkStep::kSkip;
          depth = parent.state == -1 ? -1 : parent.state - 1;
          child->WakeUp(true);
          return xml::WalkStep::kDescend;
        },
        [&](auto& stack) {
          cXmlNode& node = *stack.back().node;
          if (stack.size() == 1) {
            Sorter::SortOwn(node, keys, ascendant);
          } else {
            base::Trap(base::InSub(u"cXmlNode.SortChilds"),
                       [&] { Sorter::SortOwn(node, keys, ascendant); });
          }
          return true;
        });
  });
}
