#include "files/file_utils.h"

#include <gtest/gtest.h>

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
  testing_support::LogCapture log;

  std::u16string P(std::u16string_view name) const { return dir.u16(name); }
};

TEST_F(FileUtils, FileExistsAndAttributes) {
  dir.Write(u"five.txt", "12345");
  fs::create_directory(fs::path(P(u"folder")));
  // Dates count days since 30 December 1899, in UTC here.
  const base::Date now = std::time(nullptr) / 86400.0 + 25569;
  // Sizes past 4 GiB take the high word (a sparse file: no space is used).
  std::filesystem::resize_file(fs::path(dir.Write(u"big", "")), 4294967301u);
  // A folder is no file, but its size and date are written; nothing found writes nothing.
  struct Row {
    const char16_t* name;
    bool exists;
    double size;
  } rows[] = {{u"five.txt", true, 5},  {u"big", true, 4294967301.0},
              {u"f*.txt", true, 5},    {u"folder", false, 0},
              {u"missing", false, -1}, {u"nofolder\\five.txt", false, -1}};
  for (const Row& row : rows) {
    double size = -1;
    base::Date date = -1;
    EXPECT_EQ(mFileUtils::FileExists(P(row.name), size, date), row.exists);
    EXPECT_EQ(size, row.size) << base::Narrow(row.name);
    EXPECT_NEAR(date, row.size >= 0 ? now : -1, 5.0 / 1440) << "written now, in UTC";
  }
  EXPECT_FALSE(mFileUtils::FileExists(u""));

  mFileUtils::WriteAttributes(P(u"five.txt"), os::kAttributeReadOnly);
  EXPECT_EQ(mFileUtils::ReadAttributes(P(u"five.txt")),
            os::kAttributeArchive | os::kAttributeReadOnly);
  // A failure raises the system's error with its text.
  for (auto [name, error] : {std::pair{u"missing.txt", 2}, {u"nofolder\\x", 3}}) {
    base::Trap(base::InSub(u"t"), [&] { mFileUtils::WriteAttributes(P(name), 0); });
    base::Trap(base::InSub(u"t"), [&] { mFileUtils::ReadAttributes(P(name)); });
    const std::u16string line = u"Error " + base::ToText(error) + u" (" +
                                mFileUtils::SystemErrorText(error) + u") in Sub t";
    EXPECT_EQ(log.lines, (std::vector{line, line}));
    log.lines.clear();
  }
  EXPECT_TRUE(mFileUtils::SystemErrorText(32).ends_with(u"\r\n"));
  EXPECT_EQ(mFileUtils::SystemErrorText(0xDEADu), u"");
}

// Names are taken as they are: a trailing dot or blank belongs to the name. (The files are made
// through the marked path, which Windows too takes as it stands.)
TEST_F(FileUtils, NamesAreTakenAsTheyAre) {
  for (auto [name, exists] :
       {std::pair{u"a.", true}, {u"b ", true}, {u"a", false}, {u"b", false}}) {
    SCOPED_TRACE(base::Narrow(name));
    ASSERT_TRUE(!exists || os::CreateFileW(mFileUtils::LongPath(P(name)).c_str(), os::kGenericWrite,
                                           0, os::kCreateNew, 0));
    EXPECT_EQ(mFileUtils::FileExists(P(name)), exists);
    EXPECT_EQ(mFileUtils::FindFile(P(name), 0), exists ? name : u"");
    EXPECT_EQ(mFileUtils::KillFile(P(name), 0), exists);
    EXPECT_FALSE(mFileUtils::FileExists(P(name)));
  }
}

