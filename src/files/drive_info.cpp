#include "files/drive_info.h"

#include "base/text.h"
#include "base/trap.h"
#include "os/files.h"
#include "os/volume.h"
#include "text/encoding.h"

namespace mRemoveUsbDrive {
namespace {

constexpr std::uint32_t kDescriptorSize = 554;
constexpr std::size_t kTextBytes = 200;

std::uint32_t Read32(std::string_view bytes, std::size_t at) {
  std::uint32_t v = 0;
  for (int k = 0; k < 4; ++k) {
    if (at + k < bytes.size())
      v |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[at + k])) << (8 * k);
  }
  return v;
}

std::u16string UpToNul(const char16_t* text) {
  return std::u16string(text);
}

std::u16string Trim(std::u16string s) {
  std::size_t a = s.find_first_not_of(u' ');
  if (a == std::u16string::npos) return std::u16string();
  std::size_t b = s.find_last_not_of(u' ');
  return s.substr(a, b - a + 1);
}

// The descriptor text at an offset: 200 bytes at most, and never past the descriptor's end.
std::u16string TextAt(std::string_view descriptor, std::uint32_t offset) {
  if (offset >= descriptor.size()) return std::u16string();
  std::u16string text = mStringTools::AnsiBytesToStr(descriptor.substr(offset, kTextBytes));
  std::size_t nul = text.find(u'\0');
  if (nul != std::u16string::npos) text.resize(nul);
  return Trim(std::move(text));
}

}  // namespace

void ReadDeviceTexts(std::string_view descriptor, std::u16string& vendor, std::u16string& product,
                     std::u16string& revision, std::u16string& serial_number) {
  std::u16string* outputs[] = {&vendor, &product, &revision, &serial_number};
  for (int k = 0; k < 4; ++k) {
    std::uint32_t offset = Read32(descriptor, 12 + 4 * k);
    if (offset >= 1) {
      *outputs[k] = TextAt(descriptor, offset);
    } else if (k > 0) {
      outputs[k]->clear();
    }
  }
}

bool GetDriveInfo(std::u16string_view drive, std::u16string& label, std::uint32_t& serial,
                  std::u16string& file_system, std::u16string& vendor, std::u16string& product,
                  std::u16string& revision, std::u16string& serial_number, bool volume_only) {
  return base::Trap(base::InFunction(u"mRemoveUsbDrive.GetDriveInfo"), false, [&] {
    if (drive.empty()) return false;
    const char16_t letter = base::UpperChar(drive[0]);
    if (letter < u'A' || letter > u'Z') return false;

    std::u16string root = std::u16string(1, letter) + u":\\";
    char16_t label_buffer[260] = {};
    char16_t fs_buffer[260] = {};
    std::uint32_t volume_serial = 0;
    if (os::GetVolumeInformationW(root.c_str(), label_buffer, 260, &volume_serial, nullptr, nullptr,
                                  fs_buffer, 260)) {
      label = UpToNul(label_buffer);
      file_system = UpToNul(fs_buffer);
      serial = volume_serial;
    } else {
      label.clear();
      file_system.clear();
      serial = 0;
    }
    if (volume_only) return true;

    // No read or write rights are asked, so that no administrator rights are needed.
    std::u16string device_path = u"\\\\.\\" + std::u16string(1, letter) + u":";
    const os::File device = os::CreateFileW(
        device_path.c_str(), 0, os::kFileShareRead | os::kFileShareWrite, os::kOpenExisting, 0);
    if (!device) return false;
    const unsigned char query[12] = {};  // the device property, a standard query
    std::string descriptor(kDescriptorSize, '\0');
    std::uint32_t returned = 0;
    bool answered = os::DeviceIoControl(device, os::kIoctlStorageQueryProperty, query, sizeof query,
                                        descriptor.data(), kDescriptorSize, &returned);
    if (!answered) return false;
    ReadDeviceTexts(descriptor, vendor, product, revision, serial_number);
    return true;
  });
}

}  // namespace mRemoveUsbDrive
