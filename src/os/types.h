// Handles and error numbers shared by every area of the seam.
#pragma once

#include <cstdint>
#include <utility>

namespace os {

// A platform handle (process, search, file, library). 0 means none; file-like handles use
// kInvalidHandle for failure, as CreateFileW and FindFirstFileW do.
using Handle = std::intptr_t;
inline constexpr Handle kInvalidHandle = -1;

// A handle owned from the moment the seam hands it over: closed (by Close, the seam's own
// closing call for its kind) when it goes, moved but never copied. False when the call that
// made it failed.
template <void (*Close)(Handle), Handle kNone>
class Owned {
 public:
  Owned() = default;
  explicit Owned(Handle handle) : handle_(handle) {}
  Owned(Owned&& other) noexcept : handle_(other.release()) {}
  Owned& operator=(Owned&& other) noexcept {
    Owned taken(std::move(other));
    std::swap(handle_, taken.handle_);
    return *this;
  }
  ~Owned() {
    if (handle_ != kNone) Close(handle_);
  }
  explicit operator bool() const { return handle_ != kNone; }
  Handle get() const { return handle_; }
  // Gives the handle up unclosed, for a caller that keeps it on purpose.
  Handle release() { return std::exchange(handle_, kNone); }

 private:
  Handle handle_ = kNone;
};

// Windows error numbers, as GetLastError answers them on both sides of the seam.
enum : std::uint32_t {
  kErrorSuccess = 0,
  kErrorFileNotFound = 2,
  kErrorPathNotFound = 3,
  kErrorTooManyOpenFiles = 4,
  kErrorAccessDenied = 5,
  kErrorInvalidHandle = 6,
  kErrorNotEnoughMemory = 8,
  kErrorBadFormat = 11,
  kErrorWriteFault = 29,
  kErrorReadFault = 30,
  kErrorSharingViolation = 32,
  kErrorLockViolation = 33,
  kErrorHandleDiskFull = 39,
  kErrorNotSupported = 50,
  kErrorFileExists = 80,
  kErrorInvalidParameter = 87,
  kErrorDiskFull = 112,
  kErrorInsufficientBuffer = 122,
  kErrorInvalidName = 123,
  kErrorDirNotEmpty = 145,
  kErrorAlreadyExists = 183,
  kErrorNoAssociation = 1155,
  kErrorIoDevice = 1117,
};

// The calling thread's last error (GetLastError / SetLastError).
std::uint32_t GetLastError();
void SetLastError(std::uint32_t error);

}  // namespace os
