// The fast path for well-formed UTF-8 against the general decoder, which carries Windows'
// replacement rules (no Windows counterpart: this is the POSIX side's own machinery).
#ifndef _WIN32

#include "base/utf8.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "base/utf8_scan.h"

namespace {

TEST(PosixUtf8, FastPathDecodesAsTheGeneralDecoder) {
  static const char* const kPieces[] = {"\xC3\xA9",     "\xD0\xB6",         "\xDF\xBF",
                                        "\xE2\x82\xAC", "\xEF\xBF\xBF",     "\xE0\xA0\x80",
                                        "\xED\x9F\xBF", "\xF0\x9F\x98\x80", "\xF4\x8F\xBF\xBF",
                                        "\xC2\x80",     "\xE4\xB8\x80",     "\xED\xA0\x80",
                                        "\xC3"};
  std::mt19937 random(11);
  int fast = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string text;
    const int pieces = static_cast<int>(random() % 40);
    for (int i = 0; i < pieces; ++i) {
      if (random() % 2) {
        text.append(random() % 40, static_cast<char>('A' + random() % 26));
      } else {
        // The last two pieces are broken; they come rarely.
        std::size_t k = random() % (sizeof kPieces / sizeof kPieces[0]);
        if (k >= 11 && random() % 8) k = 0;
        text += kPieces[k];
      }
    }
    const auto* s = reinterpret_cast<const unsigned char*>(text.data());
    std::size_t units = 0;
    fast += base::utf8_scan::Strict(s, text.size(), &units);

    std::size_t expected_count = 0, count = 0;
    ASSERT_TRUE(base::Utf8ToUtf16Careful(s, text.size(), nullptr, 0, &expected_count));
    ASSERT_TRUE(base::Utf8ToUtf16(s, text.size(), nullptr, 0, &count));
    ASSERT_EQ(count, expected_count) << round;
    std::u16string expected(expected_count, u'\0'), decoded(count, u'\0');
    std::size_t written = 0;
    ASSERT_TRUE(
        base::Utf8ToUtf16Careful(s, text.size(), expected.data(), expected.size(), &written));
    ASSERT_TRUE(base::Utf8ToUtf16(s, text.size(), decoded.data(), decoded.size(), &written));
    ASSERT_EQ(written, count) << round;
    ASSERT_EQ(decoded, expected) << round;
    if (count > 0) {
      ASSERT_FALSE(base::Utf8ToUtf16(s, text.size(), decoded.data(), count - 1, &written))
          << "one unit short of room";
    }
  }
  EXPECT_GT(fast, 5000) << "the fast path was taken often";
}

}  // namespace

#endif  // _WIN32
