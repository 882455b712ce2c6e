#include "files/file_utils.h"

#include "base/debug_log.h"
#include "base/text.h"
#include "base/trap.h"
#include "files/drive_info.h"
#include "files/paths.h"
#include "os/files.h"
#include "os/process.h"
#include "text/encoding.h"

namespace mFileUtils {
namespace {

// The one open search of FindFile, continued by the calls with an empty pattern.
struct SearchState {
  os::FileSearch handle;
  std::uint32_t filter = 0;
};

SearchState& Search() {
  static SearchState state;
  return state;
}

void CloseSearch() {
  Search().handle = os::FileSearch();
}

bool Skipped(const os::FindData& entry, std::uint32_t filter) {
  const std::uint32_t a = entry.attributes;
  return ((a & os::kAttributeHidden) && !(filter & os::kAttributeHidden)) ||
         ((a & os::kAttributeSystem) && !(filter & os::kAttributeSystem)) ||
         ((a & os::kAttributeDirectory) && !(filter & os::kAttributeDirectory));
}

std::u16string NameOf(const os::FindData& entry) {
  std::size_t nul = entry.name.find(u'\0');
  return nul == std::u16string::npos ? entry.name : entry.name.substr(0, nul);
}

// The last-write time, a count of 100 ns steps since 1601 in UTC, as a date to the second.
base::Date DateOf(std::uint64_t ticks) {
  const std::uint64_t seconds = ticks / 10000000u;
  return base::MakeDate(1601, 1, 1 + static_cast<int>(seconds / 86400), 0, 0,
                        static_cast<int>(seconds % 86400));
}

[[noreturn]] void RaiseLastError() {
  const std::uint32_t error = os::GetLastError();
  base::Raise(static_cast<std::int32_t>(error), SystemErrorText(error));
}

bool Sep(char16_t c) {
  return c == u'\\' || c == u'/';
}

// Where the part of a path that cannot be created ends: the drive, the network share, the
// "\\?\" forms of both, or a leading separator.
std::size_t RootLength(std::u16string_view p) {
  std::size_t start = 0;
  if (p.substr(0, 4) == u"\\\\?\\") {
    start = 4;
    if (p.size() >= 8 && base::EqualNoCase(p.substr(4, 4), u"UNC\\")) {
      start = 8;
    } else {
      return p.size() >= 6 && p[5] == u':' ? (p.size() >= 7 ? 7 : 6) : 4;
    }
  } else if (p.substr(0, 2) == u"\\\\") {
    start = 2;
  } else if (p.size() >= 2 && p[1] == u':') {
    return p.size() >= 3 && Sep(p[2]) ? 3 : 2;
  } else {
    return !p.empty() && Sep(p[0]) ? 1 : 0;
  }
  // Network: the server and the share belong to the root.
  std::size_t server_end = p.find(u'\\', start);
  if (server_end == std::u16string_view::npos) return p.size();
  std::size_t share_end = p.find(u'\\', server_end + 1);
  return share_end == std::u16string_view::npos ? p.size() : share_end + 1;
}

bool IsFolder(const std::u16string& path) {
  std::uint32_t a = os::GetFileAttributesW(LongPath(path).c_str());
  return a != os::kInvalidFileAttributes && (a & os::kAttributeDirectory);
}

}  // namespace

bool FileExists(std::u16string_view name, double& size, base::Date& date) {
  return base::Trap(base::DansFunction(u"mFileUtils.FileExists"), false, [&] {
    if (name.empty()) return false;
    os::FindData entry;
    if (!os::FindFirstFileW(LongPath(name).c_str(), &entry)) return false;
    size = entry.size_high * 4294967296.0 + entry.size_low;
    date = DateOf(entry.last_write_time);
    return (entry.attributes & os::kAttributeDirectory) == 0;
  });
}

bool FileExists(std::u16string_view name) {
  double size = 0;
  base::Date date = 0;
  return FileExists(name, size, date);
}

std::uint32_t ReadAttributes(std::u16string_view path) {
  std::u16string full = LongPath(mGlobal::GetFullPath(path));
  std::uint32_t attributes = os::GetFileAttributesW(full.c_str());
  if (attributes == os::kInvalidFileAttributes) RaiseLastError();
  return attributes;
}

void WriteAttributes(std::u16string_view path, std::uint32_t attributes) {
  std::u16string full = LongPath(mGlobal::GetFullPath(path));
  if (!os::SetFileAttributesW(full.c_str(), attributes)) RaiseLastError();
}

bool KillFile(std::u16string_view name, std::int16_t retry_count) {
  return base::Trap(base::DansFunction(u"mFileUtils.KillFile"), false, [&] {
    const std::u16string path = LongPath(name);
    // Windows will not delete a read-only file; a hidden one is cleared as well. A failure to
    // read or change the attributes is left to the delete to report.
    std::uint32_t a = os::GetFileAttributesW(path.c_str());
    if (a != os::kInvalidFileAttributes && (a & os::kAttributeHidden)) {
      os::SetFileAttributesW(path.c_str(), 0);
    }
    a = os::GetFileAttributesW(path.c_str());
    if (a != os::kInvalidFileAttributes && (a & os::kAttributeReadOnly)) {
      os::SetFileAttributesW(path.c_str(), 0);
    }
    int tries = 0;
    std::uint32_t remembered = 0;
    for (;;) {
      ++tries;
      if (os::DeleteFileW(path.c_str())) return true;
      const std::uint32_t error = os::GetLastError();
      // The limit is tested before "not found", and the error logged is the one of the attempt
      // before: with a limit of 0 a missing file is a failure, logged as error 0.
      if (tries > retry_count) {
        DebugLog(u"Erreur " + base::ToText(remembered) + u" dans KillFile : " +
                 SystemErrorText(remembered));
        return false;
      }
      if (error == os::kErrorFileNotFound || error == os::kErrorPathNotFound) return true;
      remembered = error;
      os::SetLastError(0);
      os::Sleep(200);
    }
  });
}

std::u16string SystemErrorText(std::uint32_t error) {
  char buffer[256];
  std::uint32_t n = os::FormatMessageA(error, buffer, sizeof buffer);
  if (n == 0) return std::u16string();
  return mStringTools::AnsiBytesToStr(std::string_view(buffer, n));
}

std::u16string FindFile(std::u16string_view pattern, std::uint32_t filter) {
  return base::Trap(base::DansFunction(u"mFileUtils.FindFile"), std::u16string(), [&] {
    SearchState& s = Search();
    os::FindData entry;
    if (!pattern.empty()) {
      CloseSearch();
      if (filter == os::kAttributeVolumeLabel) {
        std::u16string label, file_system, vendor, product, revision, serial_number;
        std::uint32_t serial = 0;
        mRemoveUsbDrive::GetDriveInfo(pattern, label, serial, file_system, vendor, product,
                                      revision, serial_number, true);
        return label;
      }
      s.filter = filter;
      s.handle = os::FindFirstFileW(LongPath(pattern).c_str(), &entry);
      if (!s.handle) return std::u16string();
    } else {
      if (!s.handle) return std::u16string();
      if (!os::FindNextFileW(s.handle, &entry)) {
        CloseSearch();
        return std::u16string();
      }
    }
    while (Skipped(entry, s.filter)) {
      if (!os::FindNextFileW(s.handle, &entry)) {
        CloseSearch();
        return std::u16string();
      }
    }
    return NameOf(entry);
  });
}

bool MoveFileTo(std::u16string_view source, std::u16string_view destination) {
  return os::MoveFileW(std::u16string(source).c_str(), std::u16string(destination).c_str());
}

bool CreateFolder(std::u16string_view path) {
  return base::Trap(base::DansFunction(u"mFileUtils.CreateFolder"), false, [&] {
    std::u16string p(path);
    for (char16_t& c : p) {
      if (c == u'/') c = u'\\';
    }
    const std::size_t root = RootLength(p);
    while (p.size() > root && p.back() == u'\\') p.pop_back();
    if (p.empty()) return false;
    if (IsFolder(p)) return true;
    // Each missing folder from the top down; one that already exists fails harmlessly.
    for (std::size_t at = p.find(u'\\', root); at != std::u16string::npos;
         at = p.find(u'\\', at + 1)) {
      std::u16string part = p.substr(0, at);
      if (part.size() > root && !IsFolder(part)) os::CreateDirectoryW(LongPath(part).c_str());
    }
    os::CreateDirectoryW(LongPath(p).c_str());
    return IsFolder(p);
  });
}

}  // namespace mFileUtils
