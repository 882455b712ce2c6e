// What the progress window shows for a state of the wait (built-in English texts).
#include "companions/apps_close/close_progress.h"

#include <gtest/gtest.h>

#include "base/text.h"
#include "companions/common/companion_text.h"
#include "support/temp_dir.h"

namespace {

TEST(CloseProgressView, ShownLateNamesTheAppsAndCountsDown) {
  const std::vector<app::ClosingApp> apps = {
      {u"editor.exe", u"notes.txt - Editor"}, {u"tray.exe", u""}, {u"same", u"same"}};
  const struct {
    std::uint32_t elapsed, grace;
    bool ended, shown;
    int percent;           // -1: not shown
    const char16_t* line;  // a part of the terminal's line
  } rows[] = {
      {499, 10000, false, false, -1, u""},  // a quick close shows nothing
      {500, 10000, false, false, 5,
       u"Closing: editor.exe (notes.txt - Editor), tray.exe, same (10 s left)"},
      {9001, 10000, false, true, 90, u"(1 s left)"},
      {12000, 10000, false, true, 100, u"(0 s left)"},
      {100, 0, false, true, 100, u"(0 s left)"},
      {9000, 10000, true, false, -1, u""},  // never shown: nothing at the end
      {3000, 10000, true, true, 100,
       u"These applications were not closed: editor.exe (notes.txt - Editor), tray.exe, same"},
  };
  testing_support::TempDir temp;  // English asked for, no language file: the built-in texts
  temp.Write(u"TvEject.xml", "<TarvelUSBEject><Language>en</Language></TarvelUSBEject>");
  app::LoadCompanionLanguage(temp.u16());
  for (const auto& row : rows) {
    const app::ProgressView view =
        app::ViewProgress({apps, row.elapsed, row.grace, row.ended, row.shown});
    SCOPED_TRACE(base::Narrow(view.line));
    EXPECT_EQ(view.show ? view.percent : -1, row.percent);
    EXPECT_TRUE(!view.show ||
                (view.line.find(row.line) != std::u16string::npos &&
                 view.text.find(u"editor.exe (notes.txt - Editor)\r\ntray.exe\r\nsame") !=
                     std::u16string::npos));
  }
}

}  // namespace
