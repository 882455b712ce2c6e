// POSIX side of the seam: last error, time, the program's own path, libraries and controls.
#include <errno.h>
#include <time.h>
#include <unistd.h>

#include <climits>
#include <string>

#include "base/text.h"
#include "os/posix/native.h"
#include "os/process.h"
#include "os/side.h"
#include "os/types.h"

namespace os {
namespace {
thread_local std::uint32_t last_error = 0;
}

std::uint32_t GetLastError() {
  return last_error;
}
void SetLastError(std::uint32_t error) {
  last_error = error;
}

void side::Sleep(std::uint32_t milliseconds) {
  timespec ts{static_cast<time_t>(milliseconds / 1000),
              static_cast<long>(milliseconds % 1000) * 1000000L};
  while (nanosleep(&ts, &ts) == -1 && errno == EINTR) {
  }
}

std::uint32_t side::TimeGetTime() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<std::uint32_t>(static_cast<std::uint64_t>(ts.tv_sec) * 1000u +
                                    static_cast<std::uint64_t>(ts.tv_nsec) / 1000000u);
}

SystemTime GetLocalTime() {
  timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  tm parts{};
  localtime_r(&ts.tv_sec, &parts);
  return SystemTime{parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday,
                    parts.tm_hour,        parts.tm_min,     parts.tm_sec};
}

std::u16string ModuleFileName() {
  char buf[PATH_MAX + 1];
  ssize_t n = readlink("/proc/self/exe", buf, PATH_MAX);
  if (n <= 0) return std::u16string();
  return base::Widen(std::string_view(buf, static_cast<std::size_t>(n)));
}

void RestrictLibrarySearch() {}

// There is no shared library to pin and no common-controls library on POSIX: the handle is a
// token that only FreeLibrary takes back.
Handle side::LoadLibraryW(const char16_t* name) {
  return name && *name ? 1 : 0;
}
void side::FreeLibrary(Handle) {}
bool InitCommonControls(std::uint32_t size, std::uint32_t) {
  return size == 8;
}

}  // namespace os

namespace os::posix {

std::string NativePath(std::u16string_view path) {
  std::string out = base::Narrow(path);
  for (char& c : out) {
    if (c == '\\') c = '/';
  }
  return out;
}

std::uint32_t ErrorFromErrno(int e) {
  switch (e) {
    case 0:
      return kErrorSuccess;
    case ENOENT:
      return kErrorFileNotFound;
    case ENOTDIR:
      return kErrorPathNotFound;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
      return kErrorAccessDenied;
    case EBADF:
      return kErrorInvalidHandle;
    case ENOMEM:
      return kErrorNotEnoughMemory;
    case EMFILE:
    case ENFILE:
      return kErrorTooManyOpenFiles;
    case ENOSPC:
    case EDQUOT:
      return kErrorDiskFull;
    case EEXIST:
      return kErrorAlreadyExists;
    case ENOTEMPTY:
      return kErrorDirNotEmpty;
    case ENAMETOOLONG:
      return kErrorInvalidName;
    case EINVAL:
      return kErrorInvalidParameter;
    case EBUSY:
    case ETXTBSY:
      return kErrorSharingViolation;
    case EIO:
      return kErrorIoDevice;
    case EXDEV:
      return 17;  // ERROR_NOT_SAME_DEVICE
    case ENOEXEC:
      return kErrorBadFormat;
    default:
      return 31;  // ERROR_GEN_FAILURE
  }
}

void SetLastErrorFromErrno() {
  SetLastError(ErrorFromErrno(errno));
}

}  // namespace os::posix
