// The entry point: the arguments are read as the Windows side reads them, through the seam
// (/proc/self/cmdline), not from argv.
#include "os/entry.h"
#include "os/program_env.h"

int main() {
  return ProgramMain(os::ProgramArguments());
}
