// A program that waits, for the tests that start, close, count and scan processes.
//
//   sleeper [--ready FILE] [--ignore-close] [--close-delay MS] [--open FILE] [--map FILE]
//           [--pipe] [--marker FILE] [--stop-file FILE] [--life SECONDS] [--exit N]
//
// --ready FILE       writes FILE once its signal handling is in place (a SIGTERM sent before
//                    that would end it whatever --ignore-close says)
// --ignore-close     ignores SIGTERM (the polite request to close), like an application that
//                    will not be closed politely
// --close-delay MS   ends MS milliseconds after SIGTERM, like one that saves first
// --open FILE        keeps FILE open for writing while it runs
// --map FILE         keeps FILE mapped into its memory, with no file left open (POSIX only)
// --pipe             keeps a thread blocked reading a pipe, whose handle a search must not
//                    try to name (naming it would block too)
// --marker FILE      writes FILE (UTF-8, whole or not at all): "pid=", "cwd=", then "arg=" for
//                    every argument, known or not
// --stop-file FILE   ends as soon as FILE exists
// --life SECONDS     ends by itself after that long (120 by default), so that nothing is left
//                    behind by a test that failed half-way
// --exit N           ends with exit code N (0 by default)
#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "options.h"
#include "os/apps.h"

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#else
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace {
std::atomic<bool> terminated{false};
extern "C" void OnTerm(int) {
  terminated = true;
}
}  // namespace

int main() {
  const helper::Options options;
  const long term_delay_ms = options.Number(u"--close-delay", -1);
  const std::u16string ready = options.Text(u"--ready"), open_file = options.Text(u"--open");
  const std::string map_file = base::Narrow(options.Text(u"--map"));
  int ends[2];
#ifdef _WIN32
  const bool piped = options.Has(u"--pipe") && _pipe(ends, 64, _O_BINARY) == 0;
#else
  const bool piped = options.Has(u"--pipe") && ::pipe(ends) == 0;
#endif
  static char byte;
  if (piped) std::thread([fd = ends[0]] { (void)!::read(fd, &byte, 1); }).detach();
  if (options.Has(u"--ignore-close"))
    std::signal(SIGTERM, SIG_IGN);
  else if (term_delay_ms >= 0)
    std::signal(SIGTERM, OnTerm);
  std::ofstream held;
  if (!open_file.empty()) held.open(std::filesystem::path(open_file), std::ios::app);
#ifndef _WIN32
  if (!map_file.empty()) {
    std::ofstream(map_file, std::ios::app) << "mapped\n";
    const int fd = open(map_file.c_str(), O_RDONLY);
    if (fd < 0 || mmap(nullptr, 7, PROT_READ, MAP_SHARED, fd, 0) == MAP_FAILED) return 2;
    close(fd);
  }
#endif
  if (!ready.empty()) std::ofstream(std::filesystem::path(ready)) << "ready\n";
  if (const std::u16string marker = options.Text(u"--marker"); !marker.empty()) {
    const std::filesystem::path part = std::filesystem::path(marker).concat(".part");
    {
      std::ofstream out(part, std::ios::binary);
      out << "pid=" << os::GetCurrentProcessId()
          << "\ncwd=" << base::Narrow(std::filesystem::current_path().u16string()) << "\n";
      for (const auto& a : options.all) out << "arg=" << base::Narrow(a) << "\n";
    }
    std::filesystem::rename(part, std::filesystem::path(marker));
  }
  const std::u16string stop = options.Text(u"--stop-file");
  std::error_code ec;

  const auto end =
      std::chrono::steady_clock::now() + std::chrono::seconds(options.Number(u"--life", 120));
  while (std::chrono::steady_clock::now() < end && !terminated &&
         !(stop.size() && std::filesystem::exists(stop, ec)))
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  if (terminated) std::this_thread::sleep_for(std::chrono::milliseconds(term_delay_ms));
  return static_cast<int>(options.Number(u"--exit", 0));
}
