// The ejector's copy run against a folder that stands for a removable drive, to see its boxes
// as a user would: the drive is "refused" while any process holds something under the folder
// (the real holder search decides), and "removed" once none does. The boxes, the search and
// the polite close after "Retry" are the program's own.
//   holders_demo STICK_FOLDER COPY_FILE
// STICK_FOLDER\TvEject\TvEject.xml picks the language as on a real drive. COPY_FILE (made when
// missing, in a folder off the stick) plays the copy's own file: the ejector moves its working
// folder there and deletes it, with its folder, at the end. The exit code is the ejector's.
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "base/text.h"
#include "companions/apps_close/app_closer.h"
#include "companions/disk_ejector/disk_ejector.h"
#include "os/apps.h"
#include "os/program_env.h"

int main() {
  const std::vector<std::u16string> args = os::ProgramArguments();
  if (args.size() < 2) return 2;
  const std::filesystem::path copy(base::Narrow(args[1]));
  std::filesystem::create_directories(copy.parent_path());
  std::ofstream(copy, std::ios::app).close();
  std::u16string stick = args[0];
  if (stick.back() != u'\\' && stick.back() != u'/') stick += os::PathsIgnoreCase() ? u'\\' : u'/';

  app::EjectorOps ops;
  ops.drive = sys::SystemDriveOps();
  ops.drive.volume_root = [stick](std::u16string_view) { return stick; };
  ops.drive.query = [](std::u16string_view root, os::StorageDevice* d) {
    d->root = std::u16string(root);
    d->disk = u"demo-stick";
    d->drive_type = os::kDriveRemovable;
    d->chain = {{d->disk, true, false}};
    d->mount_points = {d->root};
    return true;
  };
  ops.drive.flush = [](const std::vector<std::u16string>&) { return true; };
  ops.drive.eject = [stick](const sys::EjectPlan&, const os::StorageDevice&, os::EjectAnswer* a) {
    *a = os::EjectAnswer{};
    if (!os::ProcessesUsingVolumes({stick}).processes.empty()) {
      a->veto_type = os::kVetoOutstandingOpen;
      a->veto_name = stick;
      return false;
    }
    a->done = os::EjectDone::kRemoved;
    return true;
  };
  const std::u16string from = sys::ChildPath(sys::ChildPath(stick, u"TvEject"), u"TvDiskEjector");
  return app::RunDiskEjector({u"/from", from, u"/wait", u"2147483646"}, args[1], ops);
}
