// Starting programs through the shell and waiting for them, with a helper program ("child")
// that records how it was started; the seam's observer sees each step of the wait.
#include "sys/sync_shell.h"

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "base/text.h"
#include "os/fault.h"
#include "os/os.h"
#include "support/scoped_env.h"
#include "support/temp_dir.h"

#ifndef _WIN32
#include <sys/stat.h>
#endif

namespace {

namespace fs = std::filesystem;
using mSyncShell::ShellExec;
using mSyncShell::ShellExecEx;
using mSyncShell::SyncShell;
using os::fault::Event;
using testing_support::TempDir;
using Texts = std::vector<std::u16string>;

const std::u16string kChild = testing_support::HelperProgram(u"child");

// Waits (without going through the seam, so nothing is observed) until done() or 20 s.
bool WaitUntil(const std::function<bool()>& done) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!done() && std::chrono::steady_clock::now() < limit)
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  return done();
}

// The values of the child's marker lines that start with key ("pid=", "cwd=", "arg=").
Texts Marked(const TempDir& dir, const std::string& key) {
  Texts out;
  const std::string text = dir.Read(u"m");
  for (std::size_t at = 0, nl; at < text.size(); at = nl + 1) {
    nl = std::min(text.find('\n', at), text.size());
    if (text.compare(at, key.size(), key) == 0)
      out.push_back(base::Widen(text.substr(at + key.size(), nl - at - key.size())));
  }
  return out;
}

std::u16string Marker(const TempDir& dir) {
  return u"--marker \"" + dir.u16(u"m") + u"\"";
}

// A child that runs until the test writes the stop file.
std::u16string RunningChild(const TempDir& dir) {
  return u"--sleep 60000 --stop-file \"" + dir.u16(u"stop") + u"\" " + Marker(dir);
}

std::uint32_t ExitCode(os::Handle process) {
  std::uint32_t code = 0;
  EXPECT_TRUE(os::GetExitCodeProcess(process, &code));
  return code;
}

// Records what the seam does during a test; everything is disarmed when it ends. on_start runs
// when a process handle is handed back, before the runner's first look at it.
struct SeamWatch {
  os::fault::Scope scope;
  std::vector<std::pair<Event, std::intptr_t>> events;
  os::Handle process = 0;
  std::function<void(os::Handle)> on_start;
  bool quiet = false;

  SeamWatch() {
    os::fault::SetObserver([this](Event e, std::intptr_t value) {
      if (quiet) return;
      events.emplace_back(e, value);
      if (e != Event::kProcessStarted) return;
      process = value;
      quiet = true;
      if (on_start) on_start(value);
      quiet = false;
    });
  }
  int Count(Event e) const {
    return static_cast<int>(
        std::count_if(events.begin(), events.end(), [&](const auto& ev) { return ev.first == e; }));
  }
  std::intptr_t Last(Event e) const {
    for (auto it = events.rbegin(); it != events.rend(); ++it)
      if (it->first == e) return it->second;
    return -1;
  }
  void Stop(const TempDir& dir) {
    dir.Write(u"stop", "");
    EXPECT_TRUE(WaitUntil([&] { return ExitCode(process) != os::kStillActive; }));
  }
};

TEST(SyncShell, ShowModesBecomePlatformCommandsAndReachTheShell) {
  const struct {
    std::int32_t mode;
    int command;
    bool run = false;  // a program is started with it too
  } rows[] = {{INT_MIN, 0}, {-1, 0},      {0, 0},       {1, 1, true}, {2, 2}, {3, 3},
              {4, 4},       {5, 0, true}, {6, 7, true}, {7, 0, true}, {8, 0}, {1000, 0}};
  for (const auto& row : rows) {
    EXPECT_EQ(mSyncShell::ShowCommand(row.mode), row.command) << "show mode " << row.mode;
    if (!row.run) continue;
    TempDir dir;
    SeamWatch watch;
    std::u16string error;
    EXPECT_TRUE(SyncShell(kChild, u"--exit 0", std::nullopt, row.mode, error, 20000, u""));
    EXPECT_EQ(watch.Last(Event::kShellExecute), row.command) << "show mode " << row.mode;
    std::int32_t result = 0;
    EXPECT_TRUE(ShellExec(kChild, row.mode, Marker(dir), std::nullopt, u"", 0, result));
    EXPECT_GE(result, 33);
    EXPECT_EQ(watch.Last(Event::kShellExecute), row.command) << "show mode " << row.mode;
    EXPECT_TRUE(WaitUntil([&] { return dir.Exists(u"m"); }));
  }
}

