// Entry point of TvEject: no command line is read; the whole run is the start procedure.
#include "app/start.h"
#include "os/entry.h"

int ProgramMain(std::vector<std::u16string>) {
  app::Start();
  return 0;
}
