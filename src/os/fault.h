// Failures on demand, for tests: arm an operation of the seam and its next call (or its n-th)
// fails as the platform would, with the given error number, without any root tricks.
//
//   os::fault::Scope faults;                                   // disarms everything at exit
//   os::fault::Arm(os::fault::Op::kMoveFile, os::kErrorAccessDenied);
//   EXPECT_FALSE(SaveFile(...));
//
// The seam implementations ask Hit(op) at the start of each armed operation.
#pragma once

#include <cstdint>
#include <functional>

namespace os::fault {

enum class Op : int {
  kShellExecute,   // ShellExecuteW / ShellExecuteExW refuse the start
  kCreateFolder,   // CreateDirectoryW
  kMoveFile,       // MoveFileW
  kDeleteFile,     // DeleteFileW
  kOpenFile,       // CreateFileW
  kReadFile,       // ReadFile
  kSeek,           // SetFilePointer
  kAlloc,          // VirtualAlloc / VirtualLock of the write block
  kWrite,          // WriteFile fails
  kShortWrite,     // WriteFile succeeds but writes fewer bytes than asked
  kFlush,          // FlushFileBuffers / fsync
  kGetAttributes,  // GetFileAttributesW
  kSetAttributes,  // SetFileAttributesW
  kFindFile,       // FindFirstFileW
  kFullPathName,   // GetFullPathNameW
  kVolumeInfo,     // GetVolumeInformationW
  kDeviceQuery,    // DeviceIoControl
  kCount
};

// Makes the nth call of op from now (1 = the next one) fail with error, and the `times`
// calls after it too (times <= 0: every call from then on).
void Arm(Op op, std::uint32_t error, int nth = 1, int times = 1);

// Disarms every operation and removes any clock override.
void Reset();

// For the seam: true when this call of op must fail; SetLastError has then been done.
bool Hit(Op op);

// Replaces the millisecond clock (TimeGetTime) while set; an empty function removes it.
void SetClock(std::function<std::uint32_t()> clock);
bool ClockOverridden(std::uint32_t* now);

// Disarms everything when it goes out of scope.
class Scope {
 public:
  Scope() = default;
  ~Scope() { Reset(); }
  Scope(const Scope&) = delete;
  Scope& operator=(const Scope&) = delete;
};

}  // namespace os::fault
