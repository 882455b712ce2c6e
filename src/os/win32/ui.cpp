// Win32 side of the seam: the message box.
#include <windows.h>

#include <string>

#include "os/side.h"
#include "os/types.h"
#include "os/ui.h"

namespace os {

std::int32_t side::MessageBoxIndirectW(const MessageBoxParams& params) {
  // The texts must end with a NUL for the API.
  std::u16string text(params.text);
  std::u16string caption(params.caption);
  // The program's record says 40 bytes, the size of the 32-bit MSGBOXPARAMSW it was written
  // against; the 64-bit structure is 80 bytes, and that is what the API is given. The
  // program's number stays in its own record.
  MSGBOXPARAMSW box{};
  box.cbSize = sizeof(box);
  box.hwndOwner = reinterpret_cast<HWND>(params.owner);
  box.lpszText = reinterpret_cast<const wchar_t*>(text.c_str());
  box.lpszCaption = reinterpret_cast<const wchar_t*>(caption.c_str());
  box.dwStyle = params.style;
  return ::MessageBoxIndirectW(&box);
}

}  // namespace os
