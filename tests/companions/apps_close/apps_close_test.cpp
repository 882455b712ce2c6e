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

TEST(AppsCloseSettings, DefaultsForWhatIsMissingOrWrong) {
  struct Row {
    const char* file;  // nullptr: no file
    std::uint32_t grace_ms;
    bool force;
  } rows[] = {
      {nullptr, 10000, false},
      {"<TvAppsClose><GraceSeconds>3</GraceSeconds><ForceClose>1</ForceClose></TvAppsClose>", 3000,
       true},
      {"<tvappsclose><graceseconds>0.5</graceseconds><forceclose>True</forceclose></tvappsclose>",
       500, true},
      {"<TvAppsClose><GraceSeconds>0</GraceSeconds><ForceClose>0</ForceClose></TvAppsClose>", 0,
       false},
      {"<TvAppsClose><GraceSeconds>-4</GraceSeconds><ForceClose>no</ForceClose></TvAppsClose>",
       10000, false},
      {"<TvAppsClose><GraceSeconds>10s</GraceSeconds></TvAppsClose>", 10000, false},
      {"<TvAppsClose><GraceSeconds>99999</GraceSeconds></TvAppsClose>", 3600000, false},
      {"<TvAppsClose><ForceClose>yes</ForceClose></TvAppsClose>", 10000, true},
      // Another program's file is not read as ours.
      {"<TarvelUSBEject><GraceSeconds>1</GraceSeconds><ForceClose>1</ForceClose></TarvelUSBEject>",
       10000, false},
      {"not xml at all", 10000, false},
  };
  for (const auto& row : rows) {
    TempDir temp;
    const std::u16string file =
        row.file ? temp.Write(u"TvAppsClose.xml", row.file) : temp.u16(u"TvAppsClose.xml");
    const app::AppsCloseSettings settings = app::LoadAppsCloseSettings(file);
    EXPECT_EQ(settings.grace_ms, row.grace_ms) << (row.file ? row.file : "(none)");
    EXPECT_EQ(settings.force, row.force) << (row.file ? row.file : "(none)");
  }
}

TEST(AppsCloseArguments, NowAndOutInAnyCase) {
  struct Row {
    std::vector<std::u16string> args;
    bool now, out;
  } rows[] = {
      {{}, false, false},
      {{u"/now", u"/out"}, true, true},
      {{u"/OUT"}, false, true},
      {{u"-Now"}, true, false},
      {{u"now", u"/outside", u"/", u"/no"}, false, false},
  };
  for (const auto& row : rows) {
    const app::AppsCloseCommand command = app::ParseAppsCloseArguments(row.args);
    EXPECT_EQ(command.now, row.now) << row.args.size();
    EXPECT_EQ(command.out, row.out) << row.args.size();
  }
}

using closer_test::FakeProcesses;

