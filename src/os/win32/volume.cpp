// Win32 side of the seam: volume information and storage-device queries.
#include <windows.h>

#include "os/side.h"
#include "os/volume.h"

namespace os {

bool side::GetVolumeInformationW(const char16_t* root, char16_t* label, std::uint32_t label_size,
                                 std::uint32_t* serial, std::uint32_t* max_component_length,
                                 std::uint32_t* flags, char16_t* file_system,
                                 std::uint32_t file_system_size) {
  DWORD serial_number = 0, max_length = 0, fs_flags = 0;
  BOOL ok = ::GetVolumeInformationW(
      reinterpret_cast<const wchar_t*>(root), reinterpret_cast<wchar_t*>(label),
      label ? label_size : 0, &serial_number, &max_length, &fs_flags,
      reinterpret_cast<wchar_t*>(file_system), file_system ? file_system_size : 0);
  if (!ok) return false;
  if (serial) *serial = serial_number;
  if (max_component_length) *max_component_length = max_length;
  if (flags) *flags = fs_flags;
  return true;
}

bool side::DeviceIoControl(Handle device, std::uint32_t code, const void* in, std::uint32_t in_size,
                           void* out, std::uint32_t out_size, std::uint32_t* returned) {
  DWORD n = 0;
  BOOL ok = ::DeviceIoControl(reinterpret_cast<HANDLE>(device), code, const_cast<void*>(in),
                              in_size, out, out_size, &n, nullptr);
  if (returned) *returned = n;
  return ok != FALSE;
}

}  // namespace os
