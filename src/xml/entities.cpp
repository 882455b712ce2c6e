// cXmlNode: escaping the XML special characters for the writer and resolving references for
// the reader.
//
// The two are not mirror images, and existing files depend on both as they are: the encoder
// drops the indentation after every CR LF and leaves CDATA sections alone; the decoder knows
// five names (any other gives "?"), reads numeric references leniently and resolves them
// through the ANSI code page rather than as Unicode code points.
#include <algorithm>
#include <cmath>

#include "base/trap.h"
#include "xml/char_search.h"
#include "xml/node.h"
#include "xml/node_internal.h"

namespace {

constexpr std::u16string_view kCdataOpen = u"<![CDATA[";
constexpr std::u16string_view kCdataClose = u"]]>";

// Bytes 0x80-0x9F of the ANSI code page (1252): the one stretch where it differs from
// Latin-1. Its five undefined bytes come through as the C1 control of the same number, as the
// system's conversion gives them. Mirrors the code page conversion of the text module; kept
// here so that decoding needs nothing else.
constexpr char16_t kCp1252High[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,  // 80-87
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,  // 88-8F
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,  // 90-97
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,  // 98-9F
};

// The character a code denotes in the ANSI code page; raises 5 for a code it cannot give
// (negative, or above 255 on a single-byte code page).
char16_t AnsiChar(std::int32_t code) {
  if (code < 0 || code > 255) base::Raise(base::kInvalidCall);
  if (code >= 0x80 && code <= 0x9F) return kCp1252High[code - 0x80];
  return static_cast<char16_t>(code);
}

bool IsValBlank(char16_t c) {
  return c == u' ' || c == u'\t' || c == u'\n';
}

int HexDigit(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

// The program's lenient number reading: blanks anywhere are skipped; then an optional sign,
// digits, a fraction and an exponent, up to the first character that does not fit; no digits
// give 0.
double LenientDecimal(std::u16string_view text) {
  std::u16string digits;
  for (char16_t c : text) {
    if (!IsValBlank(c)) digits += c;
  }
  std::size_t i = 0;
  const auto digit = [&](std::size_t k) {
    return k < digits.size() && digits[k] >= u'0' && digits[k] <= u'9';
  };
  double sign = 1.0;
  if (i < digits.size() && (digits[i] == u'+' || digits[i] == u'-')) {
    sign = digits[i++] == u'-' ? -1.0 : 1.0;
  }
  double mantissa = 0.0;
  int scale = 0;
  for (; digit(i); ++i) mantissa = mantissa * 10.0 + (digits[i] - u'0');
  if (i < digits.size() && digits[i] == u'.') {
    for (++i; digit(i); ++i) mantissa = mantissa * 10.0 + (digits[i] - u'0'), --scale;
  }
  if (i < digits.size() &&
      (digits[i] == u'e' || digits[i] == u'E' || digits[i] == u'd' || digits[i] == u'D')) {
    std::size_t j = i + 1;
    int exponent_sign = 1;
    if (j < digits.size() && (digits[j] == u'+' || digits[j] == u'-')) {
      exponent_sign = digits[j++] == u'-' ? -1 : 1;
    }
    int exponent = 0;
    for (; digit(j); ++j) exponent = std::min(exponent * 10 + (digits[j] - u'0'), 100000);
    scale += exponent_sign * exponent;
  }
  return sign * mantissa * std::pow(10.0, scale);
}

// Hexadecimal digits (blanks skipped) up to the first other character; none give 0. Values
// past the code page's range are all refused alike, so the count saturates.
double LenientHex(std::u16string_view text) {
  double value = 0.0;
  for (char16_t c : text) {
    if (IsValBlank(c)) continue;
    const int d = HexDigit(c);
    if (d < 0) break;
    value = std::min(value * 16.0 + d, 1e12);
  }
  return value;
}

}  // namespace

void cXmlNode::EncodeSpecialCharsInPlace(std::u16string& text) {
  base::Trap(base::InFunction(u"cXmlNode.EncodeSpecialChars"), [&] {
    const std::u16string_view s = text;
    const std::size_t n = s.size();
    std::size_t i = xml::FindMarkup(s.data(), 0, n, true);
    if (i == n) return;
    std::u16string out;
    out.reserve(n + n / 8);
    std::size_t from = 0;  // the start of the characters not yet copied
    for (; i < n; i = xml::FindMarkup(s.data(), i, n, true)) {
      out.append(s.substr(from, i - from));
      if (s.substr(i).starts_with(kCdataOpen)) {
        const std::size_t e = s.find(kCdataClose, i + kCdataOpen.size());
        if (e == std::u16string_view::npos) {
          // An unterminated section: the rest goes out as it is.
          from = i;
          i = n;
          break;
        }
        from = i;
        i = e + kCdataClose.size();
        out.append(s.substr(from, i - from));
        from = i;
        continue;
      }
      if (s[i] == u'\r') {
        if (i + 1 < n && s[i + 1] == u'\n') {
          // Line breaks survive; the indentation after them does not (the writer indents
          // afresh).
          out.append(u"\r\n");
          i += 2;
          while (i < n && (s[i] == u' ' || s[i] == u'\t')) ++i;
        } else {
          out.push_back(u'\r');
          ++i;
        }
        from = i;
        continue;
      }
      out.append(xml::EntityFor(s[i]));
      from = ++i;
    }
    out.append(s.substr(from));
    text = std::move(out);
  });
}

namespace {

// The decoding loop: text with its references resolved, into out (cleared first). A numeric
// reference ("&#...") goes to numeric(reference, out), which may answer false to give up: then
// so does this.
template <class Numeric>
bool DecodeReferences(std::u16string_view s, std::u16string& out, Numeric&& numeric) {
  out.clear();
  std::size_t last = 0;  // characters consumed so far
  for (std::size_t a = xml::FindChar(s.data(), 0, s.size(), u'&'); a < s.size();
       a = last < s.size() ? xml::FindChar(s.data(), last, s.size(), u'&') : s.size()) {
    out.append(s.substr(last, a - last));
    // The reference runs to the next ";", or, without one, to the end of the text less its last
    // character, which is lost with it.
    std::size_t end = xml::FindChar(s.data(), a + 1, s.size(), u';');
    if (end == s.size()) end = s.size() - 1;
    const std::u16string_view ref = s.substr(a, end - a);
    if (ref.size() >= 2 && ref[1] == u'#') {
      if (!numeric(ref, out)) return false;
    } else {
      const std::u16string_view name = ref.empty() ? ref : ref.substr(1);
      if (name == u"amp") {
        out.push_back(u'&');
      } else if (name == u"lt") {
        out.push_back(u'<');
      } else if (name == u"gt") {
        out.push_back(u'>');
      } else if (name == u"apos") {
        out.push_back(u'\'');
      } else if (name == u"quot") {
        out.push_back(u'"');
      } else {
        out.push_back(u'?');
      }
    }
    last = end + 1;
  }
  if (last < s.size()) out.append(s.substr(last));
  return true;
}

}  // namespace

void cXmlNode::DecodeSpecialCharsInPlace(std::u16string& text) {
  // Most values hold no reference at all.
  if (xml::FindChar(text.data(), 0, text.size(), u'&') == text.size()) return;
  // The result is assigned only at the end: a failure leaves the text as it was.
  base::Trap(base::InFunction(u"cXmlNode.DecodeSpecialChars"), [&] {
    std::u16string out;
    out.reserve(text.size());
    DecodeReferences(text, out, [](std::u16string_view ref, std::u16string& to) {
      const double code = ref.size() >= 3 && ref[2] == u'x' ? LenientHex(ref.substr(3))
                                                            : LenientDecimal(ref.substr(2));
      to.push_back(AnsiChar(xml::detail::RoundToInt32(code)));
      return true;
    });
    text = std::move(out);
  });
}

bool xml::detail::DecodeNamedReferences(std::u16string_view s, std::u16string& out) {
  return DecodeReferences(s, out, [](std::u16string_view, std::u16string&) { return false; });
}

std::u16string cXmlNode::EncodeSpecialChars(std::u16string_view str) {
  return base::Trap(base::InFunction(u"cXmlNode.EncodeSpecialChars"), std::u16string(), [&] {
    std::u16string text(str);
    EncodeSpecialCharsInPlace(text);
    return text;
  });
}

std::u16string cXmlNode::DecodeSpecialChars(std::u16string_view xml) {
  return base::Trap(base::InFunction(u"cXmlNode.DecodeSpecialChars"), std::u16string(), [&] {
    std::u16string text(xml);
    DecodeSpecialCharsInPlace(text);
    return text;
  });
}
