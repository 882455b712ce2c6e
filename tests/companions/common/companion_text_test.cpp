// The companions' texts: which language the suite's files choose. (The built-in texts against
// the shipped language file: tests/lang/shipped_language_file_test.cpp.)
#include "companions/common/companion_text.h"

#include <gtest/gtest.h>

#include "lang/lang.h"
#include "lang/lang_select.h"
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
      // The first two letters find the file; a language it lacks speaks the built-in texts.
      {"<TarvelUSBEject><Language>de-CH</Language></TarvelUSBEject>", u"TvEject_lng.xml", u"de-CH",
       u"You may now remove the drive E:\\."},
      {"<TarvelUSBEject><Language>de-AT</Language></TarvelUSBEject>", u"TvEject_lng.xml", u"de-AT",
       u"DE E:\\\r\nOK"},
      // A language asked for and not consumed yet goes first.
      {"<TarvelUSBEject><UserLanguage>en</UserLanguage><Language>de</Language></TarvelUSBEject>",
       u"TvEject_lng.xml", u"en", u"EN E:\\"},
      {"<TarvelUSBEject><Language file=\"TvEject_more.xml\">en</Language></TarvelUSBEject>",
       u"TvEject_more.xml", u"en", u"EN E:\\"},
      // A language without the text, or without a file: the built-in text of its kind.
      {"<TarvelUSBEject><Language>fr</Language></TarvelUSBEject>", u"TvEject_lng.xml", u"fr",
       u"Vous pouvez maintenant retirer le p\u00E9riph\u00E9rique E:\\."},
      {"<TarvelUSBEject><UserLanguage>nl</UserLanguage></TarvelUSBEject>", u"TvEject_lng.xml",
       u"nl", u"You may now remove the drive E:\\."},
      // A language no file holds gives way to the user's own.
      {"<TarvelUSBEject><Language>en</Language></TarvelUSBEject>", u"nothing.xml", nullptr,
       nullptr},
  };
  for (const auto& row : rows) {
    TempDir temp;
    temp.Write(u"TvEject.xml", row.config);
    temp.Write(row.file_name, kLanguages);
    const std::u16string code = app::LoadCompanionLanguage(temp.u16());
    EXPECT_EQ(code, row.code ? row.code : mLang::getUserLangISO()) << row.config;
    if (row.text) {
      EXPECT_EQ(app::CompanionText(u"TvDiskEjector.Messages.Ejected", {{u"%drive%", u"E:\\"}}),
                row.text)
          << row.config;
    }
  }
  mLang::Lang().Xml(nullptr);
}

}  // namespace
