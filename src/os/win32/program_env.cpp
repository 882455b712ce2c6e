// Win32 side of the seam: arguments, environment, working and temporary folders, file copies.
#include <windows.h>

#include <aclapi.h>
#include <sddl.h>
#include <shellapi.h>
#include <shlobj.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "os/program_env.h"
#include "os/side.h"
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

std::wstring WideOf(std::u16string_view text) {
  return std::wstring(reinterpret_cast<const wchar_t*>(text.data()), text.size());
}

std::u16string U(const std::wstring& text) {
  return U(text.data(), text.size());
}

// The system folder (System32), without a trailing backslash; "" when it cannot be had.
std::wstring SystemFolder() {
  wchar_t system[MAX_PATH + 1];
  const UINT length = ::GetSystemDirectoryW(system, MAX_PATH + 1);
  return length > 0 && length <= MAX_PATH ? std::wstring(system, length) : std::wstring();
}

// A piece of the process token (TokenUser, TokenOwner), kept in its buffer; null on failure.
std::unique_ptr<BYTE[]> TokenPart(TOKEN_INFORMATION_CLASS part) {
  HANDLE token = nullptr;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) return nullptr;
  win32::OwnedHandle owned(token);
  DWORD size = 0;
  ::GetTokenInformation(token, part, nullptr, 0, &size);
  if (size == 0) return nullptr;
  auto buffer = std::make_unique<BYTE[]>(size);
  if (!::GetTokenInformation(token, part, buffer.get(), size, &size)) return nullptr;
  return buffer;
}

PSID UserSid(const std::unique_ptr<BYTE[]>& user) {
  return user ? reinterpret_cast<TOKEN_USER*>(user.get())->User.Sid : nullptr;
}

PSID OwnerSid(const std::unique_ptr<BYTE[]>& owner) {
  return owner ? reinterpret_cast<TOKEN_OWNER*>(owner.get())->Owner : nullptr;
}

// A security descriptor from its text form, freed with LocalFree.
struct Descriptor {
  PSECURITY_DESCRIPTOR sd = nullptr;
  ~Descriptor() {
    if (sd) ::LocalFree(sd);
  }
};

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

namespace {

std::u16string GetTempPathW() {
  return GrowingBuffer([](DWORD size, wchar_t* buf) { return ::GetTempPathW(size, buf); });
}

}  // namespace

std::vector<std::u16string> ScratchFolders() {
  std::vector<std::wstring> candidates;
  candidates.push_back(WideOf(GetTempPathW()));
  // A portable launcher may point TEMP at the stick; the local application data stays on the
  // system's disk. The known folder comes first, the variable when the shell cannot answer.
  PWSTR local = nullptr;
  if (SUCCEEDED(::SHGetKnownFolderPath(FOLDERID_LocalAppData, 0, nullptr, &local)) && local) {
    candidates.emplace_back(local);
  } else {
    candidates.push_back(WideOf(GetEnvironmentVariableW(u"LOCALAPPDATA")));
  }
  ::CoTaskMemFree(local);
  wchar_t windows[MAX_PATH + 1];
  const UINT length = ::GetSystemWindowsDirectoryW(windows, MAX_PATH + 1);
  if (length > 0 && length <= MAX_PATH)
    candidates.push_back(std::wstring(windows, length) + L"\\Temp");

  std::vector<std::u16string> folders;
  for (std::wstring& folder : candidates) {
    if (folder.empty()) continue;
    const DWORD attributes = ::GetFileAttributesW(folder.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_DIRECTORY)) continue;
    if (folder.back() != L'\\' && folder.back() != L'/') folder += L'\\';
    const std::u16string name = U(folder);
    const bool known = std::any_of(folders.begin(), folders.end(), [&](const std::u16string& f) {
      return ::CompareStringOrdinal(reinterpret_cast<const wchar_t*>(f.c_str()), -1, folder.c_str(),
                                    -1, TRUE) == CSTR_EQUAL;
    });
    if (!known) folders.push_back(name);
  }
  return folders;
}

std::u16string side::CreatePrivateFolder(std::u16string_view parent, std::u16string_view prefix) {
  // Full control for the user and SYSTEM, nothing inherited from the parent (P): the system's
  // temporary folder lets every user create entries and passes that on to new folders.
  LPWSTR user_text = nullptr;
  const auto user = TokenPart(TokenUser);
  if (!UserSid(user) || !::ConvertSidToStringSidW(UserSid(user), &user_text)) {
    return std::u16string();
  }
  const std::wstring sddl = L"D:P(A;OICI;FA;;;" + std::wstring(user_text) + L")(A;OICI;FA;;;SY)";
  ::LocalFree(user_text);
  Descriptor descriptor;
  if (!::ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl.c_str(), SDDL_REVISION_1,
                                                              &descriptor.sd, nullptr)) {
    return std::u16string();
  }
  SECURITY_ATTRIBUTES attributes{sizeof attributes, descriptor.sd, FALSE};

  std::wstring base = WideOf(parent);
  if (!base.empty() && base.back() != L'\\' && base.back() != L'/') base += L'\\';
  base += WideOf(prefix);
  std::random_device seed;
  std::mt19937_64 random((static_cast<std::uint64_t>(seed()) << 32) ^ seed() ^ ::GetTickCount64() ^
                         ::GetCurrentProcessId());
  const wchar_t digits[] = L"0123456789abcdefghijklmnopqrstuvwxyz";
  // CreateDirectoryW never opens what exists: a name taken (by a folder, a file or a link) is
  // passed over for another.
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::wstring path = base;
    for (int i = 0; i < 8; ++i) path += digits[random() % 36];
    if (::CreateDirectoryW(path.c_str(), &attributes)) return U(path);
    if (::GetLastError() != ERROR_ALREADY_EXISTS) return std::u16string();
  }
  return std::u16string();
}

