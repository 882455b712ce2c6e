// The language file the build writes from packaging/lang/ (build/<preset>/packaging/
// TvEject_lng.xml), met as a user's program meets it on its first run.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/catalogue.h"
#include "base/text.h"
#include "companions/common/companion_text.h"
#include "files/text_file.h"
#include "lang/lang.h"
#include "lang/language_file.h"
#include "support/temp_dir.h"
#include "sys/config.h"
#include "sys/program.h"

namespace {

using testing_support::TempDir;

// Every code of a shipped language, the two letters a "UserLanguage" names and each region the
// user's locale can give, reaches that language's own texts: none is missing (taken from the
// built-in ones), the file is not touched, a region speaks as its language, and the companions
// find the same language. French and English are built in: the file says the very same.
TEST(ShippedLanguageFile, EveryCodeOfAShippedLanguageSpeaksIt) {
  std::string shipped;
  mGlobal::LoadFile(testing_support::ProgramFolder() + u"/../packaging/TvEject_lng.xml", shipped);
  ASSERT_FALSE(shipped.empty()) << "build/<preset>/packaging/TvEject_lng.xml not found";
  // Laid out as the program writes it: a later save changes only what a lookup added.
  XmlNodePtr document = cXmlNode::Create();
  document->XmlData(base::Widen(shipped));
  EXPECT_EQ(base::Narrow(document->XmlData()), shipped);

  // The eject sequence's texts, then the companions'.
  std::vector<std::u16string_view> keys = {
      u"Messages.Intro", u"Messages.Errors.TvAppsCloseRunError", u"Message.AppStillRunning",
      u"Messages.Errors.TvDiskEjectorRunError"};
  const std::size_t companions = keys.size();
  std::vector<std::u16string> french, english;
  for (const app::CompanionString& text : app::CompanionStrings()) {
    keys.push_back(text.key);
    french.emplace_back(text.french);
    english.emplace_back(text.english);
  }
  for (const char16_t* language : {u"de", u"en", u"es", u"fr", u"it", u"nl", u"pt"}) {
    std::vector<std::u16string> codes = {language};
    for (const mLang::CatalogueRow& row : mLang::CatalogueRows())
      if (row.code.substr(0, row.code.find(u'-')) == language) codes.emplace_back(row.code);
    std::vector<std::u16string> first;  // the texts under the two letters
    for (const std::u16string& code : codes) {
      SCOPED_TRACE(base::Narrow(code));
      TempDir dir;
      dir.Write(u"TvEject_lng.xml", shipped);
      dir.Write(u"TvEject.xml", "<TarvelUSBEject><UserLanguage>" + base::Narrow(code) +
                                    "</UserLanguage><Language/></TarvelUSBEject>");
      mGlobal::SetProgramFile(dir.u16(u"TvEject.exe"));
      ASSERT_TRUE(mGlobal::LoadConfig());
      mLang::InitLanguage();
      cLang& lang = mLang::Lang();
      EXPECT_EQ(lang.LangID(), code);
      EXPECT_FALSE(lang.LangName().empty());
      std::vector<std::u16string> texts;
      for (std::u16string_view key : keys) texts.push_back(lang.GetString(key, u"built-in"));
      EXPECT_EQ(lang.Xml()->ItemData, 0) << "a text was missing and taken from the built-in ones";
      if (code.starts_with(u"fr") || code.starts_with(u"en")) {
        EXPECT_EQ(std::vector(texts.begin() + companions, texts.end()),
                  code.starts_with(u"fr") ? french : english);
      }
      lang.GetString(u"Messages.Added", u"nouveau");  // only a French file stays as it was
      mLang::SaveLangFile();
      EXPECT_EQ(dir.Read(u"TvEject_lng.xml") == shipped, code.starts_with(u"fr"));
      // The companions read the configuration the program has not consumed yet.
      dir.Write(u"TvEject_lng.xml", shipped);
      EXPECT_EQ(app::LoadCompanionLanguage(dir.u16()), code);
      EXPECT_EQ(lang.LangID(), code) << "the companions chose another element";
      for (std::size_t i = companions; i < keys.size(); ++i)
        EXPECT_EQ(app::CompanionText(keys[i]), texts[i]) << base::Narrow(keys[i]);
      if (first.empty()) first = texts;
      EXPECT_EQ(texts, first) << "a region speaks differently from its language";
    }
  }
  mLang::Lang().Xml(nullptr);
  mGlobal::SetProgramFile(u"");
}

}  // namespace
