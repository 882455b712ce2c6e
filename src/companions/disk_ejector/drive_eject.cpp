#include "companions/disk_ejector/drive_eject.h"

#include <algorithm>

#include "base/debug_log.h"
#include "base/text.h"
#include "base/trap.h"
#include "os/process.h"

namespace sys {
namespace {

std::u16string List(const os::VolumeHolders& holders) {
  std::u16string out;
  for (const auto& h : holders.processes) {
    if (!out.empty()) out += u", ";
    out += (h.process.image.empty() ? u"?" : h.process.image) + u" (" +
           base::ToText(h.process.pid) + u": " + h.held + u")";
  }
  if (holders.uninspected > 0) {
    if (!out.empty()) out += u", ";
    out += base::ToText(holders.uninspected) + u" not inspected";
  }
  return out;
}

// What the plan ejects, for the report.
std::u16string Name(const EjectPlan& plan, const os::StorageDevice& d) {
  return plan.target == EjectTarget::kDevice ? plan.node : DriveName(d);
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
                                           u"InsufficientRights",
                                           u"AlreadyRemoved"};
  if (veto_type < sizeof kNames / sizeof kNames[0]) return kNames[veto_type];
  return u"Veto" + base::ToText(veto_type);
}

bool SafeToRemove(EjectOutcome outcome) {
  return outcome == EjectOutcome::kRemoved || outcome == EjectOutcome::kMediaEjected ||
         outcome == EjectOutcome::kUnmounted;
}

void AddRecordedVetoes(os::VolumeHolders& holders, const std::vector<os::RemovalVeto>& vetoes,
                       const os::StorageDevice& device) {
  for (const os::RemovalVeto& veto : vetoes) {
    const bool ours = std::any_of(device.chain.begin(), device.chain.end(),
                                  [&](const os::DeviceNode& n) {
                                    return base::EqualNoCase(n.id, veto.device);
                                  }) ||
                      base::EqualNoCase(device.disk, veto.device);
    const bool named =
        std::any_of(holders.processes.begin(), holders.processes.end(),
                    [&](const os::VolumeHolder& h) { return h.process.pid == veto.process.pid; });
    if (!ours || named) continue;
    // Never offered for closing: the record may be older than the process now under its pid.
    holders.processes.push_back({veto.process, os::HoldKind::kStopped, veto.device, u"", false});
  }
}

DriveOps SystemDriveOps() {
  DriveOps ops;
  ops.volume_root = [](std::u16string_view path) { return os::GetVolumePathNameW(path); };
  ops.query = [](std::u16string_view root, os::StorageDevice* d) {
    return os::QueryStorageDevice(root, d);
  };
  ops.flush = [](const std::vector<std::u16string>& roots) { return os::FlushVolumes(roots); };
  ops.eject = [](const EjectPlan& plan, const os::StorageDevice& d, os::EjectAnswer* a) {
    return plan.target == EjectTarget::kDevice ? os::RequestDeviceEject(plan.node, plan.volumes, a)
                                               : os::EjectMedium(d.disk, plan.volumes, a);
  };
  ops.holders = [](const std::vector<std::u16string>& roots) {
    return os::ProcessesUsingVolumes(roots);
  };
  ops.vetoes = [](std::uint32_t seconds) { return os::RecentRemovalVetoes(seconds); };
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
    report.plan = PlanEject(device);
    const EjectPlan& plan = report.plan;
    switch (plan.target) {
      case EjectTarget::kSystemDisk:
        report.outcome = EjectOutcome::kSystemDisk;
        report.reason = u"the drive " + root + u" is not ejected: " + plan.rule;
        return report;
      case EjectTarget::kNotRemovable:
        report.outcome = EjectOutcome::kNotRemovable;
        report.reason = u"the drive " + root + u" is not removable: " + plan.rule;
        return report;
      case EjectTarget::kUnidentified:
        report.outcome = EjectOutcome::kUnidentified;
        report.reason = plan.rule;
        return report;
      default:
        break;
    }
    DebugLog(u"Ejecting " + (plan.target == EjectTarget::kDevice ? plan.node : u"the medium") +
             u": " + plan.rule);

    // A refusal often passes (a first "vetoed, reason unknown" is often followed by success),
    // and so may a failure: every result but success is tried again.
    const std::u16string name = Name(plan, device);
    const int tries = std::max(1, options.tries);
    for (int attempt = 1; attempt <= tries; ++attempt) {
      if (!ops.flush(plan.volumes)) DebugLog(u"Flushing the volumes of " + name + u" failed");
      report.tries = attempt;
      if (ops.eject(plan, device, &report.answer)) {
        report.error = 0;
        switch (report.answer.done) {
          case os::EjectDone::kRemoved:
            report.outcome = EjectOutcome::kRemoved;
            report.reason = name + u" is stopped: the drive may be removed";
            break;
          case os::EjectDone::kMediaEjected:
            report.outcome = EjectOutcome::kMediaEjected;
            report.reason = name + u": the medium is ejected, the drive may be removed";
            break;
          default:
            report.outcome = EjectOutcome::kUnmounted;
            report.reason = name + u": every volume is unmounted; the device has no " +
                            u"eject of its own, it is safe to remove";
            break;
        }
        return report;
      }
      const bool vetoed = report.answer.veto_type != os::kVetoNone;
      report.error = vetoed ? 0 : os::GetLastError();
      DebugLog(u"Try " + base::ToText(attempt) + u": " +
               (vetoed ? u"refused (" + VetoTypeName(report.answer.veto_type) + u": " +
                             report.answer.veto_name + u")"
                       : u"failed (error " + base::ToText(report.error) + u")"));
      if (attempt < tries) ops.pause(options.pause_ms);
    }
    if (report.answer.veto_type == os::kVetoNone) {
      report.outcome = EjectOutcome::kFailed;
      report.reason = u"the eject of " + name + u" failed (error " + base::ToText(report.error) +
                      u") after " + base::ToText(report.tries) + u" tries";
      return report;
    }
    report.outcome = EjectOutcome::kRefused;
    report.blockers = ops.holders(plan.volumes);
    // What the system recorded as stopping this device's removal, since the first try, adds
    // the programs the search could not see (a service, another user's program).
    if (ops.vetoes) {
      const std::uint32_t seconds =
          10 + static_cast<std::uint32_t>(tries) * options.pause_ms / 1000;
      AddRecordedVetoes(report.blockers, ops.vetoes(seconds), device);
    }
    report.reason = u"the system refused to eject " + name + u" after " +
                    base::ToText(report.tries) + u" tries (" +
                    VetoTypeName(report.answer.veto_type) + u": " + report.answer.veto_name + u")";
    if (!report.blockers.processes.empty() || report.blockers.uninspected > 0)
      report.reason += u"; held by " + List(report.blockers);
    return report;
  });
}

}  // namespace sys
