// The closer: which processes it may touch (pure rules, one table each), how it waits (a fake
// clock), and the whole run on real programs started from a temporary suite folder.
#include "companions/apps_close/app_closer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include "base/text.h"
#include "os/fault.h"
#include "support/child_process.h"
#include "support/loop_mount.h"
#include "support/pid_namespace.h"
#include "support/temp_dir.h"

namespace {

using os::ProcessEntry;
using testing_support::ChildProcess;
using testing_support::TempDir;

std::vector<std::uint32_t> Pids(const std::vector<ProcessEntry>& processes) {
  std::vector<std::uint32_t> out;
  for (const auto& p : processes) out.push_back(p.pid);
  std::sort(out.begin(), out.end());
  return out;
}

TEST(AppCloserPaths, PathIsUnderWholeComponentsEitherSeparator) {
  struct Row {
    const char16_t* path;
    const char16_t* folder;
    bool ignore_case;
    bool under;
  } rows[] = {
      {u"E:\\Suite\\App\\app.exe", u"E:\\", true, true},
      {u"e:\\suite\\app.exe", u"E:\\Suite", true, true},
      {u"e:\\suite\\app.exe", u"E:\\Suite", false, false},
      {u"E:\\Suite2\\app.exe", u"E:\\Suite", true, false},
      {u"E:\\Suite", u"E:\\Suite\\", true, true},
      {u"D:\\Suite\\app.exe", u"E:\\", true, false},
      {u"/media/u/STICK/app", u"/media/u/STICK/", false, true},
      {u"/media/u/STICK2/app", u"/media/u/STICK", false, false},
      {u"/media/u/stick/app", u"/media/u/STICK", false, false},
      {u"/media/u/STICK/app", u"\\media\\u\\STICK", false, true},
      {u"/usr/bin/x", u"/", false, true},
      {u"relative/x", u"/", false, false},
      {u"/x", u"", false, false},
  };
  for (const auto& row : rows)
    EXPECT_EQ(sys::PathIsUnder(row.path, row.folder, row.ignore_case), row.under)
        << base::Narrow(row.path) << " under " << base::Narrow(row.folder);
}

TEST(AppCloserPaths, ParentFoldersAndRoots) {
  struct Row {
    const char16_t* path;
    const char16_t* parent;
    bool root;
  } rows[] = {
      {u"E:\\Suite\\TvAppsClose\\TvAppsClose.exe", u"E:\\Suite\\TvAppsClose", false},
      {u"E:\\Suite\\TvAppsClose\\", u"E:\\Suite", false},
      {u"E:\\app.exe", u"E:\\", false},
      {u"z:\\app.exe", u"z:\\", false},
      {u"a:", u"", true},
      {u"1:", u"", false},
      {u"E:\\", u"", true},
      {u"E:", u"", true},
      {u"/media/stick/TvAppsClose/TvAppsClose", u"/media/stick/TvAppsClose", false},
      {u"/app", u"/", false},
      {u"/", u"/", true},
      {u"//", u"/", true},
      {u"\\\\server\\share\\", u"\\\\server", true},
      {u"\\\\server\\share\\dir", u"\\\\server\\share", false},
      {u"app.exe", u"", false},
      {u"", u"", false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(sys::ParentFolder(row.path), row.parent) << base::Narrow(row.path);
    EXPECT_EQ(sys::IsRootPath(row.path), row.root) << base::Narrow(row.path);
  }
}

TEST(AppCloserScope, RemovableDriveWholeOtherwiseSuiteFolderNeverAFixedRoot) {
  auto plan = [](const char16_t* root, sys::EjectTarget target) {
    sys::EjectPlan p;
    p.root = root;
    p.target = target;
    p.volumes = {root};
    p.rule = u"rule";
    return p;
  };
  sys::EjectPlan stick = plan(u"/media/u/STICK/", sys::EjectTarget::kDevice);
  stick.volumes.push_back(u"/media/u/CARD/");  // another slot of the same reader
  const sys::EjectPlan fixed = plan(u"/", sys::EjectTarget::kSystemDisk);
  const sys::EjectPlan home = plan(u"/home/", sys::EjectTarget::kNotRemovable);
  const sys::EjectPlan live_usb =
      plan(u"/", sys::EjectTarget::kSystemDisk);  // a stick, but the system's
  struct Row {
    const char16_t* own;
    const sys::EjectPlan* dev;
    const char16_t* folder;  // "" = refused
    bool whole;
  } rows[] = {
      {u"/media/u/STICK/Suite/TvAppsClose/TvAppsClose", &stick, u"/media/u/STICK/", true},
      {u"/media/u/STICK/TvAppsClose/TvAppsClose", &stick, u"/media/u/STICK/", true},
      {u"/home/u/Suite/TvAppsClose/TvAppsClose", &fixed, u"/home/u/Suite", false},
      {u"/home/u/Suite/TvAppsClose/TvAppsClose", nullptr, u"/home/u/Suite", false},
      {u"/opt/TvAppsClose/TvAppsClose", &live_usb, u"/opt", false},
      // The suite folder would be a whole fixed volume: refused.
      {u"/TvAppsClose/TvAppsClose", &fixed, u"", false},
      {u"/home/TvAppsClose/TvAppsClose", &home, u"", false},
      {u"/TvAppsClose/TvAppsClose", nullptr, u"", false},
      {u"TvAppsClose", nullptr, u"", false},
      // The device answer is for another drive: it is not trusted.
      {u"/srv/Suite/TvAppsClose/TvAppsClose", &stick, u"/srv/Suite", false},
  };
  for (const auto& row : rows) {
    const sys::CloseScope scope = sys::ChooseCloseScope(row.own, row.dev);
    EXPECT_EQ(scope.folder, row.folder) << base::Narrow(row.own);
    EXPECT_EQ(scope.whole_drive, row.whole) << base::Narrow(row.own);
    EXPECT_EQ(scope.other_volumes, row.whole ? std::vector<std::u16string>{u"/media/u/CARD/"}
                                             : std::vector<std::u16string>{});
    EXPECT_FALSE(scope.reason.empty());
  }
}

TEST(AppCloserSelect, OnlyProcessesInScopeAndNeverTheSparedOnes) {
  // The stick has a second partition: it goes with the eject, so its applications are closed.
  const sys::CloseScope scope{u"/media/STICK/", true, u"", {u"/media/STICK-B/"}};
  sys::Spared spared;
  spared.pids = {10, 11};  // the closer, its parent
  spared.images = {u"/media/STICK/Suite/TvAppsClose/TvAppsClose"};
  spared.names = {u"TvDiskEjector"};
  spared.owner = u"me";
  const std::vector<ProcessEntry> all = {
      {10, 11, u"/media/STICK/Suite/TvAppsClose/TvAppsClose", u"me"},  // itself
      {11, 1, u"/media/STICK/Suite/TvEject/TvEject", u"me"},           // its caller
      {12, 1, u"/media/STICK/Suite/TvEject/TvDiskEjector", u"me"},     // the ejector
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
  EXPECT_EQ(Pids(sys::SelectProcessesToClose(all, scope, spared, false)),
            (std::vector<std::uint32_t>{20, 21, 33}));
  EXPECT_TRUE(sys::SelectProcessesToClose(all, sys::CloseScope{}, spared, false).empty());
  // Case matters only where the platform's names ignore it.
  const std::vector<ProcessEntry> upper = {{40, 1, u"/MEDIA/stick/app", u"me"}};
  EXPECT_TRUE(sys::SelectProcessesToClose(upper, scope, spared, false).empty());
  EXPECT_EQ(sys::SelectProcessesToClose(upper, scope, spared, true).size(), 1u);
}

// Fake process ids, far from any real one (the closer always spares its own and its parent's).
constexpr std::uint32_t kFake = 0x7FFF0000u;
std::vector<std::uint32_t> Fake(std::vector<std::uint32_t> ids) {
  for (auto& id : ids) id += kFake;
  return ids;
}

// A process table driven by a fake clock: each process ends at a given time after its close
// request (never when -1), or when terminated.
struct FakeSystem {
  struct Proc {
    ProcessEntry entry;
    int windows = 1;               // what a close request answers
    std::int64_t ends_after = -1;  // ms after the request; -1: ignores it
    std::int64_t asked_at = -1;
    bool alive = true;
    bool console_too = false;  // the request may close the console's window
  };
  std::map<std::uint32_t, Proc> procs;
  std::uint32_t now = 4294960000u;  // near the wrap of the 32-bit clock on purpose
  std::uint32_t slept = 0;
  int terminated = 0;

  void Add(std::uint32_t pid, std::u16string image, std::int64_t ends_after, int windows = 1) {
    procs[pid] = Proc{{pid, 1, std::move(image), u"tester", pid}, windows, ends_after};
  }
  void Tick() {
    for (auto& [pid, p] : procs)
      if (p.alive && p.asked_at >= 0 && p.ends_after >= 0 &&
          static_cast<std::uint32_t>(now - static_cast<std::uint32_t>(p.asked_at)) >= p.ends_after)
        p.alive = false;
  }
  sys::ProcessOps Ops() {
    sys::ProcessOps ops;
    ops.enumerate = [this] {
      std::vector<ProcessEntry> out;
      for (auto& [pid, p] : procs)
        if (p.alive) out.push_back(p.entry);
      return out;
    };
    ops.open = [this](const ProcessEntry& e, sys::HeldProcess* held) {
      const std::uint32_t pid = e.pid;
      if (!procs.count(pid) || !procs[pid].alive || procs[pid].entry.image != e.image) return false;
      held->request_close = [this, pid](bool console_too) {
        procs[pid].console_too = console_too;
        procs[pid].asked_at = now;
        return procs[pid].windows;
      };
      held->running = [this, pid] {
        Tick();
        return procs[pid].alive;
      };
      held->terminate = [this, pid] {
        ++terminated;
        procs[pid].alive = false;
        return true;
      };
      return true;
    };
    ops.own_user = [] { return u"tester"; };
    ops.now = [this] { return now; };
    ops.sleep = [this](std::uint32_t ms) {
      now += ms;
      slept += ms;
    };
    return ops;
  }
};

TEST(AppCloserRun, WaitsTheGracePeriodAndNoLongerThanNeeded) {
  constexpr auto kCloseNow = sys::WaitChoice::kCloseNow, kStop = sys::WaitChoice::kStop;
  struct Row {
    std::int64_t slow_ends_after;  // the second application's time to close
    std::uint32_t grace;
    bool force;
    sys::CloseOutcome outcome;
    std::vector<std::uint32_t> still;
    std::uint32_t min_slept, max_slept;
    int terminated;
    sys::WaitChoice choice = sys::WaitChoice::kWait;  // what the watcher answers from 2 s on
  } rows[] = {
      {3000, 10000, false, sys::CloseOutcome::kAllClosed, {}, 3000, 3100, 0},
      {-1, 10000, false, sys::CloseOutcome::kStillRunning, {21}, 10000, 10000, 0},
      {12000, 10000, false, sys::CloseOutcome::kStillRunning, {21}, 10000, 10000, 0},
      {-1, 10000, true, sys::CloseOutcome::kAllClosed, {}, 10000, 10000, 1},
      {-1, 0, false, sys::CloseOutcome::kStillRunning, {20, 21}, 0, 0, 0},
      {-1, 10000, false, sys::CloseOutcome::kAllClosed, {}, 2000, 2000, 1, kCloseNow},
      {-1, 10000, true, sys::CloseOutcome::kStillRunning, {21}, 2000, 2000, 0, kStop},
      {1000, 10000, false, sys::CloseOutcome::kAllClosed, {}, 1000, 1100, 0, kStop},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.slow_ends_after << "/" << row.grace);
    FakeSystem fake;
    fake.Add(kFake + 20, u"/suite/App/quick", 200);
    fake.Add(kFake + 21, u"/suite/App/slow", row.slow_ends_after);
    fake.Add(kFake + 30, u"/elsewhere/app", 0);
    sys::CloseOptions options;
    options.grace_ms = row.grace;
    options.force = row.force;
    options.own_path = u"/suite/TvAppsClose/TvAppsClose";
    std::uint32_t last_elapsed = 0;
    options.on_wait = [&](const sys::WaitProgress& w) {
      EXPECT_TRUE(w.grace_ms == row.grace && w.elapsed_ms >= last_elapsed && !w.running.empty());
      last_elapsed = w.elapsed_ms;
      return w.elapsed_ms >= 2000 ? row.choice : sys::WaitChoice::kWait;
    };
    const auto report = sys::CloseApplications({u"/suite", false, u"", {}}, options, fake.Ops());
    EXPECT_EQ(report.outcome, row.outcome);
    EXPECT_GE(last_elapsed + options.poll_ms, row.min_slept);  // told until the wait ended
    EXPECT_LE(last_elapsed, row.max_slept);
    EXPECT_EQ(Pids(report.asked), Fake({20, 21}));
    EXPECT_EQ(Pids(report.still_running), Fake(row.still));
    EXPECT_GE(fake.slept, row.min_slept);
    EXPECT_LE(fake.slept, row.max_slept);
    EXPECT_EQ(fake.terminated, row.terminated);
    EXPECT_EQ(fake.procs[kFake + 30].asked_at, -1);  // outside: never asked
    EXPECT_TRUE(fake.procs[kFake + 30].alive);
  }
}

TEST(AppCloserRun, TouchesNothingWithoutScopeOrProcessList) {
  FakeSystem fake;
  fake.Add(kFake + 20, u"/suite/App/app", 0);
  const auto none = sys::CloseApplications(sys::CloseScope{}, {}, fake.Ops());
  EXPECT_EQ(none.outcome, sys::CloseOutcome::kNoScope);
  EXPECT_EQ(fake.procs[kFake + 20].asked_at, -1);

  auto ops = fake.Ops();
  ops.enumerate = [] { return std::vector<ProcessEntry>{}; };
  EXPECT_EQ(sys::CloseApplications({u"/suite", false, u"", {}}, {}, ops).outcome,
            sys::CloseOutcome::kFailed);
  // The shell's windows on folders of the scope go, even when no application runs there.
  std::vector<std::intptr_t> closed;
  ops = fake.Ops();
  ops.folder_windows = [] {
    return std::vector<os::FolderWindow>{
        {1, u"/other/Docs"}, {2, u"/other2"}, {3, u""}, {4, u"/other"}, {5, u"/vol2/x"}};
  };
  ops.close_folder_window = [&](std::intptr_t w) {
    closed.push_back(w);
    return true;
  };
  EXPECT_EQ(sys::CloseApplications({}, {}, ops).outcome, sys::CloseOutcome::kNoScope);
  const auto elsewhere = sys::CloseApplications({u"/other", false, u"", {u"/vol2"}}, {}, ops);
  EXPECT_EQ(elsewhere.outcome, sys::CloseOutcome::kNothingToClose);
  EXPECT_EQ(closed, (std::vector<std::intptr_t>{1, 4, 5}));
  EXPECT_EQ(fake.slept, 0u);
}

// A program started through another name of the drive (a substituted letter, a folder mount)
// is the drive's when the whole drive is the scope: its volume decides, not its path's text.
TEST(AppCloserRun, TheVolumeDecidesForAWholeDrive) {
  struct Row {
    sys::CloseScope scope;
    std::vector<std::uint32_t> asked;
  } rows[] = {
      {{u"/stick/", true, u"", {}}, {20, 21}},
      {{u"/stick/App", false, u"", {}}, {20}},   // a suite folder: its path decides
      {{u"/stick/App/", false, u"", {}}, {20}},  // the same, with a trailing separator
  };
  for (const auto& row : rows) {
    FakeSystem fake;
    fake.Add(kFake + 20, u"/stick/App/a", 0);
    fake.Add(kFake + 21, u"/subst/App/b", 0);  // the same volume under another name
    fake.Add(kFake + 30, u"/elsewhere/c", 0);
    auto ops = fake.Ops();
    ops.volume_of = [](std::u16string_view path) -> std::u16string {
      if (path.rfind(u"/stick", 0) == 0 || path.rfind(u"/subst", 0) == 0) return u"1";
      return path.rfind(u"/elsewhere", 0) == 0 ? u"2" : u"";
    };
    sys::CloseOptions options;
    options.own_path = u"/stick/TvAppsClose/TvAppsClose";
    const auto report = sys::CloseApplications(row.scope, options, ops);
    EXPECT_EQ(report.outcome, sys::CloseOutcome::kAllClosed) << base::Narrow(report.reason);
    EXPECT_EQ(Pids(report.asked), Fake(row.asked));
    EXPECT_EQ(fake.procs[kFake + 30].asked_at, -1);
  }
}

TEST(AppCloserRun, WindowlessProgramsAreCountedNotAsked) {
  FakeSystem fake;
  fake.Add(kFake + 20, u"/suite/App/console", -1, 0);
  sys::CloseOptions options;
  options.own_path = u"/suite/TvAppsClose/TvAppsClose";
  const auto report = sys::CloseApplications({u"/suite", false, u"", {}}, options, fake.Ops());
  EXPECT_TRUE(report.asked.empty());
  EXPECT_EQ(Pids(report.without_window), Fake({20}));
  EXPECT_EQ(Pids(report.still_running), Fake({20}));
}

TEST(AppCloserRun, AConsoleWindowIsClosedOnlyWhenEveryProgramOnItMayBe) {
  struct Row {
    std::vector<std::uint32_t> attached;  // the console's processes; empty: cannot be known
    bool console_too;
  } rows[] = {
      {{}, false},
      {Fake({20, 21}), true},
      {Fake({20, 30}), false},  // one runs from elsewhere
      {Fake({20, 22}), false},  // the ejector
      {Fake({20, 99}), false},  // not listed
  };
  for (const auto& row : rows) {
    FakeSystem fake;
    fake.Add(kFake + 20, u"/suite/App/console", 0);
    fake.Add(kFake + 21, u"/suite/App/helper", -1);
    fake.Add(kFake + 22, u"/suite/TvEject/TvDiskEjector", -1);
    fake.Add(kFake + 30, u"/elsewhere/shell", -1);
    auto ops = fake.Ops();
    ops.console = [&](std::uint32_t pid, std::vector<std::uint32_t>* pids) {
      *pids = row.attached;
      return pid == kFake + 20 && !row.attached.empty();
    };
    sys::CloseOptions options;
    options.grace_ms = 0;
    sys::CloseSelected({u"/suite", false, u"", {}},
                       {true, {fake.procs[kFake + 20].entry}, sys::SparedFor(options, ops)},
                       options, ops);
    EXPECT_GE(fake.procs[kFake + 20].asked_at, 0);
    EXPECT_EQ(fake.procs[kFake + 20].console_too, row.console_too) << row.attached.size();
  }
}

// Real programs. The suite lives in a temporary folder on a fixed disk, so the scope is the
// suite folder; a program started from the test's own folder stands outside it.
struct RealSuite {
  TempDir temp;
  std::u16string suite = temp.u16(u"Suite");
  std::u16string own = suite + u"/TvAppsClose/TvAppsClose";
  int next = 0;

  std::u16string Install(const char16_t* program, const std::u16string& folder) {
    return testing_support::CopyHelperProgram(program, folder);
  }
  bool Start(ChildProcess& child, const std::u16string& exe, std::vector<std::u16string> args) {
    const std::u16string ready = temp.u16(u"ready" + base::ToText(++next));
    args.insert(args.end(), {u"--ready", ready});
    return child.Start(exe, args, temp.u16()) && testing_support::WaitForFile(ready);
  }
};

// A helper program copied into folder under another name (the extension kept).
std::u16string InstallAs(const char16_t* program, const std::u16string& folder,
                         const std::u16string& name) {
  const std::filesystem::path copy(testing_support::CopyHelperProgram(program, folder));
  if (copy.empty()) return u"";
  const std::filesystem::path to = copy.parent_path() / (name + copy.extension().u16string());
  std::error_code ec;
  std::filesystem::rename(copy, to, ec);
  return ec ? u"" : to.u16string();
}

// The system's entry for a running process; pid 0 when it is not listed.
ProcessEntry Listed(std::uint32_t pid) {
  for (const auto& p : os::EnumProcesses())
    if (p.pid == pid) return p;
  return ProcessEntry{};
}

// A faulty selection fed straight to the closing step, beside one application of the suite.
// A process the closer may not touch makes it refuse the whole choice: nothing is signalled.
// A number that now names another program (or the same program started again) is left alone
// and the rest is closed. Real processes, which force would end were the closer wrong.
TEST(AppCloserGuard, AFaultySelectionSignalsNothingItMayNotTouch) {
  if (testing_support::RunInOwnPidNamespace()) return;
  RealSuite s;
  const std::u16string closer = InstallAs(u"window_app", s.suite + u"/TvAppsClose", u"TvAppsClose");
  const std::u16string ejector = InstallAs(u"window_app", s.suite + u"/TvEject", u"TvDiskEjector");
  const std::u16string app = s.Install(u"window_app", s.suite + u"/App");
  // A sibling of the suite whose name is as long as the suite's.
  const std::u16string outside = s.Install(u"window_app", s.temp.u16(u"Other"));
  ASSERT_FALSE(closer.empty() || ejector.empty() || app.empty() || outside.empty());
  ChildProcess c_closer, c_ejector, c_other, c_outsider;
  ASSERT_TRUE(s.Start(c_closer, closer, {}));
  ASSERT_TRUE(s.Start(c_ejector, ejector, {}));
  ASSERT_TRUE(s.Start(c_other, app, {}));
  ASSERT_TRUE(s.Start(c_outsider, outside, {}));
  const ProcessEntry self = Listed(os::GetCurrentProcessId());
  ASSERT_NE(self.pid, 0u);
  const sys::CloseScope scope = sys::DetermineCloseScope(closer);
  ASSERT_EQ(scope.folder, s.suite) << base::Narrow(scope.reason);

  enum Fault {
    kOutside,
    kSelf,
    kParent,
    kCloserCopy,
    kEjector,
    kOtherUser,
    kReused,
    kRestarted,
    kOtherVolume
  };
  struct Row {
    const char* name;
    Fault fault;
    bool refused;  // the whole choice is refused; otherwise the suite's application is closed
  } rows[] = {
      {"outside the scope", kOutside, true},
      {"the closer itself", kSelf, true},
      {"its parent", kParent, true},
      {"a copy of the closer", kCloserCopy, true},
      {"the ejector", kEjector, true},
      {"another user's", kOtherUser, true},
      {"a reused number", kReused, false},
      {"started again", kRestarted, false},
      // Last: the outsider's folder stands for another volume the eject takes along, so the
      // outsider is the drive's too and is closed.
      {"on another volume of the device", kOtherVolume, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ChildProcess c_app;
    ASSERT_TRUE(s.Start(c_app, app, {}));
    const ProcessEntry target = Listed(c_app.pid());
    ProcessEntry bad;
    switch (row.fault) {
      case kOutside:
        bad = Listed(c_outsider.pid());
        break;
      case kSelf:
        bad = self;
        break;
      case kParent:
        bad = {self.parent_pid, 0, app, self.owner, 1};
        break;
      case kCloserCopy:
        bad = Listed(c_closer.pid());
        break;
      case kEjector:
        bad = Listed(c_ejector.pid());
        break;
      case kOtherUser:
        bad = Listed(c_other.pid()), bad.owner += u"0";
        break;
      case kReused:
        bad = target, bad.pid = c_outsider.pid();
        break;
      case kRestarted:
        bad = Listed(c_other.pid()), bad.start += 1;
        break;
      case kOtherVolume:
        bad = Listed(c_outsider.pid());
        break;
    }
    sys::CloseScope with = scope;
    if (row.fault == kOtherVolume) with.other_volumes = {s.temp.u16(u"Other")};
    if (row.fault == kSelf || row.fault == kParent) bad.image = app;  // claims to be the app
    ASSERT_FALSE(target.image.empty() || bad.owner.empty());
    sys::CloseOptions options;
    options.own_path = closer;
    options.force = true;
    options.grace_ms = 6000;
    const auto report = sys::CloseSelected(
        with, {true, {target, bad}, sys::SparedFor(options, sys::SystemProcessOps())}, options);

    // The suite's other application was never chosen: it is counted, not closed.
    EXPECT_EQ(report.outcome,
              row.refused ? sys::CloseOutcome::kRefused : sys::CloseOutcome::kStillRunning)
        << base::Narrow(report.reason);
    if (!row.refused) {
      EXPECT_EQ(Pids(report.still_running), std::vector<std::uint32_t>{c_other.pid()});
    }
    EXPECT_TRUE(report.killed.empty());
    EXPECT_EQ(c_app.WaitExit(row.refused ? 300 : 8000), !row.refused);
    if (row.fault == kOtherVolume) {
      EXPECT_TRUE(c_outsider.WaitExit(8000));
    }
    for (ChildProcess* c : {&c_closer, &c_ejector, &c_other, &c_outsider}) {
      if (c != &c_outsider || row.fault != kOtherVolume) {
        EXPECT_FALSE(c->Exited()) << c->pid();
      }
    }
  }
}

// An application that will not close politely: on Windows a console program, which has no
// window for WM_CLOSE; elsewhere one that ignores SIGTERM.
const char16_t* const kStubborn = u"sleeper";
#ifdef _WIN32
const std::vector<std::u16string> kStubbornArgs = {};
#else
const std::vector<std::u16string> kStubbornArgs = {u"--ignore-term"};
#endif

TEST(AppCloserReal, ClosesExactlyTheSuitesApplications) {
  if (testing_support::RunInOwnPidNamespace()) return;
  RealSuite s;
  const std::u16string app = s.Install(u"window_app", s.suite + u"/App");
  const std::u16string slow = s.Install(u"window_app", s.suite + u"/Slow");
  const std::u16string stubborn = s.Install(kStubborn, s.suite + u"/Stubborn");
  ASSERT_FALSE(app.empty() || slow.empty() || stubborn.empty());
  ChildProcess c_app, c_slow, c_stubborn, c_outsider;
  ASSERT_TRUE(s.Start(c_app, app, {}));
  ASSERT_TRUE(s.Start(c_slow, slow, {u"--close-delay", u"1000"}));
  ASSERT_TRUE(s.Start(c_stubborn, stubborn, kStubbornArgs));
  ASSERT_TRUE(s.Start(c_outsider, testing_support::HelperProgram(u"window_app"), {}));

  const sys::CloseScope scope = sys::DetermineCloseScope(s.own);
  ASSERT_FALSE(scope.whole_drive) << base::Narrow(scope.reason);
  ASSERT_TRUE(sys::PathIsUnder(app, scope.folder, os::PathsIgnoreCase()))
      << base::Narrow(scope.reason);
  sys::CloseOptions options;
  options.own_path = s.own;
  // The slow one needs 1 s, and Wine takes about 2 s more to end a windowed program after
  // WM_CLOSE; the stubborn one is waited for in vain.
  options.grace_ms = 6000;
  const auto report = sys::CloseApplications(scope, options);

  EXPECT_EQ(report.outcome, sys::CloseOutcome::kStillRunning) << base::Narrow(report.reason);
  EXPECT_EQ(Pids(report.still_running), std::vector<std::uint32_t>{c_stubborn.pid()});
  EXPECT_TRUE(c_app.WaitExit(5000));
  EXPECT_TRUE(c_slow.WaitExit(5000));  // it took a second to close and was waited for
  EXPECT_FALSE(c_stubborn.Exited());
  EXPECT_FALSE(c_outsider.Exited());

  options.force = true;
  const auto forced = sys::CloseApplications(scope, options);
  EXPECT_EQ(forced.outcome, sys::CloseOutcome::kAllClosed) << base::Narrow(forced.reason);
  EXPECT_EQ(Pids(forced.killed), std::vector<std::uint32_t>{c_stubborn.pid()});
  EXPECT_TRUE(c_stubborn.WaitExit(5000));
  EXPECT_FALSE(c_outsider.Exited());
}

TEST(AppCloserReal, OnARemovableDriveTheWholeDriveIsTheScope) {
  if (testing_support::RunInOwnPidNamespace()) return;
  TempDir temp;
  testing_support::LoopMount drive;
  std::string why;
  if (!drive.Create(temp, &why)) GTEST_SKIP() << "no loop-mounted drive: " << why;
  os::fault::ScopedRemovableDisk hook(drive.device());
  const std::u16string suite = drive.mount_point() + u"/Suite";
  const std::u16string in_suite =
      testing_support::CopyHelperProgram(u"window_app", suite + u"/App");
  const std::u16string beside =
      testing_support::CopyHelperProgram(u"window_app", drive.mount_point() + u"/Other");
  ChildProcess c_in, c_beside, c_outsider;
  ASSERT_TRUE(c_in.Start(in_suite, {u"--ready", temp.u16(u"r1")}, temp.u16()));
  ASSERT_TRUE(c_beside.Start(beside, {u"--ready", temp.u16(u"r2")}, temp.u16()));
  ASSERT_TRUE(c_outsider.Start(testing_support::HelperProgram(u"window_app"),
                               {u"--ready", temp.u16(u"r3")}, temp.u16()));
  for (const char16_t* r : {u"r1", u"r2", u"r3"})
    ASSERT_TRUE(testing_support::WaitForFile(temp.u16(r)));

  const std::u16string own = suite + u"/TvAppsClose/TvAppsClose";
  const sys::CloseScope scope = sys::DetermineCloseScope(own);
  EXPECT_TRUE(scope.whole_drive) << base::Narrow(scope.reason);
  EXPECT_EQ(scope.folder, drive.mount_point() + u"/");
  sys::CloseOptions options;
  options.own_path = own;
  const auto report = sys::CloseApplications(scope, options);
  EXPECT_EQ(report.outcome, sys::CloseOutcome::kAllClosed) << base::Narrow(report.reason);
  EXPECT_TRUE(c_in.WaitExit(5000));
  EXPECT_TRUE(c_beside.WaitExit(5000));
  EXPECT_FALSE(c_outsider.Exited());
}

}  // namespace
