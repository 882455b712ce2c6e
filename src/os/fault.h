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
#include <string>
#include <string_view>

namespace os {
struct MessageBoxParams;
enum class ProgressPress;
}  // namespace os

namespace os::fault {

enum class Op : int {
  kShellExecute,  // ShellExecuteW / ShellExecuteExW refuse the start
  kCreateFolder,  // CreateDirectoryW
  kMoveFile,      // MoveFileW
  kDeleteFile,    // DeleteFileW
  kOpenFile,      // CreateFileW
  kAlloc,         // VirtualAlloc / VirtualLock of the write block
  kWrite,         // WriteFile fails
  kShortWrite,    // WriteFile succeeds but writes fewer bytes than asked
  kFlush,         // FlushFileBuffers / fsync
  kFindFile,      // FindFirstFileW
  kLocaleInfo,    // GetLocaleInfoW has no answer
  kVolumeInfo,    // GetVolumeInformationW
  kDeviceQuery,   // DeviceIoControl
  kCopyFile,      // CopyFileW
  kPidfd,         // pidfd_open: the kernel has none (ENOSYS); POSIX only
  kCount
};

// Makes the nth call of op from now (1 = the next one) fail with error, and the `times`
// calls after it too (times <= 0: every call from then on).
void Arm(Op op, std::uint32_t error, int nth = 1, int times = 1);

// Disarms every operation and removes the clock override, the observer and the box answer.
void Reset();

// For the seam: true when this call of op must fail; SetLastError has then been done.
bool Hit(Op op);

// Replaces the millisecond clock (TimeGetTime) while set; an empty function removes it.
void SetClock(std::function<std::uint32_t()> clock);
bool ClockOverridden(std::uint32_t* now);

// What a test can watch happen at the seam, in the order it happens.
enum class Event : int {
  kShellExecute,    // a start reached the platform; value: the show command passed on
  kProcessStarted,  // a start handed back a process handle; value: the handle
  kExitCodeRead,    // GetExitCodeProcess answered; value: the code (kStillActive while running)
  kMessagesPumped,  // one pass of the message loop; value: 0
  kSlept,           // Sleep; value: the milliseconds asked for
};

// Installs the function told of every Event while set; an empty function removes it.
void SetObserver(std::function<void(Event, std::intptr_t)> observer);
// For the seam: tells the observer, if any.
void Notify(Event event, std::intptr_t value = 0);

// Answers message boxes in place of the platform while set: MessageBoxIndirectW hands the box
// to the function and returns its answer, and nothing is shown. An empty function removes it.
void SetMessageBoxAnswer(std::function<std::int32_t(const MessageBoxParams&)> answer);
// For the seam: true when a test answered the box; *result then holds the answer.
bool AnswerMessageBox(const MessageBoxParams& params, std::int32_t* result);

// Stands in for the progress window while set: nothing is shown, Show succeeds, and each
// Update hands the text to the function, whose answer is the next press. Empty: removed.
void SetProgressAnswer(std::function<ProgressPress(std::u16string_view text)> answer);
// For the seam: true when a test stands in for the window; *press then holds its answer.
bool AnswerProgress(std::u16string_view text, ProgressPress* press);
bool ProgressAnswered();

// While an object lives, the named disk ("/dev/loop3") counts as removable (QueryStorageDevice)
// even though its device does not say so. A loop device never does, and is the only disk a test
// can make.
class ScopedRemovableDisk {
 public:
  explicit ScopedRemovableDisk(std::u16string disk);
  ~ScopedRemovableDisk();
  ScopedRemovableDisk(const ScopedRemovableDisk&) = delete;
  ScopedRemovableDisk& operator=(const ScopedRemovableDisk&) = delete;

 private:
  std::u16string previous_;
};
// For the seam: the disk named by the living ScopedRemovableDisk, "" when none.
std::u16string RemovableDisk();

// Disarms everything (failures, clock, observer, box and progress answers) when it goes out of
// scope.
class Scope {
 public:
  Scope() = default;
  ~Scope() { Reset(); }
  Scope(const Scope&) = delete;
  Scope& operator=(const Scope&) = delete;
};

}  // namespace os::fault
