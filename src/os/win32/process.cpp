// Win32 side of the seam: the shell's start calls, process exit codes and the message loop.
#include <windows.h>

#include <objbase.h>
#include <shellapi.h>

#include <string>
#include <vector>

#include "os/process.h"
#include "os/side.h"
#include "os/types.h"

namespace os {
namespace {

const wchar_t* W(const char16_t* text) {
  return reinterpret_cast<const wchar_t*>(text);
}

// The shell may hand a start to an extension that is a COM object, and asks its callers to
// initialise COM on the thread first, apartment-threaded. Once per thread, for the thread's
// life; a thread that has COM already in another model keeps it (the call then only fails).
void InitializeComForShell() {
  thread_local const HRESULT initialized =
      ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE);
  (void)initialized;
}

}  // namespace

std::intptr_t side::ShellExecuteW(Handle owner, const char16_t* verb, const char16_t* file,
                                  const char16_t* parameters, const char16_t* directory,
                                  int show_command) {
  InitializeComForShell();
  HINSTANCE result = ::ShellExecuteW(reinterpret_cast<HWND>(owner), W(verb), W(file), W(parameters),
                                     W(directory), show_command);
  return reinterpret_cast<std::intptr_t>(result);
}

bool side::ShellExecuteExW(ShellExecuteInfo& info) {
  // The program's record says 60 bytes, the size of the 32-bit structure it was written
  // against; the 64-bit SHELLEXECUTEINFOW is 112 bytes and the shell rejects any other size,
  // so the real size goes to the API and the program's number stays in its own record.
  InitializeComForShell();
  SHELLEXECUTEINFOW sei{};
  sei.cbSize = sizeof(sei);
  sei.fMask = info.mask;
  sei.hwnd = reinterpret_cast<HWND>(info.owner);
  sei.lpVerb = W(info.verb);
  sei.lpFile = W(info.file);
  sei.lpParameters = W(info.parameters);
  sei.lpDirectory = W(info.directory);
  sei.nShow = info.show;
  BOOL ok = ::ShellExecuteExW(&sei);
  info.inst_app = reinterpret_cast<std::intptr_t>(sei.hInstApp);
  info.process = Process(reinterpret_cast<Handle>(sei.hProcess));
  return ok != FALSE;
}

void side::CloseProcess(Handle process) {
  ::CloseHandle(reinterpret_cast<HANDLE>(process));
}

bool side::GetExitCodeProcess(Handle process, std::uint32_t* exit_code) {
  DWORD code = 0;
  if (!::GetExitCodeProcess(reinterpret_cast<HANDLE>(process), &code)) return false;
  *exit_code = code;
  return true;
}

void side::PumpMessages() {
  MSG msg;
  while (::PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
    if (msg.message == WM_QUIT) {
      // The quit belongs to the caller's own loop: put it back for it and stop here.
      ::PostQuitMessage(static_cast<int>(msg.wParam));
      break;
    }
    ::TranslateMessage(&msg);
    ::DispatchMessageW(&msg);
  }
}

}  // namespace os