// Any ending counts as completion, and the error text is left alone. A POSIX exit status has 8
// bits, so "exit 259" ends with 3; on Windows 259 is STILL_ACTIVE and the runner waits until the
// time-out.
TEST(SyncShell, AnyEndingCompletesAndTheTimeOutEndsTheWait) {
#ifdef _WIN32
  const bool k259Ends = false;
#else
  const bool k259Ends = true;
#endif
  const struct {
    const char16_t* args;  // nullptr: a child that runs until stopped
    std::int32_t timeout;
    bool ended;
    std::intptr_t exit_code;  // the last one read
  } rows[] = {
      {u"--exit 0", 20000, true, 0},
      {u"--exit 1", 20000, true, 1},
      {u"--exit 7", 20000, true, 7},
      {u"--exit 255", 20000, true, 255},
      {u"--exit 259", 300, k259Ends, k259Ends ? 3 : 259},
      {nullptr, 0, false, os::kStillActive},  // time-out 0: one look, and it is left running
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.args ? base::Narrow(row.args) : "running");
    TempDir dir;
    SeamWatch watch;
    std::u16string error = u"untouched";
    EXPECT_EQ(SyncShell(kChild, row.args ? row.args : RunningChild(dir), std::nullopt, 1, error,
                        row.timeout, u""),
              row.ended);
    EXPECT_EQ(error, row.ended ? u"untouched" : u"The process has timed out.");
    EXPECT_EQ(watch.Last(Event::kExitCodeRead), row.exit_code);
    if (!row.args) {
      EXPECT_EQ(watch.Count(Event::kSlept), 1);
      EXPECT_EQ(ExitCode(watch.process), os::kStillActive);
      watch.Stop(dir);
    }
  }
  // A program found ended at the first look takes one turn: one pump, one 10 ms sleep.
  SeamWatch watch;
  watch.on_start = [](os::Handle process) {
    WaitUntil([&] { return ExitCode(process) != os::kStillActive; });
  };
  std::u16string error;
  EXPECT_TRUE(SyncShell(kChild, u"--exit 7", std::nullopt, 1, error, 20000, u""));
  EXPECT_EQ(watch.Count(Event::kExitCodeRead), 1);
  EXPECT_EQ(watch.Count(Event::kMessagesPumped), 1);
  EXPECT_EQ(watch.Count(Event::kSlept), 1);
  EXPECT_EQ(watch.Last(Event::kSlept), 10);
}

TEST(SyncShell, RefusedStartLeavesTheErrorTextAlone) {
  TempDir dir;
  // Documented platform difference: Wine's shell answers 2 for a missing folder as well.
#ifdef _WIN32
  constexpr std::int32_t kMissingFolder = 2;
#else
  constexpr std::int32_t kMissingFolder = 3;
#endif
  const struct {
    std::u16string file;
    std::int32_t result;
    bool refused;  // the platform refuses a program that is there
  } rows[] = {
      {dir.u16(u"missing.exe"), 2, false},
      {dir.u16(u"no folder") + u"\\missing.exe", kMissingFolder, false},
      {kChild, 5, true},
  };
  for (const auto& row : rows) {
    SeamWatch watch;
    if (row.refused) os::fault::Arm(os::fault::Op::kShellExecute, os::kErrorAccessDenied, 1, 3);
    std::u16string error = u"untouched";
    EXPECT_FALSE(SyncShell(row.file, u"", std::nullopt, 1, error, 1000, u""));
    EXPECT_EQ(error, u"untouched");
    EXPECT_EQ(watch.Count(Event::kSlept), 0) << "no wait without a process";
    os::Process process;
    EXPECT_FALSE(ShellExecEx(row.file, 1, u"", std::nullopt, u"", 0, process));
    EXPECT_FALSE(process);
    std::int32_t result = 0;
    EXPECT_FALSE(ShellExec(row.file, 1, u"", std::nullopt, u"", 0, result));
    EXPECT_EQ(result, row.result) << base::Narrow(row.file);
  }
}

TEST(SyncShell, ClockIsReadAsSigned32BitMilliseconds) {
  const struct {
    std::uint32_t start, step;
    std::int32_t timeout;
    const char16_t* error;
    int turns;
  } rows[] = {
      // Crossing from 2^31-1 to -2^31 overflows the signed subtraction: a run-time error.
      {0x7FFFFFF0u, 0x20, 2000000000, u"Overflow", 1},
      // Crossing 2^32 is an ordinary step in signed arithmetic (-16 to 16).
      {0xFFFFFFF0u, 0x20, 100, u"The process has timed out.", 4},
  };
  for (const auto& row : rows) {
    TempDir dir;
    SeamWatch watch;
    std::uint32_t now = row.start - row.step;
    os::fault::SetClock([&] { return now += row.step; });
    std::u16string error;
    EXPECT_FALSE(SyncShell(kChild, RunningChild(dir), std::nullopt, 0, error, row.timeout, u""));
    EXPECT_EQ(error, row.error);
    EXPECT_EQ(watch.Count(Event::kSlept), row.turns);
    os::fault::SetClock(nullptr);
    watch.Stop(dir);
  }
}

