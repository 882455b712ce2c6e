#include "sys/sync_shell.h"

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
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
using os::fault::Event;
using testing_support::HelperProgram;
using testing_support::TempDir;

// Waits (without going through the seam, so nothing is observed) until done() or 20 s.
bool WaitUntil(const std::function<bool()>& done) {
  auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!done()) {
    if (std::chrono::steady_clock::now() > limit) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

// What the child program wrote about itself.
struct Marker {
  long long pid = 0;
  std::u16string cwd;
  std::vector<std::u16string> args;
};

Marker ReadMarker(const TempDir& dir, std::u16string_view name) {
  Marker m;
  std::string text = dir.Read(name);
  std::size_t pos = 0;
  while (pos < text.size()) {
    std::size_t nl = text.find('\n', pos);
    std::string line = text.substr(pos, nl - pos);
    pos = nl == std::string::npos ? text.size() : nl + 1;
    if (line.rfind("pid=", 0) == 0) m.pid = std::stoll(line.substr(4));
    if (line.rfind("cwd=", 0) == 0) m.cwd = base::Widen(line.substr(4));
    if (line.rfind("arg=", 0) == 0) m.args.push_back(base::Widen(line.substr(4)));
  }
  return m;
}

std::u16string Quoted(std::u16string_view path) {
  std::u16string quoted(1, u'"');
  quoted.append(path);
  quoted += u'"';
  return quoted;
}

// Records what the seam does during a test; everything is disarmed when it ends.
struct SeamWatch {
  os::fault::Scope scope;
  std::vector<std::pair<Event, std::intptr_t>> events;
  os::Handle process = 0;
  // Runs when a process handle is handed back, before the runner's first look at it.
  std::function<void(os::Handle)> on_start;
  bool quiet = false;

  SeamWatch() {
    os::fault::SetObserver([this](Event e, std::intptr_t value) {
      if (quiet) return;
      events.emplace_back(e, value);
      if (e == Event::kProcessStarted) {
        process = value;
        if (on_start) {
          quiet = true;
          on_start(value);
          quiet = false;
        }
      }
    });
  }
  int Count(Event e) const {
    int n = 0;
    for (const auto& ev : events) n += ev.first == e;
    return n;
  }
  std::intptr_t Last(Event e) const {
    for (auto it = events.rbegin(); it != events.rend(); ++it) {
      if (it->first == e) return it->second;
    }
    return -1;
  }
};

std::uint32_t ExitCode(os::Handle process) {
  std::uint32_t code = 0;
  EXPECT_TRUE(os::GetExitCodeProcess(process, &code));
  return code;
}

// Ends a child started with --stop-file and waits until its handle says so.
void StopChild(const TempDir& dir, os::Handle process) {
  dir.Write(u"stop", "");
  EXPECT_TRUE(WaitUntil([&] { return ExitCode(process) != os::kStillActive; }));
}

// The parameters of a child that runs until the test stops it.
std::u16string RunningChild(const TempDir& dir) {
  return u"--sleep 60000 --stop-file " + Quoted(dir.u16(u"stop")) + u" --marker " +
         Quoted(dir.u16(u"marker"));
}

TEST(ShowCommand, ProgramModesBecomePlatformCommands) {
  const std::map<std::int32_t, int> table = {{INT_MIN, 0}, {-1, 0}, {0, 0}, {1, 1},
                                             {2, 2},       {3, 3},  {4, 4}, {5, 0},
                                             {6, 7},       {7, 0},  {8, 0}, {1000, 0}};
  for (const auto& [mode, command] : table) {
    EXPECT_EQ(mSyncShell::ShowCommand(mode), command) << "show mode " << mode;
  }
}

TEST(SyncShell, ShowModeReachesTheShellTranslated) {
  const struct {
    std::int32_t mode;
    std::intptr_t command;
  } rows[] = {{5, 0}, {7, 0}, {6, 7}, {1, 1}};
  for (const auto& row : rows) {
    TempDir dir;
    SeamWatch watch;
    std::u16string error = u"untouched";
    EXPECT_TRUE(mSyncShell::SyncShell(HelperProgram(u"child"), u"--exit 0", std::nullopt, row.mode,
                                      error, 20000, u""));
    EXPECT_EQ(watch.Last(Event::kShellExecute), row.command) << "show mode " << row.mode;

    std::int32_t result = 0;
    EXPECT_TRUE(mSyncShell::ShellExec(HelperProgram(u"child"), row.mode,
                                      u"--marker " + Quoted(dir.u16(u"m")), std::nullopt, u"", 0,
                                      result));
    EXPECT_GE(result, 33);
    EXPECT_EQ(watch.Last(Event::kShellExecute), row.command) << "show mode " << row.mode;
    EXPECT_TRUE(WaitUntil([&] { return dir.Exists(u"m"); }));
  }
}

TEST(SyncShell, ProgramThatHasEndedTakesOneTurn) {
  SeamWatch watch;
  // Hold the runner until the child has ended, so its first look finds it done.
  watch.on_start = [](os::Handle process) {
    WaitUntil([&] { return ExitCode(process) != os::kStillActive; });
  };
  std::u16string error = u"untouched";
  EXPECT_TRUE(mSyncShell::SyncShell(HelperProgram(u"child"), u"--exit 7", std::nullopt, 1, error,
                                    20000, u""));
  EXPECT_EQ(error, u"untouched");
  EXPECT_EQ(watch.Count(Event::kExitCodeRead), 1);
  EXPECT_EQ(watch.Last(Event::kExitCodeRead), 7);
  EXPECT_EQ(watch.Count(Event::kMessagesPumped), 1);
  EXPECT_EQ(watch.Count(Event::kSlept), 1);
  EXPECT_EQ(watch.Last(Event::kSlept), 10);
}

TEST(SyncShell, TimeOutZeroLeavesTheProgramRunning) {
  TempDir dir;
  SeamWatch watch;
  std::u16string error = u"untouched";
  EXPECT_FALSE(mSyncShell::SyncShell(HelperProgram(u"child"), RunningChild(dir), std::nullopt, 0,
                                     error, 0, u""));
  EXPECT_EQ(error, u"The process has timed out.");
  EXPECT_EQ(watch.Count(Event::kSlept), 1);
  ASSERT_NE(watch.process, 0);
  EXPECT_EQ(ExitCode(watch.process), os::kStillActive);
  StopChild(dir, watch.process);
}

TEST(SyncShell, AnyEndingCountsAsCompletion) {
  for (int code : {0, 1, 7, 255}) {
    SeamWatch watch;
    std::u16string error = u"untouched";
    EXPECT_TRUE(mSyncShell::SyncShell(HelperProgram(u"child"), u"--exit " + base::ToText(code),
                                      std::nullopt, 1, error, 20000, u""))
        << "exit code " << code;
    EXPECT_EQ(error, u"untouched");
    EXPECT_EQ(watch.Last(Event::kExitCodeRead), code);
  }
}

// Documented platform difference: a POSIX exit status has 8 bits, so "exit 259" ends with 3 and
// counts as an ending; on Windows 259 is STILL_ACTIVE and the runner waits until the time-out.
TEST(SyncShell, ExitCode259LooksLikeARunningProgram) {
  SeamWatch watch;
  std::u16string error = u"untouched";
  bool ended = mSyncShell::SyncShell(HelperProgram(u"child"), u"--exit 259", std::nullopt, 1, error,
                                     300, u"");
#ifdef _WIN32
  EXPECT_FALSE(ended);
  EXPECT_EQ(error, u"The process has timed out.");
#else
  EXPECT_TRUE(ended);
  EXPECT_EQ(error, u"untouched");
#endif
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
  } rows[] = {
      {dir.u16(u"missing.exe"), 2},
      {dir.u16(u"no folder") + u"\\missing.exe", kMissingFolder},
  };
  for (const auto& row : rows) {
    SeamWatch watch;
    std::u16string error = u"untouched";
    EXPECT_FALSE(mSyncShell::SyncShell(row.file, u"", std::nullopt, 1, error, 1000, u""));
    EXPECT_EQ(error, u"untouched");
    EXPECT_EQ(watch.Count(Event::kSlept), 0) << "no wait without a process";

    os::Process process;
    EXPECT_FALSE(mSyncShell::ShellExecEx(row.file, 1, u"", std::nullopt, u"", 0, process));
    EXPECT_FALSE(process);
    std::int32_t result = 0;
    EXPECT_FALSE(mSyncShell::ShellExec(row.file, 1, u"", std::nullopt, u"", 0, result));
    EXPECT_EQ(result, row.result) << base::Narrow(row.file);
  }

  // A start the platform refuses for any other reason is reported the same way.
  SeamWatch watch;
  os::fault::Arm(os::fault::Op::kShellExecute, os::kErrorAccessDenied, 1, 2);
  std::u16string error = u"untouched";
  EXPECT_FALSE(
      mSyncShell::SyncShell(HelperProgram(u"child"), u"", std::nullopt, 1, error, 1000, u""));
  EXPECT_EQ(error, u"untouched");
  std::int32_t result = 0;
  EXPECT_FALSE(
      mSyncShell::ShellExec(HelperProgram(u"child"), 1, u"", std::nullopt, u"", 0, result));
  EXPECT_EQ(result, 5);
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
    std::u16string error = u"untouched";
    EXPECT_FALSE(mSyncShell::SyncShell(HelperProgram(u"child"), RunningChild(dir), std::nullopt, 0,
                                       error, row.timeout, u""));
    EXPECT_EQ(error, row.error);
    EXPECT_EQ(watch.Count(Event::kSlept), row.turns);
    os::fault::SetClock(nullptr);
    ASSERT_NE(watch.process, 0);
    StopChild(dir, watch.process);
  }
}

