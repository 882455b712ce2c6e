#include "text/msgbox.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/debug_log.h"
#include "base/text.h"
#include "base/trap.h"
#include "os/fault.h"
#include "os/os.h"

#ifndef _WIN32
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <future>
#include <optional>
#include <tuple>

#include "support/temp_dir.h"
#endif

namespace {

// The box as the platform received it, answered by the test instead of a user.
struct BoxSeen {
  std::uint32_t size = 0;
  os::Handle owner = 0;
  std::u16string caption, text;
  std::uint32_t style = 0;
};

TEST(MsgBox, BuildsTheBoxThePlatformShows) {
  const struct {
    const char16_t* title;
    std::int32_t buttons;
    os::Handle owner;
    bool task_modal;
    const char16_t* caption;
    std::uint32_t style;
    os::Handle owner_seen;
  } rows[] = {
      {u"", 1, -1, false, u"Tarvel USB Eject v2.0.12", 1, 0},
      {u"", 16, -1, true, u"Tarvel USB Eject v2.0.12", 0x2010, 0},
      {u"Mon titre \u2713", 64, -1, true, u"Mon titre \u2713", 0x2040, 0},
      {u"T", 0x2001, -1, true, u"T", 0x2001, 0},
      {u"T", 0, 0x1234, false, u"T", 0, 0x1234},
  };
  for (const auto& row : rows) {
    os::fault::Scope scope;
    BoxSeen seen;
    os::fault::SetMessageBoxAnswer([&](const os::MessageBoxParams& p) {
      seen = {p.size, p.owner, std::u16string(p.caption), std::u16string(p.text), p.style};
      return 2;
    });
    EXPECT_EQ(mUnicodePatch::MsgBox(u"Line one\r\nLine \u00e9 two", row.buttons, row.title, u"", 0,
                                    row.owner, row.task_modal),
              2);
    EXPECT_EQ(seen.size, 40u);
    EXPECT_EQ(seen.caption, row.caption);
    EXPECT_EQ(seen.text, u"Line one\r\nLine \u00e9 two");
    EXPECT_EQ(seen.style, row.style) << base::Narrow(row.caption);
    EXPECT_EQ(seen.owner, row.owner_seen);
  }
}

TEST(MsgBox, FailureInsideIsLoggedAndAnswersZero) {
  os::fault::Scope scope;
  std::vector<std::u16string> lines;
  base::ScopedLogSink sink([&](std::u16string_view l) { lines.emplace_back(l); });
  os::fault::SetMessageBoxAnswer(
      [](const os::MessageBoxParams&) -> std::int32_t { base::Raise(base::kTypeMismatch); });
  EXPECT_EQ(mUnicodePatch::MsgBox(u"text", 1), 0);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0], u"Erreur 13 (Type mismatch) dans Function mUnicodePatch.MsgBox");
}

#ifndef _WIN32

// Sets (or, with nullopt, removes) an environment variable and puts it back afterwards.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, std::optional<std::string> value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    Set(value);
  }
  ~ScopedEnv() { Set(old_); }

 private:
  void Set(const std::optional<std::string>& v) {
    if (v) {
      setenv(name_, v->c_str(), 1);
    } else {
      unsetenv(name_);
    }
  }
  const char* name_;
  std::optional<std::string> old_;
};

// Reads what is waiting on fd for up to `ms` milliseconds of quiet.
std::string Drain(int fd, int ms) {
  std::string out;
  pollfd p{fd, POLLIN, 0};
  while (poll(&p, 1, ms) > 0 && (p.revents & POLLIN)) {
    char buf[512];
    ssize_t n = read(fd, buf, sizeof buf);
    if (n <= 0) break;
    out.append(buf, static_cast<std::size_t>(n));
  }
  return out;
}

