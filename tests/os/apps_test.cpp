// Processes through the seam, with real helper programs: listing, polite close, force.
#include "os/apps.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "base/text.h"
#include "support/child_process.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using testing_support::ChildProcess;
using testing_support::TempDir;

#ifdef _WIN32
constexpr bool kWindows = true;
#else
constexpr bool kWindows = false;
#endif

// Waits up to ms for pid to stop running.
bool WaitGone(std::uint32_t pid, int ms) {
  for (int waited = 0; waited < ms; waited += 20) {
    if (!os::IsProcessRunning(pid)) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return !os::IsProcessRunning(pid);
}

TEST(OsApps, ListsAStartedProgramWithItsPathAndParent) {
  TempDir temp;
  const std::u16string copy = testing_support::CopyHelperProgram(u"sleeper", temp.u16(u"App"));
  ASSERT_FALSE(copy.empty());
  const std::u16string ready = temp.u16(u"ready");
  ChildProcess child;
  ASSERT_TRUE(child.Start(copy, {u"--ready", ready}));
  ASSERT_TRUE(testing_support::WaitForFile(ready));

  const os::ProcessEntry* found = nullptr;
  const auto all = os::EnumProcesses();
  for (const auto& p : all)
    if (p.pid == child.pid()) found = &p;
  ASSERT_NE(found, nullptr) << "pid " << child.pid() << " not among " << all.size();
  EXPECT_TRUE(fs::equivalent(fs::path(found->image), fs::path(copy)));
  EXPECT_EQ(found->parent_pid, os::GetCurrentProcessId());
  EXPECT_EQ(os::ParentProcessId(child.pid()), os::GetCurrentProcessId());
  EXPECT_EQ(os::ProcessImagePath(child.pid()), found->image);
  EXPECT_TRUE(fs::equivalent(fs::path(os::ProcessImagePath(os::GetCurrentProcessId())),
                             fs::path(testing_support::HelperProgram(u"tveject_tests"))));
}

TEST(OsApps, PoliteCloseEndsOnlyProgramsThatListen) {
  // Windows: a console program has no window to receive WM_CLOSE, so nothing is sent to it.
  // POSIX: every process gets SIGTERM; one that ignores it keeps running.
  struct Row {
    const char16_t* program;
    std::vector<std::u16string> args;
    int sent;  // requests sent
    bool ends;
  } rows[] = {
      {u"window_app", {}, 1, true},
      {u"sleeper", {}, kWindows ? 0 : 1, !kWindows},
      {u"sleeper", {u"--ignore-term"}, kWindows ? 0 : 1, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(base::Narrow(row.program) + (row.args.empty() ? "" : " --ignore-term"));
    TempDir temp;
    const std::u16string ready = temp.u16(u"ready");
    std::vector<std::u16string> args = row.args;
    args.insert(args.end(), {u"--ready", ready});
    ChildProcess child;
    ASSERT_TRUE(child.Start(testing_support::HelperProgram(row.program), args));
    ASSERT_TRUE(testing_support::WaitForFile(ready));
    ASSERT_TRUE(os::IsProcessRunning(child.pid()));

    EXPECT_EQ(os::RequestProcessClose(child.pid()), row.sent);
    if (row.ends) {
      // A zombie (ended, not collected yet) must already count as ended.
      EXPECT_TRUE(WaitGone(child.pid(), 10000));
    } else {
      std::this_thread::sleep_for(std::chrono::milliseconds(300));
      EXPECT_TRUE(os::IsProcessRunning(child.pid()));
      EXPECT_TRUE(os::TerminateProcessById(child.pid()));
      EXPECT_TRUE(WaitGone(child.pid(), 10000));
    }
    EXPECT_TRUE(child.WaitExit(10000));
    EXPECT_FALSE(os::IsProcessRunning(child.pid()));
    EXPECT_EQ(os::RequestProcessClose(child.pid()), -1);
  }
}

TEST(OsApps, NoProcessIsZero) {
  EXPECT_FALSE(os::IsProcessRunning(0));
  EXPECT_EQ(os::RequestProcessClose(0), -1);
  EXPECT_EQ(os::ParentProcessId(0xFFFFFFF0u), 0u);
}

}  // namespace
