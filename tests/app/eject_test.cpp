// The eject sequence run in-process against a portable folder with stand-in companions: the
// boxes are answered through the seam, the companions record how they were started.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "app/start.h"
#include "base/text.h"
#include "os/entry.h"
#include "os/fault.h"
#include "os/process.h"
#include "os/ui.h"
#include "support/temp_dir.h"
#include "sys/config.h"
#include "sys/program.h"

namespace {

namespace fs = std::filesystem;
using testing_support::TempDir;

const std::u16string kExe(os::kExecutableSuffix);

const char kConfig[] =
    "<TarvelUSBEject>\r\n\t<UserLanguage/>\r\n\t<Language "
    "file=\"TvEject_lng.xml\">fr</Language>\r\n"
    "</TarvelUSBEject>";

// A portable folder: <root>/TvEject/{TvEject, TvEject.xml, TvDiskEjector} and
// <root>/TvAppsClose/TvAppsClose, the companions being copies of fake_companion.
class PortableFolder {
 public:
  explicit PortableFolder(bool with_closer = true) {
    fs::create_directories(dir_.path() / "TvEject");
    fs::create_directories(dir_.path() / "TvAppsClose");
    const fs::path companion(testing_support::HelperProgram(u"fake_companion"));
    fs::copy_file(companion, fs::path(dir_.u16(u"TvEject/TvDiskEjector" + kExe)));
    if (with_closer)
      fs::copy_file(companion, fs::path(dir_.u16(u"TvAppsClose/TvAppsClose" + kExe)));
    dir_.Write(u"TvEject/TvEject.xml", kConfig);
    mGlobal::SetProgramFile(dir_.u16(u"TvEject/TvEject" + kExe));
  }
  ~PortableFolder() { mGlobal::SetProgramFile(u""); }
  const TempDir& dir() const { return dir_; }

