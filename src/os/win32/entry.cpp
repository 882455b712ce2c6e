// The entry point of a GUI-subsystem program (linked with -municode).
#include <windows.h>

#include "os/entry.h"
#include "os/program_env.h"

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
  return ProgramMain(os::ProgramArguments());
}
