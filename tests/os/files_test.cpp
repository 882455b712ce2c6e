// The file seam against the Windows answers, natively and (Windows build) under Wine.
#include "os/files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "base/text.h"
#include "os/fault.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using V = std::vector<std::string>;

struct Files : ::testing::Test {
  testing_support::TempDir dir;
  os::fault::Scope faults;
  std::u16string P(std::u16string_view name) const { return dir.u16(name); }
  void MakeReadOnly(std::u16string_view name) {
    fs::permissions(fs::path(P(name)), fs::perms::all, fs::perm_options::remove);
    fs::permissions(fs::path(P(name)), fs::perms::owner_read, fs::perm_options::add);
  }
};

// The names a search finds, sorted; "error N" when it finds none.
V List(const std::u16string& pattern) {
  V names;
  os::FindData entry;
  const os::FileSearch search = os::FindFirstFileW(pattern.c_str(), &entry);
  if (!search) return {"error " + std::to_string(os::GetLastError())};
  do names.push_back(base::Narrow(entry.name));
  while (os::FindNextFileW(search, &entry));
  EXPECT_EQ(os::GetLastError(), 18u) << "a listing ends with ERROR_NO_MORE_FILES";
  std::sort(names.begin(), names.end());
  return names;
}

TEST_F(Files, SearchPatterns) {
  for (const char16_t* name : {u"a.txt", u"B.TXT", u"noext", u"data.tar.gz", u"ab", u".hidden"})
    dir.Write(name, "x");
  fs::create_directory(fs::path(P(u"sub")));
  const V all = {".", "..", ".hidden", "B.TXT", "a.txt", "ab", "data.tar.gz", "noext", "sub"};
  // A drive path, which goes through Win32's name rules ("Z:" is "/" on Linux).
  const std::u16string drive = dir.u16().starts_with(u"/") ? u"Z:" + dir.u16() : dir.u16();
  // clang-format off
  for (const auto& [pattern, names] : std::initializer_list<std::pair<std::u16string, V>>{
           {u"*.", all}, {u"*.TXT", {"B.TXT", "a.txt"}}, {u"?.txt", {"B.TXT", "a.txt"}}, {u"a?", {"ab"}},
           {u"?", {"."}}, {u".*", {".", "..", ".hidden"}}, {u"*z", {"data.tar.gz"}},
           {u"a.txt.", {"a.txt"}}, {u"noext.*", {"noext"}}, {u"nomatch*", {"error 2"}},
           {u"nofolder\\*", {"error 3"}}})
    EXPECT_EQ(List(drive + u"\\" + pattern), names) << base::Narrow(pattern);
  // clang-format on
  // A name with a trailing dot, made and found through the marked path.
  const std::u16string dot = u"\\\\?\\" + drive + u"\\dot.";
  os::CreateFileW(dot.c_str(), os::kGenericWrite, 0, os::kCreateNew, 0);
  EXPECT_EQ(List(dot), V{"dot."});
  // A "/"-rooted path is a POSIX path: the pattern's trailing dot belongs to the name.
  if (drive != dir.u16()) {
    EXPECT_EQ(List(dir.u16() + u"/a.txt."), V{"error 2"});
    EXPECT_EQ(List(dir.u16() + u"/*."), (V{".", "..", "dot."}));
  }
  // Windows' own clean-up of the folder could not delete it.
  EXPECT_TRUE(os::DeleteFileW(dot.c_str()));

  // The entry carries size, attributes and a write time within a day of now (100 ns steps since
  // 1601).
  os::FindData entry;
  ASSERT_TRUE(os::FindFirstFileW(P(u"data.tar.gz").c_str(), &entry));
  EXPECT_EQ(entry.size_low + entry.attributes, 1u + os::kAttributeArchive);
  const std::int64_t now = (std::time(nullptr) + 11644473600LL) * 10000000;
  EXPECT_LT(std::llabs(static_cast<std::int64_t>(entry.last_write_time) - now), 864000000000LL);
}

// One volume answers the same whatever name reaches it; /proc is another volume on Linux, and
// the system folder one of Windows' own under Wine.
TEST_F(Files, VolumeIdentityIsTheVolumesWhateverTheName) {
  dir.Write(u"Sub/f.txt", "x");
  const std::u16string id = os::VolumeIdentity(P(u"Sub/f.txt"));
  ASSERT_FALSE(id.empty());
  EXPECT_EQ(os::VolumeIdentity(P(u"Sub/../Sub")), id);
  EXPECT_EQ(os::VolumeIdentity(P(u"missing")), u"");
#ifdef _WIN32
  EXPECT_EQ(os::VolumeIdentity(u"\\\\?\\" + P(u"Sub\\f.txt")), id);
#else
  EXPECT_NE(os::VolumeIdentity(u"/proc/self"), id);
#endif
}

