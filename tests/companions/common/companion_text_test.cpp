// The companions' texts: which language the suite's files choose. (The built-in texts against
// the shipped language file: tests/lang/shipped_language_file_test.cpp.)
#include "companions/common/companion_text.h"

#include <gtest/gtest.h>

#include "lang/lang.h"
#include "support/temp_dir.h"

namespace {

using testing_support::TempDir;

const char kLanguages[] =
    "<Languages>"
    "<en name=\"English\"><TvDiskEjector><Messages><Ejected>EN %drive%</Ejected></Messages>"
    "</TvDiskEjector></en>"
    "<de-AT name=\"Deutsch\"><TvDiskEjector><Messages><Ejected>DE %drive%\\nOK</Ejected>"
    "</Messages></TvDiskEjector></de-AT>"
    "<de name=\"Deutsch\"><TvDiskEjector><Messages><Ejected>DE exact</Ejected></Messages>"
    "</TvDiskEjector></de>"
    "<fr name=\"Fran\xC3\xA7"
    "ais\"/>"
    "</Languages>";

TEST(CompanionText, TheConfigurationChoosesTheLanguage) {
  struct Row {
    const char* config;         // TvEject.xml
    const char16_t* file_name;  // where the languages are written
    const char16_t* code;
    const char16_t* text;  // of TvDiskEjector.Messages.Ejected for the drive "E:\"
  } rows[] = {
      {"<TarvelUSBEject><Language>de</Language></TarvelUSBEject>", u"TvEject_lng.xml", u"de",
       u"DE exact"},
      // The first two letters find a language when the exact one is missing.
      {"<TarvelUSBEject><Language>de-CH</Language></TarvelUSBEject>", u"TvEject_lng.xml", u"de-CH",
       u"DE E:\\\r\nOK"},
      // A language asked for and not consumed yet goes first.
      {"<TarvelUSBEject><UserLanguage>en</UserLanguage><Language>de</Language></TarvelUSBEject>",
       u"TvEject_lng.xml", u"en", u"EN E:\\"},
      {"<TarvelUSBEject><Language file=\"TvEject_more.xml\">en</Language></TarvelUSBEject>",
       u"TvEject_more.xml", u"en", u"EN E:\\"},
      // A language without the text, or without a file: the built-in text of its kind.
      {"<TarvelUSBEject><Language>fr</Language></TarvelUSBEject>", u"TvEject_lng.xml", u"fr",
       u"Vous pouvez maintenant retirer le p\u00E9riph\u00E9rique E:\\."},
      {"<TarvelUSBEject><Language>fr-CA</Language></TarvelUSBEject>", u"nothing.xml", u"fr-CA",
       u"Vous pouvez maintenant retirer le p\u00E9riph\u00E9rique E:\\."},
      {"<TarvelUSBEject><Language>nl</Language></TarvelUSBEject>", u"TvEject_lng.xml", u"nl",
       u"You may now remove the drive E:\\."},
      {"<TarvelUSBEject><Language>en</Language></TarvelUSBEject>", u"nothing.xml", u"en",
       u"You may now remove the drive E:\\."},
  };
  for (const auto& row : rows) {
    TempDir temp;
    temp.Write(u"TvEject.xml", row.config);
    temp.Write(row.file_name, kLanguages);
    EXPECT_EQ(app::LoadCompanionLanguage(temp.u16()), row.code) << row.config;
    EXPECT_EQ(app::CompanionText(u"TvDiskEjector.Messages.Ejected", {{u"%drive%", u"E:\\"}}),
              row.text)
        << row.config;
  }
  mLang::Lang().Xml(nullptr);
}

}  // namespace
