// POSIX side of the seam, processes: the /proc listing, SIGTERM as the polite close, SIGKILL
// as the forced one, both sent through a pidfd held from the moment a process is opened.
#include <dirent.h>
#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "base/text.h"
#include "os/apps.h"
#include "os/fault.h"
#include "os/posix/native.h"

namespace os {
namespace {

struct Stat {
  char state = 0;
  std::uint32_t parent = 0;
  std::uint64_t start = 0;  // field 22: clock ticks after boot
};

// Fields of /proc/<pid>/stat. The command name between parentheses may itself hold ")" and
// blanks, so the fields are read after the last ")": the state is field 3.
bool ReadStat(std::uint32_t pid, Stat* stat) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
  if (!in) return false;
  std::string line;
  std::getline(in, line);
  std::size_t close = line.rfind(')');
  if (close == std::string::npos) return false;
  std::istringstream rest(line.substr(close + 1));
  long long ppid = 0;
  if (!(rest >> stat->state >> ppid)) return false;
  stat->parent = static_cast<std::uint32_t>(ppid < 0 ? 0 : ppid);
  std::string skipped;
  for (int field = 5; field < 22; ++field) rest >> skipped;
  unsigned long long start = 0;
  if (!(rest >> start)) return false;
  stat->start = start;
  return true;
}

// The real uid, and the effective one after a colon when it differs (a set-user-id program
// runs as someone else than the user who started it).
std::u16string ReadOwner(std::uint32_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/status");
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind("Uid:", 0) != 0) continue;
    std::istringstream ids(line.substr(4));
    unsigned long real = 0, effective = 0;
    if (!(ids >> real >> effective)) return std::u16string();
    std::string owner = std::to_string(real);
    if (effective != real) owner += ":" + std::to_string(effective);
    return base::Widen(owner);
  }
  return std::u16string();
}

// The target of a /proc link; the kernel marks a file deleted since it was opened with
// " (deleted)", which is dropped so that the path still compares with its folder.
std::string ReadProcLink(const std::string& link) {
  char buf[PATH_MAX + 1];
  ssize_t n = readlink(link.c_str(), buf, PATH_MAX);
  if (n <= 0) return std::string();
  std::string target(buf, static_cast<std::size_t>(n));
  constexpr std::string_view kDeleted = " (deleted)";
  if (target.size() > kDeleted.size() &&
      target.compare(target.size() - kDeleted.size(), kDeleted.size(), kDeleted) == 0)
    target.resize(target.size() - kDeleted.size());
  return target;
}

bool ParsePid(const char* name, std::uint32_t* pid) {
  if (!*name) return false;
  char* end = nullptr;
  unsigned long v = std::strtoul(name, &end, 10);
  if (*end || v == 0 || v > UINT32_MAX) return false;
  *pid = static_cast<std::uint32_t>(v);
  return true;
}

// What pid names now, read from /proc.
ProcessEntry Describe(std::uint32_t pid) {
  ProcessEntry entry;
  Stat stat;
  if (!ReadStat(pid, &stat)) return entry;
  entry.pid = pid;
  entry.parent_pid = stat.parent;
  entry.start = stat.start;
  entry.image = base::Widen(ReadProcLink("/proc/" + std::to_string(pid) + "/exe"));
  entry.owner = ReadOwner(pid);
  return entry;
}

int PidfdOpen(std::uint32_t pid) {
  if (fault::Hit(fault::Op::kPidfd)) {
    errno = ENOSYS;
    return -1;
  }
  return static_cast<int>(::syscall(SYS_pidfd_open, static_cast<pid_t>(pid), 0u));
}

int PidfdSignal(std::intptr_t pidfd, int signal) {
  return static_cast<int>(
      ::syscall(SYS_pidfd_send_signal, static_cast<int>(pidfd), signal, nullptr, 0u));
}