// A pseudo-terminal the box is pointed at through TVEJECT_TTY. The test types on the master
// side and reads what the box wrote there.
class TerminalBoxTest : public ::testing::Test {
 protected:
  void SetUp() override {
    master_ = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(master_, 0);
    ASSERT_EQ(grantpt(master_), 0);
    ASSERT_EQ(unlockpt(master_), 0);
    slave_path_ = ptsname(master_);
    // Held open by the test, so what the box wrote stays readable after it closed its side.
    slave_ = open(slave_path_.c_str(), O_RDWR | O_NOCTTY);
    ASSERT_GE(slave_, 0);
    tty_.emplace("TVEJECT_TTY", slave_path_);
  }
  void TearDown() override {
    if (slave_ >= 0) close(slave_);
    if (master_ >= 0) close(master_);
  }

  // Shows a box, types `input` and returns the answer; screen_ holds what was shown.
  std::int32_t Run(std::int32_t flags, std::string_view input,
                   std::u16string_view text = u"Proceed?", std::u16string_view title = u"") {
    auto answer = std::async(std::launch::async, [&] {
      return mUnicodePatch::MsgBox(text, flags, title, u"", 0, -1, true);
    });
    if (!input.empty()) {
      EXPECT_EQ(write(master_, input.data(), input.size()), static_cast<ssize_t>(input.size()));
    }
    if (answer.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
      // Unstick the box before failing: end of input.
      EXPECT_EQ(write(master_, "\n\x04", 2), 2);
      ADD_FAILURE() << "the box did not take the answer " << input;
    }
    std::int32_t result = answer.get();
    screen_ = Drain(master_, 50);
    return result;
  }

  int master_ = -1;
  int slave_ = -1;
  std::string slave_path_;
  std::optional<ScopedEnv> tty_;
  std::string screen_;
};

TEST_F(TerminalBoxTest, EachFormOfAnswerPicksItsButton) {
  const struct {
    std::int32_t flags;
    const char* input;
    std::int32_t answer;
  } rows[] = {
      {1, "2\n", 2},         {1, "1\n", 1},  {1, "cancel\n", 2}, {1, "CaNcEl\n", 2},
      {1, "ok\n", 1},        {1, "c\n", 2},  {1, "O\n", 1},      {1, "\n", 1},
      {1, "  2 \n", 2},      {1, "\x04", 2}, {0, "\x04", 1},     {0, "ok\n", 1},
      {2, "r\n", 4},         {2, "3\n", 5},  {2, "abort\n", 3},  {2, "\x04", 0},
      {3, "n\n", 7},         {3, "\n", 6},   {3, "\x04", 2},     {3, "YES\n", 6},
      {4, "yes\n", 6},       {4, "2\n", 7},  {4, "\x04", 0},     {5, "\n", 4},
      {5, "\x04", 2},        {5, "C\n", 2},  {0x101, "\n", 2},   {0x203, "\n", 2},
      {6, "continue\n", 11}, {6, "t\n", 10},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Run(row.flags, row.input), row.answer)
        << "flags " << row.flags << " answer \"" << row.input << "\"";
  }
}

TEST_F(TerminalBoxTest, ShowsEachButtonSetNumbered) {
  const struct {
    std::int32_t flags;
    const char* buttons;
  } rows[] = {
      {0, "[1] OK\r\n"},
      {1, "[1] OK  [2] Cancel\r\n"},
      {2, "[1] Abort  [2] Retry  [3] Ignore\r\n"},
      {3, "[1] Yes  [2] No  [3] Cancel\r\n"},
      {4, "[1] Yes  [2] No\r\n"},
      {5, "[1] Retry  [2] Cancel\r\n"},
  };
  for (const auto& row : rows) {
    Run(row.flags, "\n");
    EXPECT_NE(screen_.find(row.buttons), std::string::npos) << screen_;
  }
}

