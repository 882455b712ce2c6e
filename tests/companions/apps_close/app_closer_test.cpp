// The closer: which processes it may touch (pure rules, one table each), how it waits (a fake
// clock), and the whole run on real programs started from a temporary suite folder.
#include "companions/apps_close/app_closer.h"

#include <gtest/gtest.h>

#include "base/text.h"
#include "companions/apps_close/fake_processes.h"
#include "os/fault.h"
#include "support/child_process.h"
#include "support/loop_mount.h"
#include "support/pid_namespace.h"
#include "support/temp_dir.h"

namespace {

using namespace sys;
using closer_test::FakeProcesses;
using closer_test::kFake;
using closer_test::Pids;
using os::ProcessEntry;
using testing_support::ChildProcess;
using testing_support::TempDir;
using V = std::vector<std::uint32_t>;
using Roots = std::vector<std::u16string>;

CloseOptions Options(std::uint32_t grace_ms, bool force, std::u16string own_path) {
  CloseOptions options;
  options.grace_ms = grace_ms, options.force = force, options.own_path = std::move(own_path);
  return options;
}

TEST(AppCloserScope, RemovableDriveWholeOtherwiseSuiteFolderNeverAFixedRoot) {
  auto plan = [](const char16_t* root, EjectTarget target, Roots more = {}) {
    more.insert(more.begin(), root);
    return EjectPlan{target, root, u"", more, u"rule"};
  };
  // The stick's reader has another slot; a system may also stand on a stick.
  const EjectPlan stick = plan(u"/media/u/STICK/", EjectTarget::kDevice, {u"/media/u/CARD/"});
  const EjectPlan fixed = plan(u"/", EjectTarget::kSystemDisk);
  const EjectPlan home = plan(u"/home/", EjectTarget::kNotRemovable);
  const struct {
    const char16_t* own;
    const EjectPlan* dev;
    const char16_t* folder;  // "" = refused
  } rows[] = {
      {u"/media/u/STICK/Suite/TvAppsClose/TvAppsClose", &stick, u"/media/u/STICK/"},
      {u"/media/u/STICK/TvAppsClose/TvAppsClose", &stick, u"/media/u/STICK/"},
      {u"/home/u/Suite/TvAppsClose/TvAppsClose", &fixed, u"/home/u/Suite"},
      {u"/home/u/Suite/TvAppsClose/TvAppsClose", nullptr, u"/home/u/Suite"},
      // The suite folder would be a whole fixed volume: refused.
      {u"/TvAppsClose/TvAppsClose", &fixed, u""},
      {u"/home/TvAppsClose/TvAppsClose", &home, u""},
      {u"TvAppsClose", nullptr, u""},
      // The device answer is for another drive: it is not trusted.
      {u"/srv/Suite/TvAppsClose/TvAppsClose", &stick, u"/srv/Suite"},
  };
  for (const auto& row : rows) {
    const CloseScope scope = ChooseCloseScope(row.own, row.dev);
    SCOPED_TRACE(base::Narrow(row.own));
    const bool whole = std::u16string_view(row.folder) == u"/media/u/STICK/";
    EXPECT_EQ(scope.folder, row.folder);
    EXPECT_EQ(scope.whole_drive, whole);
    EXPECT_EQ(scope.other_volumes, whole ? Roots{u"/media/u/CARD/"} : Roots{});
    EXPECT_FALSE(scope.reason.empty());
  }
}

TEST(AppCloserSelect, OnlyProcessesInScopeAndNeverTheSparedOnes) {
  // The stick has a second partition: it goes with the eject, so its applications are closed.
  const CloseScope scope{u"/media/STICK/", true, u"", {u"/media/STICK-B/"}};
  const Spared spared{
      {10, 11}, {u"/media/STICK/Suite/TvAppsClose/TvAppsClose"}, {u"TvDiskEjector"}, u"me"};
  const std::vector<ProcessEntry> all = {
      {10, 11, u"/media/STICK/Suite/TvAppsClose/TvAppsClose", u"me"},  // itself
      {11, 1, u"/media/STICK/Suite/TvEject/TvEject", u"me"},           // its caller
      {13, 1, u"/media/STICK/Suite/TvEject/TvDiskEjector.exe", u"me"},
      {14, 1, u"/media/STICK/Suite/TvAppsClose/TvAppsClose", u"me"},  // another copy of the closer
      {20, 1, u"/media/STICK/Suite/Apps/editor", u"me"},
      {21, 20, u"/media/STICK/Other/tool", u"me"},
      {22, 1, u"/media/STICK/Suite/Apps/shared", u"someone else"},
      {23, 1, u"/media/STICK/Suite/Apps/unknown", u""},  // owner unreadable
      {30, 1, u"/media/STICK2/Suite/app", u"me"},
      {31, 1, u"/usr/bin/bash", u"me"},
      {33, 1, u"/media/STICK-B/app", u"me"},
      {32, 1, u"", u"me"},  // image unreadable
      {0, 0, u"/media/STICK/idle", u"me"},
  };
  EXPECT_EQ(Pids(SelectProcessesToClose(all, scope, spared, false)), (V{20, 21, 33}));
  EXPECT_TRUE(SelectProcessesToClose(all, CloseScope{}, spared, false).empty());
  // Case matters only where the platform's names ignore it.
  const std::vector<ProcessEntry> upper = {{40, 1, u"/MEDIA/stick/app", u"me"}};
  EXPECT_TRUE(SelectProcessesToClose(upper, scope, spared, false).empty());
  EXPECT_EQ(SelectProcessesToClose(upper, scope, spared, true).size(), 1u);
}

// Two applications of the suite (a quick one and one taking `slow` ms, -1: never; windowless
// when it has no window) and one from elsewhere, which is never asked.
TEST(AppCloserRun, WaitsTheGracePeriodAndNoLongerThanNeeded) {
  using enum WaitChoice;
  using enum CloseOutcome;
  const struct {
    std::int64_t slow;
    int windows;
    std::uint32_t grace;
    bool force;
    CloseOutcome outcome;
    V asked, still;
    std::uint32_t min_slept, max_slept;
    WaitChoice choice = kWait;  // what the watcher answers from 2 s on
  } rows[] = {
      {3000, 1, 10000, false, kAllClosed, {20, 21}, {}, 3000, 3100},
      {-1, 1, 10000, false, kStillRunning, {20, 21}, {21}, 10000, 10000},
      {-1, 1, 10000, true, kAllClosed, {20, 21}, {}, 10000, 10000},
      {-1, 1, 0, false, kStillRunning, {20, 21}, {20, 21}, 0, 0},
      {-1, 0, 10000, false, kStillRunning, {20}, {21}, 10000, 10000},
      {-1, 1, 10000, false, kAllClosed, {20, 21}, {}, 2000, 2000, kCloseNow},
      {-1, 1, 10000, true, kStillRunning, {20, 21}, {21}, 2000, 2000, kStop},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.slow << "/" << row.grace << "/" << row.windows);
    FakeProcesses fake;
    fake.Add(20, u"/suite/App/quick", 200);
    fake.Add(21, u"/suite/App/slow", row.slow, row.windows);
    fake.Add(30, u"/elsewhere/app", 0);
    CloseOptions options = Options(row.grace, row.force, u"/suite/x/x");
    std::uint32_t last_elapsed = 0;
    options.on_wait = [&](const WaitProgress& w) {
      EXPECT_TRUE(w.grace_ms == row.grace && w.elapsed_ms >= last_elapsed && !w.running.empty());
      last_elapsed = w.elapsed_ms;
      return w.elapsed_ms >= 2000 ? row.choice : kWait;
    };
    const auto report = CloseApplications({u"/suite", false, u"", {}}, options, fake.Ops());
    EXPECT_EQ(report.outcome, row.outcome);
    EXPECT_GE(last_elapsed + options.poll_ms, row.min_slept);  // told until the wait ended
    EXPECT_LE(last_elapsed, row.max_slept);
    // Forced by the settings unless the watcher stopped the wait, or by "Close now".
    const bool forced = row.choice == kCloseNow || (row.force && row.choice != kStop);
    EXPECT_EQ((std::vector{Pids(report.asked), Pids(report.without_window),
                           Pids(report.still_running), Pids(report.killed)}),
              (std::vector{row.asked, row.windows ? V{} : V{21}, row.still, forced ? V{21} : V{}}));
    EXPECT_TRUE(fake.slept >= row.min_slept && fake.slept <= row.max_slept) << fake.slept;
    EXPECT_EQ(fake.terminated, forced ? 1 : 0);
    EXPECT_EQ(fake[30].asked_at, -1);
  }
  // Without a scope or a process list nothing is touched.
  FakeProcesses fake;
  fake.Add(20, u"/suite/App/app", 0);
  EXPECT_EQ(CloseApplications(CloseScope{}, {}, fake.Ops()).outcome, kNoScope);
  // The shell's windows on folders of the scope go, even when no application runs there.
  std::vector<std::intptr_t> closed;
  ProcessOps ops = fake.Ops();
  ops.folder_windows = [] {
    return std::vector<os::FolderWindow>{
        {1, u"/other/Docs"}, {2, u"/other2"}, {3, u""}, {4, u"/other"}, {5, u"/vol2/x"}};
  };
  ops.close_folder_window = [&](std::intptr_t w) { return closed.push_back(w), true; };
  EXPECT_EQ(CloseApplications({u"/other", false, u"", {u"/vol2"}}, {}, ops).outcome,
            kNothingToClose);
  EXPECT_EQ(closed, (std::vector<std::intptr_t>{1, 4, 5}));
  fake.unreadable = true;
  EXPECT_EQ(CloseApplications({u"/suite", false, u"", {}}, {}, fake.Ops()).outcome, kFailed);
  EXPECT_TRUE(fake.Asked().empty());
  EXPECT_EQ(fake.slept, 0u);
}

