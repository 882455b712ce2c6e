// Win32 side of the seam, volumes: the drive behind a path, the disk behind the volume (its
// storage device number, then the disk device interface with the same number), and the eject
// of the disk's parent device through the configuration manager.
// windows.h first: the other headers need its types.
#include <windows.h>

#include <cfgmgr32.h>
#include <setupapi.h>
#include <winioctl.h>

#include <string>
#include <vector>

#include "base/text.h"
#include "os/apps.h"
#include "os/win32/handle.h"

namespace os {
namespace {

using win32::OwnedHandle;

// GUID_DEVINTERFACE_DISK and GUID_DEVINTERFACE_CDROM, spelled out so that no header decides
// whether they are defined here.
constexpr GUID kDiskInterface = {
    0x53f56307, 0xb6bf, 0x11d0, {0x94, 0xf2, 0x00, 0xa0, 0xc9, 0x1e, 0xfb, 0x8b}};
constexpr GUID kCdromInterface = {
    0x53f56308, 0xb6bf, 0x11d0, {0x94, 0xf2, 0x00, 0xa0, 0xc9, 0x1e, 0xfb, 0x8b}};

std::wstring Wide(std::u16string_view s) {
  return std::wstring(s.begin(), s.end());
}
std::u16string Text(const wchar_t* s) {
  return std::u16string(reinterpret_cast<const char16_t*>(s));
}

bool IsLetterRoot(std::u16string_view root) {
  return root.size() == 3 && base::UpperAscii(root[0]) >= u'A' &&
         base::UpperAscii(root[0]) <= u'Z' && root[1] == u':' &&
         (root[2] == u'\\' || root[2] == u'/');
}

// The device path of a volume: "\\.\E:" for a drive letter, the volume GUID path for a volume
// mounted in a folder.
std::wstring VolumeDevicePath(std::u16string_view root) {
  if (IsLetterRoot(root)) return std::wstring(L"\\\\.\\") + wchar_t(root[0]) + L":";
  wchar_t name[MAX_PATH + 1] = {};
  std::wstring r = Wide(root);
  if (!::GetVolumeNameForVolumeMountPointW(r.c_str(), name, MAX_PATH)) return std::wstring();
  std::wstring v(name);
  if (!v.empty() && v.back() == L'\\') v.pop_back();  // "\\?\Volume{...}" opens the volume
  return v;
}

// Opened with no access rights: enough for the storage queries, and granted to every user.
HANDLE OpenForQuery(const std::wstring& path) {
  return ::CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                       0, nullptr);
}

bool DeviceNumberOf(HANDLE device, STORAGE_DEVICE_NUMBER* number) {
  DWORD got = 0;
  return ::DeviceIoControl(device, IOCTL_STORAGE_GET_DEVICE_NUMBER, nullptr, 0, number,
                           sizeof *number, &got, nullptr) &&
         got >= sizeof *number;
}

bool DescriptorOf(HANDLE device, bool* removable_media, std::uint32_t* bus) {
  STORAGE_PROPERTY_QUERY query{};
  query.PropertyId = StorageDeviceProperty;
  query.QueryType = PropertyStandardQuery;
  alignas(8) BYTE buffer[1024] = {};
  DWORD got = 0;
  if (!::DeviceIoControl(device, IOCTL_STORAGE_QUERY_PROPERTY, &query, sizeof query, buffer,
                         sizeof buffer, &got, nullptr) ||
      got < offsetof(STORAGE_DEVICE_DESCRIPTOR, BusType) + sizeof(DWORD))
    return false;
  auto* d = reinterpret_cast<const STORAGE_DEVICE_DESCRIPTOR*>(buffer);
  *removable_media = d->RemovableMedia != FALSE;
  *bus = static_cast<std::uint32_t>(d->BusType);
  return true;
}

// The disk device interface whose storage device number is `want`, and its devnode.
bool FindDiskInterface(const STORAGE_DEVICE_NUMBER& want, std::wstring* path, DEVINST* inst) {
  const GUID* guid = want.DeviceType == FILE_DEVICE_CD_ROM ? &kCdromInterface : &kDiskInterface;
  HDEVINFO set =
      ::SetupDiGetClassDevsW(guid, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  if (set == INVALID_HANDLE_VALUE) return false;
  bool found = false;
  for (DWORD i = 0; !found; ++i) {
    SP_DEVICE_INTERFACE_DATA data{};
    data.cbSize = sizeof data;
    if (!::SetupDiEnumDeviceInterfaces(set, nullptr, guid, i, &data)) break;
    DWORD size = 0;
    ::SetupDiGetDeviceInterfaceDetailW(set, &data, nullptr, 0, &size, nullptr);
    if (size < sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W)) continue;
    std::vector<std::uint64_t> storage(size / sizeof(std::uint64_t) + 1);
    auto* detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(storage.data());
    detail->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W);
    SP_DEVINFO_DATA info{};
    info.cbSize = sizeof info;
    if (!::SetupDiGetDeviceInterfaceDetailW(set, &data, detail, size, nullptr, &info)) continue;
    OwnedHandle disk(OpenForQuery(detail->DevicePath));
    STORAGE_DEVICE_NUMBER number{};
    if (disk && DeviceNumberOf(disk.get(), &number) && number.DeviceType == want.DeviceType &&
        number.DeviceNumber == want.DeviceNumber) {
      *path = detail->DevicePath;
      *inst = info.DevInst;
      found = true;
    }
  }
  ::SetupDiDestroyDeviceInfoList(set);
  return found;
}

