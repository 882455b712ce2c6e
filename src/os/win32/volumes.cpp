// Win32 side of the seam, volumes: the drive behind a path, the disk behind the volume (its
// storage device number and class, then the device interface of that class with the same
// number), the chain of devices from the disk up to the root of the tree with what each can
// do, and every other mounted volume with its own chain. The ejects carry out what was
// decided above: a device node through the configuration manager, or only the medium.
// windows.h first: the other headers need its types.
#include <windows.h>

#include <cfgmgr32.h>
#include <setupapi.h>
#include <winioctl.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/text.h"
#include "os/apps.h"
#include "os/win32/handle.h"

namespace os {
namespace {

using win32::OwnedHandle;

// GUID_DEVINTERFACE_DISK, _FLOPPY and _CDROM, spelled out so that no header decides whether
// they are defined here.
constexpr GUID kDiskInterface = {
    0x53f56307, 0xb6bf, 0x11d0, {0x94, 0xf2, 0x00, 0xa0, 0xc9, 0x1e, 0xfb, 0x8b}};
constexpr GUID kFloppyInterface = {
    0x53f56311, 0xb6bf, 0x11d0, {0x94, 0xf2, 0x00, 0xa0, 0xc9, 0x1e, 0xfb, 0x8b}};
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

// The class of the disk behind a volume. A USB floppy answers FILE_DEVICE_DISK like any disk:
// only its DOS device name ("\Device\Floppy0") tells it apart.
DeviceClass ClassOf(const STORAGE_DEVICE_NUMBER& number, const std::wstring& volume_path) {
  if (number.DeviceType == FILE_DEVICE_CD_ROM || number.DeviceType == FILE_DEVICE_DVD)
    return DeviceClass::kCdrom;
  // QueryDosDeviceW takes "E:" or "Volume{...}", not "\\.\E:" or "\\?\Volume{...}".
  std::wstring name = volume_path.size() > 4 ? volume_path.substr(4) : volume_path;
  wchar_t target[MAX_PATH * 2] = {};
  if (::QueryDosDeviceW(name.c_str(), target, MAX_PATH * 2) &&
      std::wstring(target).find(L"\\Floppy") != std::wstring::npos)
    return DeviceClass::kFloppy;
  return number.DeviceType == FILE_DEVICE_DISK ? DeviceClass::kDisk : DeviceClass::kUnknown;
}

// A disk as its class and number: numbers are unique only within a class.
using DiskKey = std::pair<DeviceClass, DWORD>;

// The number and class of the disk behind a volume's device path.
bool DiskOf(const std::wstring& volume_path, DiskKey* key) {
  OwnedHandle volume(OpenForQuery(volume_path));
  STORAGE_DEVICE_NUMBER number{};
  if (!volume || !DeviceNumberOf(volume.get(), &number)) return false;
  *key = {ClassOf(number, volume_path), number.DeviceNumber};
  return key->first != DeviceClass::kUnknown;
}

// The devnode of the disk `want`, found among the device interfaces of its class.
bool FindDiskNode(const DiskKey& want, std::wstring* path, DEVINST* inst) {
  const GUID* guid = want.first == DeviceClass::kCdrom    ? &kCdromInterface
                     : want.first == DeviceClass::kFloppy ? &kFloppyInterface
                                                          : &kDiskInterface;
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
    if (disk && DeviceNumberOf(disk.get(), &number) && number.DeviceNumber == want.second) {
      *path = detail->DevicePath;
      *inst = info.DevInst;
      found = true;
    }
  }
  ::SetupDiDestroyDeviceInfoList(set);
  return found;
}

// The disk's devnode and each parent up to the root of the tree, with their capabilities.
std::vector<DeviceNode> ChainOf(DEVINST disk) {
  std::vector<DeviceNode> chain;
  DEVINST inst = disk;
  for (int depth = 0; depth < 64; ++depth) {
    wchar_t id[MAX_DEVICE_ID_LEN + 1] = {};
    if (::CM_Get_Device_IDW(inst, id, MAX_DEVICE_ID_LEN, 0) != CR_SUCCESS) break;
    DeviceNode node;
    node.id = Text(id);
    ULONG caps = 0, size = sizeof caps;
    if (::CM_Get_DevNode_Registry_PropertyW(inst, CM_DRP_CAPABILITIES, nullptr, &caps, &size, 0) ==
        CR_SUCCESS) {
      node.removable = (caps & CM_DEVCAP_REMOVABLE) != 0;
      node.eject_supported = (caps & CM_DEVCAP_EJECTSUPPORTED) != 0;
    }
    chain.push_back(std::move(node));
    DEVINST parent = 0;
    if (::CM_Get_Parent(&parent, inst, 0) != CR_SUCCESS) break;
    inst = parent;
  }
  return chain;
}

std::vector<std::u16string> Ids(const std::vector<DeviceNode>& chain) {
  std::vector<std::u16string> ids;
  for (const auto& n : chain) ids.push_back(n.id);
  return ids;
}

// Every mounted volume but `self`: its first mount point ("F:\", or a folder), and its disk.
struct MountedVolume {
  std::u16string root;
  DiskKey disk;
};
std::vector<MountedVolume> OtherMountedVolumes(std::u16string_view self) {
  std::vector<MountedVolume> out;
  wchar_t name[MAX_PATH + 1] = {};
  HANDLE find = ::FindFirstVolumeW(name, MAX_PATH);
  if (find == INVALID_HANDLE_VALUE) return out;
  do {
    wchar_t paths[4 * MAX_PATH] = {};
    DWORD got = 0;
    if (!::GetVolumePathNamesForVolumeNameW(name, paths, 4 * MAX_PATH, &got) || paths[0] == 0)
      continue;
    const std::u16string root = Text(paths);
    if (base::EqualNoCase(root, self)) continue;
    std::wstring device(name);
    if (!device.empty() && device.back() == L'\\') device.pop_back();
    MountedVolume v{root, {}};
    if (DiskOf(device, &v.disk)) out.push_back(std::move(v));
  } while (::FindNextVolumeW(find, name, MAX_PATH));
  ::FindVolumeClose(find);
  return out;
}

// CM_MapCrToWin32Err, which Windows has had since 7; older systems and Wine 8 lack it, so it is
// looked up rather than imported (an import missing would stop the program from starting).
DWORD Win32ErrorOf(CONFIGRET cr) {
  using Map = DWORD(WINAPI*)(CONFIGRET, DWORD);
  static const Map map = [] {
    HMODULE cfgmgr = ::GetModuleHandleW(L"cfgmgr32.dll");
    return cfgmgr ? reinterpret_cast<Map>(
                        reinterpret_cast<void*>(::GetProcAddress(cfgmgr, "CM_MapCrToWin32Err")))
                  : nullptr;
  }();
  if (map) return map(cr, ERROR_GEN_FAILURE);
  switch (cr) {
    case CR_ACCESS_DENIED:
      return ERROR_ACCESS_DENIED;
    case CR_NO_SUCH_DEVNODE:
      return ERROR_FILE_NOT_FOUND;
    case CR_OUT_OF_MEMORY:
      return ERROR_NOT_ENOUGH_MEMORY;
    case CR_REMOVE_VETOED:
      return ERROR_DEVICE_IN_USE;
    default:
      return ERROR_GEN_FAILURE;
  }
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
    *out = std::move(d);
    return true;
  }
  wchar_t windows[MAX_PATH + 1] = {};
  if (::GetSystemWindowsDirectoryW(windows, MAX_PATH)) {
    d.system_root = GetVolumePathNameW(Text(windows));
    DiskKey system;
    if (!d.system_root.empty() && DiskOf(VolumeDevicePath(d.system_root), &system)) {
      d.system_class = system.first;
      d.system_number = system.second;
    }
  }

