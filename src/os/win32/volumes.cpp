// Win32 side of the seam, volumes: the drive behind a path, the disk behind the volume (its
// storage device number and class, then the device interface of that class with the same
// number), the chain of devices from the disk up to the root of the tree with what each can
// do, and every other mounted volume with its own chain. The ejects carry out what was
// decided above: a device node through the configuration manager, or only the medium.
// windows.h first: the other headers need its types.
#include <windows.h>

#include <cfgmgr32.h>
#include <setupapi.h>
#include <tlhelp32.h>
#include <winevt.h>
#include <winioctl.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "base/text.h"
#include "os/apps.h"
#include "os/side.h"
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

// The TokenUser part of a process's token, in its buffer; null when it cannot be read.
std::unique_ptr<BYTE[]> TokenUserOf(HANDLE process) {
  HANDLE raw = nullptr;
  if (!::OpenProcessToken(process, TOKEN_QUERY, &raw)) return nullptr;
  OwnedHandle token(raw);
  DWORD size = 0;
  ::GetTokenInformation(token.get(), TokenUser, nullptr, 0, &size);
  if (size == 0) return nullptr;
  auto buffer = std::make_unique<BYTE[]>(size);
  if (!::GetTokenInformation(token.get(), TokenUser, buffer.get(), size, &size)) return nullptr;
  return buffer;
}

// The title of one visible top-level window of each process that has one ("" when none of
// them has a title).
BOOL CALLBACK AddTitle(HWND window, LPARAM param) {
  auto* titles = reinterpret_cast<std::map<std::uint32_t, std::u16string>*>(param);
  if (!::IsWindowVisible(window) || ::GetWindow(window, GW_OWNER)) return TRUE;
  DWORD pid = 0;
  ::GetWindowThreadProcessId(window, &pid);
  std::u16string& title = (*titles)[pid];
  if (!title.empty()) return TRUE;
  wchar_t text[256] = {};
  if (::GetWindowTextW(window, text, 256) > 0) title = Text(text);
  return TRUE;
}

std::map<std::uint32_t, std::u16string> WindowTitles() {
  std::map<std::uint32_t, std::u16string> titles;
  ::EnumWindows(AddTitle, reinterpret_cast<LPARAM>(&titles));
  return titles;
}

// SYSTEM_HANDLE_TABLE_ENTRY_INFO_EX and SYSTEM_HANDLE_INFORMATION_EX, as
// NtQuerySystemInformation(SystemExtendedHandleInformation) fills them.
struct HandleEntry {
  PVOID object;
  ULONG_PTR pid;
  ULONG_PTR value;
  ULONG granted_access;
  USHORT creator_back_trace_index;
  USHORT type_index;
  ULONG attributes;
  ULONG reserved;
};
struct HandleList {
  ULONG_PTR count;
  ULONG_PTR reserved;
  HandleEntry handles[1];
};
using NtQuerySystemInformationFn = LONG(WINAPI*)(ULONG, PVOID, ULONG, PULONG);
constexpr ULONG kSystemExtendedHandleInformation = 64;
constexpr LONG kStatusInfoLengthMismatch = static_cast<LONG>(0xC0000004);