TEST(SyncShell, ParametersReachTheProgramAsTheyWereQuoted) {
  const struct {
    std::u16string parameters;
    std::vector<std::u16string> args;
  } rows[] = {
      {u"plain", {u"plain"}},
      {u"\"two words\"  three", {u"two words", u"three"}},
      {u"tab\tseparated", {u"tab", u"separated"}},
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
    ASSERT_TRUE(mSyncShell::SyncShell(HelperProgram(u"child"),
                                      u"--marker " + Quoted(dir.u16(u"m")) + u" " + row.parameters,
                                      std::nullopt, 0, error, 20000, u""));
    Marker m = ReadMarker(dir, u"m");
    ASSERT_GE(m.args.size(), 2u);
    std::vector<std::u16string> received(m.args.begin() + 2, m.args.end());
    EXPECT_EQ(received, row.args) << base::Narrow(row.parameters);
  }
}

TEST(SyncShell, WorkingFolderIsTheOneGiven) {
  TempDir dir;
  fs::create_directory(dir.path() / "work folder");
  const std::u16string work = dir.u16(u"work folder");
  const struct {
    mSyncShell::NullableText folder;
    fs::path expected;
  } rows[] = {
      {std::nullopt, fs::current_path()},
      {u"", fs::current_path()},
      {work, dir.path() / "work folder"},
  };
  for (const auto& row : rows) {
    SeamWatch watch;
    std::u16string error;
    fs::remove(dir.path() / "m");
    ASSERT_TRUE(mSyncShell::SyncShell(HelperProgram(u"child"), u"--marker " + Quoted(dir.u16(u"m")),
                                      row.folder, 0, error, 20000, u""))
        << base::Narrow(error) << " " << os::GetLastError();
    Marker m = ReadMarker(dir, u"m");
    EXPECT_TRUE(fs::equivalent(fs::path(m.cwd), row.expected))
        << base::Narrow(m.cwd) << " vs " << row.expected;
  }
}

