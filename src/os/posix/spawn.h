// Starting child processes on the POSIX side of the seam, shared by the process starters and
// the graphical message box: finding a program on PATH, fork and exec with the exec's failure
// reported back to the caller, and waiting for a child.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

namespace os::posix {

// The file a shell would run for `name`: a name with a "/" is taken as it stands, a bare name
// is looked for in each PATH folder. "" when there is no such executable file.
std::string FindOnPath(std::string_view name);

// True for an existing regular file the caller may execute.
bool IsExecutableFile(const std::string& path);

struct SpawnOptions {
  std::string folder;         // working folder of the child; "" keeps the caller's
  int stdout_fd = -1;         // when >= 0, becomes the child's standard output
  int stderr_fd = -1;         // when >= 0, becomes the child's standard error
  bool quiet_stderr = false;  // the child's standard error goes to /dev/null
  // The child starts a session of its own, without a controlling terminal, and reads its
  // standard input from /dev/null: it outlives the caller's terminal (no SIGHUP when the
  // terminal's leader ends, no job control) and never takes the user's typing from the shell.
  bool new_session = false;
  // "NAME=value" settings that replace the caller's for the child; the rest is inherited.
  std::vector<std::string> environment;
};

struct SpawnResult {
  pid_t pid = -1;  // the child, when it started
  int error = 0;   // errno of the failed chdir or exec (the child is then already reaped)
};

// Starts argv[0] (a path) with argv. Descriptors other than 0, 1 and 2 are not inherited, as
// a Windows child inherits no handles from a shell start. Returns once the exec succeeded or
// failed.
SpawnResult Spawn(const std::vector<std::string>& argv, const SpawnOptions& options);

// The arguments a program started with these parameters receives, split by the Windows rules
// (CommandLineToArgvW): blanks separate, quotes group, 2n backslashes before a quote give n and
// the quote groups, 2n+1 give n and a literal quote, other backslashes stay as they are.
std::vector<std::u16string> SplitCommandLine(std::u16string_view parameters);

// Waits for a child to end and returns its exit code: the status it passed to exit, or 128 +
// the signal that ended it. -1 when the child cannot be waited for.
int WaitForExit(pid_t pid);

// The exit code in a wait status, as WaitForExit reports it.
int ExitCodeFromStatus(int status);

}  // namespace os::posix
