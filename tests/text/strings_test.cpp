#include "text/strings.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "os/codepage.h"
#include "support/ansi.h"
#include "support/log_capture.h"
#include "text/encoding.h"

namespace {

using mStringTools::BytesToStr;
using mStringTools::StrToBytes;

// Rows marked `both` are what the encoder writes for those bytes, in either storage.
TEST(Strings, Base64BothWays) {
  struct Row {
    const char* label;
    std::string text;
    std::string bytes;
    bool both = false;
  } rows[] = {
      {"three bytes", "TWFu", "Man", true},
      {"two bytes", "TWE=", "Ma", true},
      {"one byte", "TQ==", "M", true},
      {"length 3", "TWF", ""},
      {"empty", "", "", true},
      {"every symbol value", "+/+/", "\xFB\xFF\xBF", true},
      {"binary", "AP8A", std::string("\x00\xFF\x00", 3), true},
      {"longer", "SGVsbG8sIHdvcmxkIQ==", "Hello, world!", true},
      {"a character outside the alphabet counts as A", "TW!u", "M`."},
      {"padding cuts from the first = to the end", "TWFuTWFu=AAA", "ManMa"},
      {"more padding than output", "T===", ""},
      {"only padding", "====", ""},
      {"case matters", "twfu", "\xB7\x07\xEE"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(mStringTools::Base64_Decode(row.text, 1, 1), row.bytes) << row.label;
    if (!row.both) continue;
    EXPECT_EQ(mStringTools::Base64_Encode(row.bytes, 1, 1), row.text) << row.label;
    EXPECT_EQ(mStringTools::Base64_Encode(row.bytes, 1, 2),
              StrToBytes(std::u16string(row.text.begin(), row.text.end())))
        << row.label;
  }
  // A text of one character per symbol (mode 2, or detected as UTF-16 by mode 0).
  EXPECT_EQ(mStringTools::Base64_Decode(StrToBytes(u"TWFu"), 2, 1), "Man");
  EXPECT_EQ(mStringTools::Base64_Decode(StrToBytes(u"SGVsbG8sIHdvcmxkIQ=="), 0, 1),
            "Hello, world!");
  EXPECT_EQ(mStringTools::Base64_Decode("TWFu", 0, 0), "Man") << "raw bytes stay raw";
  EXPECT_EQ(mStringTools::Base64_Decode("TWFu", 1, 2), StrToBytes(u"Man"));
  // All byte values through both directions.
  std::string all;
  for (int b = 0; b < 256; ++b) all += static_cast<char>(b);
  for (std::size_t cut = 0; cut < 4; ++cut) {
    std::string bytes = all.substr(cut);
    EXPECT_EQ(mStringTools::Base64_Decode(mStringTools::Base64_Encode(bytes, 1, 1), 1, 1), bytes);
  }
  // The serialiser's round trip: a text's storage out as symbols, back into the same storage.
  const std::u16string value = u"caf\u00E9 \u20AC";
  const std::string symbols = mStringTools::Base64_Encode(StrToBytes(value), 1, 2);
  EXPECT_EQ(BytesToStr(mStringTools::Base64_Decode(symbols, 2, 1)), value);
  if (testing_support::AnsiIs1252()) {
    EXPECT_EQ(mStringTools::Base64_Encode(StrToBytes(u"Man"), 2, 1), "TWFu");
    EXPECT_EQ(BytesToStr(mStringTools::Base64_Decode("gA==", 1, 2)), u"\u20AC");
  }
}

TEST(Strings, SplitLines) {
  EXPECT_EQ(mStringTools::SplitLines(u"0123456789", 4), u"0123\r\n4567\r\n89\r\n");
  EXPECT_EQ(mStringTools::SplitLines(u"01234567", 4), u"0123\r\n4567\r\n");
  EXPECT_EQ(mStringTools::SplitLines(u"", 4), u"");
  EXPECT_EQ(mStringTools::SplitLines(u"abc", 81), u"abc\r\n");
  testing_support::LogCapture log;
  EXPECT_EQ(mStringTools::SplitLines(u"abc", 0), u"");
  EXPECT_EQ(mStringTools::SplitLines(u"abc", -3), u"");
  ASSERT_EQ(log.lines.size(), 2u);
  EXPECT_EQ(log.lines[0],
            u"Error 5 (Invalid procedure call or argument) in Function mStringTools.SplitLines");
}

TEST(Strings, AddBackSlash) {
  struct Row {
    std::u16string path, result;
  } rows[] = {
      {u"C:/data", u"C:/data/"},
      {u"C:\\data", u"C:\\data\\"},
      {u"C:\\data\\", u"C:\\data\\"},
      {u"C:\\data/", u"C:\\data/"},
      {u"", u"\\"},
      {u"/tmp", u"/tmp/"},
      {u"C:\\a/b\\c", u"C:\\a/b\\c/"},
  };
  for (Row& row : rows) {
    std::u16string path = row.path;
    EXPECT_EQ(mStringTools::AddBackSlash(path), row.result);
    EXPECT_EQ(path, row.result) << "the argument is changed too";
  }
}

TEST(Strings, PathRoot) {
  struct Row {
    std::u16string path, root;
  } rows[] = {
      {u"\\\\?\\E:\\apps\\x.exe", u"E:\\"},
      {u"E:", u"E:\\"},
      {u"E:\\", u"E:\\"},
      {u"E:/apps/x.exe", u"E:\\"},
      {u"apps\\x.exe", u""},
      {u"E:apps", u""},
      {u"\\\\server\\share\\dir\\file", u"\\\\server\\share\\"},
      {u"//server/share/dir", u"\\\\server\\share\\"},
      {u"\\\\server\\share", u"\\\\server\\share\\"},
      {u"\\\\server", u"\\\\server\\"},
      {u"/tmp/x", u""},
      {u"", u""},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(mStringTools::PathRoot(row.path), row.root)
        << std::string(row.path.begin(), row.path.end());
  }
}

}  // namespace
