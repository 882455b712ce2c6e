// POSIX side of the seam: volume information from the mount table, and the storage-device
// query answered from sysfs.
#include <dirent.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cctype>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "base/text.h"
#include "os/posix/file_table.h"
#include "os/posix/mounts.h"
#include "os/posix/native.h"
#include "os/posix/paths.h"
#include "os/posix/storage.h"
#include "os/side.h"
#include "os/types.h"
#include "os/volume.h"

namespace os {
namespace posix {
namespace {

constexpr std::uint32_t kErrorInvalidFunction = 1;
constexpr std::uint32_t kErrorDirNotRoot = 144;

// udev writes unsafe characters of labels as \xHH.
std::string UnescapeHex(const std::string& s) {
  std::string out;
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '\\' && i + 3 < s.size() && s[i + 1] == 'x') {
      out += static_cast<char>(std::stoi(s.substr(i + 2, 2), nullptr, 16));
      i += 3;
    } else {
      out += s[i];
    }
  }
  return out;
}

std::string ReadText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::string();
  std::ostringstream s;
  s << in.rdbuf();
  std::string text = s.str();
  while (!text.empty() && (text.back() == '\n' || text.back() == '\0')) text.pop_back();
  return text;
}

bool Exists(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0;
}

std::string RealPath(const std::string& path) {
  char buf[PATH_MAX];
  return realpath(path.c_str(), buf) ? std::string(buf) : std::string();
}

// The name under /dev/disk/<folder> whose link leads to the device major:minor, or "".
std::string DiskLinkName(const char* folder, unsigned major, unsigned minor) {
  std::string dir = std::string("/dev/disk/") + folder;
  DIR* d = opendir(dir.c_str());
  if (!d) return std::string();
  std::string found;
  while (dirent* e = readdir(d)) {
    if (e->d_name[0] == '.') continue;
    struct stat st;
    if (stat((dir + "/" + e->d_name).c_str(), &st) == 0 && S_ISBLK(st.st_mode) &&
        ::major(st.st_rdev) == major && ::minor(st.st_rdev) == minor) {
      found = e->d_name;
      break;
    }
  }
  closedir(d);
  return found;
}

// The volume serial number from the file-system UUID: FAT and exFAT UUIDs are the serial
// itself ("ABCD-1234"); an NTFS UUID holds the 64-bit serial whose low half Windows shows; for
// other file systems the UUID's first 32 bits stand in.
std::uint32_t SerialFromUuid(const std::string& uuid) {
  std::string hex;
  for (char c : uuid) {
    if (std::isxdigit(static_cast<unsigned char>(c))) hex += c;
  }
  if (hex.size() < 8) return 0;
  std::string part = hex.size() == 16 ? hex.substr(8) : hex.substr(0, 8);
  return static_cast<std::uint32_t>(std::stoul(part, nullptr, 16));
}

bool PutText(const std::string& text, char16_t* buffer, std::uint32_t size) {
  if (!buffer) return true;
  std::u16string t = base::Widen(text);
  if (t.size() + 1 > size) return false;
  t.copy(buffer, t.size());
  buffer[t.size()] = u'\0';
  return true;
}

void Put32(std::string& b, std::size_t at, std::uint32_t v) {
  for (int k = 0; k < 4; ++k) b[at + k] = static_cast<char>((v >> (8 * k)) & 0xFF);
}

// The mount whose mount point is exactly path (the one on top when several are stacked).
bool FindMountAt(const std::string& path, MountEntry* mount) {
  bool found = false;
  for (MountEntry& entry : ReadMountTable()) {
    if (entry.mount_point != path) continue;
    *mount = std::move(entry);
    found = true;
  }
  return found;
}

}  // namespace

std::string FileSystemName(const std::string& type) {
  if (type == "vfat") return "FAT32";
  if (type == "msdos") return "FAT";
  if (type == "exfat") return "exFAT";
  if (type == "ntfs" || type == "ntfs3") return "NTFS";
  if (type == "iso9660") return "CDFS";
  if (type == "udf") return "UDF";
  return type;
}

std::string StorageDescriptor(const std::string& block) {
  const std::string device = block + "/device";
  const std::string device_path = RealPath(device);
  std::string vendor = ReadText(device + "/vendor");
  std::string product = ReadText(device + "/model");
  if (product.empty()) product = ReadText(device + "/name");  // SD and MMC cards
  std::string revision = ReadText(device + "/rev");
  if (revision.empty()) revision = ReadText(device + "/firmware_rev");  // NVMe
  std::string serial = ReadText(device + "/serial");
  if (serial.empty()) serial = ReadText(block + "/serial");
  // A USB stick's serial number sits on the USB device, a few folders above the disk.
  for (std::string dir = device_path; serial.empty() && dir.size() > 1;) {
    if (Exists(dir + "/idVendor")) serial = ReadText(dir + "/serial");
    std::size_t slash = dir.rfind('/');
    if (slash == std::string::npos || slash == 0) break;
    dir.resize(slash);
  }

  std::uint32_t bus = 0;  // BusTypeUnknown
  if (device_path.find("/usb") != std::string::npos) {
    bus = 7;  // BusTypeUsb
  } else if (device_path.find("/nvme") != std::string::npos) {
    bus = 17;  // BusTypeNvme
  } else if (device_path.find("/mmc") != std::string::npos) {
    bus = 12;  // BusTypeSd
  } else if (device_path.find("/ata") != std::string::npos) {
    bus = 11;  // BusTypeSata
  } else if (device_path.find("/virtio") != std::string::npos) {
    bus = 0;
  } else if (device_path.find("/host") != std::string::npos) {
    bus = 1;  // BusTypeScsi
  }

  std::string d(40, '\0');
  Put32(d, 0, 40);  // version: the size of the fixed part
  std::string type = ReadText(device + "/type");
  d[8] = static_cast<char>(type == "5" ? 5 : 0);  // a CD drive, else a disk
  d[10] = static_cast<char>(ReadText(block + "/removable") == "1" ? 1 : 0);
  const std::string* texts[] = {&vendor, &product, &revision, &serial};
  for (int k = 0; k < 4; ++k) {
    if (texts[k]->empty()) continue;
    Put32(d, 12 + 4 * k, static_cast<std::uint32_t>(d.size()));
    d += *texts[k];
    d += '\0';
  }
  Put32(d, 28, bus);
  Put32(d, 4, static_cast<std::uint32_t>(d.size()));
  return d;
}