// Through the pidfd when one is held, by number otherwise (pid was checked just before).
bool Send(std::intptr_t pidfd, std::uint32_t pid, int signal) {
  const int sent =
      pidfd >= 0 ? PidfdSignal(pidfd, signal) : ::kill(static_cast<pid_t>(pid), signal);
  if (sent != 0) posix::SetLastErrorFromErrno();
  return sent == 0;
}

}  // namespace

std::vector<ProcessEntry> EnumProcesses() {
  std::vector<ProcessEntry> out;
  DIR* dir = opendir("/proc");
  if (!dir) {
    posix::SetLastErrorFromErrno();
    return out;
  }
  while (dirent* e = readdir(dir)) {
    std::uint32_t pid = 0;
    if (!ParsePid(e->d_name, &pid)) continue;
    // A process that ends while the list is read simply drops out.
    ProcessEntry entry = Describe(pid);
    if (entry.pid != 0) out.push_back(std::move(entry));
  }
  closedir(dir);
  return out;
}

std::uint32_t GetCurrentProcessId() {
  return static_cast<std::uint32_t>(getpid());
}

std::uint32_t ParentProcessId(std::uint32_t pid) {
  Stat stat;
  return ReadStat(pid, &stat) ? stat.parent : 0;
}

std::u16string ProcessImagePath(std::uint32_t pid) {
  return base::Widen(ReadProcLink("/proc/" + std::to_string(pid) + "/exe"));
}

std::u16string ProcessOwner(std::uint32_t pid) {
  return ReadOwner(pid);
}

bool IsProcessRunning(std::uint32_t pid) {
  Stat stat;
  if (pid == 0 || !ReadStat(pid, &stat)) return false;
  // Z: ended, waiting for its parent to read the exit status; X: being removed.
  return stat.state != 'Z' && stat.state != 'X';
}

HeldProcess::HeldProcess(const ProcessEntry& expected) : expected_(expected) {
  if (expected.pid == 0 || expected.pid > INT_MAX || expected.image.empty()) {
    SetLastError(kErrorInvalidParameter);
    return;
  }
  const int pidfd = PidfdOpen(expected.pid);
  if (pidfd < 0 && errno != ENOSYS) {
    posix::SetLastErrorFromErrno();
    return;
  }
  handle_ = pidfd;  // -1 without pidfd: checked by number before each signal
  valid_ = StillTheSame();
}

HeldProcess::~HeldProcess() {
  if (handle_ >= 0) ::close(static_cast<int>(handle_));
}

// /proc is read by number; with a pidfd held, the number is still the held process's only if
// that process has not been reaped in between, which signal 0 through the pidfd tells.
bool HeldProcess::StillTheSame() const {
  const ProcessEntry now = Describe(expected_.pid);
  if (handle_ >= 0 && PidfdSignal(handle_, 0) != 0) return false;
  return !now.image.empty() && now.image == expected_.image && now.owner == expected_.owner &&
         now.start == expected_.start;
}

int HeldProcess::RequestClose(bool) {
  if (!valid_ || !StillTheSame()) {
    SetLastError(kErrorInvalidParameter);
    return -1;
  }
  return Send(handle_, expected_.pid, SIGTERM) ? 1 : -1;
}

bool HeldProcess::Terminate() {
  if (!valid_ || !StillTheSame()) {
    SetLastError(kErrorInvalidParameter);
    return false;
  }
  return Send(handle_, expected_.pid, SIGKILL);
}

bool HeldProcess::Running() const {
  if (!valid_) return false;
  if (handle_ >= 0) {
    // A pidfd becomes readable once its process has ended.
    pollfd ended{static_cast<int>(handle_), POLLIN, 0};
    return ::poll(&ended, 1, 0) == 0;
  }
  return IsProcessRunning(expected_.pid) && StillTheSame();
}

bool ConsoleProcesses(std::uint32_t, std::vector<std::uint32_t>*) {
  return false;
}

bool PathsIgnoreCase() {
  return false;
}

std::u16string WindowTitle(std::uint32_t) {
  return std::u16string();
}

std::vector<FolderWindow> ShellFolderWindows() {
  return {};
}

bool CloseShellFolderWindow(std::intptr_t) {
  return false;
}

}  // namespace os
