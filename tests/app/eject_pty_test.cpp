// The real TvEject program, run as a person would on Linux: from a portable folder, in a
// terminal (a pseudo-terminal here), answering its boxes by typing.
#include <gtest/gtest.h>

#ifndef _WIN32
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "base/text.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using testing_support::TempDir;

// Runs program in a new terminal session that it leads, as `xterm -e`, a launcher's terminal or
// `ssh -t` run it: its end hangs the terminal up. Each time the screen shows a prompt ("> "), types
// the next answer. Returns everything the program wrote to the terminal.
std::string RunInTerminal(const fs::path& program, std::vector<std::string> answers,
                          const char* lang = nullptr, const char* shell_command = nullptr) {
  int master = -1;
  pid_t pid = forkpty(&master, nullptr, nullptr, nullptr);
  if (pid == 0) {
    unsetenv("DISPLAY");
    unsetenv("WAYLAND_DISPLAY");
    unsetenv("TVEJECT_TTY");
    if (lang) {
      unsetenv("LC_ALL");
      unsetenv("LC_MESSAGES");
      setenv("LANG", lang, 1);
    }
    if (shell_command) {
      execl(program.c_str(), program.c_str(), "-c", shell_command, static_cast<char*>(nullptr));
    }
    execl(program.c_str(), program.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  std::string screen;
  std::size_t answered_at = 0;
  std::size_t next = 0;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (std::chrono::steady_clock::now() < deadline) {
    pollfd p{master, POLLIN, 0};
    if (poll(&p, 1, 100) > 0) {
      char buf[4096];
      ssize_t n = read(master, buf, sizeof buf);
      if (n <= 0) break;  // the program closed its terminal: it ended
      screen.append(buf, static_cast<std::size_t>(n));
    }
    std::size_t prompt = screen.rfind("> ");
    if (prompt != std::string::npos && prompt >= answered_at && next < answers.size()) {
      std::string line = answers[next++] + "\r";
      (void)!write(master, line.data(), line.size());
      answered_at = prompt + 2;
    }
  }
  // The terminal closes as the program exits; give it a moment to be done.
  int status = 0;
  pid_t ended = 0;
  for (int i = 0; i < 100 && (ended = waitpid(pid, &status, WNOHANG)) == 0; ++i) usleep(50000);
  if (ended == 0) {
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
    ADD_FAILURE() << "the program did not end; screen so far:\n" << screen;
  }
  close(master);
  return screen;
}

TEST(EjectInTerminal, ConfirmCancelAndStillRunning) {
  struct Row {
    const char* name;
    const char* closer_plan;
    const char* ejector_plan;  // "out X" marks, in the ejector's folder, that it got that far
    std::vector<std::string> answers;
    std::vector<std::string> shown;  // texts that must appear, in order
    bool ejector_started;
  } rows[] = {
      {"cancel", "out 0", "", {"c"}, {"Tarvel USB Eject v2.0.12", "[1] OK  [2] Cancel"}, false},
      {"two still running",
       "out 2",
       "",
       {"1", ""},
       {"p\xC3\xA9riph\xC3\xA9rique USB !", "(Information) Il reste encore des applications"},
       false},
      // The ejector outlives TvEject and the hang-up of its terminal.
      {"nothing left", "out 0", "sleep 700\nout ejected", {"ok"}, {"[1] OK  [2] Cancel"}, true},
  };
  const fs::path bin = fs::path(testing_support::ProgramFolder());
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    TempDir dir;
    fs::create_directories(dir.path() / "TvEject");
    fs::create_directories(dir.path() / "TvAppsClose");
    fs::copy_file(bin / "TvEject", dir.path() / "TvEject" / "TvEject");
    fs::copy_file(bin / "fake_companion", dir.path() / "TvEject" / "TvDiskEjector");
    fs::copy_file(bin / "fake_companion", dir.path() / "TvAppsClose" / "TvAppsClose");
    dir.Write(u"TvAppsClose/TvAppsClose.plan", row.closer_plan);
    dir.Write(u"TvEject/TvDiskEjector.plan", row.ejector_plan);
    dir.Write(u"TvEject/TvEject.xml", "<TarvelUSBEject><Language>fr</Language></TarvelUSBEject>");

    const std::string screen = RunInTerminal(dir.path() / "TvEject" / "TvEject", row.answers);
    std::size_t at = 0;
    for (const auto& text : row.shown) {
      std::size_t found = screen.find(text, at);
      EXPECT_NE(found, std::string::npos) << "missing \"" << text << "\" in:\n" << screen;
      if (found != std::string::npos) at = found;
    }
    for (int i = 0; row.ejector_started && i < 100 && !dir.Exists(u"TvEject/TvDiskEjector.args");
         ++i)
      usleep(50000);
    EXPECT_EQ(dir.Read(u"TvEject/TvDiskEjector.args"), row.ejector_started ? "/retry\n" : "");
    for (int i = 0; row.ejector_started && i < 100 && !dir.Exists(u"TvEject/TvAppsClose.out"); ++i)
      usleep(50000);
    EXPECT_EQ(dir.Read(u"TvEject/TvAppsClose.out"), row.ejector_started ? "ejected" : "");
  }
}

// From a shell in a terminal: TvEject ends, the shell takes the terminal back, and the real
// ejector's outcome (an OK box: this folder is on no removable drive) comes after the shell's
// prompt as a message that asks nothing, so what the user types next goes to the shell.
TEST(EjectInTerminal, EjectorOutcomeAfterTheShellPromptAsksNothing) {
  const fs::path bin = fs::path(testing_support::ProgramFolder());
  TempDir dir;
  fs::create_directories(dir.path() / "Stick \xC3\xA9t\xC3\xA9" / "TvEject");
  fs::create_directories(dir.path() / "Stick \xC3\xA9t\xC3\xA9" / "TvAppsClose");
  fs::create_directories(dir.path() / "tmp");
  const fs::path suite = dir.path() / "Stick \xC3\xA9t\xC3\xA9";
  fs::copy_file(bin / "TvEject", suite / "TvEject" / "TvEject");
  fs::copy_file(bin / "TvDiskEjector", suite / "TvEject" / "TvDiskEjector");
  fs::copy_file(bin / "fake_companion", suite / "TvAppsClose" / "TvAppsClose");
  dir.Write(u"Stick \u00e9t\u00e9/TvAppsClose/TvAppsClose.plan", "out 0");
  dir.Write(u"Stick \u00e9t\u00e9/TvEject/TvEject.xml",
            "<TarvelUSBEject><Language>fr</Language></TarvelUSBEject>");
  const std::string command = "TMPDIR='" + (dir.path() / "tmp").string() + "' '" +
                              (suite / "TvEject" / "TvEject").string() +
                              "'; echo SHELL-PROMPT; sleep 3";
  const std::string screen = RunInTerminal("/bin/sh", {"ok"}, nullptr, command.c_str());
  // The ejector's box is the last one; on a loaded machine it may come before the prompt, so
  // what counts is that it comes at all and asks nothing.
  ASSERT_NE(screen.find("SHELL-PROMPT"), std::string::npos) << screen;
  const std::size_t outcome = screen.rfind("(Warning) ");
  ASSERT_NE(outcome, std::string::npos) << "no outcome:\n" << screen;
  const std::string after = screen.substr(outcome);
  EXPECT_EQ(after.find("> "), std::string::npos) << "the outcome asks:\n" << screen;
  EXPECT_EQ(after.find("[1] OK"), std::string::npos) << screen;
}

// A German user whose stick carries only an English language file: the file is found through
// the English fallback, but it holds no "de-DE" language, so the built-in French texts are
// shown and the file grows a "de-DE" section listing them for a translator.
TEST(EjectInTerminal, GermanLocaleWithAnEnglishOnlyFile) {
  const fs::path bin = fs::path(testing_support::ProgramFolder());
  TempDir dir;
  fs::create_directories(dir.path() / "TvEject");
  fs::create_directories(dir.path() / "TvAppsClose");
  fs::copy_file(bin / "TvEject", dir.path() / "TvEject" / "TvEject");
  fs::copy_file(bin / "fake_companion", dir.path() / "TvEject" / "TvDiskEjector");
  fs::copy_file(bin / "fake_companion", dir.path() / "TvAppsClose" / "TvAppsClose");
  dir.Write(u"TvAppsClose/TvAppsClose.plan", "out 0");
  dir.Write(u"TvEject/TvEject.xml", "<TarvelUSBEject><UserLanguage/><Language/></TarvelUSBEject>");
  dir.Write(u"TvEject/TvEject_lng.xml",
            "<Languages><en name=\"English\"><Messages><Intro>Close all?</Intro></Messages></en>"
            "</Languages>");
  const std::string screen =
      RunInTerminal(dir.path() / "TvEject" / "TvEject", {"1"}, "de_DE.UTF-8");
  EXPECT_NE(screen.find("ferme tous les programmes"), std::string::npos) << screen;
  EXPECT_EQ(screen.find("Close all?"), std::string::npos) << screen;
  for (int i = 0; i < 100 && !dir.Exists(u"TvEject/TvDiskEjector.args"); ++i) usleep(50000);
  const std::string saved = dir.Read(u"TvEject/TvEject_lng.xml");
  EXPECT_NE(saved.find("<de-DE>"), std::string::npos) << saved;
  EXPECT_NE(saved.find("<Intro>Close all?</Intro>"), std::string::npos) << saved;
  const std::string config = dir.Read(u"TvEject/TvEject.xml");
  EXPECT_NE(config.find("<Language file=\"TvEject_lng.xml\">de-DE</Language>"), std::string::npos)
      << config;
}

}  // namespace
#endif
