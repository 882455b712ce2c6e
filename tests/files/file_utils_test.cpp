#include "files/file_utils.h"

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "base/text.h"
#include "base/trap.h"
#include "files/drive_info.h"
#include "files/paths.h"
#include "os/fault.h"
#include "os/files.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;

class FileUtils : public ::testing::Test {
 protected:
  testing_support::TempDir dir;
  os::fault::Scope faults;
  testing_support::LogCapture capture;
  std::vector<std::u16string>& log = capture.lines;

  std::u16string P(std::u16string_view name) const { return dir.u16(name); }
  void MakeReadOnly(std::u16string_view name) {
    fs::permissions(fs::path(P(name)),
                    fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write,
                    fs::perm_options::remove);
  }
};

base::Date NowUtc() {
  std::time_t t = std::time(nullptr);
  std::tm tm{};
#ifdef _WIN32
  gmtime_s(&tm, &t);
#else
  gmtime_r(&t, &tm);
#endif
  return base::MakeDate(tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min,
                        tm.tm_sec);
}

TEST_F(FileUtils, FileExists) {
  dir.Write(u"five.txt", "12345");
  fs::create_directory(fs::path(P(u"folder")));
  double size = -1;
  base::Date date = -1;
  EXPECT_TRUE(mFileUtils::FileExists(P(u"five.txt"), size, date));
  EXPECT_EQ(size, 5.0);
  EXPECT_NEAR(date, NowUtc(), 5.0 / 1440) << "written now, in UTC";

  size = -1;
  date = -1;
  EXPECT_FALSE(mFileUtils::FileExists(P(u"folder"), size, date)) << "a folder is no file";
  EXPECT_EQ(size, 0.0);
  EXPECT_NEAR(date, NowUtc(), 5.0 / 1440) << "but its size and date are written";

  size = -1;
  date = -1;
  EXPECT_FALSE(mFileUtils::FileExists(P(u"missing.txt"), size, date));
  EXPECT_FALSE(mFileUtils::FileExists(u"", size, date));
  EXPECT_EQ(size, -1.0) << "nothing found, nothing written";
  EXPECT_EQ(date, -1.0);
  EXPECT_TRUE(mFileUtils::FileExists(P(u"f*.txt"))) << "a wildcard tests the first match";
  EXPECT_FALSE(mFileUtils::FileExists(P(u"nofolder\\five.txt")));

  // Names are taken as they are: a trailing dot or blank belongs to the name. (The files are
  // made through the marked path, which Windows too takes as it stands.)
  for (const char16_t* name : {u"a.", u"b ", u"c"}) {
    ASSERT_TRUE(os::CreateFileW(mFileUtils::LongPath(P(name)).c_str(), os::kGenericWrite, 0,
                                os::kCreateNew, 0))
        << base::Narrow(name);
  }
  // Only a "/"-rooted path is sure to take "c." as it stands: Windows' search through the
  // marked path varies (Wine finds "c").
  const bool posix_path = P(u"c").starts_with(u"/");
  struct Row {
    const char16_t* name;
    bool exists;
    bool posix_only;
  } rows[] = {{u"a.", true, false},
              {u"b ", true, false},
              {u"a", false, false},
              {u"b", false, false},
              {u"c.", false, true}};
  for (const Row& row : rows) {
    if (row.posix_only && !posix_path) continue;
    EXPECT_EQ(mFileUtils::FileExists(P(row.name)), row.exists) << base::Narrow(row.name);
    EXPECT_EQ(mFileUtils::FindFile(P(row.name), 0), row.exists ? row.name : u"")
        << base::Narrow(row.name);
  }
  // KillFile takes them as they are too (and Windows' own clean-up of the folder could not).
  for (const char16_t* name : {u"a.", u"b ", u"c"}) {
    EXPECT_TRUE(mFileUtils::KillFile(P(name), 0)) << base::Narrow(name);
    EXPECT_FALSE(mFileUtils::FileExists(P(name))) << base::Narrow(name);
  }
}

