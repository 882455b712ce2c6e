// Start-up of TvEject on Linux: the time from starting the process to its confirmation box
// being on the terminal, against the cheapest start there is (startup_floor, a static program
// that prints one line), measured the same way in the same run.
//
//   cmake --preset bench && cmake --build --preset bench -j2 && build/bench/bin/startup_bench
//
// Each program is started in a fresh pseudo-terminal, as a person starts it from a terminal;
// the clock runs from just before the fork to the moment the awaited text ("[1] OK  [2] Cancel",
// or the floor's line) is read from the terminal. TvEject runs from a portable folder holding
// the packaged language file and a configuration that names English, so no run rewrites it;
// its box is answered with Cancel outside the timed part. The two programs alternate, one start
// of each per iteration, so that a busy neighbour slows both alike. The figures are the medians
// of all starts; the last line gives both and their ratio (target: at most 2).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr char kBoxButtons[] = "[1] OK  [2] Cancel";
constexpr char kFloorLine[] = "floor line";
constexpr char kConfig[] =
    "<TarvelUSBEject>\r\n"
    "\t<UserLanguage/>\r\n"
    "\t<Language file=\"TvEject_lng.xml\">en</Language>\r\n"
    "</TarvelUSBEject>\r\n";

std::string ReadAll(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The portable folder: <temp>/TvEject/ with the program, its configuration and language file.
struct Portable {
  fs::path root;
  fs::path program;
  fs::path floor;
  fs::path config;

  Portable() {
    const fs::path bin = fs::read_symlink("/proc/self/exe").parent_path();
    char pattern[] = "/tmp/tveject-startup.XXXXXX";
    root = mkdtemp(pattern);
    fs::create_directories(root / "TvEject");
    program = root / "TvEject" / "TvEject";
    fs::copy_file(bin / "TvEject", program);
    fs::copy_file(fs::path(TVEJECT_PACKAGING_DIR) / "TvEject_lng.xml",
                  root / "TvEject" / "TvEject_lng.xml");
    config = root / "TvEject" / "TvEject.xml";
    std::ofstream(config, std::ios::binary) << kConfig;
    floor = bin / "startup_floor";
  }
  ~Portable() {
    std::error_code ignored;
    fs::remove_all(root, ignored);
  }
};

// Starts program in a new pseudo-terminal and returns the seconds until `awaited` was read from
// it (negative when it never came); then types `answer`, if any, and waits for the end.
double TimeToText(const fs::path& program, const char* awaited, const char* answer) {
  // The same small environment for both programs: no graphical session, so the box is the
  // terminal's, and a fixed locale.
  static char path[] = "PATH=/usr/bin:/bin";
  static char lang[] = "LANG=C.UTF-8";
  static char* env[] = {path, lang, nullptr};
  const std::string file = program.string();
  char* argv[] = {const_cast<char*>(file.c_str()), nullptr};

  const Clock::time_point start = Clock::now();
  int master = -1;
  const pid_t pid = forkpty(&master, nullptr, nullptr, nullptr);
  if (pid < 0) return -1;
  if (pid == 0) {
    execve(file.c_str(), argv, env);
    _exit(127);
  }
  double seconds = -1;
  std::string screen;
  const Clock::time_point deadline = start + std::chrono::seconds(10);
  while (Clock::now() < deadline) {
    pollfd p{master, POLLIN, 0};
    if (poll(&p, 1, 1000) <= 0) continue;
    char buffer[4096];
    const ssize_t n = read(master, buffer, sizeof buffer);
    if (n <= 0) break;  // the program closed its terminal
    screen.append(buffer, static_cast<std::size_t>(n));
    if (screen.find(awaited) != std::string::npos) {
      seconds = std::chrono::duration<double>(Clock::now() - start).count();
      break;
    }
  }
  if (seconds >= 0 && answer) (void)!write(master, answer, std::char_traits<char>::length(answer));
  // Read on until the terminal closes, so the program never blocks on a full terminal.
  for (;;) {
    pollfd p{master, POLLIN, 0};
    if (poll(&p, 1, 5000) <= 0) break;
    char buffer[4096];
    if (read(master, buffer, sizeof buffer) <= 0) break;
  }
  // The terminal closes a moment before the process is gone: wait for it, within bounds.
  int status = 0;
  pid_t ended = 0;
  for (int i = 0; i < 500 && (ended = waitpid(pid, &status, WNOHANG)) == 0; ++i) usleep(10000);
  if (ended == 0) {
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
    seconds = -1;
  }
  close(master);
  return seconds;
}

double Median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  const std::size_t mid = values.size() / 2;
  return values.size() % 2 ? values[mid] : (values[mid - 1] + values[mid]) / 2;
}

struct Figures {
  double program_us = 0;
  double floor_us = 0;
};
Figures last_figures;

void StartToConfirmation(benchmark::State& state) {
  Portable folder;
  const std::string config_before = ReadAll(folder.config);
  // One start before measuring: the program file and the language file come into the cache.
  if (TimeToText(folder.program, kBoxButtons, "2\r") < 0 ||
      TimeToText(folder.floor, kFloorLine, nullptr) < 0) {
    state.SkipWithError("the confirmation box or the floor's line never came");
    return;
  }
  std::vector<double> program, floor;
  for (auto _ : state) {
    const double f = TimeToText(folder.floor, kFloorLine, nullptr);
    const double p = TimeToText(folder.program, kBoxButtons, "2\r");
    if (p < 0 || f < 0) {
      state.SkipWithError("a start did not show what was awaited");
      return;
    }
    program.push_back(p);
    floor.push_back(f);
    state.SetIterationTime(p);
  }
  if (ReadAll(folder.config) != config_before) {
    state.SkipWithError("the configuration was rewritten: the runs did not all do the same work");
    return;
  }
  last_figures.program_us = Median(program) * 1e6;
  last_figures.floor_us = Median(floor) * 1e6;
  state.counters["TvEject_us"] = last_figures.program_us;
  state.counters["floor_us"] = last_figures.floor_us;
  state.counters["ratio"] = last_figures.program_us / last_figures.floor_us;
}

BENCHMARK(StartToConfirmation)->UseManualTime()->Unit(benchmark::kMicrosecond)->MinTime(1.0);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  if (last_figures.floor_us > 0) {
    std::printf(
        "Start to confirmation box (median): TvEject %.0f us, static one-line program %.0f us, "
        "ratio %.2f\n",
        last_figures.program_us, last_figures.floor_us,
        last_figures.program_us / last_figures.floor_us);
  }
  return 0;
}