// A faulty choice fed straight to the closing step, beside one application of the suite (20). A
// process the closer may not touch makes it refuse the whole choice: nothing is asked. A number
// that now names another program is left alone and the rest is closed. For a whole drive a
// program started through another name of it (a substituted letter) is the drive's: the volume
// decides, not the path's text. A console's window is closed only when every program on it may be.
TEST(AppCloserGuard, AFaultyChoiceSignalsNothingItMayNotTouch) {
  const std::uint32_t self = os::GetCurrentProcessId(), parent = os::ParentProcessId(self);
  auto E = [](std::uint32_t n, const char16_t* image, const char16_t* owner = u"tester") {
    return ProcessEntry{n, 1, image, owner, 1};
  };
  const CloseScope suite{u"/suite", false, u"", {u"/vol2"}},
      slash{u"/suite/", false, u"", {u"/vol2"}}, drive{u"/suite/", true, u"", {}};
  const ProcessEntry elsewhere = E(kFake + 30, u"/elsewhere/app"),
                     vol2 = E(kFake + 8, u"/vol2/app"), subst = E(kFake + 21, u"/subst/App/b");
  const struct {
    CloseScope scope;
    ProcessEntry bad;
    V asked, still;   // asked none: the whole choice is refused
    V attached = {};  // to the console of 20
    bool console_too = false;
  } rows[] = {
      {suite, elsewhere, {}, {}},                                        // outside the scope
      {suite, E(self, u"/suite/App/a"), {}, {}},                         // the closer itself
      {suite, E(parent, u"/suite/App/a"), {}, {}},                       // its parent
      {suite, E(kFake + 5, u"/suite/TvAppsClose/TvAppsClose"), {}, {}},  // a copy of it
      {suite, E(kFake + 6, u"/suite/TvEject/TvDiskEjector"), {}, {}},
      {suite, E(kFake + 7, u"/suite/App/b", u"other"), {}, {}},  // another user's
      {suite, E(kFake + 30, u"/suite/App/b"), {20}, {8}},  // a number given to another program
      {suite, vol2, {8, 20}, {}},                          // a volume the eject takes along
      {drive, subst, {20, 21}, {21}},
      {drive, elsewhere, {}, {}},
      {slash, subst, {}, {}},
      {slash, vol2, {8, 20}, {}},
      {suite, vol2, {8, 20}, {}, {kFake + 20, kFake + 8}, true},
      {suite, vol2, {8, 20}, {}, {kFake + 20, kFake + 30}},  // one runs from elsewhere
      {suite, vol2, {8, 20}, {}, {kFake + 20, kFake + 99}},  // not listed
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << base::Narrow(row.bad.image) << " " << &row - rows);
    FakeProcesses fake;
    fake.Add(20, u"/suite/App/a", 0);
    fake.Add(30, u"/elsewhere/app", 0);
    fake.Add(8, u"/vol2/app", 0);       // of the scope, but chosen only by some rows
    fake.Add(21, u"/subst/App/b", -1);  // the drive of "/suite" under another name
    auto ops = fake.Ops();
    ops.volume_of = [](std::u16string_view path) -> std::u16string {
      return path.starts_with(u"/suite") || path.starts_with(u"/subst") ? u"1" : u"";
    };
    ops.console = [&](std::uint32_t pid, V* pids) {
      *pids = row.attached;
      return pid == kFake + 20 && !row.attached.empty();
    };
    const CloseOptions options = Options(1000, false, u"/suite/TvAppsClose/TvAppsClose");
    const auto report = CloseSelected(
        row.scope, {true, {fake[20].entry, row.bad}, SparedFor(options, ops)}, options, ops);
    const bool refused = row.asked.empty();
    EXPECT_EQ(report.outcome, refused             ? CloseOutcome::kRefused
                              : row.still.empty() ? CloseOutcome::kAllClosed
                                                  : CloseOutcome::kStillRunning);
    EXPECT_EQ(Pids(report.still_running), refused ? Pids({fake[20].entry, row.bad}) : row.still);
    EXPECT_EQ(fake.Asked(), row.asked);
    EXPECT_EQ(fake[20].console_too, row.console_too);
  }
}