PathFacts GetPathFacts(std::u16string_view path) {
  PathFacts facts;
  const std::wstring name = WideOf(path);
  const DWORD attributes = ::GetFileAttributesW(name.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return facts;
  facts.exists = true;
  facts.link = (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
  facts.folder = !facts.link && (attributes & FILE_ATTRIBUTE_DIRECTORY);
  if (facts.link) return facts;
  PSID owner = nullptr;
  PSECURITY_DESCRIPTOR sd = nullptr;
  if (::GetNamedSecurityInfoW(name.c_str(), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &owner,
                              nullptr, nullptr, nullptr, &sd) == ERROR_SUCCESS) {
    // What the user creates is owned by the user, or by the token's default owner (the
    // administrators' group for an elevated administrator, by a policy of the system).
    const auto user = TokenPart(TokenUser);
    const auto default_owner = TokenPart(TokenOwner);
    facts.own = owner && ((UserSid(user) && ::EqualSid(owner, UserSid(user))) ||
                          (OwnerSid(default_owner) && ::EqualSid(owner, OwnerSid(default_owner))));
    ::LocalFree(sd);
  }
  return facts;
}

bool SetCurrentDirectoryW(const char16_t* path) {
  return ::SetCurrentDirectoryW(W(path)) != 0;
}

bool side::CopyFileW(const char16_t* source, const char16_t* destination, bool fail_if_exists) {
  return ::CopyFileW(W(source), W(destination), fail_if_exists ? TRUE : FALSE) != 0;
}

bool DeleteProgramFileAfterExit(std::u16string_view path, bool folder_too) {
  // The command processor's "del" would read a "/" as the start of a switch.
  std::wstring file = WideOf(path);
  for (wchar_t& c : file)
    if (c == L'/') c = L'\\';
  const std::size_t cut = file.find_last_of(L'\\');
  const std::wstring folder = cut == std::wstring::npos ? std::wstring() : file.substr(0, cut);
  // The command processor cannot remove the folder it works in: it works from the folder above.
  const std::size_t up = folder.find_last_of(L'\\');
  const std::wstring working =
      folder_too && up != std::wstring::npos ? folder.substr(0, up + 1) : folder + L"\\";

  // The command processor tries once a second, for up to half a minute, until the program has
  // ended and its file (and folder) can go. "ping -n 2" is the pause that every Windows has.
  // Both programs are named by their full path in the system folder: a bare name is looked for
  // in the working folder first, a temporary folder where others may put a file. The loop's
  // block has no "@" before it: /q keeps it quiet already, and Wine's command processor reads
  // "@(" as something else and runs the block once.
  const std::wstring system = SystemFolder();
  if (!system.empty()) {
    const std::wstring gone = folder_too ? folder : file;
    std::wstring line = L"\"" + system + L"\\cmd.exe\" /d /q /c for /l %i in (1,1,30) do (\"" +
                        system + L"\\PING.EXE\" -n 2 127.0.0.1 >nul & del /f /q \"" + file +
                        L"\" 2>nul & ";
    if (folder_too) line += L"rd \"" + folder + L"\" 2>nul & ";
    line += L"if not exist \"" + gone + L"\" exit)";
    STARTUPINFOW si{};
    si.cb = sizeof si;
    si.dwFlags = STARTF_USESHOWWINDOW;
    si.wShowWindow = SW_HIDE;
    PROCESS_INFORMATION pi{};
    const std::wstring application = system + L"\\cmd.exe";
    if (::CreateProcessW(application.c_str(), line.data(), nullptr, nullptr, FALSE,
                         CREATE_NO_WINDOW | CREATE_NEW_PROCESS_GROUP, nullptr,
                         working.size() > 1 ? working.c_str() : nullptr, &si, &pi)) {
      win32::OwnedHandle process(pi.hProcess);
      win32::OwnedHandle thread(pi.hThread);
      return true;
    }
  }
  // Only an administrator may register this; for others it fails and the file stays until
  // the next run of the ejector sweeps the places it copies itself to.
  const bool marked = ::MoveFileExW(file.c_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT) != 0;
  if (marked && folder_too) ::MoveFileExW(folder.c_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT);
  return marked;
}

}  // namespace os
