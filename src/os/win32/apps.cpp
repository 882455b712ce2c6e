// Win32 side of the seam, processes: the Toolhelp snapshot, the executable's path, owner and
// creation time through a limited-information handle, WM_CLOSE to the process's windows (the
// hidden ones, with the end-of-session messages, for an application that shows none),
// TerminateProcess, both through one handle held from the moment a process is opened.
// windows.h first: the other headers need its types.
#include <windows.h>

#include <sddl.h>
#include <tlhelp32.h>

#include <string>

#include "os/apps.h"
#include "os/win32/handle.h"

namespace os {
namespace {

using win32::OwnedHandle;

// PROCESS_QUERY_LIMITED_INFORMATION is granted for elevated processes and for processes of
// the other bitness, where PROCESS_QUERY_INFORMATION is not: they are still seen.
std::u16string ImageOf(HANDLE process) {
  std::wstring buf(MAX_PATH, L'\0');
  for (int attempt = 0; attempt < 4; ++attempt) {
    DWORD size = static_cast<DWORD>(buf.size());
    if (::QueryFullProcessImageNameW(process, 0, buf.data(), &size))
      return std::u16string(reinterpret_cast<const char16_t*>(buf.data()), size);
    if (::GetLastError() != ERROR_INSUFFICIENT_BUFFER) break;
    buf.resize(buf.size() * 4);
  }
  return std::u16string();
}

// The SID of the user the process runs as, as text.
std::u16string OwnerOf(HANDLE process) {
  HANDLE raw = nullptr;
  if (!::OpenProcessToken(process, TOKEN_QUERY, &raw)) return std::u16string();
  OwnedHandle token(raw);
  DWORD size = 0;
  ::GetTokenInformation(token.get(), TokenUser, nullptr, 0, &size);
  if (size == 0) return std::u16string();
  std::string buf(size, '\0');
  if (!::GetTokenInformation(token.get(), TokenUser, buf.data(), size, &size))
    return std::u16string();
  LPWSTR text = nullptr;
  if (!::ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(buf.data())->User.Sid, &text))
    return std::u16string();
  std::u16string owner(reinterpret_cast<const char16_t*>(text));
  ::LocalFree(text);
  return owner;
}

std::uint64_t StartOf(HANDLE process) {
  FILETIME created{}, exited{}, kernel{}, user{};
  if (!::GetProcessTimes(process, &created, &exited, &kernel, &user)) return 0;
  return (static_cast<std::uint64_t>(created.dwHighDateTime) << 32) | created.dwLowDateTime;
}

// The windows of a console belong to every process attached to it; a window of that class is
// closed only when the caller says every one of them may be closed.
bool IsConsoleWindow(HWND window) {
  wchar_t name[64] = {};
  ::GetClassNameW(window, name, 64);
  return std::wstring(name) == L"ConsoleWindowClass" ||
         std::wstring(name) == L"PseudoConsoleWindow";
}

// The hidden windows every thread with a window gets from the input method framework: they
// are not the application's own, and closing them means nothing to it.
bool IsInputMethodWindow(HWND window) {
  wchar_t name[64] = {};
  ::GetClassNameW(window, name, 64);
  return std::wstring(name) == L"IME" || std::wstring(name) == L"MSCTFIME UI";
}

struct CloseRequest {
  DWORD pid;
  bool console_too;
  bool hidden;  // the pass over the hidden windows of an application that shows none
  int sent;
};

BOOL CALLBACK PostCloseToWindow(HWND window, LPARAM param) {
  auto* request = reinterpret_cast<CloseRequest*>(param);
  DWORD owner = 0;
  ::GetWindowThreadProcessId(window, &owner);
  if (owner != request->pid || ::IsWindowVisible(window) == (request->hidden ? TRUE : FALSE))
    return TRUE;
  if (IsConsoleWindow(window) && (request->hidden || !request->console_too)) return TRUE;
  if (request->hidden) {
    if (IsInputMethodWindow(window)) return TRUE;
    // A tray application lives in hidden windows and leaves at the end of the session, the way
    // the system's restart manager asks it to: the question first (sent, bounded, since it
    // answers), then the end, posted. Whatever it answered, WM_CLOSE follows, as for a window.
    DWORD_PTR agrees = FALSE;
    if (::SendMessageTimeoutW(window, WM_QUERYENDSESSION, 0, ENDSESSION_CLOSEAPP,
                              SMTO_ABORTIFHUNG | SMTO_BLOCK, 1000, &agrees) &&
        agrees)
      ::PostMessageW(window, WM_ENDSESSION, TRUE, ENDSESSION_CLOSEAPP);
  }
  // Posted, not sent: an application that shows "Save changes?" must not block the closer;
  // the grace period gives the user time to answer.
  if (::PostMessageW(window, WM_CLOSE, 0, 0)) ++request->sent;
  return TRUE;
}

struct TitleRequest {
  DWORD pid;
  std::u16string title;
};

BOOL CALLBACK FindTitle(HWND window, LPARAM param) {
  auto* request = reinterpret_cast<TitleRequest*>(param);
  DWORD owner = 0;
  ::GetWindowThreadProcessId(window, &owner);
  if (owner != request->pid || !::IsWindowVisible(window)) return TRUE;
  wchar_t text[256] = {};
  const int size = ::GetWindowTextW(window, text, 256);
  if (size <= 0) return TRUE;
  request->title.assign(reinterpret_cast<const char16_t*>(text), static_cast<std::size_t>(size));
  return FALSE;
}

}  // namespace

