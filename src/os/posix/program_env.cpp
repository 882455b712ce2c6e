// POSIX side of the seam: arguments, environment, working and temporary folders, file copies.
#include <errno.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "base/text.h"
#include "os/posix/native.h"
#include "os/program_env.h"
#include "os/side.h"
#include "os/types.h"

namespace os {
namespace {

bool IsFolder(const char* path) {
  struct stat st;
  return path && *path && stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

bool WriteAll(int fd, const char* data, std::size_t size) {
  while (size > 0) {
    ssize_t n = write(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

// Closes a descriptor when the copy is left, on every path.
struct Fd {
  int fd = -1;
  ~Fd() {
    if (fd >= 0) close(fd);
  }
};

}  // namespace

std::vector<std::u16string> ProgramArguments() {
  // /proc/self/cmdline: the arguments separated by NULs, the program's name first.
  std::ifstream in("/proc/self/cmdline", std::ios::binary);
  std::string all((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::vector<std::u16string> args;
  std::size_t start = 0;
  bool first = true;
  while (start < all.size()) {
    std::size_t end = all.find('\0', start);
    if (end == std::string::npos) end = all.size();
    if (!first) args.push_back(base::Widen(std::string_view(all).substr(start, end - start)));
    first = false;
    start = end + 1;
  }
  return args;
}

std::u16string GetEnvironmentVariableW(const char16_t* name) {
  const char* value = std::getenv(base::Narrow(name).c_str());
  return value ? base::Widen(value) : std::u16string();
}

namespace {

// The user's temporary folder, with a trailing separator.
std::u16string GetTempPathW() {
  // As GetTempPathW takes TMP or TEMP, the POSIX convention is TMPDIR; a value that names no
  // folder is passed over rather than handed back.
  std::string folder = "/tmp";
  const char* tmpdir = std::getenv("TMPDIR");
  if (IsFolder(tmpdir)) folder = tmpdir;
  if (folder.back() != '/') folder += '/';
  return base::Widen(folder);
}

}  // namespace

std::vector<std::u16string> ScratchFolders() {
  std::vector<std::string> candidates;
  // The runtime folder is the user's alone (systemd makes it 0700 and owned by the user) and
  // lives in memory: nothing of the copy reaches a disk.
  if (const char* runtime = std::getenv("XDG_RUNTIME_DIR")) candidates.emplace_back(runtime);
  candidates.push_back(base::Narrow(GetTempPathW()));
  const char* home = std::getenv("HOME");
  if (!home || !*home) {
    const passwd* pw = getpwuid(getuid());
    home = pw ? pw->pw_dir : nullptr;
  }
  if (home && *home) candidates.push_back(std::string(home) + "/.cache");

  std::vector<std::u16string> folders;
  for (std::string& folder : candidates) {
    if (!IsFolder(folder.c_str())) continue;
    if (folder.back() != '/') folder += '/';
    const std::u16string wide = base::Widen(folder);
    if (std::find(folders.begin(), folders.end(), wide) == folders.end()) folders.push_back(wide);
  }
  return folders;
}

std::u16string side::CreatePrivateFolder(std::u16string_view parent, std::u16string_view prefix) {
  std::string path = posix::NativePath(parent);
  if (!path.empty() && path.back() != '/') path += '/';
  path += posix::NativePath(prefix) + "XXXXXX";
  // mkdtemp creates the folder with mode 0700 and fails on any name that exists, a dangling
  // link included.
  if (!mkdtemp(path.data())) {
    if (errno == ENOENT || errno == ENOTDIR) {
      SetLastError(kErrorPathNotFound);
    } else {
      posix::SetLastErrorFromErrno();
    }
    return std::u16string();
  }
  return base::Widen(path);
}

PathFacts GetPathFacts(std::u16string_view path) {
  PathFacts facts;
  struct stat st;
  if (lstat(posix::NativePath(path).c_str(), &st) != 0) return facts;
  facts.exists = true;
  facts.link = S_ISLNK(st.st_mode);
  facts.folder = S_ISDIR(st.st_mode);
  facts.own = st.st_uid == geteuid();
  // Group write counts only for a group other than the user's own (user-private groups).
  const bool others_write =
      (st.st_mode & S_IWOTH) || ((st.st_mode & S_IWGRP) && st.st_gid != getegid());
  facts.others_may_move = facts.folder && others_write && !(st.st_mode & S_ISVTX);
  return facts;
}

bool SetCurrentDirectoryW(const char16_t* path) {
  if (chdir(posix::NativePath(path).c_str()) != 0) {
    posix::SetLastErrorFromErrno();
    return false;
  }
  return true;
}

bool side::CopyFileW(const char16_t* source, const char16_t* destination, bool fail_if_exists) {
  Fd in, out;
  in.fd = open(posix::NativePath(source).c_str(), O_RDONLY | O_CLOEXEC);
  struct stat st;
  if (in.fd < 0 || fstat(in.fd, &st) != 0) {
    posix::SetLastErrorFromErrno();
    return false;
  }
  if (S_ISDIR(st.st_mode)) {
    SetLastError(kErrorAccessDenied);
    return false;
  }
  const std::string target = posix::NativePath(destination);
  const int flags = O_WRONLY | O_CREAT | O_CLOEXEC | (fail_if_exists ? O_EXCL : O_TRUNC);
  out.fd = open(target.c_str(), flags, st.st_mode & 07777);
  if (out.fd < 0) {
    if (errno == EEXIST) {
      SetLastError(kErrorFileExists);
    } else {
      posix::SetLastErrorFromErrno();
    }
    return false;
  }
  char buf[65536];
  for (;;) {
    ssize_t n = read(in.fd, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 || (n > 0 && !WriteAll(out.fd, buf, static_cast<std::size_t>(n)))) {
      posix::SetLastErrorFromErrno();
      unlink(target.c_str());  // never leave half a program behind
      return false;
    }
    if (n == 0) break;
  }
  // A replaced file keeps its old permission bits through O_TRUNC: give it the source's.
  if (fchmod(out.fd, st.st_mode & 07777) != 0) {
    posix::SetLastErrorFromErrno();
    return false;
  }
  return true;
}

bool DeleteProgramFileAfterExit(std::u16string_view path, bool folder_too) {
  const std::string file = posix::NativePath(path);
  if (unlink(file.c_str()) != 0) {
    posix::SetLastErrorFromErrno();
    return false;
  }
  const std::size_t slash = file.rfind('/');
  if (folder_too && slash != std::string::npos && slash > 0) rmdir(file.substr(0, slash).c_str());
  return true;
}

}  // namespace os
