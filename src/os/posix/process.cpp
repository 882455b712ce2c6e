// POSIX side of the seam: starting programs and documents as the Windows shell would, process
// handles, exit codes and the message loop.
//
// A started program is a child process. Its "process handle" is an entry of a small table that
// wraps the pid; GetExitCodeProcess asks waitpid(WNOHANG). Every child also gets a waiter
// thread that reaps it the moment it ends, so no child is ever left a zombie, whether its
// handle is polled, closed, kept open and forgotten, or was never asked for (ShellExecuteW).
#include <errno.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/text.h"
#include "os/posix/native.h"
#include "os/posix/spawn.h"
#include "os/process.h"
#include "os/side.h"
#include "os/types.h"

namespace os {
namespace {

// What ShellExecuteW answers on success; Windows answers 42 as well.
constexpr std::intptr_t kStarted = 42;

// A child and, once it ended, its exit code. Shared by the handle table and the waiter.
struct Child {
  explicit Child(pid_t p) : pid(p) {}
  const pid_t pid;
  std::mutex mutex;
  bool reaped = false;
  std::uint32_t exit_code = kStillActive;

  // Reaps the child if it has ended (call with mutex held).
  void Poll() {
    if (reaped) return;
    int status = 0;
    pid_t r;
    do {
      r = waitpid(pid, &status, WNOHANG);
    } while (r < 0 && errno == EINTR);
    if (r == pid) {
      reaped = true;
      exit_code = static_cast<std::uint32_t>(posix::ExitCodeFromStatus(status));
    } else if (r < 0) {
      // Not our child any more (reaped elsewhere): nothing left to wait for.
      reaped = true;
      exit_code = 0;
    }
  }
};

std::mutex table_mutex;
std::map<Handle, std::shared_ptr<Child>> table;
// Handle values look like Windows ones (multiples of 4) and are never reused; they start high
// enough that the program's "above 32" rule holds for every one of them.
Handle next_handle = 0x1000;

std::shared_ptr<Child> Lookup(Handle handle) {
  std::lock_guard<std::mutex> lock(table_mutex);
  auto it = table.find(handle);
  return it == table.end() ? nullptr : it->second;
}

// Waits (without reaping) for the child to end, then reaps it unless GetExitCodeProcess got
// there first. WNOWAIT keeps the two from racing for the same status.
void WatchChild(const std::shared_ptr<Child>& child) {
  try {
    std::thread([child] {
      siginfo_t info{};
      while (waitid(P_PID, static_cast<id_t>(child->pid), &info, WEXITED | WNOWAIT) == -1 &&
             errno == EINTR) {
      }
      std::lock_guard<std::mutex> lock(child->mutex);
      child->Poll();
    }).detach();
  } catch (...) {
    // No thread to spare: the child is still reaped when its handle is polled.
  }
}

std::intptr_t Fail(std::uint32_t error) {
  SetLastError(error);
  return side::ShellResultFromError(error);
}

bool IsDefaultVerb(const char16_t* verb) {
  return verb == nullptr || *verb == u'\0' || base::EqualNoCase(verb, u"open");
}

bool IsFolder(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// The error for a path that does not lead to a file: 3 when its folder is missing, else 2.
std::uint32_t MissingFileError(const std::string& path) {
  std::size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return kErrorFileNotFound;
  std::string folder = slash == 0 ? std::string("/") : path.substr(0, slash);
  return IsFolder(folder) ? kErrorFileNotFound : kErrorPathNotFound;
}

std::string Absolute(const std::string& path) {
  if (!path.empty() && path[0] == '/') return path;
  char cwd[PATH_MAX];
  if (getcwd(cwd, sizeof cwd) == nullptr) return path;
  return std::string(cwd) + "/" + path;
}

// Finds the file to start the way the shell looks for it: a relative name is looked for in the
// working folder first, then from the caller's folder, then (a bare name) on PATH.
std::string Locate(const std::string& file, const std::string& folder) {
  if (!file.empty() && file[0] == '/') return file;
  if (!folder.empty()) {
    std::string in_folder = Absolute(folder) + "/" + file;
    if (access(in_folder.c_str(), F_OK) == 0) return in_folder;
  }
  if (access(file.c_str(), F_OK) == 0 || file.find('/') != std::string::npos) {
    return Absolute(file);
  }
  std::string on_path = posix::FindOnPath(file);
  return on_path.empty() ? Absolute(file) : on_path;
}

std::uint32_t ErrorFromSpawn(int error) {
  switch (error) {
    case ENOEXEC:
    case ELIBBAD:
      return kErrorBadFormat;
    case ENOENT:
      return kErrorFileNotFound;
    default:
      return posix::ErrorFromErrno(error);
  }
}

// Both shell calls: starts the file and, when asked, hands back a process handle. Returns the
// ShellExecuteW result; on failure the last error is set.
std::intptr_t Start(const char16_t* verb, const char16_t* file, const char16_t* parameters,
                    const char16_t* directory, int show_command, Handle* process) {
  if (process) *process = 0;
  if (!IsDefaultVerb(verb)) return Fail(kErrorNoAssociation);
  if (file == nullptr || *file == u'\0') return Fail(kErrorFileNotFound);

  std::string folder = directory && *directory ? posix::NativePath(directory) : std::string();
  if (!folder.empty() && !IsFolder(folder)) return Fail(kErrorPathNotFound);

  std::string path = Locate(posix::NativePath(file), folder);
  struct stat st {};
  if (stat(path.c_str(), &st) != 0) {
    if (errno == ENOENT) return Fail(MissingFileError(path));
    if (errno == ENOTDIR) return Fail(kErrorPathNotFound);
    posix::SetLastErrorFromErrno();
    return side::ShellResultFromError(GetLastError());
  }

  std::vector<std::string> argv;
  if (S_ISREG(st.st_mode) && access(path.c_str(), X_OK) == 0) {
    argv.push_back(path);
    if (parameters) {
      for (const std::u16string& arg : posix::SplitCommandLine(parameters)) {
        argv.push_back(base::Narrow(arg));
      }
    }
  } else {
    // A document or a folder: its opener is the desktop's, when there is one. The parameters
    // have no meaning for a document and are not passed on.
    std::string opener = posix::FindOnPath("xdg-open");
    if (opener.empty()) return Fail(kErrorNoAssociation);
    argv = {opener, path};
  }

  posix::SpawnOptions options;
  options.folder = folder;
  // A program nobody keeps a handle to is on its own, as a program the Windows shell starts
  // is: it must not end with the terminal of the program that started it (TvEject hands over
  // to the ejector and ends). A program waited for stays in the caller's terminal session.
  options.new_session = process == nullptr;
  posix::SpawnResult spawned = posix::Spawn(argv, options);
  if (spawned.pid < 0) return Fail(ErrorFromSpawn(spawned.error));

  auto child = std::make_shared<Child>(spawned.pid);
  if (process) {
    std::lock_guard<std::mutex> lock(table_mutex);
    *process = next_handle;
    next_handle += 4;
    table.emplace(*process, child);
  }
  WatchChild(child);
  SetLastError(kErrorSuccess);
  return kStarted;
}

}  // namespace

std::vector<std::u16string> posix::SplitCommandLine(std::u16string_view line) {
  std::vector<std::u16string> args;
  std::u16string current;
  bool in_argument = false;
  bool quoted = false;
  std::size_t backslashes = 0;
  auto flush_backslashes = [&] {
    current.append(backslashes, u'\\');
    backslashes = 0;
  };
  for (std::size_t i = 0; i < line.size(); ++i) {
    char16_t c = line[i];
    if (c == u'\\') {
      ++backslashes;
      in_argument = true;
      continue;
    }
    if (c == u'"') {
      // Backslashes count only before a quote: 2n give n and the quote opens or closes, 2n+1
      // give n and a quote that is part of the text.
      current.append(backslashes / 2, u'\\');
      bool escaped = backslashes % 2 == 1;
      backslashes = 0;
      in_argument = true;
      if (escaped) {
        current += u'"';
      } else if (quoted && i + 1 < line.size() && line[i + 1] == u'"') {
        current += u'"';  // "" inside quotes is one quote
        ++i;
      } else {
        quoted = !quoted;
      }
      continue;
    }
    flush_backslashes();
    if ((c == u' ' || c == u'\t') && !quoted) {
      if (in_argument) args.push_back(std::move(current));
      current.clear();
      in_argument = false;
      continue;
    }
    current += c;
    in_argument = true;
  }
  flush_backslashes();
  if (in_argument) args.push_back(std::move(current));
  return args;
}

std::intptr_t side::ShellExecuteW(Handle owner, const char16_t* verb, const char16_t* file,
                                  const char16_t* parameters, const char16_t* directory,
                                  int show_command) {
  return Start(verb, file, parameters, directory, show_command, nullptr);
}

bool side::ShellExecuteExW(ShellExecuteInfo& info) {
  Handle process = 0;
  bool want_handle = (info.mask & kSeeMaskNoCloseProcess) != 0;
  info.inst_app = Start(info.verb, info.file, info.parameters, info.directory, info.show,
                        want_handle ? &process : nullptr);
  info.process = Process(process);
  return info.inst_app > 32;
}

// The handle goes; a child still running is still reaped by its watcher.
void side::CloseProcess(Handle process) {
  std::lock_guard<std::mutex> lock(table_mutex);
  table.erase(process);
}

bool side::GetExitCodeProcess(Handle process, std::uint32_t* exit_code) {
  std::shared_ptr<Child> child = Lookup(process);
  if (!child || exit_code == nullptr) {
    SetLastError(kErrorInvalidHandle);
    return false;
  }
  {
    std::lock_guard<std::mutex> lock(child->mutex);
    child->Poll();
    *exit_code = child->exit_code;
  }
  return true;
}

// There is no message queue on this side; the pass only tells a watching test.
void side::PumpMessages() {}

}  // namespace os
