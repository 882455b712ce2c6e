// Win32 side of the seam, processes: the Toolhelp snapshot, the executable's path through a
// limited-information handle, WM_CLOSE to the process's windows, TerminateProcess.
// windows.h first: the other headers need its types.
#include <windows.h>

#include <tlhelp32.h>

#include <string>

#include "os/apps.h"
#include "os/win32/handle.h"

namespace os {
namespace {

using win32::OwnedHandle;

// PROCESS_QUERY_LIMITED_INFORMATION is granted for elevated processes and for processes of
// the other bitness, where PROCESS_QUERY_INFORMATION is not: they are still seen.
std::u16string ImageOf(DWORD pid) {
  OwnedHandle process(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid));
  if (!process) return std::u16string();
  std::wstring buf(MAX_PATH, L'\0');
  for (int attempt = 0; attempt < 4; ++attempt) {
    DWORD size = static_cast<DWORD>(buf.size());
    if (::QueryFullProcessImageNameW(process.get(), 0, buf.data(), &size))
      return std::u16string(reinterpret_cast<const char16_t*>(buf.data()), size);
    if (::GetLastError() != ERROR_INSUFFICIENT_BUFFER) break;
    buf.resize(buf.size() * 4);
  }
  return std::u16string();
}

struct CloseRequest {
  DWORD pid;
  int sent;
};

BOOL CALLBACK PostCloseToWindow(HWND window, LPARAM param) {
  auto* request = reinterpret_cast<CloseRequest*>(param);
  DWORD owner = 0;
  ::GetWindowThreadProcessId(window, &owner);
  // Posted, not sent: an application that shows "Save changes?" must not block the closer;
  // the grace period gives the user time to answer.
  if (owner == request->pid && ::IsWindowVisible(window) && ::PostMessageW(window, WM_CLOSE, 0, 0))
    ++request->sent;
  return TRUE;
}

}  // namespace

std::vector<ProcessEntry> EnumProcesses() {
  std::vector<ProcessEntry> out;
  OwnedHandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  if (!snapshot) return out;
  PROCESSENTRY32W entry{};
  entry.dwSize = sizeof entry;
  for (BOOL more = ::Process32FirstW(snapshot.get(), &entry); more;
       more = ::Process32NextW(snapshot.get(), &entry)) {
    ProcessEntry p;
    p.pid = entry.th32ProcessID;
    p.parent_pid = entry.th32ParentProcessID;
    if (p.pid != 0) p.image = ImageOf(p.pid);
    out.push_back(std::move(p));
  }
  return out;
}

std::uint32_t GetCurrentProcessId() {
  return ::GetCurrentProcessId();
}

std::uint32_t ParentProcessId(std::uint32_t pid) {
  OwnedHandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  if (!snapshot) return 0;
  PROCESSENTRY32W entry{};
  entry.dwSize = sizeof entry;
  for (BOOL more = ::Process32FirstW(snapshot.get(), &entry); more;
       more = ::Process32NextW(snapshot.get(), &entry)) {
    if (entry.th32ProcessID == pid) return entry.th32ParentProcessID;
  }
  return 0;
}

std::u16string ProcessImagePath(std::uint32_t pid) {
  return ImageOf(pid);
}

int RequestProcessClose(std::uint32_t pid) {
  if (!IsProcessRunning(pid)) {
    ::SetLastError(ERROR_INVALID_PARAMETER);
    return -1;
  }
  CloseRequest request{pid, 0};
  ::EnumWindows(PostCloseToWindow, reinterpret_cast<LPARAM>(&request));
  return request.sent;
}

bool IsProcessRunning(std::uint32_t pid) {
  if (pid == 0) return false;
  OwnedHandle process(::OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid));
  if (!process) return ::GetLastError() == ERROR_ACCESS_DENIED;  // exists, but is not ours
  return ::WaitForSingleObject(process.get(), 0) == WAIT_TIMEOUT;
}

bool TerminateProcessById(std::uint32_t pid) {
  OwnedHandle process(::OpenProcess(PROCESS_TERMINATE, FALSE, pid));
  return process && ::TerminateProcess(process.get(), 1);
}

bool PathsIgnoreCase() {
  return true;
}

}  // namespace os
