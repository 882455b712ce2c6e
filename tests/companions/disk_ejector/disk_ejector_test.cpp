// The ejecting companion run in-process: its arguments on the way to its copy and back, the
// message for each outcome, the move to the temporary folder, and runs of the copy against a
// scripted drive.
#include "companions/disk_ejector/disk_ejector.h"

#include <gtest/gtest.h>

#include <fstream>

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

using sys::EjectOutcome;
using testing_support::TempDir;
using Texts = std::vector<const char16_t*>;

const std::u16string kExe(os::kExecutableSuffix);

// The program's configuration beside the original: English, so that no test hangs on the
// machine's locale.
const char kEnglish[] = "<TarvelUSBEject><Language>en</Language></TarvelUSBEject>";

// Each part is in text, and no placeholder is left.
void ExpectSays(const std::u16string& text, const Texts& says, const Texts& lacks = {}) {
  for (const char16_t* part : says)
    EXPECT_NE(text.find(part), std::u16string::npos)
        << base::Narrow(text) << " lacks " << base::Narrow(part);
  for (const char16_t* part : lacks)
    EXPECT_EQ(text.find(part), std::u16string::npos)
        << base::Narrow(text) << " has " << base::Narrow(part);
  EXPECT_EQ(text.find(u'%'), std::u16string::npos) << base::Narrow(text);
}

TEST(DiskEjectorArguments, TheCopyGetsBackExactlyWhatWasPassed) {
  // Quoted as CommandLineToArgvW splits them back.
  const struct {
    std::vector<std::u16string> args;
    std::u16string line;
  } cases[] = {
      {{u"/retry", u"/from", u"C:\\Program Files\\Suite\\TvEject\\TvDiskEjector.exe"},
       u"/retry /from \"C:\\Program Files\\Suite\\TvEject\\TvDiskEjector.exe\""},
      {{u"/from", u"/media/u/MY STICK/TvEject/TvDiskEjector", u"/wait", u"12"},
       u"/from \"/media/u/MY STICK/TvEject/TvDiskEjector\" /wait 12"},
      {{u"a\"b", u"tail\\", u"two words\\", u"", u"\\\\server\\share\\"},
       u"\"a\\\"b\" tail\\ \"two words\\\\\" \"\" \\\\server\\share\\"},
  };
  for (const auto& row : cases)
    EXPECT_EQ(app::JoinArguments(row.args), row.line) << base::Narrow(row.line);
  const app::EjectorCommand command = app::ParseEjectorArguments(
      {u"/RETRY", u"-from", u"E:\\TvEject\\TvDiskEjector.exe", u"/wait", u"42", u"/wait", u"x1",
       u"/wait", u"99999999999", u"/wait", u"0", u"/wait"});
  EXPECT_TRUE(command.retry);
  EXPECT_EQ(command.from, u"E:\\TvEject\\TvDiskEjector.exe");
  EXPECT_EQ(command.wait_pids, std::vector<std::uint32_t>{42});
  EXPECT_FALSE(app::ParseEjectorArguments({u"retry", u"/from"}).retry);
  EXPECT_TRUE(app::ParseEjectorArguments({u"/from"}).from.empty());
}

// The buttons of a box: the closing words where its text offers to close the holders, the
// system's (none given) elsewhere.
void ExpectButtons(const std::u16string& text, const std::vector<std::u16string>& buttons) {
  const bool closes = text.find(u"Close them and try again:") != std::u16string::npos;
  const std::vector<std::u16string> words{u"Close them and try again", u"Cancel"};
  EXPECT_EQ(buttons, closes ? words : std::vector<std::u16string>{}) << base::Narrow(text);
}