TEST_F(TerminalBoxTest, ShowsCaptionIconAndTextLines) {
  const struct {
    std::int32_t flags;
    const char* icon;
  } rows[] = {{16, "(Error) "},
              {32, "(Question) "},
              {48, "(Warning) "},
              {64, "(Information) "},
              {0, nullptr}};
  for (const auto& row : rows) {
    Run(row.flags, "\n", u"First line\r\nSecond \u00e9 line");
    EXPECT_NE(screen_.find("Tarvel USB Eject v2.0.12\r\n"), std::string::npos) << screen_;
    EXPECT_NE(screen_.find("First line\r\nSecond \xc3\xa9 line\r\n"), std::string::npos) << screen_;
    EXPECT_EQ(screen_.find("\r\r"), std::string::npos) << "CR LF shown as two breaks";
    if (row.icon) {
      EXPECT_NE(screen_.find(std::string(row.icon) + "First line"), std::string::npos) << screen_;
    } else {
      EXPECT_EQ(screen_.find("("), std::string::npos) << screen_;
    }
  }
  Run(0, "\n", u"x", u"Own caption");
  EXPECT_NE(screen_.find("Own caption\r\n"), std::string::npos) << screen_;
}

TEST_F(TerminalBoxTest, UnrecognisedAnswersAskAgain) {
  EXPECT_EQ(Run(1, "maybe\n3\n0\nx\ncancel\n"), 2);
  std::size_t asked = 0;
  for (std::size_t at = 0; (at = screen_.find("Please answer", at)) != std::string::npos; ++at)
    ++asked;
  EXPECT_EQ(asked, 4u) << screen_;
  // "C" names two buttons of Cancel/Try Again/Continue, so it asks again.
  EXPECT_EQ(Run(6, "c\ncancel\n"), 2);
  EXPECT_NE(screen_.find("Please answer"), std::string::npos);
}

