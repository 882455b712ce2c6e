// A program started by a test and always ended with it: the destructor ends the process by
// force and collects it, whatever the test did.
//
//   testing_support::ChildProcess app;
//   ASSERT_TRUE(app.Start(suite.u16(u"App/sleeper"), {u"--ready", ready}, suite.u16()));
//   ASSERT_TRUE(testing_support::WaitForFile(ready));
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace testing_support {

class ChildProcess {
 public:
  ChildProcess() = default;
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // Starts program with the arguments, in the working folder (the test's own when "").
  bool Start(const std::u16string& program, const std::vector<std::u16string>& args = {},
             const std::u16string& working_folder = u"");
  std::uint32_t pid() const { return pid_; }
  // True once the process has ended (it is then collected).
  bool Exited();
  // Waits up to ms for the process to end; true when it has.
  bool WaitExit(std::uint32_t ms);
  // Ends the process by force and collects it.
  void Kill();

 private:
  std::uint32_t pid_ = 0;
  bool exited_ = true;
#ifdef _WIN32
  void* process_ = nullptr;
#endif
};

// Waits up to ms for a file to exist (a helper program's "ready" mark).
bool WaitForFile(const std::u16string& path, std::uint32_t ms = 10000);

// Copies a helper program from tests/programs into folder (created if needed), keeping it
// executable; returns the copy's path, "" on failure.
std::u16string CopyHelperProgram(std::u16string_view name, const std::u16string& folder);

}  // namespace testing_support
