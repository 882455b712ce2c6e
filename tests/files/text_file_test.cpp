#include "files/text_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "base/text.h"
#include "os/fault.h"
#include "os/files.h"
#include "os/process.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

using mStringTools::SaveFile;
using testing_support::LogCapture;
using testing_support::TempDir;
using Names = std::vector<std::string>;

Names Listing(const TempDir& dir) {
  Names names;
  for (const auto& e : std::filesystem::directory_iterator(dir.path()))
    names.push_back(e.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

// Saves as the configuration does: UTF-8 without a mark, only a safety copy.
bool SaveUtf8(const std::u16string& path, const std::u16string& text) {
  return SaveFile(path, text, true, 2, false, 1252, 0, false, u"", 0, 5);
}

base::Date Today() {
  os::SystemTime t = os::GetLocalTime();
  return base::MakeDate(t.year, t.month, t.day, t.hour, t.minute, t.second);
}

// Text is written in the encoding asked for, never guessed; raw byte strings travel whole (an
// odd count, a lone high byte, a UTF-16 mark left as bytes) unless they are said to be text.
TEST(SaveFile, WritesTheExactBytes) {
  const std::string utf16_ab("\xFF\xFE\x61\0b", 5);
  struct Row {
    std::u16string text;
    std::string raw;  // saved instead of text when not empty
    bool is_text;
    std::int32_t encoding;
    bool with_bom;
    std::string bytes;
  } rows[] = {
      // clang-format off
      {u"caf\u00E9", "", true, 2, false, "caf\xC3\xA9"},
      {u"a", "", true, 2, true, "\xEF\xBB\xBF" "a"},
      {u"\u0416", "", true, 1, true, std::string("\xFF\xFE\x16\x04", 4)},
      {u"\u00E9\u20AC", "", true, 3, true, "\xE9\x80"},  // code page 1252, never a mark
      {u"\u041F\u0440\u0438", "", true, 2, false, "\xD0\x9F\xD1\x80\xD0\xB8"},
      {u"", "\x80", false, 2, false, "\x80"}, {u"", utf16_ab, false, 1, false, utf16_ab},
      {u"", "caf\xE9", true, 2, false, "caf\xC3\xA9"},  // as text: decoded as a file's bytes are
      {u"", "ab", true, 1, false, std::string("a\0b\0", 4)}, {u"", "abc", false, 0, false, "abc"},
      {u"", "abc", true, 0, false, "abc"},  // text with no encoding asked for: left as it is
      // clang-format on
  };
  for (const auto& row : rows) {
    TempDir dir;
    const std::u16string path = dir.u16(u"f.xml");
    ASSERT_TRUE(row.raw.empty() ? SaveFile(path, row.text, row.is_text, row.encoding, row.with_bom,
                                           1252, 0, false, u"", 0, 0)
                                : SaveFile(path, row.raw, row.is_text, row.encoding, row.with_bom,
                                           1252, 0, false, u"", 0, 0));
    EXPECT_EQ(dir.Read(u"f.xml"), row.bytes) << "encoding " << row.encoding;
    EXPECT_EQ(mGlobal::LoadTextFile(path, mGlobal::kRaw), row.bytes);
  }
}

TEST(SaveFile, AppendsReplacesAndKeepsBackups) {
  TempDir dir;
  const std::u16string path = dir.u16(u"sub\\deeper\\f.txt");
  ASSERT_TRUE(SaveUtf8(path, u"one"));
  ASSERT_TRUE(SaveFile(path, u"+two", true, 2, false, 1252, 0, true, u"", 0, 0));
  EXPECT_EQ(dir.Read(u"sub/deeper/f.txt"), "one+two");
  ASSERT_TRUE(SaveUtf8(path, u"three"));
  EXPECT_EQ(dir.Read(u"sub/deeper/f.txt"), "three");
  EXPECT_EQ(Listing(dir), Names{"sub"}) << "the safety copy is gone once the content is safe";
  EXPECT_FALSE(dir.Exists(u"sub/deeper/f.txt.001.tmp"));

  // Numbered backups rotate, beside the file or in a folder of their own.
  const std::u16string s = dir.u16(u"s.xml");
  for (const char16_t* v : {u"v1", u"v2", u"v3", u"v4"})
    ASSERT_TRUE(SaveFile(s, v, true, 2, false, 1252, 2, false, u"", 0, 0));
  EXPECT_EQ(dir.Read(u"s.xml") + dir.Read(u"s.xml.001.bak") + dir.Read(u"s.xml.002.bak"), "v4v2v3");
  EXPECT_FALSE(dir.Exists(u"s.xml.003.bak"));
  ASSERT_TRUE(SaveFile(s, u"v5", true, 2, false, 1252, 3, false, u"old", 0, 0));
  EXPECT_EQ(dir.Read(u"old/s.xml.001.bak"), "v4");
  dir.Write(u"taken", "a file where the backups' folder should be");
  EXPECT_FALSE(SaveFile(s, u"v6", true, 2, false, 1252, 3, false, u"taken", 0, 0));
  EXPECT_EQ(dir.Read(u"s.xml"), "v5");
}

TEST(SaveFile, DatedBackupsAtMostOnePerPeriodAndExpire) {
  TempDir dir;
  const std::u16string path = dir.u16(u"s.xml");
  dir.Write(u"s_" + base::FormatDate(Today() - 9, u"yyyy-mm-dd_hh-nn-ss") + u".xml", "ancient");
  dir.Write(u"s.xml", "v1");
  ASSERT_TRUE(SaveFile(path, u"v2", true, 2, false, 1252, 0, false, u"", 1, 60));
  ASSERT_TRUE(SaveFile(path, u"v3", true, 2, false, 1252, 0, false, u"", 1, 60));
  const Names names = Listing(dir);
  ASSERT_EQ(names.size(), 2u) << "one dated backup and the file";
  EXPECT_EQ(names[0], "s.xml");
  EXPECT_EQ(dir.Read(base::Widen(names[1])), "v1");
  EXPECT_EQ(dir.Read(u"s.xml"), "v3");
}

// Each operation the saver depends on fails in turn (now and then a second one with it): the
// result, the log and the previous content under the file's name (or in its backup) are checked.
TEST(SaveFile, EveryFailureKeepsThePreviousContent) {
  using os::fault::Op;
  struct Row {
    Op op;
    int nth;
    std::int32_t backups;  // numbered backups, 0 for the safety copy
    std::u16string line;
    const char16_t* where_old = u"f.txt";  // where the previous content is afterwards
    int times = 1;                         // 0: every call from the nth on
    Op also = Op::kCount;                  // a second operation that fails, at its also_nth call
    int also_nth = 1;
  } rows[] = {
      // clang-format off
      // The folder cannot be listed, so an interrupted save's copy could stand unseen beside the
      // file: nothing is touched.
      {Op::kFindFile, 1, 0, u"Error while restoring an interrupted save: ", u"f.txt", 0},
      // The look for the old file fails, so nothing is set aside and the file is still there
      // when it is opened: writing over it in place would leave its tail behind.
      {Op::kFindFile, 2, 0, u"Error while saving file, the previous file was not set aside: "},
      {Op::kMoveFile, 1, 0, u"Error while moving file: "},
      {Op::kMoveFile, 1, 2, u"Error while moving file : "},
      {Op::kOpenFile, 1, 0, u"Original file restored from automatic backup"},
      {Op::kWrite, 1, 0, u"Error WriteFile 5 : "}, {Op::kShortWrite, 1, 0, u"Error WriteFile "},
      {Op::kFlush, 1, 0, u"Error WriteFile 5 : "}, {Op::kFlush, 2, 0, u"Error WriteFile 5 : "},
      {Op::kWrite, 1, 2, u"Original file restored from backup"},
      {Op::kMoveFile, 2, 0, u"Error while trying to restore the original file: ", u"f.txt.001.tmp",
       1, Op::kWrite},
      {Op::kAlloc, 1, 0, u"Error while trying to restore the original file: ", u"f.txt.001.tmp"},
      // The new content is whole, but its safety copy can be neither deleted (all 21 attempts)
      // nor marked stale: the next load would put the copy back, so the save has not completed.
      {Op::kDeleteFile, 1, 0, u"Error while marking file automatic backup as stale: ", u"f.txt",
       21, Op::kOpenFile, 2},
      // clang-format on
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(base::Narrow(row.line));
    TempDir dir;
    dir.Write(u"f.txt", "previous text");
    LogCapture log;
    bool saved;
    {
      os::fault::Scope faults;
      os::fault::Arm(row.op, os::kErrorAccessDenied, row.nth, row.times);
      if (row.also != Op::kCount) os::fault::Arm(row.also, os::kErrorAccessDenied, row.also_nth);
      saved = SaveFile(dir.u16(u"f.txt"), u"replacement", true, 2, false, 1252, row.backups, false,
                       u"", 0, 0);
    }
    EXPECT_FALSE(saved);
    EXPECT_TRUE(log.Has(row.line));
    EXPECT_EQ(dir.Read(row.where_old), "previous text");
    // Whatever was left, the next load finds the previous content.
    mStringTools::RecoverInterruptedSave(dir.u16(u"f.txt"));
    EXPECT_EQ(dir.Read(u"f.txt"), "previous text");
  }
  TempDir dir;
  os::fault::Scope faults;
  os::fault::Arm(Op::kCreateFolder, os::kErrorAccessDenied, 1, 0);
  EXPECT_FALSE(SaveUtf8(dir.u16(u"new\\f.txt"), u"x"));
  EXPECT_TRUE(Listing(dir).empty());
}

// What a load finds after the leftovers of earlier saves: a copy without a mark is the last whole
// version of a save that was cut; a marked one belongs to a save that completed.
TEST(SaveFile, InterruptedSaveIsPutBackBeforeReading) {
  struct Row {
    std::vector<std::pair<const char16_t*, const char*>> files;
    const char* loads;  // nullptr: no file
    bool restored;
  } rows[] = {
      // clang-format off
      {{{u"c.xml", "partial"}, {u"c.xml.001.tmp", "old"}}, "old", true},  // cut while writing
      {{{u"c.xml.001.tmp", "old"}}, "old", true},                         // cut before writing
      {{{u"c.xml", "new"}, {u"c.xml.001.tmp", "older"}, {u"c.xml.001.tmp.stale", ""},
        {u"c.xml.002.tmp", "older"}, {u"c.xml.002.TMP.stale", ""}}, "new", false},
      // The cut save had to take number 002 beside a held copy of a completed one.
      {{{u"c.xml", "partial"}, {u"c.xml.001.tmp", "older"}, {u"c.xml.001.tmp.stale", ""},
        {u"c.xml.002.tmp", "old"}}, "old", true},
      {{{u"c.xml", "new"}, {u"c.xml.003.tmp.stale", ""}}, "new", false},  // mark without copy
      // An older build left copies of completed saves unmarked: the newest copy is the cut one.
      {{{u"c.xml", "partial"}, {u"c.xml.001.tmp", "older"}, {u"c.xml.002.tmp", "old"}}, "old",
       true},
      {{{u"c.xml", "new"}, {u"c.xml.001.bak", "backup"}}, "new", false}, {{}, nullptr, false},
      // clang-format on
  };
  for (const auto& row : rows) {
    TempDir dir;
    for (const auto& [name, text] : row.files) dir.Write(name, text);
    SCOPED_TRACE(testing::PrintToString(Listing(dir)));
    EXPECT_EQ(mStringTools::RecoverInterruptedSave(dir.u16(u"c.xml")), row.restored);
    EXPECT_EQ(dir.Read(u"c.xml"), row.loads ? row.loads : "");
    for (const auto& name : Listing(dir))
      EXPECT_TRUE(name == "c.xml" || name == "c.xml.001.bak") << name;
    EXPECT_FALSE(mStringTools::RecoverInterruptedSave(dir.u16(u"c.xml")));
  }
}

// A scanner holding the safety copy after a save completed: the copy stays, marked, and no later
// load puts it back over the newer versions. A save that finds an interrupted save's copy puts it
// back before setting the file aside, so a cut in that save still leaves the last whole version.
TEST(SaveFile, ACompletedSaveIsNeverUndoneAndACutOneIsFinishedFirst) {
  TempDir dir;
  const std::u16string path = dir.u16(u"s.xml");
  ASSERT_TRUE(SaveUtf8(path, u"v1"));
  ASSERT_TRUE(SaveUtf8(path, u"v2"));
  {
    os::fault::Scope faults;
    os::fault::Arm(os::fault::Op::kDeleteFile, os::kErrorSharingViolation, 1, 21);
    ASSERT_TRUE(SaveUtf8(path, u"v3"));
  }
  EXPECT_EQ(dir.Read(u"s.xml.001.tmp"), "v2");
  EXPECT_TRUE(dir.Exists(u"s.xml.001.tmp.stale"));
  ASSERT_TRUE(SaveUtf8(path, u"v4"));  // takes number 002 beside the held copy, deletes both
  EXPECT_FALSE(mStringTools::RecoverInterruptedSave(path));
  EXPECT_EQ(dir.Read(u"s.xml"), "v4");
  EXPECT_EQ(Listing(dir), Names{"s.xml"});

  dir.Write(u"s.xml", "partial");
  dir.Write(u"s.xml.001.tmp", "old");
  {
    os::fault::Scope faults;
    os::fault::Arm(os::fault::Op::kWrite, os::kErrorAccessDenied);
    EXPECT_FALSE(SaveUtf8(path, u"new"));
  }
  EXPECT_EQ(dir.Read(u"s.xml"), "old");
  EXPECT_EQ(Listing(dir), Names{"s.xml"});
  dir.Write(u"s.xml.001.tmp", "old");
  ASSERT_TRUE(SaveFile(path, u"+more", true, 2, false, 1252, 0, true, u"", 0, 0));
  EXPECT_EQ(dir.Read(u"s.xml"), "old+more");
  EXPECT_EQ(Listing(dir), Names{"s.xml"});
}

TEST(BackupFileName, NumbersAndDates) {
  TempDir dir;
  const std::u16string base = dir.u16(u"a.xml");
  EXPECT_EQ(mStringTools::BackupFileName(base, 3, u".bak"), base + u".001.bak");
  for (const char16_t* n : {u"a.xml.001.bak", u"a.xml.002.bak", u"a.xml.003.bak"})
    dir.Write(n, base::Narrow(n));
  // All taken: the oldest goes, the others move down one.
  EXPECT_EQ(mStringTools::BackupFileName(base, 3, u".bak"), base + u".003.bak");
  EXPECT_EQ(dir.Read(u"a.xml.001.bak") + dir.Read(u"a.xml.002.bak"), "a.xml.002.baka.xml.003.bak");
  EXPECT_FALSE(dir.Exists(u"a.xml.003.bak"));
  EXPECT_EQ(mStringTools::BackupFileName(base, 1000, u".tmp"), base + u".001.tmp");

  // The stamp takes the place of "*" in settings_*.xml; a name without an extension keeps the
  // dot, and the dot of a folder is no extension.
  const std::u16string year = base::FormatDate(Today(), u"yyyy");
  for (auto [name, dated] : {std::pair{u"s.xml", u"s_YYYY.xml"},
                             {u"name", u"name_YYYY."},
                             {u"a.b\\name", u"a.b\\name_YYYY."},
                             {u"p_*.log", u"p_YYYY.log"}}) {
    std::u16string expected = dir.u16(dated);
    expected.replace(expected.find(u"YYYY"), 4, year);
    EXPECT_EQ(mStringTools::BackupDateFileName(dir.u16(name), 100000, u"yyyy", false), expected);
  }
  // A numbered backup of older versions takes its date into its name.
  dir.Write(u"c.xml.001.bak", "old");
  mStringTools::BackupDateFileName(dir.u16(u"c.xml"), 100000, u"yyyy", true);
  EXPECT_FALSE(dir.Exists(u"c.xml.001.bak"));
  EXPECT_EQ(dir.Read(u"c_" + year + u".xml"), "old");
}

TEST(Dates, ParseAndTheNewestBackup) {
  struct Row {
    const char16_t *text, *format, *expected;  // expected as yyyy-mm-dd hh:nn:ss
  } rows[] = {
      {u"20120113130217", u"yyyymmddhhnnss", u"2012-01-13 13:02:17"},
      {u"2026-13-01_00-00-00", u"YYYY-MM-DD_HH-NN-SS", u"2027-01-01 00:00:00"},  // carry
      {u"2026-02-30", u"yyyy-mm-dd", u"2026-03-02 00:00:00"},
      {u"05/30/12 2026-11-15", u"hh/nn/ss yyyy-mm-dd", u"2026-11-15 05:30:12"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(
        base::FormatDate(mStringTools::ParseDate(row.text, row.format), u"yyyy-mm-dd hh:nn:ss"),
        row.expected);
  }
  TempDir dir;
  EXPECT_EQ(mStringTools::LastBackupDate(dir.u16(u"s.xml"), u"yyyy-mm-dd_hh-nn-ss"), 0.0);
  for (const char16_t* n : {u"s_2025-01-02_03-04-05.xml", u"s_2026-06-01_00-00-00.xml",
                            u"s_2024-12-31_23-59-59.xml", u"s_2026-05-31_23-59-59.xml"})
    dir.Write(n, "x");
  EXPECT_EQ(
      base::FormatDate(mStringTools::LastBackupDate(dir.u16(u"s.xml"), u"yyyy-mm-dd_hh-nn-ss"),
                       u"yyyy-mm-dd hh:nn:ss"),
      u"2026-06-01 00:00:00");
}

TEST(LoadTextFile, DetectsAndReportsTheEncoding) {
  TempDir dir;
  // Nothing read leaves the encoding as it was (-1); a mark is dropped.
  for (auto [bytes, text, encoding] : {std::tuple<std::string, std::u16string, int>{"", u"", -1},
                                       {"\xEF\xBB\xBF"
                                        "caf\xC3\xA9",
                                        u"caf\u00E9", 2}}) {
    std::int32_t found = -1;
    bool with_bom = false, changed = false;
    EXPECT_EQ(mGlobal::LoadTextFile(dir.Write(u"t.txt", bytes), true, found, with_bom, changed),
              text);
    EXPECT_EQ(found, encoding) << bytes;
  }
  // A part of the file from an offset; nothing from a missing one.
  std::string part;
  EXPECT_EQ(mGlobal::LoadFile(dir.Write(u"t.txt", "plain"), part, 1, 1), 1);
  EXPECT_EQ(part, "l");
  EXPECT_EQ(mGlobal::LoadFile(dir.u16(u"missing.txt"), part), 0);
  EXPECT_EQ(mGlobal::LoadTextFile(dir.u16(u"missing.txt")), u"");
}

}  // namespace
