// Win32 side of the seam: locale information from GetLocaleInfoW.
#include <windows.h>

#include <string>

#include "os/locale.h"
#include "os/side.h"

namespace os {

std::u16string side::GetLocaleInfoW(std::uint32_t locale, std::uint32_t type) {
  wchar_t buffer[500];
  int n = ::GetLocaleInfoW(locale, type, buffer, 500);
  if (n <= 0) return std::u16string();
  buffer[499] = L'\0';
  return std::u16string(reinterpret_cast<const char16_t*>(buffer));
}

}  // namespace os
