// Win32 side of the seam: last error, time, the program's own path and libraries.
//
// Nothing here imports a library that is not one of the system's known libraries: a copy of the
// ejector runs from a temporary folder, which is its program folder, and an import is looked for
// there before anything of the program runs. winmm is loaded from the system folder when the
// clock is first read; the common controls live in controls.cpp, which only TvEject pulls in.
#include <windows.h>

#include <string>

#include "os/process.h"
#include "os/side.h"
#include "os/types.h"

namespace os {

std::uint32_t GetLastError() {
  return ::GetLastError();
}
void SetLastError(std::uint32_t error) {
  ::SetLastError(error);
}

void side::Sleep(std::uint32_t milliseconds) {
  ::Sleep(milliseconds);
}

namespace {

// LOAD_LIBRARY_SEARCH_SYSTEM32, from the headers of Windows 8 (Windows 7 with KB2533623).
constexpr DWORD kSearchSystem32 = 0x00000800;

using TimeGetTimeFn = DWORD(WINAPI*)();

// winmm's timeGetTime, the clock the program measures its waits with, from the system folder
// only; the system's tick count (the same millisecond clock, wrapping at 2^32) where winmm
// cannot be loaded that way.
TimeGetTimeFn SystemClock() {
  static const TimeGetTimeFn clock = [] {
    HMODULE winmm = ::LoadLibraryExW(L"winmm.dll", nullptr, kSearchSystem32);
    auto fn = winmm ? reinterpret_cast<TimeGetTimeFn>(
                          reinterpret_cast<void*>(::GetProcAddress(winmm, "timeGetTime")))
                    : nullptr;
    return fn ? fn : &::GetTickCount;
  }();
  return clock;
}

}  // namespace

void RestrictLibrarySearch() {
  using SetDirectoriesFn = BOOL(WINAPI*)(DWORD);
  // Looked up rather than imported: a Windows 7 without KB2533623 lacks it.
  auto set = reinterpret_cast<SetDirectoriesFn>(reinterpret_cast<void*>(
      ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "SetDefaultDllDirectories")));
  if (set) set(kSearchSystem32);
}

std::uint32_t side::TimeGetTime() {
  return SystemClock()();
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

Handle side::LoadLibraryW(const char16_t* name) {
  return reinterpret_cast<Handle>(::LoadLibraryW(reinterpret_cast<const wchar_t*>(name)));
}

void side::FreeLibrary(Handle module) {
  if (module) ::FreeLibrary(reinterpret_cast<HMODULE>(module));
}

}  // namespace os
