// Starting programs through the shell and waiting for them, with a helper program (the sleeper)
// that records how it was started; the seam's observer sees each step of the wait.
#include "sys/sync_shell.h"

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <filesystem>
#include <sstream>
#include <thread>

#include "base/text.h"
#include "os/entry.h"
#include "os/fault.h"
#include "os/os.h"
#include "support/scoped_env.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using namespace mSyncShell;
using os::fault::Event;
using testing_support::TempDir;
using Texts = std::vector<std::u16string>;

const bool kWindows = !os::kExecutableSuffix.empty();  // its programs end in .exe
const std::u16string kChild = testing_support::HelperProgram(u"sleeper");
const std::u16string kTimedOut = u"The process has timed out.";

// Waits (without going through the seam, so nothing is observed) until done() or 20 s.
bool WaitUntil(const std::function<bool()>& done) {
  for (int i = 0; i < 4000 && !done(); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  return done();
}

// The values of the child's marker lines that start with key ("pid=", "cwd=", "arg=").
Texts Marked(const TempDir& dir, const std::string& key) {
  Texts out;
  std::istringstream in(dir.Read(u"m"));
  for (std::string line; std::getline(in, line);)
    if (line.starts_with(key)) out.push_back(base::Widen(line.substr(key.size())));
  return out;
}

// The child's options to write its marker, and to end at once or run until the test writes the
// stop file.
std::u16string Marker(const TempDir& dir, bool running = false) {
  return u"--marker \"" + dir.u16(u"m") + u"\" " +
         (running ? u"--stop-file \"" + dir.u16(u"stop") + u"\" --life 60" : u"--life 0");
}

std::uint32_t ExitCode(os::Handle process) {
  std::uint32_t code = 0;
  EXPECT_TRUE(os::GetExitCodeProcess(process, &code));
  return code;
}

// Records what the seam does during a test; everything is disarmed when it ends. With
// wait_for_end, a started process is waited for before the runner's first look at it.
struct SeamWatch {
  os::fault::Scope scope;
  std::vector<std::pair<Event, std::intptr_t>> events;
  os::Handle process = 0;
  bool wait_for_end = false, quiet = false;

  SeamWatch() {
    os::fault::SetObserver([this](Event e, std::intptr_t value) {
      if (quiet) return;
      events.emplace_back(e, value);
      if (e != Event::kProcessStarted) return;
      process = value;
      quiet = true;
      if (wait_for_end) WaitUntil([&] { return ExitCode(process) != os::kStillActive; });
      quiet = false;
    });
  }
  std::vector<std::intptr_t> Seen(Event e) const {
    std::vector<std::intptr_t> values;
    for (auto [event, value] : events)
      if (event == e) values.push_back(value);
    return values;
  }
  std::intptr_t Last(Event e) const { return Seen(e).empty() ? -1 : Seen(e).back(); }
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
    SCOPED_TRACE(row.mode);
    EXPECT_EQ(ShowCommand(row.mode), row.command);
    if (!row.run) continue;
    TempDir dir;
    SeamWatch watch;
    std::u16string error;
    std::int32_t result = 0;
    EXPECT_TRUE(SyncShell(kChild, u"--life 0", std::nullopt, row.mode, error, 20000, u""));
    EXPECT_TRUE(ShellExec(kChild, row.mode, Marker(dir), std::nullopt, u"", 0, result));
    EXPECT_GE(result, 33);
    EXPECT_EQ(watch.Seen(Event::kShellExecute), std::vector<std::intptr_t>(2, row.command));
    EXPECT_TRUE(WaitUntil([&] { return dir.Exists(u"m"); }));
  }
}

