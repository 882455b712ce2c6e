#include "files/drive_info.h"

#include <gtest/gtest.h>

#include <string>

#include "base/text.h"
#include "os/codepage.h"
#include "os/fault.h"
#include "support/ansi.h"

namespace {

struct Outputs {
  std::u16string label = u"label?", file_system = u"fs?", vendor = u"vendor?",
                 product = u"product?", revision = u"revision?", serial_number = u"serial?";
  std::uint32_t serial = 0xABCD;

  bool Get(std::u16string_view drive, bool volume_only) {
    return mRemoveUsbDrive::GetDriveInfo(drive, label, serial, file_system, vendor, product,
                                         revision, serial_number, volume_only);
  }
  bool operator==(const Outputs& o) const {
    return label == o.label && file_system == o.file_system && vendor == o.vendor &&
           product == o.product && revision == o.revision && serial_number == o.serial_number &&
           serial == o.serial;
  }
};

TEST(DriveInfo, OnlyALetterIsADrive) {
  for (std::u16string drive : {u"", u"1", u"\\", u"\u00E4", u":"}) {
    Outputs out;
    EXPECT_FALSE(out.Get(drive, false));
    EXPECT_TRUE(out == Outputs()) << "nothing touched";
  }
}

TEST(DriveInfo, OnlyTheFirstCharacterCountsInUpperCase) {
  // Z: is "/" on Linux and the root file system under Wine.
  Outputs upper, lower;
  EXPECT_TRUE(upper.Get(u"Z", true));
  EXPECT_TRUE(lower.Get(u"z:\\whatever", true));
  EXPECT_TRUE(upper == lower);
  EXPECT_FALSE(upper.file_system.empty());
  EXPECT_EQ(upper.vendor, u"vendor?") << "the volume alone was asked for";

  Outputs full;
  bool answered = full.Get(u"Z", false);
  EXPECT_EQ(full.label, upper.label);
  EXPECT_EQ(full.serial, upper.serial);
  EXPECT_EQ(full.file_system, upper.file_system);
  if (!answered) {
    EXPECT_EQ(full.product, u"product?") << "a failed query changes no text";
  }
}

TEST(DriveInfo, ADriveWithoutVolume) {
  // No medium (or no such drive): the volume outputs are cleared and the call goes on.
  Outputs out;
  EXPECT_TRUE(out.Get(u"Q", true));
  EXPECT_EQ(out.label, u"");
  EXPECT_EQ(out.file_system, u"");
  EXPECT_EQ(out.serial, 0u);
  Outputs device;
  EXPECT_FALSE(device.Get(u"Q", false)) << "no device to open";
  EXPECT_EQ(device.label, u"");
  EXPECT_EQ(device.vendor, u"vendor?");
}

TEST(DriveInfo, FailuresOfTheSystemCalls) {
  os::fault::Scope faults;
  os::fault::Arm(os::fault::Op::kVolumeInfo, 21);  // ERROR_NOT_READY
  Outputs out;
  EXPECT_TRUE(out.Get(u"Z", true));
  EXPECT_EQ(out.label, u"");
  EXPECT_EQ(out.serial, 0u);
  os::fault::Arm(os::fault::Op::kDeviceQuery, 1);
  Outputs device;
  EXPECT_FALSE(device.Get(u"Z", false));
  EXPECT_EQ(device.vendor, u"vendor?");
  EXPECT_EQ(device.serial_number, u"serial?");
}

// A STORAGE_DEVICE_DESCRIPTOR of 554 bytes with the given texts placed at the given offsets.
std::string Descriptor(const std::uint32_t offsets[4], const std::string texts[4]) {
  std::string d(554, '\0');
  for (int k = 0; k < 4; ++k) {
    for (int b = 0; b < 4; ++b) d[12 + 4 * k + b] = static_cast<char>(offsets[k] >> (8 * b));
    if (offsets[k] && offsets[k] < d.size()) d.replace(offsets[k], texts[k].size(), texts[k]);
  }
  return d;
}

TEST(DriveInfo, DeviceTexts) {
  const std::string long_text(300, 'x');
  // Expected: vendor|product|revision|serial number, the vendor "before" when it is left alone.
  struct Row {
    const char* label;
    std::uint32_t offsets[4];
    std::string texts[4];
    std::string expected;
  } rows[] = {
      {"padded texts are trimmed",
       {40, 60, 90, 100},
       {"Kingston", "DataTraveler 3.0    ", " PMAP", "60A44C413B6E"},
       "Kingston|DataTraveler 3.0|PMAP|60A44C413B6E"},
      {"no vendor: the vendor is left, the others cleared", {0, 0, 0, 0}, {}, "before|||"},
      {"a text of more than 200 bytes is cut to 200",
       {40, 300, 0, 0},
       {"V", long_text},
       "V|" + std::string(200, 'x') + "||"},
      {"an offset past the descriptor gives nothing", {40, 900, 0, 0}, {"V", "ignored"}, "V|||"},
      {"a text that runs to the end of the buffer", {40, 550, 0, 0}, {"V", "abcd"}, "V|abcd||"},
  };
  for (const Row& row : rows) {
    std::u16string vendor = u"before", product = u"p", revision = u"r", serial_number = u"s";
    mRemoveUsbDrive::ReadDeviceTexts(Descriptor(row.offsets, row.texts), vendor, product, revision,
                                     serial_number);
    EXPECT_EQ(base::Narrow(vendor + u"|" + product + u"|" + revision + u"|" + serial_number),
              row.expected)
        << row.label;
  }
  if (testing_support::AnsiIs1252()) {
    const std::uint32_t offsets[4] = {40, 0, 0, 0};
    const std::string texts[4] = {"Caf\xE9 \x80", "", "", ""};
    std::u16string vendor, product, revision, serial_number;
    mRemoveUsbDrive::ReadDeviceTexts(Descriptor(offsets, texts), vendor, product, revision,
                                     serial_number);
    EXPECT_EQ(vendor, u"Caf\u00E9 \u20AC") << "texts are in the ANSI code page";
  }
}

}  // namespace
