// The POSIX side's view of storage devices in sysfs, and the names of file systems.
#pragma once

#include <string>

namespace os::posix {

// The file-system name Windows would give for a Linux file-system type ("vfat" is "FAT32").
std::string FileSystemName(const std::string& type);

// The STORAGE_DEVICE_DESCRIPTOR bytes, with the identity texts after it, of the block device
// whose folder in sysfs is `block` (/sys/devices/.../block/sdb): vendor, model, revision and
// serial number as the kernel reports them, the removable flag, and the bus the path goes
// through.
std::string StorageDescriptor(const std::string& block);

}  // namespace os::posix
