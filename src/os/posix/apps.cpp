// POSIX side of the seam, processes: the /proc listing, SIGTERM as the polite close, SIGKILL
// as the forced one.
#include <dirent.h>
#include <errno.h>
#include <signal.h>
#include <sys/types.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "base/text.h"
#include "os/apps.h"
#include "os/posix/native.h"

namespace os {
namespace {

// The state letter and the parent of a process from /proc/<pid>/stat. The command name
// between parentheses may itself hold ")" and blanks, so the fields are read after the last
// ")".
bool ReadStat(std::uint32_t pid, char* state, std::uint32_t* parent) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
  if (!in) return false;
  std::string line;
  std::getline(in, line);
  std::size_t close = line.rfind(')');
  if (close == std::string::npos) return false;
  std::istringstream rest(line.substr(close + 1));
  char st = 0;
  long long ppid = 0;
  if (!(rest >> st >> ppid)) return false;
  if (state) *state = st;
  if (parent) *parent = static_cast<std::uint32_t>(ppid < 0 ? 0 : ppid);
  return true;
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

}  // namespace

std::vector<ProcessEntry> EnumProcesses() {
  std::vector<ProcessEntry> out;
  DIR* dir = opendir("/proc");
  if (!dir) {
    posix::SetLastErrorFromErrno();
    return out;
  }
  while (dirent* e = readdir(dir)) {
    ProcessEntry entry;
    if (!ParsePid(e->d_name, &entry.pid)) continue;
    // A process that ends while the list is read simply drops out.
    if (!ReadStat(entry.pid, nullptr, &entry.parent_pid)) continue;
    entry.image = base::Widen(ReadProcLink("/proc/" + std::to_string(entry.pid) + "/exe"));
    out.push_back(std::move(entry));
  }
  closedir(dir);
  return out;
}

std::uint32_t GetCurrentProcessId() {
  return static_cast<std::uint32_t>(getpid());
}

std::uint32_t ParentProcessId(std::uint32_t pid) {
  std::uint32_t parent = 0;
  return ReadStat(pid, nullptr, &parent) ? parent : 0;
}

std::u16string ProcessImagePath(std::uint32_t pid) {
  return base::Widen(ReadProcLink("/proc/" + std::to_string(pid) + "/exe"));
}

int RequestProcessClose(std::uint32_t pid) {
  if (pid == 0 || pid > INT_MAX) {
    SetLastError(kErrorInvalidParameter);
    return -1;
  }
  if (kill(static_cast<pid_t>(pid), SIGTERM) != 0) {
    posix::SetLastErrorFromErrno();
    return -1;
  }
  return 1;
}

bool IsProcessRunning(std::uint32_t pid) {
  char state = 0;
  if (pid == 0 || !ReadStat(pid, &state, nullptr)) return false;
  // Z: ended, waiting for its parent to read the exit status; X: being removed.
  return state != 'Z' && state != 'X';
}

bool TerminateProcessById(std::uint32_t pid) {
  if (pid == 0 || pid > INT_MAX) {
    SetLastError(kErrorInvalidParameter);
    return false;
  }
  if (kill(static_cast<pid_t>(pid), SIGKILL) != 0) {
    posix::SetLastErrorFromErrno();
    return false;
  }
  return true;
}

bool PathsIgnoreCase() {
  return false;
}

}  // namespace os
