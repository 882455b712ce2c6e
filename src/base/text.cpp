#include "base/text.h"

#include "base/utf8.h"

#include <algorithm>
#include <cmath>

namespace base {

std::u16string Widen(std::string_view s) {
  // Never more UTF-16 units than UTF-8 bytes.
  std::u16string out(s.size(), u'\0');
  std::size_t units = 0;
  Utf8ToUtf16(reinterpret_cast<const unsigned char*>(s.data()), s.size(), out.data(), out.size(),
              &units);
  out.resize(units);
  return out;
}

std::string Narrow(std::u16string_view t) {
  std::string out;
  out.reserve(t.size());
  for (std::size_t i = 0; i < t.size(); ++i) {
    char32_t cp = t[i];
    if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < t.size() && t[i + 1] >= 0xDC00 &&
        t[i + 1] <= 0xDFFF) {
      cp = 0x10000 + ((cp - 0xD800) << 10) + (t[i + 1] - 0xDC00);
      ++i;
    } else if (cp >= 0xD800 && cp <= 0xDFFF) {
      cp = 0xFFFD;
    }
    if (cp < 0x80) {
      out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
      out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
      out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
      out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
  }
  return out;
}

std::u16string ToText(std::int64_t value) {
  char16_t buf[24];
  int pos = 24;
  bool negative = value < 0;
  std::uint64_t v = negative ? 0 - static_cast<std::uint64_t>(value) : value;
  do {
    buf[--pos] = static_cast<char16_t>(u'0' + v % 10);
    v /= 10;
  } while (v != 0);
  if (negative) buf[--pos] = u'-';
  return std::u16string(buf + pos, buf + 24);
}

std::u16string ToHex(std::uint64_t value) {
  static constexpr char16_t kDigits[] = u"0123456789ABCDEF";
  char16_t buf[20];
  int pos = 20;
  do {
    buf[--pos] = kDigits[value & 0xF];
    value >>= 4;
  } while (value != 0);
  return std::u16string(buf + pos, buf + 20);
}

char16_t LowerAscii(char16_t c) {
  return c >= u'A' && c <= u'Z' ? c + 32 : c;
}
char16_t UpperAscii(char16_t c) {
  return c >= u'a' && c <= u'z' ? c - 32 : c;
}

namespace {

// A run of code units that map the same way: every `step`-th one from `first` to `last` maps to
// itself plus `delta` (modulo 0x10000). The runs of a table are sorted and do not overlap.
struct CaseRun {
  char16_t first, last, delta;
  std::uint8_t step;
};

#include "base/case_map_table.inc"

template <std::size_t N>
char16_t MapThrough(const CaseRun (&runs)[N], char16_t c) {
  std::size_t lo = 0, hi = N;  // the runs starting at or before c are runs[0, lo)
  while (lo < hi) {
    const std::size_t mid = (lo + hi) / 2;
    if (runs[mid].first <= c) {
      lo = mid + 1;
    } else {
      hi = mid;
    }
  }
  if (lo == 0) return c;
  const CaseRun& run = runs[lo - 1];
  if (c > run.last || (c - run.first) % run.step != 0) return c;
  return static_cast<char16_t>(c + run.delta);
}

}  // namespace

char16_t LowerChar(char16_t c) {
  if (c < 0x80) return LowerAscii(c);
  return MapThrough(kLowerRuns, c);
}

char16_t UpperChar(char16_t c) {
  if (c < 0x80) return UpperAscii(c);
  return MapThrough(kUpperRuns, c);
}

bool EqualNoCase(std::u16string_view a, std::u16string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    const char16_t x = a[i];
    const char16_t y = b[i];
    if (x == y) continue;
    if (x < 0x80 && y < 0x80) {
      // Two different 7-bit characters are equal only as the two cases of one letter.
      const char16_t lx = x | 0x20;
      if (lx != (y | 0x20) || lx < u'a' || lx > u'z') return false;
      continue;
    }
    if (UpperChar(x) != UpperChar(y)) return false;
  }
  return true;
}

std::u16string Lower(std::u16string_view text) {
  std::u16string out(text);
  for (auto& c : out) c = LowerChar(c);
  return out;
}

std::u16string Upper(std::u16string_view text) {
  std::u16string out(text);
  for (auto& c : out) c = UpperChar(c);
  return out;
}

std::u16string ReplaceAll(std::u16string text, std::u16string_view from, std::u16string_view to) {
  if (from.empty()) return text;
  std::size_t at = 0;
  while ((at = text.find(from, at)) != std::u16string::npos) {
    text.replace(at, from.size(), to);
    at += to.size();
  }
  return text;
}

double ReadNumber(std::u16string_view text, std::size_t& used) {
  // Read by hand rather than through the C library, whose decimal point follows the locale.
  const auto digit = [&](std::size_t k) {
    return k < text.size() && text[k] >= u'0' && text[k] <= u'9';
  };
  std::size_t i = 0;
  while (i < text.size() && (text[i] == u' ' || text[i] == u'\t')) ++i;
  double sign = 1.0;
  if (i < text.size() && (text[i] == u'+' || text[i] == u'-'))
    sign = text[i++] == u'-' ? -1.0 : 1.0;
  double mantissa = 0.0;
  int scale = 0;
  bool digits = false;
  for (; digit(i); ++i, digits = true) mantissa = mantissa * 10.0 + (text[i] - u'0');
  if (i < text.size() && text[i] == u'.') {
    for (++i; digit(i); ++i, digits = true) mantissa = mantissa * 10.0 + (text[i] - u'0'), --scale;
  }
  used = 0;
  if (!digits) return 0.0;
  if (i < text.size() && (text[i] == u'e' || text[i] == u'E')) {
    std::size_t j = i + 1;
    int exponent_sign = 1;
    if (j < text.size() && (text[j] == u'+' || text[j] == u'-'))
      exponent_sign = text[j++] == u'-' ? -1 : 1;
    if (digit(j)) {
      int exponent = 0;
      for (; digit(j); ++j) exponent = std::min(exponent * 10 + (text[j] - u'0'), 100000);
      scale += exponent_sign * exponent;
      i = j;
    }
  }
  used = i;
  // Dividing by an exact power of ten keeps "2.5" exactly 2.5, which rounding halves depends on.
  return sign * (scale < 0 ? mantissa / std::pow(10.0, -scale) : mantissa * std::pow(10.0, scale));
}

}  // namespace base
