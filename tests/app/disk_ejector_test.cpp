// The ejecting companion run in-process: its arguments on the way to its copy and back, the
// message for each outcome, the move to the temporary folder, and runs of the copy against a
// scripted drive.
#include "app/disk_ejector.h"

#include "app/companion_text.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "base/text.h"
#include "lang/lang.h"
#include "os/apps.h"
#include "os/fault.h"
#include "os/process.h"
#include "os/program_env.h"
#include "os/ui.h"
#include "support/temp_dir.h"
#include "sys/app_closer.h"

namespace {

using sys::EjectOutcome;
using testing_support::TempDir;

#ifdef _WIN32
const std::u16string kExe = u".exe";
#else
const std::u16string kExe = u"";
#endif

// The program's configuration beside the original: English, so that no test hangs on the
// machine's locale.
const char kEnglish[] = "<TarvelUSBEject><Language>en</Language></TarvelUSBEject>";

// The copy moves the working folder off the drive: put back the test's own afterwards.
struct KeepWorkingFolder {
  std::u16string folder = os::GetCurrentDirectoryW();
  ~KeepWorkingFolder() { os::SetCurrentDirectoryW(folder.c_str()); }
};

TEST(DiskEjectorArguments, TheCopyGetsBackExactlyWhatWasPassed) {
  const std::vector<std::vector<std::u16string>> cases = {
      {u"/retry"},
      {u"/retry", u"/from", u"C:\\Program Files\\Suite\\TvEject\\TvDiskEjector.exe"},
      {u"/from", u"/media/u/MY STICK/TvEject/TvDiskEjector", u"/wait", u"12"},
      {u"a\"b", u"tail\\", u"two words\\", u"", u"\\\\server\\share\\"},
  };
  for (const auto& args : cases) {
    EXPECT_EQ(os::SplitCommandLine(app::JoinArguments(args)), args)
        << base::Narrow(app::JoinArguments(args));
  }
  const app::EjectorCommand command = app::ParseEjectorArguments(
      {u"/RETRY", u"-from", u"E:\\TvEject\\TvDiskEjector.exe", u"/wait", u"42", u"/wait", u"x1",
       u"/wait", u"99999999999", u"/wait", u"0", u"/wait"});
  EXPECT_TRUE(command.retry);
  EXPECT_EQ(command.from, u"E:\\TvEject\\TvDiskEjector.exe");
  EXPECT_EQ(command.wait_pids, std::vector<std::uint32_t>{42});
  EXPECT_FALSE(app::ParseEjectorArguments({u"retry", u"/from"}).retry);
  EXPECT_TRUE(app::ParseEjectorArguments({u"/from"}).from.empty());
}

sys::EjectReport Report(EjectOutcome outcome) {
  sys::EjectReport report;
  report.outcome = outcome;
  report.device.root = u"/media/STICK/";
  report.device.rule = u"the device says so";
  report.reason = u"the report's reason";
  return report;
}

TEST(DiskEjectorMessage, EachOutcomeSaysWhatHappenedAndWhy) {
  TempDir temp;
  temp.Write(u"TvEject.xml", kEnglish);
  app::LoadCompanionLanguage(temp.u16());  // no language file: the built-in English texts
  sys::EjectReport held = Report(EjectOutcome::kRefused);
  held.answer.veto_type = os::kVetoOutstandingOpen;
  held.answer.veto_name = u"/media/STICK";
  held.blockers = {{4242, 1, u"/media/STICK/App/editor", u"", 0}, {77, 1, u"", u"", 0}};
  sys::EjectReport vetoed = Report(EjectOutcome::kRefused);
  vetoed.answer.veto_type = os::kVetoOutstandingOpen;
  vetoed.answer.veto_name = u"/media/STICK";
  sys::EjectReport app_veto = Report(EjectOutcome::kRefused);
  app_veto.answer.veto_type = os::kVetoWindowsApp;
  app_veto.answer.veto_name = u"notepad.exe";
  sys::EjectReport failed = Report(EjectOutcome::kFailed);
  failed.error = 31;
  sys::EjectReport unknown = Report(EjectOutcome::kUnidentified);
  unknown.device = os::StorageDevice{};

  struct Row {
    sys::EjectReport report;
    std::int32_t flags;
    std::vector<const char16_t*> says;
  } rows[] = {
      {Report(EjectOutcome::kRemoved), 0x40, {u"may now remove", u"/media/STICK/"}},
      {Report(EjectOutcome::kMediaEjected), 0x40, {u"may now remove"}},
      {Report(EjectOutcome::kUnmounted), 0x40, {u"may now remove"}},
      {Report(EjectOutcome::kNotRemovable), 0x30, {u"not a removable", u"the device says so"}},
      {Report(EjectOutcome::kSystemDisk), 0x30, {u"running system", u"the device says so"}},
      {unknown, 0x10, {u"/Suite/TvEject", u"cannot be identified", u"the report's reason"}},
      {held, 0x30, {u"/media/STICK/App/editor (4242)", u"? (77)", u"Close them"}},
      {vetoed, 0x30, {u"OutstandingOpen: /media/STICK", u"Close the programs"}},
      {app_veto, 0x30, {u"notepad.exe", u"Close them"}},
      {failed, 0x10, {u"error 31", u"the report's reason"}},
  };
  for (const auto& row : rows) {
    const app::EjectorMessage message = app::DescribeEject(row.report, u"/Suite/TvEject");
    EXPECT_EQ(message.flags, row.flags) << base::Narrow(message.text);
    for (const char16_t* part : row.says)
      EXPECT_NE(message.text.find(part), std::u16string::npos)
          << base::Narrow(message.text) << " lacks " << base::Narrow(part);
    EXPECT_EQ(message.text.find(u'%'), std::u16string::npos) << base::Narrow(message.text);
  }
}

// A drive the copy ejects: removable, and refusing as many times as asked.
struct ScriptedDrive {
  int refusals = 0;
  int ejects = 0;
  std::vector<std::uint32_t> pauses;
  std::u16string asked_for;

