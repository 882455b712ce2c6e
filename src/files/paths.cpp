#include "files/paths.h"

#include <algorithm>

#include "base/text.h"
#include "base/trap.h"
#include "os/files.h"
#include "text/strings.h"

namespace {

bool NetworkPath(std::u16string_view p) {
  return p.size() >= 2 && p.substr(0, 2) == u"\\\\";
}
bool DrivePath(std::u16string_view p) {
  return p.size() >= 2 && p[1] == u':';
}

}  // namespace

namespace mGlobal {

std::u16string GetFullPath(std::u16string_view path, std::u16string_view base) {
  return base::Trap(base::DansFunction(u"mGlobal.GetFullPath"), std::u16string(), [&] {
    if (path.empty()) return std::u16string();
    std::u16string p(path);
    if (!NetworkPath(p) && !DrivePath(p) && !base.empty()) {
      std::u16string b(base);
      p = mStringTools::AddBackSlash(b) + p;
    }
    constexpr std::uint32_t kBuffer = 260;
    char16_t buffer[kBuffer];
    std::uint32_t n = os::GetFullPathNameW(p.c_str(), kBuffer, buffer);
    // A longer path only reports the size it needs; the buffer holds nothing usable then.
    if (n == 0 || n >= kBuffer) return std::u16string();
    return std::u16string(buffer, n);
  });
}

std::u16string FilePathOnly(std::u16string_view path) {
  return base::Trap(base::DansFunction(u"mglobal.FilePathOnly"), std::u16string(), [&] {
    const bool had_slash = path.find(u'/') != std::u16string_view::npos;
    std::u16string p(path);
    for (char16_t& c : p) {
      if (c == u'\\') c = u'/';
    }
    std::size_t last = p.rfind(u'/');
    if (last != std::u16string::npos) p.resize(last);
    if (!had_slash) {
      for (char16_t& c : p) {
        if (c == u'/') c = u'\\';
      }
    }
    return p;
  });
}

}  // namespace mGlobal

namespace mFileUtils {

std::u16string LongPath(std::u16string_view path) {
  if (!NetworkPath(path) && DrivePath(path)) return u"\\\\?\\" + std::u16string(path);
  return std::u16string(path);
}

std::u16string FileNameOnly(std::u16string_view path) {
  std::size_t last = path.find_last_of(u"\\/");
  return std::u16string(last == std::u16string_view::npos ? path : path.substr(last + 1));
}

std::u16string FileExtention(std::u16string_view name) {
  return base::Trap(base::DansProperty(u"mFileUtils.FileExtention"), std::u16string(), [&] {
    std::size_t dot = name.rfind(u'.');
    if (dot == std::u16string_view::npos) return std::u16string();
    std::u16string_view candidate = name.substr(dot + 1);
    if (candidate.find_first_of(u"\\/") != std::u16string_view::npos) return std::u16string();
    return std::u16string(candidate);
  });
}

}  // namespace mFileUtils

namespace sys {
namespace {

bool IsSeparator(char16_t c) {
  return c == u'\\' || c == u'/';
}

bool SameChar(char16_t a, char16_t b, bool ignore_case) {
  if (IsSeparator(a) && IsSeparator(b)) return true;
  return ignore_case ? base::LowerChar(a) == base::LowerChar(b) : a == b;
}

// "E:" at the start of a path.
bool HasDriveLetter(std::u16string_view p) {
  return p.size() >= 2 && p[1] == u':' &&
         ((p[0] >= u'A' && p[0] <= u'Z') || (p[0] >= u'a' && p[0] <= u'z'));
}

}  // namespace

bool SamePath(std::u16string_view a, std::u16string_view b, bool ignore_case) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (!SameChar(a[i], b[i], ignore_case)) return false;
  return true;
}

bool PathIsUnder(std::u16string_view path, std::u16string_view folder, bool ignore_case) {
  std::size_t len = folder.size();
  while (len > 0 && IsSeparator(folder[len - 1])) --len;
  if (len == 0) return !folder.empty() && !path.empty() && IsSeparator(path[0]);
  if (path.size() < len) return false;
  for (std::size_t i = 0; i < len; ++i)
    if (!SameChar(path[i], folder[i], ignore_case)) return false;
  return path.size() == len || IsSeparator(path[len]);
}

std::u16string ParentFolder(std::u16string_view path) {
  std::size_t end = path.size();
  while (end > 1 && IsSeparator(path[end - 1])) --end;
  std::u16string_view p = path.substr(0, end);
  std::size_t slash = p.find_last_of(u"\\/");
  if (slash == std::u16string_view::npos) return std::u16string();
  std::size_t keep = slash;
  while (keep > 0 && IsSeparator(p[keep - 1])) --keep;
  if (keep == 0) return std::u16string(p.substr(0, 1));                       // "/x" -> "/"
  if (keep == 2 && HasDriveLetter(p)) return std::u16string(p.substr(0, 3));  // "E:\x" -> "E:\"
  return std::u16string(p.substr(0, keep));
}

std::u16string ChildPath(std::u16string_view folder, std::u16string_view name) {
  std::u16string path(folder);
  if (path.empty() || !IsSeparator(path.back())) {
    const std::size_t last = path.find_last_of(u"\\/");
    path += last == std::u16string::npos ? u'\\' : path[last];
  }
  return path + std::u16string(name);
}

bool IsRootPath(std::u16string_view p) {
  if (p.empty()) return false;
  if (std::all_of(p.begin(), p.end(), IsSeparator)) return true;  // "/", and "//" too
  if (HasDriveLetter(p)) return p.size() == 2 || (p.size() == 3 && IsSeparator(p[2]));
  // "\\server\share" with at most a trailing separator.
  if (p.size() > 2 && IsSeparator(p[0]) && IsSeparator(p[1])) {
    std::u16string_view rest = p.substr(2);
    if (IsSeparator(rest.back())) rest.remove_suffix(1);
    const std::size_t sep = rest.find_first_of(u"\\/");
    return sep != std::u16string_view::npos && sep > 0 && sep + 1 < rest.size() &&
           rest.find_first_of(u"\\/", sep + 1) == std::u16string_view::npos;
  }
  return false;
}

}  // namespace sys