// Any ending counts as completion, and the error text is left alone. A POSIX exit status has 8
// bits, so "exit 259" ends with 3; on Windows 259 is STILL_ACTIVE and the runner waits until the
// time-out. The clock is read as signed 32-bit milliseconds: crossing from 2^31-1 to -2^31
// overflows the subtraction (a run-time error), crossing 2^32 is an ordinary step (-16 to 16);
// a wait of exactly the time-out goes on.
TEST(SyncShell, AnyEndingCompletesAndTheTimeOutEndsTheWait) {
  const struct {
    const char16_t* args;  // nullptr: a child that runs until stopped
    std::int32_t timeout;
    std::uint32_t clock, step;  // a step of 0: the real clock
    const char16_t* error;      // nullptr: the wait completed
    std::intptr_t exit_code;    // the last one read
    int turns;                  // -1: not counted
  } rows[] = {
      {u"--life 0", 20000, 0, 0, nullptr, 0, -1},
      {u"--life 0 --exit 7", 20000, 0, 0, nullptr, 7, -1},
      {u"--life 0 --exit 255", 20000, 0, 0, nullptr, 255, -1},
      {u"--life 0 --exit 259", 300, 0, 0, kWindows ? kTimedOut.c_str() : nullptr,
       kWindows ? 259 : 3, -1},
      {nullptr, 0, 0, 0, kTimedOut.c_str(), os::kStillActive, 1},  // one look, left running
      {nullptr, 2000000000, 0x7FFFFFF0u, 0x20, u"Overflow", os::kStillActive, 1},
      {nullptr, 96, 0xFFFFFFF0u, 0x20, kTimedOut.c_str(), os::kStillActive, 4},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.args ? base::Narrow(row.args) : "running " + std::to_string(row.clock));
    TempDir dir;
    SeamWatch watch;
    std::uint32_t now = row.clock - row.step;
    if (row.step) os::fault::SetClock([&] { return now += row.step; });
    std::u16string error = u"untouched";
    EXPECT_EQ(SyncShell(kChild, row.args ? row.args : Marker(dir, true), std::nullopt, 1, error,
                        row.timeout, u""),
              !row.error);
    EXPECT_EQ(error, row.error ? row.error : u"untouched");
    EXPECT_EQ(watch.Last(Event::kExitCodeRead), row.exit_code);
    const int turns = static_cast<int>(watch.Seen(Event::kSlept).size());
    EXPECT_EQ(row.turns < 0 ? -1 : turns, row.turns);
    os::fault::SetClock(nullptr);
    if (!row.args) watch.Stop(dir);
  }
  // A program found ended at the first look takes one turn: one pump, one 10 ms sleep.
  SeamWatch watch;
  watch.wait_for_end = true;
  std::u16string error;
  EXPECT_TRUE(SyncShell(kChild, u"--life 0 --exit 7", std::nullopt, 1, error, 20000, u""));
  EXPECT_EQ(watch.Seen(Event::kExitCodeRead), std::vector<std::intptr_t>{7});
  EXPECT_EQ(watch.Seen(Event::kMessagesPumped).size(), 1u);
  EXPECT_EQ(watch.Seen(Event::kSlept), std::vector<std::intptr_t>{10});
}

TEST(SyncShell, RefusedStartLeavesTheErrorTextAlone) {
  TempDir dir;
  // Documented platform difference: Wine's shell answers 2 for a missing folder as well.
  const struct {
    std::u16string file;
    std::int32_t result;
    bool refused;  // the platform refuses a program that is there
  } rows[] = {{dir.u16(u"missing.exe"), 2, false},
              {dir.u16(u"no folder") + u"\\missing.exe", kWindows ? 2 : 3, false},
              {kChild, 5, true}};
  for (const auto& row : rows) {
    SCOPED_TRACE(base::Narrow(row.file));
    SeamWatch watch;
    if (row.refused) os::fault::Arm(os::fault::Op::kShellExecute, os::kErrorAccessDenied, 1, 3);
    std::u16string error = u"untouched";
    EXPECT_FALSE(SyncShell(row.file, u"", std::nullopt, 1, error, 1000, u""));
    EXPECT_EQ(error, u"untouched");
    EXPECT_TRUE(watch.Seen(Event::kSlept).empty()) << "no wait without a process";
    os::Process process;
    EXPECT_FALSE(ShellExecEx(row.file, 1, u"", std::nullopt, u"", 0, process));
    EXPECT_FALSE(process);
    std::int32_t result = 0;
    EXPECT_FALSE(ShellExec(row.file, 1, u"", std::nullopt, u"", 0, result));
    EXPECT_EQ(result, row.result);
  }
}

