// A drive for the ejector on a script: `device` answers every path with "Stick" in it or under its
// root (any other lies on the system's disk); each eject is answered in turn from `answers`, the
// last one again and again; a refusal finds an editor (a pid no process has) holding it.
#pragma once

#include <algorithm>
#include <filesystem>

#include "companions/disk_ejector/drive_eject.h"

namespace ejector_test {

constexpr std::uint32_t kEditor = 2147483640;

struct Answer {  // done: kNothing when it failed
  os::EjectDone done;
  std::uint32_t veto;
};
constexpr Answer kUnplugged{os::EjectDone::kRemoved, 0}, kBroken{os::EjectDone::kNothing, 0};
constexpr Answer kBusy{os::EjectDone::kNothing, os::kVetoOutstandingOpen};

inline os::StorageDevice Stick() {
  os::StorageDevice d;
  d.root = u"/media/STICK/", d.disk = u"/dev/sdz", d.drive_type = os::kDriveRemovable;
  d.chain = {{d.disk, true, false}}, d.mount_points = {d.root};
  return d;
}

struct FakeDrive {
  bool found = true, known = true;  // the path has a volume; its device can be asked
  os::StorageDevice device = Stick();
  std::vector<Answer> answers{kUnplugged};
  bool holder = true;          // the editor holds the drive
  int uninspected = 0;         // processes a search could not look at
  std::u16string reused_by{};  // the program that has the editor's pid after the first search
  std::vector<os::RemovalVeto> vetoes{};  // the system's record of stopped removals
  // What happened: the volumes of the last flush and search, the node ejected ("medium"), the
  // path asked about, the working folder at the eject.
  int ejects = 0, flushes = 0, holder_scans = 0;
  std::vector<std::uint32_t> pauses{}, veto_seconds{};
  std::vector<std::u16string> flushed{}, searched{};
  std::u16string ejected{}, asked_for{}, working{};

  void Refuse(int times) {
    answers.assign(times, kBusy);
    answers.push_back(kUnplugged);
  }
  sys::DriveOps Ops() {
    sys::DriveOps ops;
    ops.volume_root = [this](std::u16string_view path) {
      asked_for = std::u16string(path);
      if (!found) return std::u16string();
      const bool on = path.find(u"Stick") != path.npos || path.starts_with(device.root);
      return on ? device.root : u"/";
    };
    ops.query = [this](std::u16string_view, os::StorageDevice* d) { return *d = device, known; };
    ops.flush = [this](const std::vector<std::u16string>& roots) {
      return flushed = roots, ++flushes > 0;
    };
    ops.eject = [this](const sys::EjectPlan& plan, const os::StorageDevice&, os::EjectAnswer* a) {
      working = std::filesystem::current_path().u16string();
      ejected = plan.target == sys::EjectTarget::kMedium ? u"medium" : plan.node;
      const Answer& s = answers[std::min<std::size_t>(ejects++, answers.size() - 1)];
      *a = os::EjectAnswer{s.done, s.veto, s.veto ? u"/media/STICK" : u"", u""};
      if (s.done == os::EjectDone::kNothing && !s.veto) os::SetLastError(os::kErrorAccessDenied);
      return s.done != os::EjectDone::kNothing;
    };
    ops.holders = [this](const std::vector<std::u16string>& roots) {
      os::VolumeHolders found;
      searched = roots;
      const bool reused = holder_scans++ > 0 && !reused_by.empty();
      const char16_t* editor = u"/media/STICK/App/editor";
      const os::VolumeHolder h{{kEditor, 1, reused ? reused_by : editor, u"", 0},
                               os::HoldKind::kProgram,
                               editor,
                               u"",
                               true};
      if (holder) found.processes = {h};
      found.uninspected = uninspected;
      return found;
    };
    ops.vetoes = [this](std::uint32_t seconds) { return veto_seconds.push_back(seconds), vetoes; };
    ops.pause = [this](std::uint32_t ms) { pauses.push_back(ms); };
    return ops;
  }
};

}  // namespace ejector_test
