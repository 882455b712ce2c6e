// What ejecting the suite's drive would mean, decided from what the system says about it:
// the ejector acts on it, and the closer closes the applications of every volume it takes along.
#pragma once

#include <string>
#include <vector>

#include "os/apps.h"

namespace sys {

// What to do with a drive, decided from what the system says about it.
enum class EjectTarget {
  kDevice,        // eject the device node `node`, and every volume below it
  kMedium,        // eject only the medium of the disk; the reader stays
  kNotRemovable,  // refuse: a fixed, network or memory drive
  kSystemDisk,    // refuse: the drive holds the running system
  kUnidentified,  // refuse: removable, but the device to eject cannot be found
};

struct EjectPlan {
  EjectTarget target = EjectTarget::kUnidentified;
  std::u16string root;  // the drive asked about
  std::u16string node;  // kDevice: the device instance id to eject
  // The volumes that go with the eject, the drive's own first: flushed before it, searched
  // for holders after a refusal, and whose applications the closer closes.
  std::vector<std::u16string> volumes;
  std::u16string rule;  // why, in plain words
};

// True for the targets the ejector acts on.
bool Ejects(const EjectPlan& plan);

// What to eject, from the facts alone: the system's disk is refused; else the first device
// of the chain that is removable, with every volume whose disk lies below it; else the medium
// of a disk that says its medium is removable; else a drive that looks removable but whose
// device cannot be found is unidentified, and anything else is not removable.
EjectPlan PlanEject(const os::StorageDevice& facts);

// The name a report gives a drive: its disk, else its root.
std::u16string DriveName(const os::StorageDevice& d);

}  // namespace sys
