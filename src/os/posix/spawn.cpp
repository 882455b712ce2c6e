// fork and exec for the POSIX side of the seam. Between fork and exec the child only makes
// async-signal-safe calls: everything it needs is prepared before the fork.
#include "os/posix/spawn.h"

#include <algorithm>
#include <string_view>

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

extern char** environ;

namespace os::posix {
namespace {

#ifndef CLOSE_RANGE_CLOEXEC
#define CLOSE_RANGE_CLOEXEC (1U << 2)
#endif

// Marks every descriptor from 3 up close-on-exec, so the program started sees only 0, 1 and 2.
void CloseInheritedDescriptors() {
#ifdef SYS_close_range
  if (syscall(SYS_close_range, 3U, ~0U, CLOSE_RANGE_CLOEXEC) == 0) return;
#endif
  rlimit limit{};
  int top = 4096;
  if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
      limit.rlim_cur < 65536) {
    top = static_cast<int>(limit.rlim_cur);
  }
  for (int fd = 3; fd < top; ++fd) fcntl(fd, F_SETFD, FD_CLOEXEC);
}

[[noreturn]] void ReportAndExit(int report_fd, int error) {
  ssize_t ignored = write(report_fd, &error, sizeof error);
  (void)ignored;
  _exit(127);
}

}  // namespace

bool IsExecutableFile(const std::string& path) {
  struct stat st {};
  return !path.empty() && stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) &&
         access(path.c_str(), X_OK) == 0;
}

std::string FindOnPath(std::string_view name) {
  if (name.empty()) return std::string();
  if (name.find('/') != std::string_view::npos) {
    std::string path(name);
    return IsExecutableFile(path) ? path : std::string();
  }
  const char* path_list = std::getenv("PATH");
  std::string_view folders = path_list ? path_list : "/usr/local/bin:/usr/bin:/bin";
  while (true) {
    std::size_t colon = folders.find(':');
    std::string_view folder = folders.substr(0, colon);
    std::string candidate = folder.empty() ? std::string(".") : std::string(folder);
    candidate += '/';
    candidate += name;
    if (IsExecutableFile(candidate)) return candidate;
    if (colon == std::string_view::npos) break;
    folders.remove_prefix(colon + 1);
  }
  return std::string();
}

SpawnResult Spawn(const std::vector<std::string>& argv, const SpawnOptions& options) {
  SpawnResult result;
  if (argv.empty()) {
    result.error = EINVAL;
    return result;
  }
  std::vector<char*> args;
  args.reserve(argv.size() + 1);
  for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  const char* folder = options.folder.empty() ? nullptr : options.folder.c_str();
  // The child's environment, made before the fork (nothing is allocated after it).
  std::vector<char*> env;
  for (char** e = environ; *e; ++e) {
    const std::string_view entry(*e);
    const bool replaced =
        std::any_of(options.environment.begin(), options.environment.end(), [&](const auto& s) {
          const std::size_t name = s.find('=');
          return entry.size() > name && entry.substr(0, name + 1) == s.substr(0, name + 1);
        });
    if (!replaced) env.push_back(*e);
  }
  for (const std::string& s : options.environment) env.push_back(const_cast<char*>(s.c_str()));
  env.push_back(nullptr);

  // The child writes the errno of a failed chdir or exec here; a successful exec closes it.
  int report[2];
  if (pipe2(report, O_CLOEXEC) != 0) {
    result.error = errno;
    return result;
  }
  pid_t pid = fork();
  if (pid < 0) {
    result.error = errno;
    close(report[0]);
    close(report[1]);
    return result;
  }
  if (pid == 0) {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
    if (options.new_session) {
      setsid();
      int null_fd = open("/dev/null", O_RDONLY);
      if (null_fd >= 0) dup2(null_fd, 0);
    }
    if (options.stdout_fd >= 0 && dup2(options.stdout_fd, 1) < 0) ReportAndExit(report[1], errno);
    if (options.stderr_fd >= 0 && dup2(options.stderr_fd, 2) < 0) ReportAndExit(report[1], errno);
    if (options.quiet_stderr) {
      int null_fd = open("/dev/null", O_WRONLY);
      if (null_fd >= 0) dup2(null_fd, 2);
    }
    if (folder && chdir(folder) != 0) ReportAndExit(report[1], errno);
    CloseInheritedDescriptors();
    execve(args[0], args.data(), env.data());
    ReportAndExit(report[1], errno);
  }
  close(report[1]);
  int child_error = 0;
  ssize_t n;
  do {
    n = read(report[0], &child_error, sizeof child_error);
  } while (n < 0 && errno == EINTR);
  close(report[0]);
  if (n == static_cast<ssize_t>(sizeof child_error)) {
    WaitForExit(pid);
    result.error = child_error;
    return result;
  }
  result.pid = pid;
  return result;
}

int ExitCodeFromStatus(int status) {
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return -1;
}

int WaitForExit(pid_t pid) {
  int status = 0;
  pid_t r;
  do {
    r = waitpid(pid, &status, 0);
  } while (r < 0 && errno == EINTR);
  return r == pid ? ExitCodeFromStatus(status) : -1;
}

}  // namespace os::posix