// Real programs from a loop-mounted drive, the removable one the hook says it is: the whole
// drive is the scope; a program started from the test's own folder stands outside it.
TEST(AppCloserReal, OnARemovableDriveTheWholeDriveIsTheScope) {
  if (testing_support::RunInOwnPidNamespace()) return;
  TempDir temp;
  testing_support::LoopMount drive;
  std::string why;
  if (!drive.Create(temp, &why)) GTEST_SKIP() << "no loop-mounted drive: " << why;
  os::fault::ScopedRemovableDisk hook(drive.device());
  ChildProcess children[3];
  const std::u16string programs[] = {
      testing_support::CopyHelperProgram(u"window_app", drive.mount_point() + u"/Suite/App"),
      testing_support::CopyHelperProgram(u"window_app", drive.mount_point() + u"/Other"),
      testing_support::HelperProgram(u"window_app")};
  for (int i = 0; i < 3; ++i) {
    const std::u16string ready = temp.u16(u"ready" + base::ToText(i));
    ASSERT_TRUE(children[i].Start(programs[i], {u"--ready", ready}, temp.u16()) &&
                testing_support::WaitForFile(ready));
  }
  const std::u16string own = drive.mount_point() + u"/Suite/TvAppsClose/TvAppsClose";
  const CloseScope scope = DetermineCloseScope(own);
  EXPECT_TRUE(scope.whole_drive) << base::Narrow(scope.reason);
  EXPECT_EQ(scope.folder, drive.mount_point() + u"/");
  const auto report = CloseApplications(scope, Options(kDefaultGraceMs, false, own));
  EXPECT_EQ(report.outcome, CloseOutcome::kAllClosed) << base::Narrow(report.reason);
  EXPECT_TRUE(children[0].WaitExit(5000) && children[1].WaitExit(5000));
  EXPECT_FALSE(children[2].Exited());
}

}  // namespace