bool VolumeBlockDevice(char16_t letter, std::string* sysfs) {
  MountEntry m;
  if (letter != u'Z') {
    SetLastError(kErrorFileNotFound);
    return false;
  }
  // A virtual or network file system has no device behind it.
  if (!FindMountAt("/", &m) || m.major == 0) {
    SetLastError(kErrorAccessDenied);
    return false;
  }
  std::string block =
      RealPath("/sys/dev/block/" + std::to_string(m.major) + ":" + std::to_string(m.minor));
  if (block.empty()) {
    SetLastError(kErrorAccessDenied);
    return false;
  }
  // A partition's disk is the folder above it.
  if (Exists(block + "/partition")) block.resize(block.rfind('/'));
  *sysfs = block;
  return true;
}

}  // namespace posix

bool side::GetVolumeInformationW(const char16_t* root, char16_t* label, std::uint32_t label_size,
                                 std::uint32_t* serial, std::uint32_t* max_component_length,
                                 std::uint32_t* flags, char16_t* file_system,
                                 std::uint32_t file_system_size) {
  std::string path;
  if (!posix::SystemPath(root ? root : u"", &path)) return false;
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  posix::MountEntry mount;
  if (!posix::FindMountAt(path, &mount)) {
    struct stat st;
    SetLastError(stat(path.c_str(), &st) == 0 ? posix::kErrorDirNotRoot : kErrorPathNotFound);
    return false;
  }
  struct statvfs vfs;
  if (statvfs(path.c_str(), &vfs) != 0) {
    posix::SetLastErrorFromErrno();
    return false;
  }
  std::string label_text =
      posix::UnescapeHex(posix::DiskLinkName("by-label", mount.major, mount.minor));
  std::string uuid = posix::DiskLinkName("by-uuid", mount.major, mount.minor);
  if (!posix::PutText(label_text, label, label_size) ||
      !posix::PutText(posix::FileSystemName(mount.fs_type), file_system, file_system_size)) {
    SetLastError(kErrorInsufficientBuffer);
    return false;
  }
  if (serial) *serial = posix::SerialFromUuid(uuid);
  if (max_component_length) *max_component_length = static_cast<std::uint32_t>(vfs.f_namemax);
  // Case-sensitive search and case-preserved names; a read-only volume says so.
  if (flags) *flags = 0x3 | ((vfs.f_flag & ST_RDONLY) ? 0x80000u : 0u);
  SetLastError(kErrorSuccess);
  return true;
}

bool side::DeviceIoControl(Handle device, std::uint32_t code, const void* in, std::uint32_t in_size,
                           void* out, std::uint32_t out_size, std::uint32_t* returned) {
  if (returned) *returned = 0;
  auto file = posix::FindOpenFile(device);
  if (!file) {
    SetLastError(kErrorInvalidHandle);
    return false;
  }
  if (file->sysfs.empty() || code != kIoctlStorageQueryProperty) {
    SetLastError(posix::kErrorInvalidFunction);
    return false;
  }
  if (!in || in_size < 8) {
    SetLastError(kErrorInvalidParameter);
    return false;
  }
  std::uint32_t query[2];
  std::memcpy(query, in, sizeof query);
  if (query[0] != 0 || query[1] != 0) {  // only the device property, standard query
    SetLastError(kErrorNotSupported);
    return false;
  }
  if (!out || out_size < 8) {
    SetLastError(kErrorInsufficientBuffer);
    return false;
  }
  std::string d = posix::StorageDescriptor(file->sysfs);
  std::uint32_t n = out_size < d.size() ? out_size : static_cast<std::uint32_t>(d.size());
  // Texts that do not fit whole are left out, as the storage driver does.
  for (int k = 0; k < 4 && n >= 28; ++k) {
    std::uint32_t at;
    std::memcpy(&at, d.data() + 12 + 4 * k, 4);
    if (at != 0 && (at >= n || d.find('\0', at) >= n)) posix::Put32(d, 12 + 4 * k, 0);
  }
  std::memcpy(out, d.data(), n);
  if (returned) *returned = n;
  return true;
}

}  // namespace os