TEST_F(FileUtils, Attributes) {
  dir.Write(u"f.txt", "x");
  EXPECT_EQ(mFileUtils::ReadAttributes(P(u"f.txt")), os::kAttributeArchive);
  mFileUtils::WriteAttributes(P(u"f.txt"), os::kAttributeReadOnly);
  EXPECT_EQ(mFileUtils::ReadAttributes(P(u"f.txt")),
            os::kAttributeArchive | os::kAttributeReadOnly);
  mFileUtils::WriteAttributes(P(u"f.txt"), 0);
  EXPECT_EQ(mFileUtils::ReadAttributes(P(u"f.txt")), os::kAttributeArchive);
  try {
    mFileUtils::ReadAttributes(P(u"missing.txt"));
    ADD_FAILURE() << "a missing file raises";
  } catch (const base::RuntimeError& e) {
    EXPECT_EQ(e.Number(), 2);
    EXPECT_EQ(e.Description(), mFileUtils::SystemErrorText(2));
  }
  try {
    mFileUtils::WriteAttributes(P(u"nofolder\\x"), 0);
    ADD_FAILURE() << "a missing folder raises";
  } catch (const base::RuntimeError& e) {
    EXPECT_EQ(e.Number(), 3);
  }
}

TEST_F(FileUtils, SystemErrorText) {
  for (std::uint32_t error : {0u, 2u, 3u, 5u, 32u, 183u}) {
    std::u16string text = mFileUtils::SystemErrorText(error);
    ASSERT_GT(text.size(), 2u) << error;
    EXPECT_EQ(text.substr(text.size() - 2), u"\r\n") << error;
  }
  EXPECT_EQ(mFileUtils::SystemErrorText(0xDEADu), u"");
}

TEST_F(FileUtils, KillFile) {
  dir.Write(u".hidden", "x");
  dir.Write(u".hidden-read-only", "x");
  dir.Write(u"read-only", "x");
  MakeReadOnly(u".hidden-read-only");
  MakeReadOnly(u"read-only");
  struct Row {
    std::u16string name;
    std::int16_t retries;
    bool result;
    bool logged;
  } rows[] = {
      {u".hidden", 20, true, false},           {u".hidden-read-only", 20, true, false},
      {u"read-only", 0, true, false},          {u"missing", 20, true, false},
      {u"nofolder\\missing", 20, true, false}, {u"missing", 0, false, true},
      {u"missing", -1, false, true},
  };
  for (const Row& row : rows) {
    log.clear();
    EXPECT_EQ(mFileUtils::KillFile(P(row.name), row.retries), row.result)
        << base::Narrow(row.name) << " " << row.retries;
    EXPECT_EQ(log.size(), row.logged ? 1u : 0u) << base::Narrow(row.name) << " " << row.retries;
    EXPECT_FALSE(dir.Exists(row.name));
  }
  // The line names the error of the attempt before the last: none, with a single attempt.
  EXPECT_EQ(log.back(), u"Erreur 0 dans KillFile : " + mFileUtils::SystemErrorText(0));
}

TEST_F(FileUtils, KillFileRetriesWhileTheSystemRefuses) {
  dir.Write(u"busy", "x");
  // Two refusals and a retry count of 2: the third attempt deletes it.
  os::fault::Arm(os::fault::Op::kDeleteFile, os::kErrorSharingViolation, 1, 2);
  EXPECT_TRUE(mFileUtils::KillFile(P(u"busy"), 2));
  EXPECT_FALSE(dir.Exists(u"busy"));
  EXPECT_TRUE(log.empty());
  // Three refusals: all three attempts are used up.
  dir.Write(u"busy", "x");
  os::fault::Arm(os::fault::Op::kDeleteFile, os::kErrorSharingViolation, 1, 3);
  EXPECT_FALSE(mFileUtils::KillFile(P(u"busy"), 2));
  EXPECT_TRUE(dir.Exists(u"busy"));
  ASSERT_EQ(log.size(), 1u);
  EXPECT_EQ(log[0], u"Erreur 32 dans KillFile : " + mFileUtils::SystemErrorText(32));
}

TEST_F(FileUtils, KillFileOfAFileHeldOpenGivesUpAfter21Attempts) {
  // Another program's handle refuses every delete.
  dir.Write(u"held", "x");
  os::fault::Arm(os::fault::Op::kDeleteFile, os::kErrorSharingViolation, 1, 0);
  auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(mFileUtils::KillFile(P(u"held"), 20));
  auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_TRUE(dir.Exists(u"held"));
  // Twenty waits of 200 ms between the 21 attempts.
  EXPECT_GE(waited, std::chrono::milliseconds(3800));
  ASSERT_EQ(log.size(), 1u);
  EXPECT_EQ(log[0], u"Erreur 32 dans KillFile : " + mFileUtils::SystemErrorText(32));
}

