// Entry point of TvAppsClose, the companion that closes the suite's applications: the whole
// run is app::AppsCloseMain.
#include "companions/apps_close/apps_close.h"
#include "os/entry.h"

int ProgramMain(std::vector<std::u16string> args) {
  return app::AppsCloseMain(args);
}
