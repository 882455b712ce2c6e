// Win32 side of the seam: the common controls. Kept apart so that only the program that uses
// them imports comctl32 (resolved through the manifest to the system's side-by-side copy): the
// companions, and above all the ejector's copy in a temporary folder, import no library that
// could be looked for beside them.
#include <windows.h>

#include <commctrl.h>

#include "os/process.h"

namespace os {

bool InitCommonControls(std::uint32_t size, std::uint32_t classes) {
  INITCOMMONCONTROLSEX icc{};
  icc.dwSize = size;
  icc.dwICC = classes;
  return ::InitCommonControlsEx(&icc) != FALSE;
}

}  // namespace os