TEST_F(FileUtils, FindFileListsOneNamePerCall) {
  dir.Write(u"a.txt", "x");
  dir.Write(u"b.txt", "x");
  dir.Write(u".h.txt", "x");
  dir.Write(u"c.dat", "x");
  fs::create_directory(fs::path(P(u"sub")));
  auto all = [](std::u16string first) {
    std::set<std::string> names;
    for (std::u16string name = first; !name.empty(); name = mFileUtils::FindFile(u"", 0)) {
      names.insert(base::Narrow(name));
    }
    return names;
  };
  using S = std::set<std::string>;
  struct Row {
    std::u16string pattern;
    std::uint32_t filter;
    S names;
  } rows[] = {
      {u"*", 0, {"a.txt", "b.txt", "c.dat"}},
      {u"*.txt", 0, {"a.txt", "b.txt"}},
      {u"*.txt", os::kAttributeHidden, {".h.txt", "a.txt", "b.txt"}},
      {u"*", os::kAttributeDirectory, {".", "..", "a.txt", "b.txt", "c.dat", "sub"}},
      {u"*",
       os::kAttributeDirectory | os::kAttributeHidden,
       {".", "..", ".h.txt", "a.txt", "b.txt", "c.dat", "sub"}},
      {u"s*", 0, {}},
      {u"nothing*", 0, {}},
  };
  for (const Row& row : rows) {
    // The continuation calls keep the first call's filter whatever they pass.
    std::set<std::string> names;
    for (std::u16string name = mFileUtils::FindFile(P(row.pattern), row.filter); !name.empty();
         name = mFileUtils::FindFile(u"", 0)) {
      names.insert(base::Narrow(name));
    }
    EXPECT_EQ(names, row.names) << base::Narrow(row.pattern) << " " << row.filter;
    EXPECT_EQ(mFileUtils::FindFile(u"", 0), u"") << "the search stays closed";
  }
  // A new pattern closes the search in progress.
  EXPECT_FALSE(mFileUtils::FindFile(P(u"*.txt"), 0).empty());
  EXPECT_EQ(all(mFileUtils::FindFile(P(u"*.dat"), 0)), S{"c.dat"});
  // Filter 8: the volume label instead of a listing.
  std::u16string label = u"unset", fs_name, vendor, product, revision, serial_number;
  std::uint32_t serial = 0;
  mRemoveUsbDrive::GetDriveInfo(u"Z", label, serial, fs_name, vendor, product, revision,
                                serial_number, true);
  EXPECT_EQ(mFileUtils::FindFile(u"Z:\\*", os::kAttributeVolumeLabel), label);
  EXPECT_EQ(mFileUtils::FindFile(u"", 0), u"") << "no search was opened";
}

TEST_F(FileUtils, MoveFileToAndCreateFolder) {
  dir.Write(u"from", "data");
  dir.Write(u"taken", "other");
  EXPECT_FALSE(mFileUtils::MoveFileTo(P(u"from"), P(u"taken")));
  EXPECT_EQ(dir.Read(u"taken"), "other");
  EXPECT_TRUE(mFileUtils::MoveFileTo(P(u"from"), P(u"to")));
  EXPECT_EQ(dir.Read(u"to"), "data");
  EXPECT_FALSE(dir.Exists(u"from"));

  EXPECT_TRUE(mFileUtils::CreateFolder(P(u"a\\b\\c")));
  EXPECT_TRUE(fs::is_directory(fs::path(P(u"a/b/c"))));
  EXPECT_TRUE(mFileUtils::CreateFolder(P(u"a\\b\\c\\")));
  EXPECT_TRUE(mFileUtils::CreateFolder(P(u"a/b/d")));
  EXPECT_TRUE(mFileUtils::CreateFolder(mFileUtils::LongPath(P(u"long\\one"))));
  EXPECT_TRUE(fs::is_directory(fs::path(P(u"long/one"))));
  EXPECT_FALSE(mFileUtils::CreateFolder(P(u"to\\sub"))) << "a file stands in the way";
  EXPECT_FALSE(mFileUtils::CreateFolder(u""));
  os::fault::Arm(os::fault::Op::kCreateFolder, os::kErrorAccessDenied, 1, 0);
  EXPECT_FALSE(mFileUtils::CreateFolder(P(u"x\\y")));
  EXPECT_FALSE(dir.Exists(u"x"));
  EXPECT_TRUE(mFileUtils::CreateFolder(P(u"a\\b"))) << "an existing folder needs no creation";
}

}  // namespace
