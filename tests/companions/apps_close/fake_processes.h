// A process table for the closer on a fake clock: each process ends a given time after it is
// asked to close (never when -1), or when ended by force. Its ids are far from any real one (the
// closer always spares its own and its parent's).
#pragma once

#include <algorithm>
#include <map>

#include "companions/apps_close/app_closer.h"

namespace closer_test {

constexpr std::uint32_t kFake = 0x7FFF0000u;

struct FakeProcesses {
  struct Proc {
    os::ProcessEntry entry;
    std::int64_t ends_after = -1;  // ms after the request; -1: ignores it
    int windows = 1;               // what a close request answers
    std::int64_t asked_at = -1;
    bool alive = true, console_too = false;  // console_too: the request may close its console
  };
  std::map<std::uint32_t, Proc> procs;
  std::uint32_t now = 4294960000u, slept = 0;  // near the wrap of the 32-bit clock on purpose
  int terminated = 0;
  bool unreadable = false;

  void Add(std::uint32_t n, std::u16string image, std::int64_t ends_after, int windows = 1) {
    procs[kFake + n] = Proc{{kFake + n, 1, std::move(image), u"tester", 1}, ends_after, windows};
  }
  Proc& operator[](std::uint32_t n) { return procs[kFake + n]; }
  // The ids asked to close, less kFake.
  std::vector<std::uint32_t> Asked() const {
    std::vector<std::uint32_t> out;
    for (const auto& [pid, p] : procs)
      if (p.asked_at >= 0) out.push_back(pid - kFake);
    return out;
  }
  bool Running(Proc& p) {
    if (p.asked_at >= 0 && p.ends_after >= 0 &&
        static_cast<std::uint32_t>(now - static_cast<std::uint32_t>(p.asked_at)) >= p.ends_after)
      p.alive = false;
    return p.alive;
  }
  sys::ProcessOps Ops() {
    sys::ProcessOps ops;
    ops.enumerate = [this] {
      std::vector<os::ProcessEntry> out;
      for (auto& [pid, p] : procs)
        if (!unreadable && Running(p)) out.push_back(p.entry);
      return out;
    };
    ops.open = [this](const os::ProcessEntry& e, sys::HeldProcess* held) {
      const auto found = procs.find(e.pid);
      if (found == procs.end() || !found->second.alive || found->second.entry.image != e.image)
        return false;
      Proc* p = &found->second;
      held->request_close = [this, p](bool console_too) {
        p->console_too = console_too, p->asked_at = now;
        return p->windows;
      };
      held->running = [this, p] { return Running(*p); };
      held->terminate = [this, p] { return ++terminated, !(p->alive = false); };
      return true;
    };
    ops.own_user = [] { return u"tester"; };
    ops.now = [this] { return now; };
    ops.sleep = [this](std::uint32_t ms) { now += ms, slept += ms; };
    return ops;
  }
};

// The ids of processes, sorted, less kFake when they are fake.
inline std::vector<std::uint32_t> Pids(const std::vector<os::ProcessEntry>& processes) {
  std::vector<std::uint32_t> out;
  for (const auto& p : processes) out.push_back(p.pid >= kFake ? p.pid - kFake : p.pid);
  std::sort(out.begin(), out.end());
  return out;
}

}  // namespace closer_test
