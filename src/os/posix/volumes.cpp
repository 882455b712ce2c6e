// POSIX side of the seam, volumes: the mount point behind a path plays the part of the drive
// root, sysfs tells what its disk is (on the usb bus, removable medium), and the eject is an
// unmount of every volume of the disk followed by udisks2's power-off, or the block device's
// own eject.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/cdrom.h>
#include <scsi/sg.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <mutex>
#include <set>
#include <sstream>

#include "base/text.h"
#include "os/apps.h"
#include "os/posix/mounts.h"
#include "os/posix/native.h"
#include "os/side.h"

extern char** environ;

namespace os {
namespace {

std::u16string RootText(const std::string& mount_point) {
  return base::Widen(mount_point == "/" ? mount_point : mount_point + "/");
}

// A root as the seam hands it out ("/media/u/STICK/") back to a mount point.
std::string MountPointOf(std::u16string_view root) {
  std::string p = posix::NativePath(root);
  while (p.size() > 1 && p.back() == '/') p.pop_back();
  return p;
}

bool IsRemoteType(const std::string& t) {
  static const char* const kRemote[] = {"nfs",   "nfs4", "cifs", "smb3", "smbfs",
                                        "ncpfs", "afs",  "9p",   "ceph", "glusterfs"};
  for (const char* r : kRemote)
    if (t == r) return true;
  return t.rfind("fuse.sshfs", 0) == 0;
}

bool IsRamType(const std::string& t) {
  return t == "tmpfs" || t == "ramfs";
}

// The device numbers of the disk that holds "/", 0 when "/" has no block device behind it.
dev_t SystemDisk(const std::vector<posix::MountEntry>& table) {
  int root = posix::FindMountFor(table, "/");
  if (root < 0) return 0;
  posix::BlockDevice d;
  return posix::DescribeBlockDevice(posix::MountDevice(table[root]), &d) ? d.disk_dev : 0;
}

// Runs the umount program (setuid, so that a user may unmount what fstab lets users mount).
bool RunUmountProgram(const std::string& mount_point) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  char program[] = "umount";
  std::string target = mount_point;
  char* argv[] = {program, target.data(), nullptr};
  pid_t pid = 0;
  int rc = posix_spawnp(&pid, "umount", &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) return false;
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool StillMounted(const std::string& mount_point) {
  for (const auto& e : posix::ReadMountTable())
    if (e.mount_point == mount_point) return true;
  return false;
}

// Unmounts one mount point, and every mount stacked on it. Never lazily (MNT_DETACH): a
// detached file system stays in use and the device is not safe to remove at all.
bool Unmount(const std::string& mount_point, EjectAnswer* answer) {
  for (int layer = 0; layer < 16 && StillMounted(mount_point); ++layer) {
    if (umount2(mount_point.c_str(), 0) == 0) continue;
    int e = errno;
    if (e == EINVAL && !StillMounted(mount_point)) return true;
    if (e == EBUSY) {
      answer->veto_type = kVetoOutstandingOpen;
      answer->veto_name = base::Widen(mount_point);
      return false;
    }
    if (e == EPERM && RunUmountProgram(mount_point)) continue;
    if (e == EPERM) {
      // The umount program says only that it failed: busy when someone holds the mount.
      bool held = !ProcessesUsingVolumes({RootText(mount_point)}).processes.empty();
      answer->veto_type = held ? kVetoOutstandingOpen : kVetoInsufficientRights;
      answer->veto_name = base::Widen(mount_point);
      return false;
    }
    errno = e;
    posix::SetLastErrorFromErrno();
    return false;
  }
  return true;
}

// The eject of a block device whose volumes are all unmounted: CDROMEJECT for an optical
// drive, else SCSI ALLOW MEDIUM REMOVAL and START STOP UNIT with LoEj, which USB sticks and
// card readers understand. A device without either (loop, nvme, mmc) has no eject: its
// volumes are unmounted and that is all that can be done.
EjectDone EjectBlockDevice(const std::string& node, std::u16string* method) {
  int fd = open(node.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    *method = u"umount (the device could not be opened for its eject)";
    return EjectDone::kUnmounted;
  }
  if (ioctl(fd, CDROMEJECT, 0) == 0) {
    close(fd);
    *method = u"umount + CDROMEJECT";
    return EjectDone::kMediaEjected;
  }
  auto scsi = [fd](unsigned char op, unsigned char byte4) {
    unsigned char cdb[6] = {op, 0, 0, 0, byte4, 0};
    unsigned char sense[32] = {};
    sg_io_hdr_t io{};
    io.interface_id = 'S';
    io.dxfer_direction = SG_DXFER_NONE;
    io.cmdp = cdb;
    io.cmd_len = sizeof cdb;
    io.sbp = sense;
    io.mx_sb_len = sizeof sense;
    io.timeout = 10000;
    return ioctl(fd, SG_IO, &io) == 0 && io.status == 0 && io.host_status == 0 &&
           io.driver_status == 0;
  };
  bool ejected = scsi(0x1E, 0x00) && scsi(0x1B, 0x02);
  close(fd);
  *method = ejected ? u"umount + SCSI START STOP UNIT" : u"umount (the device has no eject)";
  return ejected ? EjectDone::kMediaEjected : EjectDone::kUnmounted;
}

bool IsUnderAny(const std::string& path, const std::vector<std::string>& roots) {
  if (path.empty() || path[0] != '/') return false;
  for (const auto& r : roots)
    if (posix::PathIsUnder(path, r)) return true;
  return false;
}

std::string Link(const std::string& path) {
  char buf[PATH_MAX + 1];
  ssize_t n = readlink(path.c_str(), buf, PATH_MAX);
  if (n <= 0) return std::string();
  std::string t(buf, static_cast<std::size_t>(n));
  constexpr std::string_view kDeleted = " (deleted)";
  if (t.size() > kDeleted.size() && t.ends_with(kDeleted)) t.resize(t.size() - kDeleted.size());
  return t;
}

// Whether a process is a kernel thread (PF_KTHREAD in /proc/<pid>/stat): it holds no file.
bool IsKernelThread(const std::string& proc) {
  std::ifstream in(proc + "/stat");
  std::string stat((std::istreambuf_iterator<char>(in)), {});
  const std::size_t end = stat.rfind(')');
  if (end == std::string::npos) return false;
  std::istringstream fields(stat.substr(end + 1));
  std::string field;
  unsigned long flags = 0;
  for (int i = 3; i <= 9 && (fields >> field); ++i)
    if (i == 9) flags = std::strtoul(field.c_str(), nullptr, 10);
  return (flags & 0x00200000UL) != 0;
}

enum class Look { kHolds, kFree, kHidden };

// What /proc/<pid> shows under the roots, the strongest tie first: the executable, the working
// folder or root (a shell standing in a folder of the drive), an open file, a mapped file (a
// library loaded from the drive). kHidden when the process's files may not be read.
Look ProcessHolds(const std::string& proc, const std::vector<std::string>& roots,
                  VolumeHolder* holder) {
  auto found = [&](HoldKind kind, const std::string& path) {
    holder->kind = kind;
    holder->held = base::Widen(path);
    return Look::kHolds;
  };
  const std::string exe = Link(proc + "/exe");
  if (IsUnderAny(exe, roots)) return found(HoldKind::kProgram, exe);
  const std::string cwd = Link(proc + "/cwd");
  if (IsUnderAny(cwd, roots)) return found(HoldKind::kFolder, cwd);
  const std::string root = Link(proc + "/root");
  if (root != "/" && IsUnderAny(root, roots)) return found(HoldKind::kFolder, root);
  DIR* fds = opendir((proc + "/fd").c_str());
  if (!fds) return errno == ENOENT ? Look::kFree : Look::kHidden;
  std::string open_file;
  while (dirent* e = readdir(fds)) {
    if (e->d_name[0] == '.') continue;
    std::string target = Link(proc + "/fd/" + e->d_name);
    if (IsUnderAny(target, roots)) {
      open_file = std::move(target);
      break;
    }
  }
  closedir(fds);
  if (!open_file.empty()) return found(HoldKind::kFile, open_file);
  std::ifstream maps(proc + "/maps");
  std::string line;
  while (std::getline(maps, line)) {
    std::size_t slash = line.find('/');
    if (slash == std::string::npos) continue;
    std::string file = line.substr(slash);
    constexpr std::string_view kDeleted = " (deleted)";
    if (file.ends_with(kDeleted)) file.resize(file.size() - kDeleted.size());
    if (IsUnderAny(file, roots)) return found(HoldKind::kModule, file);
  }
  return Look::kFree;
}

}  // namespace

std::u16string GetVolumePathNameW(std::u16string_view path) {
  std::string resolved = posix::ResolvePath(posix::NativePath(path));
  if (resolved.empty()) {
    SetLastError(kErrorPathNotFound);
    return std::u16string();
  }
  auto table = posix::ReadMountTable();
  int i = posix::FindMountFor(table, resolved);
  if (i < 0) {
    SetLastError(kErrorPathNotFound);
    return std::u16string();
  }
  return RootText(table[i].mount_point);
}

bool side::QueryStorageDevice(std::u16string_view root, StorageDevice* out) {
  StorageDevice d;
  d.root = std::u16string(root);
  auto table = posix::ReadMountTable();
  std::string mount_point = MountPointOf(root);
  int i = -1;
  for (std::size_t k = 0; k < table.size(); ++k)
    if (table[k].mount_point == mount_point) i = static_cast<int>(k);
  if (i < 0) {
    SetLastError(kErrorPathNotFound);
    return false;
  }
  const posix::MountEntry& entry = table[i];
  d.mount_points.push_back(RootText(entry.mount_point));
  if (IsRemoteType(entry.fs_type)) {
    d.drive_type = kDriveRemote;
    *out = std::move(d);
    return true;
  }
  if (IsRamType(entry.fs_type)) {
    d.drive_type = kDriveRamdisk;
    *out = std::move(d);
    return true;
  }
  posix::BlockDevice block;
  if (!posix::DescribeBlockDevice(posix::MountDevice(entry), &block)) {
    d.drive_type = kDriveFixed;  // an overlay, a virtual file system: no device to eject
    *out = std::move(d);
    return true;
  }
  d.volume = base::Widen(block.node);
  d.disk = base::Widen(block.disk_node);
  d.device_number = (major(block.disk_dev) << 20) | minor(block.disk_dev);
  d.bus_type = block.usb ? kBusUsb : kBusUnknown;
  d.removable_media = block.removable_flag;
  const dev_t system = SystemDisk(table);
  const bool optical = block.disk_name.rfind("sr", 0) == 0;
  d.device_class = optical ? DeviceClass::kCdrom : DeviceClass::kDisk;
  if (system != 0) {
    // Device numbers are unique across classes here: only the disk itself shares this one's.
    d.system_class = system == block.disk_dev ? d.device_class : DeviceClass::kDisk;
    d.system_number = (major(system) << 20) | minor(system);
  }

  // What is ejected is the whole disk: it stands for the device that may be unplugged when it
  // is on the usb bus.
  d.chain.push_back(DeviceNode{d.disk, block.usb, false});

  // Every mounted volume of the same disk, the one asked about first.
  auto devs = posix::DiskAndPartitions(block);
  for (const auto& e : table) {
    if (e.mount_point == entry.mount_point) continue;
    dev_t dev = posix::MountDevice(e);
    if (dev && std::find(devs.begin(), devs.end(), dev) != devs.end()) {
      std::u16string r = RootText(e.mount_point);
      if (std::find(d.mount_points.begin(), d.mount_points.end(), r) == d.mount_points.end())
        d.mount_points.push_back(r);
    }
  }

  d.drive_type = optical                               ? kDriveCdrom
                 : (block.removable_flag || block.usb) ? kDriveRemovable
                                                       : kDriveFixed;
  *out = std::move(d);
  return true;
}

bool FlushVolumes(const std::vector<std::u16string>& roots) {
  bool ok = true;
  for (const auto& root : roots) {
    int fd = open(MountPointOf(root).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0 || syncfs(fd) != 0) {
      posix::SetLastErrorFromErrno();
      ok = false;
    }
    if (fd >= 0) close(fd);
  }
  return ok;
}

namespace {

// The whole disk is what Linux ejects, whether the plan names the device or only its medium.
bool EjectDisk(std::u16string_view disk, const std::vector<std::u16string>& roots,
               EjectAnswer* answer) {
  *answer = EjectAnswer{};
  if (disk.empty()) {
    SetLastError(kErrorInvalidParameter);
    return false;
  }
  // The kernel names of the mounted volumes, for udisks2's objects.
  std::vector<std::string> volumes;
  auto table = posix::ReadMountTable();
  std::vector<std::string> mount_points;
  for (const auto& root : roots) mount_points.push_back(MountPointOf(root));
  for (const auto& e : table) {
    if (std::find(mount_points.begin(), mount_points.end(), e.mount_point) == mount_points.end())
      continue;
    posix::BlockDevice b;
    if (posix::DescribeBlockDevice(posix::MountDevice(e), &b) &&
        std::find(volumes.begin(), volumes.end(), b.name) == volumes.end())
      volumes.push_back(b.name);
  }
  std::string disk_node = posix::NativePath(disk);
  std::string disk_name = disk_node.substr(disk_node.find_last_of('/') + 1);

  switch (posix::UdisksEject(disk_name, volumes, answer)) {
    case posix::UdisksStatus::kDone:
      return true;
    case posix::UdisksStatus::kRefused:
      return false;
    case posix::UdisksStatus::kUnavailable:
    case posix::UdisksStatus::kFailed:
      break;
  }

  // Deepest first, so that a mount inside another goes before it.
  std::sort(mount_points.begin(), mount_points.end(),
            [](const std::string& a, const std::string& b) { return a.size() > b.size(); });
  *answer = EjectAnswer{};
  for (const auto& mp : mount_points)
    if (!Unmount(mp, answer)) return false;
  sync();
  answer->done = EjectBlockDevice(disk_node, &answer->method);
  return true;
}

}  // namespace

bool RequestDeviceEject(std::u16string_view node, const std::vector<std::u16string>& roots,
                        EjectAnswer* answer) {
  return EjectDisk(node, roots, answer);
}

bool EjectMedium(std::u16string_view disk, const std::vector<std::u16string>& roots,
                 EjectAnswer* answer) {
  return EjectDisk(disk, roots, answer);
}

VolumeHolders ProcessesUsingVolumes(const std::vector<std::u16string>& roots) {
  std::vector<std::string> native;
  for (const auto& r : roots) {
    std::string mp = MountPointOf(r);
    if (!mp.empty() && mp[0] == '/') native.push_back(mp);
  }
  VolumeHolders out;
  if (native.empty()) return out;
  const std::uint32_t self = GetCurrentProcessId();
  const uid_t me = geteuid();
  for (auto& p : EnumProcesses()) {
    if (p.pid == self) continue;
    const std::string proc = "/proc/" + std::to_string(p.pid);
    VolumeHolder holder;
    switch (ProcessHolds(proc, native, &holder)) {
      case Look::kHolds: {
        struct stat st {};
        holder.closable = stat(proc.c_str(), &st) == 0 && st.st_uid == me;
        holder.process = std::move(p);
        out.processes.push_back(std::move(holder));
        break;
      }
      case Look::kHidden:
        if (!IsKernelThread(proc)) ++out.uninspected;
        break;
      case Look::kFree:
        break;
    }
  }
  return out;
}

// Nothing here records which process stopped a removal.
std::vector<RemovalVeto> RecentRemovalVetoes(std::uint32_t) {
  return {};
}

}  // namespace os
