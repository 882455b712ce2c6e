// The command line of the helper programs: "--name value" options and "--name" flags, in any
// order, split by the platform's own rules.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "base/text.h"
#include "os/program_env.h"

namespace helper {

struct Options {
  std::vector<std::u16string> all = os::ProgramArguments();

  bool Has(std::u16string_view flag) const {
    return std::find(all.begin(), all.end(), flag) != all.end();
  }
  std::u16string Text(std::u16string_view name) const {
    for (std::size_t i = 0; i + 1 < all.size(); ++i)
      if (all[i] == name) return all[i + 1];
    return u"";
  }
  long Number(std::u16string_view name, long fallback) const {
    const std::u16string text = Text(name);
    return text.empty() ? fallback : std::stol(base::Narrow(text));
  }
};

}  // namespace helper
