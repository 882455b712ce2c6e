// Ejecting the drive the suite stands on, for the ejecting companion (TvDiskEjector).
//
// The drive is refused, with no action, when it cannot be identified, when it is not
// removable, or when it holds the running system. Otherwise what to eject is the first device
// from the disk upward that may be unplugged (the USB stick, the external reader, the
// composite USB device, never a hub or a host controller), or, when there is none but the
// medium is removable (a card in a built-in reader), only the medium. Every volume that goes
// with it is flushed and the eject requested; any result but success is retried (5 tries,
// 1 s apart, with "/retry") and, if a refusal stands, the report names the processes that hold
// those volumes: the system's veto name, and the processes found using them.
//
//   sys::EjectOptions options;
//   options.tries = sys::kRetryTries;  // "/retry"
//   sys::EjectReport report = sys::EjectDriveOf(suite_folder, options);
//   if (report.outcome == sys::EjectOutcome::kRefused) ... report.blockers ...
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "companions/common/eject_plan.h"
#include "os/apps.h"

namespace sys {

// The system calls the ejector makes, replaceable in tests (the pause above all, so that a
// test of five tries does not wait four seconds).
struct DriveOps {
  std::function<std::u16string(std::u16string_view)> volume_root;
  std::function<bool(std::u16string_view, os::StorageDevice*)> query;
  std::function<bool(const std::vector<std::u16string>&)> flush;
  // Carries out a kDevice or kMedium plan.
  std::function<bool(const EjectPlan&, const os::StorageDevice&, os::EjectAnswer*)> eject;
  std::function<os::VolumeHolders(const std::vector<std::u16string>&)> holders;
  // The system's record of who stopped a removal in the last seconds; none when unset.
  std::function<std::vector<os::RemovalVeto>(std::uint32_t)> vetoes;
  std::function<void(std::uint32_t)> pause;
};

// The seam's functions.
DriveOps SystemDriveOps();

// Adds to holders each process the system recorded as stopping the removal of device (its
// disk or a device above it), unless the search named it already.
void AddRecordedVetoes(os::VolumeHolders& holders, const std::vector<os::RemovalVeto>& vetoes,
                       const os::StorageDevice& device);

inline constexpr int kRetryTries = 5;
inline constexpr std::uint32_t kRetryPauseMs = 1000;

struct EjectOptions {
  int tries = 1;  // kRetryTries with "/retry"
  std::uint32_t pause_ms = kRetryPauseMs;
};

enum class EjectOutcome {
  kRemoved,       // the device is stopped: it may be unplugged
  kMediaEjected,  // the medium was ejected: the drive may be unplugged
  kUnmounted,     // every volume is unmounted; the device has no eject, it is safe to unplug
  kNotRemovable,  // refused: a fixed, network or memory drive
  kSystemDisk,    // refused: the drive holds the running system
  kUnidentified,  // refused: the drive or its device cannot be identified
  kRefused,       // the system refused the eject: veto and blockers tell why
  kFailed,        // the eject failed for another reason (error tells which)
};

struct EjectReport {
  EjectOutcome outcome = EjectOutcome::kFailed;
  os::StorageDevice device;
  EjectPlan plan;
  os::EjectAnswer answer;      // the last answer: what was done, or the veto
  int tries = 0;               // eject requests made
  std::uint32_t error = 0;     // the last error of a failed request, 0 after a veto
  os::VolumeHolders blockers;  // processes holding the drive after a refusal
  std::u16string reason;       // the outcome in plain words
};

// The name of a veto type ("OutstandingOpen", "AlreadyRemoved"), as the platform's PNP_Veto*
// names it.
std::u16string VetoTypeName(std::uint32_t veto_type);

// True for the outcomes after which the drive may be unplugged.
bool SafeToRemove(EjectOutcome outcome);

// Ejects the drive holding path.
EjectReport EjectDriveOf(std::u16string_view path, const EjectOptions& options,
                         const DriveOps& ops = SystemDriveOps());

}  // namespace sys