// Deletion clears hidden and read-only first and tries again while the system refuses: at most
// retries + 1 attempts. The line logged names the error of the attempt before the last.
TEST_F(FileUtils, KillFile) {
  struct Row {
    const char16_t* name;  // "missing..." names no file
    std::uint32_t attributes;
    std::int16_t retries;
    int refusals;
    bool result;
    int logged;  // the error in the log line, -1: none
  } rows[] = {
      // clang-format off
      {u".h", os::kAttributeHidden | os::kAttributeReadOnly, 20, 0, true, -1},
      {u"r", os::kAttributeReadOnly, 0, 0, true, -1}, {u"missing", 0, 20, 0, true, -1},
      {u"missing\\x", 0, 20, 0, true, -1}, {u"missing", 0, 0, 0, false, 0},
      {u"missing", 0, -1, 0, false, 0}, {u"busy", 0, 2, 2, true, -1}, {u"held", 0, 2, 3, false, 32},
      // clang-format on
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(base::Narrow(row.name) + " " + std::to_string(row.retries));
    log.lines.clear();
    if (!std::u16string_view(row.name).starts_with(u"missing")) {
      dir.Write(row.name, "x");
      mFileUtils::WriteAttributes(P(row.name), row.attributes);
    }
    if (row.refusals)
      os::fault::Arm(os::fault::Op::kDeleteFile, os::kErrorSharingViolation, 1, row.refusals);
    EXPECT_EQ(mFileUtils::KillFile(P(row.name), row.retries), row.result);
    EXPECT_EQ(dir.Exists(row.name), row.refusals > 0 && !row.result);
    const std::u16string line = u"Erreur " + base::ToText(row.logged) + u" dans KillFile : " +
                                mFileUtils::SystemErrorText(row.logged);
    EXPECT_EQ(log.lines, row.logged < 0 ? std::vector<std::u16string>{} : std::vector{line});
  }
}

TEST_F(FileUtils, FindFileListsOneNamePerCall) {
  for (const char16_t* name : {u"a.txt", u"b.txt", u".h.txt", u"c.dat"}) dir.Write(name, "x");
  mFileUtils::WriteAttributes(P(u".h.txt"), os::kAttributeHidden);
  fs::create_directory(fs::path(P(u"sub")));
  using S = std::set<std::string>;
  struct Row {
    std::u16string pattern;
    std::uint32_t filter;
    S names;
  } rows[] = {
      // clang-format off
      {u"*", 0, {"a.txt", "b.txt", "c.dat"}}, {u"s*", 0, {}}, {u"nothing*", 0, {}},
      {u"*.txt", os::kAttributeHidden, {".h.txt", "a.txt", "b.txt"}},
      {u"*", os::kAttributeDirectory, {".", "..", "a.txt", "b.txt", "c.dat", "sub"}},
      // clang-format on
  };
  for (const Row& row : rows) {
    // The continuation calls keep the first call's filter whatever they pass.
    S names;
    for (std::u16string name = mFileUtils::FindFile(P(row.pattern), row.filter); !name.empty();
         name = mFileUtils::FindFile(u"", 0))
      names.insert(base::Narrow(name));
    EXPECT_EQ(names, row.names) << base::Narrow(row.pattern) << " " << row.filter;
    EXPECT_EQ(mFileUtils::FindFile(u"", 0), u"") << "the search stays closed";
  }
  // A new pattern closes the search in progress.
  EXPECT_FALSE(mFileUtils::FindFile(P(u"*.txt"), 0).empty());
  EXPECT_EQ(mFileUtils::FindFile(P(u"*.dat"), 0), u"c.dat");
  EXPECT_EQ(mFileUtils::FindFile(u"", 0), u"");
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

  // The drive form of the folder's path ("Z:" is "/" on Linux), marked or not.
  const std::u16string drive = dir.u16().starts_with(u"/") ? u"Z:" + dir.u16() : dir.u16();
  for (auto [path, made] : {std::pair{P(u"a\\b\\c\\"), u"a/b/c"},
                            {P(u"a/b/d"), u"a/b/d"},
                            {P(u"a\\b"), u"a/b"},
                            {drive + u"/z/y", u"z/y"},
                            {mFileUtils::LongPath(drive + u"\\long\\one"), u"long/one"}}) {
    EXPECT_TRUE(mFileUtils::CreateFolder(path)) << base::Narrow(path);
    EXPECT_TRUE(fs::is_directory(fs::path(P(made)))) << base::Narrow(path);
  }
  EXPECT_FALSE(mFileUtils::CreateFolder(P(u"to\\sub"))) << "a file stands in the way";
  EXPECT_FALSE(mFileUtils::CreateFolder(u""));
  os::fault::Arm(os::fault::Op::kCreateFolder, os::kErrorAccessDenied, 1, 0);
  EXPECT_FALSE(mFileUtils::CreateFolder(P(u"x\\y")));
  EXPECT_FALSE(dir.Exists(u"x"));
}

}  // namespace
