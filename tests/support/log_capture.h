// Every line sent to the debug log while the object lives; the one log capture of the tests.
//
//   testing_support::LogCapture log;
//   ... EXPECT_THAT(log.lines, Contains(u"Error 9 ..."));
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/debug_log.h"

namespace testing_support {

struct LogCapture {
  std::vector<std::u16string> lines;
  base::ScopedLogSink sink{[this](std::u16string_view l) { lines.emplace_back(l); }};
};

}  // namespace testing_support
