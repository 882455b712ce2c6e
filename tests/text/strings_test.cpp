#include "text/strings.h"

#include <gtest/gtest.h>

#include <string>

#include "base/text.h"
#include "support/ansi.h"
#include "support/log_capture.h"
#include "text/encoding.h"

namespace {

using mStringTools::StrToBytes;

// Rows marked `both` are what the encoder writes for those bytes, in either storage.
TEST(Strings, Base64BothWays) {
  struct Row {
    std::string text, bytes;
    bool both = false;
  } rows[] = {
      // clang-format off
      {"TWFu", "Man", true}, {"TWE=", "Ma", true}, {"TQ==", "M", true}, {"TWF", ""},
      {"", "", true}, {"+/+/", "\xFB\xFF\xBF", true}, {"AP8A", std::string("\0\xFF\0", 3), true},
      {"TW!u", "M`."},            // a character outside the alphabet counts as A
      {"TWFuTWFu=AAA", "ManMa"},  // padding cuts from the first = to the end
      {"T===", ""}, {"twfu", "\xB7\x07\xEE"},
      // clang-format on
  };
  for (const Row& row : rows) {
    EXPECT_EQ(mStringTools::Base64_Decode(row.text, 1, 1), row.bytes) << row.text;
    if (!row.both) continue;
    EXPECT_EQ(mStringTools::Base64_Encode(row.bytes, 1, 1), row.text);
    EXPECT_EQ(mStringTools::Base64_Encode(row.bytes, 1, 2),
              StrToBytes(std::u16string(row.text.begin(), row.text.end())));
  }
  // A text of one character per symbol (mode 2, or detected as UTF-16 by mode 0).
  EXPECT_EQ(mStringTools::Base64_Decode(StrToBytes(u"TWFu"), 2, 1), "Man");
  EXPECT_EQ(mStringTools::Base64_Decode(StrToBytes(u"SGVsbG8sIHdvcmxkIQ=="), 0, 1),
            "Hello, world!");
  EXPECT_EQ(mStringTools::Base64_Decode("TWFu", 1, 2), StrToBytes(u"Man"));
  std::string all;
  for (int b = 0; b < 256; ++b) all += static_cast<char>(b);
  for (std::size_t cut = 0; cut < 3; ++cut) {
    const std::string bytes = all.substr(cut);
    EXPECT_EQ(mStringTools::Base64_Decode(mStringTools::Base64_Encode(bytes, 1, 1), 1, 1), bytes);
  }
  if (testing_support::AnsiIs1252()) {
    EXPECT_EQ(mStringTools::Base64_Encode(StrToBytes(u"Man"), 2, 1), "TWFu");
    EXPECT_EQ(mStringTools::BytesToStr(mStringTools::Base64_Decode("gA==", 1, 2)), u"\u20AC");
  }
}

TEST(Strings, SplitLinesAddBackSlashAndPathRoot) {
  EXPECT_EQ(mStringTools::SplitLines(u"0123456789", 4), u"0123\r\n4567\r\n89\r\n");
  EXPECT_EQ(mStringTools::SplitLines(u"01234567", 4), u"0123\r\n4567\r\n");
  EXPECT_EQ(mStringTools::SplitLines(u"", 4), u"");
  testing_support::LogCapture log;
  EXPECT_EQ(mStringTools::SplitLines(u"abc", 0), u"");
  EXPECT_EQ(log.lines, std::vector<std::u16string>{u"Error 5 (Invalid procedure call or argument) "
                                                   u"in Function mStringTools.SplitLines"});
  // The separator added is the kind the path already uses, "/" winning a mixed one.
  using Pairs = std::vector<std::pair<std::u16string, std::u16string>>;
  // clang-format off
  const Pairs with_slash = {{u"C:/data", u"C:/data/"}, {u"C:\\data", u"C:\\data\\"},
      {u"C:\\data/", u"C:\\data/"}, {u"", u"\\"}, {u"C:\\a/b\\c", u"C:\\a/b\\c/"}};
  const Pairs roots = {{u"\\\\?\\E:\\apps\\x.exe", u"E:\\"}, {u"E:", u"E:\\"},
      {u"E:/apps/x.exe", u"E:\\"}, {u"apps\\x.exe", u""}, {u"E:apps", u""},
      {u"//server/share/dir", u"\\\\server\\share\\"},
      {u"\\\\server\\share", u"\\\\server\\share\\"}, {u"\\\\server", u"\\\\server\\"},
      {u"/tmp/x", u""}, {u"", u""}};
  // clang-format on
  for (auto [path, result] : with_slash) {
    EXPECT_EQ(mStringTools::AddBackSlash(path), result);
    EXPECT_EQ(path, result) << "the argument is changed too";
  }
  for (const auto& [path, root] : roots)
    EXPECT_EQ(mStringTools::PathRoot(path), root) << base::Narrow(path);
}

}  // namespace
