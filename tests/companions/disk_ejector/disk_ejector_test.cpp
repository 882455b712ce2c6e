// The ejecting companion run in-process: its arguments on the way to its copy and back, the
// message for each outcome, the move to the temporary folder, and runs of the copy against a
// scripted drive.
#include "companions/disk_ejector/disk_ejector.h"

#include "companions/common/companion_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <functional>

#include "base/text.h"
#include "companions/apps_close/app_closer.h"
#include "lang/lang.h"
#include "os/apps.h"
#include "os/entry.h"
#include "os/fault.h"
#include "os/process.h"
#include "os/program_env.h"
#include "os/ui.h"
#include "support/temp_dir.h"

namespace {

using sys::EjectOutcome;
using testing_support::TempDir;

const std::u16string kExe(os::kExecutableSuffix);

// The program's configuration beside the original: English, so that no test hangs on the
// machine's locale.
const char kEnglish[] = "<TarvelUSBEject><Language>en</Language></TarvelUSBEject>";

// The copy moves the working folder off the drive: put back the test's own afterwards.
struct KeepWorkingFolder {
  std::u16string folder = std::filesystem::current_path().u16string();
  ~KeepWorkingFolder() { os::SetCurrentDirectoryW(folder.c_str()); }
};

// A stick with the ejector and an English configuration, and the ejector's copy in a folder
// off the drive, where the ejector runs from.
struct CopyOnStick {
  TempDir temp;
  std::u16string own = temp.Write(u"Tmp/TvDiskEjector-7/TvDiskEjector" + kExe, "copy");
  std::u16string original = temp.Write(u"Stick/TvEject/TvDiskEjector" + kExe, "ejector");
  std::u16string config = temp.Write(u"Stick/TvEject/TvEject.xml", kEnglish);
  KeepWorkingFolder keep;
};

// Where the box offers to close the holders, its buttons say so; elsewhere they are the system's.
void ExpectButtons(const app::EjectorMessage& message) {
  const bool closes = message.text.find(u"Close them and try again:") != std::u16string::npos;
  const std::vector<std::u16string> words{u"Close them and try again", u"Cancel"};
  EXPECT_EQ(message.buttons, closes ? words : std::vector<std::u16string>{});
}

TEST(DiskEjectorArguments, TheCopyGetsBackExactlyWhatWasPassed) {
  // Quoted as CommandLineToArgvW splits them back.
  const struct {
    std::vector<std::u16string> args;
    std::u16string line;
  } cases[] = {
      {{u"/retry"}, u"/retry"},
      {{u"/retry", u"/from", u"C:\\Program Files\\Suite\\TvEject\\TvDiskEjector.exe"},
       u"/retry /from \"C:\\Program Files\\Suite\\TvEject\\TvDiskEjector.exe\""},
      {{u"/from", u"/media/u/MY STICK/TvEject/TvDiskEjector", u"/wait", u"12"},
       u"/from \"/media/u/MY STICK/TvEject/TvDiskEjector\" /wait 12"},
      {{u"a\"b", u"tail\\", u"two words\\", u"", u"\\\\server\\share\\"},
       u"\"a\\\"b\" tail\\ \"two words\\\\\" \"\" \\\\server\\share\\"},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(app::JoinArguments(row.args), row.line) << base::Narrow(row.line);
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
  report.plan.rule = u"the device says so";
  report.reason = u"the report's reason";
  return report;
}

TEST(DiskEjectorMessage, EachOutcomeSaysWhatHappenedAndWhy) {
  TempDir temp;
  temp.Write(u"TvEject.xml", kEnglish);
  app::LoadCompanionLanguage(temp.u16());  // no language file: the built-in English texts
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
      {vetoed, 0x35, {u"OutstandingOpen: /media/STICK", u"Close the programs"}},
      {app_veto, 0x35, {u"notepad.exe", u"These programs are using it"}},
      {failed, 0x10, {u"error 31", u"the report's reason"}},
  };
  for (const auto& row : rows) {
    const app::EjectorMessage message = app::DescribeEject(row.report, u"/Suite/TvEject");
    EXPECT_EQ(message.flags, row.flags) << base::Narrow(message.text);
    for (const char16_t* part : row.says)
      EXPECT_NE(message.text.find(part), std::u16string::npos)
          << base::Narrow(message.text) << " lacks " << base::Narrow(part);
    EXPECT_EQ(message.text.find(u'%'), std::u16string::npos) << base::Narrow(message.text);
    ExpectButtons(message);
  }
}

// A refusal names each holder, what it holds and whether the answer "Retry" closes it; never
// only a veto code.
TEST(DiskEjectorMessage, ARefusalNamesEachHolderAndWhatRetryDoes) {
  TempDir temp;
  temp.Write(u"TvEject.xml", kEnglish);
  app::LoadCompanionLanguage(temp.u16());
  using os::HoldKind;
  struct Row {
    const char* name;
    std::vector<os::VolumeHolder> holders;
    int uninspected;
    std::vector<const char16_t*> says, lacks;
  } rows[] = {
      {"own program with a window",
       {{{4242, 1, u"/usr/bin/editor", u"", 0},
         HoldKind::kFile,
         u"/media/STICK/notes.txt",
         u"notes.txt - Editor",
         true}},
       0,
       {u"These programs are using it",
        u"\r\n\r\neditor \"notes.txt - Editor\" (4242) has "
        u"/media/STICK/notes.txt open\r\n\r\nClose them and try again: each of these programs is "
        u"asked to close, as you would close it (it may ask you about unsaved work), and the eject "
        u"is tried again.\r\nCancel: leave everything as it is."},
       {u"could not be inspected", u"wait a moment", u"OutstandingOpen"}},
      {"a shell in a folder, a library, a program of the drive",
       {{{77, 1, u"/bin/bash", u"", 0}, HoldKind::kFolder, u"/media/STICK/Docs", u"", true},
        {{78, 1, u"", u"", 0}, HoldKind::kModule, u"/media/STICK/lib/x.so", u"", true},
        {{79, 1, u"/media/STICK/App/run", u"", 0},
         HoldKind::kProgram,
         u"/media/STICK/App/run",
         u"",
         true}},
       0,
       {u"bash (77) works in the folder /media/STICK/Docs\r\n? (78) uses /media/STICK/lib/x.so\r\n"
        u"run (79) runs from /media/STICK/App/run\r\n",
        u"Close them and try again: each"},
       {}},
      {"an indexer of the system",
       {{{900, 4, u"C:\\Windows\\System32\\SEARCHINDEXER.EXE", u"", 0},
         HoldKind::kFile,
         u"E:\\a.doc",
         u"",
         false}},
       0,
       {u"SEARCHINDEXER.EXE (900) has E:\\a.doc open (a program of the system: wait a moment and "
        u"try again)",
        u"Retry: try again."},
       {u"Close them"}},
      {"the user's own indexer is not closed either",
       {{{901, 1, u"/usr/libexec/tracker-miner-fs-3", u"", 0},
         HoldKind::kFile,
         u"/media/STICK/a",
         u"",
         true}},
       0,
       {u"tracker-miner-fs-3 (901) has /media/STICK/a open (a program of the system",
        u"Retry: try again."},
       {u"Close them"}},
      {"a program that may not be asked to close is named",
       {{{902, 1, u"/usr/bin/vim", u"", 0}, HoldKind::kFile, u"/media/STICK/b", u"", false}},
       0,
       {u"vim (902) has /media/STICK/b open", u"Retry: try again."},
       {u"Close them", u"wait a moment"}},
      {"none seen, some not inspected",
       {},
       3,
       {u"(OutstandingOpen: /media/STICK)",
        u"3 other program(s) could not be inspected (another user's, or running as administrator)"
        u": they may be using the drive too.\r\n\r\nRetry: try again."},
       {u"These programs"}},
      {"seen and not inspected",
       {{{4242, 1, u"/usr/bin/editor", u"", 0}, HoldKind::kFile, u"/media/STICK/n", u"", true}},
       1,
       {u"editor (4242) has /media/STICK/n open\r\n\r\n1 other program(s) could not be inspected",
        u"Close them and try again: each"},
       {}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    sys::EjectReport report = Report(EjectOutcome::kRefused);
    report.answer.veto_type = os::kVetoOutstandingOpen;
    report.answer.veto_name = u"/media/STICK";
    report.blockers.processes = row.holders;
    report.blockers.uninspected = row.uninspected;
    const app::EjectorMessage message = app::DescribeEject(report, u"/Suite/TvEject");
    EXPECT_EQ(message.flags, 0x35) << "a warning with Retry and Cancel";
    for (const char16_t* part : row.says)
      EXPECT_NE(message.text.find(part), std::u16string::npos)
          << base::Narrow(message.text) << " lacks " << base::Narrow(part);
    for (const char16_t* part : row.lacks)
      EXPECT_EQ(message.text.find(part), std::u16string::npos)
          << base::Narrow(message.text) << " has " << base::Narrow(part);
    EXPECT_EQ(message.text.find(u'%'), std::u16string::npos) << base::Narrow(message.text);
    ExpectButtons(message);
  }
}

// A drive the copy ejects: removable, and refusing as many times as asked. Every path with
// "Stick" in it is on the drive; any other is on the system's disk.
// A pid no process has: the closed editor is not waited for.
constexpr std::uint32_t kEditor = 2147483640;

struct ScriptedDrive {
  int refusals = 0;
  bool holder_closed = false;
  int holder_scans = 0;
  std::u16string reused_by;  // the program that has the editor's pid after the first search
  int ejects = 0;
  std::vector<std::uint32_t> pauses;
  std::u16string asked_for;
  std::u16string working;  // the working folder when the eject is asked for

  sys::DriveOps Ops() {
    sys::DriveOps ops;
    ops.volume_root = [this](std::u16string_view path) {
      asked_for = std::u16string(path);
      return std::u16string(path.find(u"Stick") != path.npos ? u"/media/STICK/" : u"/");
    };
    ops.query = [](std::u16string_view root, os::StorageDevice* d) {
      d->root = std::u16string(root);
      d->disk = u"/dev/sdz";
      d->chain = {{d->disk, true, false}};
      d->mount_points = {d->root};
      return true;
    };
    ops.flush = [](const std::vector<std::u16string>&) { return true; };
    ops.eject = [this](const sys::EjectPlan&, const os::StorageDevice&, os::EjectAnswer* a) {
      working = std::filesystem::current_path().u16string();
      *a = os::EjectAnswer{};
      if (ejects++ < refusals) {
        a->veto_type = os::kVetoOutstandingOpen;
        a->veto_name = u"/media/STICK";
        return false;
      }
      a->done = os::EjectDone::kRemoved;
      return true;
    };
    ops.holders = [this](const std::vector<std::u16string>&) {
      os::VolumeHolders found;
      const bool reused = holder_scans++ > 0 && !reused_by.empty();
      if (!holder_closed)
        found.processes = {{{kEditor, 1, reused ? reused_by : u"/media/STICK/App/editor", u"", 0},
                            os::HoldKind::kProgram,
                            u"/media/STICK/App/editor",
                            u"",
                            true}};
      return found;
    };
    ops.pause = [this](std::uint32_t ms) { pauses.push_back(ms); };
    return ops;
  }
};

// The boxes a run shows, answered in turn with answers, then OK.
struct Boxes {
  os::fault::Scope faults;
  std::vector<std::pair<std::u16string, std::uint32_t>> shown;
  std::vector<std::int32_t> answers;
  std::vector<std::u16string> first_labels;  // the first box's own button words
  Boxes() {
    os::fault::SetMessageBoxAnswer([this](const os::MessageBoxParams& p) {
      if (shown.empty()) first_labels.assign(p.labels.begin(), p.labels.end());
      shown.emplace_back(std::u16string(p.text), p.style);
      return shown.size() <= answers.size() ? answers[shown.size() - 1] : os::kIdOk;
    });
  }
};

// The copy that was started: its file, parameters and working folder.
struct Starts {
  std::vector<std::u16string> files, parameters, folders;
  std::vector<std::intptr_t> answers;  // what each start answers, then 42 (started)
  std::function<std::intptr_t(const std::u16string&, const std::u16string&, const std::u16string&)>
  Op() {
    return [this](const std::u16string& file, const std::u16string& params,
                  const std::u16string& folder) -> std::intptr_t {
      files.push_back(file);
      parameters.push_back(params);
      folders.push_back(folder);
      return files.size() <= answers.size() ? answers[files.size() - 1] : 42;
    };
  }
};

// The names the copy uses, planted beforehand in a shared temporary folder by someone else: the
// old fixed name of the copy as a file and as a link to a file of the user's, and a link named
// like a copy's folder pointing into the user's files. None is written, run or swept.
TEST(DiskEjectorRun, TheOriginalHandsOverToACopyInAPrivateFolder) {
  TempDir temp;
  const std::u16string own = temp.Write(u"Stick/TvEject/TvDiskEjector" + kExe, "ejector bytes");
  temp.Write(u"Tmp/TvDiskEjector-old123/TvDiskEjector" + kExe, "left by an earlier run");
  const std::u16string pid = base::ToText(os::GetCurrentProcessId());
  const std::u16string planted = u"Tmp/TvDiskEjector-" + pid + kExe;
  temp.Write(planted, "planted");
  temp.Write(u"Home/.profile", "the user's own");
  temp.Write(u"Home/bin/TvDiskEjector" + kExe, "the user's own");
#ifndef _WIN32
  std::filesystem::create_symlink(temp.path() / "Home/.profile",
                                  temp.path() / ("Tmp/TvDiskEjector-" + base::Narrow(pid) + "0"));
  std::filesystem::create_directory_symlink(temp.path() / "Home/bin",
                                            temp.path() / "Tmp/TvDiskEjector-linked");
#endif
  ScriptedDrive drive;
  app::EjectorOps ops;
  ops.drive = drive.Ops();
  ops.places = {temp.u16(u"Tmp")};
  Starts starts;
  ops.start = starts.Op();
  Boxes boxes;
  EXPECT_EQ(app::RunDiskEjector({u"/retry"}, own, ops), 0);

  ASSERT_EQ(starts.files.size(), 1u);
  const std::filesystem::path copy(base::Narrow(starts.files[0]));
  const std::filesystem::path folder = copy.parent_path();
  EXPECT_EQ(folder.parent_path(), temp.path() / "Tmp");
  EXPECT_EQ(folder.filename().string().rfind("TvDiskEjector-", 0), 0u) << folder;
  EXPECT_EQ(copy.filename(), "TvDiskEjector" + base::Narrow(kExe));
  EXPECT_EQ(starts.folders[0], base::Widen(folder.string()));
#ifndef _WIN32
  EXPECT_EQ(std::filesystem::status(folder).permissions(), std::filesystem::perms::owner_all);
#endif
  std::ifstream in(copy, std::ios::binary);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "ejector bytes");
  EXPECT_FALSE(temp.Exists(u"Tmp/TvDiskEjector-old123")) << "an old copy of the user's is swept";
  EXPECT_EQ(temp.Read(planted), "planted");
  EXPECT_EQ(temp.Read(u"Home/.profile"), "the user's own");
  EXPECT_EQ(temp.Read(u"Home/bin/TvDiskEjector" + kExe), "the user's own");
  // The test's parent is no program beside the ejector: only the original is waited for.
  EXPECT_EQ(starts.parameters[0], app::JoinArguments({u"/retry", u"/from", own, u"/wait", pid}));
  EXPECT_EQ(drive.ejects, 0) << "the original never ejects";
  EXPECT_TRUE(boxes.shown.empty());
}

// Each place is tried in turn, past one on the drive itself and past each failure, with nothing
// left behind; with none left the ejector works from the drive and says why it cannot eject.
TEST(DiskEjectorRun, EachPlaceOffTheDriveIsTriedInTurn) {
  struct Row {
    const char* name;
    std::vector<const char16_t*> places;  // inside the test's folder
    os::fault::Op fails;                  // kCount: nothing fails
    std::vector<std::intptr_t> starts;    // what the starts answer
    const char16_t* runs_from;            // "": the ejector works from the drive
    int refusals;
    std::vector<const char16_t*> says;  // the box, when there is one
  } rows[] = {
      {"drive-skipped", {u"Stick/Tmp", u"A"}, os::fault::Op::kCount, {}, u"A", 0, {}},
      {"no-folder", {u"A", u"B"}, os::fault::Op::kCreateFolder, {}, u"B", 0, {}},
      {"copy-refused", {u"A", u"B"}, os::fault::Op::kCopyFile, {}, u"B", 0, {}},
      {"start-refused", {u"A", u"B"}, os::fault::Op::kCount, {32}, u"B", 0, {}},
#ifndef _WIN32
      // "Open" is writable by all without the sticky bit: others could swap the folder made there.
      {"open-to-all", {u"Open", u"B"}, os::fault::Op::kCount, {}, u"B", 0, {}},
#endif
      {"none-but-ejected",
       {u"A"},
       os::fault::Op::kCopyFile,
       {},
       u"",
       0,
       {u"may now remove the drive /media/STICK/"}},
      {"none-and-refused",
       {u"Stick/Tmp", u"A", u"B"},
       os::fault::Op::kCreateFolder,
       {5},
       u"",
       1,
       {u"/media/STICK/ cannot be ejected: TvDiskEjector runs from it", u"Tmp/: on the drive",
        u"A/: no private folder could be made there (error 5)",
        u"B/: the copy could not be started (5)"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    TempDir temp;
    const std::u16string own = temp.Write(u"Stick/TvEject/TvDiskEjector" + kExe, "ejector");
    temp.Write(u"Stick/TvEject/TvEject.xml", kEnglish);
    ScriptedDrive drive;
    drive.refusals = row.refusals;
    app::EjectorOps ops;
    ops.drive = drive.Ops();
    for (const char16_t* place : row.places) {
      std::filesystem::create_directories(temp.path() / base::Narrow(place));
      if (std::u16string_view(place) == u"Open")
        std::filesystem::permissions(temp.path() / "Open", std::filesystem::perms::all);
      ops.places.push_back(temp.u16(place) + u"/");
    }
    Starts starts;
    starts.answers = row.starts;
    ops.start = starts.Op();
    Boxes boxes;
    if (row.fails != os::fault::Op::kCount) os::fault::Arm(row.fails, os::kErrorAccessDenied);
    EXPECT_EQ(app::RunDiskEjector({}, own, ops), row.refusals ? 1 : 0);
    const bool copied = *row.runs_from != 0;
    EXPECT_EQ(drive.ejects, copied ? 0 : 1);
    if (copied) {
      ASSERT_FALSE(starts.files.empty());
      EXPECT_EQ(
          std::filesystem::path(base::Narrow(starts.files.back())).parent_path().parent_path(),
          temp.path() / base::Narrow(row.runs_from));
    }
    for (const char16_t* place : row.places) {
      if (copied && std::u16string_view(place) == row.runs_from) continue;
      EXPECT_TRUE(std::filesystem::is_empty(temp.path() / base::Narrow(place)))
          << base::Narrow(place) << ": nothing is left behind";
    }
    ASSERT_EQ(boxes.shown.size(), row.says.empty() ? 0u : 1u);
    for (const char16_t* part : row.says)
      EXPECT_NE(boxes.shown[0].first.find(part), std::u16string::npos)
          << base::Narrow(boxes.shown[0].first) << " lacks " << base::Narrow(part);
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
      {"refused-once", {}, 1, 1, 1, 0x30, u"editor (2147483640) runs from /media/STICK/App/editor"},
      {"retried", {u"/retry"}, 3, 0, 4, 0x40, u"may now remove"},
      {"retried-in-vain",
       {u"/retry"},
       9,
       1,
       5,
       0x30,
       u"editor (2147483640) runs from /media/STICK/App/editor"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    CopyOnStick stick;
    ScriptedDrive drive;
    drive.refusals = row.refusals;
    app::EjectorOps ops;
    ops.drive = drive.Ops();
    std::vector<std::u16string> args = row.args;
    // The original has ended already (a pid no process has): nothing to wait for.
    args.insert(args.end(), {u"/from", stick.original, u"/wait", u"2147483646"});
    Boxes boxes;
    EXPECT_EQ(app::RunDiskEjector(args, stick.own, ops), row.exit_code);
    EXPECT_EQ(drive.ejects, row.ejects);
    EXPECT_EQ(drive.pauses, std::vector<std::uint32_t>(row.ejects - 1, 1000u));
    EXPECT_EQ(drive.asked_for, stick.temp.u16(u"Stick/TvEject"));
    EXPECT_EQ(std::filesystem::path(base::Narrow(drive.working)),
              stick.temp.path() / "Tmp" / "TvDiskEjector-7")
        << "working off the drive";
    os::SetCurrentDirectoryW(stick.keep.folder.c_str());  // a working folder cannot be removed
    ASSERT_EQ(boxes.shown.size(), 1u);
    EXPECT_EQ(boxes.shown[0].second & 0xF0, row.flags);
    // MB_SETFOREGROUND | MB_TOPMOST: the last box comes to the front.
    EXPECT_EQ(boxes.shown[0].second & 0x50000, 0x50000u);
    EXPECT_NE(boxes.shown[0].first.find(row.says), std::u16string::npos)
        << base::Narrow(boxes.shown[0].first);
    // Windows deletes the copy and its folder a moment after it ended; elsewhere they are gone
    // at once.
    for (int i = 0; i < 100 && stick.temp.Exists(u"Tmp/TvDiskEjector-7"); ++i) os::Sleep(100);
    EXPECT_FALSE(stick.temp.Exists(u"Tmp/TvDiskEjector-7"));
    EXPECT_TRUE(stick.temp.Exists(u"Tmp"));
    EXPECT_TRUE(stick.temp.Exists(u"Stick/TvEject/TvDiskEjector" + kExe));
  }
}

// "Retry" in a refusal's box asks the user's holders to close, then tries again and tells what
// came of it; "Cancel" (or closing the box) leaves everything as it is.
TEST(DiskEjectorRun, RetryClosesTheHoldersAndTriesAgain) {
  struct Row {
    const char* name;
    std::vector<std::int32_t> answers;
    bool holder_leaves;         // the editor ends when asked to
    const char16_t* reused_by;  // another program got the editor's pid while the box stood
    int ejects;
    int closes;
    std::vector<const char16_t*> boxes;  // a part of each box shown, in turn
    int exit_code;
  } rows[] = {
      {"retry",
       {os::kIdRetry},
       true,
       u"",
       2,
       1,
       {u"Close them and try again: each", u"may now remove"},
       0},
      {"cancel", {os::kIdCancel}, true, u"", 1, 0, {u"Close them and try again: each"}, 1},
      {"closed by the corner",
       {os::kIdOk},
       true,
       u"",
       1,
       0,
       {u"Close them and try again: each"},
       1},
      {"still held, then cancel",
       {os::kIdRetry, os::kIdCancel},
       false,
       u"",
       2,
       1,
       {u"editor (2147483640)", u"editor (2147483640)"},
       1},
      {"the pid went to another program",
       {os::kIdRetry, os::kIdCancel},
       false,
       u"/usr/bin/other",
       2,
       0,
       {u"editor (2147483640)", u"other (2147483640)"},
       1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    CopyOnStick stick;
    ScriptedDrive drive;
    drive.refusals = row.holder_leaves ? 1 : 99;
    drive.reused_by = row.reused_by;
    app::EjectorOps ops;
    ops.drive = drive.Ops();
    std::vector<std::uint32_t> closed;
    ops.close = [&](std::uint32_t pid) {
      closed.push_back(pid);
      drive.holder_closed = row.holder_leaves;
      return 1;
    };
    Boxes boxes;
    boxes.answers = row.answers;
    EXPECT_EQ(
        app::RunDiskEjector({u"/from", stick.original, u"/wait", u"2147483646"}, stick.own, ops),
        row.exit_code);
    os::SetCurrentDirectoryW(stick.keep.folder.c_str());
    EXPECT_EQ(drive.ejects, row.ejects);
    EXPECT_EQ(closed, std::vector<std::uint32_t>(row.closes, kEditor));
    ASSERT_EQ(boxes.shown.size(), row.boxes.size());
    EXPECT_EQ(boxes.first_labels,
              (std::vector<std::u16string>{u"Close them and try again", u"Cancel"}));
    for (std::size_t i = 0; i < row.boxes.size(); ++i)
      EXPECT_NE(boxes.shown[i].first.find(row.boxes[i]), std::u16string::npos)
          << base::Narrow(boxes.shown[i].first);
  }
}

}  // namespace
