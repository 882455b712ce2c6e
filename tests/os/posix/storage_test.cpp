// The POSIX side's reading of sysfs (no Windows counterpart to compare).
#ifndef _WIN32

#include "os/posix/storage.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "base/text.h"
#include "files/drive_info.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;

// A block device's folder with the given files (path=text), its "device" link pointing up.
std::string Descriptor(const fs::path& block, const std::string& up,
                       std::initializer_list<std::pair<fs::path, const char*>> files) {
  for (const auto& [file, text] : files) {
    fs::create_directories(file.parent_path());
    std::ofstream(file) << text;
  }
  fs::create_directory_symlink(up, block / "device");
  return os::posix::StorageDescriptor(block.string());
}

std::uint32_t At(const std::string& d, std::size_t at) {
  std::uint32_t v = 0;
  for (int k = 0; k < 4; ++k)
    v |= static_cast<std::uint32_t>(static_cast<unsigned char>(d[at + k])) << (8 * k);
  return v;
}

std::string Texts(const std::string& d) {
  std::u16string vendor = u"kept", product, revision, serial;
  mRemoveUsbDrive::ReadDeviceTexts(d, vendor, product, revision, serial);
  return base::Narrow(vendor + u"|" + product + u"|" + revision + u"|" + serial);
}

TEST(PosixStorage, DescriptorsFromSysfs) {
  testing_support::TempDir dir;
  // A USB stick: the USB device has the serial, the SCSI disk below it the vendor, model and
  // revision, and block/sdb its removable flag.
  const fs::path usb = dir.path() / "devices/pci0000:00/usb1/1-1";
  const fs::path scsi = usb / "1-1:1.0/host3/target3:0:0/3:0:0:0";
  const std::string d = Descriptor(scsi / "block/sdb", "../..",
                                   {{usb / "idVendor", "0951\n"},
                                    {usb / "serial", "60A44C413B6E\n"},
                                    {scsi / "vendor", "Kingston\n"},
                                    {scsi / "model", "DataTraveler 3.0\n"},
                                    {scsi / "rev", "PMAP\n"},
                                    {scsi / "type", "0\n"},
                                    {scsi / "block/sdb/removable", "1\n"}});
  ASSERT_EQ(d.size(), 40u + 9 + 17 + 5 + 13);
  EXPECT_EQ(At(d, 0), 40u);
  EXPECT_EQ(At(d, 4), d.size());
  EXPECT_EQ(d[8] * 10 + d[10], 1) << "a removable disk";
  EXPECT_EQ(At(d, 28), 7u) << "BusTypeUsb";
  EXPECT_EQ(Texts(d), "Kingston|DataTraveler 3.0|PMAP|60A44C413B6E");

  // An NVMe disk has no vendor text.
  const fs::path nvme = dir.path() / "devices/pci0000:00/nvme/nvme0";
  const std::string n = Descriptor(nvme / "nvme0n1", "..",
                                   {{nvme / "model", "Fast SSD 1TB\n"},
                                    {nvme / "serial", "S4EWNX0R\n"},
                                    {nvme / "firmware_rev", "2B2QEXM7\n"},
                                    {nvme / "nvme0n1/removable", "0\n"}});
  EXPECT_EQ(At(n, 12) + n[10], 0u) << "no vendor, not removable";
  EXPECT_EQ(At(n, 28), 17u) << "BusTypeNvme";
  EXPECT_EQ(Texts(n), "kept|Fast SSD 1TB|2B2QEXM7|S4EWNX0R");

  EXPECT_EQ(os::posix::FileSystemName("vfat") + os::posix::FileSystemName("exfat") +
                os::posix::FileSystemName("ntfs3") + os::posix::FileSystemName("ext4"),
            "FAT32exFATNTFSext4");
}

}  // namespace

#endif  // _WIN32
