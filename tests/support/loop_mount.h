// A FAT file system (ext2 where the kernel has no FAT driver) in an image file, attached to a loop
// device and mounted inside a test's temporary folder: the only "drive" a test can make, unmount
// and eject. Needs root and loop devices; Create says why when it cannot, for GTEST_SKIP.
//
//   testing_support::LoopMount drive;
//   std::string why;
//   if (!drive.Create(temp, &why)) GTEST_SKIP() << why;
#pragma once

#include <string>

#include "support/temp_dir.h"

namespace testing_support {

class LoopMount {
 public:
  LoopMount() = default;
  ~LoopMount();  // unmounts if still mounted and detaches the loop device
  LoopMount(const LoopMount&) = delete;
  LoopMount& operator=(const LoopMount&) = delete;

  // Makes an 8 MB image in dir, attaches and mounts it at dir/"mnt". False with the reason
  // when loop devices, mkfs.vfat or mount are not available or not permitted.
  bool Create(const TempDir& dir, std::string* why);
  // The mount point, without a trailing separator.
  const std::u16string& mount_point() const { return mount_point_; }
  // The loop device ("/dev/loop3").
  const std::u16string& device() const { return device_; }
  // "vfat" or "ext2".
  const std::string& fs_type() const { return fs_type_; }
  // True while the image is mounted at mount_point.
  bool Mounted() const;

 private:
  std::u16string mount_point_;
  std::u16string device_;
  std::string fs_type_;
};

}  // namespace testing_support
