// Environment variables set for one test and put back as they were when it ends.
//
//   testing_support::ScopedEnv env({{"LC_ALL", nullptr}, {"LANG", "de_DE.UTF-8"}});
//
// nullptr removes a variable for the test's duration.
#pragma once

#include <cstdlib>
#include <initializer_list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace testing_support {

class ScopedEnv {
 public:
  using Setting = std::pair<const char*, const char*>;

  explicit ScopedEnv(std::initializer_list<Setting> settings) {
    for (const auto& [name, value] : settings) {
      const char* old = std::getenv(name);
      saved_.emplace_back(name, old ? std::optional<std::string>(old) : std::nullopt);
      Put(name, value);
    }
  }
  ~ScopedEnv() {
    for (auto it = saved_.rbegin(); it != saved_.rend(); ++it)
      Put(it->first.c_str(), it->second ? it->second->c_str() : nullptr);
  }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  static void Put(const char* name, const char* value) {
#ifdef _WIN32
    _putenv_s(name, value ? value : "");
#else
    value ? setenv(name, value, 1) : unsetenv(name);
#endif
  }

  std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

}  // namespace testing_support
