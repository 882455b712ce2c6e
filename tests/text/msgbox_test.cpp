#include "text/msgbox.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/text.h"
#include "base/trap.h"
#include "os/fault.h"
#include "os/os.h"
#include "support/log_capture.h"

#ifndef _WIN32
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <future>

#include "support/scoped_env.h"
#include "support/temp_dir.h"
#endif

namespace {

using testing_support::LogCapture;

// The box handed to the platform: size, owner, style (task modality added) and the texts.
TEST(MsgBox, BuildsTheBoxThePlatformShows) {
  const struct {
    const char16_t* title;
    std::int32_t buttons;
    os::Handle owner;
    bool task_modal;
    const char* seen;
  } rows[] = {{u"", 1, -1, false, "40 0 1 Tarvel USB Eject v2.0.12|Line \xc3\xa9"},
              {u"Mon titre \u2713", 64, -1, true, "40 0 8256 Mon titre \xe2\x9c\x93|Line \xc3\xa9"},
              {u"T", 0, 0x1234, false, "40 4660 0 T|Line \xc3\xa9"}};
  os::fault::Scope scope;
  std::string seen;
  os::fault::SetMessageBoxAnswer([&](const os::MessageBoxParams& p) -> std::int32_t {
    if (p.text == std::u16string_view(u"fail")) base::Raise(base::kTypeMismatch);
    seen = std::to_string(p.size) + " " + std::to_string(p.owner) + " " + std::to_string(p.style) +
           " " + base::Narrow(p.caption) + "|" + base::Narrow(p.text);
    return 2;
  });
  for (const auto& row : rows) {
    EXPECT_EQ(mUnicodePatch::MsgBox(u"Line \u00e9", row.buttons, row.title, u"", 0, row.owner,
                                    row.task_modal),
              2);
    EXPECT_EQ(seen, row.seen);
  }
  // A failure inside is logged and answers 0.
  LogCapture log;
  EXPECT_EQ(mUnicodePatch::MsgBox(u"fail", 1), 0);
  EXPECT_EQ(log.lines, std::vector<std::u16string>{
                           u"Erreur 13 (Type mismatch) dans Function mUnicodePatch.MsgBox"});
}

#ifndef _WIN32

// Reads what is waiting on fd for up to `ms` milliseconds of quiet.
std::string Drain(int fd, int ms) {
  std::string out;
  pollfd p{fd, POLLIN, 0};
  char buf[512];
  ssize_t n;
  while (poll(&p, 1, ms) > 0 && (p.revents & POLLIN) && (n = read(fd, buf, sizeof buf)) > 0)
    out.append(buf, static_cast<std::size_t>(n));
  return out;
}

// Reads fd until the box asks ("> ") or 20 seconds passed.
std::string DrainUntilAsked(int fd) {
  std::string screen;
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (screen.find("> ") == std::string::npos && std::chrono::steady_clock::now() < limit)
    screen += Drain(fd, 100);
  return screen;
}

// A pseudo-terminal; returns the master and sets slave to the slave's path.
int OpenPty(std::string* slave) {
  const int master = posix_openpt(O_RDWR | O_NOCTTY);
  if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) return -1;
  *slave = ptsname(master);
  return master;
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

// A box pointed at a pseudo-terminal through TVEJECT_TTY: the test types on the master side and
// reads what the box wrote there. Every screen shows the caption, the text lines (CR LF as one
// break) and, where the row says, the icon word or the numbered buttons; an answer that names no
// button (or two) asks again.
TEST(MsgBoxPosix, TerminalBoxTakesEachFormOfAnswer) {
  const struct {
    std::int32_t flags;
    const char* input;
    std::int32_t answer;
    const char* shown = "";
    std::size_t asked_again = 0;
    const char* locale = "C.UTF-8";  // the system's words are the user's language's
  } rows[] = {
      // clang-format off
      {1, "2\n", 2, "[1] OK  [2] Cancel\r\n"}, {1 | 16, "1\n", 1, "(Error) First line"},
      {1, "CaNcEl\n", 2}, {1, "\n", 1}, {1, "  2 \n", 2}, {1, "\x04", 2},
      {0, "\x04", 1, "[1] OK\r\n"}, {0 | 32, "ok\n", 1, "(Question) First line"},
      {2, "r\n", 4, "[1] Abort  [2] Retry  [3] Ignore\r\n"},
      {3 | 48, "n\n", 7, "(Warning) First line"}, {3, "\n", 6, "[1] Yes  [2] No  [3] Cancel\r\n"},
      {3, "\x04", 2}, {4 | 64, "yes\n", 6, "(Information) First line"},
      {4, "2\n", 7, "[1] Yes  [2] No\r\n"},
      {4, "\x04", 0}, {5, "\n", 4, "[1] Retry  [2] Cancel\r\n"}, {0x101, "\n", 2}, {6, "t\n", 10},
      {6, "continue\n", 11, "[1] Cancel  [2] Try Again  [3] Continue\r\n"},
      {1, "maybe\n3\n0\nx\ncancel\n", 2, "Please answer", 4}, {6, "c\ncancel\n", 2, "", 1},
      {3, "nein\n", 7, "[1] Ja  [2] Nein  [3] Abbrechen\r\n", 0, "de_DE.UTF-8"},
      {4 | 16, "no\n", 7, "(Erro) First line", 0, "pt_BR"},  // English is understood too
      // clang-format on
  };
  std::string slave;
  const int master = OpenPty(&slave);
  ASSERT_GE(master, 0);
  // Held open by the test, so what the box wrote stays readable after it closed its side.
  const int held = open(slave.c_str(), O_RDWR | O_NOCTTY);
  testing_support::ScopedEnv tty({{"TVEJECT_TTY", slave.c_str()}});
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << "flags " << row.flags << " answer \"" << row.input << "\"");
    testing_support::ScopedEnv locale({{"LC_ALL", row.locale}});
    auto answer = std::async(std::launch::async, [&] {
      return mUnicodePatch::MsgBox(u"First line\r\nSecond \u00e9 line", row.flags);
    });
    EXPECT_EQ(write(master, row.input, strlen(row.input)), static_cast<ssize_t>(strlen(row.input)));
    if (answer.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
      EXPECT_EQ(write(master, "\n\x04", 2), 2);  // unstick the box before failing
      ADD_FAILURE() << "the box did not take the answer";
    }
    EXPECT_EQ(answer.get(), row.answer);
    const std::string screen = Drain(master, 50);
    EXPECT_NE(screen.find("Tarvel USB Eject v2.0.12\r\n"), std::string::npos) << screen;
    EXPECT_NE(screen.find("First line\r\nSecond \xc3\xa9 line\r\n"), std::string::npos);
    EXPECT_EQ(screen.find("\r\r"), std::string::npos) << screen;
    EXPECT_NE(screen.find(row.shown), std::string::npos) << screen;
    EXPECT_EQ(screen.find('(') == std::string::npos, (row.flags & 0xF0) == 0) << screen;
    std::size_t asked = 0;
    for (std::size_t at = 0; (at = screen.find("Please answer", at)) != std::string::npos; ++at)
      ++asked;
    EXPECT_EQ(asked, row.asked_again) << screen;
  }
  close(held);
  // A hang-up is the end of input.
  auto answer = std::async(std::launch::async, [] { return mUnicodePatch::MsgBox(u"Go?", 1); });
  EXPECT_NE(DrainUntilAsked(master).find("Go?"), std::string::npos) << "the box never showed";
  close(master);
  ASSERT_EQ(answer.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  EXPECT_EQ(answer.get(), 2);
}

