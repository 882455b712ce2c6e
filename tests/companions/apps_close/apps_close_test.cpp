// The closing companion run in-process: its settings file, its arguments, and whole runs against
// a scripted process list (the boxes answered through the seam), one table.
#include "companions/apps_close/apps_close.h"

#include <gtest/gtest.h>

#include "base/text.h"
#include "companions/apps_close/fake_processes.h"
#include "lang/lang.h"
#include "os/fault.h"
#include "os/ui.h"
#include "support/temp_dir.h"

namespace {

using testing_support::TempDir;
using Texts = std::vector<std::u16string>;

TEST(AppsCloseSettings, DefaultsForWhatIsMissingOrWrong) {
  const struct {
    const char* inside;  // the file's root holds it; nullptr: no file
    std::uint32_t grace_ms;
    bool force;
    std::string root = "TvAppsClose";  // "": the file is what is inside
  } rows[] = {
      {nullptr, 10000, false},
      {"<GraceSeconds>3</GraceSeconds><ForceClose>1</ForceClose>", 3000, true},
      {"<graceseconds>0.5</graceseconds><forceclose>True</forceclose>", 500, true, "tvappsclose"},
      {"<GraceSeconds>0</GraceSeconds><ForceClose>0</ForceClose>", 0, false},
      {"<GraceSeconds>-4</GraceSeconds><ForceClose>no</ForceClose>", 10000, false},
      {"<GraceSeconds>10s</GraceSeconds><ForceClose>yes</ForceClose>", 10000, true},
      {"<GraceSeconds>99999</GraceSeconds>", 3600000, false},
      // Another program's file is not read as ours.
      {"<GraceSeconds>1</GraceSeconds><ForceClose>1</ForceClose>", 10000, false, "TarvelUSBEject"},
      {"not xml at all", 10000, false, ""},
  };
  for (const auto& row : rows) {
    TempDir temp;
    const std::string inside = row.inside ? row.inside : "";
    if (row.inside)
      temp.Write(u"TvAppsClose.xml",
                 row.root.empty() ? inside : "<" + row.root + ">" + inside + "</" + row.root + ">");
    const app::AppsCloseSettings settings =
        app::LoadAppsCloseSettings(temp.u16(u"TvAppsClose.xml"));
    EXPECT_EQ(std::pair(settings.grace_ms, settings.force), std::pair(row.grace_ms, row.force))
        << inside;
  }
}

TEST(AppsCloseRun, ClosesAskedCountsAndWritesTheCount) {
  using enum os::ProgressPress;
  // "/now" and "/out" in any case, with "/" or "-"; a word without either, or longer, is none.
  const Texts now = {u"-NOW", u"/no", u"now", u"/"}, out = {u"/outside", u"/Out"},
              both = {u"/now", u"/out"};
  const struct {
    Texts args;
    bool stubborn, force;   // a second application ignores the request; ForceClose in the settings
    int answer, exit_code;  // the answer to the first box
    const char* count;      // written to the count file; nullptr: none is
    Texts boxes;            // a part of each box shown, in turn
    std::vector<std::uint32_t> asked;
    os::ProgressPress press = kNone;  // pressed in the progress window at once
    // An application of the suite starts while the box is shown; the process list is unreadable.
    bool late = false, unreadable = false;
  } rows[] = {
      {both, false, false, 0, 0, "0", {}, {1}},
      {both, true, true, 0, 0, "0", {}, {1, 2}},
      {now, false, false, 0, 0, nullptr, {}, {1}},
      {out, true, false, os::kIdCancel, 1, "2", {u"editor"}, {}},
      {out, false, false, os::kIdOk, 0, "0", {u"editor"}, {1}},
      // Asked first, then told what still runs.
      {out, true, false, os::kIdOk, 1, "1", {u"editor", u"stubborn"}, {1, 2}},
      {both, false, false, 0, 2, nullptr, {}, {}, kNone, false, true},
      // What the box named is what is closed: the late one is counted, not asked.
      {out, false, false, os::kIdOk, 1, "1", {u"editor", u"late"}, {1}, kNone, true},
      // Cancel stops the wait, even with ForceClose; Close now ends what is left once its
      // confirmation (the first box under /now) says OK, and only then.
      {both, true, true, 0, 1, "1", {}, {1, 2}, kCancel},
      {both, true, false, os::kIdOk, 0, "0", {u"stubborn"}, {1, 2}, kCloseNow},
      {both, true, false, os::kIdCancel, 1, "1", {u"stubborn"}, {1, 2}, kCloseNow},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << &row - rows);
    TempDir temp;
    const std::u16string own = temp.Write(u"Suite/TvAppsClose/TvAppsClose", "closer");
    temp.Write(u"Suite/TvAppsClose/TvAppsClose.xml",
               std::string("<TvAppsClose><GraceSeconds>2</GraceSeconds><ForceClose>") +
                   (row.force ? "1" : "0") + "</ForceClose></TvAppsClose>");
    closer_test::FakeProcesses fake;
    fake.unreadable = row.unreadable;
    fake.Add(1, temp.u16(u"Suite/Editor/editor"), 0);
    fake.Add(3, temp.u16(u"Elsewhere/outsider"), 0);
    if (row.stubborn) fake.Add(2, temp.u16(u"Suite/Stubborn/stubborn"), -1);
    os::fault::Scope faults;
    Texts boxes, shown;  // the boxes' and the progress window's texts
    std::uint32_t last_style = 0;
    os::fault::SetMessageBoxAnswer([&](const os::MessageBoxParams& p) {
      boxes.emplace_back(p.text);
      last_style = p.style;
      if (row.late && boxes.size() == 1) fake.Add(4, temp.u16(u"Suite/Late/late"), 0);
      return boxes.size() == 1 ? row.answer : os::kIdOk;
    });
    os::fault::SetProgressAnswer([&](std::u16string_view text) {
      shown.emplace_back(text);
      return shown.size() == 1 ? row.press : kNone;
    });
    EXPECT_EQ(app::RunAppsClose(row.args, own, fake.Ops()), row.exit_code);
    // Shown only while something is slow to close: it names that one, not what closed at once,
    // and at the end says what remains.
    const bool remains = row.count && std::string(row.count) == "1";
    EXPECT_EQ(shown.empty(), !row.stubborn || row.asked.empty());
    for (const auto& text : shown) {
      EXPECT_NE(text.find(u"stubborn"), text.npos) << base::Narrow(text);
      EXPECT_EQ(text.find(u"editor"), text.npos) << base::Narrow(text);
    }
    EXPECT_TRUE(shown.empty() || !remains ||
                shown.back().find(u"not closed") != std::u16string::npos);
    EXPECT_EQ(fake.Asked(), row.asked);
    EXPECT_EQ(fake.terminated, row.stubborn && !remains && (row.press != kNone || row.force));
    // A stubborn application is waited for the whole grace period, and no longer, unless a
    // button ended the wait; a window that names what remains stays a moment.
    const bool cut = row.press != kNone && row.answer != os::kIdCancel;
    EXPECT_TRUE(!row.stubborn || row.asked.empty() ||
                fake.slept == (cut ? 500u : 2000u) + (remains ? 2500u : 0u))
        << fake.slept;
    EXPECT_EQ(temp.Read(u"Suite/TvAppsClose/TvAppsClose.out"), row.count ? row.count : "");
    // No language file beside it: the built-in texts, listing the applications by name; what
    // still runs is told in a box that comes to the front.
    ASSERT_EQ(boxes.size(), row.boxes.size());
    for (std::size_t i = 0; i < boxes.size(); ++i) {
      SCOPED_TRACE(base::Narrow(boxes[i]));
      EXPECT_NE(boxes[i].find(row.boxes[i]), std::u16string::npos);
      EXPECT_EQ(boxes[i].find(i ? u"editor" : u"outsider"), std::u16string::npos);
    }
    EXPECT_TRUE(boxes.size() < 2 || (last_style & 0x50000) == 0x50000);
  }
  mLang::Lang().Xml(nullptr);
}

}  // namespace
