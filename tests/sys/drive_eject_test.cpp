// The ejector: its refusals and retries against scripted answers (one table), then the real
// thing: the temporary folder's fixed drive, and on Linux a loop-mounted FAT drive.
#include "sys/drive_eject.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "base/text.h"
#include "support/child_process.h"
#include "support/loop_mount.h"
#include "support/pid_namespace.h"
#include "support/temp_dir.h"

namespace {

using os::EjectDone;
using sys::EjectOutcome;
using testing_support::ChildProcess;
using testing_support::TempDir;

// One scripted eject answer.
struct Answer {
  bool ok;
  EjectDone done;
  std::uint32_t veto;
};
constexpr Answer kRemoved{true, EjectDone::kRemoved, 0};
constexpr Answer kEjected{true, EjectDone::kMediaEjected, 0};
constexpr Answer kUnmountedOnly{true, EjectDone::kUnmounted, 0};
constexpr Answer kBusy{false, EjectDone::kNothing, os::kVetoOutstandingOpen};
constexpr Answer kBroken{false, EjectDone::kNothing, os::kVetoNone};

struct Script {
  bool found = true;  // the path has a volume
  bool known = true;  // the device can be asked
  bool removable = true;
  bool system = false;
  bool identified = true;  // the device to eject is known
  std::vector<Answer> answers{};
  // What happened.
  int ejects = 0, flushes = 0, holder_scans = 0;
  std::vector<std::uint32_t> pauses{};

