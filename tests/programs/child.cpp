// A program for the process-runner tests to start. Options, read in any order:
//   --marker FILE    writes FILE (UTF-8): "pid=", "cwd=", then "arg=" for every argument
//   --sleep MS       waits MS milliseconds before ending (or until the stop file appears)
//   --stop-file FILE ends the wait as soon as FILE exists
//   --exit N         ends with exit code N (default 0)
// Arguments it does not know are only recorded in the marker.
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "options.h"
#include "os/apps.h"

namespace fs = std::filesystem;

int main() {
  const helper::Options options;
  const std::u16string marker = options.Text(u"--marker"), stop = options.Text(u"--stop-file");
  if (!marker.empty()) {
    // Written aside and renamed, so a reader never sees half a marker.
    const fs::path temp = fs::path(marker).concat(".part");
    {
      std::ofstream out(temp, std::ios::binary | std::ios::trunc);
      out << "pid=" << os::GetCurrentProcessId() << "\n";
      out << "cwd=" << base::Narrow(fs::current_path().u16string()) << "\n";
      for (const auto& a : options.all) out << "arg=" << base::Narrow(a) << "\n";
    }
    fs::rename(temp, fs::path(marker));
  }
  const auto until =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(options.Number(u"--sleep", 0));
  std::error_code ec;
  while (std::chrono::steady_clock::now() < until && !(stop.size() && fs::exists(stop, ec)))
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  return static_cast<int>(options.Number(u"--exit", 0));
}
