#include "app/start.h"

#include "os/os.h"

namespace app {
namespace {
os::Handle shell_library = 0;
}

void FreeShellLibrary() {
  if (shell_library != 0) {
    os::FreeLibrary(shell_library);
    shell_library = 0;
  }
}

void Start() {
  shell_library = os::LoadLibraryW(u"shell32.dll");
  // ICC_USEREX_CLASSES with the 8-byte structure; the result does not matter to the run.
  os::InitCommonControls(8, 0x200);
  // The eject sequence is wired in here once the configuration and language load exist.
  FreeShellLibrary();
}

}  // namespace app
