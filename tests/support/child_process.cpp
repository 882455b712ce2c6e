#include "support/child_process.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <thread>

#include "support/temp_dir.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/text.h"
#endif

namespace fs = std::filesystem;

namespace testing_support {

#ifdef _WIN32

namespace {
std::wstring Quote(const std::u16string& arg) {
  std::wstring out = L"\"";
  for (char16_t c : arg) {
    if (c == u'"') out += L'\\';
    out += static_cast<wchar_t>(c);
  }
  return out + L"\"";
}
}  // namespace

bool ChildProcess::Start(const std::u16string& program, const std::vector<std::u16string>& args,
                         const std::u16string& working_folder) {
  Kill();
  std::wstring command = Quote(program);
  for (const auto& a : args) command += L" " + Quote(a);
  const std::wstring dir(working_folder.begin(), working_folder.end());
  STARTUPINFOW si{sizeof si};
  PROCESS_INFORMATION pi{};
  if (!CreateProcessW(std::wstring(program.begin(), program.end()).c_str(), command.data(), nullptr,
                      nullptr, FALSE, 0, nullptr, dir.empty() ? nullptr : dir.c_str(), &si, &pi))
    return false;
  CloseHandle(pi.hThread);
  process_ = pi.hProcess;
  pid_ = pi.dwProcessId;
  exited_ = false;
  return true;
}

bool ChildProcess::Exited() {
  if (exited_) return true;
  if (WaitForSingleObject(process_, 0) != WAIT_OBJECT_0) return false;
  CloseHandle(process_);
  process_ = nullptr;
  exited_ = true;
  return true;
}

void ChildProcess::Kill() {
  if (exited_) return;
  TerminateProcess(process_, 1);
  WaitForSingleObject(process_, 10000);
  Exited();
}

#else

bool ChildProcess::Start(const std::u16string& program, const std::vector<std::u16string>& args,
                         const std::u16string& working_folder) {
  Kill();
  std::vector<std::string> strings{base::Narrow(program)};
  for (const auto& a : args) strings.push_back(base::Narrow(a));
  std::vector<char*> argv;
  for (auto& s : strings) argv.push_back(s.data());
  argv.push_back(nullptr);
  const std::string dir = base::Narrow(working_folder);
  pid_t pid = fork();
  if (pid < 0) return false;
  if (pid == 0) {
    if (!dir.empty() && chdir(dir.c_str()) != 0) _exit(126);
    execv(argv[0], argv.data());
    _exit(127);
  }
  pid_ = static_cast<std::uint32_t>(pid);
  exited_ = false;
  return true;
}

bool ChildProcess::Exited() {
  if (exited_) return true;
  exited_ = waitpid(static_cast<pid_t>(pid_), nullptr, WNOHANG) != 0;
  return exited_;
}

void ChildProcess::Kill() {
  if (exited_) return;
  kill(static_cast<pid_t>(pid_), SIGKILL);
  waitpid(static_cast<pid_t>(pid_), nullptr, 0);
  exited_ = true;
}

#endif

namespace {
// Asks done() every 10 ms until it says yes or ms have passed; its last answer.
bool Poll(std::uint32_t ms, const std::function<bool()>& done) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
  while (!done() && std::chrono::steady_clock::now() < end)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  return done();
}
}  // namespace

ChildProcess::~ChildProcess() {
  Kill();
}

bool ChildProcess::WaitExit(std::uint32_t ms) {
  return Poll(ms, [this] { return Exited(); });
}

bool WaitForFile(const std::u16string& path, std::uint32_t ms) {
  std::error_code ec;
  return Poll(ms, [&] { return fs::exists(fs::path(path), ec); });
}

std::u16string CopyHelperProgram(std::u16string_view name, const std::u16string& folder) {
  const fs::path from(HelperProgram(name));
  const fs::path to = fs::path(folder) / from.filename();
  std::error_code ec;
  fs::create_directories(fs::path(folder), ec);
  if (!fs::copy_file(from, to, fs::copy_options::overwrite_existing, ec)) return u"";
  fs::permissions(to, fs::perms::owner_all, fs::perm_options::add, ec);
  return to.u16string();
}

}  // namespace testing_support
