// The ejecting companion run in-process: its arguments on the way to its copy and back, the
// message for each outcome, the move to the temporary folder, and runs of the copy against a
// scripted drive.
#include "companions/disk_ejector/disk_ejector.h"

#include <gtest/gtest.h>

#include "base/text.h"
#include "companions/common/companion_text.h"
#include "companions/disk_ejector/fake_drive.h"
#include "os/entry.h"
#include "os/fault.h"
#include "os/process.h"
#include "os/program_env.h"
#include "os/ui.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using sys::EjectOutcome;
using testing_support::TempDir;
using Texts = std::vector<std::u16string>;

const std::u16string kExe(os::kExecutableSuffix);

// The program's configuration beside the original: English, so that no test hangs on the
// machine's locale.
const char kEnglish[] = "<TarvelUSBEject><Language>en</Language></TarvelUSBEject>";

// Each part is in text, and no placeholder is left.
void ExpectSays(const std::u16string& text, const Texts& says, const Texts& lacks = {}) {
  for (const auto& part : says) EXPECT_NE(text.find(part), text.npos) << base::Narrow(part);
  for (const auto& part : lacks) EXPECT_EQ(text.find(part), text.npos) << base::Narrow(part);
  EXPECT_EQ(text.find(u'%'), std::u16string::npos) << base::Narrow(text);
}

// The buttons of a box: the closing words where its text offers to close the holders, the
// system's (none given) elsewhere.
void ExpectButtons(const std::u16string& text, const Texts& buttons) {
  const bool closes = text.find(u"Close them and try again:") != std::u16string::npos;
  EXPECT_EQ(buttons, (closes ? Texts{u"Close them and try again", u"Cancel"} : Texts{}))
      << base::Narrow(text);
}

// Quoted as CommandLineToArgvW splits them back; read back as the original passes them.
TEST(DiskEjectorArguments, TheCopyGetsBackExactlyWhatWasPassed) {
  EXPECT_EQ(app::JoinArguments({u"/retry", u"C:\\Program Files\\x", u"a\"b", u"tail\\",
                                u"two words\\", u"", u"\\\\server\\share\\"}),
            u"/retry \"C:\\Program Files\\x\" \"a\\\"b\" tail\\ \"two words\\\\\" \"\" "
            u"\\\\server\\share\\");
  const app::EjectorCommand command = app::ParseEjectorArguments(
      {u"/RETRY", u"-from", u"E:\\TvDiskEjector.exe", u"/wait", u"42", u"/wait", u"x1", u"/wait",
       u"99999999999", u"/wait", u"0", u"/wait"});
  EXPECT_EQ(std::tuple(command.retry, command.from, command.wait_pids),
            std::tuple(true, u"E:\\TvDiskEjector.exe", std::vector<std::uint32_t>{42}));
  EXPECT_FALSE(app::ParseEjectorArguments({u"retry", u"/from"}).retry);
  EXPECT_TRUE(app::ParseEjectorArguments({u"/from"}).from.empty());
}

sys::EjectReport Report(EjectOutcome outcome, std::vector<os::VolumeHolder> holders = {},
                        int uninspected = 0) {
  sys::EjectReport report;
  report.outcome = outcome;
  report.device.root = u"/media/STICK/";
  report.plan.rule = u"the device says so";
  report.reason = u"the report's reason";
  if (outcome == EjectOutcome::kRefused)
    report.answer = {{}, os::kVetoOutstandingOpen, u"/media/STICK", u""};
  report.blockers = {std::move(holders), uninspected};
  return report;
}