sys::EjectReport Report(EjectOutcome outcome, std::vector<os::VolumeHolder> holders = {},
                        int uninspected = 0) {
  sys::EjectReport report;
  report.outcome = outcome;
  report.device.root = u"/media/STICK/";
  report.plan.rule = u"the device says so";
  report.reason = u"the report's reason";
  if (outcome == EjectOutcome::kRefused) {
    report.answer.veto_type = os::kVetoOutstandingOpen;
    report.answer.veto_name = u"/media/STICK";
  }
  report.blockers.processes = std::move(holders);
  report.blockers.uninspected = uninspected;
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
  app_veto.answer.veto_type = os::kVetoWindowsApp;
  app_veto.answer.veto_name = u"notepad.exe";
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
      R(Report(kRemoved), 0x40, {u"may now remove", u"/media/STICK/"}),
      R(Report(kMediaEjected), 0x40, {u"may now remove"}),
      R(Report(kUnmounted), 0x40, {u"may now remove"}),
      R(Report(kNotRemovable), 0x30, {u"not a removable", u"the device says so"}),
      R(Report(kSystemDisk), 0x30, {u"running system", u"the device says so"}),
      R(unknown, 0x10, {u"/Suite/TvEject", u"cannot be identified", u"the report's reason"}),
      R(Report(kRefused), 0x35, {u"OutstandingOpen: /media/STICK", u"Close the programs"}),
      R(app_veto, 0x35, {u"notepad.exe", u"These programs are using it"}),
      R(failed, 0x10, {u"error 31", u"the report's reason"}),
      // Named from the system's record: the device's id is no words for a person.
      R(Report(kRefused, {H(9176, u"\\Device\\HarddiskVolume3\\dllhost.exe", HoldKind::kStopped,
                            u"USB\\VID_1&PID_2\\3", false)}),
        0x35, {u"dllhost.exe (9176) stopped the removal (as the system recorded it)"}, {u"VID_1"}),
      // An own program with a window.
      R(Report(kRefused, {H(4242, u"/usr/bin/editor", HoldKind::kFile, u"/media/STICK/notes.txt",
                            true, u"notes.txt - Editor")}),
        0x35,
        {u"These programs are using it",
         u"\r\n\r\neditor \"notes.txt - Editor\" (4242) has /media/STICK/notes.txt open\r\n\r\n"
         u"Close them and try again: each of these programs is asked to close, as you would close "
         u"it (it may ask you about unsaved work), and the eject is tried again.\r\nCancel: leave "
         u"everything as it is."},
        {u"could not be inspected", u"wait a moment", u"OutstandingOpen"}),
      // A shell in a folder, a library, a program of the drive.
      R(Report(kRefused,
               {H(77, u"/bin/bash", HoldKind::kFolder, u"/media/STICK/Docs", true),
                H(78, u"", HoldKind::kModule, u"/media/STICK/lib/x.so", true),
                H(79, u"/media/STICK/App/run", HoldKind::kProgram, u"/media/STICK/App/run", true)}),
        0x35,
        {u"bash (77) works in the folder /media/STICK/Docs\r\n? (78) uses /media/STICK/lib/x.so"
         u"\r\nrun (79) runs from /media/STICK/App/run\r\n",
         u"Close them and try again: each"}),
      // An indexer of the system; the user's own indexer is not closed either.
      R(Report(kRefused, {H(900, u"C:\\Windows\\System32\\SEARCHINDEXER.EXE", HoldKind::kFile,
                            u"E:\\a.doc", false)}),
        0x35,
        {u"SEARCHINDEXER.EXE (900) has E:\\a.doc open (a program of the system: wait a moment "
         u"and try again)",
         u"Retry: try again."},
        {u"Close them"}),
      R(Report(kRefused, {H(901, u"/usr/libexec/tracker-miner-fs-3", HoldKind::kFile,
                            u"/media/STICK/a", true)}),
        0x35,
        {u"tracker-miner-fs-3 (901) has /media/STICK/a open (a program of the system",
         u"Retry: try again."},
        {u"Close them"}),
      // A program that may not be asked to close is named.
      R(Report(kRefused, {H(902, u"/usr/bin/vim", HoldKind::kFile, u"/media/STICK/b", false)}),
        0x35, {u"vim (902) has /media/STICK/b open", u"Retry: try again."},
        {u"Close them", u"wait a moment"}),
      R(Report(kRefused, {}, 3), 0x35,
        {u"(OutstandingOpen: /media/STICK)",
         u"3 other program(s) could not be inspected (another user's, or running as "
         u"administrator): they may be using the drive too.\r\n\r\nRetry: try again."},
        {u"These programs"}),
      R(Report(kRefused, {H(4242, u"/usr/bin/editor", HoldKind::kFile, u"/media/STICK/n", true)},
               1),
        0x35,
        {u"editor (4242) has /media/STICK/n open\r\n\r\n1 other program(s) could not be "
         u"inspected",
         u"Close them and try again: each"}),
  };
  for (const auto& row : rows) {
    const app::EjectorMessage message = app::DescribeEject(row.report, u"/Suite/TvEject");
    EXPECT_EQ(message.flags, row.flags) << base::Narrow(message.text);
    ExpectSays(message.text, row.says, row.lacks);
    ExpectButtons(message.text, message.buttons);
  }
}

// One run of the ejector at own: the boxes it shows, answered in turn with answers, then OK;
// the copies it starts, each start answered in turn with starts, then 42 (started).
struct EjectorRun {
  os::fault::Scope faults;
  ejector_test::FakeDrive drive;
  app::EjectorOps ops;
  std::vector<std::pair<std::u16string, std::uint32_t>> shown;
  std::vector<std::vector<std::u16string>> buttons;  // each box's own button words
  std::vector<std::int32_t> answers;
  std::vector<std::u16string> files, parameters, folders;
  std::vector<std::intptr_t> starts;
  std::u16string keep = std::filesystem::current_path().u16string();

