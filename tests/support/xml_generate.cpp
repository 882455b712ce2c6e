#include "support/xml_generate.h"

#include <iterator>

namespace testing_support {

namespace {

const char16_t* const kTokens[] = {u"<a>",
                                   u"</a>",
                                   u"<A>",
                                   u"</A>",
                                   u"<a/>",
                                   u"<a />",
                                   u"<ab>",
                                   u"</ab>",
                                   u"<a x=\"1\">",
                                   u"<a\tx=\"1\">",
                                   u"<!--",
                                   u"-->",
                                   u"<![CDATA[",
                                   u"]]>",
                                   u"<?xml version=\"1.0\"?>",
                                   u"<?xml",
                                   u"?>",
                                   u"<!DOCTYPE x>",
                                   u"<",
                                   u">",
                                   u"/",
                                   u" ",
                                   u"\"",
                                   u"'",
                                   u"=",
                                   u"x",
                                   u"\r\n",
                                   u"<b>",
                                   u"</b>",
                                   u"<b/>",
                                   u"&lt;",
                                   u"<a",
                                   u"</a",
                                   u"\u00C9",
                                   u"<\u00E9>",
                                   u"</\u00C9>",
                                   u"<//a>",
                                   u"<<a>",
                                   u"</<a>",
                                   u"<-",
                                   u"!",
                                   u"-",
                                   u"<?XML a>",
                                   u"</?XML>",
                                   u"<>",
                                   u"</>",
                                   u"< >",
                                   u"<a b='1'>",
                                   u"<a b=\"<a>\">",
                                   u"<!>",
                                   u"<!-->",
                                   u"<!---->",
                                   u"</a >",
                                   u"<a<a>",
                                   u"</a<a>",
                                   u"<!x>",
                                   u"</!x>",
                                   u"<?x?>"};
const char16_t* const kNames[] = {u"a", u"A", u"ab", u"b", u"\u00E9", u"\u00C9", u"a\tb", u"x"};
const char16_t* const kTexts[] = {
    u"1", u" x ",    u"<![CDATA[1<2]]>", u"<!-- c -->", u"a&lt;b",
    u"",  u"\r\n\t", u"<!DOCTYPE y>",    u"<",          u"<!-- <a> -->"};
const char16_t* const kAttributes[] = {
    u" k=\"v\"", u" k='v'", u" k=\"v", u" a b=\"1\" c = \"2\"", u"", u"", u" k=\"<a>\"", u" /"};

template <class T, std::size_t N>
const T& Pick(std::mt19937& rng, const T (&items)[N]) {
  return items[std::uniform_int_distribution<std::size_t>(0, N - 1)(rng)];
}

std::size_t Below(std::mt19937& rng, std::size_t n) {
  return std::uniform_int_distribution<std::size_t>(0, n - 1)(rng);
}

void Tree(std::mt19937& rng, std::u16string& out, int depth, int& budget) {
  const std::u16string name = Pick(rng, kNames);
  out += u"<" + name + Pick(rng, kAttributes);
  --budget;
  if (Below(rng, 5) == 0) {
    out += u"/>";
    return;
  }
  out += u">";
  if (depth > 0 && budget > 0 && Below(rng, 3) != 0) {
    for (std::size_t n = Below(rng, 4) + 1; n > 0 && budget > 0; --n) {
      if (Below(rng, 3) == 0) out += Below(rng, 2) ? u"\r\n\t" : Pick(rng, kTexts);
      Tree(rng, out, depth - 1, budget);
    }
  } else {
    out += Pick(rng, kTexts);
  }
  // Now and then the closing tag differs in case or in name.
  std::u16string closing = name;
  if (Below(rng, 6) == 0) closing = Pick(rng, kNames);
  if (Below(rng, 6) == 0) closing = Below(rng, 2) ? u"A" : u"\u00C9";
  out += u"</" + closing + u">";
}

}  // namespace

std::u16string MarkupSoup(std::mt19937& rng, int max_tokens) {
  std::u16string s;
  for (int n = std::uniform_int_distribution<int>(1, max_tokens)(rng); n > 0; --n)
    s += Pick(rng, kTokens);
  return s;
}

std::u16string MangledTree(std::mt19937& rng, int elements) {
  std::u16string s;
  if (Below(rng, 3) == 0) s += u"<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n";
  int budget = elements;
  Tree(rng, s, 4, budget);
  for (std::size_t n = Below(rng, 4); n > 0 && !s.empty(); --n) {
    const std::size_t at = Below(rng, s.size() + 1);
    switch (Below(rng, 3)) {
      case 0:
        s.insert(at, Pick(rng, kTokens));
        break;
      case 1:
        s.erase(at, Below(rng, 6));
        break;
      default:
        s.insert(at, s.substr(Below(rng, s.size()), Below(rng, 8)));
        break;
    }
  }
  return s;
}

}  // namespace testing_support
