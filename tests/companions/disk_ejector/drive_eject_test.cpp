// The ejector: what it ejects on each kind of device tree and which volumes go with it, its
// refusals and retries against scripted answers (tables), then the real thing: on Linux a
// loop-mounted FAT drive.
#include "companions/disk_ejector/drive_eject.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "base/text.h"
#include "companions/disk_ejector/fake_drive.h"
#include "os/fault.h"
#include "support/child_process.h"
#include "support/loop_mount.h"
#include "support/pid_namespace.h"
#include "support/temp_dir.h"

namespace {

using os::EjectDone;
using sys::EjectOutcome;
using testing_support::ChildProcess;
using testing_support::TempDir;
using Roots = std::vector<std::u16string>;

using namespace ejector_test;

// A refusal names the veto, the holders the search found and those the system recorded as
// stopping a removal: of this disk (not of another device, nor the editor again).
TEST(DriveEject, RefusesWhatItMustAndRetriesOnlyARefusal) {
  using enum EjectOutcome;
  const Answer medium{EjectDone::kMediaEjected, 0}, unmounted{EjectDone::kUnmounted, 0};
  const std::u16string refused =
      u"the system refused to eject /dev/sdz after 5 tries (OutstandingOpen: /media/STICK); held "
      u"by";
  const std::u16string editor = u" /media/STICK/App/editor (2147483640: /media/STICK/App/editor)";
  const os::RemovalVeto host{{9176, 0, u"C:\\dllhost.exe", u"", 0}, u"/DEV/SDZ"},
      other{{77, 0, u"other.exe", u"", 0}, u"USB\\VID_1&PID_2\\3"},
      again{{kEditor, 0, u"editor.exe", u"", 0}, u"/dev/sdz"};
  struct Row {
    FakeDrive script;
    int tries;
    EjectOutcome outcome;
    int ejects;               // each after a flush, with a pause of a second between two
    std::u16string reason{};  // when given
  };
  auto R = [](FakeDrive script, std::u16string reason) {  // refused after 5 tries
    return Row{std::move(script), 5, kRefused, 5, std::move(reason)};
  };
  Row rows[] = {
      {{.found = false}, 5, kUnidentified, 0},
      {{.known = false}, 5, kUnidentified, 0},
      {{.answers = {kUnplugged}}, 5, kRemoved, 1},
      {{.answers = {kBusy}}, 0, kRefused, 1},  // no tries asked: one all the same
      {{.answers = {medium}}, 1, kMediaEjected, 1},
      {{.answers = {unmounted}}, 1, kUnmounted, 1},
      {{.answers = {kBusy, kBusy, kUnplugged}}, 5, kRemoved, 3},
      {{.answers = {kBroken, kBusy, kUnplugged}}, 5, kRemoved, 3},
      {{.answers = {kBroken}}, 5, kFailed, 5},
      R({.answers = {kBusy}, .uninspected = 2}, refused + editor + u", 2 not inspected"),
      R({.answers = {kBusy}, .holder = false, .uninspected = 1}, refused + u" 1 not inspected"),
      R({.answers = {kBusy}, .holder = false, .vetoes = {other}},
        refused.substr(0, refused.find(u";"))),
      R({.answers = {kBusy}, .vetoes = {host, other, again}},
        refused + editor + u", C:\\dllhost.exe (9176: /DEV/SDZ)"),
  };
  for (auto& row : rows) {
    const auto report =
        sys::EjectDriveOf(u"/media/STICK/Suite/TvEject", {row.tries}, row.script.Ops());
    SCOPED_TRACE(base::Narrow(report.reason));
    EXPECT_EQ(report.outcome, row.outcome);
    EXPECT_EQ((std::vector{row.script.ejects, report.tries, row.script.flushes}),
              std::vector<int>(3, row.ejects));
    EXPECT_EQ(row.script.pauses, std::vector<std::uint32_t>(std::max(row.ejects - 1, 0), 1000u));
    // The holders are searched for once, after the last refusal only, and the system's record
    // looked up since before the first try.
    const bool refused = row.outcome == kRefused;
    EXPECT_EQ(row.script.holder_scans, refused ? 1 : 0);
    EXPECT_EQ(row.script.veto_seconds, refused ? std::vector<std::uint32_t>{10u + row.ejects}
                                               : std::vector<std::uint32_t>{});
    EXPECT_TRUE(row.reason.empty() || report.reason == row.reason);
    for (const auto& h : report.blockers.processes)  // a record's pid may have been reused
      EXPECT_EQ(h.closable, h.kind != os::HoldKind::kStopped);
    EXPECT_EQ(sys::SafeToRemove(report.outcome),
              row.outcome == kRemoved || row.outcome == kMediaEjected || row.outcome == kUnmounted);
    EXPECT_FALSE(report.reason.empty());
    // A failure carries the system's error, a veto or a success none.
    EXPECT_EQ(report.error, row.outcome == kFailed ? os::kErrorAccessDenied : 0u);
  }
  EXPECT_EQ(sys::VetoTypeName(13), u"AlreadyRemoved");
  EXPECT_EQ(sys::VetoTypeName(99), u"Veto99");
}

// Device trees as Windows reports them, the disk's own device first. Every drive is asked
// from its suite's folder; the machine's system is disk 0 on C:\.
os::DeviceNode Dev(const char16_t* id, bool removable = false) {
  return {id, removable, false};
}
const os::DeviceNode kHub = Dev(u"USB\\ROOT_HUB30\\4&2F1D"), kXhci = Dev(u"PCI\\VEN_8086&DEV_A36D");
const os::DeviceNode kRoot = Dev(u"HTREE\\ROOT\\0");

// The facts of a drive: its volumes (the other partitions after the root), the volumes of other
// disks besides the system's, its number among the devices of its class, and its drive type (a
// fixed one on a bus that cannot be told).
os::StorageDevice T(Roots roots, std::vector<os::DeviceNode> chain, bool removable_media = false,
                    std::vector<os::OtherVolume> others = {}, std::uint32_t number = 1,
                    std::uint32_t drive_type = os::kDriveRemovable,
                    os::DeviceClass device_class = os::DeviceClass::kDisk) {
  os::StorageDevice d;
  d.root = roots[0], d.drive_type = drive_type, d.removable_media = removable_media;
  d.bus_type = drive_type == os::kDriveFixed ? os::kBusUnknown : os::kBusUsb;
  d.device_class = device_class, d.device_number = number;
  d.system_root = u"C:\\", d.system_class = os::DeviceClass::kDisk, d.system_number = 0;
  d.chain = std::move(chain), d.mount_points = std::move(roots),
  d.other_volumes = std::move(others);
  d.other_volumes.push_back({u"C:\\", {u"SCSI\\DISK&VEN_NVME\\5&1", kRoot.id}});
  return d;
}

Roots Ids(const std::vector<os::DeviceNode>& chain) {
  Roots ids;
  for (const auto& n : chain) ids.push_back(n.id);
  return ids;
}

TEST(DriveEject, EjectsTheFirstDeviceThatMayBeUnpluggedOrElseOnlyTheMedium) {
  const os::DeviceNode stick = Dev(u"USB\\VID_0781&PID_5567\\4C53", true),
                       usb_disk = Dev(u"USB\\VID_1058&PID_25A2\\5758", true),
                       reader = Dev(u"USB\\VID_0BDA&PID_0129\\2010"),  // built in
      multi_reader = Dev(u"USB\\VID_058F&PID_6366\\6485", true),
                       floppy = Dev(u"USB\\VID_057B&PID_0000\\6&1", true),
                       other_stick = Dev(u"USB\\VID_0951&PID_1666\\E0D5", true);
  auto disk = [](const char16_t* id) { return Dev(id); };
  using enum EjectOutcome;
  struct Row {
    const char* name;
    os::StorageDevice tree;
    EjectOutcome refusal;    // kRefused: ejected as planned (the scripted eject refuses)
    std::u16string ejected;  // the device node, "medium", or "" when nothing is asked
    Roots volumes;           // flushed, searched
  };
  auto R = [](const char* name, os::StorageDevice tree, EjectOutcome refusal,
              std::u16string ejected, Roots volumes) {
    return Row{name, std::move(tree), refusal, std::move(ejected), std::move(volumes)};
  };
  const Row rows[] = {
      R("usb stick", T({u"E:\\"}, {disk(u"STOR\\SANDISK&0"), stick, kHub, kXhci, kRoot}, true),
        kRefused, stick.id, {u"E:\\"}),
      R("usb hard disk with two partitions",
        T({u"F:\\", u"G:\\"}, {disk(u"STOR\\WD&0"), usb_disk, kHub, kXhci, kRoot}, false,
          {{u"E:\\", Ids({disk(u"STOR\\SANDISK&0"), stick, kHub})}}, 2, os::kDriveFixed),
        kRefused, usb_disk.id, {u"F:\\", u"G:\\"}),
      // Stopping a built-in reader loses it until the next start (code 47): the card goes.
      R("internal card reader, a card in the other slot",
        T({u"H:\\"}, {disk(u"STOR\\SD&0"), reader, kHub, kRoot}, true,
          {{u"I:\\", Ids({disk(u"STOR\\MS&1"), reader, kHub, kRoot})}}),
        kRefused, u"medium", {u"H:\\"}),
      // The reader goes, and every slot with it; a stick on the same hub stays.
      R("external multi-slot reader",
        T({u"J:\\"}, {disk(u"STOR\\CF&0"), multi_reader, kHub, kRoot}, true,
          {{u"K:\\", Ids({disk(u"STOR\\SD&1"), multi_reader, kHub, kRoot})},
           {u"L:\\", Ids({disk(u"STOR\\KINGSTON&0"), other_stick, kHub, kRoot})}}),
        kRefused, multi_reader.id, {u"J:\\", u"K:\\"}),
      // Floppy 0 is not disk 0, the system's.
      R("usb floppy",
        T({u"A:\\"}, {disk(u"STOR\\SFLOPPY&0"), floppy, kHub}, true, {}, 0, os::kDriveRemovable,
          os::DeviceClass::kFloppy),
        kRefused, floppy.id, {u"A:\\"}),
      // A system started from a stick keeps its stick.
      R("system on a usb stick", T({u"D:\\"}, {disk(u"STOR\\X&0"), stick, kHub}, true, {}, 0),
        kSystemDisk, u"", {}),
      R("second internal disk",
        T({u"D:\\"}, {disk(u"SCSI\\DISK&VEN_ST2000"), disk(u"PCI\\VEN_8086&DEV_A352"), kRoot},
          false, {}, 1, os::kDriveFixed),
        kNotRemovable, u"", {}),
      // Wine's drives: no device tree at all.
      R("fixed drive, no device found", T({u"Z:\\"}, {}, false, {}, 1, os::kDriveFixed),
        kNotRemovable, u"", {}),
      R("removable drive, no device found", T({u"E:\\"}, {}), kUnidentified, u"", {}),
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    FakeDrive drive{.device = row.tree, .answers = {kBusy}, .holder = false};
    const auto report = sys::EjectDriveOf(row.tree.root + u"Suite\\TvEject", {}, drive.Ops());
    EXPECT_EQ(report.outcome, row.refusal) << base::Narrow(report.reason);
    EXPECT_EQ(drive.ejected, row.ejected) << base::Narrow(report.plan.rule);
    EXPECT_EQ(drive.flushed, row.volumes);
    EXPECT_EQ(drive.searched, row.volumes);
    EXPECT_FALSE(report.plan.rule.empty());
  }
}

// A loop-mounted FAT drive: not removable until the test hook says so; then a holder makes
// every try fail and is named, and once it is gone the drive is unmounted.
TEST(DriveEjectLoop, RefusedUntilFreeThenUnmounted) {
  if (testing_support::RunInOwnPidNamespace()) return;
  TempDir temp;
  testing_support::LoopMount drive;
  std::string why;
  if (!drive.Create(temp, &why)) GTEST_SKIP() << "no loop-mounted drive: " << why;
  const std::u16string suite = drive.mount_point() + u"/Suite/TvEject";
  std::filesystem::create_directories(std::filesystem::path(suite));
  sys::DriveOps ops = sys::SystemDriveOps();
  ops.pause = [](std::uint32_t) {};  // the tries are counted
  const sys::EjectOptions retry{sys::kRetryTries, 1000};
  EXPECT_EQ(sys::EjectDriveOf(suite, retry, ops).outcome, EjectOutcome::kNotRemovable);
  EXPECT_TRUE(drive.Mounted());

  os::fault::ScopedRemovableDisk hook(drive.device());
  ChildProcess holder;
  ASSERT_TRUE(holder.Start(testing_support::HelperProgram(u"sleeper"),
                           {u"--ready", temp.u16(u"ready")}, suite));
  ASSERT_TRUE(testing_support::WaitForFile(temp.u16(u"ready")));
  const auto report = sys::EjectDriveOf(suite, retry, ops);
  EXPECT_EQ(report.outcome, EjectOutcome::kRefused) << base::Narrow(report.reason);
  EXPECT_EQ(report.tries, 5);
  // The holder alone is named, by its file, its number and the folder it works in.
  EXPECT_TRUE(report.reason.ends_with(u"; held by " + testing_support::HelperProgram(u"sleeper") +
                                      u" (" + base::ToText(holder.pid()) + u": " + suite + u")"))
      << base::Narrow(report.reason);
  EXPECT_TRUE(drive.Mounted());

  holder.Kill();
  const auto freed = sys::EjectDriveOf(suite, retry, ops);
  EXPECT_EQ(freed.outcome, EjectOutcome::kUnmounted) << base::Narrow(freed.reason);
  EXPECT_EQ(freed.tries, 1);
  EXPECT_FALSE(drive.Mounted());
}

}  // namespace
