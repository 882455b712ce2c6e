#include "companions/common/eject_plan.h"

#include <algorithm>

#include "base/text.h"

namespace sys {
namespace {

bool HoldsSystem(const os::StorageDevice& d) {
  if (!d.system_root.empty() && base::EqualNoCase(d.system_root, d.root)) return true;
  // Disks, floppies and optical drives are numbered apart: floppy 0 is not disk 0.
  return d.device_class != os::DeviceClass::kUnknown && d.device_class == d.system_class &&
         d.device_number != 0xFFFFFFFF && d.device_number == d.system_number;
}

bool Contains(const std::vector<std::u16string>& ids, std::u16string_view id) {
  return std::any_of(ids.begin(), ids.end(),
                     [&](const std::u16string& i) { return base::EqualNoCase(i, id); });
}

}  // namespace

std::u16string DriveName(const os::StorageDevice& d) {
  return d.disk.empty() ? d.root : d.disk;
}

bool Ejects(const EjectPlan& plan) {
  return plan.target == EjectTarget::kDevice || plan.target == EjectTarget::kMedium;
}

EjectPlan PlanEject(const os::StorageDevice& d) {
  EjectPlan plan;
  plan.root = d.root;
  auto refuse = [&](EjectTarget target, std::u16string rule) {
    plan.target = target;
    plan.rule = std::move(rule);
    return plan;
  };
  if (d.drive_type == os::kDriveRemote)
    return refuse(EjectTarget::kNotRemovable, d.root + u" is a network drive");
  if (d.drive_type == os::kDriveRamdisk)
    return refuse(EjectTarget::kNotRemovable, d.root + u" lives in memory");
  if (HoldsSystem(d))
    return refuse(EjectTarget::kSystemDisk, DriveName(d) + u" holds the running system");

  // The first device that may be unplugged takes every disk below it along: all slots of a
  // card reader, all partitions of a disk. Its parents (a hub, a host controller) are never
  // asked: stopping them would stop other devices, or be vetoed.
  for (const auto& node : d.chain) {
    if (!node.removable) continue;
    plan.target = EjectTarget::kDevice;
    plan.node = node.id;
    plan.volumes = d.mount_points;
    for (const auto& other : d.other_volumes)
      if (Contains(other.chain, node.id) && !Contains(plan.volumes, other.root))
        plan.volumes.push_back(other.root);
    plan.rule = d.root + u" is on " + node.id + u", a device that may be unplugged";
    return plan;
  }
  // A built-in reader cannot be unplugged: stopping it would lose it until the next start.
  // Its card can be taken out.
  if (d.removable_media) {
    plan.target = EjectTarget::kMedium;
    plan.volumes = d.mount_points;
    plan.rule = d.root + u" holds a removable medium in a device that stays";
    return plan;
  }
  if (d.chain.empty() && (d.drive_type == os::kDriveRemovable || d.bus_type == os::kBusUsb))
    return refuse(EjectTarget::kUnidentified,
                  u"the device behind " + d.root + u" cannot be identified");
  return refuse(EjectTarget::kNotRemovable,
                DriveName(d) +
                    u" is a fixed disk (no device above it may be unplugged, its medium " +
                    u"is not removable)");
}

}  // namespace sys