  sys::DriveOps Ops() {
    sys::DriveOps ops;
    ops.volume_root = [this](std::u16string_view) {
      return found ? std::u16string(u"/media/STICK/") : std::u16string();
    };
    ops.query = [this](std::u16string_view root, os::StorageDevice* d) {
      if (!known) return false;
      d->root = std::u16string(root);
      d->disk = u"/dev/sdz";
      d->parent = identified ? d->disk : u"";
      d->removable = removable && !system;
      d->system = system;
      d->rule = u"rule";
      d->mount_points = {d->root};
      return true;
    };
    ops.flush = [this](const os::StorageDevice&) { return ++flushes > 0; };
    ops.eject = [this](const os::StorageDevice&, os::EjectAnswer* a) {
      const Answer& s = answers[std::min<std::size_t>(ejects++, answers.size() - 1)];
      *a = os::EjectAnswer{};
      a->done = s.done;
      a->veto_type = s.veto;
      if (s.veto) a->veto_name = u"/media/STICK";
      if (!s.ok && !s.veto) os::SetLastError(os::kErrorAccessDenied);
      return s.ok;
    };
    ops.holders = [this](const std::vector<std::u16string>& roots) {
      ++holder_scans;
      return std::vector<os::ProcessEntry>{{4242, 1, u"/media/STICK/App/editor", u"", 0}};
    };
    ops.pause = [this](std::uint32_t ms) { pauses.push_back(ms); };
    return ops;
  }
};

TEST(DriveEject, RefusesWhatItMustAndRetriesOnlyARefusal) {
  struct Row {
    const char* name;
    Script script;
    int tries;
    EjectOutcome outcome;
    int ejects;
    std::size_t pauses;
    bool blockers;
  } rows[] = {
      {"no volume",
       {.found = false, .answers = {kRemoved}},
       5,
       EjectOutcome::kUnidentified,
       0,
       0,
       false},
      {"device unknown",
       {.known = false, .answers = {kRemoved}},
       5,
       EjectOutcome::kUnidentified,
       0,
       0,
       false},
      {"fixed disk",
       {.removable = false, .answers = {kRemoved}},
       5,
       EjectOutcome::kNotRemovable,
       0,
       0,
       false},
      {"system disk",
       {.system = true, .answers = {kRemoved}},
       5,
       EjectOutcome::kSystemDisk,
       0,
       0,
       false},
      {"no device to eject",
       {.identified = false, .answers = {kRemoved}},
       5,
       EjectOutcome::kUnidentified,
       0,
       0,
       false},
      {"removed", {.answers = {kRemoved}}, 5, EjectOutcome::kRemoved, 1, 0, false},
      {"medium ejected", {.answers = {kEjected}}, 1, EjectOutcome::kMediaEjected, 1, 0, false},
      {"no eject", {.answers = {kUnmountedOnly}}, 1, EjectOutcome::kUnmounted, 1, 0, false},
      {"busy, then free",
       {.answers = {kBusy, kBusy, kRemoved}},
       5,
       EjectOutcome::kRemoved,
       3,
       2,
       false},
      {"busy throughout", {.answers = {kBusy}}, 5, EjectOutcome::kRefused, 5, 4, true},
      {"busy, no retry", {.answers = {kBusy}}, 1, EjectOutcome::kRefused, 1, 0, true},
      {"failure is not retried", {.answers = {kBroken}}, 5, EjectOutcome::kFailed, 1, 0, false},
  };
  for (auto& row : rows) {
    SCOPED_TRACE(row.name);
    sys::EjectOptions options;
    options.tries = row.tries;
    const auto report = sys::EjectDriveOf(u"/media/STICK/Suite/TvEject", options, row.script.Ops());
    EXPECT_EQ(report.outcome, row.outcome) << base::Narrow(report.reason);
    EXPECT_EQ(row.script.ejects, row.ejects);
    EXPECT_EQ(report.tries, row.ejects);
    EXPECT_EQ(row.script.flushes, row.ejects);  // flushed before every request
    EXPECT_EQ(row.script.pauses, std::vector<std::uint32_t>(row.pauses, sys::kRetryPauseMs));
    EXPECT_EQ(row.script.holder_scans, row.blockers ? 1 : 0);
    EXPECT_EQ(report.blockers.size(), row.blockers ? 1u : 0u);
    EXPECT_EQ(sys::SafeToRemove(report.outcome), row.outcome == EjectOutcome::kRemoved ||
                                                     row.outcome == EjectOutcome::kMediaEjected ||
                                                     row.outcome == EjectOutcome::kUnmounted);
    EXPECT_FALSE(report.reason.empty());
  }
}

TEST(DriveEject, ARefusalNamesTheVetoAndTheHolders) {
  Script script;
  script.answers = {kBusy};
  sys::EjectOptions options;
  options.tries = sys::kRetryTries;
  const auto report = sys::EjectDriveOf(u"/media/STICK/x", options, script.Ops());
  EXPECT_EQ(report.answer.veto_type, os::kVetoOutstandingOpen);
  EXPECT_EQ(report.reason,
            u"the system refused to eject /dev/sdz after 5 tries (OutstandingOpen: "
            u"/media/STICK); held by /media/STICK/App/editor (4242)");
  EXPECT_EQ(sys::VetoTypeName(12), u"InsufficientRights");
  EXPECT_EQ(sys::VetoTypeName(99), u"Veto99");
}

TEST(DriveEject, TheTemporaryFoldersDriveIsRefusedAsNotRemovable) {
  TempDir temp;
  Script never;  // nothing may be ejected: its pause and eject must stay unused
  sys::DriveOps ops = sys::SystemDriveOps();
  ops.eject = never.Ops().eject;
  ops.pause = never.Ops().pause;
  const auto report = sys::EjectDriveOf(temp.u16(), {sys::kRetryTries, 1000}, ops);
  EXPECT_TRUE(report.outcome == EjectOutcome::kNotRemovable ||
              report.outcome == EjectOutcome::kSystemDisk)
      << base::Narrow(report.reason);
  EXPECT_EQ(never.ejects, 0);
  EXPECT_NE(report.reason.find(u"is not"), std::u16string::npos) << base::Narrow(report.reason);
}

class DriveEjectLoop : public testing::Test {
 protected:
  void SetUp() override {
    std::string why;
    if (!drive_.Create(temp_, &why)) GTEST_SKIP() << "no loop-mounted drive: " << why;
    std::filesystem::create_directories(std::filesystem::path(suite()));
  }
  std::u16string suite() const { return drive_.mount_point() + u"/Suite/TvEject"; }
  TempDir temp_;
  testing_support::LoopMount drive_;
};

TEST_F(DriveEjectLoop, ALoopDeviceIsNotRemovableWithoutTheTestHook) {
  const auto report = sys::EjectDriveOf(suite(), {}, sys::SystemDriveOps());
  EXPECT_EQ(report.outcome, EjectOutcome::kNotRemovable) << base::Narrow(report.reason);
  EXPECT_TRUE(drive_.Mounted());
}

TEST_F(DriveEjectLoop, UnmountsAFreeDrive) {
  os::ScopedRemovableDiskForTests hook(drive_.device());
  const auto report = sys::EjectDriveOf(suite(), {sys::kRetryTries, 1000}, sys::SystemDriveOps());
  EXPECT_EQ(report.outcome, EjectOutcome::kUnmounted) << base::Narrow(report.reason);
  EXPECT_EQ(report.tries, 1);
  EXPECT_FALSE(drive_.Mounted());
}

TEST_F(DriveEjectLoop, RetriesABusyDriveThenNamesWhoHoldsIt) {
  if (testing_support::RunInOwnPidNamespace()) return;
  os::ScopedRemovableDiskForTests hook(drive_.device());
  ChildProcess holder;
  const std::u16string ready = temp_.u16(u"ready");
  ASSERT_TRUE(
      holder.Start(testing_support::HelperProgram(u"sleeper"), {u"--ready", ready}, suite()));
  ASSERT_TRUE(testing_support::WaitForFile(ready));

  std::vector<std::uint32_t> pauses{};
  sys::DriveOps ops = sys::SystemDriveOps();
  ops.pause = [&](std::uint32_t ms) { pauses.push_back(ms); };
  const auto report = sys::EjectDriveOf(suite(), {sys::kRetryTries, 1000}, ops);
  EXPECT_EQ(report.outcome, EjectOutcome::kRefused) << base::Narrow(report.reason);
  EXPECT_EQ(report.tries, 5);
  EXPECT_EQ(pauses, std::vector<std::uint32_t>(4, 1000u));
  ASSERT_EQ(report.blockers.size(), 1u) << base::Narrow(report.reason);
  EXPECT_EQ(report.blockers[0].pid, holder.pid());
  EXPECT_NE(report.reason.find(u"sleeper (" + base::ToText(holder.pid()) + u")"),
            std::u16string::npos)
      << base::Narrow(report.reason);
  EXPECT_TRUE(drive_.Mounted());

  // Once the holder is gone the same eject goes through.
  holder.Kill();
  EXPECT_EQ(sys::EjectDriveOf(suite(), {}, ops).outcome, EjectOutcome::kUnmounted);
  EXPECT_FALSE(drive_.Mounted());
}

}  // namespace