// Without the hook the box asks on the controlling terminal. Without a terminal of its own but
// with its output going to one (the ejector, in a session of its own, started from a shell), a
// box is printed there and not asked, so the shell keeps what is typed. With no terminal at all,
// the box goes to the log. Either way the answer is what closing the box gives.
TEST(MsgBoxPosix, TheTerminalsABoxFinds) {
  enum Terminal { kNone, kOutputOnly, kControlling };
  const struct {
    std::int32_t flags;
    Terminal terminal;
    int answer;
  } rows[] = {{4, kControlling, 7}, {0x40, kOutputOnly, 1}, {1, kOutputOnly, 2},
              {4, kOutputOnly, 0},  {0, kNone, 1},          {3, kNone, 2}};
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << "flags " << row.flags << " terminal " << row.terminal);
    std::string slave;
    const int master = OpenPty(&slave);
    ASSERT_GE(master, 0);
    ASSERT_EQ(write(master, "no\n", 3), 3);  // typed ahead, read only by a box that asks
    // The answer, plus 100 when the box was logged with its caption and text.
    const std::vector<std::u16string> logged = {
        u"Message box not shown (no display and no terminal to show it): Cap: Drive removed"};
    const int status = InChild(
        [&] {
          NoGraphicalSessionNoHook();
          setsid();  // no controlling terminal any more, until the slave is opened as one
          if (row.terminal == kNone) return;
          const int fd =
              open(slave.c_str(), row.terminal == kControlling ? O_RDWR : O_RDWR | O_NOCTTY);
          for (int to : {0, 1, 2}) dup2(fd, to);
        },
        [&] {
          LogCapture log;
          const int answer = mUnicodePatch::MsgBox(u"Drive removed", row.flags, u"Cap");
          return answer + (log.lines == logged ? 100 : 0);
        });
    const std::string screen = Drain(master, 100);
    close(master);
    // On a terminal the box is shown there; whether it is logged as well is not asked.
    EXPECT_EQ(row.terminal == kNone ? status : status % 100,
              row.answer + (row.terminal == kNone ? 100 : 0));
    EXPECT_EQ(screen.find("Drive removed") != std::string::npos, row.terminal != kNone) << screen;
    EXPECT_EQ(screen.find("> ") != std::string::npos, row.terminal == kControlling) << screen;
  }
}

