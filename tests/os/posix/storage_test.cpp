// The POSIX side's reading of sysfs and the mount table (no Windows counterpart to compare).
#ifndef _WIN32

#include "os/posix/storage.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "files/drive_info.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;

void Put(const fs::path& file, const std::string& text) {
  fs::create_directories(file.parent_path());
  std::ofstream(file) << text;
}

std::uint32_t At(const std::string& d, std::size_t at) {
  std::uint32_t v = 0;
  for (int k = 0; k < 4; ++k)
    v |= static_cast<std::uint32_t>(static_cast<unsigned char>(d[at + k])) << (8 * k);
  return v;
}

TEST(PosixStorage, UsbStickDescriptorFromSysfs) {
  testing_support::TempDir dir;
  // /sys/devices/.../usb1/1-1 is the USB device (its serial), the SCSI disk below it has the
  // vendor, model and revision, and block/sdb its removable flag.
  const fs::path usb = dir.path() / "devices/pci0000:00/usb1/1-1";
  const fs::path scsi = usb / "1-1:1.0/host3/target3:0:0/3:0:0:0";
  const fs::path block = scsi / "block/sdb";
  Put(usb / "idVendor", "0951\n");
  Put(usb / "serial", "60A44C413B6E\n");
  Put(scsi / "vendor", "Kingston\n");
  Put(scsi / "model", "DataTraveler 3.0\n");
  Put(scsi / "rev", "PMAP\n");
  Put(scsi / "type", "0\n");
  Put(block / "removable", "1\n");
  fs::create_directory_symlink("../..", block / "device");

  const std::string d = os::posix::StorageDescriptor(block.string());
  ASSERT_EQ(d.size(), 40u + 9 + 17 + 5 + 13);
  EXPECT_EQ(At(d, 0), 40u);
  EXPECT_EQ(At(d, 4), d.size());
  EXPECT_EQ(d[8], 0) << "a disk";
  EXPECT_EQ(d[10], 1) << "removable";
  EXPECT_EQ(At(d, 12), 40u);
  EXPECT_EQ(At(d, 28), 7u) << "BusTypeUsb";
  std::u16string vendor, product, revision, serial;
  mRemoveUsbDrive::ReadDeviceTexts(d, vendor, product, revision, serial);
  EXPECT_EQ(vendor, u"Kingston");
  EXPECT_EQ(product, u"DataTraveler 3.0");
  EXPECT_EQ(revision, u"PMAP");
  EXPECT_EQ(serial, u"60A44C413B6E");
}

TEST(PosixStorage, NvmeDiskHasNoVendorText) {
  testing_support::TempDir dir;
  const fs::path controller = dir.path() / "devices/pci0000:00/nvme/nvme0";
  const fs::path block = controller / "nvme0n1";
  Put(controller / "model", "Fast SSD 1TB\n");
  Put(controller / "serial", "S4EWNX0R\n");
  Put(controller / "firmware_rev", "2B2QEXM7\n");
  Put(block / "removable", "0\n");
  fs::create_directory_symlink("..", block / "device");
  const std::string d = os::posix::StorageDescriptor(block.string());
  EXPECT_EQ(At(d, 12), 0u) << "no vendor";
  EXPECT_EQ(d[10], 0);
  EXPECT_EQ(At(d, 28), 17u) << "BusTypeNvme";
  std::u16string vendor = u"kept", product, revision, serial;
  mRemoveUsbDrive::ReadDeviceTexts(d, vendor, product, revision, serial);
  EXPECT_EQ(vendor, u"kept");
  EXPECT_EQ(product, u"Fast SSD 1TB");
  EXPECT_EQ(revision, u"2B2QEXM7");
  EXPECT_EQ(serial, u"S4EWNX0R");
}

TEST(PosixStorage, FileSystemNames) {
  EXPECT_EQ(os::posix::FileSystemName("vfat"), "FAT32");
  EXPECT_EQ(os::posix::FileSystemName("exfat"), "exFAT");
  EXPECT_EQ(os::posix::FileSystemName("ntfs3"), "NTFS");
  EXPECT_EQ(os::posix::FileSystemName("ext4"), "ext4");
}

}  // namespace

#endif  // _WIN32
