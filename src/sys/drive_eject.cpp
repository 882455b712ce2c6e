#include "sys/drive_eject.h"

#include <algorithm>

#include "base/debug_log.h"
#include "base/text.h"
#include "base/trap.h"
#include "os/process.h"

namespace sys {
namespace {

std::u16string List(const std::vector<os::ProcessEntry>& processes) {
  std::u16string out;
  for (const auto& p : processes) {
    if (!out.empty()) out += u", ";
    out += (p.image.empty() ? u"?" : p.image) + u" (" + base::ToText(p.pid) + u")";
  }
  return out;
}

std::u16string Name(const os::StorageDevice& d) {
  return d.disk.empty() ? d.root : d.disk;
}

}  // namespace

std::u16string VetoTypeName(std::uint32_t veto_type) {
  static const char16_t* const kNames[] = {u"Unknown",
                                           u"LegacyDevice",
                                           u"PendingClose",
                                           u"WindowsApp",
                                           u"WindowsService",
                                           u"OutstandingOpen",
                                           u"Device",
                                           u"Driver",
                                           u"IllegalDeviceRequest",
                                           u"InsufficientPower",
                                           u"NonDisableable",
                                           u"LegacyDriver",
                                           u"InsufficientRights"};
  if (veto_type < sizeof kNames / sizeof kNames[0]) return kNames[veto_type];
  return u"Veto" + base::ToText(veto_type);
}

bool SafeToRemove(EjectOutcome outcome) {
  return outcome == EjectOutcome::kRemoved || outcome == EjectOutcome::kMediaEjected ||
         outcome == EjectOutcome::kUnmounted;
}

DriveOps SystemDriveOps() {
  DriveOps ops;
  ops.volume_root = [](std::u16string_view path) { return os::GetVolumePathNameW(path); };
  ops.query = [](std::u16string_view root, os::StorageDevice* d) {
    return os::QueryStorageDevice(root, d);
  };
  ops.flush = [](const os::StorageDevice& d) { return os::FlushVolumes(d); };
  ops.eject = [](const os::StorageDevice& d, os::EjectAnswer* a) {
    return os::RequestDeviceEject(d, a);
  };
  ops.holders = [](const std::vector<std::u16string>& roots) {
    return os::ProcessesUsingVolumes(roots);
  };
  ops.pause = [](std::uint32_t ms) { os::Sleep(ms); };
  return ops;
}

EjectReport EjectDriveOf(std::u16string_view path, const EjectOptions& options,
                         const DriveOps& ops) {
  EjectReport failed;
  failed.reason = u"the drive could not be ejected";
  return base::Trap(base::InFunction(u"mDiskEjector.EjectDriveOf"), failed, [&] {
    EjectReport report;
    const std::u16string root = ops.volume_root(path);
    if (root.empty()) {
      report.outcome = EjectOutcome::kUnidentified;
      report.reason = u"no drive can be found for " + std::u16string(path);
      return report;
    }
    if (!ops.query(root, &report.device)) {
      report.outcome = EjectOutcome::kUnidentified;
      report.reason = u"the drive " + root + u" cannot be identified";
      return report;
    }
    const os::StorageDevice& device = report.device;
    if (device.system) {
      report.outcome = EjectOutcome::kSystemDisk;
      report.reason = u"the drive " + root + u" is not ejected: " + device.rule;
      return report;
    }
    if (!device.removable) {
      report.outcome = EjectOutcome::kNotRemovable;
      report.reason = u"the drive " + root + u" is not removable: " + device.rule;
      return report;
    }
    if (device.parent.empty()) {
      report.outcome = EjectOutcome::kUnidentified;
      report.reason = u"the device behind " + root + u" cannot be identified";
      return report;
    }

    const int tries = std::max(1, options.tries);
    for (int attempt = 1; attempt <= tries; ++attempt) {
      if (!ops.flush(device)) DebugLog(u"Flushing " + root + u" failed");
      report.tries = attempt;
      if (ops.eject(device, &report.answer)) {
        switch (report.answer.done) {
          case os::EjectDone::kRemoved:
            report.outcome = EjectOutcome::kRemoved;
            report.reason = Name(device) + u" is stopped: the drive may be removed";
            break;
          case os::EjectDone::kMediaEjected:
            report.outcome = EjectOutcome::kMediaEjected;
            report.reason = Name(device) + u": the medium is ejected, the drive may be removed";
            break;
          default:
            report.outcome = EjectOutcome::kUnmounted;
            report.reason = Name(device) + u": every volume is unmounted; the device has no " +
                            u"eject of its own, it is safe to remove";
            break;
        }
        return report;
      }
      if (report.answer.veto_type == os::kVetoNone) {
        report.error = os::GetLastError();
        report.outcome = EjectOutcome::kFailed;
        report.reason = u"the eject of " + Name(device) + u" failed (error " +
                        base::ToText(report.error) + u")";
        return report;
      }
      if (attempt < tries) ops.pause(options.pause_ms);
    }
    report.outcome = EjectOutcome::kRefused;
    report.blockers = ops.holders(device.mount_points);
    report.reason = u"the system refused to eject " + Name(device) + u" after " +
                    base::ToText(report.tries) + u" tries (" +
                    VetoTypeName(report.answer.veto_type) + u": " + report.answer.veto_name + u")";
    if (!report.blockers.empty()) report.reason += u"; held by " + List(report.blockers);
    return report;
  });
}

}  // namespace sys
