// The udisks2 conversation, against a stand-in for the service on a private message bus: the
// real service cannot be counted on in a test, but what is said over the bus can be checked.
// The stand-in unmounts for real (the drive is a loop-mounted image), so the whole eject runs.
#ifndef _WIN32

#include <stdlib.h>
#include <sys/mount.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "base/text.h"
#include "os/apps.h"
#include "os/fault.h"
#include "os/posix/mounts.h"
#include "support/child_process.h"
#include "support/loop_mount.h"
#include "support/temp_dir.h"

namespace {

using testing_support::ChildProcess;

// What the stand-in answers, and the calls it received.
struct FakeUdisks {
  bool busy = false;
  std::string drive = "/org/freedesktop/UDisks2/drives/Fake_Stick";
  bool can_power_off = true;
  bool ejectable = true;
  std::string mount_point;
  std::vector<std::string> calls;

  static FakeUdisks* Of(void* p) { return static_cast<FakeUdisks*>(p); }

  static int Unmount(sd_bus_message* m, void* self, sd_bus_error* error) {
    FakeUdisks* f = Of(self);
    f->calls.push_back("Unmount");
    if (f->busy)
      return sd_bus_error_set(error, "org.freedesktop.UDisks2.Error.DeviceBusy", "target is busy");
    if (umount2(f->mount_point.c_str(), 0) != 0)
      return sd_bus_error_set(error, "org.freedesktop.UDisks2.Error.Failed", "umount failed");
    return sd_bus_reply_method_return(m, "");
  }
  static int PowerOff(sd_bus_message* m, void* self, sd_bus_error*) {
    Of(self)->calls.push_back("PowerOff");
    return sd_bus_reply_method_return(m, "");
  }
  static int Eject(sd_bus_message* m, void* self, sd_bus_error*) {
    Of(self)->calls.push_back("Eject");
    return sd_bus_reply_method_return(m, "");
  }
  static int Drive(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply,
                   void* self, sd_bus_error*) {
    return sd_bus_message_append(reply, "o", Of(self)->drive.c_str());
  }
  static int CanPowerOff(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply,
                         void* self, sd_bus_error*) {
    return sd_bus_message_append(reply, "b", Of(self)->can_power_off ? 1 : 0);
  }
  static int Ejectable(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply,
                       void* self, sd_bus_error*) {
    return sd_bus_message_append(reply, "b", Of(self)->ejectable ? 1 : 0);
  }
};

const sd_bus_vtable kFilesystem[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Unmount", "a{sv}", "", FakeUdisks::Unmount, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};
const sd_bus_vtable kBlock[] = {SD_BUS_VTABLE_START(0),
                                SD_BUS_PROPERTY("Drive", "o", FakeUdisks::Drive, 0, 0),
                                SD_BUS_VTABLE_END};
const sd_bus_vtable kDrive[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("CanPowerOff", "b", FakeUdisks::CanPowerOff, 0, 0),
    SD_BUS_PROPERTY("Ejectable", "b", FakeUdisks::Ejectable, 0, 0),
    SD_BUS_METHOD("PowerOff", "a{sv}", "", FakeUdisks::PowerOff, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Eject", "a{sv}", "", FakeUdisks::Eject, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};

// One conversation: what the stand-in answers, and what the eject must give.
struct UdisksRow {
  const char* name;
  bool busy;
  const char* drive;
  bool can_power_off, ejectable;
  bool ok;
  os::EjectDone done;
  std::vector<std::string> calls;
};

class PosixUdisks : public testing::TestWithParam<UdisksRow> {
 protected:
  void SetUp() override {
    std::string why;
    if (!drive_.Create(temp_, &why)) GTEST_SKIP() << "no loop-mounted drive: " << why;
    const std::string socket = (temp_.path() / "bus").string();
    // Through a shell only to quiet the daemon's complaints about its file limit.
    if (access("/usr/bin/dbus-daemon", X_OK) != 0) GTEST_SKIP() << "dbus-daemon is missing";
    if (!daemon_.Start(u"/bin/sh", {u"-c",
                                    u"exec /usr/bin/dbus-daemon --nofork "
                                    u"--config-file=/usr/share/dbus-1/session.conf "
                                    u"--address=unix:path=" +
                                        base::Widen(socket) + u" 2>/dev/null"}) ||
        !testing_support::WaitForFile(base::Widen(socket), 5000))
      GTEST_SKIP() << "dbus-daemon could not be started";
    address_ = "unix:path=" + socket;
    const char* old = getenv("DBUS_SYSTEM_BUS_ADDRESS");
    if (old) old_address_ = old;
    had_address_ = old != nullptr;
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address_.c_str(), 1);
    fake_.mount_point = base::Narrow(drive_.mount_point());
  }

  void TearDown() override {
    stop_ = true;
    if (loop_.joinable()) loop_.join();
    if (bus_) sd_bus_flush_close_unref(bus_);
    if (had_address_) {
      setenv("DBUS_SYSTEM_BUS_ADDRESS", old_address_.c_str(), 1);
    } else {
      unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    }
  }

  // Puts the stand-in on the bus under udisks2's name and answers calls in a thread.
  void Serve() {
    ASSERT_GE(sd_bus_new(&bus_), 0);
    ASSERT_GE(sd_bus_set_address(bus_, address_.c_str()), 0);
    ASSERT_GE(sd_bus_set_bus_client(bus_, 1), 0);
    ASSERT_GE(sd_bus_start(bus_), 0);
    const std::string disk = base::Narrow(drive_.device()).substr(5);  // "loop3"
    const std::string block = "/org/freedesktop/UDisks2/block_devices/" + disk;
    const char* fs = "org.freedesktop.UDisks2.Filesystem";
    ASSERT_GE(sd_bus_add_object_vtable(bus_, nullptr, block.c_str(), fs, kFilesystem, &fake_), 0);
    ASSERT_GE(sd_bus_add_object_vtable(bus_, nullptr, block.c_str(),
                                       "org.freedesktop.UDisks2.Block", kBlock, &fake_),
              0);
    if (fake_.drive != "/") {
      ASSERT_GE(sd_bus_add_object_vtable(bus_, nullptr, fake_.drive.c_str(),
                                         "org.freedesktop.UDisks2.Drive", kDrive, &fake_),
                0);
    }
    ASSERT_GE(sd_bus_request_name(bus_, "org.freedesktop.UDisks2", 0), 0);
    loop_ = std::thread([this] {
      while (!stop_) {
        if (sd_bus_process(bus_, nullptr) > 0) continue;
        sd_bus_wait(bus_, 50000);
      }
    });
  }

  testing_support::TempDir temp_;
  testing_support::LoopMount drive_;
  ChildProcess daemon_;
  std::string address_, old_address_;
  bool had_address_ = false;
  FakeUdisks fake_;
  sd_bus* bus_ = nullptr;
  std::thread loop_;
  std::atomic<bool> stop_{false};
};

TEST_P(PosixUdisks, UnmountsThenPowersOffOrEjectsWhatTheDriveAllows) {
  const UdisksRow& row = GetParam();
  fake_.busy = row.busy;
  fake_.drive = row.drive;
  fake_.can_power_off = row.can_power_off;
  fake_.ejectable = row.ejectable;
  Serve();

  os::fault::ScopedRemovableDisk hook(drive_.device());
  os::StorageDevice device;
  ASSERT_TRUE(os::QueryStorageDevice(drive_.mount_point() + u"/", &device));
  os::EjectAnswer answer;
  EXPECT_EQ(os::RequestDeviceEject(device.disk, device.mount_points, &answer), row.ok);
  EXPECT_EQ(answer.done, row.done);
  EXPECT_EQ(answer.method.substr(0, 7), u"udisks2");
  EXPECT_EQ(fake_.calls, row.calls);
  EXPECT_EQ(drive_.Mounted(), row.busy);
  if (row.busy) {
    EXPECT_EQ(answer.veto_type, os::kVetoOutstandingOpen);
    EXPECT_EQ(answer.veto_name, drive_.mount_point());
  }
}

INSTANTIATE_TEST_SUITE_P(Conversations, PosixUdisks,
                         testing::Values(UdisksRow{"PowerOff",
                                                   false,
                                                   "/org/freedesktop/UDisks2/drives/Fake_Stick",
                                                   true,
                                                   true,
                                                   true,
                                                   os::EjectDone::kRemoved,
                                                   {"Unmount", "PowerOff"}},
                                         UdisksRow{"EjectOnly",
                                                   false,
                                                   "/org/freedesktop/UDisks2/drives/Fake_Reader",
                                                   false,
                                                   true,
                                                   true,
                                                   os::EjectDone::kMediaEjected,
                                                   {"Unmount", "Eject"}},
                                         UdisksRow{"NoDriveObject",
                                                   false,
                                                   "/",
                                                   false,
                                                   false,
                                                   true,
                                                   os::EjectDone::kUnmounted,
                                                   {"Unmount"}},
                                         UdisksRow{"Busy",
                                                   true,
                                                   "/org/freedesktop/UDisks2/drives/Fake_Stick",
                                                   true,
                                                   true,
                                                   false,
                                                   os::EjectDone::kNothing,
                                                   {"Unmount"}}),
                         [](const testing::TestParamInfo<UdisksRow>& info) {
                           return std::string(info.param.name);
                         });

}  // namespace

#endif  // _WIN32