std::u16string WindowTitle(std::uint32_t pid) {
  TitleRequest request{pid, {}};
  ::EnumWindows(FindTitle, reinterpret_cast<LPARAM>(&request));
  return request.title;
}

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
    OwnedHandle process(p.pid != 0 ? ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, p.pid)
                                   : nullptr);
    if (process) {
      p.image = ImageOf(process.get());
      p.owner = OwnerOf(process.get());
      p.start = StartOf(process.get());
    }
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
  OwnedHandle process(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid));
  return process ? ImageOf(process.get()) : std::u16string();
}

std::u16string ProcessOwner(std::uint32_t pid) {
  OwnedHandle process(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid));
  return process ? OwnerOf(process.get()) : std::u16string();
}

bool IsProcessRunning(std::uint32_t pid) {
  if (pid == 0) return false;
  OwnedHandle process(::OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid));
  if (!process) return ::GetLastError() == ERROR_ACCESS_DENIED;  // exists, but is not ours
  return ::WaitForSingleObject(process.get(), 0) == WAIT_TIMEOUT;
}

// While the handle is open the process's id cannot be given to another process, so the
// windows found by id below are the held process's.
HeldProcess::HeldProcess(const ProcessEntry& expected) : expected_(expected) {
  if (expected.pid == 0 || expected.image.empty()) {
    ::SetLastError(ERROR_INVALID_PARAMETER);
    return;
  }
  constexpr DWORD kQuery = SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION;
  HANDLE process = ::OpenProcess(kQuery | PROCESS_TERMINATE, FALSE, expected.pid);
  // A process that may be asked to close but not ended (TerminateProcess then fails).
  if (!process) process = ::OpenProcess(kQuery, FALSE, expected.pid);
  if (!process) return;
  handle_ = reinterpret_cast<std::intptr_t>(process);
  valid_ = StillTheSame();
}

HeldProcess::~HeldProcess() {
  if (handle_ != -1) ::CloseHandle(reinterpret_cast<HANDLE>(handle_));
}

bool HeldProcess::StillTheSame() const {
  const HANDLE process = reinterpret_cast<HANDLE>(handle_);
  if (handle_ == -1 || ::WaitForSingleObject(process, 0) != WAIT_TIMEOUT) return false;
  const std::u16string image = ImageOf(process);
  return !image.empty() && image == expected_.image && OwnerOf(process) == expected_.owner &&
         StartOf(process) == expected_.start;
}

int HeldProcess::RequestClose(bool console_too) {
  if (!valid_ || !StillTheSame()) {
    ::SetLastError(ERROR_INVALID_PARAMETER);
    return -1;
  }
  CloseRequest request{expected_.pid, console_too, false, 0};
  ::EnumWindows(PostCloseToWindow, reinterpret_cast<LPARAM>(&request));
  if (request.sent == 0) {
    request.hidden = true;
    ::EnumWindows(PostCloseToWindow, reinterpret_cast<LPARAM>(&request));
  }
  return request.sent;
}

bool HeldProcess::Terminate() {
  if (!valid_ || !StillTheSame()) {
    ::SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  return ::TerminateProcess(reinterpret_cast<HANDLE>(handle_), 1);
}

bool HeldProcess::Running() const {
  return valid_ && ::WaitForSingleObject(reinterpret_cast<HANDLE>(handle_), 0) == WAIT_TIMEOUT;
}

bool ConsoleProcesses(std::uint32_t pid, std::vector<std::uint32_t>* pids) {
  pids->clear();
  // Fails when this program has a console of its own: then the answer cannot be known.
  if (!::AttachConsole(pid)) return false;
  std::vector<DWORD> list(64);
  DWORD count = ::GetConsoleProcessList(list.data(), static_cast<DWORD>(list.size()));
  if (count > list.size()) {
    list.resize(count + 16);
    count = ::GetConsoleProcessList(list.data(), static_cast<DWORD>(list.size()));
  }
  ::FreeConsole();
  if (count == 0 || count > list.size()) return false;
  const DWORD self = ::GetCurrentProcessId();
  for (DWORD i = 0; i < count; ++i)
    if (list[i] != self) pids->push_back(list[i]);
  return !pids->empty();
}

bool PathsIgnoreCase() {
  return true;
}

}  // namespace os
