// The vector UTF-8 checks against plain byte-by-byte statements of the same rules, on inputs
// made of valid sequences, ASCII runs of every length and the usual broken forms.
#include "base/utf8_scan.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace {

// IsUTF8's rules, byte by byte.
bool LenientReference(const std::string& b) {
  bool multi = false;
  for (std::size_t i = 0; i < b.size();) {
    const unsigned lead = static_cast<unsigned char>(b[i]);
    if (lead < 0x80) {
      ++i;
      continue;
    }
    int follow = (lead & 0xE0) == 0xC0   ? 1
                 : (lead & 0xF0) == 0xE0 ? 2
                 : (lead & 0xF8) == 0xF0 ? 3
                 : (lead & 0xFC) == 0xF8 ? 4
                 : (lead & 0xFE) == 0xFC ? 5
                                         : -1;
    if (follow < 0 || static_cast<std::size_t>(follow) > b.size() - i - 1) return false;
    for (int k = 1; k <= follow; ++k) {
      if ((static_cast<unsigned char>(b[i + k]) & 0xC0) != 0x80) return false;
    }
    multi = true;
    i += static_cast<std::size_t>(follow) + 1;
  }
  return multi;
}

// Well-formed UTF-8 (Unicode's table of well-formed byte sequences) and its UTF-16 length.
bool StrictReference(const std::string& b, std::size_t* units) {
  std::size_t count = 0;
  for (std::size_t i = 0; i < b.size();) {
    auto at = [&](std::size_t k) {
      return static_cast<unsigned>(static_cast<unsigned char>(b[k]));
    };
    const unsigned c = at(i);
    auto in = [&](std::size_t k, unsigned lo, unsigned hi) {
      return k < b.size() && at(k) >= lo && at(k) <= hi;
    };
    std::size_t len = 0;
    if (c < 0x80) {
      len = 1;
    } else if (c >= 0xC2 && c <= 0xDF) {
      len = in(i + 1, 0x80, 0xBF) ? 2 : 0;
    } else if (c >= 0xE0 && c <= 0xEF) {
      unsigned lo = c == 0xE0 ? 0xA0 : 0x80, hi = c == 0xED ? 0x9F : 0xBF;
      len = in(i + 1, lo, hi) && in(i + 2, 0x80, 0xBF) ? 3 : 0;
    } else if (c >= 0xF0 && c <= 0xF4) {
      unsigned lo = c == 0xF0 ? 0x90 : 0x80, hi = c == 0xF4 ? 0x8F : 0xBF;
      len = in(i + 1, lo, hi) && in(i + 2, 0x80, 0xBF) && in(i + 3, 0x80, 0xBF) ? 4 : 0;
    }
    if (len == 0) return false;
    count += len == 4 ? 2 : 1;
    i += len;
  }
  *units = count;
  return true;
}

std::string RandomText(std::mt19937& random, int broken_percent) {
  static const char* const kValid[] = {
      "\xC3\xA9",     "\xD0\xB6",     "\xDF\xBF",         "\xE2\x82\xAC",     "\xEF\xBF\xBF",
      "\xE0\xA0\x80", "\xED\x9F\xBF", "\xF0\x9F\x98\x80", "\xF4\x8F\xBF\xBF", "\xF0\x90\x80\x80"};
  // clang-format off
  static const char* const kBroken[] = {
      "\x80", "\xBF", "\xC3", "\xC0\xAF", "\xC1\xBF", "\xE0\x80\x80", "\xE0\x9F\xBF", "\xED\xA0\x80",
      "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xF8\x88\x80\x80\x80",
      "\xFC\x84\x80\x80\x80\x80", "\xFE", "\xFF", "\xE2\x82", "\xF0\x9F\x98"};
  // clang-format on
  std::string text;
  const int pieces = static_cast<int>(random() % 12);
  for (int i = 0; i < pieces; ++i) {
    const unsigned kind = random() % 100;
    if (kind < 45) {
      text.append(random() % 80, static_cast<char>('a' + random() % 26));
    } else if (kind < static_cast<unsigned>(100 - broken_percent)) {
      text += kValid[random() % (sizeof kValid / sizeof kValid[0])];
    } else {
      text += kBroken[random() % (sizeof kBroken / sizeof kBroken[0])];
    }
  }
  return text;
}

TEST(Utf8Scan, VectorChecksAgreeWithTheByteRules) {
  std::mt19937 random(7);
  int valid = 0, lenient = 0;
  for (int round = 0; round < 40000; ++round) {
    const std::string text = RandomText(random, round % 2 ? 3 : 0);
    const auto* s = reinterpret_cast<const unsigned char*>(text.data());
    const bool expected_lenient = LenientReference(text);
    ASSERT_EQ(base::utf8_scan::Lenient(s, text.size()), expected_lenient) << round;
    ASSERT_EQ(base::utf8_scan::LenientBaseline(s, text.size()), expected_lenient) << round;
    std::size_t expected_units = 0, units = 0, baseline_units = 0;
    const bool expected_strict = StrictReference(text, &expected_units);
    const bool strict = base::utf8_scan::Strict(s, text.size(), &units);
    const bool baseline = base::utf8_scan::StrictBaseline(s, text.size(), &baseline_units);
    ASSERT_EQ(baseline, strict) << round;
    if (strict) {
      ASSERT_TRUE(expected_strict) << round;
      ASSERT_EQ(units, expected_units) << round;
      ASSERT_EQ(baseline_units, expected_units) << round;
    }
    valid += strict;
    lenient += expected_lenient;
  }
  // Both outcomes were well represented.
  EXPECT_GT(valid, 10000);
  EXPECT_LT(valid, 39000);
  EXPECT_GT(lenient, 10000);
}

}  // namespace
