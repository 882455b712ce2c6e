// POSIX side of the seam: files, folders, searches, attributes, error texts and the locked
// memory block, answering as Windows does (see README.md for where it can only come close).
#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "base/text.h"
#include "os/files.h"
#include "os/posix/file_table.h"
#include "os/posix/native.h"
#include "os/posix/paths.h"
#include "os/side.h"
#include "os/types.h"

namespace os {
namespace {

constexpr std::uint32_t kErrorNoMoreFiles = 18;
constexpr std::uint32_t kErrorNegativeSeek = 131;
constexpr std::uint32_t kErrorMessageNotFound = 317;
constexpr std::uint32_t kErrorNotSameDevice = 17;
constexpr std::uint32_t kErrorWorkingSetQuota = 1453;
constexpr std::uint32_t kErrorDirectoryName = 267;

bool Fail(std::uint32_t error) {
  SetLastError(error);
  return false;
}

// stat, falling back to the link itself for a dangling symbolic link.
bool StatPath(const std::string& path, struct stat* st) {
  return stat(path.c_str(), st) == 0 || lstat(path.c_str(), st) == 0;
}

void SetErrorFor(const std::string& path) {
  if (errno == ENOENT) {
    SetLastError(posix::NotFoundError(path));
  } else {
    posix::SetLastErrorFromErrno();
  }
}

std::string BaseName(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// "Hidden" is a name that begins with a dot; the folder entries "." and ".." are not hidden.
bool HiddenName(const std::string& name) {
  return name.size() > 1 && name[0] == '.' && name != "..";
}

// Windows' read-only attribute is the owner's missing write permission. It is not applied to
// folders, where Windows does not let it stop anything either.
bool ReadOnly(const struct stat& st) {
  return !S_ISDIR(st.st_mode) && !(st.st_mode & S_IWUSR);
}

std::uint32_t Attributes(const struct stat& st, const std::string& name) {
  std::uint32_t a = S_ISDIR(st.st_mode) ? kAttributeDirectory : kAttributeArchive;
  if (ReadOnly(st)) a |= kAttributeReadOnly;
  if (HiddenName(name)) a |= kAttributeHidden;
  return a;
}

std::uint64_t Ticks(const struct timespec& t) {
  constexpr std::int64_t kEpochDifference = 11644473600;  // 1601-01-01 to 1970-01-01, seconds
  return static_cast<std::uint64_t>(t.tv_sec + kEpochDifference) * 10000000u +
         static_cast<std::uint64_t>(t.tv_nsec) / 100u;
}

// ---- directory search ----------------------------------------------------------------------

// Windows' name matching: "*" any run of characters, "?" exactly one, letters without regard to
// case.
bool Wildcard(std::u16string_view pattern, std::u16string_view name) {
  std::size_t p = 0, n = 0, star = std::u16string_view::npos, resume = 0;
  while (n < name.size()) {
    if (p < pattern.size() && pattern[p] == u'*') {
      star = p++;
      resume = n;
    } else if (p < pattern.size() &&
               (pattern[p] == u'?' || base::UpperChar(pattern[p]) == base::UpperChar(name[n]))) {
      ++p;
      ++n;
    } else if (star != std::u16string_view::npos) {
      p = star + 1;
      n = ++resume;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == u'*') ++p;
  return p == pattern.size();
}

// Wildcard, and the rules of a search's pattern: one ending in ".*" also takes the name without
// any extension ("noext.*" finds "noext"). In a path of Windows shape, dots at the end of the
// pattern may also be left out ("*." is "*", "a.txt." finds "a.txt", "a." finds "a." and "a"),
// as Wine answers; a POSIX path's pattern (keep_names, see posix::KeepsNames) keeps them.
bool Matches(std::u16string_view pattern, std::u16string_view name, bool keep_names) {
  if (Wildcard(pattern, name)) return true;
  if (!keep_names) {
    while (pattern.size() > 1 && pattern.back() == u'.') pattern.remove_suffix(1);
    if (Wildcard(pattern, name)) return true;
  }
  return pattern.size() > 2 && pattern.substr(pattern.size() - 2) == u".*" &&
         Wildcard(pattern.substr(0, pattern.size() - 2), name);
}

struct Search {
  std::vector<FindData> entries;
  std::size_t next = 0;
};

struct Searches {
  std::mutex mutex;
  std::map<Handle, std::shared_ptr<Search>> open;
  Handle next = 0x2000000;
};

Searches& OpenSearches() {
  static Searches searches;
  return searches;
}

bool Before(const FindData& a, const FindData& b) {
  auto rank = [](const FindData& d) { return d.name == u"." ? 0 : d.name == u".." ? 1 : 2; };
  if (rank(a) != rank(b)) return rank(a) < rank(b);
  std::u16string ua = base::Upper(a.name), ub = base::Upper(b.name);
  return ua != ub ? ua < ub : a.name < b.name;
}

FindData Entry(const struct stat& st, const std::string& name) {
  FindData d;
  d.attributes = Attributes(st, name);
  d.creation_time = Ticks(st.st_ctim);
  d.last_access_time = Ticks(st.st_atim);
  d.last_write_time = Ticks(st.st_mtim);
  if (!S_ISDIR(st.st_mode)) {
    auto size = static_cast<std::uint64_t>(st.st_size);
    d.size_high = static_cast<std::uint32_t>(size >> 32);
    d.size_low = static_cast<std::uint32_t>(size);
  }
  d.name = base::Widen(name);
  return d;
}

}  // namespace

Handle side::FindFirstFileW(const char16_t* pattern, FindData* entry) {
  std::u16string_view p(pattern ? pattern : u"");
  std::size_t cut = p.find_last_of(u"\\/");
  std::u16string_view folder = cut == std::u16string_view::npos ? u"" : p.substr(0, cut + 1);
  std::u16string_view mask = cut == std::u16string_view::npos ? p : p.substr(cut + 1);
  if (cut == std::u16string_view::npos && p.size() >= 2 && p[1] == u':') {
    folder = p.substr(0, 2);
    mask = p.substr(2);
  }
  std::string dir;
  if (folder.empty()) {
    dir = ".";
  } else if (!posix::SystemPath(folder, &dir)) {
    return kInvalidHandle;
  }
  if (dir.empty()) dir.assign(1, '/');
  DIR* d = opendir(dir.c_str());
  if (!d) {
    SetLastError(errno == ENOENT || errno == ENOTDIR ? kErrorPathNotFound
                                                     : posix::ErrorFromErrno(errno));
    return kInvalidHandle;
  }
  auto search = std::make_shared<Search>();
  const bool keep_names = posix::KeepsNames(p);
  const bool drive_root = dir.find_first_not_of('/') == std::string::npos;
  if (!dir.empty() && dir.back() != '/') dir += '/';
  while (dirent* e = readdir(d)) {
    std::string name = e->d_name;
    // A drive's root lists no "." and ".." entries.
    if (drive_root && (name == "." || name == "..")) continue;
    if (!Matches(mask, base::Widen(name), keep_names)) continue;
    struct stat st;
    if (!StatPath(dir + name, &st)) continue;
    search->entries.push_back(Entry(st, name));
  }
  closedir(d);
  if (search->entries.empty()) {
    SetLastError(kErrorFileNotFound);
    return kInvalidHandle;
  }
  std::sort(search->entries.begin(), search->entries.end(), Before);
  *entry = search->entries[0];
  search->next = 1;
  Searches& all = OpenSearches();
  std::lock_guard<std::mutex> lock(all.mutex);
  Handle h = all.next++;
  all.open.emplace(h, std::move(search));
  SetLastError(kErrorSuccess);
  return h;
}

bool side::FindNextFileW(Handle handle, FindData* entry) {
  Searches& all = OpenSearches();
  std::lock_guard<std::mutex> lock(all.mutex);
  auto it = all.open.find(handle);
  if (it == all.open.end()) return Fail(kErrorInvalidHandle);
  Search& s = *it->second;
  if (s.next >= s.entries.size()) return Fail(kErrorNoMoreFiles);
  *entry = s.entries[s.next++];
  return true;
}

bool side::FindClose(Handle handle) {
  Searches& all = OpenSearches();
  std::lock_guard<std::mutex> lock(all.mutex);
  if (all.open.erase(handle) == 0) return Fail(kErrorInvalidHandle);
  return true;
}

// ---- attributes, delete, move, folders ---------------------------------------------------

std::u16string VolumeIdentity(std::u16string_view path) {
  std::string p;
  struct stat st;
  if (!posix::SystemPath(std::u16string(path).c_str(), &p) || ::stat(p.c_str(), &st) != 0)
    return u"";
  return base::Widen(std::to_string(static_cast<unsigned long long>(st.st_dev)));
}

std::uint32_t side::GetFileAttributesW(const char16_t* path) {
  std::string p;
  if (!posix::SystemPath(path ? path : u"", &p)) return kInvalidFileAttributes;
  struct stat st;
  if (!StatPath(p, &st)) {
    SetErrorFor(p);
    return kInvalidFileAttributes;
  }
  return Attributes(st, BaseName(p));
}

// Only the read-only bit can be kept: hidden follows the name, and the archive and system bits
// have no place in a POSIX file system.
bool side::SetFileAttributesW(const char16_t* path, std::uint32_t attributes) {
  std::string p;
  if (!posix::SystemPath(path ? path : u"", &p)) return false;
  struct stat st;
  if (stat(p.c_str(), &st) != 0) {
    SetErrorFor(p);
    return false;
  }
  if (S_ISDIR(st.st_mode)) return true;
  mode_t mode = st.st_mode & 07777;
  mode_t wanted =
      (attributes & kAttributeReadOnly) ? mode & ~static_cast<mode_t>(0222) : mode | S_IWUSR;
  if (wanted != mode && chmod(p.c_str(), wanted) != 0) {
    posix::SetLastErrorFromErrno();
    return false;
  }
  return true;
}

bool side::DeleteFileW(const char16_t* path) {
  std::string p;
  if (!posix::SystemPath(path ? path : u"", &p)) return false;
  struct stat st;
  if (lstat(p.c_str(), &st) != 0) {
    SetErrorFor(p);
    return false;
  }
  // Windows refuses to delete a folder or a read-only file, whoever asks.
  if (S_ISDIR(st.st_mode) || (S_ISREG(st.st_mode) && !(st.st_mode & S_IWUSR))) {
    return Fail(kErrorAccessDenied);
  }
  if (unlink(p.c_str()) != 0) {
    SetErrorFor(p);
    return false;
  }
  return true;
}

bool side::MoveFileW(const char16_t* source, const char16_t* destination) {
  std::string from, to;
  if (!posix::SystemPath(source ? source : u"", &from)) return false;
  if (!posix::SystemPath(destination ? destination : u"", &to)) return false;
  struct stat st;
  if (lstat(from.c_str(), &st) != 0) {
    SetErrorFor(from);
    return false;
  }
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
    return true;
  }
  if (errno == EINVAL || errno == ENOSYS) {
    // A file system without the no-replace rename: check, then rename.
    struct stat existing;
    if (lstat(to.c_str(), &existing) == 0) return Fail(kErrorAlreadyExists);
    if (rename(from.c_str(), to.c_str()) == 0) return true;
  }
  if (errno == EEXIST || errno == ENOTEMPTY) return Fail(kErrorAlreadyExists);
  if (errno == EXDEV) return Fail(kErrorNotSameDevice);
  SetErrorFor(to);
  return false;
}

bool side::CreateDirectoryW(const char16_t* path) {
  std::string p;
  if (!posix::SystemPath(path ? path : u"", &p)) return false;
  if (mkdir(p.c_str(), 0777) == 0) return true;
  if (errno == ENOENT || errno == ENOTDIR) return Fail(kErrorPathNotFound);
  posix::SetLastErrorFromErrno();
  return false;
}

bool side::RemoveDirectoryW(const char16_t* path) {
  std::string p;
  if (!posix::SystemPath(path ? path : u"", &p)) return false;
  // rmdir refuses a link (ENOTDIR): what it points to is never touched.
  if (rmdir(p.c_str()) == 0) return true;
  if (errno == ENOTEMPTY || errno == EEXIST) return Fail(kErrorDirNotEmpty);
  if (errno == ENOTDIR) return Fail(kErrorDirectoryName);
  SetErrorFor(p);
  return false;
}

// ---- error texts -------------------------------------------------------------------------

// The system's English texts for the error numbers this side of the seam can report.
std::uint32_t FormatMessageA(std::uint32_t error, char* buffer, std::uint32_t buffer_size) {
  static const std::map<std::uint32_t, const char*> messages = {
      {0, "The operation completed successfully."},
      {1, "Incorrect function."},
      {2, "The system cannot find the file specified."},
      {3, "The system cannot find the path specified."},
      {4, "The system cannot open the file."},
      {5, "Access is denied."},
      {6, "The handle is invalid."},
      {8, "Not enough memory resources are available to process this command."},
      {11, "An attempt was made to load a program with an incorrect format."},
      {17, "The system cannot move the file to a different disk drive."},
      {18, "There are no more files."},
      {29, "The system cannot write to the specified device."},
      {30, "The system cannot read from the specified device."},
      {31, "A device attached to the system is not functioning."},
      {32, "The process cannot access the file because it is being used by another process."},
      {33,
       "The process cannot access the file because another process has locked a portion of "
       "the file."},
      {39, "The disk is full."},
      {50, "The request is not supported."},
      {53, "The network path was not found."},
      {80, "The file exists."},
      {87, "The parameter is incorrect."},
      {112, "There is not enough space on the disk."},
      {122, "The data area passed to a system call is too small."},
      {123, "The filename, directory name, or volume label syntax is incorrect."},
      {131, "An attempt was made to move the file pointer before the beginning of the file."},
      {144, "The directory is not a subdirectory of the root directory."},
      {145, "The directory is not empty."},
      {183, "Cannot create a file when that file already exists."},
      {267, "The directory name is invalid."},
      {1004, "Invalid flags."},
      {1113, "No mapping for the Unicode character exists in the target multi-byte code page."},
      {1117, "The request could not be performed because of an I/O device error."},
      {1155, "No application is associated with the specified file for this operation."},
      {1453, "Insufficient quota to complete the requested service."},
  };
  auto it = messages.find(error);
  if (it == messages.end()) return Fail(kErrorMessageNotFound);
  std::string text = std::string(it->second) + "\r\n";
  if (!buffer || text.size() + 1 > buffer_size) return Fail(kErrorInsufficientBuffer);
  std::memcpy(buffer, text.c_str(), text.size() + 1);
  return static_cast<std::uint32_t>(text.size());
}

// ---- file handles ------------------------------------------------------------------------

Handle side::CreateFileW(const char16_t* path, std::uint32_t access, std::uint32_t share,
                         std::uint32_t disposition, std::uint32_t flags_and_attributes) {
  std::u16string_view name(path ? path : u"");
  if (char16_t letter = posix::DeviceLetter(name)) {
    auto device = std::make_shared<posix::OpenFile>();
    if (!posix::VolumeBlockDevice(letter, &device->sysfs)) return kInvalidHandle;
    device->access = access;
    return posix::AddOpenFile(std::move(device));
  }
  if (disposition < kCreateNew || disposition > kOpenAlways) {
    Fail(kErrorInvalidParameter);
    return kInvalidHandle;
  }
  std::string p;
  if (!posix::SystemPath(name, &p)) return kInvalidHandle;

  const bool reads = access & kGenericRead, writes = access & kGenericWrite;
  struct stat st;
  const bool existed = stat(p.c_str(), &st) == 0;
  if (existed) {
    if (S_ISDIR(st.st_mode)) {
      Fail(kErrorAccessDenied);
      return kInvalidHandle;
    }
    if (disposition == kCreateNew) {
      Fail(kErrorFileExists);
      return kInvalidHandle;
    }
    const bool truncates = disposition == kCreateAlways;
    if ((writes || truncates) && ReadOnly(st)) {
      Fail(kErrorAccessDenied);
      return kInvalidHandle;
    }
  } else if (disposition == kOpenExisting) {
    errno = ENOENT;
    SetErrorFor(p);
    return kInvalidHandle;
  }

  int flags = O_CLOEXEC;
  if (reads && writes) {
    flags |= O_RDWR;
  } else if (writes) {
    flags |= O_WRONLY;
  } else if (reads) {
    flags |= O_RDONLY;
  } else {
    flags |= O_PATH;
  }
  if (!existed) flags |= O_CREAT | O_EXCL;
  mode_t mode = (flags_and_attributes & kAttributeReadOnly) ? 0444 : 0666;
  int fd = open(p.c_str(), flags, mode);
  if (fd < 0) {
    SetErrorFor(p);
    return kInvalidHandle;
  }
  if (existed && (disposition == kCreateAlways) && ftruncate(fd, 0) != 0) {
    posix::SetLastErrorFromErrno();
    close(fd);
    return kInvalidHandle;
  }
  auto file = std::make_shared<posix::OpenFile>();
  file->fd = fd;
  file->access = access;
  Handle h = posix::AddOpenFile(std::move(file));
  // CREATE_ALWAYS and OPEN_ALWAYS tell the caller that the file was already there.
  SetLastError(existed && (disposition == kCreateAlways || disposition == kOpenAlways)
                   ? kErrorAlreadyExists
                   : kErrorSuccess);
  return h;
}

namespace {
std::shared_ptr<posix::OpenFile> DataFile(Handle file, std::uint32_t needed_access) {
  auto f = posix::FindOpenFile(file);
  if (!f || f->fd < 0) {
    SetLastError(kErrorInvalidHandle);
    return nullptr;
  }
  if (needed_access && !(f->access & needed_access)) {
    SetLastError(kErrorAccessDenied);
    return nullptr;
  }
  return f;
}
}  // namespace

bool side::ReadFile(Handle file, void* buffer, std::uint32_t size, std::uint32_t* done) {
  if (done) *done = 0;
  auto f = DataFile(file, kGenericRead);
  if (!f) return false;
  std::uint32_t total = 0;
  while (total < size) {
    ssize_t n = read(f->fd, static_cast<char*>(buffer) + total, size - total);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      posix::SetLastErrorFromErrno();
      if (done) *done = total;
      return false;
    }
    if (n == 0) break;
    total += static_cast<std::uint32_t>(n);
  }
  if (done) *done = total;
  return true;
}

bool side::WriteFile(Handle file, const void* buffer, std::uint32_t size, std::uint32_t* done) {
  if (done) *done = 0;
  auto f = DataFile(file, kGenericWrite);
  if (!f) return false;
  std::uint32_t total = 0;
  while (total < size) {
    ssize_t n = write(f->fd, static_cast<const char*>(buffer) + total, size - total);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      posix::SetLastErrorFromErrno();
      if (done) *done = total;
      return false;
    }
    total += static_cast<std::uint32_t>(n);
  }
  if (done) *done = total;
  return true;
}