// A refusal names each holder, what it holds and whether the answer "Retry" closes it; never
// only a veto code.
TEST(DiskEjectorMessage, EachOutcomeSaysWhatHappenedAndWhy) {
  TempDir temp;
  temp.Write(u"TvEject.xml", kEnglish);
  app::LoadCompanionLanguage(temp.u16());  // no language file: the built-in English texts
  using enum EjectOutcome;
  using os::HoldKind;
  auto H = [](std::uint32_t pid, const char16_t* image, HoldKind kind, const char16_t* held,
              bool closable, const char16_t* title = u"") {
    return os::VolumeHolder{{pid, 1, image, u"", 0}, kind, held, title, closable};
  };
  sys::EjectReport app_veto = Report(kRefused);
  app_veto.answer = {{}, os::kVetoWindowsApp, u"notepad.exe", u""};
  sys::EjectReport failed = Report(kFailed);
  failed.error = 31;
  sys::EjectReport unknown = Report(kUnidentified);
  unknown.device = os::StorageDevice{};
  struct Row {
    sys::EjectReport report;
    std::int32_t flags;
    Texts says, lacks;
  };
  auto R = [](sys::EjectReport report, std::int32_t flags, Texts says, Texts lacks = {}) {
    return Row{std::move(report), flags, std::move(says), std::move(lacks)};
  };
  const Row rows[] = {
      R(Report(kMediaEjected), 0x40, {u"may now remove"}),
      R(Report(kUnmounted), 0x40, {u"may now remove"}),
      R(Report(kNotRemovable), 0x30, {u"not a removable", u"the device says so"}),
      R(Report(kSystemDisk), 0x30, {u"running system", u"the device says so"}),
      R(unknown, 0x10, {u"/Suite/TvEject", u"cannot be identified", u"the report's reason"}),
      R(Report(kRefused), 0x35, {u"OutstandingOpen: /media/STICK", u"Close the programs"}),
      R(app_veto, 0x35, {u"notepad.exe", u"These programs are using it"}),
      R(failed, 0x10, {u"error 31", u"the report's reason"}),
      // Each kind of hold, a window's title, a program not inspected; a holder named from the
      // system's record by its device's id, which is no words for a person.
      R(Report(kRefused,
               {H(77, u"/bin/bash", HoldKind::kFolder, u"/media/STICK/Docs", true),
                H(78, u"", HoldKind::kModule, u"/media/STICK/lib/x.so", true),
                H(79, u"/media/STICK/App/run", HoldKind::kProgram, u"/media/STICK/App/run", true),
                H(80, u"/usr/bin/ed", HoldKind::kFile, u"/media/STICK/a.txt", false, u"a - Ed"),
                H(81, u"C:\\dllhost.exe", HoldKind::kStopped, u"USB\\VID_1&PID_2\\3", false)},
               1),
        0x35,
        {u"These programs are using it",
         u"\r\n\r\nbash (77) works in the folder /media/STICK/Docs\r\n? (78) uses "
         u"/media/STICK/lib/x.so\r\nrun (79) runs from /media/STICK/App/run\r\ned \"a - Ed\" (80) "
         u"has /media/STICK/a.txt open\r\ndllhost.exe (81) stopped the removal (as the system "
         u"recorded it)\r\n\r\n1 other program(s) could not be inspected",
         u"Close them and try again: each"},
        {u"VID_1", u"wait a moment", u"OutstandingOpen"}),
      // Only an indexer of the system, even one that could be closed, or a program that may not
      // be: nothing is offered for closing.
      R(Report(kRefused,
               {H(900, u"C:\\Windows\\SEARCHINDEXER.EXE", HoldKind::kFile, u"E:\\a", true),
                H(902, u"/usr/bin/vim", HoldKind::kFile, u"/media/STICK/b", false)}),
        0x35,
        {u"SEARCHINDEXER.EXE (900) has E:\\a open (a program of the system: wait a moment",
         u"\r\nvim (902) has /media/STICK/b open\r\n\r\nRetry: try again."},
        {u"Close them", u"vim (902) has /media/STICK/b open ("}),
      R(Report(kRefused, {}, 3), 0x35,
        {u"(OutstandingOpen: /media/STICK)", u"3 other program(s) could not be inspected"},
        {u"These programs"}),
  };
  for (const auto& row : rows) {
    const app::EjectorMessage message = app::DescribeEject(row.report, u"/Suite/TvEject");
    SCOPED_TRACE(base::Narrow(message.text));
    EXPECT_EQ(message.flags, row.flags);
    ExpectSays(message.text, row.says, row.lacks);
    ExpectButtons(message.text, message.buttons);
  }
}

// One run of the ejector at own: the boxes it shows (text, style, buttons), answered in turn with
// answers, then OK; the copies it starts, each start answered in turn with starts, then 42.
struct EjectorRun {
  os::fault::Scope faults;
  ejector_test::FakeDrive drive;
  app::EjectorOps ops;
  std::vector<std::tuple<std::u16string, std::uint32_t, Texts>> shown;
  std::vector<std::int32_t> answers;
  Texts files, parameters, folders;
  std::vector<std::intptr_t> starts;
  std::u16string keep = fs::current_path().u16string();

