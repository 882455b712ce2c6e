// POSIX side of the seam, udisks2: the desktop's disk service, spoken to over the system
// D-Bus with sd-bus. It unmounts what a user mounted without asking for root, and it can power
// a USB drive off, which nothing else here can. Its command-line tool is meant for people,
// not for programs, so the interface is used directly.
#include <sys/sysmacros.h>
#include <systemd/sd-bus.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>

#include "base/text.h"
#include "os/posix/mounts.h"

namespace os::posix {
namespace {

constexpr const char* kService = "org.freedesktop.UDisks2";
constexpr const char* kBlockPath = "/org/freedesktop/UDisks2/block_devices/";

struct BusDeleter {
  void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, BusDeleter>;

// One method call's error, freed on every path.
struct Error {
  sd_bus_error e = SD_BUS_ERROR_NULL;
  ~Error() { sd_bus_error_free(&e); }
  bool Is(const char* name) const { return sd_bus_error_has_name(&e, name) > 0; }
  std::u16string Text() const {
    return base::Widen(e.message ? e.message : (e.name ? e.name : "unknown error"));
  }
};

struct Reply {
  sd_bus_message* m = nullptr;
  ~Reply() { sd_bus_message_unref(m); }
};

bool ServiceRuns(sd_bus* bus) {
  Error error;
  Reply reply;
  int owned = 0;
  if (sd_bus_call_method(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                         "org.freedesktop.DBus", "NameHasOwner", &error.e, &reply.m, "s",
                         kService) >= 0 &&
      sd_bus_message_read(reply.m, "b", &owned) >= 0 && owned)
    return true;
  // Not running yet, but the bus starts it on the first call when it is installed.
  Error error2;
  Reply names;
  if (sd_bus_call_method(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                         "org.freedesktop.DBus", "ListActivatableNames", &error2.e, &names.m,
                         "") < 0)
    return false;
  if (sd_bus_message_enter_container(names.m, 'a', "s") < 0) return false;
  const char* name = nullptr;
  while (sd_bus_message_read(names.m, "s", &name) > 0)
    if (std::string(name) == kService) return true;
  return false;
}

dev_t BlockDev(const std::string& kernel_name) {
  std::ifstream in("/sys/class/block/" + kernel_name + "/dev");
  std::string line;
  std::getline(in, line);
  std::size_t colon = line.find(':');
  if (colon == std::string::npos) return 0;
  return makedev(std::strtoul(line.substr(0, colon).c_str(), nullptr, 10),
                 std::strtoul(line.substr(colon + 1).c_str(), nullptr, 10));
}

std::string MountPointOfDev(dev_t dev) {
  for (const auto& e : ReadMountTable())
    if (dev && MountDevice(e) == dev) return e.mount_point;
  return std::string();
}

// Calls a method that takes only an empty options dictionary (a{sv}).
int CallWithNoOptions(sd_bus* bus, const std::string& path, const char* interface,
                      const char* member, Error* error) {
  Reply reply;
  return sd_bus_call_method(bus, kService, path.c_str(), interface, member, &error->e, &reply.m,
                            "a{sv}", 0);
}

}  // namespace

UdisksStatus UdisksEject(const std::string& disk_name, const std::vector<std::string>& volumes,
                         EjectAnswer* answer) {
  sd_bus* raw = nullptr;
  if (sd_bus_open_system(&raw) < 0) return UdisksStatus::kUnavailable;
  Bus bus(raw);
  if (!ServiceRuns(bus.get())) return UdisksStatus::kUnavailable;

  answer->method = u"udisks2";
  for (const auto& volume : volumes) {
    const std::string path = kBlockPath + UdisksObjectName(volume);
    const dev_t dev = BlockDev(volume);
    // One Unmount takes the file system off one mount point; a volume mounted twice needs two.
    for (int round = 0; round < 8; ++round) {
      std::string mount_point = MountPointOfDev(dev);
      if (mount_point.empty()) break;
      Error error;
      if (CallWithNoOptions(bus.get(), path, "org.freedesktop.UDisks2.Filesystem", "Unmount",
                            &error) >= 0)
        continue;
      if (error.Is("org.freedesktop.UDisks2.Error.NotMounted")) break;
      if (error.Is("org.freedesktop.UDisks2.Error.DeviceBusy")) {
        answer->veto_type = kVetoOutstandingOpen;
        answer->veto_name = base::Widen(mount_point);
        return UdisksStatus::kRefused;
      }
      if (error.Is("org.freedesktop.UDisks2.Error.NotAuthorized") ||
          error.Is("org.freedesktop.UDisks2.Error.NotAuthorizedCanObtain") ||
          error.Is("org.freedesktop.UDisks2.Error.NotAuthorizedDismissed")) {
        answer->veto_type = kVetoInsufficientRights;
        answer->veto_name = error.Text();
        return UdisksStatus::kRefused;
      }
      return UdisksStatus::kFailed;
    }
    // Still mounted after all that: let the caller try, and say, what it can.
    if (!MountPointOfDev(dev).empty()) return UdisksStatus::kFailed;
  }

  // The drive object behind the disk; "/" for devices that are no drive (loop devices).
  const std::string disk_path = kBlockPath + UdisksObjectName(disk_name);
  std::string drive;
  {
    Error error;
    Reply reply;
    const char* object = nullptr;
    if (sd_bus_get_property(bus.get(), kService, disk_path.c_str(), "org.freedesktop.UDisks2.Block",
                            "Drive", &error.e, &reply.m, "o") >= 0 &&
        sd_bus_message_read(reply.m, "o", &object) >= 0 && object)
      drive = object;
  }
  answer->done = EjectDone::kUnmounted;
  if (drive.empty() || drive == "/") return UdisksStatus::kDone;

  const char* kDrive = "org.freedesktop.UDisks2.Drive";
  int can_power_off = 0, ejectable = 0;
  {
    Error e1, e2;
    sd_bus_get_property_trivial(bus.get(), kService, drive.c_str(), kDrive, "CanPowerOff", &e1.e,
                                'b', &can_power_off);
    sd_bus_get_property_trivial(bus.get(), kService, drive.c_str(), kDrive, "Ejectable", &e2.e, 'b',
                                &ejectable);
  }
  Error power_error, eject_error;
  if (can_power_off && CallWithNoOptions(bus.get(), drive, kDrive, "PowerOff", &power_error) >= 0) {
    answer->done = EjectDone::kRemoved;
  } else if (ejectable && CallWithNoOptions(bus.get(), drive, kDrive, "Eject", &eject_error) >= 0) {
    answer->done = EjectDone::kMediaEjected;
  } else if (can_power_off || ejectable) {
    // The volumes are off; only the last step failed. Say so rather than claim more.
    const Error& failed = ejectable ? eject_error : power_error;
    answer->method = u"udisks2 (volumes unmounted; " + failed.Text() + u")";
  }
  return UdisksStatus::kDone;
}

}  // namespace os::posix