std::uint32_t side::SetFilePointer(Handle file, std::int32_t distance, std::int32_t* distance_high,
                                   std::uint32_t method) {
  auto f = DataFile(file, 0);
  if (!f) return kInvalidSetFilePointer;
  std::int64_t move =
      distance_high ? static_cast<std::int64_t>((static_cast<std::uint64_t>(*distance_high) << 32) |
                                                static_cast<std::uint32_t>(distance))
                    : distance;
  if (method > kFileEnd) {
    Fail(kErrorInvalidParameter);
    return kInvalidSetFilePointer;
  }
  const int whence = method == kFileBegin ? SEEK_SET : method == kFileEnd ? SEEK_END : SEEK_CUR;
  off_t at = lseek(f->fd, 0, SEEK_CUR);
  if (whence == SEEK_END) {
    struct stat st;
    fstat(f->fd, &st);
    at = st.st_size;
  } else if (whence == SEEK_SET) {
    at = 0;
  }
  if (at + move < 0) {
    Fail(kErrorNegativeSeek);
    return kInvalidSetFilePointer;
  }
  off_t result = lseek(f->fd, at + move, SEEK_SET);
  if (result < 0) {
    posix::SetLastErrorFromErrno();
    return kInvalidSetFilePointer;
  }
  if (distance_high) *distance_high = static_cast<std::int32_t>(result >> 32);
  SetLastError(kErrorSuccess);
  return static_cast<std::uint32_t>(result);
}

