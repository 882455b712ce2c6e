// POSIX side of the seam: reading the program's Windows-shaped paths, and full path names.
#include "os/posix/paths.h"

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <string>
#include <vector>

#include "base/text.h"
#include "os/files.h"
#include "os/posix/native.h"
#include "os/side.h"
#include "os/types.h"

namespace os {
namespace posix {
namespace {

constexpr std::uint32_t kErrorBadNetPath = 53;

bool Sep(char16_t c) {
  return c == u'\\' || c == u'/';
}
bool Letter(char16_t c) {
  return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z');
}
bool DrivePrefix(std::u16string_view p) {
  return p.size() >= 2 && Letter(p[0]) && p[1] == u':';
}

// "\\?\" or "\\.\" (either separator).
bool SpecialPrefix(std::u16string_view p, char16_t mark) {
  return p.size() >= 4 && Sep(p[0]) && Sep(p[1]) && p[2] == mark && Sep(p[3]);
}

std::u16string CurrentFolder() {
  char buf[PATH_MAX];
  if (!getcwd(buf, sizeof buf)) return std::u16string();
  return base::Widen(buf);
}

// Resolves "." and ".." and applies Windows' name rules after the root: separators collapse,
// a folder name loses one trailing dot ("a.\b" is "a\b") and the last name its trailing dots
// and blanks. POSIX names keep their dots and blanks (windows_names false).
std::u16string Normalise(std::u16string_view root, std::u16string_view rest, char16_t sep,
                         bool windows_names) {
  std::vector<std::u16string> parts;
  std::size_t i = 0;
  const std::size_t n = rest.size();
  bool trailing = false;
  while (i < n) {
    while (i < n && Sep(rest[i])) ++i;
    if (i >= n) break;
    std::size_t start = i;
    while (i < n && !Sep(rest[i])) ++i;
    std::u16string part(rest.substr(start, i - start));
    const bool followed = i < n;  // a separator comes after this name
    trailing = followed;
    if (part == u".") continue;
    if (part == u"..") {
      if (!parts.empty()) parts.pop_back();
      continue;
    }
    if (windows_names) {
      if (followed) {
        if (part.back() == u'.') part.pop_back();
      } else {
        while (!part.empty() && (part.back() == u'.' || part.back() == u' ')) part.pop_back();
      }
    }
    parts.push_back(std::move(part));
  }
  std::u16string out(root);
  for (std::size_t k = 0; k < parts.size(); ++k) {
    if (k > 0) out += sep;
    out += parts[k];
  }
  if (trailing && !parts.empty() && !parts.back().empty()) out += sep;
  return out;
}

// The full path of a path of Windows shape (drive, network, device) or of POSIX shape.
std::u16string FullPath(std::u16string_view p) {
  if (SpecialPrefix(p, u'?') || SpecialPrefix(p, u'.')) {
    std::u16string root = u"\\\\";
    root += p[2];
    root += u'\\';
    return Normalise(root, p.substr(4), u'\\', true);
  }
  if (p.size() >= 2 && Sep(p[0]) && Sep(p[1])) {
    // \\server\share\ is the root; ".." never climbs above it.
    std::size_t i = 2;
    while (i < p.size() && !Sep(p[i])) ++i;  // server
    if (i < p.size()) ++i;
    while (i < p.size() && !Sep(p[i])) ++i;  // share
    if (i < p.size()) ++i;
    std::u16string root(p.substr(0, i));
    for (char16_t& c : root) {
      if (c == u'/') c = u'\\';
    }
    return Normalise(root, p.substr(i), u'\\', true);
  }
  if (DrivePrefix(p)) {
    std::u16string root(p.substr(0, 2));
    root += u'\\';
    // A drive-relative path ("Q:name") starts at the drive's root: no drive has a current
    // folder of its own here.
    return Normalise(root, p.substr(2), u'\\', true);
  }
  if (!p.empty() && Sep(p[0])) return Normalise(u"/", p.substr(1), u'/', false);
  std::u16string cwd = CurrentFolder();
  if (cwd.empty()) return std::u16string();
  return Normalise(u"/", cwd + u"/" + std::u16string(p), u'/', false);
}

}  // namespace

bool SystemPath(std::u16string_view path, std::string* out) {
  std::u16string_view p = path;
  if (SpecialPrefix(p, u'?')) p.remove_prefix(4);
  if (p.empty()) {
    SetLastError(kErrorPathNotFound);
    return false;
  }
  if (p.size() >= 2 && Sep(p[0]) && Sep(p[1])) {
    SetLastError(kErrorBadNetPath);
    return false;
  }
  if (p.size() >= 4 && (p[0] == u'U' || p[0] == u'u') && p.substr(1, 2) == u"NC" && Sep(p[3])) {
    SetLastError(kErrorBadNetPath);
    return false;
  }
  if (DrivePrefix(p)) {
    if (p[0] != u'Z' && p[0] != u'z') {
      SetLastError(kErrorPathNotFound);
      return false;
    }
    p.remove_prefix(2);
    out->assign(1, '/');
    out->append(NativePath(p));
    return true;
  }
  *out = NativePath(p);
  return true;
}

bool KeepsNames(std::u16string_view path) {
  return !DrivePrefix(path) && !(path.size() >= 2 && Sep(path[0]) && Sep(path[1]));
}

std::uint32_t NotFoundError(const std::string& path) {
  std::string folder = path;
  while (!folder.empty() && folder.back() == '/') folder.pop_back();
  std::size_t slash = folder.rfind('/');
  if (slash == std::string::npos) return kErrorFileNotFound;
  folder.resize(slash == 0 ? 1 : slash);
  struct stat st;
  if (stat(folder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return kErrorPathNotFound;
  return kErrorFileNotFound;
}

char16_t DeviceLetter(std::u16string_view path) {
  if (!SpecialPrefix(path, u'.') || path.size() != 6 || !DrivePrefix(path.substr(4))) return 0;
  return base::UpperAscii(path[4]);
}

}  // namespace posix

std::uint32_t side::GetFullPathNameW(const char16_t* path, std::uint32_t buffer_size,
                                     char16_t* buffer) {
  if (!path || !*path) {
    SetLastError(kErrorInvalidName);
    return 0;
  }
  std::u16string full = posix::FullPath(path);
  if (full.empty()) {
    posix::SetLastErrorFromErrno();
    return 0;
  }
  if (full.size() + 1 > buffer_size || !buffer) return static_cast<std::uint32_t>(full.size() + 1);
  full.copy(buffer, full.size());
  buffer[full.size()] = u'\0';
  return static_cast<std::uint32_t>(full.size());
}

}  // namespace os