  std::wstring volume_path = VolumeDevicePath(root);
  d.volume = std::u16string(volume_path.begin(), volume_path.end());
  {
    OwnedHandle volume(OpenForQuery(volume_path));
    if (volume) DescriptorOf(volume.get(), &d.removable_media, &d.bus_type);
  }
  DiskKey disk;
  if (!DiskOf(volume_path, &disk)) {
    *out = std::move(d);
    return true;
  }
  d.device_class = disk.first;
  d.device_number = disk.second;
  std::wstring disk_path;
  DEVINST disk_inst = 0;
  if (FindDiskNode(disk, &disk_path, &disk_inst)) {
    d.disk = std::u16string(disk_path.begin(), disk_path.end());
    d.chain = ChainOf(disk_inst);
  }
  // The other volumes: those of the same disk are ejected with it whatever is ejected; those
  // of other disks only when the device ejected is above theirs too.
  std::map<DiskKey, std::vector<std::u16string>> chains;
  for (auto& v : OtherMountedVolumes(root)) {
    if (v.disk == disk) {
      d.mount_points.push_back(std::move(v.root));
      continue;
    }
    auto known = chains.find(v.disk);
    if (known == chains.end()) {
      std::wstring path;
      DEVINST inst = 0;
      known =
          chains
              .emplace(v.disk, FindDiskNode(v.disk, &path, &inst) ? Ids(ChainOf(inst))
                                                                  : std::vector<std::u16string>{})
              .first;
    }
    d.other_volumes.push_back(OtherVolume{std::move(v.root), known->second});
  }
  *out = std::move(d);
  return true;
}

