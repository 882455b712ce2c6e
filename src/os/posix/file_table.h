// The open files and devices of the POSIX side of the seam, with the sharing modes they were
// opened with, so that this process sees the sharing violations Windows would report.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>

#include "os/types.h"

namespace os::posix {

struct OpenFile {
  int fd = -1;
  dev_t device = 0;
  ino_t inode = 0;
  std::uint32_t access = 0;  // kGenericRead / kGenericWrite
  std::uint32_t share = 0;   // kFileShare* bits
  std::string sysfs;         // for a volume's device: its block device folder in /sys
};

// Takes ownership of the entry and hands back its handle.
Handle AddOpenFile(std::shared_ptr<OpenFile> file);
// The entry of a handle, or null.
std::shared_ptr<OpenFile> FindOpenFile(Handle handle);
// Removes and returns the entry of a handle, or null.
std::shared_ptr<OpenFile> RemoveOpenFile(Handle handle);

// True when an open entry of the same file forbids an open with this access and sharing.
bool SharingConflict(dev_t device, ino_t inode, std::uint32_t access, std::uint32_t share);
// True when an open entry of the file forbids deleting or renaming it.
bool DeleteConflict(dev_t device, ino_t inode);

// The block device folder in /sys (/sys/devices/.../block/sdb) of the volume a drive letter
// stands for, or false with the last error set.
bool VolumeBlockDevice(char16_t letter, std::string* sysfs);

}  // namespace os::posix
