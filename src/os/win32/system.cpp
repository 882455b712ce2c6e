// Win32 side of the seam: last error, time, the program's own path, libraries and controls.
#include <windows.h>

#include <commctrl.h>
#include <mmsystem.h>

#include <string>

#include "os/fault.h"
#include "os/process.h"
#include "os/types.h"

namespace os {

std::uint32_t GetLastError() {
  return ::GetLastError();
}
void SetLastError(std::uint32_t error) {
  ::SetLastError(error);
}

void Sleep(std::uint32_t milliseconds) {
  fault::Notify(fault::Event::kSlept, milliseconds);
  ::Sleep(milliseconds);
}

std::uint32_t TimeGetTime() {
  std::uint32_t now;
  if (fault::ClockOverridden(&now)) return now;
  return ::timeGetTime();
}

SystemTime GetLocalTime() {
  SYSTEMTIME st;
  ::GetLocalTime(&st);
  return SystemTime{st.wYear, st.wMonth, st.wDay, st.wHour, st.wMinute, st.wSecond};
}

std::u16string ModuleFileName() {
  // Grow the buffer until the whole path fits (GetModuleFileNameW truncates silently).
  std::wstring buf(MAX_PATH, L'\0');
  for (;;) {
    DWORD n = ::GetModuleFileNameW(nullptr, buf.data(), static_cast<DWORD>(buf.size()));
    if (n == 0) return std::u16string();
    if (n < buf.size()) return std::u16string(reinterpret_cast<const char16_t*>(buf.data()), n);
    buf.resize(buf.size() * 2);
  }
}

Handle LoadLibraryW(const char16_t* name) {
  return reinterpret_cast<Handle>(::LoadLibraryW(reinterpret_cast<const wchar_t*>(name)));
}

void FreeLibrary(Handle module) {
  if (module) ::FreeLibrary(reinterpret_cast<HMODULE>(module));
}

bool InitCommonControls(std::uint32_t size, std::uint32_t classes) {
  INITCOMMONCONTROLSEX icc{};
  icc.dwSize = size;
  icc.dwICC = classes;
  return ::InitCommonControlsEx(&icc) != FALSE;
}

}  // namespace os