  EjectorRun() {
    os::fault::SetMessageBoxAnswer([this](const os::MessageBoxParams& p) {
      shown.emplace_back(std::u16string(p.text), p.style);
      buttons.emplace_back(p.labels.begin(), p.labels.end());
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
  ~EjectorRun() { os::SetCurrentDirectoryW(keep.c_str()); }
  int operator()(const std::vector<std::u16string>& args, const std::u16string& own) {
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
  EjectorRun run;
  run.ops.places = {temp.u16(u"Tmp")};
  EXPECT_EQ(run({u"/retry"}, own), 0);

  ASSERT_EQ(run.files.size(), 1u);
  const std::filesystem::path copy(base::Narrow(run.files[0]));
  const std::filesystem::path folder = copy.parent_path();
  EXPECT_EQ(folder.parent_path(), temp.path() / "Tmp");
  EXPECT_EQ(folder.filename().string().rfind("TvDiskEjector-", 0), 0u) << folder;
  EXPECT_EQ(copy.filename(), "TvDiskEjector" + base::Narrow(kExe));
  EXPECT_EQ(run.folders[0], base::Widen(folder.string()));
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
  EXPECT_EQ(run.parameters[0], app::JoinArguments({u"/retry", u"/from", own, u"/wait", pid}));
  EXPECT_EQ(run.drive.ejects, 0) << "the original never ejects";
  EXPECT_TRUE(run.shown.empty());
}

// Each place is tried in turn, past one on the drive itself and past each failure, with nothing
// left behind; with none left the ejector works from the drive and says why it cannot eject.
TEST(DiskEjectorRun, EachPlaceOffTheDriveIsTriedInTurn) {
  using Op = os::fault::Op;
  struct Row {
    const char* name;
    Texts places;                       // inside the test's folder
    Op fails;                           // kCount: nothing fails
    std::vector<std::intptr_t> starts;  // what the starts answer
    const char16_t* runs_from;          // "": the ejector works from the drive
    int refusals;
    Texts says;  // the box, when there is one
  };
  auto R = [](const char* name, Texts places, Op fails, std::vector<std::intptr_t> starts,
              const char16_t* runs_from, int refusals, Texts says = {}) {
    return Row{name, places, fails, starts, runs_from, refusals, says};
  };
  const Row rows[] = {
      R("drive-skipped", {u"Stick/Tmp", u"A"}, Op::kCount, {}, u"A", 0),
      R("no-folder", {u"A", u"B"}, Op::kCreateFolder, {}, u"B", 0),
      R("copy-refused", {u"A", u"B"}, Op::kCopyFile, {}, u"B", 0),
      R("start-refused", {u"A", u"B"}, Op::kCount, {32}, u"B", 0),
#ifndef _WIN32
      // "Open" is writable by all without the sticky bit: others could swap the folder made there.
      R("open-to-all", {u"Open", u"B"}, Op::kCount, {}, u"B", 0),
#endif
      R("none-but-ejected", {u"A"}, Op::kCopyFile, {}, u"", 0,
        {u"may now remove the drive /media/STICK/"}),
      R("none-and-refused", {u"Stick/Tmp", u"A", u"B"}, Op::kCreateFolder, {5}, u"", 1,
        {u"/media/STICK/ cannot be ejected: TvDiskEjector runs from it", u"Tmp/: on the drive",
         u"A/: no private folder could be made there (error 5)",
         u"B/: the copy could not be started (5)"}),
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    TempDir temp;
    const std::u16string own = temp.Write(u"Stick/TvEject/TvDiskEjector" + kExe, "ejector");
    temp.Write(u"Stick/TvEject/TvEject.xml", kEnglish);
    EjectorRun run;
    run.drive.Refuse(row.refusals);
    for (const char16_t* place : row.places) {
      std::filesystem::create_directories(temp.path() / base::Narrow(place));
      if (std::u16string_view(place) == u"Open")
        std::filesystem::permissions(temp.path() / "Open", std::filesystem::perms::all);
      run.ops.places.push_back(temp.u16(place) + u"/");
    }
    run.starts = row.starts;
    if (row.fails != Op::kCount) os::fault::Arm(row.fails, os::kErrorAccessDenied);
    EXPECT_EQ(run({}, own), row.refusals ? 1 : 0);
    const bool copied = *row.runs_from != 0;
    EXPECT_EQ(run.drive.ejects, copied ? 0 : 1);
    if (copied) {
      ASSERT_FALSE(run.files.empty());
      EXPECT_EQ(std::filesystem::path(base::Narrow(run.files.back())).parent_path().parent_path(),
                temp.path() / base::Narrow(row.runs_from));
    }
    for (const char16_t* place : row.places) {
      if (copied && std::u16string_view(place) == row.runs_from) continue;
      EXPECT_TRUE(std::filesystem::is_empty(temp.path() / base::Narrow(place)))
          << base::Narrow(place) << ": nothing is left behind";
    }
    ASSERT_EQ(run.shown.size(), row.says.empty() ? 0u : 1u);
    if (!row.says.empty()) ExpectSays(run.shown[0].first, row.says);
    EXPECT_TRUE(temp.Exists(u"Stick/TvEject/TvDiskEjector" + kExe));
  }
}

// The copy, off the drive: it retries a refusal with "/retry"; "Retry" in a refusal's box asks
// the user's holders to close, then tries again and tells what came of it; "Cancel" (or closing
// the box) leaves everything as it is. Its last box comes to the front, and it deletes itself.
TEST(DiskEjectorRun, TheCopyRetriesClosesTheHoldersReportsAndDeletesItself) {
  const std::u16string editor = u"editor (2147483640)";
  struct Row {
    const char* name;
    bool retry;                         // "/retry"
    int refusals;                       // by the drive; 99: while the editor holds it
    std::vector<std::int32_t> answers;  // to the boxes
    const char16_t* reused_by;          // another program got the editor's pid while the box stood
    int ejects, closes, exit_code;
    std::vector<std::u16string> boxes;  // a part of each box shown, in turn
    std::uint32_t icon;                 // of the last box
  };
  auto R = [](const char* name, bool retry, int refusals, std::vector<std::int32_t> answers,
              const char16_t* reused_by, int ejects, int closes, int exit_code,
              std::vector<std::u16string> boxes, std::uint32_t icon) {
    return Row{name, retry, refusals, answers, reused_by, ejects, closes, exit_code, boxes, icon};
  };
  const Row rows[] = {
      R("ejected", false, 0, {}, u"", 1, 0, 0, {u"may now remove the drive /media/STICK/"}, 0x40),
      R("refused-once", false, 1, {os::kIdCancel}, u"", 1, 0, 1,
        {editor + u" runs from /media/STICK/App/editor"}, 0x30),
      R("retried", true, 3, {}, u"", 4, 0, 0, {u"may now remove"}, 0x40),
      R("retried-in-vain", true, 9, {os::kIdCancel}, u"", 5, 0, 1, {editor}, 0x30),
      R("retry", false, 1, {os::kIdRetry}, u"", 2, 1, 0,
        {u"Close them and try again: each", u"may now remove"}, 0x40),
      R("closed by the corner", false, 1, {os::kIdOk}, u"", 1, 0, 1,
        {u"Close them and try again: each"}, 0x30),
      R("still held, then cancel", false, 99, {os::kIdRetry, os::kIdCancel}, u"", 2, 1, 1,
        {editor, editor}, 0x30),
      R("the pid went to another program", false, 99, {os::kIdRetry, os::kIdCancel},
        u"/usr/bin/other", 2, 0, 1, {editor, u"other (2147483640)"}, 0x30),
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
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
    std::vector<std::u16string> args = {u"/from", original, u"/wait", u"2147483646"};
    if (row.retry) args.insert(args.begin(), u"/retry");
    // The original has ended already (a pid no process has): nothing to wait for.
    EXPECT_EQ(run(args, own), row.exit_code);
    EXPECT_EQ(run.drive.ejects, row.ejects);
    EXPECT_EQ(closed, std::vector<std::uint32_t>(row.closes, ejector_test::kEditor));
    if (row.retry) {
      EXPECT_EQ(run.drive.pauses, std::vector<std::uint32_t>(row.ejects - 1, 1000u));
    }
    EXPECT_EQ(run.drive.asked_for, temp.u16(u"Stick/TvEject"));
    EXPECT_EQ(std::filesystem::path(base::Narrow(run.drive.working)),
              temp.path() / "Tmp" / "TvDiskEjector-7")
        << "working off the drive";
    ASSERT_EQ(run.shown.size(), row.boxes.size());
    for (std::size_t i = 0; i < row.boxes.size(); ++i) {
      EXPECT_NE(run.shown[i].first.find(row.boxes[i]), std::u16string::npos)
          << base::Narrow(run.shown[i].first);
      ExpectButtons(run.shown[i].first, run.buttons[i]);
    }
    EXPECT_EQ(run.shown.back().second & 0xF0, row.icon);
    // MB_SETFOREGROUND | MB_TOPMOST: the last box comes to the front.
    EXPECT_EQ(run.shown.back().second & 0x50000, 0x50000u);
    // Windows deletes the copy and its folder a moment after it ended; elsewhere they are gone
    // at once.
    for (int i = 0; i < 100 && temp.Exists(u"Tmp/TvDiskEjector-7"); ++i) os::Sleep(100);
    EXPECT_FALSE(temp.Exists(u"Tmp/TvDiskEjector-7"));
    EXPECT_TRUE(temp.Exists(u"Tmp"));
    EXPECT_TRUE(temp.Exists(original));
  }
}

}  // namespace
