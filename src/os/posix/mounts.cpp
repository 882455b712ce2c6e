// POSIX side of the seam, mounts and block devices: the mount table and what sysfs says about
// the disk behind a mount.
#include "os/posix/mounts.h"

#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "os/posix/native.h"

namespace fs = std::filesystem;

namespace os::posix {
namespace {

std::string ReadFirstLine(const std::string& path) {
  std::ifstream in(path);
  std::string line;
  if (in) std::getline(in, line);
  return line;
}

bool ParseDevNumbers(std::string_view text, std::uint32_t* major, std::uint32_t* minor) {
  std::size_t colon = text.find(':');
  if (colon == std::string_view::npos || colon == 0) return false;
  unsigned long ma = 0, mi = 0;
  std::string a(text.substr(0, colon)), b(text.substr(colon + 1));
  char* end = nullptr;
  ma = std::strtoul(a.c_str(), &end, 10);
  if (*end) return false;
  mi = std::strtoul(b.c_str(), &end, 10);
  if (*end || b.empty()) return false;
  *major = static_cast<std::uint32_t>(ma);
  *minor = static_cast<std::uint32_t>(mi);
  return true;
}

// The device node name the kernel announces (DEVNAME in uevent); the kernel name otherwise.
std::string DeviceNode(const std::string& sys_dir, const std::string& name) {
  std::ifstream in(sys_dir + "/uevent");
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind("DEVNAME=", 0) == 0) return "/dev/" + line.substr(8);
  }
  return "/dev/" + name;
}

// True when the device or one of its ancestors belongs to the usb subsystem: a USB stick or
// card reader sits below a usb interface, whatever its SCSI layer says about removable media.
bool OnUsbBus(const std::string& disk_sys) {
  std::error_code ec;
  fs::path dir = fs::canonical(fs::path(disk_sys) / "device", ec);
  if (ec) return false;
  for (; !dir.empty() && dir != dir.root_path() && dir.string().rfind("/sys/devices", 0) == 0;
       dir = dir.parent_path()) {
    fs::path subsystem = fs::read_symlink(dir / "subsystem", ec);
    if (!ec && subsystem.filename() == "usb") return true;
  }
  return false;
}

}  // namespace

std::string UnescapeMountField(std::string_view field) {
  auto octal = [&](std::size_t k) { return field[k] >= '0' && field[k] <= '7'; };
  std::string out;
  out.reserve(field.size());
  for (std::size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && i + 3 < field.size() && octal(i + 1) && octal(i + 2) && octal(i + 3)) {
      out.push_back(static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 +
                                      (field[i + 3] - '0')));
      i += 3;
      continue;
    }
    out.push_back(field[i]);
  }
  return out;
}

std::vector<MountEntry> ParseMountInfo(std::string_view text) {
  // 36 35 98:0 /mnt1 /mnt/parent rw,noatime master:1 - ext3 /dev/root rw,errors=continue
  // (1)(2)(3)   (4)   (5)         (6)      optional... - (9)  (10)      (11)
  std::vector<MountEntry> out;
  std::istringstream lines{std::string(text)};
  std::string line;
  while (std::getline(lines, line)) {
    std::istringstream fields(line);
    std::string id, parent, dev, root, mount_point, options, field;
    if (!(fields >> id >> parent >> dev >> root >> mount_point >> options)) continue;
    bool separator = false;
    while (fields >> field) {
      if (field == "-") {
        separator = true;
        break;
      }
    }
    MountEntry entry;
    if (!separator || !(fields >> entry.fs_type)) continue;
    fields >> entry.source;
    if (!ParseDevNumbers(dev, &entry.major, &entry.minor)) continue;
    entry.mount_point = UnescapeMountField(mount_point);
    entry.source = UnescapeMountField(entry.source);
    if (entry.mount_point.empty() || entry.mount_point[0] != '/') continue;
    if (entry.mount_point.size() > 1 && entry.mount_point.back() == '/')
      entry.mount_point.pop_back();
    out.push_back(std::move(entry));
  }
  return out;
}

std::vector<MountEntry> ReadMountTable() {
  std::ifstream in("/proc/self/mountinfo");
  if (!in) {
    SetLastErrorFromErrno();
    return {};
  }
  std::ostringstream text;
  text << in.rdbuf();
  return ParseMountInfo(text.str());
}

