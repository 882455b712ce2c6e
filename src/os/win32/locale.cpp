// Win32 side of the seam: locale information from GetLocaleInfoW.
#include <windows.h>

#include <string>

#include "os/fault.h"
#include "os/locale.h"

namespace os {

std::u16string GetLocaleInfoW(std::uint32_t locale, std::uint32_t type) {
  if (fault::Hit(fault::Op::kLocaleInfo)) return std::u16string();
  wchar_t buffer[500];
  int n = ::GetLocaleInfoW(locale, type, buffer, 500);
  if (n <= 0) return std::u16string();
  buffer[499] = L'\0';
  return std::u16string(reinterpret_cast<const char16_t*>(buffer));
}

}  // namespace os
