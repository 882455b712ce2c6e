// Volumes and storage devices: a volume's label, serial number and file system, and the
// identity of the device behind it.
//
//   os::File device = os::CreateFileW(u"\\\\.\\E:", 0, 3, os::kOpenExisting, 0);
//   os::DeviceIoControl(device, os::kIoctlStorageQueryProperty, query, 12, out, 554, &n);
#pragma once

#include <cstdint>

#include "os/files.h"
#include "os/types.h"

namespace os {

// GetVolumeInformationW for a volume's root ("E:\"): the label and file-system name into their
// buffers (with terminators; either buffer may be null), the serial number, the longest name
// allowed and the file-system flags (each may be null). False with the last error set when the
// root is no volume (3), not a root (144) or a buffer is too small.
bool GetVolumeInformationW(const char16_t* root, char16_t* label, std::uint32_t label_size,
                           std::uint32_t* serial, std::uint32_t* max_component_length,
                           std::uint32_t* flags, char16_t* file_system,
                           std::uint32_t file_system_size);

// IOCTL_STORAGE_QUERY_PROPERTY: in, a 12-byte query (property 0 = the device, query type 0 =
// standard); out, the STORAGE_DEVICE_DESCRIPTOR (version, size, device type and modifier,
// removable-media flag, command queueing, offsets of the vendor, product, revision and serial
// texts, bus type, raw properties), the texts NUL-terminated after it.
inline constexpr std::uint32_t kIoctlStorageQueryProperty = 0x2D1400;

// DeviceIoControl on a device opened with CreateFileW; *returned gets the bytes written to out.
bool DeviceIoControl(const File& device, std::uint32_t code, const void* in, std::uint32_t in_size,
                     void* out, std::uint32_t out_size, std::uint32_t* returned);

}  // namespace os
