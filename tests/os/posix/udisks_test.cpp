// The udisks2 conversation, against a stand-in for the service on a private message bus: the
// real service cannot be counted on in a test, but what is said over the bus can be checked.
// The stand-in unmounts for real (the drive is a loop-mounted image), so the whole eject runs.
#ifndef _WIN32

#include <sys/mount.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/text.h"
#include "os/apps.h"
#include "os/fault.h"
#include "support/child_process.h"
#include "support/loop_mount.h"
#include "support/scoped_env.h"
#include "support/temp_dir.h"

namespace {

// What the stand-in answers, and the calls it received.
struct FakeUdisks {
  const char* name;
  bool busy;
  std::string drive;  // "/": no drive object
  bool can_power_off, ejectable;
  // What the eject must give.
  bool ok;
  os::EjectDone done;
  std::vector<std::string> calls;
  std::string mount_point = {};
  std::vector<std::string> received = {};

  static int Method(sd_bus_message* m, void* self, sd_bus_error* error) {
    FakeUdisks* f = static_cast<FakeUdisks*>(self);
    f->received.push_back(sd_bus_message_get_member(m));
    const bool unmount = f->received.back() == "Unmount";
    if (unmount && f->busy)
      return sd_bus_error_set(error, "org.freedesktop.UDisks2.Error.DeviceBusy", "target is busy");
    if (unmount && umount2(f->mount_point.c_str(), 0) != 0)
      return sd_bus_error_set(error, "org.freedesktop.UDisks2.Error.Failed", "umount failed");
    return sd_bus_reply_method_return(m, "");
  }
  static int Property(sd_bus*, const char*, const char*, const char* property,
                      sd_bus_message* reply, void* self, sd_bus_error*) {
    const FakeUdisks* f = static_cast<FakeUdisks*>(self);
    const std::string name = property;
    if (name == "Drive") return sd_bus_message_append(reply, "o", f->drive.c_str());
    return sd_bus_message_append(reply, "b", name == "Ejectable" ? f->ejectable : f->can_power_off);
  }
};

#define METHOD(name) \
  SD_BUS_METHOD(name, "a{sv}", "", FakeUdisks::Method, SD_BUS_VTABLE_UNPRIVILEGED)
#define PROPERTY(name, type) SD_BUS_PROPERTY(name, type, FakeUdisks::Property, 0, 0)
const sd_bus_vtable kFilesystem[] = {SD_BUS_VTABLE_START(0), METHOD("Unmount"), SD_BUS_VTABLE_END};
const sd_bus_vtable kBlock[] = {SD_BUS_VTABLE_START(0), PROPERTY("Drive", "o"), SD_BUS_VTABLE_END};
// clang-format off
const sd_bus_vtable kDrive[] = {SD_BUS_VTABLE_START(0), PROPERTY("CanPowerOff", "b"),
    PROPERTY("Ejectable", "b"), METHOD("PowerOff"), METHOD("Eject"), SD_BUS_VTABLE_END};
// clang-format on

class PosixUdisks : public testing::TestWithParam<FakeUdisks> {
 protected:
  // Starts a private bus and puts the stand-in on it under udisks2's name, answering calls in
  // a thread.
  void SetUp() override {
    std::string why;
    if (!drive_.Create(temp_, &why)) GTEST_SKIP() << "no loop-mounted drive: " << why;
    if (access("/usr/bin/dbus-daemon", X_OK) != 0) GTEST_SKIP() << "dbus-daemon is missing";
    const std::string address = "unix:path=" + (temp_.path() / "bus").string();
    // Through a shell only to quiet the daemon's complaints about its file limit.
    ASSERT_TRUE(daemon_.Start(u"/bin/sh", {u"-c",
                                           u"exec /usr/bin/dbus-daemon --nofork "
                                           u"--config-file=/usr/share/dbus-1/session.conf "
                                           u"--address=" +
                                               base::Widen(address) + u" 2>/dev/null"}));
    env_ = std::make_unique<testing_support::ScopedEnv>(
        std::initializer_list<testing_support::ScopedEnv::Setting>{
            {"DBUS_SYSTEM_BUS_ADDRESS", address.c_str()}});
    fake_.mount_point = base::Narrow(drive_.mount_point());
    // The daemon may not listen yet: a refused start is tried again.
    for (int tries = 0; tries < 100 && !bus_; ++tries) {
      ASSERT_GE(sd_bus_new(&bus_), 0);
      sd_bus_set_address(bus_, address.c_str());
      sd_bus_set_bus_client(bus_, 1);
      if (sd_bus_start(bus_) >= 0) break;
      bus_ = sd_bus_unref(bus_);
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    ASSERT_NE(bus_, nullptr) << "no connection to the private bus";
    const std::string block = "/org/freedesktop/UDisks2/block_devices/" +
                              base::Narrow(drive_.device()).substr(5);  // "loop3"
    const std::string ud = "org.freedesktop.UDisks2";
    for (auto [path, face, table] : {std::tuple{block, ".Filesystem", kFilesystem},
                                     {block, ".Block", kBlock},
                                     {fake_.drive, ".Drive", kDrive}})
      if (path != "/") {
        ASSERT_GE(sd_bus_add_object_vtable(bus_, nullptr, path.c_str(), (ud + face).c_str(), table,
                                           &fake_),
                  0);
      }
    ASSERT_GE(sd_bus_request_name(bus_, ud.c_str(), 0), 0);
    loop_ = std::thread([this] {
      while (!stop_)
        if (sd_bus_process(bus_, nullptr) <= 0) sd_bus_wait(bus_, 50000);
    });
  }
  void TearDown() override {
    stop_ = true;
    if (loop_.joinable()) loop_.join();
    if (bus_) sd_bus_flush_close_unref(bus_);
  }

  testing_support::TempDir temp_;
  testing_support::LoopMount drive_;
  testing_support::ChildProcess daemon_;
  std::unique_ptr<testing_support::ScopedEnv> env_;
  FakeUdisks fake_ = GetParam();
  sd_bus* bus_ = nullptr;
  std::thread loop_;
  std::atomic<bool> stop_{false};
};

TEST_P(PosixUdisks, UnmountsThenPowersOffOrEjectsWhatTheDriveAllows) {
  os::fault::ScopedRemovableDisk hook(drive_.device());
  os::StorageDevice device;
  ASSERT_TRUE(os::QueryStorageDevice(drive_.mount_point() + u"/", &device));
  os::EjectAnswer answer;
  EXPECT_EQ(os::RequestDeviceEject(device.disk, device.mount_points, &answer), fake_.ok);
  EXPECT_EQ(answer.done, fake_.done);
  EXPECT_EQ(answer.method.substr(0, 7), u"udisks2");
  EXPECT_EQ(fake_.received, fake_.calls);
  EXPECT_EQ(drive_.Mounted(), fake_.busy);
  EXPECT_EQ(answer.veto_type, fake_.busy ? os::kVetoOutstandingOpen : os::kVetoNone);
  EXPECT_EQ(answer.veto_name, fake_.busy ? drive_.mount_point() : u"");
}

const char kStick[] = "/org/freedesktop/UDisks2/drives/Fake_Stick";
// clang-format off
INSTANTIATE_TEST_SUITE_P(Conversations, PosixUdisks, testing::Values(
    FakeUdisks{"PowerOff", false, kStick, true, true, true, os::EjectDone::kRemoved, {"Unmount", "PowerOff"}},
    FakeUdisks{"EjectOnly", false, kStick, false, true, true, os::EjectDone::kMediaEjected, {"Unmount", "Eject"}},
    FakeUdisks{"NoDriveObject", false, "/", false, false, true, os::EjectDone::kUnmounted, {"Unmount"}},
    FakeUdisks{"Busy", true, kStick, true, true, false, os::EjectDone::kNothing, {"Unmount"}}),
    [](const testing::TestParamInfo<FakeUdisks>& info) { return std::string(info.param.name); });
// clang-format on

}  // namespace

#endif  // _WIN32
