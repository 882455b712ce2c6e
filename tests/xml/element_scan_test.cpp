#include "xml/element_scan.h"

#include <gtest/gtest.h>

#include <random>

#include "support/xml_structure.h"
#include "xml/comment_cut.h"
#include "xml/scan.h"

namespace {

using testing_support::CompareClosings;
using testing_support::CompareStructures;
using testing_support::IndexedStructure;
using testing_support::ReferenceStructure;

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
                                   u"<!---->"};

std::u16string Soup(std::mt19937& rng, int max_tokens) {
  std::uniform_int_distribution<int> count(1, max_tokens);
  std::uniform_int_distribution<std::size_t> pick(0, std::size(kTokens) - 1);
  std::u16string s;
  for (int n = count(rng); n > 0; --n) s += kTokens[pick(rng)];
  return s;
}

const char16_t* const kNames[] = {u"a", u"A", u"ab", u"b", u"\u00E9", u"\u00C9", u"a\tb", u"x"};
const char16_t* const kTexts[] = {
    u"1", u" x ",    u"<![CDATA[1<2]]>", u"<!-- c -->", u"a&lt;b",
    u"",  u"\r\n\t", u"<!DOCTYPE y>",    u"<",          u"<!-- <a> -->"};
const char16_t* const kAttrs[] = {u" k=\"v\"", u" k='v'", u" k=\"v",     u" a b=\"1\" c = \"2\"",
                                  u"",         u"",       u" k=\"<a>\"", u" /"};

void Tree(std::mt19937& rng, std::u16string& out, int depth, int& budget) {
  auto pick = [&](std::size_t n) {
    return std::uniform_int_distribution<std::size_t>(0, n - 1)(rng);
  };
  const std::u16string name = kNames[pick(std::size(kNames))];
  std::u16string close = name;
  if (pick(4) == 0) close = pick(2) ? std::u16string(u"A") : std::u16string(u"\u00C9");
  out += u"<" + name + kAttrs[pick(std::size(kAttrs))];
  --budget;
  if (pick(5) == 0) {
    out += u"/>";
    return;
  }
  out += u">";
  if (depth > 0 && budget > 0 && pick(3) != 0) {
    for (std::size_t n = pick(4) + 1; n > 0 && budget > 0; --n) {
      if (pick(3) == 0) out += pick(2) ? u"\r\n\t" : kTexts[pick(std::size(kTexts))];
      Tree(rng, out, depth - 1, budget);
    }
  } else {
    out += kTexts[pick(std::size(kTexts))];
  }
  out += u"</" + (pick(6) == 0 ? std::u16string(kNames[pick(std::size(kNames))]) : name) + u">";
}

std::u16string Mutated(std::mt19937& rng) {
  auto pick = [&](std::size_t n) {
    return std::uniform_int_distribution<std::size_t>(0, n - 1)(rng);
  };
  std::u16string s;
  if (pick(3) == 0) s += u"<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n";
  int budget = 12;
  Tree(rng, s, 4, budget);
  for (std::size_t n = pick(4); n > 0 && !s.empty(); --n) {
    const std::size_t at = pick(s.size() + 1);
    switch (pick(3)) {
      case 0:
        s.insert(at, kTokens[pick(std::size(kTokens))]);
        break;
      case 1:
        s.erase(at, pick(6));
        break;
      default:
        s.insert(at, s.substr(pick(s.size()), pick(8)));
        break;
    }
  }
  return s;
}

TEST(ElementScan, SoupAgrees) {
  std::mt19937 rng(12345);
  long stats[5] = {};
  for (int round = 0; round < 200000; ++round) {
    const std::u16string text = round % 2 ? Soup(rng, 24) : Mutated(rng);
    ASSERT_EQ(xml::DeleteRemsOnePass(text, u"<!--", u"-->"),
              xml::DeleteRems(text, u"<!--", u"-->"));
    for (bool full : {false, true}) {
      testing_support::ReadMode mode;
      mode.full_parse = full;
      auto r = ReferenceStructure(text, mode);
      auto i = IndexedStructure(text, mode);
      auto diff = CompareStructures(r, i);
      ASSERT_FALSE(diff) << *diff << "\nin " << testing::PrintToString(text);
      stats[0] += r.elements.size() >= 2;
      stats[1] += r.elements.size() >= 4;
      for (auto& e : r.elements) {
        stats[2] += e.has_declaration;
        stats[3] += (e.found && !e.ok);
        stats[4] += e.element_content;
      }
      auto closings = CompareClosings(r.prepared);
      ASSERT_FALSE(closings) << *closings;
    }
  }
  for (long x : stats) printf("%ld ", x);
  printf("\n");
}

}  // namespace