TEST(ShellExecEx, HandleIsAboveThirtyTwo) {
  SeamWatch watch;
  os::Process process;
  ASSERT_TRUE(mSyncShell::ShellExecEx(HelperProgram(u"child"), 0, u"--exit 3", std::nullopt, u"", 0,
                                      process));
  EXPECT_GE(static_cast<std::int32_t>(process.get()), 33);
  EXPECT_TRUE(WaitUntil([&] { return ExitCode(process.get()) == 3; }));
}

#ifndef _WIN32

bool ProcessGone(long long pid) {
  return !fs::exists("/proc/" + std::to_string(pid));
}

TEST(ShellExecPosix, DocumentGoesToTheDesktopOpener) {
  TempDir dir;
  std::u16string document = dir.Write(u"notes.txt", "hello");
  std::u16string opener = dir.Write(u"bin/xdg-open", "#!/bin/sh\nprintf '%s\\n' \"$@\" > '" +
                                                         (dir.path() / "opened").string() + "'\n");
  chmod(base::Narrow(opener).c_str(), 0755);

  const std::string bin = (dir.path() / "bin").string(), empty = (dir.path() / "empty").string();
  {
    testing_support::ScopedEnv path({{"PATH", bin.c_str()}});
    std::int32_t result = 0;
    EXPECT_TRUE(mSyncShell::ShellExec(document, 1, u"--ignored", std::nullopt, u"", 0, result));
    EXPECT_EQ(result, 42);
  }
  EXPECT_TRUE(WaitUntil([&] { return dir.Exists(u"opened"); }));
  EXPECT_EQ(dir.Read(u"opened"), base::Narrow(document) + "\n");

  testing_support::ScopedEnv path({{"PATH", empty.c_str()}});
  std::int32_t result = 0;
  EXPECT_FALSE(mSyncShell::ShellExec(document, 1, u"", std::nullopt, u"", 0, result));
  EXPECT_EQ(result, 31);
  EXPECT_EQ(os::GetLastError(), os::kErrorNoAssociation);
}

