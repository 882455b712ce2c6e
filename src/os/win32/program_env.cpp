// Win32 side of the seam: arguments, environment, working and temporary folders, file copies.
#include <windows.h>

#include <shellapi.h>

#include <string>
#include <vector>

#include "os/fault.h"
#include "os/program_env.h"
#include "os/types.h"
#include "os/win32/handle.h"

namespace os {
namespace {

const wchar_t* W(const char16_t* text) {
  return reinterpret_cast<const wchar_t*>(text);
}

std::u16string U(const wchar_t* text, std::size_t size) {
  return std::u16string(reinterpret_cast<const char16_t*>(text), size);
}

// Calls a "fill this buffer" function until the whole answer fits.
template <class Fill>
std::u16string GrowingBuffer(Fill fill) {
  std::wstring buf(MAX_PATH + 1, L'\0');
  for (;;) {
    DWORD n = fill(static_cast<DWORD>(buf.size()), buf.data());
    if (n == 0) return std::u16string();
    if (n < buf.size()) return U(buf.data(), n);
    buf.resize(n + 1);
  }
}

}  // namespace

std::vector<std::u16string> ProgramArguments() {
  std::vector<std::u16string> args;
  int count = 0;
  LPWSTR* argv = ::CommandLineToArgvW(::GetCommandLineW(), &count);
  if (argv == nullptr) return args;
  for (int i = 1; i < count; ++i) args.emplace_back(reinterpret_cast<const char16_t*>(argv[i]));
  ::LocalFree(argv);
  return args;
}

std::u16string GetEnvironmentVariableW(const char16_t* name) {
  return GrowingBuffer(
      [&](DWORD size, wchar_t* buf) { return ::GetEnvironmentVariableW(W(name), buf, size); });
}

std::u16string GetTempPathW() {
  return GrowingBuffer([](DWORD size, wchar_t* buf) { return ::GetTempPathW(size, buf); });
}

std::u16string GetCurrentDirectoryW() {
  return GrowingBuffer([](DWORD size, wchar_t* buf) { return ::GetCurrentDirectoryW(size, buf); });
}

bool SetCurrentDirectoryW(const char16_t* path) {
  return ::SetCurrentDirectoryW(W(path)) != 0;
}

bool CopyFileW(const char16_t* source, const char16_t* destination, bool fail_if_exists) {
  if (fault::Hit(fault::Op::kCopyFile)) return false;
  return ::CopyFileW(W(source), W(destination), fail_if_exists ? TRUE : FALSE) != 0;
}

bool DeleteProgramFileAfterExit(std::u16string_view path) {
  // The command processor's "del" would read a "/" as the start of a switch.
  std::wstring file(reinterpret_cast<const wchar_t*>(path.data()), path.size());
  for (wchar_t& c : file)
    if (c == L'/') c = L'\\';
  std::wstring folder = file.substr(0, file.find_last_of(L"\\/") + 1);

  // The command processor tries once a second, for up to half a minute, until the program has
  // ended and its file can go. "ping -n 2" is the pause that every Windows has; the command
  // processor works from the file's own folder, never from the drive being ejected.
  wchar_t system[MAX_PATH + 1];
  const UINT length = ::GetSystemDirectoryW(system, MAX_PATH + 1);
  const std::wstring cmd = length > 0 && length <= MAX_PATH
                               ? std::wstring(system, length) + L"\\cmd.exe"
                               : std::wstring(L"cmd.exe");
  std::wstring line = L"\"" + cmd + L"\" /d /q /c for /l %i in (1,1,30) do @(ping -n 2 " +
                      L"127.0.0.1 >nul & del /f /q \"" + file + L"\" 2>nul & if not exist \"" +
                      file + L"\" exit)";
  STARTUPINFOW si{};
  si.cb = sizeof si;
  si.dwFlags = STARTF_USESHOWWINDOW;
  si.wShowWindow = SW_HIDE;
  PROCESS_INFORMATION pi{};
  if (::CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE,
                       CREATE_NO_WINDOW | CREATE_NEW_PROCESS_GROUP, nullptr,
                       folder.empty() ? nullptr : folder.c_str(), &si, &pi)) {
    win32::OwnedHandle process(pi.hProcess);
    win32::OwnedHandle thread(pi.hThread);
    return true;
  }
  // Only an administrator may register this; for others it fails and the file stays until
  // the next run of the ejector sweeps the temporary folder.
  return ::MoveFileExW(file.c_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT) != 0;
}

}  // namespace os