 private:
  TempDir dir_;
};

// The ejector is started without waiting for it: give it a bounded moment to leave its record.
std::string RecordOf(const TempDir& dir, const std::u16string& name, bool expected) {
  for (int i = 0; expected && i < 100 && !dir.Exists(name); ++i) os::Sleep(50);
  return dir.Read(name);
}

struct Shown {
  std::vector<std::pair<std::u16string, std::uint32_t>> boxes;  // text, flags
};

// Runs the sequence, answering the boxes in order with `answers` (then OK).
Shown RunWithAnswers(std::vector<std::int32_t> answers) {
  Shown run;
  os::fault::Scope faults;
  std::size_t next = 0;
  os::fault::SetMessageBoxAnswer([&](const os::MessageBoxParams& p) {
    run.boxes.emplace_back(std::u16string(p.text), p.style);
    return next < answers.size() ? answers[next++] : os::kIdOk;
  });
  app::RunEject();
  return run;
}

const std::u16string kIntro =
    u"Tarvel USB Eject ferme tous les programmes du p\u00E9riph\u00E9rique USB !";
const std::u16string kStillRunning =
    u"Il reste encore des applications en cours d'ex\u00E9cution.\r\n\r\nD\u00E9connexion USB "
    u"annul\u00E9e";
const std::u16string kCloseError =
    u"Erreur en ex\u00E9cutant le programme de fermeture des applications";

TEST(RunEject, Scenarios) {
  struct Row {
    const char* name;
    bool with_closer;
    const char* closer_plan;            // nullptr: writes nothing
    const char* stale_result;           // a result file left from an earlier run
    std::int32_t confirm;               // answer to the first box
    std::vector<std::u16string> texts;  // every box shown, in order
    bool closer_started;
    bool ejector_started;
  } rows[] = {
      {"cancel", true, "out 2", "7", os::kIdCancel, {kIntro}, false, false},
      {"closer missing", false, nullptr, nullptr, os::kIdOk, {kIntro, kCloseError}, false, false},
      {"count 0", true, "out 0", nullptr, os::kIdOk, {kIntro}, true, true},
      {"count 2", true, "out 2", nullptr, os::kIdOk, {kIntro, kStillRunning}, true, false},
      {"count with blanks and a word",
       true,
       "out   3 apps",
       nullptr,
       os::kIdOk,
       {kIntro, kStillRunning},
       true,
       false},
      {"not a number", true, "out abc", nullptr, os::kIdOk, {kIntro}, true, true},
      {"stale result, closer writes nothing", true, nullptr, "5", os::kIdOk, {kIntro}, true, true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    PortableFolder folder(row.with_closer);
    const TempDir& dir = folder.dir();
    if (row.closer_plan) dir.Write(u"TvAppsClose/TvAppsClose" + kExe + u".plan", row.closer_plan);
    if (row.stale_result) dir.Write(u"TvAppsClose/TvAppsClose.out", row.stale_result);

    Shown run = RunWithAnswers({row.confirm});

    ASSERT_EQ(run.boxes.size(), row.texts.size());
    for (std::size_t i = 0; i < row.texts.size(); ++i) EXPECT_EQ(run.boxes[i].first, row.texts[i]);
    EXPECT_EQ(run.boxes[0].second & 0xFF, 1u) << "OK and Cancel";
    if (row.texts.size() > 1) {
      EXPECT_EQ(run.boxes[1].second & 0xFF, row.texts[1] == kCloseError ? 16u : 64u);
    }

    EXPECT_EQ(dir.Read(u"TvAppsClose/TvAppsClose" + kExe + u".args"),
              row.closer_started ? "/now /out\n" : "");
    EXPECT_EQ(RecordOf(dir, u"TvEject/TvDiskEjector" + kExe + u".args", row.ejector_started),
              row.ejector_started ? "/retry\n" : "");
    // The result file is gone whenever the closer ran; a cancel touches nothing.
    EXPECT_EQ(dir.Exists(u"TvAppsClose/TvAppsClose.out"), row.confirm == os::kIdCancel);
  }
}

TEST(RunEject, LanguageTextShowsTheCountEverywhere) {
  PortableFolder folder;
  const TempDir& dir = folder.dir();
  dir.Write(u"TvEject/TvEject.xml",
            "<TarvelUSBEject><Language file=\"TvEject_lng.xml\">en</Language></TarvelUSBEject>");
  dir.Write(u"TvEject/TvEject_lng.xml",
            "<Languages><en name=\"English\"><Message><AppStillRunning>%count% running, %count% "
            "left\\nCancelled</AppStillRunning></Message></en></Languages>");
  dir.Write(u"TvAppsClose/TvAppsClose" + kExe + u".plan", "out 2\r\n");
  Shown run = RunWithAnswers({os::kIdOk});
  ASSERT_EQ(run.boxes.size(), 2u);
  EXPECT_EQ(run.boxes[1].first, u"2 running, 2 left\r\nCancelled");
  // The language file is written only on the path that reaches the ejector.
  EXPECT_EQ(dir.Read(u"TvEject/TvEject_lng.xml").find("Intro"), std::string::npos);
}

TEST(RunEject, InvalidConfigurationStopsBeforeAnything) {
  PortableFolder folder;
  const TempDir& dir = folder.dir();
  dir.Write(u"TvEject/TvEject.xml", "<tarvelusbeject/>");
  Shown run = RunWithAnswers({});
  ASSERT_EQ(run.boxes.size(), 1u);
  EXPECT_EQ(run.boxes[0].first, u"Invalid configuration file");
  EXPECT_EQ(run.boxes[0].second & 0xFF, 16u);
  EXPECT_EQ(dir.Read(u"TvEject/TvEject.xml"), "<tarvelusbeject/>");
  EXPECT_FALSE(dir.Exists(u"TvAppsClose/TvAppsClose" + kExe + u".args"));
}

TEST(ParseCount, LeadingNumberRoundedHalfToEven) {
  struct Row {
    const char16_t* text;
    std::int32_t count;
  } rows[] = {
      {u"3", 3},   {u"   3", 3}, {u"3\r\n", 3}, {u"3 apps", 3},        {u"", 0},
      {u"abc", 0}, {u"2.5", 2},  {u"3.5", 4},   {u"-1", -1},           {u"1e1", 10},
      {u"\t7", 7}, {u".5", 0},   {u"1.5x", 2},  {u"9e99", 2147483647},
  };
  for (const auto& row : rows)
    EXPECT_EQ(app::ParseCount(row.text), row.count) << base::Narrow(row.text);
}

}  // namespace