TEST_F(Files, AttributesDeleteMoveAndFolders) {
  for (const char16_t* name : {u"locked", u".dot"}) dir.Write(name, "x");
  MakeReadOnly(u"locked");
  fs::create_directory(fs::path(P(u"folder")));
  for (auto [name, attributes, error] :
       {std::tuple<const char16_t*, std::uint32_t, std::uint32_t>{
            u"locked", os::kAttributeArchive | os::kAttributeReadOnly, 0},
        {u".dot", os::kAttributeArchive | os::kAttributeHidden, 0},
        {u"folder", os::kAttributeDirectory, 0},
        {u"missing", os::kInvalidFileAttributes, os::kErrorFileNotFound},
        {u"nofolder\\missing", os::kInvalidFileAttributes, os::kErrorPathNotFound}}) {
    EXPECT_EQ(os::GetFileAttributesW(P(name).c_str()), attributes) << base::Narrow(name);
    EXPECT_EQ(error ? os::GetLastError() : 0u, error) << base::Narrow(name);
  }
  // The refusals the file helpers do not see for themselves (a missing file or folder is theirs).
  EXPECT_FALSE(os::DeleteFileW(P(u"folder").c_str()));
  EXPECT_EQ(os::GetLastError(), os::kErrorAccessDenied) << "a folder is no file to delete";
  EXPECT_FALSE(os::DeleteFileW(P(u"locked").c_str()));
  EXPECT_EQ(os::GetLastError(), os::kErrorAccessDenied);
  EXPECT_TRUE(os::MoveFileW(P(u"locked").c_str(), P(u"locked2").c_str())) << "a read-only file";
  EXPECT_FALSE(os::CreateDirectoryW(P(u"folder").c_str()));
  EXPECT_EQ(os::GetLastError(), os::kErrorAlreadyExists);
}

TEST_F(Files, HandlesReadWriteAndSeek) {
  const std::u16string path = P(u"data.bin");
  {
    os::SetLastError(77);
    const os::File w = os::CreateFileW(path.c_str(), os::kGenericWrite, os::kFileShareRead,
                                       os::kOpenAlways, os::kAttributeNormal);
    EXPECT_EQ(os::GetLastError(), 0u) << "OPEN_ALWAYS of a new file";
    std::uint32_t done = 0, high = 99;
    ASSERT_TRUE(os::WriteFile(w, "hello world", 11, &done));
    EXPECT_EQ(os::GetFileSize(w, &high) + high, 11u);
    const os::File r =
        os::CreateFileW(path.c_str(), os::kGenericRead, os::kFileShareRead | os::kFileShareWrite,
                        os::kOpenExisting, 0);
    EXPECT_EQ(os::SetFilePointer(r, -5, nullptr, os::kFileEnd), 6u);
    char buf[16] = {};
    ASSERT_TRUE(os::ReadFile(r, buf, 16, &done));
    EXPECT_EQ(std::string(buf, done), "world");
    EXPECT_EQ(os::SetFilePointer(r, -20, nullptr, os::kFileBegin), os::kInvalidSetFilePointer);
    EXPECT_EQ(os::GetLastError(), 131u) << "ERROR_NEGATIVE_SEEK";
    EXPECT_FALSE(os::WriteFile(r, "x", 1, &done)) << "a read-only handle";
  }
  // Opens: the error left, 183 for an existing file opened anyway.
  for (auto [name, access, disposition, error] :
       {std::tuple<const char16_t*, std::uint32_t, std::uint32_t, std::uint32_t>{
            u"data.bin", os::kGenericWrite, os::kOpenAlways, os::kErrorAlreadyExists},
        {u"data.bin", os::kGenericWrite, os::kCreateAlways, os::kErrorAlreadyExists},
        {u"data.bin", os::kGenericWrite, os::kCreateNew, os::kErrorFileExists},
        {u"missing", os::kGenericRead, os::kOpenExisting, os::kErrorFileNotFound},
        {u"nofolder\\x", os::kGenericWrite, os::kCreateAlways, os::kErrorPathNotFound},
        {u"", os::kGenericRead, os::kOpenExisting, os::kErrorAccessDenied}}) {
    os::SetLastError(77);
    const bool opened = static_cast<bool>(
        os::CreateFileW((*name ? P(name) : dir.u16()).c_str(), access, 0, disposition, 0));
    EXPECT_EQ(os::GetLastError(), error) << base::Narrow(name) << " " << disposition;
    EXPECT_EQ(opened, error == os::kErrorAlreadyExists) << base::Narrow(name);
  }
  EXPECT_EQ(dir.Read(u"data.bin"), "") << "CREATE_ALWAYS emptied the file";
#ifndef _WIN32
  // Windows refuses a writer into a read-only file. Wine run as root lets it in (the missing
  // permission bits do not stop root), so this row is checked on the POSIX side only.
  MakeReadOnly(u"data.bin");
  EXPECT_FALSE(os::CreateFileW(path.c_str(), os::kGenericWrite, 0, os::kOpenExisting, 0));
  EXPECT_EQ(os::GetLastError(), os::kErrorAccessDenied);
#endif
}

}  // namespace
