// The open files and devices of the POSIX side of the seam, by handle. Sharing modes are not
// emulated: an open is refused only where POSIX refuses it.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>

#include "os/types.h"

namespace os::posix {

struct OpenFile {
  int fd = -1;
  std::uint32_t access = 0;  // kGenericRead / kGenericWrite
  std::string sysfs;         // for a volume's device: its block device folder in /sys
};

// Takes ownership of the entry and hands back its handle.
Handle AddOpenFile(std::shared_ptr<OpenFile> file);
// The entry of a handle, or null.
std::shared_ptr<OpenFile> FindOpenFile(Handle handle);
// Removes and returns the entry of a handle, or null.
std::shared_ptr<OpenFile> RemoveOpenFile(Handle handle);

// The block device folder in /sys (/sys/devices/.../block/sdb) of the volume a drive letter
// stands for, or false with the last error set.
bool VolumeBlockDevice(char16_t letter, std::string* sysfs);

}  // namespace os::posix
