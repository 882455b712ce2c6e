// A drive for the ejector on a script: every path with "Stick" in it lies on it (any other on
// the system's disk); each eject is answered in turn from `answers`, the last one again and
// again; a refusal finds an editor (a pid no process has) holding it.
#pragma once

#include <algorithm>
#include <filesystem>

#include "companions/disk_ejector/drive_eject.h"

namespace ejector_test {

constexpr std::uint32_t kEditor = 2147483640;

struct Answer {
  bool ok;
  os::EjectDone done;
  std::uint32_t veto;
};
constexpr Answer kUnplugged{true, os::EjectDone::kRemoved, 0};
constexpr Answer kEjected{true, os::EjectDone::kMediaEjected, 0};
constexpr Answer kUnmountedOnly{true, os::EjectDone::kUnmounted, 0};
constexpr Answer kBusy{false, os::EjectDone::kNothing, os::kVetoOutstandingOpen};
constexpr Answer kBroken{false, os::EjectDone::kNothing, os::kVetoNone};

struct FakeDrive {
  bool found = true;  // the path has a volume
  bool known = true;  // the device can be asked
  bool removable = true;
  bool system = false;
  bool identified = true;  // the device to eject is known
  std::vector<Answer> answers{kUnplugged};
  bool holder = true;          // the editor holds the drive
  int uninspected = 0;         // processes a search could not look at
  std::u16string reused_by{};  // the program that has the editor's pid after the first search
  std::vector<os::RemovalVeto> vetoes{};  // the system's record of stopped removals
  // What happened.
  int ejects = 0, flushes = 0, holder_scans = 0;
  std::vector<std::uint32_t> pauses{}, veto_seconds{};
  std::u16string asked_for{}, working{};  // the path asked about; the working folder at the eject

  void Refuse(int times) {
    answers.assign(times, kBusy);
    answers.push_back(kUnplugged);
  }
  sys::DriveOps Ops() {
    sys::DriveOps ops;
    ops.volume_root = [this](std::u16string_view path) {
      asked_for = std::u16string(path);
      if (!found) return std::u16string();
      return std::u16string(path.find(u"Stick") != path.npos || path.find(u"STICK") != path.npos
                                ? u"/media/STICK/"
                                : u"/");
    };
    ops.query = [this](std::u16string_view root, os::StorageDevice* d) {
      if (!known) return false;
      d->root = std::u16string(root);
      d->disk = u"/dev/sdz";
      d->drive_type = removable ? os::kDriveRemovable : os::kDriveFixed;
      if (identified) d->chain = {{d->disk, removable, false}};
      if (system) d->system_root = d->root;
      d->mount_points = {d->root};
      return true;
    };
    ops.flush = [this](const std::vector<std::u16string>&) { return ++flushes > 0; };
    ops.eject = [this](const sys::EjectPlan&, const os::StorageDevice&, os::EjectAnswer* a) {
      working = std::filesystem::current_path().u16string();
      const Answer& s = answers[std::min<std::size_t>(ejects++, answers.size() - 1)];
      *a = os::EjectAnswer{};
      a->done = s.done;
      a->veto_type = s.veto;
      if (s.veto) a->veto_name = u"/media/STICK";
      if (!s.ok && !s.veto) os::SetLastError(os::kErrorAccessDenied);
      return s.ok;
    };
    ops.holders = [this](const std::vector<std::u16string>&) {
      os::VolumeHolders found;
      const bool reused = holder_scans++ > 0 && !reused_by.empty();
      if (holder)
        found.processes = {{{kEditor, 1, reused ? reused_by : u"/media/STICK/App/editor", u"", 0},
                            os::HoldKind::kProgram,
                            u"/media/STICK/App/editor",
                            u"",
                            true}};
      found.uninspected = uninspected;
      return found;
    };
    ops.vetoes = [this](std::uint32_t seconds) {
      veto_seconds.push_back(seconds);
      return vetoes;
    };
    ops.pause = [this](std::uint32_t ms) { pauses.push_back(ms); };
    return ops;
  }
};

}  // namespace ejector_test