std::uint32_t side::GetFileSize(Handle file, std::uint32_t* size_high) {
  auto f = DataFile(file, 0);
  struct stat st;
  if (!f || fstat(f->fd, &st) != 0) {
    if (f) posix::SetLastErrorFromErrno();
    return 0xFFFFFFFF;
  }
  auto size = static_cast<std::uint64_t>(st.st_size);
  if (size_high) *size_high = static_cast<std::uint32_t>(size >> 32);
  SetLastError(kErrorSuccess);
  return static_cast<std::uint32_t>(size);
}

bool side::FlushFolder(const char16_t* path) {
  int fd = open(posix::NativePath(path ? path : u"").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) {
    posix::SetLastErrorFromErrno();
    return false;
  }
  bool ok = fsync(fd) == 0;
  if (!ok) posix::SetLastErrorFromErrno();
  close(fd);
  return ok;
}

bool side::FlushFileBuffers(Handle file) {
  auto f = DataFile(file, kGenericWrite);
  if (!f) return false;
  if (fsync(f->fd) != 0) {
    posix::SetLastErrorFromErrno();
    return false;
  }
  return true;
}

bool side::CloseFile(Handle file) {
  auto f = posix::RemoveOpenFile(file);
  if (!f) return Fail(kErrorInvalidHandle);
  if (f->fd >= 0) close(f->fd);
  return true;
}

// ---- locked memory block -----------------------------------------------------------------

void* side::VirtualAlloc(std::size_t size) {
  if (size == 0) {
    Fail(kErrorInvalidParameter);
    return nullptr;
  }
  void* block = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (block == MAP_FAILED) {
    Fail(kErrorNotEnoughMemory);
    return nullptr;
  }
  return block;
}

bool side::VirtualLock(void* block, std::size_t size) {
  if (mlock(block, size) != 0) return Fail(kErrorWorkingSetQuota);
  return true;
}

bool side::VirtualUnlock(void* block, std::size_t size) {
  if (munlock(block, size) != 0) return Fail(kErrorInvalidParameter);
  return true;
}

bool side::VirtualFree(void* block, std::size_t size) {
  if (!block || munmap(block, size) != 0) return Fail(kErrorInvalidParameter);
  return true;
}

}  // namespace os
