#include "files/paths.h"

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
