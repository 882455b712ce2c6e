// Processes through the seam, with real helper programs: listing, polite close, force.
#include "os/apps.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "base/text.h"
#include "os/entry.h"
#include "os/fault.h"
#include "support/child_process.h"
#include "support/pid_namespace.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using testing_support::ChildProcess;
using testing_support::TempDir;

const bool kWindows = !os::kExecutableSuffix.empty();  // its programs end in .exe

// The entry a listing gives for pid.
os::ProcessEntry Listed(std::uint32_t pid) {
  for (const auto& p : os::EnumProcesses())
    if (p.pid == pid) return p;
  return os::ProcessEntry{};
}

TEST(OsApps, ListsAStartedProgramWithItsPathAndParent) {
  TempDir temp;
  const std::u16string copy = testing_support::CopyHelperProgram(u"sleeper", temp.u16(u"App"));
  ASSERT_FALSE(copy.empty());
  ChildProcess child;
  ASSERT_TRUE(child.Start(copy, {u"--ready", temp.u16(u"ready")}));
  ASSERT_TRUE(testing_support::WaitForFile(temp.u16(u"ready")));
  const os::ProcessEntry found = Listed(child.pid());
  ASSERT_EQ(found.pid, child.pid());
  EXPECT_TRUE(fs::equivalent(fs::path(found.image), fs::path(copy)));
  EXPECT_EQ(found.parent_pid + os::ParentProcessId(child.pid()), 2 * os::GetCurrentProcessId());
  EXPECT_FALSE(found.owner.empty() || found.start == 0);
  EXPECT_EQ(found.owner, os::ProcessOwner(os::GetCurrentProcessId()));
  EXPECT_EQ(os::ProcessImagePath(child.pid()), found.image);
  EXPECT_FALSE(os::IsProcessRunning(0));
  EXPECT_EQ(os::ParentProcessId(0xFFFFFFF0u), 0u);
}

TEST(OsApps, AHeldProcessIsSignalledOnlyWhileItIsTheListedProgram) {
  if (testing_support::RunInOwnPidNamespace()) return;
  // Windows: a console program has no window to receive WM_CLOSE, so nothing is sent to it.
  // POSIX: every process gets SIGTERM; one that ignores it keeps running. Without pidfd the
  // same checks are made by number.
  enum Change { kNone, kStart, kImage, kOwner };
  struct Row {
    const char16_t* program;
    bool ignore_term, no_pidfd;
    Change change;  // what differs between the entry and the process behind its number
    int sent;       // requests sent
    bool ends;
  } rows[] = {
      // clang-format off
      {u"window_app", false, false, kNone, 1, true},
      {u"sleeper", false, true, kNone, kWindows ? 0 : 1, !kWindows},
      {u"sleeper", true, false, kNone, kWindows ? 0 : 1, false},
      {u"window_app", false, false, kStart, -1, false}, {u"window_app", false, false, kOwner, -1, false},
      {u"window_app", false, true, kImage, -1, false},
      // clang-format on
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    TempDir temp;
    ChildProcess child;
    ASSERT_TRUE(
        child.Start(testing_support::HelperProgram(row.program),
                    {u"--ready", temp.u16(u"ready"), row.ignore_term ? u"--ignore-close" : u""}));
    ASSERT_TRUE(testing_support::WaitForFile(temp.u16(u"ready")));
    os::ProcessEntry entry = Listed(child.pid());
    if (row.change == kStart) entry.start += 1;
    if (row.change == kImage) entry.image = testing_support::HelperProgram(u"sleeper");
    if (row.change == kOwner) entry.owner += u"0";
    os::fault::Scope faults;
    if (row.no_pidfd) os::fault::Arm(os::fault::Op::kPidfd, 38, 1, 0);

    os::HeldProcess held(entry);
    EXPECT_EQ(held.valid(), row.change == kNone);
    EXPECT_EQ(held.RequestClose(false), row.sent);
    if (!row.ends) {
      std::this_thread::sleep_for(std::chrono::milliseconds(300));
      EXPECT_TRUE(os::IsProcessRunning(child.pid()));
      EXPECT_EQ(held.Running(), row.change == kNone);
      EXPECT_EQ(held.Terminate(), row.change == kNone);
    }
    // A zombie (ended, not collected yet) must already count as ended.
    for (int ms = 0; ms < (row.change == kNone ? 10000 : 300) && os::IsProcessRunning(child.pid());
         ms += 20)
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(os::IsProcessRunning(child.pid()), row.change != kNone);
    EXPECT_FALSE(held.Running());
    child.Kill();
    EXPECT_EQ(held.RequestClose(false), -1);
    EXPECT_FALSE(held.Terminate());
  }
  EXPECT_EQ(os::HeldProcess(os::ProcessEntry{}).RequestClose(false), -1);
}

}  // namespace
