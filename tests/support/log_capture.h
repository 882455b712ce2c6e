// Every line sent to the debug log while the object lives; the one log capture of the tests.
//
//   testing_support::LogCapture log;
//   ... EXPECT_THAT(log.lines, Contains(u"Error 9 ..."));
//   ... EXPECT_TRUE(log.Has(u"Error WriteFile "));  // a line that starts so
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/debug_log.h"

namespace testing_support {

struct LogCapture {
  std::vector<std::u16string> lines;
  base::ScopedLogSink sink{[this](std::u16string_view l) { lines.emplace_back(l); }};
  bool Has(std::u16string_view prefix) const {
    for (const auto& l : lines)
      if (l.starts_with(prefix)) return true;
    return false;
  }
};

}  // namespace testing_support