// Stand-ins for dialog programs: each records its arguments in "<name>.args", writes `err` to
// standard error, prints `out` and exits with `code`.
struct FakeDialog {
  testing_support::TempDir dir;
  void Add(const char* name, const std::string& out, int code, const std::string& err = "") {
    AddScript(name,
              "#!/bin/sh\nfor a in \"$@\" \"LC_ALL=$LC_ALL\"; do printf '%s\\n' \"$a\"; done > '" +
                  (dir.path() / name).string() + ".args'\nprintf '" + err + "' >&2\nprintf '" +
                  out + "'\nexit " + std::to_string(code) + "\n");
  }
  void AddScript(const char* name, const std::string& body) {
    chmod(base::Narrow(dir.Write(u"bin/" + base::Widen(name), body)).c_str(), 0755);
  }
  // Shows a box in a child process with these programs as the only ones on PATH and a display,
  // no terminal, and standard error kept in a file.
  int Show(std::int32_t flags, const char* lang = "C.UTF-8",
           const std::vector<std::u16string>& words = {}) {
    const std::string bin = (dir.path() / "bin").string();
    const std::string err = (dir.path() / "stderr").string();
    return InChild(
        [&] {
          NoGraphicalSessionNoHook();
          setenv("DISPLAY", ":98", 1);
          setenv("PATH", bin.c_str(), 1);
          setenv("LANG", lang, 1);
          unsetenv("LC_ALL");
          setsid();
          dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 2);
        },
        [&] {
          return words.empty() ? mUnicodePatch::MsgBox(u"Line one\r\nLine two", flags, u"Cap")
                               : mUnicodePatch::MsgBoxWithButtons(u"Line one", flags, words);
        });
  }
  std::string Args(const std::string& name) const { return dir.Read(base::Widen(name) + u".args"); }
};

