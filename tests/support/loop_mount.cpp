#include "support/loop_mount.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "base/text.h"

#ifndef _WIN32
#include <unistd.h>
#endif

namespace testing_support {

#ifdef _WIN32

LoopMount::~LoopMount() = default;
bool LoopMount::Create(const TempDir&, std::string* why) {
  *why = "loop-mounted drives exist only on Linux";
  return false;
}
bool LoopMount::Mounted() const {
  return false;
}

#else

namespace {

// Runs a shell command quietly; true on exit status 0.
bool Run(const std::string& command) {
  return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

}  // namespace

bool LoopMount::Create(const TempDir& dir, std::string* why) {
  if (geteuid() != 0) {
    *why = "mounting a loop device needs root; this test runs as a user";
    return false;
  }
  const std::string image = (dir.path() / "drive.img").string();
  const std::string mount_point = (dir.path() / "mnt").string();
  std::filesystem::create_directories(mount_point);
  // FAT, as on a stick; ext2 when the kernel has no FAT driver (some virtual machines).
  std::ifstream filesystems("/proc/filesystems");
  const bool fat = std::string(std::istreambuf_iterator<char>(filesystems), {}).find("\tvfat\n") !=
                   std::string::npos;
  fs_type_ = fat ? "vfat" : "ext2";
  const std::string mkfs = fat ? "mkfs.vfat -C " + image + " 8192"
                               : "truncate -s 8M " + image + " && mkfs.ext2 -q -F " + image;
  if (!Run(mkfs)) {
    *why = fat ? "mkfs.vfat (dosfstools) is missing or failed" : "mkfs.ext2 failed";
    return false;
  }
  const bool attached =
      std::system(("losetup --find --show " + image + " > " + image + ".dev").c_str()) == 0;
  std::string device = dir.Read(u"drive.img.dev");
  while (!device.empty() && device.back() == '\n') device.pop_back();
  if (!attached || device.empty()) {
    *why = "no loop device could be attached (losetup failed: none free, or not permitted here)";
    return false;
  }
  device_ = base::Widen(device);
  if (!Run("mount -t " + fs_type_ + " " + device + " " + mount_point)) {
    *why = "mount -t " + fs_type_ + " of " + device + " was refused here";
    Run("losetup -d " + device);
    device_.clear();
    return false;
  }
  mount_point_ = base::Widen(mount_point);
  return true;
}

bool LoopMount::Mounted() const {
  if (mount_point_.empty()) return false;
  std::ifstream in("/proc/self/mountinfo");
  std::string line;
  const std::string needle = " " + base::Narrow(mount_point_) + " ";
  while (std::getline(in, line))
    if (line.find(needle) != std::string::npos) return true;
  return false;
}

LoopMount::~LoopMount() {
  if (Mounted()) Run("umount " + base::Narrow(mount_point_));
  if (!device_.empty()) Run("losetup -d " + base::Narrow(device_));
}

#endif

}  // namespace testing_support
