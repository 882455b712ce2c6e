// The vector UTF-8 checks against a plain byte-by-byte statement of IsUTF8's rules and against
// the general decoder (which carries Windows' replacement rules), on inputs made of valid
// sequences, ASCII runs of every length and the usual broken forms.
#include "base/utf8_scan.h"

#include <gtest/gtest.h>

#include <bit>
#include <random>
#include <string>

#include "base/utf8.h"

namespace {

// IsUTF8's rules, byte by byte: a lead byte's leading ones count its sequence's bytes.
bool LenientReference(const std::string& b) {
  bool multi = false;
  for (std::size_t i = 0; i < b.size(); ++i) {
    const int ones = std::countl_one(static_cast<unsigned char>(b[i]));
    if (ones == 0) continue;
    if (ones == 1 || ones > 6 || static_cast<std::size_t>(ones) > b.size() - i) return false;
    for (int k = 1; k < ones; ++k)
      if (std::countl_one(static_cast<unsigned char>(b[++i])) != 1) return false;
    multi = true;
  }
  return multi;
}

std::string RandomText(std::mt19937& random, int broken_percent) {
  // None of the valid pieces is U+FFFD, so a U+FFFD in a decoding marks a broken sequence.
  static const char* const kValid[] = {
      "\xC3\xA9",     "\xD0\xB6",     "\xDF\xBF",         "\xE2\x82\xAC",     "\xEF\xBF\xBF",
      "\xE0\xA0\x80", "\xED\x9F\xBF", "\xF0\x9F\x98\x80", "\xF4\x8F\xBF\xBF", "\xF0\x90\x80\x80"};
  // clang-format off
  static const char* const kBroken[] = {
      "\x80", "\xBF", "\xC3", "\xC0\xAF", "\xC1\xBF", "\xE0\x80\x80", "\xE0\x9F\xBF",
      "\xED\xA0\x80", "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80",
      "\xF8\x88\x80\x80\x80", "\xFC\x84\x80\x80\x80\x80",
      "\xFE", "\xFF", "\xE2\x82", "\xF0\x9F\x98"};
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

// The checks agree with the byte rules and the general decoder; the decoder's fast path (taken for
// well-formed input) decodes as the general decoder and refuses a target one unit short.
TEST(Utf8Scan, VectorChecksAndFastDecodingAgreeWithTheByteRules) {
  std::mt19937 random(7);
  int valid = 0, lenient = 0;
  for (int round = 0; round < 40000; ++round) {
    const std::string text = RandomText(random, round % 2 ? 3 : 0);
    const auto* s = reinterpret_cast<const unsigned char*>(text.data());
    const bool expected_lenient = LenientReference(text);
    ASSERT_EQ(base::utf8_scan::Lenient(s, text.size()), expected_lenient) << round;

    std::size_t count = 0, fast_count = 0, written = 0, units = 0;
    ASSERT_TRUE(base::Utf8ToUtf16Careful(s, text.size(), nullptr, 0, &count));
    std::u16string expected(count, u'\0'), decoded(count, u'\0');
    ASSERT_TRUE(base::Utf8ToUtf16Careful(s, text.size(), expected.data(), count, &written));
    ASSERT_TRUE(base::Utf8ToUtf16(s, text.size(), nullptr, 0, &fast_count));
    ASSERT_TRUE(base::Utf8ToUtf16(s, text.size(), decoded.data(), count, &written));
    ASSERT_EQ(fast_count, count) << round;
    ASSERT_EQ(written, count) << round;
    ASSERT_EQ(decoded, expected) << round;
    ASSERT_TRUE(count == 0 ||
                !base::Utf8ToUtf16(s, text.size(), decoded.data(), count - 1, &written));

    const bool well_formed = expected.find(u'\uFFFD') == std::u16string::npos;
    ASSERT_EQ(base::utf8_scan::Strict(s, text.size(), &units), well_formed) << round;
    ASSERT_TRUE(!well_formed || units == count) << round;
    valid += well_formed;
    lenient += expected_lenient;
  }
  // Both outcomes were well represented.
  EXPECT_GT(valid, 10000);
  EXPECT_LT(valid, 39000);
  EXPECT_GT(lenient, 10000);
}

}  // namespace
