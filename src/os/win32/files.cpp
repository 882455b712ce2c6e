// Win32 side of the seam: files, folders, searches, error texts and the locked memory block.
// Each call goes straight to the API; the fault hooks let tests make any of them fail.
#include <windows.h>

#include "os/files.h"
#include "os/side.h"

namespace os {
namespace {

const wchar_t* W(const char16_t* s) {
  return reinterpret_cast<const wchar_t*>(s);
}

std::uint64_t Ticks(const FILETIME& t) {
  return (static_cast<std::uint64_t>(t.dwHighDateTime) << 32) | t.dwLowDateTime;
}

void Fill(const WIN32_FIND_DATAW& data, FindData* entry) {
  entry->attributes = data.dwFileAttributes;
  entry->creation_time = Ticks(data.ftCreationTime);
  entry->last_access_time = Ticks(data.ftLastAccessTime);
  entry->last_write_time = Ticks(data.ftLastWriteTime);
  entry->size_high = data.nFileSizeHigh;
  entry->size_low = data.nFileSizeLow;
  entry->name.assign(reinterpret_cast<const char16_t*>(data.cFileName));
}

HANDLE H(Handle h) {
  return reinterpret_cast<HANDLE>(h);
}

}  // namespace

std::uint32_t side::GetFullPathNameW(const char16_t* path, std::uint32_t buffer_size,
                                     char16_t* buffer) {
  return ::GetFullPathNameW(W(path), buffer_size, reinterpret_cast<wchar_t*>(buffer), nullptr);
}

Handle side::FindFirstFileW(const char16_t* pattern, FindData* entry) {
  WIN32_FIND_DATAW data;
  HANDLE h = ::FindFirstFileW(W(pattern), &data);
  if (h == INVALID_HANDLE_VALUE) return kInvalidHandle;
  Fill(data, entry);
  return reinterpret_cast<Handle>(h);
}

bool side::FindNextFileW(Handle search, FindData* entry) {
  WIN32_FIND_DATAW data;
  if (!::FindNextFileW(H(search), &data)) return false;
  Fill(data, entry);
  return true;
}

bool side::FindClose(Handle search) {
  return ::FindClose(H(search)) != FALSE;
}

std::u16string VolumeIdentity(std::u16string_view path) {
  // Opened for its attributes only, folders too, sharing everything: any program may hold it.
  const std::u16string name(path);
  HANDLE file = ::CreateFileW(W(name.c_str()), FILE_READ_ATTRIBUTES,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (file == INVALID_HANDLE_VALUE) return u"";
  BY_HANDLE_FILE_INFORMATION info;
  const bool known = ::GetFileInformationByHandle(file, &info) != FALSE;
  ::CloseHandle(file);
  if (!known) return u"";
  char16_t text[9];
  static constexpr char16_t kHex[] = u"0123456789ABCDEF";
  for (int i = 0; i < 8; ++i) text[i] = kHex[(info.dwVolumeSerialNumber >> (28 - 4 * i)) & 0xF];
  return std::u16string(text, 8);
}

std::uint32_t side::GetFileAttributesW(const char16_t* path) {
  return ::GetFileAttributesW(W(path));
}

bool side::SetFileAttributesW(const char16_t* path, std::uint32_t attributes) {
  return ::SetFileAttributesW(W(path), attributes) != FALSE;
}

bool side::DeleteFileW(const char16_t* path) {
  return ::DeleteFileW(W(path)) != FALSE;
}

bool side::MoveFileW(const char16_t* source, const char16_t* destination) {
  return ::MoveFileW(W(source), W(destination)) != FALSE;
}

bool side::CreateDirectoryW(const char16_t* path) {
  return ::CreateDirectoryW(W(path), nullptr) != FALSE;
}

bool side::RemoveDirectoryW(const char16_t* path) {
  return ::RemoveDirectoryW(W(path)) != FALSE;
}

std::uint32_t FormatMessageA(std::uint32_t error, char* buffer, std::uint32_t buffer_size) {
  return ::FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                          error, 0, buffer, buffer_size, nullptr);
}

Handle side::CreateFileW(const char16_t* path, std::uint32_t access, std::uint32_t share,
                         std::uint32_t disposition, std::uint32_t flags_and_attributes) {
  HANDLE h =
      ::CreateFileW(W(path), access, share, nullptr, disposition, flags_and_attributes, nullptr);
  return h == INVALID_HANDLE_VALUE ? kInvalidHandle : reinterpret_cast<Handle>(h);
}

bool side::ReadFile(Handle file, void* buffer, std::uint32_t size, std::uint32_t* done) {
  DWORD n = 0;
  BOOL ok = ::ReadFile(H(file), buffer, size, &n, nullptr);
  if (done) *done = n;
  return ok != FALSE;
}

bool side::WriteFile(Handle file, const void* buffer, std::uint32_t size, std::uint32_t* done) {
  DWORD n = 0;
  BOOL ok = ::WriteFile(H(file), buffer, size, &n, nullptr);
  if (done) *done = n;
  return ok != FALSE;
}

std::uint32_t side::SetFilePointer(Handle file, std::int32_t distance, std::int32_t* distance_high,
                                   std::uint32_t method) {
  LONG high = distance_high ? *distance_high : 0;
  DWORD low = ::SetFilePointer(H(file), distance, distance_high ? &high : nullptr, method);
  if (distance_high) *distance_high = high;
  return low;
}

std::uint32_t side::GetFileSize(Handle file, std::uint32_t* size_high) {
  DWORD high = 0;
  DWORD low = ::GetFileSize(H(file), &high);
  if (size_high) *size_high = high;
  return low;
}

bool side::FlushFolder(const char16_t*) {
  return true;
}

bool side::FlushFileBuffers(Handle file) {
  return ::FlushFileBuffers(H(file)) != FALSE;
}

bool side::CloseFile(Handle file) {
  return ::CloseHandle(H(file)) != FALSE;
}

void* side::VirtualAlloc(std::size_t size) {
  return ::VirtualAlloc(nullptr, size, MEM_COMMIT, PAGE_READWRITE);
}

bool side::VirtualLock(void* block, std::size_t size) {
  return ::VirtualLock(block, size) != FALSE;
}

bool side::VirtualUnlock(void* block, std::size_t size) {
  return ::VirtualUnlock(block, size) != FALSE;
}

bool side::VirtualFree(void* block, std::size_t) {
  return ::VirtualFree(block, 0, MEM_RELEASE) != FALSE;
}

}  // namespace os