TEST(SyncShell, ParametersAndWorkingFolderReachTheProgram) {
  TempDir work;
  fs::create_directory(work.path() / "work folder");
  const std::u16string folder = work.u16(u"work folder");
  const struct {
    std::u16string parameters;
    Texts args;
    mSyncShell::NullableText folder = std::nullopt;
  } rows[] = {
      {u"plain", {u"plain"}, std::nullopt},
      {u"\"two words\"  three", {u"two words", u"three"}, u""},
      {u"tab\tseparated", {u"tab", u"separated"}, folder},
      {u"a\\b\\\\c", {u"a\\b\\\\c"}},
      {u"\\\"quoted\\\"", {u"\"quoted\""}},
      {u"\"ends with\\\\\"", {u"ends with\\"}},
      {u"\\\\\\\"x", {u"\\\"x"}},
      {u"\"\" x", {u"", u"x"}},
      {u"a\"b c\"d", {u"ab cd"}},
      {u"\"a\"\"b\"", {u"a\"b"}},
      {u"\"C:\\Program Files\\x\"", {u"C:\\Program Files\\x"}},
      {u"\"h\u00e9llo w\u00f6rld\" \u65e5\u672c", {u"h\u00e9llo w\u00f6rld", u"\u65e5\u672c"}},
  };
  for (const auto& row : rows) {
    TempDir dir;
    SeamWatch watch;
    std::u16string error;
    ASSERT_TRUE(
        SyncShell(kChild, Marker(dir) + u" " + row.parameters, row.folder, 0, error, 20000, u""));
    const Texts args = Marked(dir, "arg=");
    ASSERT_GE(args.size(), 2u);
    EXPECT_EQ(Texts(args.begin() + 2, args.end()), row.args) << base::Narrow(row.parameters);
    const Texts cwd = Marked(dir, "cwd=");
    ASSERT_EQ(cwd.size(), 1u);
    const bool given = row.folder && !row.folder->empty();
    EXPECT_TRUE(
        fs::equivalent(fs::path(cwd[0]), given ? work.path() / "work folder" : fs::current_path()))
        << base::Narrow(cwd[0]);
  }
  // The handle of a program started without waiting is above 32 and says how it ended.
  SeamWatch watch;
  os::Process process;
  ASSERT_TRUE(ShellExecEx(kChild, 0, u"--exit 3", std::nullopt, u"", 0, process));
  EXPECT_GE(static_cast<std::int32_t>(process.get()), 33);
  EXPECT_TRUE(WaitUntil([&] { return ExitCode(process.get()) == 3; }));
}

#ifndef _WIN32

TEST(ShellExecPosix, DocumentsGoToTheDesktopOpenerAndOnlyOpenIsKnown) {
  TempDir dir;
  const std::u16string document = dir.Write(u"notes.txt", "hello");
  const std::u16string opener =
      dir.Write(u"bin/xdg-open",
                "#!/bin/sh\nprintf '%s\\n' \"$@\" > '" + (dir.path() / "opened").string() + "'\n");
  chmod(base::Narrow(opener).c_str(), 0755);
  const std::string bin = (dir.path() / "bin").string(), empty = (dir.path() / "empty").string();
  std::int32_t result = 0;
  {
    testing_support::ScopedEnv path({{"PATH", bin.c_str()}});
    EXPECT_TRUE(ShellExec(document, 1, u"--ignored", std::nullopt, u"", 0, result));
    EXPECT_EQ(result, 42);
  }
  EXPECT_TRUE(WaitUntil([&] { return dir.Exists(u"opened"); }));
  EXPECT_EQ(dir.Read(u"opened"), base::Narrow(document) + "\n");
  {
    testing_support::ScopedEnv path({{"PATH", empty.c_str()}});
    EXPECT_FALSE(ShellExec(document, 1, u"", std::nullopt, u"", 0, result));
    EXPECT_EQ(result, 31);
    EXPECT_EQ(os::GetLastError(), os::kErrorNoAssociation);
  }
  for (const char16_t* verb : {u"print", u"runas", u"edit"}) {
    EXPECT_FALSE(ShellExec(kChild, 1, u"", std::nullopt, verb, 0, result));
    EXPECT_EQ(result, 31) << base::Narrow(verb);
  }
  SeamWatch watch;
  std::u16string error;
  EXPECT_TRUE(SyncShell(kChild, u"", std::nullopt, 1, error, 20000, u"OPEN"));
}

// However a child is started and whoever holds its handle, it is reaped when it ends.
TEST(ShellExecPosix, EndedChildrenAreNeverLeftZombies) {
  for (int way = 0; way < 3; ++way) {
    TempDir dir;
    SeamWatch watch;
    std::int32_t result = 0;
    os::Process process;
    std::u16string error;
    if (way == 0) {
      ASSERT_TRUE(ShellExec(kChild, 0, RunningChild(dir), std::nullopt, u"", 0, result));
    } else if (way == 1) {
      ASSERT_TRUE(ShellExecEx(kChild, 0, RunningChild(dir), std::nullopt, u"", 0, process));
    } else {  // the handle is left open by a wait that timed out
      EXPECT_FALSE(SyncShell(kChild, RunningChild(dir), std::nullopt, 0, error, 0, u""));
    }
    ASSERT_TRUE(WaitUntil([&] { return dir.Exists(u"m"); }));
    const std::string proc = "/proc/" + base::Narrow(Marked(dir, "pid=").at(0));
    EXPECT_TRUE(fs::exists(proc));
    dir.Write(u"stop", "");
    EXPECT_TRUE(WaitUntil([&] { return !fs::exists(proc); })) << proc << " left, way " << way;
  }
}

#endif

}  // namespace