bool FlushVolumes(const std::vector<std::u16string>& roots) {
  bool ok = true;
  for (const auto& root : roots) {
    OwnedHandle volume(::CreateFileW(VolumeDevicePath(root).c_str(), GENERIC_READ | GENERIC_WRITE,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                                     nullptr));
    if (!volume || !::FlushFileBuffers(volume.get())) ok = false;
  }
  return ok;
}

bool RequestDeviceEject(std::u16string_view node, const std::vector<std::u16string>&,
                        EjectAnswer* answer) {
  *answer = EjectAnswer{};
  answer->method = u"cfgmgr32";
  if (node.empty()) {
    ::SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  std::wstring id = Wide(node);
  DEVINST inst = 0;
  CONFIGRET cr = ::CM_Locate_DevNodeW(&inst, id.data(), CM_LOCATE_DEVNODE_NORMAL);
  if (cr != CR_SUCCESS) {
    ::SetLastError(Win32ErrorOf(cr));
    return false;
  }
  // With a buffer for the veto name the system hands the reason back instead of showing its
  // own dialog.
  PNP_VETO_TYPE veto = PNP_VetoTypeUnknown;
  wchar_t name[MAX_PATH + 1] = {};
  cr = ::CM_Request_Device_EjectW(inst, &veto, name, MAX_PATH, 0);
  if (cr == CR_SUCCESS && veto == PNP_VetoTypeUnknown) {
    answer->done = EjectDone::kRemoved;
    return true;
  }
  if (veto != PNP_VetoTypeUnknown) {
    answer->veto_type = static_cast<std::uint32_t>(veto);
    answer->veto_name = Text(name);
    return false;
  }
  ::SetLastError(Win32ErrorOf(cr));
  return false;
}

bool EjectMedium(std::u16string_view, const std::vector<std::u16string>& roots,
                 EjectAnswer* answer) {
  *answer = EjectAnswer{};
  answer->method = u"IOCTL_STORAGE_EJECT_MEDIA";
  if (roots.empty()) {
    ::SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  // Every volume of the medium is locked and dismounted first, and held so until the medium
  // is out: a volume let go of in between would be mounted again by the next look at it.
  std::vector<std::unique_ptr<OwnedHandle>> held;
  DWORD got = 0;
  for (const auto& root : roots) {
    auto volume = std::make_unique<OwnedHandle>(
        ::CreateFileW(VolumeDevicePath(root).c_str(), GENERIC_READ | GENERIC_WRITE,
                      FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr));
    if (!*volume) return false;
    if (!::DeviceIoControl(volume->get(), FSCTL_LOCK_VOLUME, nullptr, 0, nullptr, 0, &got,
                           nullptr)) {
      // Open files keep a volume from being locked: that is a refusal, and the holders of the
      // volume say who.
      const DWORD e = ::GetLastError();
      if (e != ERROR_ACCESS_DENIED && e != ERROR_SHARING_VIOLATION) return false;
      answer->veto_type = kVetoOutstandingOpen;
      answer->veto_name = root;
      return false;
    }
    if (!::DeviceIoControl(volume->get(), FSCTL_DISMOUNT_VOLUME, nullptr, 0, nullptr, 0, &got,
                           nullptr))
      return false;
    held.push_back(std::move(volume));
  }
  PREVENT_MEDIA_REMOVAL allow{};
  allow.PreventMediaRemoval = FALSE;
  HANDLE first = held.front()->get();
  if (::DeviceIoControl(first, IOCTL_STORAGE_MEDIA_REMOVAL, &allow, sizeof allow, nullptr, 0, &got,
                        nullptr) &&
      ::DeviceIoControl(first, IOCTL_STORAGE_EJECT_MEDIA, nullptr, 0, nullptr, 0, &got, nullptr)) {
    answer->done = EjectDone::kMediaEjected;
    return true;
  }
  // A reader that cannot push its card out: the volumes are dismounted, the card may be taken.
  answer->method = u"FSCTL_DISMOUNT_VOLUME";
  answer->done = EjectDone::kUnmounted;
  return true;
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
