// The POSIX side's view of mounts and block devices: the mount table (/proc/self/mountinfo),
// the block device and whole disk behind a mount (sysfs), the removable rule, unmounting and
// udisks2. Used by volumes.cpp; the parsing is kept apart so that it can be tested on text.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "os/apps.h"

namespace os::posix {

// One line of /proc/self/mountinfo, its escapes (\040 ...) decoded.
struct MountEntry {
  std::uint32_t major = 0;
  std::uint32_t minor = 0;
  std::string mount_point;  // no trailing "/" except for "/" itself
  std::string fs_type;
  std::string source;
};

// Decodes the octal escapes the kernel writes for " ", "\t", "\n" and "\" in mount fields.
std::string UnescapeMountField(std::string_view field);

// Parses mountinfo text; malformed lines are skipped.
std::vector<MountEntry> ParseMountInfo(std::string_view text);

// The current mount table; empty when it cannot be read (last error set).
std::vector<MountEntry> ReadMountTable();

// True when path is folder or lies below it, comparing whole components ("/a/bc" is not under
// "/a/b"). Both are absolute, without trailing "/" (except "/").
bool PathIsUnder(std::string_view path, std::string_view folder);

// The entry whose mount point holds the absolute path: the longest matching mount point, and
// of several mounts on the same point the last (the one on top). -1 when none.
int FindMountFor(const std::vector<MountEntry>& table, std::string_view path);

// The absolute, symlink-free form of path; a path that does not exist resolves through its
// nearest existing folder. "" on failure.
std::string ResolvePath(std::string_view path);

// The block device number behind a mount: its own major:minor, or for file systems that show
// an anonymous device (btrfs) the device node named as source. 0 when there is none.
dev_t MountDevice(const MountEntry& entry);

// A block device and the whole disk it belongs to, as sysfs describes them.
struct BlockDevice {
  std::string name;       // kernel name: "sdb1", "loop3"
  std::string node;       // "/dev/sdb1"
  std::string disk_name;  // "sdb" (the device itself when it is a whole disk)
  std::string disk_node;  // "/dev/sdb"
  std::string disk_sys;   // "/sys/devices/.../block/sdb"
  dev_t disk_dev = 0;
  bool removable_flag = false;  // /sys/block/<disk>/removable is 1
  bool usb = false;             // an ancestor device of the disk is on the usb bus
};

// Describes the block device dev; false when sysfs has no such block device.
bool DescribeBlockDevice(dev_t dev, BlockDevice* out);

// The device numbers of a disk and of each of its partitions.
std::vector<dev_t> DiskAndPartitions(const BlockDevice& device);

// What udisks2 did with a device.
enum class UdisksStatus {
  kUnavailable,  // no system bus, or the service neither runs nor can be started
  kDone,         // answer->done tells what
  kRefused,      // a volume is busy: answer->veto_* set
  kFailed,       // the service answered with another error (the caller falls back)
};

// Through udisks2's D-Bus interface: Filesystem.Unmount on each mounted block device of
// `volumes` (kernel names), then Drive.PowerOff when the drive can, else Drive.Eject when it
// is ejectable, else nothing more (done = kUnmounted).
UdisksStatus UdisksEject(const std::string& disk_name, const std::vector<std::string>& volumes,
                         EjectAnswer* answer);

// udisks2's object path element for a kernel name (udisks escapes all but [A-Za-z0-9_]).
std::string UdisksObjectName(std::string_view kernel_name);

}  // namespace os::posix