  sys::DriveOps Ops() {
    sys::DriveOps ops;
    ops.volume_root = [this](std::u16string_view path) {
      asked_for = std::u16string(path);
      return std::u16string(u"/media/STICK/");
    };
    ops.query = [](std::u16string_view root, os::StorageDevice* d) {
      d->root = std::u16string(root);
      d->disk = d->parent = u"/dev/sdz";
      d->removable = true;
      d->mount_points = {d->root};
      return true;
    };
    ops.flush = [](const os::StorageDevice&) { return true; };
    ops.eject = [this](const os::StorageDevice&, os::EjectAnswer* a) {
      *a = os::EjectAnswer{};
      if (ejects++ < refusals) {
        a->veto_type = os::kVetoOutstandingOpen;
        a->veto_name = u"/media/STICK";
        return false;
      }
      a->done = os::EjectDone::kRemoved;
      return true;
    };
    ops.holders = [](const std::vector<std::u16string>&) {
      return std::vector<os::ProcessEntry>{{4242, 1, u"/media/STICK/App/editor", u"", 0}};
    };
    ops.pause = [this](std::uint32_t ms) { pauses.push_back(ms); };
    return ops;
  }
};

// The boxes a run shows, answered OK.
struct Boxes {
  os::fault::Scope faults;
  std::vector<std::pair<std::u16string, std::uint32_t>> shown;
  Boxes() {
    os::fault::SetMessageBoxAnswer([this](const os::MessageBoxParams& p) {
      shown.emplace_back(std::u16string(p.text), p.style);
      return os::kIdOk;
    });
  }
};

TEST(DiskEjectorRun, TheOriginalHandsOverToACopyInTheTemporaryFolder) {
  TempDir temp;
  const std::u16string own = temp.Write(u"Stick/TvEject/TvDiskEjector" + kExe, "ejector bytes");
  temp.Write(u"Tmp/TvDiskEjector-1" + kExe, "left by an earlier run");
  ScriptedDrive drive;
  app::EjectorOps ops;
  ops.drive = drive.Ops();
  ops.temp_folder = temp.u16(u"Tmp");
  std::u16string started, parameters, folder;
  ops.start = [&](const std::u16string& file, const std::u16string& params,
                  const std::u16string& working) -> std::intptr_t {
    started = file;
    parameters = params;
    folder = working;
    return 42;
  };
  Boxes boxes;
  EXPECT_EQ(app::RunDiskEjector({u"/retry"}, own, ops), 0);

  const std::u16string pid = base::ToText(os::GetCurrentProcessId());
  EXPECT_EQ(started, sys::ChildPath(temp.u16(u"Tmp"), u"TvDiskEjector-" + pid + kExe));
  EXPECT_EQ(temp.Read(u"Tmp/TvDiskEjector-" + pid + kExe), "ejector bytes");
  EXPECT_FALSE(temp.Exists(u"Tmp/TvDiskEjector-1" + kExe)) << "an old copy is swept";
  EXPECT_EQ(folder, temp.u16(u"Tmp"));
  // The test's parent is no program beside the ejector: only the original is waited for.
  EXPECT_EQ(os::SplitCommandLine(parameters),
            (std::vector<std::u16string>{u"/retry", u"/from", own, u"/wait", pid}));
  EXPECT_EQ(drive.ejects, 0) << "the original never ejects";
  EXPECT_TRUE(boxes.shown.empty());
}

TEST(DiskEjectorRun, WithoutACopyItWorksFromWhereItStands) {
  struct Row {
    const char* name;
    bool copy_fails;  // the copy cannot be made, or cannot be started
  } rows[] = {{"copy-refused", true}, {"start-refused", false}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    TempDir temp;
    const std::u16string own = temp.Write(u"Stick/TvEject/TvDiskEjector" + kExe, "ejector");
    temp.Write(u"Stick/TvEject/TvEject.xml", kEnglish);
    ScriptedDrive drive;
    app::EjectorOps ops;
    ops.drive = drive.Ops();
    ops.temp_folder = temp.u16(u"Tmp");
    std::filesystem::create_directories(temp.path() / "Tmp");
    ops.start = [](const std::u16string&, const std::u16string&, const std::u16string&) {
      return std::intptr_t{2};
    };
    Boxes boxes;
    if (row.copy_fails) os::fault::Arm(os::fault::Op::kCopyFile, os::kErrorAccessDenied);
    EXPECT_EQ(app::RunDiskEjector({}, own, ops), 0);
    EXPECT_EQ(drive.ejects, 1);
    EXPECT_EQ(drive.asked_for, temp.u16(u"Stick/TvEject"));
    ASSERT_EQ(boxes.shown.size(), 1u);
    EXPECT_NE(boxes.shown[0].first.find(u"/media/STICK/"), std::u16string::npos);
    EXPECT_TRUE(std::filesystem::is_empty(temp.path() / "Tmp")) << "no copy is left behind";
    EXPECT_TRUE(temp.Exists(u"Stick/TvEject/TvDiskEjector" + kExe));
  }
}

TEST(DiskEjectorRun, TheCopyRetriesReportsAndDeletesItself) {
  struct Row {
    const char* name;
    std::vector<std::u16string> args;
    int refusals;
    int exit_code;
    int ejects;
    std::uint32_t flags;
    const char16_t* says;
  } rows[] = {
      {"ejected", {}, 0, 0, 1, 0x40, u"may now remove the drive /media/STICK/"},
      {"refused-once", {}, 1, 1, 1, 0x30, u"/media/STICK/App/editor (4242)"},
      {"retried", {u"/retry"}, 3, 0, 4, 0x40, u"may now remove"},
      {"retried-in-vain", {u"/retry"}, 9, 1, 5, 0x30, u"/media/STICK/App/editor (4242)"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    TempDir temp;
    const std::u16string own = temp.Write(u"Tmp/TvDiskEjector-7" + kExe, "copy");
    const std::u16string original = temp.Write(u"Stick/TvEject/TvDiskEjector" + kExe, "ejector");
    temp.Write(u"Stick/TvEject/TvEject.xml", kEnglish);
    KeepWorkingFolder keep;
    ScriptedDrive drive;
    drive.refusals = row.refusals;
    app::EjectorOps ops;
    ops.drive = drive.Ops();
    std::vector<std::u16string> args = row.args;
    // The original has ended already (a pid no process has): nothing to wait for.
    args.insert(args.end(), {u"/from", original, u"/wait", u"2147483646"});
    Boxes boxes;
    EXPECT_EQ(app::RunDiskEjector(args, own, ops), row.exit_code);
    EXPECT_EQ(drive.ejects, row.ejects);
    EXPECT_EQ(drive.pauses, std::vector<std::uint32_t>(row.ejects - 1, 1000u));
    EXPECT_EQ(drive.asked_for, temp.u16(u"Stick/TvEject"));
    EXPECT_EQ(os::GetCurrentDirectoryW(), temp.u16(u"Tmp")) << "working off the drive";
    ASSERT_EQ(boxes.shown.size(), 1u);
    EXPECT_EQ(boxes.shown[0].second & 0xF0, row.flags);
    EXPECT_NE(boxes.shown[0].first.find(row.says), std::u16string::npos)
        << base::Narrow(boxes.shown[0].first);
    // Windows deletes the copy a moment after it ended; elsewhere it is gone at once.
    for (int i = 0; i < 100 && temp.Exists(u"Tmp/TvDiskEjector-7" + kExe); ++i) os::Sleep(100);
    EXPECT_FALSE(temp.Exists(u"Tmp/TvDiskEjector-7" + kExe));
    EXPECT_TRUE(temp.Exists(u"Stick/TvEject/TvDiskEjector" + kExe));
  }
}

}  // namespace
