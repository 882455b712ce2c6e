// Win32 side of the seam: the shell's start calls, process exit codes and the message loop.
#include <windows.h>

#include <objbase.h>
#include <shellapi.h>

#include <string>
#include <vector>

#include "os/fault.h"
#include "os/process.h"
#include "os/types.h"

namespace os {
namespace {

const wchar_t* W(const char16_t* text) {
  return reinterpret_cast<const wchar_t*>(text);
}

// The ShellExecuteW result for a failure armed by a test.
std::intptr_t ResultFromError(std::uint32_t error) {
  if (error == kErrorNoAssociation) return SE_ERR_NOASSOC;
  if (error == kErrorSharingViolation) return SE_ERR_SHARE;
  if (error <= 32) return static_cast<std::intptr_t>(error);
  return 0;
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

std::intptr_t ShellExecuteW(Handle owner, const char16_t* verb, const char16_t* file,
                            const char16_t* parameters, const char16_t* directory,
                            int show_command) {
  fault::Notify(fault::Event::kShellExecute, show_command);
  if (fault::Hit(fault::Op::kShellExecute)) return ResultFromError(GetLastError());
  InitializeComForShell();
  HINSTANCE result = ::ShellExecuteW(reinterpret_cast<HWND>(owner), W(verb), W(file), W(parameters),
                                     W(directory), show_command);
  return reinterpret_cast<std::intptr_t>(result);
}

bool ShellExecuteExW(ShellExecuteInfo& info) {
  info.inst_app = 0;
  info.process = 0;
  fault::Notify(fault::Event::kShellExecute, info.show);
  if (fault::Hit(fault::Op::kShellExecute)) {
    info.inst_app = ResultFromError(GetLastError());
    return false;
  }
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
  info.process = reinterpret_cast<Handle>(sei.hProcess);
  if (info.process != 0) fault::Notify(fault::Event::kProcessStarted, info.process);
  return ok != FALSE;
}

bool GetExitCodeProcess(Handle process, std::uint32_t* exit_code) {
  DWORD code = 0;
  if (!::GetExitCodeProcess(reinterpret_cast<HANDLE>(process), &code)) return false;
  *exit_code = code;
  fault::Notify(fault::Event::kExitCodeRead, code);
  return true;
}

void PumpMessages() {
  fault::Notify(fault::Event::kMessagesPumped);
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
