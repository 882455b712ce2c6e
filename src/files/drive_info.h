// mRemoveUsbDrive, drive information: a drive letter's volume label, serial number and file
// system, and the identity of the storage device behind it (vendor, product, revision, serial
// number) as its driver reports it.
//
//   std::u16string label, fs, vendor, product, revision, serial_number;
//   std::uint32_t serial = 0;
//   mRemoveUsbDrive::GetDriveInfo(u"E", label, serial, fs, vendor, product, revision,
//                                 serial_number, /*volume_only=*/false);
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace mRemoveUsbDrive {

// Only the first character of drive counts, in upper case; false, touching nothing, when it is
// not a letter. The volume outputs are "" and 0 when the volume cannot be read (no medium), and
// the call goes on. Unless volume_only, the device "\\.\X:" is then opened without rights and
// asked for its descriptor: false when it cannot be opened or answered.
// Note: a device without a vendor text leaves `vendor` as the caller set it; product, revision
// and serial number are cleared.
bool GetDriveInfo(std::u16string_view drive, std::u16string& label, std::uint32_t& serial,
                  std::u16string& file_system, std::u16string& vendor, std::u16string& product,
                  std::u16string& revision, std::u16string& serial_number, bool volume_only);

// Reads the four identity texts out of a device descriptor (the STORAGE_DEVICE_DESCRIPTOR
// bytes): for each offset above 0, up to 200 bytes from it, decoded with the ANSI code page,
// cut at the first NUL and trimmed of blanks. An offset of 0 clears product, revision and
// serial number and leaves vendor alone.
void ReadDeviceTexts(std::string_view descriptor, std::u16string& vendor, std::u16string& product,
                     std::u16string& revision, std::u16string& serial_number);

}  // namespace mRemoveUsbDrive
