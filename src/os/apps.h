// Running applications and the drives they run from: what the two companions stand on.
//
// The process half lists running processes with their executable, asks one to close the way
// a user would (WM_CLOSE to its windows, SIGTERM), tells whether it still runs, and ends it by
// force only when asked. The drive half finds the volume behind a path, describes its disk and
// the devices above it, flushes and ejects what it is told to, and names the processes that
// hold it when the system refuses. Which device to eject is decided above (sys::PlanEject).
//
//   os::StorageDevice dev;
//   if (os::QueryStorageDevice(os::GetVolumePathNameW(path), &dev) && !dev.chain.empty()) {
//     os::EjectAnswer answer;
//     if (!os::RequestDeviceEject(dev.chain[0].id, dev.mount_points, &answer)) ...
//   }
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "os/types.h"

namespace os {

// One running process. image is the full path of its executable, "" when it cannot be read
// (another user's process, a kernel thread, a process that is ending).
struct ProcessEntry {
  std::uint32_t pid = 0;
  std::uint32_t parent_pid = 0;
  std::u16string image;
  // The user it runs as: the SID ("S-1-5-21-...") / the uid ("1000"; "1000:0" when the
  // effective uid differs). "" when it cannot be read.
  std::u16string owner;
  // When it started (creation FILETIME / clock ticks after boot); with pid, it names one
  // process for good. 0 when unknown.
  std::uint64_t start = 0;
};

// Every running process (CreateToolhelp32Snapshot + QueryFullProcessImageNameW under
// PROCESS_QUERY_LIMITED_INFORMATION; /proc/<pid>/exe). Empty on failure, last error set.
std::vector<ProcessEntry> EnumProcesses();

// The calling process's id.
std::uint32_t GetCurrentProcessId();

// The id of the process that started pid; 0 when unknown or pid does not run.
std::uint32_t ParentProcessId(std::uint32_t pid);

// The full path of pid's executable (QueryFullProcessImageNameW); "" when it cannot be read.
std::u16string ProcessImagePath(std::uint32_t pid);

// The user pid runs as, written as in ProcessEntry::owner; "" when it cannot be read.
std::u16string ProcessOwner(std::uint32_t pid);

// True while pid runs. A process that has ended but was not reaped yet (a zombie) does not.
bool IsProcessRunning(std::uint32_t pid);

// The title of one of pid's visible top-level windows; "" when it has none with a title (always
// on POSIX, where windows are the display server's, not the process's).
std::u16string WindowTitle(std::uint32_t pid);

// One process, opened once (a process handle; a pidfd) and held while the program deals with
// it, so that its number cannot come to name another program in the meantime. Every request
// first reads the executable, the owner and the start again through what is held, and does
// nothing when they are no longer those of the entry it was opened for. Note: a kernel without
// pidfd (ENOSYS) holds nothing; the same checks are then made by number just before a signal.
//
//   os::HeldProcess app(entry);  // entry from EnumProcesses
//   if (app.valid() && app.RequestClose(false) >= 0) ... app.Running() ...
class HeldProcess {
 public:
  explicit HeldProcess(const ProcessEntry& expected);
  ~HeldProcess();
  HeldProcess(const HeldProcess&) = delete;
  HeldProcess& operator=(const HeldProcess&) = delete;

  // False when the process had ended or was no longer the entry's program when opened.
  bool valid() const { return valid_; }
  // Asks it to close as a user would: WM_CLOSE posted to each of its visible top-level
  // windows, its console's window only with console_too (that window belongs to every process
  // attached to the console); for an application with none shown (a tray application), to its
  // hidden top-level windows, after WM_QUERYENDSESSION and WM_ENDSESSION; SIGTERM on POSIX. Returns
  // how many requests were sent: 0 when it has no window to close, -1 when it has ended, is no
  // longer the entry's program or may not be signalled (last error set).
  int RequestClose(bool console_too);
  // Ends it by force (TerminateProcess, SIGKILL), after the same check.
  bool Terminate();
  // True while it runs (a zombie does not).
  bool Running() const;

