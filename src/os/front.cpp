// The front of the seam, shared by both sides: every call that hands over a handle wraps it in
// its owner here, and every operation a test can make fail (os/fault.h) or watch is checked or
// told here, once, before the side (os/side.h) is reached.
#include <utility>

#include "os/apps.h"
#include "os/fault.h"
#include "os/files.h"
#include "os/locale.h"
#include "os/process.h"
#include "os/program_env.h"
#include "os/side.h"
#include "os/ui.h"
#include "os/volume.h"

namespace os {

using fault::Hit;
using fault::Op;

namespace detail {
void FindClose(Handle search) {
  side::FindClose(search);
}
void CloseFile(Handle file) {
  side::CloseFile(file);
}
void CloseProcess(Handle process) {
  side::CloseProcess(process);
}
void FreeLibrary(Handle module) {
  side::FreeLibrary(module);
}
}  // namespace detail

std::intptr_t side::ShellResultFromError(std::uint32_t error) {
  if (error == kErrorNoAssociation) return 31;     // SE_ERR_NOASSOC
  if (error == kErrorSharingViolation) return 26;  // SE_ERR_SHARE
  return error <= 32 ? static_cast<std::intptr_t>(error) : 0;
}

// ---- files and folders ---------------------------------------------------------------------

std::uint32_t GetFullPathNameW(const char16_t* path, std::uint32_t buffer_size, char16_t* buffer) {
  return side::GetFullPathNameW(path, buffer_size, buffer);
}

FileSearch FindFirstFileW(const char16_t* pattern, FindData* entry) {
  if (Hit(Op::kFindFile)) return FileSearch();
  return FileSearch(side::FindFirstFileW(pattern, entry));
}

bool FindNextFileW(const FileSearch& search, FindData* entry) {
  return side::FindNextFileW(search.get(), entry);
}

std::uint32_t GetFileAttributesW(const char16_t* path) {
  return side::GetFileAttributesW(path);
}

bool SetFileAttributesW(const char16_t* path, std::uint32_t attributes) {
  return side::SetFileAttributesW(path, attributes);
}

bool DeleteFileW(const char16_t* path) {
  return !Hit(Op::kDeleteFile) && side::DeleteFileW(path);
}

bool MoveFileW(const char16_t* source, const char16_t* destination) {
  return !Hit(Op::kMoveFile) && side::MoveFileW(source, destination);
}

bool CreateDirectoryW(const char16_t* path) {
  return !Hit(Op::kCreateFolder) && side::CreateDirectoryW(path);
}

bool RemoveDirectoryW(const char16_t* path) {
  return !Hit(Op::kDeleteFile) && side::RemoveDirectoryW(path);
}

File CreateFileW(const char16_t* path, std::uint32_t access, std::uint32_t share,
                 std::uint32_t disposition, std::uint32_t flags_and_attributes) {
  if (Hit(Op::kOpenFile)) return File();
  return File(side::CreateFileW(path, access, share, disposition, flags_and_attributes));
}

bool ReadFile(const File& file, void* buffer, std::uint32_t size, std::uint32_t* done) {
  if (done) *done = 0;
  return side::ReadFile(file.get(), buffer, size, done);
}

bool WriteFile(const File& file, const void* buffer, std::uint32_t size, std::uint32_t* done) {
  if (done) *done = 0;
  if (Hit(Op::kWrite)) return false;
  // A short write: the disk took only part of the data and still reported success.
  if (size > 0 && Hit(Op::kShortWrite)) size -= 1;
  return side::WriteFile(file.get(), buffer, size, done);
}

std::uint32_t SetFilePointer(const File& file, std::int32_t distance, std::int32_t* distance_high,
                             std::uint32_t method) {
  return side::SetFilePointer(file.get(), distance, distance_high, method);
}

std::uint32_t GetFileSize(const File& file, std::uint32_t* size_high) {
  return side::GetFileSize(file.get(), size_high);
}

bool FlushFileBuffers(const File& file) {
  return !Hit(Op::kFlush) && side::FlushFileBuffers(file.get());
}

bool FlushFolder(const char16_t* path) {
  return !Hit(Op::kFlush) && side::FlushFolder(path);
}

// The allocation and the pinning each count as one call of kAlloc.
LockedBlock::LockedBlock(std::size_t size) {
  if (Hit(Op::kAlloc)) return;
  void* block = side::VirtualAlloc(size);
  if (!block) return;
  if (Hit(Op::kAlloc) || !side::VirtualLock(block, size)) {
    side::VirtualFree(block, size);
    return;
  }
  data_ = static_cast<char*>(block);
  size_ = size;
}

LockedBlock::LockedBlock(LockedBlock&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}

LockedBlock& LockedBlock::operator=(LockedBlock&& other) noexcept {
  LockedBlock taken(std::move(other));
  std::swap(data_, taken.data_);
  std::swap(size_, taken.size_);
  return *this;
}

LockedBlock::~LockedBlock() {
  if (!data_) return;
  side::VirtualUnlock(data_, size_);
  side::VirtualFree(data_, size_);
}

// ---- volumes, locale, the program's surroundings -------------------------------------------

bool GetVolumeInformationW(const char16_t* root, char16_t* label, std::uint32_t label_size,
                           std::uint32_t* serial, std::uint32_t* max_component_length,
                           std::uint32_t* flags, char16_t* file_system,
                           std::uint32_t file_system_size) {
  return !Hit(Op::kVolumeInfo) &&
         side::GetVolumeInformationW(root, label, label_size, serial, max_component_length, flags,
                                     file_system, file_system_size);
}

bool DeviceIoControl(const File& device, std::uint32_t code, const void* in, std::uint32_t in_size,
                     void* out, std::uint32_t out_size, std::uint32_t* returned) {
  if (returned) *returned = 0;
  return !Hit(Op::kDeviceQuery) &&
         side::DeviceIoControl(device.get(), code, in, in_size, out, out_size, returned);
}

bool QueryStorageDevice(std::u16string_view root, StorageDevice* device) {
  if (!side::QueryStorageDevice(root, device)) return false;
  const std::u16string disk = fault::RemovableDisk();
  if (!disk.empty() && disk == device->disk) {
    if (!device->chain.empty()) device->chain[0].removable = true;
    if (device->drive_type == kDriveFixed) device->drive_type = kDriveRemovable;
  }
  return true;
}

std::u16string GetLocaleInfoW(std::uint32_t locale, std::uint32_t type) {
  if (Hit(Op::kLocaleInfo)) return std::u16string();
  return side::GetLocaleInfoW(locale, type);
}

std::u16string CreatePrivateFolder(std::u16string_view parent, std::u16string_view prefix) {
  if (Hit(Op::kCreateFolder)) return std::u16string();
  return side::CreatePrivateFolder(parent, prefix);
}

bool CopyFileW(const char16_t* source, const char16_t* destination, bool fail_if_exists) {
  return !Hit(Op::kCopyFile) && side::CopyFileW(source, destination, fail_if_exists);
}

// ---- starting programs, time, the message loop, boxes --------------------------------------

std::intptr_t ShellExecuteW(Handle owner, const char16_t* verb, const char16_t* file,
                            const char16_t* parameters, const char16_t* directory,
                            int show_command) {
  fault::Notify(fault::Event::kShellExecute, show_command);
  if (Hit(Op::kShellExecute)) return side::ShellResultFromError(GetLastError());
  return side::ShellExecuteW(owner, verb, file, parameters, directory, show_command);
}

bool ShellExecuteExW(ShellExecuteInfo& info) {
  info.inst_app = 0;
  info.process = Process();
  fault::Notify(fault::Event::kShellExecute, info.show);
  if (Hit(Op::kShellExecute)) {
    info.inst_app = side::ShellResultFromError(GetLastError());
    return false;
  }
  const bool started = side::ShellExecuteExW(info);
  if (info.process) fault::Notify(fault::Event::kProcessStarted, info.process.get());
  return started;
}

bool GetExitCodeProcess(Handle process, std::uint32_t* exit_code) {
  if (!side::GetExitCodeProcess(process, exit_code)) return false;
  fault::Notify(fault::Event::kExitCodeRead, *exit_code);
  return true;
}

void PumpMessages() {
  fault::Notify(fault::Event::kMessagesPumped);
  side::PumpMessages();
}

void Sleep(std::uint32_t milliseconds) {
  fault::Notify(fault::Event::kSlept, milliseconds);
  side::Sleep(milliseconds);
}

std::uint32_t TimeGetTime() {
  std::uint32_t now;
  return fault::ClockOverridden(&now) ? now : side::TimeGetTime();
}

Library LoadLibraryW(const char16_t* name) {
  return Library(side::LoadLibraryW(name));
}

std::int32_t MessageBoxIndirectW(const MessageBoxParams& params) {
  std::int32_t answer = 0;
  return fault::AnswerMessageBox(params, &answer) ? answer : side::MessageBoxIndirectW(params);
}

ProgressWindow::ProgressWindow() : dialog_(std::make_unique<side::ProgressDialog>()) {}

ProgressWindow::~ProgressWindow() {
  Close();
}

bool ProgressWindow::Show(std::u16string_view caption, std::u16string_view close_now,
                          std::u16string_view cancel) {
  return fault::ProgressAnswered() || dialog_->Show(caption, close_now, cancel);
}

void ProgressWindow::Update(std::u16string_view text, std::u16string_view line, int percent) {
  if (!fault::AnswerProgress(text, &answered_)) dialog_->Update(text, line, percent);
}

ProgressPress ProgressWindow::Pressed() {
  if (!fault::ProgressAnswered()) return dialog_->Pressed();
  const ProgressPress press = answered_;
  answered_ = ProgressPress::kNone;
  return press;
}

Handle ProgressWindow::Window() {
  return fault::ProgressAnswered() ? 0 : dialog_->Window();
}

void ProgressWindow::Close() {
  dialog_->Close();
}

}  // namespace os
