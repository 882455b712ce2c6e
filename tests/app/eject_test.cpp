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
#include "sys/program.h"

namespace {

namespace fs = std::filesystem;
using testing_support::TempDir;

const std::u16string kExe(os::kExecutableSuffix);

const char kConfig[] =
    "<TarvelUSBEject>\r\n\t<UserLanguage/>\r\n\t<Language "
    "file=\"TvEject_lng.xml\">fr</Language>\r\n"
    "</TarvelUSBEject>";
const char kEnglish[] =
    "<TarvelUSBEject><Language file=\"TvEject_lng.xml\">en</Language></TarvelUSBEject>";
const char kLanguages[] =
    "<Languages><en name=\"English\"><Message><AppStillRunning>%count% running, %count% "
    "left\\nCancelled</AppStillRunning></Message></en></Languages>";

const std::u16string kIntro =
    u"Tarvel USB Eject ferme tous les programmes du p\u00E9riph\u00E9rique USB !";
const std::u16string kStillRunning =
    u"Il reste encore des applications en cours d'ex\u00E9cution.\r\n\r\nD\u00E9connexion USB "
    u"annul\u00E9e";
const std::u16string kCloseError =
    u"Erreur en ex\u00E9cutant le programme de fermeture des applications";
const std::u16string kEjectError =
    u"Erreur en ex\u00E9cutant le programme d'ejection du disque USB";
const std::u16string kInvalid = u"Invalid configuration file";

// A portable folder: <root>/TvEject/{TvEject, TvEject.xml, TvDiskEjector} and
// <root>/TvAppsClose/TvAppsClose, the companions being copies of fake_companion. The boxes are
// answered in turn with the confirmation's answer, then OK.
TEST(RunEject, Scenarios) {
  struct Row {
    const char* name;
    const char* config;                 // TvEject.xml, with kLanguages beside it
    const char* closer_plan;            // nullptr: no closer at all; "": it writes nothing
    const char* stale_result;           // a result file left from an earlier run
    std::int32_t confirm;               // answer to the first box
    std::vector<std::u16string> texts;  // every box shown, in order
    std::vector<std::uint32_t> icons;   // and its buttons and icon (each box task-modal)
    int started;                        // 0: no companion, 1: the closer, 2: both
    bool ejector = true;                // the ejector is in its place
  };
  const Row rows[] = {
      // clang-format off
      {"cancel", kConfig, "out 2", "7", os::kIdCancel, {kIntro}, {1}, 0},
      {"closer missing", kConfig, nullptr, nullptr, os::kIdOk, {kIntro, kCloseError}, {1, 16}, 0},
      {"count 0", kConfig, "out 0", nullptr, os::kIdOk, {kIntro}, {1}, 2},
      {"negative count", kConfig, "out -1", nullptr, os::kIdOk, {kIntro}, {1}, 2},
      {"count 0 in English", kEnglish, "out 0", nullptr, os::kIdOk, {kIntro}, {1}, 2},
      {"ejector missing", kConfig, "out 0", nullptr, os::kIdOk, {kIntro, kEjectError}, {1, 16}, 1,
       false},
      {"count with blanks and a word", kConfig, "out   1 app", nullptr, os::kIdOk,
       {kIntro, kStillRunning}, {1, 64}, 1},
      {"not a number", kConfig, "out abc", nullptr, os::kIdOk, {kIntro}, {1}, 2},
      {"stale result, closer writes nothing", kConfig, "", "5", os::kIdOk, {kIntro}, {1}, 2},
      // The language's text, with the count wherever it asks for it; the built-in one where it
      // has none.
      {"language text", kEnglish, "out 2\r\n", nullptr, os::kIdOk,
       {kIntro, u"2 running, 2 left\r\nCancelled"}, {1, 64}, 1},
      {"invalid configuration", "<tarvelusbeject/>", "out 0", nullptr, os::kIdOk, {kInvalid}, {16},
       0},
      // clang-format on
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    TempDir dir;
    const fs::path companion(testing_support::HelperProgram(u"fake_companion"));
    const std::u16string closer = u"TvAppsClose/TvAppsClose" + kExe;
    dir.Write(u"TvEject/TvEject.xml", row.config);
    dir.Write(u"TvEject/TvEject_lng.xml", kLanguages);
    if (row.ejector) fs::copy_file(companion, fs::path(dir.u16(u"TvEject/TvDiskEjector" + kExe)));
    if (row.closer_plan) dir.Write(closer + u".plan", row.closer_plan);
    if (row.closer_plan) fs::copy_file(companion, fs::path(dir.u16(closer)));
    if (row.stale_result) dir.Write(u"TvAppsClose/TvAppsClose.out", row.stale_result);
    mGlobal::SetProgramFile(dir.u16(u"TvEject/TvEject" + kExe));
    std::vector<std::u16string> texts;
    std::vector<std::uint32_t> icons;
    {
      os::fault::Scope faults;
      os::fault::SetMessageBoxAnswer([&](const os::MessageBoxParams& p) {
        texts.emplace_back(p.text), icons.push_back(p.style ^ 0x2000);
        return texts.size() == 1 ? row.confirm : os::kIdOk;
      });
      app::RunEject();
    }
    mGlobal::SetProgramFile(u"");
    EXPECT_EQ(texts, row.texts);
    EXPECT_EQ(icons, row.icons);
    EXPECT_EQ(dir.Read(closer + u".args"), row.started > 0 ? "/now /out\n" : "");
    // The ejector is started without waiting for it: it gets a bounded moment to leave its record.
    const std::u16string ejector = u"TvEject/TvDiskEjector" + kExe + u".args";
    for (int i = 0; row.started == 2 && i < 100 && !dir.Exists(ejector); ++i) os::Sleep(50);
    EXPECT_EQ(dir.Read(ejector), row.started == 2 ? "/retry\n" : "");
    // The result file is gone whenever the closer ran; a cancel touches nothing.
    EXPECT_EQ(dir.Exists(u"TvAppsClose/TvAppsClose.out"), row.confirm == os::kIdCancel);
    // The language file is written (with the texts it lacked) only on the path that reaches the
    // ejector, and never in French; a refused configuration is left as it is.
    EXPECT_EQ(dir.Read(u"TvEject/TvEject_lng.xml") != kLanguages,
              row.started == 2 && row.config == kEnglish);
    EXPECT_TRUE(row.started > 0 || dir.Read(u"TvEject/TvEject.xml") == row.config);
  }
}

TEST(ParseCount, LeadingNumberRoundedHalfToEven) {
  struct Row {
    const char16_t* text;
    std::int32_t count;
  } rows[] = {
      // clang-format off
      {u"3", 3}, {u"   3", 3}, {u"3\r\n", 3}, {u"3 apps", 3}, {u"", 0}, {u"abc", 0}, {u"2.5", 2},
      {u"3.5", 4}, {u"-1", -1}, {u"1e1", 10}, {u"\t7", 7}, {u".5", 0}, {u"1.5x", 2},
      {u"9e99", 2147483647}, {u"-9e99", 0}, {u"2147483647", 2147483647},
      {u"-2147483648", -2147483647 - 1},
      // clang-format on
  };
  for (const auto& row : rows)
    EXPECT_EQ(app::ParseCount(row.text), row.count) << base::Narrow(row.text);
}

}  // namespace
