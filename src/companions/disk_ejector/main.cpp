// Entry point of TvDiskEjector, the companion that ejects the suite's drive: the whole run is
// app::DiskEjectorMain.
#include "companions/disk_ejector/disk_ejector.h"
#include "os/entry.h"

int ProgramMain(std::vector<std::u16string> args) {
  return app::DiskEjectorMain(args);
}
