// Files and folders: full path names, directory search, attributes, delete, move, folder
// creation, the system's error texts, file handles and a locked memory block.
//
// Paths are the program's UTF-16 paths. Both "\" and "/" separate folders; a path may carry the
// "\\?\" prefix that Windows uses for long paths. Searches, files and blocks are owned objects:
// each is closed or released when it goes.
//
//   os::FindData entry;
//   if (os::FileSearch search = os::FindFirstFileW(u"C:\\data\\*.xml", &entry)) {
//     do { ... entry.name ... } while (os::FindNextFileW(search, &entry));
//   }
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "os/types.h"

namespace os {

// File attribute bits.
enum : std::uint32_t {
  kAttributeReadOnly = 0x1,
  kAttributeHidden = 0x2,
  kAttributeSystem = 0x4,
  kAttributeVolumeLabel = 0x8,
  kAttributeDirectory = 0x10,
  kAttributeArchive = 0x20,
  kAttributeNormal = 0x80,
  kInvalidFileAttributes = 0xFFFFFFFF,
};

// GetFullPathNameW: the absolute, normalised form of path ("." and ".." resolved, "/" turned
// into "\" for drive and network paths) written into buffer with its terminator. Returns its
// length without the terminator; when buffer_size is too small, the size needed including the
// terminator (the buffer is then not written); 0 on failure.
std::uint32_t GetFullPathNameW(const char16_t* path, std::uint32_t buffer_size, char16_t* buffer);

// One entry of a directory search (WIN32_FIND_DATAW, reduced to what the program reads).
// Times count 100-nanosecond steps since 1 January 1601, UTC.
struct FindData {
  std::uint32_t attributes = 0;
  std::uint64_t creation_time = 0;
  std::uint64_t last_access_time = 0;
  std::uint64_t last_write_time = 0;
  std::uint32_t size_high = 0;
  std::uint32_t size_low = 0;
  std::u16string name;  // the entry's name, without its folder
};

namespace detail {
void FindClose(Handle search);
void CloseFile(Handle file);
}  // namespace detail

// An open directory search, closed (FindClose) when it goes.
using FileSearch = Owned<&detail::FindClose, kInvalidHandle>;
// An open file or device, closed (CloseHandle) when it goes.
using File = Owned<&detail::CloseFile, kInvalidHandle>;

// FindFirstFileW: opens a search for pattern (a folder, then a name that may hold "*" and "?",
// compared without regard to case; "*.*" matches every name) and fills the first entry.
// Empty on failure (2 nothing matches, 3 the folder does not exist).
FileSearch FindFirstFileW(const char16_t* pattern, FindData* entry);
// FindNextFileW: the next entry; false with error 18 (ERROR_NO_MORE_FILES) at the end.
bool FindNextFileW(const FileSearch& search, FindData* entry);

// GetFileAttributesW: the attribute bits, or kInvalidFileAttributes with the last error set.
std::uint32_t GetFileAttributesW(const char16_t* path);
// SetFileAttributesW.
bool SetFileAttributesW(const char16_t* path, std::uint32_t attributes);
// Which volume the file or folder at path lies on, whatever name reached it (a drive letter, a
// substituted letter, a folder the volume is mounted on, a \\?\ path): the volume's serial
// number (GetFileInformationByHandle) / its device number (stat's st_dev), as text. "" when the
// file cannot be opened.
std::u16string VolumeIdentity(std::u16string_view path);

// DeleteFileW: fails with 5 for a read-only file or a folder (32 on Windows while the file is
// open without delete sharing).
bool DeleteFileW(const char16_t* path);
// MoveFileW: renames a file or folder; never replaces an existing destination (183).
bool MoveFileW(const char16_t* source, const char16_t* destination);
// CreateDirectoryW (default security): 183 when it exists, 3 when its parent is missing.
bool CreateDirectoryW(const char16_t* path);
// RemoveDirectoryW: removes an empty folder (145 when it is not empty); a link is not followed.
bool RemoveDirectoryW(const char16_t* path);

// FormatMessageA from the system's message table for an error number: writes the message (as
// the system words it, with its line end) into buffer with a terminator and returns its length
// without it; 0 when there is no message for the number or it does not fit.
std::uint32_t FormatMessageA(std::uint32_t error, char* buffer, std::uint32_t buffer_size);

// CreateFileW access, sharing, disposition and flag values the program uses.
enum : std::uint32_t {
  kGenericRead = 0x80000000,
  kGenericWrite = 0x40000000,
  kFileShareRead = 0x1,
  kFileShareWrite = 0x2,
  kCreateNew = 1,
  kCreateAlways = 2,
  kOpenExisting = 3,
  kOpenAlways = 4,
  kFileFlagRandomAccess = 0x10000000,
  kFileBegin = 0,
  kFileEnd = 2,
  kInvalidSetFilePointer = 0xFFFFFFFF,
};

// CreateFileW: opens or creates a file with the given access, sharing and disposition. A
// device path "\\.\X:" with access 0 opens the volume's device for DeviceIoControl. Empty on
// failure (32 on Windows when another opener's sharing forbids it).
File CreateFileW(const char16_t* path, std::uint32_t access, std::uint32_t share,
                 std::uint32_t disposition, std::uint32_t flags_and_attributes);
// ReadFile / WriteFile: synchronous, the count done written to *done.
bool ReadFile(const File& file, void* buffer, std::uint32_t size, std::uint32_t* done);
bool WriteFile(const File& file, const void* buffer, std::uint32_t size, std::uint32_t* done);
// SetFilePointer: moves by distance (high part through *distance_high when given) from the
// start, the current position or the end. Returns the new position's low part (and its high
// part in *distance_high), or kInvalidSetFilePointer with the last error set.
std::uint32_t SetFilePointer(const File& file, std::int32_t distance, std::int32_t* distance_high,
                             std::uint32_t method);
// GetFileSize: the low part of the size, the high part into *size_high when given.
std::uint32_t GetFileSize(const File& file, std::uint32_t* size_high);
// FlushFileBuffers: the file's data on the disk.
bool FlushFileBuffers(const File& file);
// Makes a folder's entries (files created, renamed or deleted in it) durable on the device.
// POSIX needs this after a rename or a creation (fsync of the folder); Windows' file systems
// keep their own metadata journal, so there it does nothing and answers true.
bool FlushFolder(const char16_t* path);

// A committed read-write memory block pinned in memory (VirtualAlloc with MEM_COMMIT and
// PAGE_READWRITE, then VirtualLock), unpinned and released when it goes (VirtualUnlock,
// VirtualFree). False when it could not be had: allocated or pinned.
class LockedBlock {
 public:
  LockedBlock() = default;
  explicit LockedBlock(std::size_t size);
  LockedBlock(LockedBlock&& other) noexcept;
  LockedBlock& operator=(LockedBlock&& other) noexcept;
  ~LockedBlock();
  explicit operator bool() const { return data_ != nullptr; }
  char* data() const { return data_; }
  std::size_t size() const { return size_; }

 private:
  char* data_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace os
