// Entry point of TvEject: no command line is read; the whole run is the start procedure.
#include "app/start.h"

#ifdef _WIN32
#include <windows.h>
int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
  app::Start();
  return 0;
}
#else
int main() {
  app::Start();
  return 0;
}
#endif
