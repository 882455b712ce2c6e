// A fresh folder for one test, removed with everything in it when the test ends.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace testing_support {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  // The folder as the program's own UTF-16 path (native separators, no trailing one).
  std::u16string u16() const;
  // A path inside the folder.
  std::u16string u16(std::u16string_view name) const;
  // Writes bytes to a file inside the folder (creating folders on the way) and returns its path.
  std::u16string Write(std::u16string_view name, std::string_view bytes) const;
  // Reads a file inside the folder; "" when it does not exist.
  std::string Read(std::u16string_view name) const;
  bool Exists(std::u16string_view name) const;

 private:
  std::filesystem::path path_;
};

// The folder that holds the running test binary and the helper programs built beside it.
std::u16string ProgramFolder();
// The full path of a helper program from tests/programs ("sleeper" gives ".../sleeper.exe" on
// Windows, ".../sleeper" elsewhere).
std::u16string HelperProgram(std::u16string_view name);

}  // namespace testing_support