TEST(AppsCloseRun, ClosesAskedCountsAndWritesTheCount) {
  constexpr auto kCancel = os::ProgressPress::kCancel, kCloseNow = os::ProgressPress::kCloseNow;
  const std::vector<std::u16string> kNowOut = {u"/now", u"/out"};
  struct Row {
    const char* name;
    std::vector<std::u16string> args;
    bool stubborn;        // a second application that ignores the request
    bool force;           // ForceClose in the settings
    std::int32_t answer;  // to the confirmation box
    bool unreadable;      // the process list cannot be read
    int exit_code;
    const char* out;    // the count file, nullptr when none is written
    std::size_t boxes;  // boxes shown
    std::vector<std::uint32_t> asked;
    bool late = false;  // an application of the suite starts while the box is shown
    os::ProgressPress press = os::ProgressPress::kNone;  // pressed in the window at once
  } rows[] = {
      {"now-out", {u"/now", u"/out"}, false, false, 0, false, 0, "0", 0, {1}},
      {"stubborn", {u"/now", u"/out"}, true, false, 0, false, 1, "1", 0, {1, 2}},
      {"forced", {u"/now", u"/out"}, true, true, 0, false, 0, "0", 0, {1, 2}},
      {"no-out", {u"/now"}, false, false, 0, false, 0, nullptr, 0, {1}},
      {"declined", {u"/out"}, true, false, os::kIdCancel, false, 1, "2", 1, {}},
      {"confirmed", {u"/out"}, false, false, os::kIdOk, false, 0, "0", 1, {1}},
      // Asked first, then told what still runs.
      {"confirmed-stubborn", {u"/out"}, true, false, os::kIdOk, false, 1, "1", 2, {1, 2}},
      {"unreadable", {u"/now", u"/out"}, false, false, 0, true, 2, nullptr, 0, {}},
      // What the box named is what is closed: the late one is counted, not asked.
      {"late", {u"/out"}, false, false, os::kIdOk, false, 1, "1", 2, {1}, true},
      // Cancel stops the wait, even with ForceClose; Close now ends what is left once the
      // confirmation (the first box under /now) says OK, and only then.
      {"cancel", kNowOut, true, true, 0, false, 1, "1", 0, {1, 2}, false, kCancel},
      {"close-now", kNowOut, true, false, os::kIdOk, false, 0, "0", 1, {1, 2}, false, kCloseNow},
      {"close-now-declined",
       kNowOut,
       true,
       false,
       os::kIdCancel,
       false,
       1,
       "1",
       1,
       {1, 2},
       false,
       kCloseNow},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    TempDir temp;
    const std::u16string own = temp.Write(u"Suite/TvAppsClose/TvAppsClose", "closer");
    temp.Write(u"Suite/TvAppsClose/TvAppsClose.xml",
               std::string("<TvAppsClose><GraceSeconds>2</GraceSeconds><ForceClose>") +
                   (row.force ? "1" : "0") + "</ForceClose></TvAppsClose>");
    FakeProcesses fake;
    fake.unreadable = row.unreadable;
    fake.Add(1, temp.u16(u"Suite/Editor/editor"), 0);
    fake.Add(3, temp.u16(u"Elsewhere/outsider"), 0);
    if (row.stubborn) fake.Add(2, temp.u16(u"Suite/Stubborn/stubborn"), -1);

    os::fault::Scope faults;
    std::vector<std::u16string> boxes;
    std::uint32_t last_style = 0;
    os::fault::SetMessageBoxAnswer([&](const os::MessageBoxParams& p) {
      boxes.emplace_back(p.text);
      last_style = p.style;
      if (row.late && boxes.size() == 1) fake.Add(4, temp.u16(u"Suite/Late/late"), 0);
      return boxes.size() == 1 ? row.answer : os::kIdOk;
    });
    std::vector<std::u16string> shown;  // the progress window's texts
    os::fault::SetProgressAnswer([&](std::u16string_view text) {
      shown.emplace_back(text);
      return shown.size() == 1 ? row.press : os::ProgressPress::kNone;
    });
    EXPECT_EQ(app::RunAppsClose(row.args, own, fake.Ops()), row.exit_code);
    // Shown only while something is slow to close: it names that one, not what closed at once,
    // and at the end says what remains.
    const bool pressed = row.press != os::ProgressPress::kNone,
               remains = row.out && std::string(row.out) == "1";
    EXPECT_EQ(shown.empty(), !row.stubborn || row.asked.empty());
    for (const auto& text : shown) {
      EXPECT_NE(text.find(u"stubborn"), std::u16string::npos) << base::Narrow(text);
      EXPECT_EQ(text.find(u"editor"), std::u16string::npos) << base::Narrow(text);
    }
    if (!shown.empty() && remains) {
      EXPECT_NE(shown.back().find(u"not closed"), std::u16string::npos);
    }

    EXPECT_EQ(fake.Asked(), row.asked);
    EXPECT_TRUE(fake[3].alive);
    EXPECT_EQ(fake.terminated, row.stubborn && !remains && (pressed || row.force) ? 1 : 0);
    // A stubborn application is waited for the whole grace period, and no longer, unless a
    // button ended the wait; a window that names what remains stays a moment.
    if (row.stubborn && !row.asked.empty()) {
      EXPECT_EQ(fake.slept,
                (pressed && row.answer != os::kIdCancel ? 500u : 2000u) + (remains ? 2500u : 0u));
    }
    EXPECT_EQ(temp.Exists(u"Suite/TvAppsClose/TvAppsClose.out"), row.out != nullptr);
    if (row.out) {
      EXPECT_EQ(temp.Read(u"Suite/TvAppsClose/TvAppsClose.out"), row.out);
    }
    ASSERT_EQ(boxes.size(), row.boxes);
    if (row.boxes > 0 && row.press == kCloseNow) {
      // The confirmation of Close now names what would be ended and warns of the loss.
      EXPECT_NE(boxes[0].find(u"stubborn"), std::u16string::npos) << base::Narrow(boxes[0]);
      EXPECT_NE(boxes[0].find(u"Unsaved work"), std::u16string::npos) << base::Narrow(boxes[0]);
    } else if (row.boxes > 0) {
      // No language file beside it: the built-in texts, listing the applications by name.
      EXPECT_NE(boxes[0].find(u"editor"), std::u16string::npos) << base::Narrow(boxes[0]);
      EXPECT_EQ(boxes[0].find(u"outsider"), std::u16string::npos) << base::Narrow(boxes[0]);
    }
    if (row.boxes > 1) {
      EXPECT_NE(boxes[1].find(row.late ? u"late" : u"stubborn"), std::u16string::npos)
          << base::Narrow(boxes[1]);
      EXPECT_EQ(boxes[1].find(u"editor"), std::u16string::npos) << base::Narrow(boxes[1]);
      EXPECT_EQ(last_style & 0x50000, 0x50000u) << "the last box comes to the front";
    }
  }
  mLang::Lang().Xml(nullptr);
}

}  // namespace
