// A program for the process-runner tests to start. Options, read in any order:
//   --marker FILE    writes FILE (UTF-8): "pid=", "cwd=", then "arg=" for every argument
//   --sleep MS       waits MS milliseconds before ending (or until the stop file appears)
//   --stop-file FILE ends the wait as soon as FILE exists
//   --exit N         ends with exit code N (default 0)
// Arguments it does not know are only recorded in the marker.
#ifdef _WIN32
#include <windows.h>

#include <shellapi.h>
#else
#include <unistd.h>
#endif

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "base/text.h"

namespace fs = std::filesystem;

namespace {

// The arguments as UTF-16, split by the platform's own rules.
std::vector<std::u16string> Arguments(int argc, char** argv) {
  std::vector<std::u16string> args;
#ifdef _WIN32
  int count = 0;
  LPWSTR* w = ::CommandLineToArgvW(::GetCommandLineW(), &count);
  for (int i = 1; i < count; ++i) args.emplace_back(reinterpret_cast<const char16_t*>(w[i]));
  ::LocalFree(w);
#else
  for (int i = 1; i < argc; ++i) args.push_back(base::Widen(argv[i]));
#endif
  return args;
}

long long ProcessId() {
#ifdef _WIN32
  return static_cast<long long>(::GetCurrentProcessId());
#else
  return static_cast<long long>(getpid());
#endif
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::u16string> args = Arguments(argc, argv);
  std::u16string marker, stop_file;
  long sleep_ms = 0;
  int exit_code = 0;
  for (std::size_t i = 0; i + 1 < args.size(); ++i) {
    if (args[i] == u"--marker") marker = args[i + 1];
    if (args[i] == u"--stop-file") stop_file = args[i + 1];
    if (args[i] == u"--sleep") sleep_ms = std::stol(base::Narrow(args[i + 1]));
    if (args[i] == u"--exit") exit_code = std::stoi(base::Narrow(args[i + 1]));
  }
  if (!marker.empty()) {
    // Written aside and renamed, so a reader never sees half a marker.
    fs::path target(marker);
    fs::path temp = target;
    temp += ".part";
    {
      std::ofstream out(temp, std::ios::binary | std::ios::trunc);
      out << "pid=" << ProcessId() << "\n";
      out << "cwd=" << base::Narrow(fs::current_path().u16string()) << "\n";
      for (const auto& a : args) out << "arg=" << base::Narrow(a) << "\n";
    }
    fs::rename(temp, target);
  }
  auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(sleep_ms);
  while (std::chrono::steady_clock::now() < until) {
    std::error_code ec;
    if (!stop_file.empty() && fs::exists(fs::path(stop_file), ec)) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return exit_code;
}