  EjectorRun() {
    os::fault::SetMessageBoxAnswer([this](const os::MessageBoxParams& p) {
      shown.emplace_back(std::u16string(p.text), p.style, Texts(p.labels.begin(), p.labels.end()));
      return shown.size() <= answers.size() ? answers[shown.size() - 1] : os::kIdOk;
    });
    ops.start = [this](const std::u16string& file, const std::u16string& params,
                       const std::u16string& folder) -> std::intptr_t {
      files.push_back(file), parameters.push_back(params), folders.push_back(folder);
      return files.size() <= starts.size() ? starts[files.size() - 1] : 42;
    };
  }
  // The copy moves the working folder off the drive: the test's own is put back, as a working
  // folder cannot be removed.
  int operator()(const Texts& args, const std::u16string& own) {
    ops.drive = drive.Ops();
    const int code = app::RunDiskEjector(args, own, ops);
    os::SetCurrentDirectoryW(keep.c_str());
    return code;
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
  const std::u16string planted = temp.Write(u"Tmp/TvDiskEjector-" + pid + kExe, "planted");
  const std::u16string profile = temp.Write(u"Home/.profile", "the user's own");
  const std::u16string bin = temp.Write(u"Home/bin/TvDiskEjector" + kExe, "the user's own");
#ifndef _WIN32
  fs::create_symlink(profile, temp.path() / ("Tmp/TvDiskEjector-" + base::Narrow(pid) + "0"));
  fs::create_directory_symlink(temp.path() / "Home/bin", temp.path() / "Tmp/TvDiskEjector-linked");
#endif
  EjectorRun run;
  run.ops.places = {temp.u16(u"Tmp")};
  EXPECT_EQ(run({u"/retry"}, own), 0);

  ASSERT_EQ(run.files.size(), 1u);
  const fs::path copy(run.files[0]), folder = copy.parent_path();
  EXPECT_EQ(folder.parent_path() / copy.filename(),
            temp.path() / ("Tmp/TvDiskEjector" + base::Narrow(kExe)));
  EXPECT_TRUE(folder.filename().u16string().starts_with(u"TvDiskEjector-")) << folder;
  EXPECT_EQ(run.folders[0], folder.u16string());
#ifndef _WIN32
  EXPECT_EQ(fs::status(folder).permissions(), fs::perms::owner_all);
#endif
  EXPECT_EQ(temp.Read(run.files[0]), "ejector bytes");
  EXPECT_FALSE(temp.Exists(u"Tmp/TvDiskEjector-old123")) << "an old copy of the user's is swept";
  EXPECT_EQ(temp.Read(planted) + temp.Read(profile) + temp.Read(bin),
            "plantedthe user's ownthe user's own");
  // The test's parent is no program beside the ejector: only the original is waited for.
  EXPECT_EQ(run.parameters[0], app::JoinArguments({u"/retry", u"/from", own, u"/wait", pid}));
  EXPECT_EQ(run.drive.ejects, 0) << "the original never ejects";
  EXPECT_TRUE(run.shown.empty());
}

// Each place is tried in turn, past one on the drive itself and past each failure, with nothing
// left behind; with none left the ejector works from the drive and says why it cannot eject.
TEST(DiskEjectorRun, EachPlaceOffTheDriveIsTriedInTurn) {
  using Op = os::fault::Op;
  const Texts why = {u"/media/STICK/ cannot be ejected: TvDiskEjector runs from it",
                     u"Tmp/: on the drive", u"A/: no private folder could be made there (error 5)",
                     u"B/: the copy could not be started (5)"};
  const struct {
    Texts places;                       // inside the test's folder
    Op fails;                           // kCount: nothing fails
    std::vector<std::intptr_t> starts;  // what the starts answer
    std::u16string runs_from;           // "": the ejector works from the drive
    int refusals;
    Texts says = {};  // the box, when there is one
  } rows[] = {
      {{u"Stick/Tmp", u"A"}, Op::kCount, {}, u"A", 0},
      {{u"A", u"B"}, Op::kCreateFolder, {}, u"B", 0},
      {{u"A", u"B"}, Op::kCopyFile, {}, u"B", 0},
      {{u"A", u"B"}, Op::kCount, {32}, u"B", 0},
#ifndef _WIN32
      // "Open" is writable by all without the sticky bit: others could swap the folder made there.
      {{u"Open", u"B"}, Op::kCount, {}, u"B", 0},
#endif
      {{u"A"}, Op::kCopyFile, {}, u"", 0, {u"may now remove the drive /media/STICK/"}},
      {{u"Stick/Tmp", u"A", u"B"}, Op::kCreateFolder, {5}, u"", 1, why},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(base::Narrow(row.places[0] + u" " + row.runs_from));
    TempDir temp;
    const std::u16string own = temp.Write(u"Stick/TvEject/TvDiskEjector" + kExe, "ejector");
    temp.Write(u"Stick/TvEject/TvEject.xml", kEnglish);
    EjectorRun run;
    run.drive.Refuse(row.refusals);
    for (const auto& place : row.places) {
      fs::create_directories(temp.path() / place);
      if (place == u"Open") fs::permissions(temp.path() / "Open", fs::perms::all);
      run.ops.places.push_back(temp.u16(place) + u"/");
    }
    run.starts = row.starts;
    if (row.fails != Op::kCount) os::fault::Arm(row.fails, os::kErrorAccessDenied);
    EXPECT_EQ(run({}, own), row.refusals ? 1 : 0);
    const bool copied = !row.runs_from.empty();
    EXPECT_EQ(run.drive.ejects, copied ? 0 : 1);
    EXPECT_TRUE(!copied ||
                (!run.files.empty() && fs::path(run.files.back()).parent_path().parent_path() ==
                                           temp.path() / row.runs_from));
    for (const auto& place : row.places)  // nothing is left behind
      EXPECT_TRUE(place == row.runs_from || fs::is_empty(temp.path() / place))
          << base::Narrow(place);
    ASSERT_EQ(run.shown.size(), row.says.empty() ? 0u : 1u);
    if (!row.says.empty()) ExpectSays(std::get<0>(run.shown[0]), row.says);
    EXPECT_TRUE(temp.Exists(own));
  }
}

// The copy, off the drive: it retries a refusal with "/retry"; "Retry" in a refusal's box asks
// the user's holders to close, then tries again and tells what came of it; "Cancel" (or closing
// the box) leaves everything as it is. Its last box comes to the front, and it deletes itself.
TEST(DiskEjectorRun, TheCopyRetriesClosesTheHoldersReportsAndDeletesItself) {
  using os::kIdCancel, os::kIdRetry;
  const std::u16string editor = u"editor (2147483640)", offer = u"Close them and try again: each";
  const struct {
    bool retry;                         // "/retry"
    int refusals;                       // by the drive; 99: while the editor holds it
    std::vector<std::int32_t> answers;  // to the boxes
    const char16_t* reused_by;          // another program got the editor's pid while the box stood
    int ejects, closes, exit_code;
    Texts boxes;         // a part of each box shown, in turn
    std::uint32_t icon;  // of the last box
  } rows[] = {
      {false, 0, {}, u"", 1, 0, 0, {u"may now remove the drive /media/STICK/"}, 0x40},
      {true, 9, {kIdCancel}, u"", 5, 0, 1, {editor + u" runs from /media/STICK/App/e"}, 0x30},
      {false, 1, {kIdRetry}, u"", 2, 1, 0, {offer, u"may now remove"}, 0x40},
      {false, 1, {os::kIdOk}, u"", 1, 0, 1, {offer}, 0x30},  // closed by the corner of the box
      {false, 99, {kIdRetry, kIdCancel}, u"", 2, 1, 1, {editor, editor}, 0x30},
      {false,
       99,
       {kIdRetry, kIdCancel},
       u"/bin/other",
       2,
       0,
       1,
       {editor, u"other (2147483640)"},
       0x30},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.refusals << "/" << row.answers.size());
    TempDir temp;
    const std::u16string own = temp.Write(u"Tmp/TvDiskEjector-7/TvDiskEjector" + kExe, "copy");
    const std::u16string original = temp.Write(u"Stick/TvEject/TvDiskEjector" + kExe, "ejector");
    temp.Write(u"Stick/TvEject/TvEject.xml", kEnglish);
    EjectorRun run;
    run.drive.Refuse(row.refusals);
    run.drive.reused_by = row.reused_by;
    run.answers = row.answers;
    std::vector<std::uint32_t> closed;
    run.ops.close = [&](std::uint32_t pid) {
      closed.push_back(pid);
      run.drive.holder = row.refusals == 99;
      return 1;
    };
    Texts args = {u"/from", original, u"/wait", u"2147483646"};
    if (row.retry) args.insert(args.begin(), u"/retry");
    // The original has ended already (a pid no process has): nothing to wait for.
    EXPECT_EQ(run(args, own), row.exit_code);
    EXPECT_EQ(std::pair(run.drive.ejects, closed),
              std::pair(row.ejects, std::vector<std::uint32_t>(row.closes, ejector_test::kEditor)));
    EXPECT_EQ(run.drive.asked_for, temp.u16(u"Stick/TvEject"));
    EXPECT_EQ(fs::path(run.drive.working), temp.path() / "Tmp" / "TvDiskEjector-7");
    ASSERT_EQ(run.shown.size(), row.boxes.size());
    for (std::size_t i = 0; i < row.boxes.size(); ++i) {
      const auto& [text, style, buttons] = run.shown[i];
      EXPECT_NE(text.find(row.boxes[i]), std::u16string::npos) << base::Narrow(text);
      ExpectButtons(text, buttons);
    }
    // MB_SETFOREGROUND | MB_TOPMOST: the last box comes to the front.
    EXPECT_EQ(std::get<1>(run.shown.back()) & 0x500F0, 0x50000u | row.icon);
    // Windows deletes the copy and its folder a moment after it ended; elsewhere they are gone
    // at once.
    for (int i = 0; i < 100 && temp.Exists(u"Tmp/TvDiskEjector-7"); ++i) os::Sleep(100);
    EXPECT_FALSE(temp.Exists(u"Tmp/TvDiskEjector-7"));
    EXPECT_TRUE(temp.Exists(u"Tmp") && temp.Exists(original));
  }
}

}  // namespace
