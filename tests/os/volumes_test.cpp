// Volumes through the seam: the temporary folder's drive everywhere, and on Linux a real FAT
// drive on a loop device that is described and held. (The ejector's tests refuse and eject
// such a drive.)
#include <gtest/gtest.h>

#include <filesystem>

#include "base/text.h"
#include "companions/disk_ejector/drive_eject.h"
#include "os/apps.h"
#include "os/fault.h"
#include "support/child_process.h"
#include "support/loop_mount.h"
#include "support/pid_namespace.h"
#include "support/temp_dir.h"

namespace {

using testing_support::ChildProcess;
using testing_support::TempDir;

// What the search says pid holds: "kind path", "" when it is not listed.
std::u16string Holds(const os::VolumeHolders& holders, std::uint32_t pid) {
  for (const auto& h : holders.processes) {
    if (h.process.pid != pid) continue;
    static const char16_t* const kKinds[] = {u"program ", u"module ", u"folder ", u"file "};
    return kKinds[static_cast<int>(h.kind)] + h.held;
  }
  return u"";
}

TEST(OsVolumes, TheTemporaryFolderIsOnAFixedDrive) {
  TempDir temp;
  const std::u16string root = os::GetVolumePathNameW(temp.u16(u"not/yet/there.txt"));
  ASSERT_FALSE(root.empty());
  EXPECT_TRUE(root.back() == u'/' || root.back() == u'\\') << base::Narrow(root);
  EXPECT_EQ(temp.u16().compare(0, root.size() - 1, root, 0, root.size() - 1), 0);
  os::StorageDevice device;
  ASSERT_TRUE(os::QueryStorageDevice(root, &device));
  EXPECT_EQ(device.root, root);
  EXPECT_NE(device.drive_type, os::kDriveRemovable);
  EXPECT_FALSE(os::QueryStorageDevice(u"Q:\\no\\such\\root\\", &device));
  EXPECT_EQ(os::GetVolumePathNameW(u""), u"");
}

#ifdef _WIN32
// Windows names programs started from anywhere by what they hold open: a file, and the current
// folder (an open handle there too). A folder stands for the drive: only what lies under it
// counts.
TEST(OsVolumes, NamesProgramsStartedElsewhereByTheFilesTheyHold) {
  TempDir temp;
  const std::u16string stick = temp.u16(u"Stick");
  std::filesystem::create_directories(temp.path() / "Stick" / "Docs");
  const std::u16string sleeper = testing_support::HelperProgram(u"sleeper");
  const std::u16string held = stick + u"\\Docs\\held file.txt";
  ChildProcess keeps_open, works_in, outsider;
  ASSERT_TRUE(
      keeps_open.Start(sleeper, {u"--ready", temp.u16(u"r1"), u"--open", held}, temp.u16()));
  ASSERT_TRUE(works_in.Start(sleeper, {u"--ready", temp.u16(u"r2")}, stick + u"\\Docs"));
  // The outsider also keeps a thread blocked on a pipe, which naming would block on too.
  ASSERT_TRUE(outsider.Start(sleeper, {u"--ready", temp.u16(u"r3"), u"--pipe"}, temp.u16()));
  for (const char16_t* r : {u"r1", u"r2", u"r3"})
    ASSERT_TRUE(testing_support::WaitForFile(temp.u16(r)));
  const auto holders = os::ProcessesUsingVolumes({stick + u"\\"});
  EXPECT_TRUE(base::EqualNoCase(Holds(holders, keeps_open.pid()), u"file " + held))
      << base::Narrow(Holds(holders, keeps_open.pid()));
  EXPECT_TRUE(base::EqualNoCase(Holds(holders, works_in.pid()), u"folder " + stick + u"\\Docs"))
      << base::Narrow(Holds(holders, works_in.pid()));
  EXPECT_EQ(Holds(holders, outsider.pid()), u"");
  keeps_open.Kill();
  works_in.Kill();
  EXPECT_TRUE(os::ProcessesUsingVolumes({stick + u"\\"}).processes.empty());
}
#endif

// One process runs from the drive, one works in a folder on it, one keeps a file open there, one
// has a file of it mapped; a fifth runs from elsewhere and must not be named. A loop device is
// neither flagged removable nor on the usb bus: only the test's hook makes it one.
TEST(OsLoopVolume, DescribesTheDriveAndNamesEveryKindOfHolder) {
  TempDir temp;
  testing_support::LoopMount drive;
  std::string why;
  if (!drive.Create(temp, &why)) GTEST_SKIP() << "no loop-mounted drive: " << why;
  if (testing_support::RunInOwnPidNamespace()) return;
  const std::u16string on = drive.mount_point(), root = on + u"/";
  EXPECT_EQ(os::GetVolumePathNameW(on + u"/Suite/App/missing.exe"), root);
  os::StorageDevice device;
  ASSERT_TRUE(os::QueryStorageDevice(root, &device));
  EXPECT_EQ(device.volume + device.disk, drive.device() + drive.device());
  ASSERT_EQ(device.chain.size(), 1u);
  EXPECT_EQ(device.mount_points, std::vector<std::u16string>{root});
  EXPECT_EQ(device.device_class, os::DeviceClass::kDisk);
  EXPECT_NE(device.device_number, device.system_number);
  EXPECT_FALSE(device.chain[0].removable || device.removable_media);
  EXPECT_EQ(device.drive_type, os::kDriveFixed);

  const std::u16string exe = testing_support::CopyHelperProgram(u"sleeper", on + u"/Apps");
  ASSERT_FALSE(exe.empty());
  std::filesystem::create_directories(std::filesystem::path(on + u"/Work"));
  const std::u16string sleeper = testing_support::HelperProgram(u"sleeper");
  ChildProcess runs_from, works_in, keeps_open, maps, outsider;
  ASSERT_TRUE(runs_from.Start(exe, {u"--ready", temp.u16(u"r1")}, temp.u16()));
  ASSERT_TRUE(works_in.Start(sleeper, {u"--ready", temp.u16(u"r2")}, on + u"/Work"));
  ASSERT_TRUE(keeps_open.Start(
      sleeper, {u"--ready", temp.u16(u"r3"), u"--open", on + u"/Work/log.txt"}, temp.u16()));
  ASSERT_TRUE(outsider.Start(sleeper, {u"--ready", temp.u16(u"r4")}, temp.u16()));
  ASSERT_TRUE(maps.Start(sleeper, {u"--ready", temp.u16(u"r5"), u"--map", on + u"/Work/lib.so"},
                         temp.u16()));
  for (const char16_t* r : {u"r1", u"r2", u"r3", u"r4", u"r5"})
    ASSERT_TRUE(testing_support::WaitForFile(temp.u16(r)));
  const auto holders = os::ProcessesUsingVolumes({root});
  EXPECT_EQ(Holds(holders, runs_from.pid()), u"program " + exe);
  EXPECT_EQ(Holds(holders, works_in.pid()), u"folder " + on + u"/Work");
  EXPECT_EQ(Holds(holders, keeps_open.pid()), u"file " + on + u"/Work/log.txt");
  EXPECT_EQ(Holds(holders, maps.pid()), u"module " + on + u"/Work/lib.so");
  EXPECT_EQ(Holds(holders, outsider.pid()) + Holds(holders, os::GetCurrentProcessId()), u"");
  EXPECT_EQ(holders.uninspected, 0) << "root may look at every process";
  for (const auto& h : holders.processes)
    EXPECT_TRUE(h.closable) << h.process.pid << ": the test's own may be asked to close";

  os::fault::ScopedRemovableDisk hook(drive.device());
  ASSERT_TRUE(os::QueryStorageDevice(root, &device));
  EXPECT_TRUE(device.chain[0].removable);
  EXPECT_EQ(device.drive_type, os::kDriveRemovable);
  const sys::EjectPlan plan = sys::PlanEject(device);
  EXPECT_EQ(plan.target, sys::EjectTarget::kDevice);
  EXPECT_TRUE(os::FlushVolumes(plan.volumes));
  // The refusal and the unmount once they are gone are the ejector's tests.
  for (ChildProcess* p : {&runs_from, &works_in, &keeps_open, &maps}) p->Kill();
  EXPECT_TRUE(os::ProcessesUsingVolumes({root}).processes.empty());
  EXPECT_FALSE(outsider.Exited());
}

}  // namespace
