// The companions' texts: which language the suite's files choose. (The built-in texts against
// the shipped language file: tests/lang/shipped_language_file_test.cpp.)
#include "companions/common/companion_text.h"

#include <gtest/gtest.h>

#include "lang/lang.h"
#include "lang/lang_select.h"
#include "support/temp_dir.h"

namespace {

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
  const char16_t* const kBuiltIn = u"You may now remove the drive E:\\.";
  const struct {
    std::string config;         // inside TvEject.xml's root
    const char16_t* file_name;  // where the languages are written
    const char16_t* code;       // nullptr: the user's own
    const char16_t* text;       // of TvDiskEjector.Messages.Ejected for the drive "E:\"
  } rows[] = {
      {"<Language>de</Language>", u"TvEject_lng.xml", u"de", u"DE exact"},
      // The first two letters find the file; a language it lacks speaks the built-in texts.
      {"<Language>de-CH</Language>", u"TvEject_lng.xml", u"de-CH", kBuiltIn},
      {"<Language>de-AT</Language>", u"TvEject_lng.xml", u"de-AT", u"DE E:\\\r\nOK"},
      // A language asked for and not consumed yet goes first.
      {"<UserLanguage>en</UserLanguage><Language>de</Language>", u"TvEject_lng.xml", u"en",
       u"EN E:\\"},
      {"<Language file=\"TvEject_more.xml\">en</Language>", u"TvEject_more.xml", u"en", u"EN E:\\"},
      // A language without the text, or without a file: the built-in text of its kind.
      {"<Language>fr</Language>", u"TvEject_lng.xml", u"fr",
       u"Vous pouvez maintenant retirer le p\u00E9riph\u00E9rique E:\\."},
      {"<UserLanguage>nl</UserLanguage>", u"TvEject_lng.xml", u"nl", kBuiltIn},
      // A language no file holds gives way to the user's own.
      {"<Language>en</Language>", u"nothing.xml", nullptr, nullptr},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.config);
    testing_support::TempDir temp;
    temp.Write(u"TvEject.xml", "<TarvelUSBEject>" + row.config + "</TarvelUSBEject>");
    temp.Write(row.file_name, kLanguages);
    EXPECT_EQ(app::LoadCompanionLanguage(temp.u16()),
              row.code ? row.code : mLang::getUserLangISO());
    if (row.text) {
      EXPECT_EQ(app::CompanionText(u"TvDiskEjector.Messages.Ejected", {{u"%drive%", u"E:\\"}}),
                row.text);
    }
  }
  mLang::Lang().Xml(nullptr);
}

}  // namespace