bool PathIsUnder(std::string_view path, std::string_view folder) {
  if (folder.empty() || path.size() < folder.size()) return false;
  if (path.compare(0, folder.size(), folder) != 0) return false;
  if (path.size() == folder.size() || folder == "/") return true;
  return path[folder.size()] == '/';
}

int FindMountFor(const std::vector<MountEntry>& table, std::string_view path) {
  int best = -1;
  std::size_t best_len = 0;
  for (std::size_t i = 0; i < table.size(); ++i) {
    const std::string& mp = table[i].mount_point;
    if (!PathIsUnder(path, mp)) continue;
    // ">=": a later mount on the same point hides the earlier one.
    if (best < 0 || mp.size() >= best_len) {
      best = static_cast<int>(i);
      best_len = mp.size();
    }
  }
  return best;
}

std::string ResolvePath(std::string_view path) {
  std::string p(path);
  if (p.empty()) return std::string();
  if (p[0] != '/') {
    char cwd[PATH_MAX];
    if (!getcwd(cwd, sizeof cwd)) return std::string();
    p = std::string(cwd) + "/" + p;
  }
  // Walk up to the nearest folder that exists; what lies below it cannot be a mount point.
  std::string tail;
  for (;;) {
    char buf[PATH_MAX];
    if (realpath(p.c_str(), buf)) {
      std::string resolved(buf);
      if (tail.empty()) return resolved;
      return resolved == "/" ? tail : resolved + tail;
    }
    if (errno != ENOENT && errno != ENOTDIR) return std::string();
    std::size_t slash = p.find_last_of('/');
    if (slash == std::string::npos) return std::string();
    std::string last = p.substr(slash + 1);
    if (!last.empty() && last != ".") tail = "/" + last + tail;
    p = slash == 0 ? "/" : p.substr(0, slash);
  }
}

dev_t MountDevice(const MountEntry& entry) {
  if (entry.major != 0) return makedev(entry.major, entry.minor);
  struct stat st;
  if (entry.source.rfind("/dev/", 0) == 0 && stat(entry.source.c_str(), &st) == 0 &&
      S_ISBLK(st.st_mode))
    return st.st_rdev;
  return 0;
}

bool DescribeBlockDevice(dev_t dev, BlockDevice* out) {
  if (dev == 0) return false;
  std::error_code ec;
  fs::path sys = fs::canonical(
      "/sys/dev/block/" + std::to_string(major(dev)) + ":" + std::to_string(minor(dev)), ec);
  if (ec) {
    SetLastError(kErrorFileNotFound);
    return false;
  }
  BlockDevice d;
  d.name = sys.filename().string();
  d.node = DeviceNode(sys.string(), d.name);
  fs::path disk = fs::exists(sys / "partition", ec) ? sys.parent_path() : sys;
  d.disk_name = disk.filename().string();
  d.disk_node = DeviceNode(disk.string(), d.disk_name);
  d.disk_sys = disk.string();
  std::uint32_t ma = 0, mi = 0;
  if (ParseDevNumbers(ReadFirstLine(d.disk_sys + "/dev"), &ma, &mi)) d.disk_dev = makedev(ma, mi);
  d.removable_flag = ReadFirstLine(d.disk_sys + "/removable") == "1";
  d.usb = OnUsbBus(d.disk_sys);
  *out = std::move(d);
  return true;
}

std::vector<dev_t> DiskAndPartitions(const BlockDevice& device) {
  std::vector<dev_t> out;
  if (device.disk_dev) out.push_back(device.disk_dev);
  std::error_code ec;
  for (const auto& child : fs::directory_iterator(device.disk_sys, ec)) {
    std::error_code ec2;
    if (!fs::exists(child.path() / "partition", ec2)) continue;
    std::uint32_t ma = 0, mi = 0;
    if (ParseDevNumbers(ReadFirstLine((child.path() / "dev").string()), &ma, &mi))
      out.push_back(makedev(ma, mi));
  }
  return out;
}

std::string UdisksObjectName(std::string_view kernel_name) {
  static const char kHex[] = "0123456789abcdef";
  std::string out;
  for (unsigned char c : kernel_name) {
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_') {
      out.push_back(static_cast<char>(c));
    } else {
      out.push_back('_');
      out.push_back(kHex[c >> 4]);
      out.push_back(kHex[c & 15]);
    }
  }
  return out;
}

}  // namespace os::posix