std::u16string ParentInstanceId(DEVINST disk) {
  DEVINST parent = 0;
  if (::CM_Get_Parent(&parent, disk, 0) != CR_SUCCESS) return std::u16string();
  wchar_t id[MAX_DEVICE_ID_LEN + 1] = {};
  if (::CM_Get_Device_IDW(parent, id, MAX_DEVICE_ID_LEN, 0) != CR_SUCCESS) return std::u16string();
  return Text(id);
}

// Whether the disk `number` also holds the Windows folder.
bool HoldsSystem(std::u16string_view root, const STORAGE_DEVICE_NUMBER* number) {
  wchar_t windows[MAX_PATH + 1] = {};
  if (!::GetSystemWindowsDirectoryW(windows, MAX_PATH)) return false;
  std::u16string system_root = GetVolumePathNameW(Text(windows));
  if (base::EqualNoCase(system_root, root)) return true;
  if (!number) return false;
  OwnedHandle volume(OpenForQuery(VolumeDevicePath(system_root)));
  STORAGE_DEVICE_NUMBER system{};
  return volume && DeviceNumberOf(volume.get(), &system) &&
         system.DeviceType == number->DeviceType && system.DeviceNumber == number->DeviceNumber;
}

bool IsUnder(std::u16string_view path, std::u16string_view root) {
  return !root.empty() && path.size() >= root.size() &&
         base::EqualNoCase(path.substr(0, root.size()), root);
}

}  // namespace

std::u16string GetVolumePathNameW(std::u16string_view path) {
  std::wstring p = Wide(path);
  std::wstring buf(32768, L'\0');
  if (p.empty() || !::GetVolumePathNameW(p.c_str(), buf.data(), static_cast<DWORD>(buf.size())))
    return std::u16string();
  return Text(buf.c_str());
}

std::uint32_t GetDriveTypeW(std::u16string_view root) {
  return ::GetDriveTypeW(Wide(root).c_str());
}

