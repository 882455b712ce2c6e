// A kernel handle owned from the moment it is returned and closed on every path; shared by
// the Win32 side of the seam.
#pragma once

#include <windows.h>

namespace os::win32 {

class OwnedHandle {
 public:
  // INVALID_HANDLE_VALUE (CreateFileW, snapshots) and null (OpenProcess) both mean none.
  explicit OwnedHandle(HANDLE h) : h_(h == INVALID_HANDLE_VALUE ? nullptr : h) {}
  ~OwnedHandle() {
    if (h_) ::CloseHandle(h_);
  }
  OwnedHandle(const OwnedHandle&) = delete;
  OwnedHandle& operator=(const OwnedHandle&) = delete;
  HANDLE get() const { return h_; }
  explicit operator bool() const { return h_ != nullptr; }

 private:
  HANDLE h_;
};

}  // namespace os::win32
