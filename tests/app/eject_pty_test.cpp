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

#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using testing_support::TempDir;

// Runs argv in a new terminal session that it leads, as `xterm -e`, a launcher's terminal or
// `ssh -t` run it: its end hangs the terminal up. Each time the screen shows a prompt ("> "), types
// the next answer. Returns everything the program wrote to the terminal.
std::string RunInTerminal(std::vector<std::string> argv, std::vector<std::string> answers,
                          const char* lang) {
  int master = -1;
  pid_t pid = forkpty(&master, nullptr, nullptr, nullptr);
  if (pid == 0) {
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "TVEJECT_TTY", "LC_ALL", "LC_MESSAGES"})
      unsetenv(name);
    setenv("LANG", lang, 1);
    std::vector<char*> args;
    for (auto& a : argv) args.push_back(a.data());
    args.push_back(nullptr);
    execv(args[0], args.data());
    _exit(127);
  }
  std::string screen;
  std::size_t answered_at = 0, next = 0;
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

// A portable folder in a folder with an accented name; the closer is a stand-in that reports
// a count, the ejector a stand-in that records how it was started (or, with no plan, the real
// one: this folder is on no removable drive).
TEST(EjectInTerminal, ConfirmCancelStillRunningAndTheEjectorsOutcome) {
  const char kFrench[] = "<TarvelUSBEject><Language>fr</Language></TarvelUSBEject>";
  struct Row {
    const char* name;
    const char* closer_plan;
    const char* ejector_plan;  // "out X" marks, in the ejector's folder, that it got that far
    const char* config;
    const char* languages;  // TvEject_lng.xml, when there is one
    const char* lang;       // the user's locale
    bool from_shell;        // typed at a shell's prompt, which gets the terminal back after
    std::vector<std::string> answers;
    std::vector<std::string> shown;  // texts that must appear, in order
    const char* absent;              // a text that must not
    bool ejector_started;
  };
  auto R = [](const char* name, const char* closer_plan, const char* ejector_plan,
              const char* config, const char* languages, const char* lang, bool from_shell,
              std::vector<std::string> answers, std::vector<std::string> shown, const char* absent,
              bool ejector_started) {
    return Row{name,       closer_plan, ejector_plan, config, languages,      lang,
               from_shell, answers,     shown,        absent, ejector_started};
  };
  const Row rows[] = {
      R("cancel", "out 0", "", kFrench, nullptr, "C", false, {"c"},
        {"Tarvel USB Eject v2.0.12", "[1] OK  [2] Cancel"}, "(Information)", false),
      R("two still running", "out 2", "", kFrench, nullptr, "C", false, {"1", ""},
        {"p\xC3\xA9riph\xC3\xA9rique USB !", "(Information) Il reste encore des applications"},
        nullptr, false),
      // The ejector outlives TvEject and the hang-up of its terminal.
      R("nothing left", "out 0", "sleep 700\nout ejected", kFrench, nullptr, "C", false, {"ok"},
        {"[1] OK  [2] Cancel"}, "(Information)", true),
      // A German user whose stick carries only an English language file: the file is found
      // through the English fallback, but it holds no "de-DE" language, so the built-in French
      // texts are shown and the file grows a "de-DE" section listing them for a translator.
      R("german locale, english-only file", "out 0", "",
        "<TarvelUSBEject><UserLanguage/><Language/></TarvelUSBEject>",
        "<Languages><en name=\"English\"><Messages><Intro>Close all?</Intro></Messages></en>"
        "</Languages>",
        "de_DE.UTF-8", false, {"1"}, {"ferme tous les programmes"}, "Close all?", true),
      // The real ejector's outcome (an OK box) may come after the shell's prompt: it is a
      // message that asks nothing, so what the user types next goes to the shell.
      R("from a shell", "out 0", nullptr, kFrench, nullptr, "C", true, {"ok"}, {"SHELL-PROMPT"},
        nullptr, false),
  };
  const fs::path bin = fs::path(testing_support::ProgramFolder());
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    TempDir dir;
    const fs::path suite = dir.path() / "Stick \xC3\xA9t\xC3\xA9";
    fs::create_directories(suite / "TvEject");
    fs::create_directories(suite / "TvAppsClose");
    fs::create_directories(dir.path() / "tmp");
    fs::copy_file(bin / "TvEject", suite / "TvEject" / "TvEject");
    fs::copy_file(bin / (row.ejector_plan ? "fake_companion" : "TvDiskEjector"),
                  suite / "TvEject" / "TvDiskEjector");
    fs::copy_file(bin / "fake_companion", suite / "TvAppsClose" / "TvAppsClose");
    const std::u16string at = u"Stick \u00e9t\u00e9/";
    dir.Write(at + u"TvAppsClose/TvAppsClose.plan", row.closer_plan);
    if (row.ejector_plan) dir.Write(at + u"TvEject/TvDiskEjector.plan", row.ejector_plan);
    dir.Write(at + u"TvEject/TvEject.xml", row.config);
    if (row.languages) dir.Write(at + u"TvEject/TvEject_lng.xml", row.languages);

    const std::string program = (suite / "TvEject" / "TvEject").string();
    const std::string screen =
        row.from_shell ? RunInTerminal({"/bin/sh", "-c",
                                        "TMPDIR='" + (dir.path() / "tmp").string() + "' '" +
                                            program + "'; echo SHELL-PROMPT; sleep 3"},
                                       row.answers, row.lang)
                       : RunInTerminal({program}, row.answers, row.lang);
    std::size_t found = 0;
    for (const auto& text : row.shown) {
      found = screen.find(text, found);
      EXPECT_NE(found, std::string::npos) << "missing \"" << text << "\" in:\n" << screen;
      if (found == std::string::npos) break;
    }
    if (row.absent) {
      EXPECT_EQ(screen.find(row.absent), std::string::npos) << screen;
    }
    if (row.from_shell) {
      // On a loaded machine the outcome may come before the prompt: what counts is that it
      // comes at all and asks nothing.
      const std::size_t outcome = screen.rfind("(Warning) ");
      ASSERT_NE(outcome, std::string::npos) << "no outcome:\n" << screen;
      EXPECT_EQ(screen.find("> ", outcome), std::string::npos) << "it asks:\n" << screen;
      EXPECT_EQ(screen.find("[1] OK", outcome), std::string::npos) << screen;
      continue;
    }
    const std::u16string args = at + u"TvEject/TvDiskEjector.args";
    for (int i = 0; row.ejector_started && i < 100 && !dir.Exists(args); ++i) usleep(50000);
    EXPECT_EQ(dir.Read(args), row.ejector_started ? "/retry\n" : "");
    if (std::string_view(row.ejector_plan).find("out") != std::string_view::npos) {
      for (int i = 0; i < 100 && !dir.Exists(at + u"TvEject/TvAppsClose.out"); ++i) usleep(50000);
      EXPECT_EQ(dir.Read(at + u"TvEject/TvAppsClose.out"), "ejected");
    }
    if (row.languages) {
      const std::string saved = dir.Read(at + u"TvEject/TvEject_lng.xml");
      EXPECT_NE(saved.find("<de-DE>"), std::string::npos) << saved;
      EXPECT_NE(saved.find("<Intro>Close all?</Intro>"), std::string::npos) << saved;
      EXPECT_NE(dir.Read(at + u"TvEject/TvEject.xml")
                    .find("<Language file=\"TvEject_lng.xml\">de-DE</Language>"),
                std::string::npos);
    }
  }
}

}  // namespace
#endif
