// Entry point of TvDiskEjector, the companion that ejects the suite's drive: the whole run is
// app::DiskEjectorMain, which reads the command line itself.
#include "companions/disk_ejector/disk_ejector.h"

#ifdef _WIN32
#include <windows.h>
int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
  return app::DiskEjectorMain();
}
#else
int main() {
  return app::DiskEjectorMain();
}
#endif
