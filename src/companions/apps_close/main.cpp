// Entry point of TvAppsClose, the companion that closes the suite's applications: the whole
// run is app::AppsCloseMain, which reads the command line itself.
#include "companions/apps_close/apps_close.h"

#ifdef _WIN32
#include <windows.h>
int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
  return app::AppsCloseMain();
}
#else
int main() {
  return app::AppsCloseMain();
}
#endif
