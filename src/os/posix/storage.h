// The POSIX side's view of volumes and storage devices: the mount table and sysfs.
#pragma once

#include <string>

namespace os::posix {

// One line of /proc/self/mountinfo.
struct Mount {
  std::string mount_point;
  std::string type;    // "vfat", "ext4" ...
  std::string source;  // "/dev/sdb1"
  unsigned major = 0;
  unsigned minor = 0;
};

// The mount whose mount point is exactly `path` (the latest one when several are stacked).
bool FindMount(const std::string& path, Mount* mount);

// The file-system name Windows would give for a Linux file-system type ("vfat" is "FAT32").
std::string FileSystemName(const std::string& type);

// The STORAGE_DEVICE_DESCRIPTOR bytes, with the identity texts after it, of the block device
// whose folder in sysfs is `block` (/sys/devices/.../block/sdb): vendor, model, revision and
// serial number as the kernel reports them, the removable flag, and the bus the path goes
// through.
std::string StorageDescriptor(const std::string& block);

}  // namespace os::posix
