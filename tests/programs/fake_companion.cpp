// Stands in for TvAppsClose or TvDiskEjector in the end-to-end runs of TvEject. Copied into a
// portable folder under the companion's name, it appends its arguments as one line to
// "<own file>.args", then follows "<own file>.plan" if there is one:
//   out TEXT   writes TEXT to TvAppsClose.out in its own folder (as the closer does with /out)
//   exit N     ends with exit code N
//   sleep MS   waits MS milliseconds (to see whether it outlives the program that started it)
// Lines are read in order; without a plan it only records.
#ifdef _WIN32
#include <windows.h>
#endif

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "base/text.h"
#include "os/process.h"

namespace fs = std::filesystem;

int main(int argc, char** argv) {
  const fs::path self(os::ModuleFileName());
  std::string args;
#ifdef _WIN32
  // The command line after the program's own name, as the shell handed it over.
  std::u16string line(reinterpret_cast<const char16_t*>(::GetCommandLineW()));
  std::size_t start = line[0] == u'"' ? line.find(u'"', 1) + 1 : line.find(u' ');
  if (start == std::u16string::npos) start = line.size();
  while (start < line.size() && line[start] == u' ') ++start;
  args = base::Narrow(line.substr(start));
#else
  for (int i = 1; i < argc; ++i) args += (i > 1 ? " " : "") + std::string(argv[i]);
#endif
  std::ofstream(fs::path(self).concat(".args"), std::ios::app | std::ios::binary) << args << "\n";
  std::ifstream plan(fs::path(self).concat(".plan"), std::ios::binary);
  int exit_code = 0;
  for (std::string step; std::getline(plan, step);) {
    if (!step.empty() && step.back() == '\r') step.pop_back();
    if (step.starts_with("out "))
      std::ofstream(self.parent_path() / "TvAppsClose.out", std::ios::binary) << step.substr(4);
    if (step.starts_with("exit ")) exit_code = std::stoi(step.substr(5));
    if (step.starts_with("sleep "))
      std::this_thread::sleep_for(std::chrono::milliseconds(std::stoi(step.substr(6))));
  }
  return exit_code;
}