TEST(SyncShell, ParametersAndWorkingFolderReachTheProgram) {
  TempDir work;
  fs::create_directory(work.path() / "work folder");
  const std::u16string folder = work.u16(u"work folder");
  const struct {
    std::u16string parameters;
    Texts args;
    NullableText folder = std::nullopt;
  } rows[] = {
      // clang-format off
      {u"plain", {u"plain"}}, {u"\"two words\"  three", {u"two words", u"three"}, u""},
      {u"tab\tseparated", {u"tab", u"separated"}, folder}, {u"a\\b\\\\c", {u"a\\b\\\\c"}},
      {u"\\\"quoted\\\"", {u"\"quoted\""}}, {u"\"ends with\\\\\"", {u"ends with\\"}},
      {u"\\\\\\\"x", {u"\\\"x"}}, {u"\"\" x", {u"", u"x"}}, {u"a\"b c\"d", {u"ab cd"}},
      {u"\"a\"\"b\"", {u"a\"b"}}, {u"\"C:\\Program Files\\x\"", {u"C:\\Program Files\\x"}},
      {u"\"h\u00e9llo w\u00f6rld\" \u65e5\u672c", {u"h\u00e9llo w\u00f6rld", u"\u65e5\u672c"}},
      // clang-format on
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(base::Narrow(row.parameters));
    TempDir dir;
    SeamWatch watch;
    std::u16string error;
    ASSERT_TRUE(
        SyncShell(kChild, Marker(dir) + u" " + row.parameters, row.folder, 0, error, 20000, u""));
    const Texts args = Marked(dir, "arg="), cwd = Marked(dir, "cwd=");
    ASSERT_GE(args.size(), 4u);
    EXPECT_EQ(Texts(args.begin() + 4, args.end()), row.args);
    ASSERT_EQ(cwd.size(), 1u);
    const bool given = row.folder && !row.folder->empty();
    EXPECT_TRUE(fs::equivalent(fs::path(cwd[0]), given ? fs::path(folder) : fs::current_path()));
  }
}

#ifndef _WIN32

TEST(ShellExecPosix, DocumentsGoToTheDesktopOpenerAndOnlyOpenIsKnown) {
  TempDir dir;
  const std::u16string document = dir.Write(u"notes.txt", "hello");
  const std::string opened = (dir.path() / "opened").string();
  const std::u16string opener =
      dir.Write(u"bin/xdg-open", "#!/bin/sh\nprintf '%s\\n' \"$@\" > '" + opened + "'\n");
  fs::permissions(fs::path(opener), fs::perms::owner_all);
  std::int32_t result = 0;
  for (const char* bin : {"bin", "empty"}) {
    testing_support::ScopedEnv path({{"PATH", (dir.path() / bin).c_str()}});
    EXPECT_EQ(ShellExec(document, 1, u"--ignored", std::nullopt, u"", 0, result), *bin == 'b');
    EXPECT_EQ(result, *bin == 'b' ? 42 : 31);
  }
  EXPECT_EQ(os::GetLastError(), os::kErrorNoAssociation);
  EXPECT_TRUE(WaitUntil([&] { return dir.Exists(u"opened"); }));
  EXPECT_EQ(dir.Read(u"opened"), base::Narrow(document) + "\n");
  for (const char16_t* verb : {u"print", u"runas", u"edit"}) {
    EXPECT_FALSE(ShellExec(kChild, 1, u"", std::nullopt, verb, 0, result));
    EXPECT_EQ(result, 31) << base::Narrow(verb);
  }
  SeamWatch watch;
  std::u16string error;
  EXPECT_TRUE(SyncShell(kChild, u"--life 0", std::nullopt, 1, error, 20000, u"OPEN"));
}

// However a child is started and whoever holds its handle, it is reaped when it ends.
TEST(ShellExecPosix, EndedChildrenAreNeverLeftZombies) {
  for (int way = 0; way < 3; ++way) {
    TempDir dir;
    SeamWatch watch;
    std::int32_t result = 0;
    os::Process process;
    std::u16string error;
    // The third way leaves the handle open by a wait that timed out.
    ASSERT_TRUE(way == 0 ? ShellExec(kChild, 0, Marker(dir, true), std::nullopt, u"", 0, result)
                : way == 1
                    ? ShellExecEx(kChild, 0, Marker(dir, true), std::nullopt, u"", 0, process)
                    : !SyncShell(kChild, Marker(dir, true), std::nullopt, 0, error, 0, u""));
    ASSERT_TRUE(WaitUntil([&] { return dir.Exists(u"m"); }));
    const std::string proc = "/proc/" + base::Narrow(Marked(dir, "pid=").at(0));
    EXPECT_TRUE(fs::exists(proc));
    dir.Write(u"stop", "");
    EXPECT_TRUE(WaitUntil([&] { return !fs::exists(proc); })) << proc << " left, way " << way;
  }
}

#endif

}  // namespace