// Each dialog program's options and the button its answer (printed or as exit code) picks. One
// that could not show its box is not a box the user closed: the next is tried, and with none
// left the box is still written out with what was missing.
TEST(MsgBoxPosix, DialogProgramsInTurn) {
  const char* no_display = "(zenity:9): Gtk-WARNING **: cannot open display: :98\\n";
  struct Program {
    const char* name;
    const char* out;
    int code;
    const char* err = "";
  };
  const struct {
    std::int32_t flags;
    std::vector<Program> programs;
    int answer;
    const char* shown_by;   // the program whose arguments show the box; nullptr: none did
    const char* args = "";  // lines among its arguments, the dialog's LC_ALL last
    std::vector<std::u16string> words = {};  // the box's own button words
    const char* lang = "C.UTF-8";
  } rows[] = {
      // clang-format off
      {1 | 16, {{"zenity", "Cancel\\n", 1}}, 2, "zenity", "--title=Cap\n--text=Line one\nLine two\n"
       "--icon-name=dialog-error\n--extra-button=OK\n--extra-button=Cancel\nLC_ALL=\n"},
      // A locale the C library lacks does not stop the dialog from reading the words: it runs in
      // the UTF-8 locale instead.
      {5, {{"zenity", "Fech\xC3\xA1-los\\n", 1}}, 4, "zenity",
       "--extra-button=Fech\xC3\xA1-los\n--extra-button=Cancelar\nLC_ALL=C.UTF-8\n",
       {u"Fech\u00E1-los", u"Cancelar"}, "pt_XX.UTF-8"},
      {3, {{"zenity", "No\\n", 1}}, 7, "zenity", "--question\n--switch\n--no-markup\n--title=Cap\n"
       "--text=Line one\nLine two\n--extra-button=Yes\n--extra-button=No\n--extra-button=Cancel\n"},
      {0 | 48, {{"kdialog", "", 0}}, 1, "kdialog", "--title\nCap\n--sorry\nLine one\nLine two\n"},
      {1, {{"kdialog", "", 1}}, 2, "kdialog",
       "--yesno\nLine one\nLine two\n--yes-label\nOK\n--no-label\nCancel\n"},
      {3 | 48, {{"kdialog", "", 2}}, 2, "kdialog", "--warningyesnocancel\n"},
      {6, {{"kdialog", "", 0}}, 10, "kdialog",
       "--yes-label\nTry Again\n--no-label\nContinue\n--cancel-label\nCancel\n"},
      {1 | 48, {{"xmessage", "", 101}}, 1, "xmessage",
       "-title\nCap\n-buttons\nOK:101,Cancel:102\n(Warning) Line one\n"},
      // zenity without a display, closed, timed out, not knowing an option; kdialog aborted;
      // xmessage without a display.
      {1, {{"zenity", "", 1, no_display}, {"xmessage", "", 101}}, 1, "xmessage"},
      {1, {{"zenity", "", 1}, {"xmessage", "", 101}}, 2, "zenity"},
      {4, {{"zenity", "", 5}, {"xmessage", "", 101}}, 0, "zenity"},
      {4, {{"zenity", "", 255}, {"kdialog", "", 134}, {"xmessage", "", 101}}, 6, "xmessage"},
      {1, {{"xmessage", "", 1, "Error: Can't open display: :98\\n"}}, 2, nullptr},
      {0, {{"xterm", "", 1}}, 1, nullptr},  // a terminal that cannot open its window
      {4, {{"zenity", "Nein\n", 1}}, 7, "zenity", "--extra-button=Ja\n--extra-button=Nein\n", {},
       "de_DE.UTF-8"},
      // clang-format on
  };
  for (const auto& row : rows) {
    FakeDialog fakes;
    for (const Program& p : row.programs) fakes.Add(p.name, p.out, p.code, p.err);
    SCOPED_TRACE(testing::Message() << "flags " << row.flags << ", first " << row.programs[0].name
                                    << ", code " << row.programs[0].code);
    EXPECT_EQ(fakes.Show(row.flags, row.lang, row.words), row.answer);
    bool after_shown = false;  // programs after the one that showed the box are not started
    for (const Program& p : row.programs) {
      EXPECT_TRUE(!after_shown || fakes.Args(p.name).empty()) << p.name;
      after_shown = after_shown || (row.shown_by && std::string(p.name) == row.shown_by);
    }
    const std::string err = fakes.dir.Read(u"stderr");
    if (row.shown_by) {
      const std::string args = fakes.Args(row.shown_by);
      EXPECT_NE(args.find(*row.args ? row.args : "LC_ALL="), std::string::npos) << args;
      EXPECT_EQ(err.find("Line one"), std::string::npos) << err;  // not written out as well
    } else {
      EXPECT_NE(err.find("Cap\n---\nLine one\nLine two\n"), std::string::npos) << err;
      EXPECT_NE(err.find("install zenity, kdialog or xmessage"), std::string::npos) << err;
    }
  }
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
}

#endif

}  // namespace
