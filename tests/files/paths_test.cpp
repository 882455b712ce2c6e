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

TEST(Paths, GetFullPath) {
  // Full path names of these shapes are made from the text alone, so both builds agree.
  struct Row {
    std::u16string path, base, full;
  } rows[] = {
      // clang-format off
      {u"..\\..\\..\\X", u"C:\\A", u"C:\\X"}, {u"x/y", u"C:/base", u"C:\\base\\x\\y"},
      {u"C:\\A\\.\\B\\", u"", u"C:\\A\\B\\"}, {u"C:/A//B", u"", u"C:\\A\\B"},
      {u"C:\\A\\b. ", u"", u"C:\\A\\b"}, {u"C:\\A..\\b", u"", u"C:\\A.\\b"},
      {u"C:\\A\\..", u"", u"C:\\"}, {u"Q:foo", u"", u"Q:\\foo"},
      {u"\\\\server\\share\\a\\..\\b", u"C:\\base", u"\\\\server\\share\\b"},
      {u"\\\\server\\share\\..\\x", u"", u"\\\\server\\share\\x"},
      {u"\\\\?\\C:\\a\\..\\b", u"C:\\base", u"\\\\?\\C:\\b"},
      {u"\\\\?\\UNC\\s\\sh\\..\\x", u"", u"\\\\?\\UNC\\s\\x"}, {u"", u"C:\\base", u""},
      {u"C:\\" + std::u16string(300, u'a'), u"", u""},  // longer than the 260-character buffer
      // clang-format on
  };
  for (const Row& row : rows) {
    EXPECT_EQ(Show(mGlobal::GetFullPath(row.path, row.base)), Show(row.full))
        << Show(row.path) << " with base " << Show(row.base);
  }
  // Relative to a real folder and to the current one.
  testing_support::TempDir dir;
  const std::u16string sep(1, std::filesystem::path::preferred_separator);
  EXPECT_EQ(Show(mGlobal::GetFullPath(
                u"sub\\..\\..\\" + dir.path().filename().u16string() + u"\\f.txt", dir.u16())),
            Show(dir.u16() + sep + u"f.txt"));
  std::u16string cwd = std::filesystem::current_path().u16string();
  if (cwd.back() != sep[0]) cwd += sep;
  EXPECT_EQ(Show(mGlobal::GetFullPath(u"rel.txt")), Show(cwd + u"rel.txt"));
}

TEST(Paths, PartsAndMarks) {
  struct Row {
    std::u16string path, folder, name, extension;
  } rows[] = {
      // clang-format off
      {u"C:\\A/b.txt", u"C:/A", u"b.txt", u"txt"}, {u"b.txt", u"b.txt", u"b.txt", u"txt"},
      {u"/tmp/x.tar.gz", u"/tmp", u"x.tar.gz", u"gz"}, {u"C:\\A.B\\file", u"C:\\A.B", u"file", u""},
      {u"C:\\A\\name.", u"C:\\A", u"name.", u""},
      {u"C:\\A\\File.XML", u"C:\\A", u"File.XML", u"XML"}, {u"C:\\A\\", u"C:\\A", u"", u""},
      {u"", u"", u"", u""},
      // clang-format on
  };
  for (const Row& row : rows) {
    EXPECT_EQ(Show(mGlobal::FilePathOnly(row.path)), Show(row.folder)) << Show(row.path);
    EXPECT_EQ(Show(mFileUtils::FileNameOnly(row.path)), Show(row.name)) << Show(row.path);
    EXPECT_EQ(Show(mFileUtils::FileExtention(row.path)), Show(row.extension)) << Show(row.path);
  }
  // Only a drive path is marked.
  using Pairs = std::vector<std::pair<std::u16string, std::u16string>>;
  // clang-format off
  const Pairs marks = {{u"C:x", u"\\\\?\\C:x"}, {u"\\\\server\\s\\x", u"\\\\server\\s\\x"},
      {u"\\\\?\\C:\\x", u"\\\\?\\C:\\x"}, {u"rel\\x", u"rel\\x"}, {u"/tmp/x", u"/tmp/x"},
      {u"", u""}};
  // clang-format on
  for (const auto& [path, marked] : marks)
    EXPECT_EQ(mFileUtils::LongPath(path), marked) << Show(path);
}

// The companions' path rules: under by whole components, parents and roots, both separators.
TEST(Paths, UnderWholeComponentsParentsAndRoots) {
  struct Row {
    const char16_t *path, *folder;
    bool ignore_case, under;
  } under[] = {
      // clang-format off
      {u"E:\\Suite\\App\\app.exe", u"E:\\", true, true},
      {u"e:\\suite\\app.exe", u"E:\\Suite", true, true},
      {u"e:\\suite\\app.exe", u"E:\\Suite", false, false},
      {u"E:\\Suite", u"E:\\Suite\\", true, true},
      {u"E:\\Suite2\\app.exe", u"E:\\Suite", true, false},
      {u"D:\\Suite\\app.exe", u"E:\\", true, false},
      {u"/media/u/STICK/app", u"/media/u/STICK/", false, true}, {u"/usr/bin/x", u"/", false, true},
      {u"/media/u/STICK2/app", u"/media/u/STICK", false, false}, {u"/x", u"", false, false},
      {u"/media/u/STICK/app", u"\\media\\u\\STICK", false, true},
      {u"relative/x", u"/", false, false},
      // clang-format on
  };
  for (const auto& row : under)
    EXPECT_EQ(sys::PathIsUnder(row.path, row.folder, row.ignore_case), row.under)
        << base::Narrow(row.path) << " under " << base::Narrow(row.folder);
  struct Parent {
    const char16_t *path, *parent;
    bool root;
  } parents[] = {
      // clang-format off
      {u"E:\\Suite\\TvAppsClose\\", u"E:\\Suite", false}, {u"z:\\app.exe", u"z:\\", false},
      {u"a:", u"", true}, {u"1:", u"", false}, {u"E:\\", u"", true}, {u"/app", u"/", false},
      {u"//", u"/", true}, {u"/media/stick/TvAppsClose/x", u"/media/stick/TvAppsClose", false},
      {u"app.exe", u"", false}, {u"\\\\server\\share\\", u"\\\\server", true},
      {u"\\\\server\\share\\dir", u"\\\\server\\share", false}, {u"", u"", false},
      // clang-format on
  };
  for (const auto& row : parents) {
    EXPECT_EQ(sys::ParentFolder(row.path), row.parent) << base::Narrow(row.path);
    EXPECT_EQ(sys::IsRootPath(row.path), row.root) << base::Narrow(row.path);
  }
}

}  // namespace