TEST(ShellExecPosix, VerbsOtherThanOpenHaveNoAssociation) {
  for (const char16_t* verb : {u"print", u"runas", u"edit"}) {
    std::int32_t result = 0;
    EXPECT_FALSE(
        mSyncShell::ShellExec(HelperProgram(u"child"), 1, u"", std::nullopt, verb, 0, result));
    EXPECT_EQ(result, 31) << base::Narrow(verb);
  }
  SeamWatch watch;
  std::u16string error;
  EXPECT_TRUE(
      mSyncShell::SyncShell(HelperProgram(u"child"), u"", std::nullopt, 1, error, 20000, u"OPEN"));
}

// However a child is started and whoever holds its handle, it is reaped when it ends.
TEST(ShellExecPosix, EndedChildrenAreNeverLeftZombies) {
  enum class Way { kNoHandle, kHandleKept, kHandleLeftOpen };
  for (Way way : {Way::kNoHandle, Way::kHandleKept, Way::kHandleLeftOpen}) {
    TempDir dir;
    SeamWatch watch;
    if (way == Way::kNoHandle) {
      std::int32_t result = 0;
      ASSERT_TRUE(mSyncShell::ShellExec(HelperProgram(u"child"), 0, RunningChild(dir), std::nullopt,
                                        u"", 0, result));
    } else if (way == Way::kHandleKept) {
      os::Process process;
      ASSERT_TRUE(mSyncShell::ShellExecEx(HelperProgram(u"child"), 0, RunningChild(dir),
                                          std::nullopt, u"", 0, process));
    } else {
      std::u16string error;
      EXPECT_FALSE(mSyncShell::SyncShell(HelperProgram(u"child"), RunningChild(dir), std::nullopt,
                                         0, error, 0, u""));
    }
    ASSERT_TRUE(WaitUntil([&] { return dir.Exists(u"marker"); }));
    long long pid = ReadMarker(dir, u"marker").pid;
    ASSERT_GT(pid, 0);
    EXPECT_FALSE(ProcessGone(pid));
    dir.Write(u"stop", "");
    EXPECT_TRUE(WaitUntil([&] { return ProcessGone(pid); }))
        << "child " << pid << " left behind, way " << static_cast<int>(way);
  }
}

#endif

}  // namespace