 private:
  bool StillTheSame() const;
  ProcessEntry expected_;
  std::intptr_t handle_ = -1;  // the HANDLE or the pidfd; -1 when none is held
  bool valid_ = false;
};

// A folder window of the shell (an Explorer window) and the folder it shows: it keeps that
// folder's drive busy though no program runs from there.
struct FolderWindow {
  std::intptr_t window = 0;  // its HWND
  std::u16string folder;     // the file-system path shown; "" for a virtual folder
};

// The shell's folder windows, from its window list (IShellWindows); none on POSIX, where a file
// manager's windows are its own and the drive's programs are asked with SIGTERM.
std::vector<FolderWindow> ShellFolderWindows();

// Closes the shell's folder window that has this HWND (IWebBrowserApp::Quit), found again in
// the window list; false when it is no longer there.
bool CloseShellFolderWindow(std::intptr_t window);

// The processes attached to the console pid runs in, pid's own included (AttachConsole +
// GetConsoleProcessList). False when it has none or they cannot be known (the caller has a
// console of its own, say); always false on POSIX, where no window belongs to a console.
bool ConsoleProcesses(std::uint32_t pid, std::vector<std::uint32_t>* pids);

// True when the platform's file names ignore case (so "E:\App" and "e:\app" are one file).
bool PathsIgnoreCase();

// Drive types, as GetDriveTypeW answers them.
enum : std::uint32_t {
  kDriveUnknown = 0,
  kDriveNoRootDir = 1,
  kDriveRemovable = 2,
  kDriveFixed = 3,
  kDriveRemote = 4,
  kDriveCdrom = 5,
  kDriveRamdisk = 6,
};

// Storage bus types (STORAGE_BUS_TYPE) the program looks at.
enum : std::uint32_t {
  kBusUnknown = 0,
  kBusUsb = 7,
};

// The root of the volume that holds path, with a trailing separator (GetVolumePathNameW:
// "E:\"; POSIX: the mount point of the file system holding it, "/media/u/STICK/"). "" when
// none can be found (last error set). path need not exist: its nearest existing folder counts.
std::u16string GetVolumePathNameW(std::u16string_view path);

// What kind of disk a volume sits on. Windows numbers disks, floppies and optical drives
// separately (STORAGE_DEVICE_NUMBER is unique only within a class): a number means nothing
// without its class.
enum class DeviceClass : std::uint8_t { kUnknown, kDisk, kFloppy, kCdrom };

// One device of the tree that holds a disk, as the configuration manager describes it.
struct DeviceNode {
  std::u16string id;             // device instance id ("USB\VID_0781&PID_5567\4C53...")
  bool removable = false;        // CM_DEVCAP_REMOVABLE: may be unplugged while the system runs
  bool eject_supported = false;  // CM_DEVCAP_EJECTSUPPORTED: ejects its medium by itself
};

// A mounted volume of another disk, and the ids of that disk's device and of every device
// above it (its chain, as StorageDevice::chain).
struct OtherVolume {
  std::u16string root;
  std::vector<std::u16string> chain;
};

// What the system says about the device behind a volume. Facts only: which device to eject,
// if any, is decided above the seam (sys::PlanEject).
struct StorageDevice {
  std::u16string root;    // the volume root asked about
  std::u16string volume;  // "\\.\E:" / "/dev/sdb1": what is mounted there
  std::u16string disk;    // the whole disk: its device interface path / "/dev/sdb"
  std::uint32_t drive_type = kDriveUnknown;
  DeviceClass device_class = DeviceClass::kUnknown;
  std::uint32_t device_number = 0xFFFFFFFF;  // STORAGE_DEVICE_NUMBER.DeviceNumber / major:minor
  std::uint32_t bus_type = kBusUnknown;
  bool removable_media = false;  // the device says its medium is removable (a card, a floppy)
  // The volume holding the running system (the Windows folder, "/") and its disk.
  std::u16string system_root;
  DeviceClass system_class = DeviceClass::kUnknown;
  std::uint32_t system_number = 0xFFFFFFFF;
  // The disk's own device first, then each parent up to the root of the tree; empty when the
  // disk cannot be found. POSIX: the disk alone, removable when it sits on the usb bus.
  std::vector<DeviceNode> chain;
  std::vector<std::u16string> mount_points;  // every mounted volume of the disk, root first
  std::vector<OtherVolume> other_volumes;    // mounted volumes of other disks (Windows only)
};

// Finds the device behind a volume root (GetVolumePathNameW's answer). Fills what it can and
// returns true when the drive type is known (even when the device itself cannot be
// identified: chain is then empty); false when root is no volume (last error set).
bool QueryStorageDevice(std::u16string_view root, StorageDevice* device);

// Writes cached data of each volume to its device (FlushFileBuffers on \\.\E:; syncfs).
// True when every flush succeeded.
bool FlushVolumes(const std::vector<std::u16string>& roots);

// Veto types (PNP_VETO_TYPE) an eject answers with.
enum : std::uint32_t {
  kVetoNone = 0,  // PNP_VetoTypeUnknown: no veto
  kVetoPendingClose = 2,
  kVetoWindowsApp = 3,
  kVetoWindowsService = 4,
  kVetoOutstandingOpen = 5,
  kVetoDevice = 6,
  kVetoDriver = 7,
  kVetoIllegalDeviceRequest = 8,
  kVetoInsufficientPower = 9,
  kVetoNonDisableable = 10,
  kVetoLegacyDriver = 11,
  kVetoInsufficientRights = 12,
  kVetoAlreadyRemoved = 13,
};

// What an eject did.
enum class EjectDone {
  kNothing,       // refused or failed
  kRemoved,       // the device was stopped and may be unplugged (CM eject, udisks2 PowerOff)
  kMediaEjected,  // the medium was ejected (udisks2 Eject, CDROMEJECT, SCSI START STOP)
  kUnmounted,     // every volume was unmounted; the device has no eject of its own
};

struct EjectAnswer {
  EjectDone done = EjectDone::kNothing;
  std::uint32_t veto_type = kVetoNone;  // set when the system refused
  std::u16string veto_name;             // what the system names as the reason
  std::u16string method;                // how it was done: "cfgmgr32", "udisks2", "umount" ...
};

// Ejects the device node (CM_Request_Device_EjectW, with a veto-name buffer so that no
// system dialog is shown) and with it every volume of every disk below it; roots are those
// volumes. POSIX: node is the disk; every root is unmounted, then udisks2 powers the disk off
// or ejects it when the service runs, else the block device's eject. True when done is not
// kNothing. A refusal gives false with veto_type set; any other failure false with kVetoNone
// and last error set (a configuration-manager code mapped by CM_MapCrToWin32Err).
bool RequestDeviceEject(std::u16string_view node, const std::vector<std::u16string>& roots,
                        EjectAnswer* answer);

// Ejects only the medium of a disk whose device stays (a card in a built-in reader): every
// root is locked and dismounted (FSCTL_LOCK_VOLUME, FSCTL_DISMOUNT_VOLUME), its removal
// allowed (IOCTL_STORAGE_MEDIA_REMOVAL) and the medium ejected (IOCTL_STORAGE_EJECT_MEDIA).
// A volume that cannot be locked is a refusal (kVetoOutstandingOpen, the root as its name).
// POSIX: as RequestDeviceEject of the disk.
bool EjectMedium(std::u16string_view disk, const std::vector<std::u16string>& roots,
                 EjectAnswer* answer);

// How a process holds a drive, the strongest tie first.
enum class HoldKind : std::uint8_t {
  kProgram,  // its executable is there
  kModule,   // a library or another mapped file of it is there
  kFolder,   // its working folder (or root) is there
  kFile,     // it has a file or folder there open
  kStopped,  // the system recorded that it stopped the device's removal (held: the device)
};

// One process that holds a drive, with one thing it holds there.
struct VolumeHolder {
  ProcessEntry process;
  HoldKind kind = HoldKind::kFile;
  std::u16string held;   // the path it holds
  std::u16string title;  // the title of one of its visible windows; "" for none (always on POSIX)
  // It may be asked to close (HeldProcess::RequestClose): it runs as the calling user and, on
  // Windows, has a visible top-level window to send WM_CLOSE to.
  bool closable = false;
};

struct VolumeHolders {
  std::vector<VolumeHolder> processes;
  // Processes whose files could not be looked at (another user's, an elevated one): they may
  // hold the drive too. Kernel threads are not counted.
  int uninspected = 0;
};

// Processes that hold any of the roots: those whose executable, working folder, root, open
// files or mapped files lie under one of them (POSIX: /proc/<pid>; Windows: the executable, the
// loaded modules, the current folder and every open file handle of the system's handle list,
// named within a time limit). The caller is never listed.
VolumeHolders ProcessesUsingVolumes(const std::vector<std::u16string>& roots);

// A process the system recorded as having stopped the removal of a device.
struct RemovalVeto {
  ProcessEntry process;   // as the record names it, or as it runs now when it still runs
  std::u16string device;  // the device's instance id ("USB\VID_0781&PID_5567\4C53...")
};

// The removals stopped in the last `seconds` seconds, the latest first: on Windows 10 and later
// the Kernel-PnP event 225 of the System log, read through the Windows Event Log API
// (wevtapi.dll, loaded from the system folder). None where the log cannot be read, and always
// none on POSIX, which keeps no such record.
std::vector<RemovalVeto> RecentRemovalVetoes(std::uint32_t seconds);

}  // namespace os
