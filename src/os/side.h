// What each side of the seam (win32/, posix/) implements behind the shared front (front.cpp).
//
// The front is what the program calls: it hands handles over as owned objects and, for tests,
// makes an operation fail on demand (os/fault.h) before the side is reached. The sides hold
// the platform code alone. Only the seam includes this header.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "os/apps.h"
#include "os/files.h"
#include "os/process.h"
#include "os/types.h"
#include "os/ui.h"

namespace os::side {

// Each as the public function of the same name, with raw handles.
std::uint32_t GetFullPathNameW(const char16_t* path, std::uint32_t buffer_size, char16_t* buffer);
Handle FindFirstFileW(const char16_t* pattern, FindData* entry);
bool FindNextFileW(Handle search, FindData* entry);
bool FindClose(Handle search);
std::uint32_t GetFileAttributesW(const char16_t* path);
bool SetFileAttributesW(const char16_t* path, std::uint32_t attributes);
bool DeleteFileW(const char16_t* path);
bool MoveFileW(const char16_t* source, const char16_t* destination);
bool CreateDirectoryW(const char16_t* path);
bool RemoveDirectoryW(const char16_t* path);
Handle CreateFileW(const char16_t* path, std::uint32_t access, std::uint32_t share,
                   std::uint32_t disposition, std::uint32_t flags_and_attributes);
bool ReadFile(Handle file, void* buffer, std::uint32_t size, std::uint32_t* done);
bool WriteFile(Handle file, const void* buffer, std::uint32_t size, std::uint32_t* done);
std::uint32_t SetFilePointer(Handle file, std::int32_t distance, std::int32_t* distance_high,
                             std::uint32_t method);
std::uint32_t GetFileSize(Handle file, std::uint32_t* size_high);
bool FlushFileBuffers(Handle file);
bool FlushFolder(const char16_t* path);
bool CloseFile(Handle file);

// VirtualAlloc (MEM_COMMIT, PAGE_READWRITE) / VirtualLock / VirtualUnlock / VirtualFree.
void* VirtualAlloc(std::size_t size);
bool VirtualLock(void* block, std::size_t size);
bool VirtualUnlock(void* block, std::size_t size);
bool VirtualFree(void* block, std::size_t size);

bool GetVolumeInformationW(const char16_t* root, char16_t* label, std::uint32_t label_size,
                           std::uint32_t* serial, std::uint32_t* max_component_length,
                           std::uint32_t* flags, char16_t* file_system,
                           std::uint32_t file_system_size);
bool DeviceIoControl(Handle device, std::uint32_t code, const void* in, std::uint32_t in_size,
                     void* out, std::uint32_t out_size, std::uint32_t* returned);

std::u16string GetLocaleInfoW(std::uint32_t locale, std::uint32_t type);

std::u16string CreatePrivateFolder(std::u16string_view parent, std::u16string_view prefix);
bool CopyFileW(const char16_t* source, const char16_t* destination, bool fail_if_exists);

std::intptr_t ShellExecuteW(Handle owner, const char16_t* verb, const char16_t* file,
                            const char16_t* parameters, const char16_t* directory,
                            int show_command);
bool ShellExecuteExW(ShellExecuteInfo& info);
bool GetExitCodeProcess(Handle process, std::uint32_t* exit_code);
void CloseProcess(Handle process);
void PumpMessages();
void Sleep(std::uint32_t milliseconds);
std::uint32_t TimeGetTime();
Handle LoadLibraryW(const char16_t* name);
void FreeLibrary(Handle module);

std::int32_t MessageBoxIndirectW(const MessageBoxParams& params);

bool QueryStorageDevice(std::u16string_view root, StorageDevice* device);

// The platform's progress window, as os::ProgressWindow.
class ProgressDialog {
 public:
  ProgressDialog();
  ~ProgressDialog();
  ProgressDialog(const ProgressDialog&) = delete;
  ProgressDialog& operator=(const ProgressDialog&) = delete;
  bool Show(std::u16string_view caption, std::u16string_view close_now, std::u16string_view cancel);
  void Update(std::u16string_view text, std::u16string_view line, int percent);
  ProgressPress Pressed();
  Handle Window();
  void Close();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// The ShellExecuteW result (at most 32) that stands for a failure with this error number.
std::intptr_t ShellResultFromError(std::uint32_t error);

}  // namespace os::side
