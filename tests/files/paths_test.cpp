#include "files/paths.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "base/text.h"
#include "support/temp_dir.h"

namespace {

std::string Show(const std::u16string& s) {
  return base::Narrow(s);
}

TEST(Paths, GetFullPathOfDriveNetworkAndLongPaths) {
  // Full path names of these shapes are made from the text alone, so both builds agree.
  struct Row {
    std::u16string path, base, full;
  } rows[] = {
      {u"C:\\A\\..\\B", u"", u"C:\\B"},
      {u"..\\X", u"C:\\A", u"C:\\X"},
      {u"..\\..\\..\\X", u"C:\\A", u"C:\\X"},
      {u"x\\y", u"C:\\base", u"C:\\base\\x\\y"},
      {u"x/y", u"C:/base", u"C:\\base\\x\\y"},
      {u"C:\\A\\.\\B\\", u"", u"C:\\A\\B\\"},
      {u"C:/A//B", u"", u"C:\\A\\B"},
      {u"C:\\A\\b. ", u"", u"C:\\A\\b"},
      {u"C:\\A.\\b", u"", u"C:\\A\\b"},
      {u"C:\\A..\\b", u"", u"C:\\A.\\b"},
      {u"C:\\A\\.", u"", u"C:\\A"},
      {u"C:\\A\\..", u"", u"C:\\"},
      {u"C:\\..\\..\\x", u"", u"C:\\x"},
      {u"c:\\Mixed\\Case", u"", u"c:\\Mixed\\Case"},
      {u"Q:", u"", u"Q:\\"},
      {u"Q:foo", u"", u"Q:\\foo"},
      {u"\\\\server\\share\\a\\..\\b", u"C:\\base", u"\\\\server\\share\\b"},
      {u"\\\\server\\share\\..\\x", u"", u"\\\\server\\share\\x"},
      {u"\\\\server\\share", u"", u"\\\\server\\share"},
      {u"\\\\?\\C:\\a\\..\\b", u"C:\\base", u"\\\\?\\C:\\b"},
      {u"\\\\?\\UNC\\s\\sh\\..\\x", u"", u"\\\\?\\UNC\\s\\x"},
      {u"", u"C:\\base", u""},
      {u"C:\\" + std::u16string(300, u'a'), u"", u""},  // longer than the 260-character buffer
  };
  for (const Row& row : rows) {
    EXPECT_EQ(Show(mGlobal::GetFullPath(row.path, row.base)), Show(row.full))
        << Show(row.path) << " with base " << Show(row.base);
  }
}

TEST(Paths, GetFullPathOfRelativePaths) {
  testing_support::TempDir dir;
  const std::u16string sep(1, std::filesystem::path::preferred_separator);
  const std::u16string tmp = dir.u16();
  EXPECT_EQ(Show(mGlobal::GetFullPath(u"..\\X", tmp + sep + u"A")), Show(tmp + sep + u"X"));
  EXPECT_EQ(Show(mGlobal::GetFullPath(u"sub\\.\\f.txt", tmp)),
            Show(tmp + sep + u"sub" + sep + u"f.txt"));
  EXPECT_EQ(Show(mGlobal::GetFullPath(
                u"sub\\..\\..\\" + dir.path().filename().u16string() + u"\\f.txt", tmp)),
            Show(tmp + sep + u"f.txt"));
  std::u16string cwd = std::filesystem::current_path().u16string();
  if (cwd.back() != sep[0]) cwd += sep;
  EXPECT_EQ(Show(mGlobal::GetFullPath(u"rel.txt")), Show(cwd + u"rel.txt"));
}

TEST(Paths, NameParts) {
  struct Row {
    std::u16string path, folder, name, extension;
  } rows[] = {
      {u"C:\\A\\b.txt", u"C:\\A", u"b.txt", u"txt"},
      {u"C:\\A/b.txt", u"C:/A", u"b.txt", u"txt"},
      {u"C:/A/b.txt", u"C:/A", u"b.txt", u"txt"},
      {u"b.txt", u"b.txt", u"b.txt", u"txt"},
      {u"/tmp/x.tar.gz", u"/tmp", u"x.tar.gz", u"gz"},
      {u"C:\\A.B\\file", u"C:\\A.B", u"file", u""},
      {u"C:/A.B/file", u"C:/A.B", u"file", u""},
      {u"C:\\A\\name.", u"C:\\A", u"name.", u""},
      {u"C:\\A\\File.XML", u"C:\\A", u"File.XML", u"XML"},
      {u"C:\\A\\", u"C:\\A", u"", u""},
      {u"", u"", u"", u""},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(Show(mGlobal::FilePathOnly(row.path)), Show(row.folder)) << Show(row.path);
    EXPECT_EQ(Show(mFileUtils::FileNameOnly(row.path)), Show(row.name)) << Show(row.path);
    EXPECT_EQ(Show(mFileUtils::FileExtention(row.path)), Show(row.extension)) << Show(row.path);
  }
}

TEST(Paths, LongPathMarksDrivePathsOnly) {
  EXPECT_EQ(mFileUtils::LongPath(u"C:\\x"), u"\\\\?\\C:\\x");
  EXPECT_EQ(mFileUtils::LongPath(u"C:x"), u"\\\\?\\C:x");
  EXPECT_EQ(mFileUtils::LongPath(u"\\\\server\\share\\x"), u"\\\\server\\share\\x");
  EXPECT_EQ(mFileUtils::LongPath(u"\\\\?\\C:\\x"), u"\\\\?\\C:\\x");
  EXPECT_EQ(mFileUtils::LongPath(u"relative\\x"), u"relative\\x");
  EXPECT_EQ(mFileUtils::LongPath(u"/tmp/x"), u"/tmp/x");
  EXPECT_EQ(mFileUtils::LongPath(u""), u"");
}

}  // namespace
