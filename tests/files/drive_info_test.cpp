#include "files/drive_info.h"

#include <gtest/gtest.h>

#include <string>

#include "base/text.h"
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
  std::string Shown() const {
    return base::Narrow(label + u"|" + file_system + u"|" + vendor + u"|" + product + u"|" +
                        revision + u"|" + serial_number) +
           "|" + std::to_string(serial);
  }
};

// Z: is "/" on Linux and the root file system under Wine; Q: has no volume. A drive is named by
// its first character alone, a letter in either case.
TEST(DriveInfo, VolumeAndDeviceOfADrive) {
  for (std::u16string drive : {u"", u"1", u"\\", u"\u00E4", u":"}) {
    Outputs out;
    EXPECT_FALSE(out.Get(drive, false));
    EXPECT_EQ(out.Shown(), Outputs().Shown()) << "nothing touched";
  }
  Outputs upper, lower;
  EXPECT_TRUE(upper.Get(u"Z", true));
  EXPECT_TRUE(lower.Get(u"z:\\whatever", true));
  EXPECT_EQ(upper.Shown(), lower.Shown());
  EXPECT_FALSE(upper.file_system.empty());
  EXPECT_EQ(upper.vendor, u"vendor?") << "the volume alone was asked for";

  // No medium, no such drive or a volume that does not answer: the volume outputs are cleared
  // and the call goes on. A device that cannot be asked changes no text.
  const std::string cleared = "||vendor?|product?|revision?|serial?|0", volume = upper.Shown();
  using os::fault::Op;
  for (auto [drive, volume_only, fails, ok, shown] :
       {std::tuple{u"Q", true, Op::kCount, true, cleared},
        {u"Q", false, Op::kCount, false, cleared},
        {u"Z", true, Op::kVolumeInfo, true, cleared},
        {u"Z", false, Op::kDeviceQuery, false, volume}}) {
    os::fault::Scope faults;
    if (fails != Op::kCount) os::fault::Arm(fails, 21);  // ERROR_NOT_READY
    Outputs out;
    EXPECT_EQ(out.Get(drive, volume_only), ok);
    EXPECT_EQ(out.Shown(), shown) << base::Narrow(drive) << volume_only;
  }
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
  // Expected: vendor|product|revision|serial number, the vendor "before" when it is left alone.
  struct Row {
    std::uint32_t offsets[4];
    std::string texts[4];
    std::string expected;
    bool ansi = false;  // texts are in the ANSI code page: a row written for code page 1252
  } rows[] = {
      {{40, 60, 90, 100},
       {"Kingston", "DataTraveler 3.0    ", " PMAP", "60A44C413B6E"},
       "Kingston|DataTraveler 3.0|PMAP|60A44C413B6E"},  // padding trimmed
      {{0, 0, 0, 0}, {}, "before|||"},
      {{40, 300, 0, 0}, {"V", std::string(300, 'x')}, "V|" + std::string(200, 'x') + "||"},
      {{40, 900, 0, 0}, {"V", "ignored"}, "V|||"},   // past the descriptor
      {{40, 550, 0, 0}, {"V", "abcd"}, "V|abcd||"},  // up to the end of the buffer
      {{40, 0, 0, 0}, {"Caf\xE9 \x80"}, "Caf\xC3\xA9 \xE2\x82\xAC|||", true},
  };
  for (const Row& row : rows) {
    if (row.ansi && !testing_support::AnsiIs1252()) continue;
    std::u16string vendor = u"before", product = u"p", revision = u"r", serial_number = u"s";
    mRemoveUsbDrive::ReadDeviceTexts(Descriptor(row.offsets, row.texts), vendor, product, revision,
                                     serial_number);
    EXPECT_EQ(base::Narrow(vendor + u"|" + product + u"|" + revision + u"|" + serial_number),
              row.expected);
  }
}

}  // namespace