// Every open handle of the system; empty when the list cannot be had.
std::vector<HandleEntry> SystemHandles() {
  // ntdll is in every process: looked up, not imported.
  const auto query = reinterpret_cast<NtQuerySystemInformationFn>(reinterpret_cast<void*>(
      ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation")));
  if (!query) return {};
  std::vector<BYTE> buffer(1 << 20);
  for (;;) {
    ULONG needed = 0;
    const LONG status = query(kSystemExtendedHandleInformation, buffer.data(),
                              static_cast<ULONG>(buffer.size()), &needed);
    if (status == kStatusInfoLengthMismatch && buffer.size() < (256u << 20)) {
      buffer.resize(std::max<std::size_t>(buffer.size() * 2, needed + (64u << 10)));
      continue;
    }
    if (status < 0) return {};
    break;
  }
  const auto* list = reinterpret_cast<const HandleList*>(buffer.data());
  const std::size_t fit = (buffer.size() - offsetof(HandleList, handles)) / sizeof(HandleEntry);
  const std::size_t count = std::min<std::size_t>(list->count, fit);
  return std::vector<HandleEntry>(list->handles, list->handles + count);
}

// What a process holds open on a drive.
struct OpenFile {
  std::u16string path;
  bool folder = false;
};

// The naming of other processes' handles, done on a worker thread that the caller waits for
// only so long: a handle that the system is slow to name (a device, a network file) must not
// hang the ejector. The state is shared, so that a worker left behind finds it alive.
struct NamingWork {
  std::vector<std::pair<HANDLE, HandleEntry>> handles;  // the owning process, the handle
  std::vector<std::u16string> roots;
  std::mutex lock;
  std::map<std::uint32_t, OpenFile> found;
  std::vector<HANDLE> processes;  // duplicates of the callers' process handles, closed at the end

  ~NamingWork() {
    for (HANDLE h : processes) ::CloseHandle(h);
  }
};

DWORD WINAPI NameHandles(LPVOID param) {
  std::unique_ptr<std::shared_ptr<NamingWork>> hold(
      static_cast<std::shared_ptr<NamingWork>*>(param));
  NamingWork& work = **hold;
  const HANDLE me = ::GetCurrentProcess();
  std::wstring buffer(32768, L'\0');
  for (const auto& [process, entry] : work.handles) {
    const auto pid = static_cast<std::uint32_t>(entry.pid);
    {
      std::lock_guard<std::mutex> guard(work.lock);
      if (work.found.count(pid)) continue;
    }
    HANDLE raw = nullptr;
    if (!::DuplicateHandle(process, reinterpret_cast<HANDLE>(entry.value), me, &raw, 0, FALSE,
                           DUPLICATE_SAME_ACCESS))
      continue;
    OwnedHandle copy(raw);
    // Only files on disks are named: naming a pipe may block.
    if (::GetFileType(copy.get()) != FILE_TYPE_DISK) continue;
    const DWORD n =
        ::GetFinalPathNameByHandleW(copy.get(), buffer.data(), static_cast<DWORD>(buffer.size()),
                                    FILE_NAME_NORMALIZED | VOLUME_NAME_DOS);
    if (n == 0 || n >= buffer.size()) continue;
    std::u16string path(reinterpret_cast<const char16_t*>(buffer.data()), n);
    if (path.starts_with(u"\\\\?\\UNC\\"))
      path = u"\\\\" + path.substr(8);
    else if (path.starts_with(u"\\\\?\\"))
      path = path.substr(4);
    bool under = false;
    for (const auto& root : work.roots) under = under || IsUnder(path, root);
    if (!under) continue;
    BY_HANDLE_FILE_INFORMATION info{};
    const bool folder = ::GetFileInformationByHandle(copy.get(), &info) &&
                        (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY);
    std::lock_guard<std::mutex> guard(work.lock);
    OpenFile& f = work.found[pid];
    f.path = std::move(path);
    f.folder = folder;
  }
  return 0;
}

constexpr DWORD kNamingLimitMs = 5000;

// The first file or folder each of the given processes holds open under one of the roots.
std::map<std::uint32_t, OpenFile> OpenFilesOnVolumes(
    const std::map<std::uint32_t, HANDLE>& processes, const std::vector<std::u16string>& roots) {
  if (processes.empty()) return {};
  // The kind of object a file is, learnt from a file handle of our own that is open while the
  // list is taken: the rest of the list is then sorted without opening anything. 0 when it
  // cannot be learnt (every handle is then tried, GetFileType sorting them).
  wchar_t own[MAX_PATH + 1] = {};
  ::GetModuleFileNameW(nullptr, own, MAX_PATH);
  OwnedHandle probe(::CreateFileW(own, 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                  nullptr, OPEN_EXISTING, 0, nullptr));
  const std::vector<HandleEntry> all = SystemHandles();
  USHORT file_type = 0;
  for (const auto& e : all)
    if (probe && e.pid == ::GetCurrentProcessId() &&
        reinterpret_cast<HANDLE>(e.value) == probe.get())
      file_type = e.type_index;
  auto work = std::make_shared<NamingWork>();
  work->roots = roots;
  std::map<std::uint32_t, HANDLE> mine;
  for (const auto& [pid, process] : processes) {
    HANDLE copy = nullptr;
    if (::DuplicateHandle(::GetCurrentProcess(), process, ::GetCurrentProcess(), &copy, 0, FALSE,
                          DUPLICATE_SAME_ACCESS)) {
      work->processes.push_back(copy);
      mine[pid] = copy;
    }
  }
  for (const auto& e : all) {
    if (file_type != 0 && e.type_index != file_type) continue;
    const auto p = mine.find(static_cast<std::uint32_t>(e.pid));
    if (p != mine.end()) work->handles.emplace_back(p->second, e);
  }
  if (work->handles.empty()) return {};
  auto* param = new std::shared_ptr<NamingWork>(work);
  OwnedHandle thread(::CreateThread(nullptr, 0, NameHandles, param, 0, nullptr));
  if (!thread) {
    delete param;
    return {};
  }
  ::WaitForSingleObject(thread.get(), kNamingLimitMs);
  std::lock_guard<std::mutex> guard(work->lock);
  return work->found;
}

}  // namespace

std::u16string GetVolumePathNameW(std::u16string_view path) {
  std::wstring p = Wide(path);
  std::wstring buf(32768, L'\0');
  if (p.empty() || !::GetVolumePathNameW(p.c_str(), buf.data(), static_cast<DWORD>(buf.size())))
    return std::u16string();
  return Text(buf.c_str());
}

namespace {

std::uint32_t GetDriveTypeW(std::u16string_view root) {
  return ::GetDriveTypeW(Wide(root).c_str());
}

}  // namespace

bool side::QueryStorageDevice(std::u16string_view root, StorageDevice* out) {
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

VolumeHolders ProcessesUsingVolumes(const std::vector<std::u16string>& roots) {
  VolumeHolders out;
  const std::uint32_t self = GetCurrentProcessId();
  const auto own_user = TokenUserOf(::GetCurrentProcess());
  const PSID own_sid = own_user ? reinterpret_cast<TOKEN_USER*>(own_user.get())->User.Sid : nullptr;
  auto on_drive = [&](std::u16string_view path) {
    for (const auto& root : roots)
      if (IsUnder(path, root)) return true;
    return false;
  };

  // Every process but the caller and the kernel's own (the idle process and System, which no
  // user opens), and whether its handles can be looked at.
  struct Candidate {
    ProcessEntry process;
    std::unique_ptr<OwnedHandle> handle;
    bool own = false;
    bool found = false;
    VolumeHolder holder;
  };
  std::vector<Candidate> candidates;
  for (auto& p : EnumProcesses()) {
    if (p.pid == self || p.pid == 0 || p.pid == 4) continue;
    Candidate c;
    c.process = std::move(p);
    c.handle = std::make_unique<OwnedHandle>(::OpenProcess(
        PROCESS_QUERY_LIMITED_INFORMATION | PROCESS_DUP_HANDLE, FALSE, c.process.pid));
    if (!*c.handle) c.handle.reset();
    if (c.handle) {
      const auto user = TokenUserOf(c.handle->get());
      c.own = own_sid && user &&
              ::EqualSid(own_sid, reinterpret_cast<TOKEN_USER*>(user.get())->User.Sid);
    }
    candidates.push_back(std::move(c));
  }
  auto found = [](Candidate& c, HoldKind kind, std::u16string path) {
    if (c.found && c.holder.kind <= kind) return;
    c.found = true;
    c.holder.kind = kind;
    c.holder.held = std::move(path);
  };

  // The executable, then every module loaded from the drive.
  for (auto& c : candidates) {
    if (!c.process.image.empty() && on_drive(c.process.image))
      found(c, HoldKind::kProgram, c.process.image);
    if (c.found || !c.handle) continue;
    OwnedHandle modules(
        ::CreateToolhelp32Snapshot(TH32CS_SNAPMODULE | TH32CS_SNAPMODULE32, c.process.pid));
    if (!modules) continue;
    MODULEENTRY32W module{};
    module.dwSize = sizeof module;
    for (BOOL more = ::Module32FirstW(modules.get(), &module); more;
         more = ::Module32NextW(modules.get(), &module)) {
      const std::u16string path = Text(module.szExePath);
      if (on_drive(path)) {
        found(c, HoldKind::kModule, path);
        break;
      }
    }
  }

  // Open files and folders, the current folder among them, from the system's handle list.
  std::map<std::uint32_t, HANDLE> opened;
  for (const auto& c : candidates)
    if (c.handle && !c.found) opened[c.process.pid] = c.handle->get();
  const std::map<std::uint32_t, OpenFile> files = OpenFilesOnVolumes(opened, roots);
  for (auto& c : candidates) {
    const auto f = files.find(c.process.pid);
    if (f != files.end())
      found(c, f->second.folder ? HoldKind::kFolder : HoldKind::kFile, f->second.path);
  }

  const std::map<std::uint32_t, std::u16string> titles = WindowTitles();
  for (auto& c : candidates) {
    if (!c.found) {
      if (!c.handle) ++out.uninspected;
      continue;
    }
    c.holder.process = std::move(c.process);
    const auto t = titles.find(c.holder.process.pid);
    if (t != titles.end()) c.holder.title = t->second;
    c.holder.closable = c.own && t != titles.end();
    out.processes.push_back(std::move(c.holder));
  }
  return out;
}

namespace {

// One <Data Name='name'> value of an event's XML, its entities decoded; "" when missing.
std::u16string EventData(std::u16string_view xml, std::u16string_view name) {
  for (const char16_t quote : {u'\'', u'"'}) {
    const std::u16string open = u"Name=" + std::u16string(1, quote) + std::u16string(name) +
                                std::u16string(1, quote) + u">";
    const std::size_t at = xml.find(open);
    if (at == std::u16string_view::npos) continue;
    const std::size_t start = at + open.size();
    const std::size_t end = xml.find(u"</Data>", start);
    if (end == std::u16string_view::npos) return u"";
    std::u16string value(xml.substr(start, end - start));
    for (const auto& [entity, c] :
         {std::pair<std::u16string_view, std::u16string_view>{u"&lt;", u"<"},
          {u"&gt;", u">"},
          {u"&quot;", u"\""},
          {u"&apos;", u"'"},
          {u"&amp;", u"&"}})
      value = base::ReplaceAll(std::move(value), entity, c);
    return value;
  }
  return u"";
}

}  // namespace

std::vector<RemovalVeto> RecentRemovalVetoes(std::uint32_t seconds) {
  std::vector<RemovalVeto> out;
  // From the system folder only: a copy of the ejector runs from a temporary folder.
  HMODULE wevtapi = ::LoadLibraryExW(L"wevtapi.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
  if (!wevtapi) return out;
  const auto query = reinterpret_cast<decltype(&::EvtQuery)>(
      reinterpret_cast<void*>(::GetProcAddress(wevtapi, "EvtQuery")));
  const auto next = reinterpret_cast<decltype(&::EvtNext)>(
      reinterpret_cast<void*>(::GetProcAddress(wevtapi, "EvtNext")));
  const auto render = reinterpret_cast<decltype(&::EvtRender)>(
      reinterpret_cast<void*>(::GetProcAddress(wevtapi, "EvtRender")));
  const auto close = reinterpret_cast<decltype(&::EvtClose)>(
      reinterpret_cast<void*>(::GetProcAddress(wevtapi, "EvtClose")));
  if (query && next && render && close) {
    const std::wstring filter =
        L"*[System[Provider[@Name='Microsoft-Windows-Kernel-PnP'] and (EventID=225) and "
        L"TimeCreated[timediff(@SystemTime) <= " +
        std::to_wstring(static_cast<unsigned long long>(seconds) * 1000) + L"]]]";
    EVT_HANDLE results =
        query(nullptr, L"System", filter.c_str(), EvtQueryChannelPath | EvtQueryReverseDirection);
    std::vector<ProcessEntry> running;
    bool listed = false;
    EVT_HANDLE events[16];
    DWORD count = 0;
    // A bounded wait for each batch: the log service may be slow, and the ejector must not hang.
    while (results && out.size() < 64 && next(results, 16, events, 2000, 0, &count) && count > 0) {
      for (DWORD i = 0; i < count; ++i) {
        DWORD used = 0, properties = 0;
        render(nullptr, events[i], EvtRenderEventXml, 0, nullptr, &used, &properties);
        std::vector<wchar_t> buffer(used / sizeof(wchar_t) + 1);
        if (used > 0 && render(nullptr, events[i], EvtRenderEventXml,
                               static_cast<DWORD>(buffer.size() * sizeof(wchar_t)), buffer.data(),
                               &used, &properties)) {
          const std::u16string xml = Text(buffer.data());
          RemovalVeto veto;
          std::size_t digits = 0;
          const std::u16string pid = EventData(xml, u"ProcessId");
          const double number = base::ReadNumber(pid, digits);
          veto.process.pid = digits == pid.size() && number > 0 && number < 4294967296.0
                                 ? static_cast<std::uint32_t>(number)
                                 : 0;
          veto.process.image = EventData(xml, u"ProcessName");
          veto.device = EventData(xml, u"DeviceInstance");
          // The process as it runs now, when it still runs under the same file name.
          if (!listed) running = EnumProcesses(), listed = true;
          for (const ProcessEntry& p : running) {
            const auto name = [](std::u16string_view path) {
              return path.substr(path.find_last_of(u"\\/") + 1);
            };
            if (p.pid == veto.process.pid &&
                base::EqualNoCase(name(p.image), name(veto.process.image)))
              veto.process = p;
          }
          if (veto.process.pid != 0 && !veto.device.empty()) out.push_back(std::move(veto));
        }
        close(events[i]);
      }
    }
    if (results) close(results);
  }
  ::FreeLibrary(wevtapi);
  return out;
}

}  // namespace os
