#include "base/trap.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "base/debug_log.h"
#include "support/log_capture.h"

namespace {

using base::TrapSite;

using testing_support::LogCapture;

TEST(DebugLog, ASinkThatThrowsIsSurvivedAndTheLastOneIsPutBack) {
  DebugLog(u"nobody listens");
  LogCapture log;
  {
    base::ScopedLogSink sink([](std::u16string_view) { throw std::runtime_error("sink broke"); });
    DebugLog(u"still fine");
  }
  DebugLog(u"after");
  EXPECT_EQ(log.lines, std::vector<std::u16string>{u"after"});
}

// The forms of the log line no other test meets (the others show in the lines they log).
TEST(Trap, LogLineFormsAreExact) {
  struct Row {
    TrapSite site;
    std::int32_t number;
    const char16_t* expected;
  } rows[] = {
      // clang-format off
      {base::DansFonction(u"SaveFile"), 13, u"Erreur 13 (Type mismatch) dans Fonction SaveFile"},
      {base::TerseFunction(u"NextTag"), 9,
       u"Erreur 9 dans Function NextTag : Subscript out of range"},
      {base::InFunction(u"m.P"), 1234,
       u"Error 1234 (Application-defined or object-defined error) in Function m.P"},
      // clang-format on
  };
  for (const auto& row : rows) {
    EXPECT_EQ(base::TrapLine(row.site, row.number, base::ErrorDescription(row.number)),
              row.expected);
  }
}

// Failures of every kind, the checked arithmetic's overflow among them.
TEST(Trap, ReturnsNeutralValueAndLogsTheMappedError) {
  struct Row {
    std::function<int()> body;
    const char16_t* line;  // nullptr: no failure, the body's value is answered
    int value = 4;
  } rows[] = {
      // clang-format off
      {[]() -> int { base::Raise(6); }, u"Error 6 (Overflow) in Function m.F"},
      {[]() -> int { throw std::out_of_range("x"); },
       u"Error 9 (Subscript out of range) in Function m.F"},
      {[]() -> int { throw std::bad_alloc(); }, u"Error 7 (Out of memory) in Function m.F"},
      {[]() -> int { base::Raise(70, u"custom text"); }, u"Error 70 (custom text) in Function m.F"},
      {[]() -> int { throw 42; }, u"Error 5 (Invalid procedure call or argument) in Function m.F"},
      {[] { return base::CheckedSub(INT32_MIN, 1); }, u"Error 6 (Overflow) in Function m.F"},
      {[] { return base::CheckedAdd(INT32_MAX, 1); }, u"Error 6 (Overflow) in Function m.F"},
      {[] { return base::CheckedSub(5, 7); }, nullptr, -2},
      {[] { return base::CheckedAdd(INT32_MAX - 1, 1); }, nullptr, INT32_MAX},
      {[] { return base::CheckedSub(-1, INT32_MAX); }, nullptr, INT32_MIN},
      // clang-format on
  };
  for (const auto& row : rows) {
    LogCapture log;
    EXPECT_EQ(base::Trap(base::InFunction(u"m.F"), 4, row.body), row.value);
    EXPECT_EQ(log.lines,
              row.line ? std::vector<std::u16string>{row.line} : std::vector<std::u16string>{});
  }
  LogCapture log;
  EXPECT_TRUE(base::Trap(base::InSub(u"m.S"), [] {}));
  EXPECT_TRUE(log.lines.empty());
}

}  // namespace
