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

// Runs program in a new terminal session that it leads, as `xterm -e`, a launcher's terminal or
// `ssh -t` run it: its end hangs the terminal up. Each time the screen shows a prompt ("> "), types
// the next answer. Returns everything the program wrote to the terminal.
std::string RunInTerminal(const std::string& program, std::vector<std::string> answers) {
  int master = -1;
  pid_t pid = forkpty(&master, nullptr, nullptr, nullptr);
  if (pid == 0) {
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "TVEJECT_TTY"}) unsetenv(name);
    execl(program.c_str(), program.c_str(), static_cast<char*>(nullptr));
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

// A portable folder in a folder with an accented name, in French; the closer is a stand-in that
// reports a count, the ejector one that records how it was started. (The same ends from the
// program's own view: tests/app/eject_test.cpp; the boxes in a terminal: tests/text.)
TEST(EjectInTerminal, ConfirmCancelAndStillRunning) {
  struct Row {
    const char* name;
    const char* closer_plan;
    const char* ejector_plan;  // "out X" marks, in the ejector's folder, that it got that far
    std::vector<std::string> answers;
    std::vector<std::string> shown;  // texts that must appear, in order
    bool ejector_started;
  } rows[] = {
      // clang-format off
      {"cancel", "out 0", "", {"c"}, {"Tarvel USB Eject v2.0.12", "[1] OK  [2] Cancel"}, false},
      {"two still running", "out 2", "", {"1", ""}, {"p\xC3\xA9riph\xC3\xA9rique USB !",
       "(Information) Il reste encore des applications"}, false},
      // The ejector outlives TvEject and the hang-up of its terminal.
      {"nothing left", "out 0", "sleep 700\nout ejected", {"ok"}, {"[1] OK  [2] Cancel"}, true},
      // clang-format on
  };
  const fs::path bin = fs::path(testing_support::ProgramFolder());
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    TempDir dir;
    const fs::path suite = dir.path() / "Stick \xC3\xA9t\xC3\xA9";
    fs::create_directories(suite / "TvEject");
    fs::create_directories(suite / "TvAppsClose");
    fs::copy_file(bin / "TvEject", suite / "TvEject" / "TvEject");
    fs::copy_file(bin / "fake_companion", suite / "TvEject" / "TvDiskEjector");
    fs::copy_file(bin / "fake_companion", suite / "TvAppsClose" / "TvAppsClose");
    const std::u16string at = u"Stick \u00e9t\u00e9/";
    dir.Write(at + u"TvAppsClose/TvAppsClose.plan", row.closer_plan);
    dir.Write(at + u"TvEject/TvDiskEjector.plan", row.ejector_plan);
    dir.Write(at + u"TvEject/TvEject.xml",
              "<TarvelUSBEject><Language>fr</Language></TarvelUSBEject>");

    const std::string screen = RunInTerminal((suite / "TvEject" / "TvEject").string(), row.answers);
    std::size_t found = 0;
    for (const auto& text : row.shown) {
      found = screen.find(text, found);
      EXPECT_NE(found, std::string::npos) << "missing \"" << text << "\" in:\n" << screen;
      if (found == std::string::npos) break;
    }
    for (const char16_t* record : {u"TvEject/TvDiskEjector.args", u"TvEject/TvAppsClose.out"})
      for (int i = 0; row.ejector_started && i < 100 && !dir.Exists(at + record); ++i)
        usleep(50000);
    EXPECT_EQ(dir.Read(at + u"TvEject/TvDiskEjector.args"), row.ejector_started ? "/retry\n" : "");
    EXPECT_EQ(dir.Read(at + u"TvEject/TvAppsClose.out"), row.ejector_started ? "ejected" : "");
  }
}

}  // namespace
#endif