bool QueryStorageDevice(std::u16string_view root, StorageDevice* out) {
  StorageDevice d;
  d.root = std::u16string(root);
  d.drive_type = GetDriveTypeW(root);
  if (d.drive_type == kDriveUnknown || d.drive_type == kDriveNoRootDir) {
    ::SetLastError(ERROR_PATH_NOT_FOUND);
    return false;
  }
  d.mount_points.push_back(d.root);
  if (d.drive_type == kDriveRemote || d.drive_type == kDriveRamdisk) {
    d.rule = d.root + (d.drive_type == kDriveRemote ? u" is a network drive" : u" is a RAM disk");
    *out = std::move(d);
    return true;
  }
  std::wstring volume_path = VolumeDevicePath(root);
  d.volume = std::u16string(volume_path.begin(), volume_path.end());
  STORAGE_DEVICE_NUMBER number{};
  bool numbered = false, described = false;
  {
    OwnedHandle volume(OpenForQuery(volume_path));
    if (volume) {
      numbered = DeviceNumberOf(volume.get(), &number);
      described = DescriptorOf(volume.get(), &d.removable_media, &d.bus_type);
    }
  }
  std::wstring disk_path;
  DEVINST disk_inst = 0;
  if (numbered) {
    d.device_number = number.DeviceNumber;
    if (FindDiskInterface(number, &disk_path, &disk_inst)) {
      d.disk = std::u16string(disk_path.begin(), disk_path.end());
      d.parent = ParentInstanceId(disk_inst);
    }
  }
  d.system = HoldsSystem(root, numbered ? &number : nullptr);

  // USB hard disks and many sticks say "fixed": the bus they sit on tells the truth.
  const bool removable_type = d.drive_type == kDriveRemovable;
  const bool usb = described && d.bus_type == kBusUsb;
  if (d.system) {
    d.rule = d.root + u" holds the running system";
  } else if (removable_type) {
    d.removable = true;
    d.rule = d.root + u" is a removable drive";
  } else if (described && d.removable_media) {
    d.removable = true;
    d.rule = d.root + u" says its medium is removable";
  } else if (usb) {
    d.removable = true;
    d.rule = d.root + u" is on the usb bus";
  } else {
    d.rule = d.root + u" is a fixed disk (not removable, not on the usb bus)";
  }
  *out = std::move(d);
  return true;
}

bool FlushVolumes(const StorageDevice& device) {
  bool ok = true;
  for (const auto& root : device.mount_points) {
    OwnedHandle volume(::CreateFileW(VolumeDevicePath(root).c_str(), GENERIC_READ | GENERIC_WRITE,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                                     nullptr));
    if (!volume || !::FlushFileBuffers(volume.get())) ok = false;
  }
  return ok;
}

bool RequestDeviceEject(const StorageDevice& device, EjectAnswer* answer) {
  *answer = EjectAnswer{};
  answer->method = u"cfgmgr32";
  if (device.parent.empty()) {
    ::SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  std::wstring id = Wide(device.parent);
  DEVINST inst = 0;
  if (::CM_Locate_DevNodeW(&inst, id.data(), CM_LOCATE_DEVNODE_NORMAL) != CR_SUCCESS) {
    ::SetLastError(ERROR_FILE_NOT_FOUND);
    return false;
  }
  // With a buffer for the veto name the system hands the reason back instead of showing its
  // own dialog.
  PNP_VETO_TYPE veto = PNP_VetoTypeUnknown;
  wchar_t name[MAX_PATH + 1] = {};
  CONFIGRET cr = ::CM_Request_Device_EjectW(inst, &veto, name, MAX_PATH, 0);
  if (cr == CR_SUCCESS && veto == PNP_VetoTypeUnknown) {
    answer->done = EjectDone::kRemoved;
    return true;
  }
  if (veto != PNP_VetoTypeUnknown) {
    answer->veto_type = static_cast<std::uint32_t>(veto);
    answer->veto_name = Text(name);
    return false;
  }
  ::SetLastError(cr == CR_ACCESS_DENIED ? ERROR_ACCESS_DENIED : ERROR_GEN_FAILURE);
  return false;
}

std::vector<ProcessEntry> ProcessesUsingVolumes(const std::vector<std::u16string>& roots) {
  std::vector<ProcessEntry> out;
  const std::uint32_t self = GetCurrentProcessId();
  for (auto& p : EnumProcesses()) {
    if (p.pid == self || p.image.empty()) continue;
    for (const auto& root : roots) {
      if (IsUnder(p.image, root)) {
        out.push_back(std::move(p));
        break;
      }
    }
  }
  return out;
}

// Loop devices do not exist here; the hook only keeps the same interface.
ScopedRemovableDiskForTests::ScopedRemovableDiskForTests(std::u16string disk)
    : previous_(std::move(disk)) {}
ScopedRemovableDiskForTests::~ScopedRemovableDiskForTests() = default;

}  // namespace os