TEST_F(TerminalBoxTest, HangUpIsTheEndOfInput) {
  auto answer = std::async(std::launch::async, [] { return mUnicodePatch::MsgBox(u"Go?", 1); });
  std::string screen;
  auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (screen.find("> ") == std::string::npos && std::chrono::steady_clock::now() < limit) {
    screen += Drain(master_, 100);
  }
  EXPECT_NE(screen.find("Go?"), std::string::npos) << "the box never showed";
  close(slave_);
  slave_ = -1;
  close(master_);
  master_ = -1;
  ASSERT_EQ(answer.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  EXPECT_EQ(answer.get(), 2);
}

// Runs body in a child process and returns its exit status; setup runs in the child first.
int InChild(const std::function<void()>& setup, const std::function<int()>& body) {
  pid_t pid = fork();
  if (pid == 0) {
    setup();
    _exit(body());
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void NoGraphicalSessionNoHook() {
  unsetenv("TVEJECT_TTY");
  unsetenv("DISPLAY");
  unsetenv("WAYLAND_DISPLAY");
}

TEST(MsgBoxPosix, ControllingTerminalIsUsedWithoutTheHook) {
  int master = -1;
  pid_t pid = forkpty(&master, nullptr, nullptr, nullptr);
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    NoGraphicalSessionNoHook();
    _exit(mUnicodePatch::MsgBox(u"Eject now?", 4));
  }
  std::string screen;
  auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (screen.find("> ") == std::string::npos && std::chrono::steady_clock::now() < limit) {
    screen += Drain(master, 100);
  }
  EXPECT_NE(screen.find("[1] Yes  [2] No"), std::string::npos) << screen;
  EXPECT_EQ(write(master, "no\n", 3), 3);
  int status = 0;
  waitpid(pid, &status, 0);
  close(master);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST(MsgBoxPosix, WithoutTerminalOrDialogTheBoxIsLoggedAndClosed) {
  const struct {
    std::int32_t flags;
    int answer;
  } rows[] = {{0, 1}, {1, 2}, {3, 2}, {4, 0}, {5, 2}};
  for (const auto& row : rows) {
    // The answer, plus 100 when the box was logged with its caption and text.
    int status = InChild(
        [] {
          NoGraphicalSessionNoHook();
          setsid();  // no controlling terminal any more
        },
        [&] {
          std::vector<std::u16string> lines;
          base::ScopedLogSink sink([&](std::u16string_view l) { lines.emplace_back(l); });
          int answer = mUnicodePatch::MsgBox(u"Drive busy", row.flags, u"Cap");
          bool logged = lines.size() == 1 && lines[0].find(u"Cap") != std::u16string::npos &&
                        lines[0].find(u"Drive busy") != std::u16string::npos;
          return answer + (logged ? 100 : 0);
        });
    EXPECT_EQ(status, 100 + row.answer) << "flags " << row.flags;
  }
}

// Stand-ins for dialog programs: each records its arguments in "<name>.args", writes `err` to
// standard error, prints `out` and exits with `code`.
struct FakeDialog {
  testing_support::TempDir dir;
  std::string first;  // the program Args() reads by default
  FakeDialog() = default;
  FakeDialog(const char* name, const std::string& out, int code) { Add(name, out, code); }
  void Add(const char* name, const std::string& out, int code, const std::string& err = "") {
    if (first.empty()) first = name;
    std::u16string path =
        dir.Write(u"bin/" + base::Widen(name),
                  "#!/bin/sh\nfor a in \"$@\"; do printf '%s\\n' \"$a\"; done > '" +
                      (dir.path() / name).string() + ".args'\nprintf '" + err + "' >&2\nprintf '" +
                      out + "'\nexit " + std::to_string(code) + "\n");
    chmod(base::Narrow(path).c_str(), 0755);
  }
  void AddScript(const char* name, const std::string& body) {
    chmod(base::Narrow(dir.Write(u"bin/" + base::Widen(name), body)).c_str(), 0755);
  }
  // Shows a box in a child process with these programs as the only ones on PATH and a display,
  // no terminal, and standard error kept in a file.
  int Show(std::int32_t flags) {
    std::string bin = (dir.path() / "bin").string();
    std::string err = (dir.path() / "stderr").string();
    return InChild(
        [&] {
          NoGraphicalSessionNoHook();
          setenv("DISPLAY", ":98", 1);
          setenv("PATH", bin.c_str(), 1);
          setsid();
          int fd = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
          dup2(fd, 2);
        },
        [&] { return mUnicodePatch::MsgBox(u"Line one\r\nLine two", flags, u"Cap"); });
  }
  std::string Args(const std::string& name = "") const {
    return dir.Read(base::Widen(name.empty() ? first : name) + u".args");
  }
  std::string Stderr() const { return dir.Read(u"stderr"); }
};

TEST(MsgBoxPosix, ZenityDialogAnswersMapToButtons) {
  const struct {
    std::int32_t flags;
    const char* out;
    int code;
    int answer;
    const char* args;  // lines expected among the arguments
  } rows[] = {
      {1 | 16, "Cancel\\n", 1, 2,
       "--title=Cap\n--text=Line one\nLine two\n--icon-name=dialog-error\n"
       "--extra-button=OK\n--extra-button=Cancel\n"},
      {3, "No\\n", 1, 7, "--extra-button=Yes\n--extra-button=No\n--extra-button=Cancel\n"},
      {3, "", 1, 2, "--question\n--switch\n--no-markup\n"},
      {2, "Retry\\n", 1, 4, "--extra-button=Abort\n--extra-button=Retry\n--extra-button=Ignore\n"},
      {4 | 32, "", 1, 0, "--icon-name=dialog-question\n"},
      {0 | 48, "", 1, 1, "--icon-name=dialog-warning\n--extra-button=OK\n"},
      {5 | 64, "Retry\\n", 1, 4, "--icon-name=dialog-information\n"},
  };
  for (const auto& row : rows) {
    FakeDialog zenity("zenity", row.out, row.code);
    EXPECT_EQ(zenity.Show(row.flags), row.answer) << "flags " << row.flags << " out " << row.out;
    EXPECT_NE(zenity.Args().find(row.args), std::string::npos) << zenity.Args();
  }
}

TEST(MsgBoxPosix, KdialogAnswersMapToButtons) {
  const struct {
    std::int32_t flags;
    int code;
    int answer;
    const char* args;
  } rows[] = {
      {0 | 48, 0, 1, "--title\nCap\n--sorry\nLine one\nLine two\n"},
      {0 | 16, 0, 1, "--error\n"},
      {1, 1, 2, "--yesno\nLine one\nLine two\n--yes-label\nOK\n--no-label\nCancel\n"},
      {1, 0, 1, "--yesno\n"},
      {3 | 48, 2, 2, "--warningyesnocancel\n"},
      {3, 1, 7, "--yes-label\nYes\n--no-label\nNo\n--cancel-label\nCancel\n"},
      {6, 0, 10, "--yes-label\nTry Again\n--no-label\nContinue\n--cancel-label\nCancel\n"},
      {2, 2, 5, "--yes-label\nAbort\n--no-label\nRetry\n--cancel-label\nIgnore\n"},
  };
  for (const auto& row : rows) {
    FakeDialog kdialog("kdialog", "", row.code);
    EXPECT_EQ(kdialog.Show(row.flags), row.answer) << "flags " << row.flags << " exit " << row.code;
    EXPECT_NE(kdialog.Args().find(row.args), std::string::npos) << kdialog.Args();
  }
}

// A dialog program that could not show its box is not a box the user closed: the next one is
// tried, and when none is left the box is still written out with what was missing.
TEST(MsgBoxPosix, DialogThatCannotShowFallsToTheNext) {
  const char* no_display = "(zenity:9): Gtk-WARNING **: cannot open display: :98\\n";
  const struct {
    const char* name;
    std::int32_t flags;
    std::vector<std::tuple<const char*, const char*, int, const char*>> programs;
    int answer;
    const char* shown_by;  // the program whose arguments show the box; nullptr: none did
  } rows[] = {
      {"zenity without display",
       1,
       {{"zenity", "", 1, no_display}, {"xmessage", "", 101, ""}},
       1,
       "xmessage"},
      {"zenity closed", 1, {{"zenity", "", 1, ""}, {"xmessage", "", 101, ""}}, 2, "zenity"},
      {"zenity timed out", 4, {{"zenity", "", 5, ""}, {"xmessage", "", 101, ""}}, 0, "zenity"},
      {"zenity answered with warnings",
       1,
       {{"zenity", "OK\\n", 1, "Gtk-Message: mapped without a transient parent\\n"}},
       1,
       "zenity"},
      {"zenity unknown option, kdialog aborted",
       4,
       {{"zenity", "", 255, ""}, {"kdialog", "", 134, ""}, {"xmessage", "", 101, ""}},
       6,
       "xmessage"},
      {"kdialog without display",
       0,
       {{"kdialog", "", 1, "qt.qpa.xcb: could not connect to display :98\\n"},
        {"xmessage", "", 101, ""}},
       1,
       "xmessage"},
      {"xmessage buttons", 2 | 48, {{"xmessage", "", 103, ""}}, 5, "xmessage"},
      {"xmessage without display",
       1,
       {{"xmessage", "", 1, "Error: Can't open display: :98\\n"}},
       2,
       nullptr},
      {"nothing installed", 0, {}, 1, nullptr},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    FakeDialog fakes;
    for (const auto& [name, out, code, err] : row.programs) fakes.Add(name, out, code, err);
    EXPECT_EQ(fakes.Show(row.flags), row.answer);
    bool after_shown = false;  // programs after the one that showed the box are not started
    for (const auto& [name, out, code, err] : row.programs) {
      if (after_shown) {
        EXPECT_EQ(fakes.Args(name), "") << name;
      }
      if (row.shown_by && std::string(name) == row.shown_by) after_shown = true;
    }
    if (row.shown_by) {
      EXPECT_NE(fakes.Args(row.shown_by), "");
    }
    const std::string err = fakes.Stderr();
    if (row.shown_by) {
      EXPECT_EQ(err.find("Line one"), std::string::npos) << err;
    } else {
      EXPECT_NE(err.find("Cap\n---\nLine one\nLine two\n"), std::string::npos) << err;
      EXPECT_NE(err.find("install zenity, kdialog or xmessage"), std::string::npos) << err;
    }
  }
  FakeDialog xmessage("xmessage", "", 101);
  xmessage.Show(1 | 48);
  EXPECT_NE(xmessage.Args().find("-title\nCap\n-buttons\nOK:101,Cancel:102\n(Warning) Line one\n"),
            std::string::npos)
      << xmessage.Args();
}

// With a display but no dialog program, the text box comes up in a terminal window. The fake
// terminal runs its command on a pseudo-terminal (script) and types "2" there.
TEST(MsgBoxPosix, TerminalWindowHoldsTheTextBox) {
  FakeDialog fakes;
  const std::string screen = (fakes.dir.path() / "screen").string();
  fakes.AddScript("x-terminal-emulator",
                  "#!/bin/bash\nexport PATH=/usr/bin:/bin\nprintf '%s\\n' \"$@\" > '" +
                      (fakes.dir.path() / "x-terminal-emulator.args").string() +
                      "'\nwhile [ \"$1\" != -e ]; do shift; done; shift\n"
                      "{ sleep 0.5; printf '2\\r'; sleep 5; } | script -qfec \"$(printf '%q ' "
                      "\"$@\")\" /dev/null > '" +
                      screen + "'\n");
  EXPECT_EQ(fakes.Show(1 | 32), 2);
  EXPECT_NE(fakes.Args("x-terminal-emulator").find("-T\nCap\n-e\n/bin/sh\n-c\n"), std::string::npos)
      << fakes.Args("x-terminal-emulator");
  const std::string shown = fakes.dir.Read(u"screen");
  EXPECT_NE(shown.find("(Question) Line one\r\nLine two\r\n\r\n[1] OK  [2] Cancel"),
            std::string::npos)
      << shown;
  // A terminal that cannot open its window: the box is written out.
  FakeDialog broken("xterm", "", 1);
  EXPECT_EQ(broken.Show(0), 1);
  EXPECT_NE(broken.Stderr().find("install zenity"), std::string::npos) << broken.Stderr();
}

// A process without a terminal of its own whose output still goes to one (the ejector, in a
// session of its own, started from a shell): an OK box is printed there and not asked, so the
// shell keeps what is typed; a box with a choice is not asked there either.
TEST(MsgBoxPosix, WithoutItsOwnTerminalAnOkBoxIsPrintedNotAsked) {
  const struct {
    std::int32_t flags;
    int answer;
  } rows[] = {{0x40, 1}, {0x10, 1}, {1, 2}, {4, 0}};
  for (const auto& row : rows) {
    int master = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(master, 0);
    ASSERT_EQ(grantpt(master), 0);
    ASSERT_EQ(unlockpt(master), 0);
    std::string slave = ptsname(master);
    int status = InChild(
        [&] {
          NoGraphicalSessionNoHook();
          setsid();
          int fd = open(slave.c_str(), O_RDWR | O_NOCTTY);
          dup2(fd, 0);
          dup2(fd, 1);
          dup2(fd, 2);
        },
        [&] { return mUnicodePatch::MsgBox(u"Drive removed", row.flags, u"Cap"); });
    std::string screen = Drain(master, 100);
    close(master);
    EXPECT_EQ(status, row.answer) << "flags " << row.flags;
    EXPECT_NE(screen.find("Drive removed"), std::string::npos) << screen;
    EXPECT_EQ(screen.find("> "), std::string::npos) << screen;
  }
}

#else

TEST(TerminalBox, NotOnWindows) {
  GTEST_SKIP() << "the terminal box is the POSIX stand-in for MessageBoxIndirectW; Windows "
                  "shows the real box, checked by tests/e2e/wine_msgbox.sh";
}

#endif

}  // namespace
