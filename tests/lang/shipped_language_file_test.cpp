// The language file the build writes from packaging/lang/ (build/<preset>/packaging/
// TvEject_lng.xml), met as a user's program meets it on its first run.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "base/catalogue.h"
#include "base/text.h"
#include "companions/common/companion_text.h"
#include "lang/lang.h"
#include "lang/language_file.h"
#include "support/temp_dir.h"
#include "sys/config.h"
#include "sys/program.h"

namespace {

using testing_support::TempDir;

std::string ShippedFile() {
  std::ifstream in(std::filesystem::path(testing_support::ProgramFolder()) / ".." / "packaging" /
                       "TvEject_lng.xml",
                   std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

// The eject sequence's texts, its built-in (French) defaults, and the placeholders its other
// languages fill in.
const struct {
  std::u16string_view key, french, placeholders;
} kProgramTexts[] = {
    {u"Messages.Intro",
     u"Tarvel USB Eject ferme tous les programmes du p\u00E9riph\u00E9rique USB !", u""},
    {u"Messages.Errors.TvAppsCloseRunError",
     u"Erreur en ex\u00E9cutant le programme de fermeture des applications", u""},
    {u"Message.AppStillRunning",
     u"Il reste encore des applications en cours d'ex\u00E9cution.\r\n\r\n"
     u"D\u00E9connexion USB annul\u00E9e",
     u"%count%"},
    {u"Messages.Errors.TvDiskEjectorRunError",
     u"Erreur en ex\u00E9cutant le programme d'ejection du disque USB", u""},
};

// The "%name%" placeholders of a text, sorted and joined.
std::u16string Placeholders(std::u16string_view text) {
  std::multiset<std::u16string_view> found;
  for (std::size_t at = text.find(u'%'), end; at != text.npos; at = text.find(u'%', end + 1)) {
    if ((end = text.find(u'%', at + 1)) == text.npos) break;
    found.insert(text.substr(at, end - at + 1));
  }
  std::u16string joined;
  for (const auto& name : found) joined += name;
  return joined;
}

// Every code of a shipped language, the two letters a "UserLanguage" names and each region the
// user's locale can give, reaches that language's own texts: none is taken from the built-in
// ones, the file is not touched, and the companions find the same language.
TEST(ShippedLanguageFile, EveryCodeOfAShippedLanguageSpeaksIt) {
  const std::string shipped = ShippedFile();
  ASSERT_FALSE(shipped.empty()) << "build/<preset>/packaging/TvEject_lng.xml not found";
  // Laid out as the program writes it: a later save changes only what a lookup added.
  XmlNodePtr document = cXmlNode::Create();
  document->XmlData(base::Widen(shipped));
  EXPECT_EQ(base::Narrow(document->XmlData()), shipped);

  // The program's texts, then the companions' (which have English built in too).
  std::vector<std::u16string> keys, french, english, placeholders;
  for (const auto& text : kProgramTexts) {
    keys.emplace_back(text.key);
    french.emplace_back(text.french);
    placeholders.emplace_back(text.placeholders);
  }
  for (const app::CompanionString& text : app::CompanionStrings()) {
    keys.emplace_back(text.key);
    french.emplace_back(text.french);
    english.emplace_back(text.english);
    placeholders.push_back(Placeholders(text.english));
  }
  const std::size_t companions = std::size(kProgramTexts);

  const struct {
    std::u16string code, name;
  } languages[] = {{u"de", u"Deutsch"},       {u"en", u"English"},  {u"es", u"Espa\u00F1ol"},
                   {u"fr", u"Fran\u00E7ais"}, {u"it", u"Italiano"}, {u"nl", u"Nederlands"},
                   {u"pt", u"Portugu\u00EAs"}};
  for (const auto& language : languages) {
    std::vector<std::u16string> codes = {language.code};
    for (const mLang::CatalogueRow& row : mLang::CatalogueRows()) {
      if (row.code.substr(0, row.code.find(u'-')) == language.code) codes.emplace_back(row.code);
    }
    const bool is_french = language.code == u"fr";
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
      EXPECT_EQ(lang.LangName(), language.name);
      std::vector<std::u16string> texts;
      for (std::size_t i = 0; i < keys.size(); ++i) {
        texts.push_back(lang.GetString(keys[i], french[i]));
        if (is_french) continue;
        EXPECT_NE(texts[i], french[i]) << base::Narrow(keys[i]);
        EXPECT_EQ(Placeholders(texts[i]), placeholders[i]) << base::Narrow(keys[i]);
      }
      EXPECT_EQ(lang.Xml()->ItemData, 0) << "a text was missing and taken from the built-in ones";
      // French and English are built in: the file says the very same, or the program would speak
      // differently with and without it.
      if (is_french) {
        EXPECT_EQ(texts, french);
        lang.GetString(u"Messages.Added", u"nouveau");  // a French file is never written back
      }
      if (language.code == u"en") {
        EXPECT_EQ(std::vector(texts.begin() + companions, texts.end()), english);
      }
      mLang::SaveLangFile();
      EXPECT_EQ(dir.Read(u"TvEject_lng.xml"), shipped);

      // The companions read the configuration the program has not consumed yet.
      EXPECT_EQ(app::LoadCompanionLanguage(dir.u16()), code);
      EXPECT_EQ(lang.LangID(), code) << "the companions chose another element";
      for (std::size_t i = companions; i < keys.size(); ++i) {
        EXPECT_EQ(app::CompanionText(keys[i]), texts[i]) << base::Narrow(keys[i]);
      }
      if (first.empty()) first = texts;
      EXPECT_EQ(texts, first) << "a region speaks differently from its language";
    }
  }
  mLang::Lang().Xml(nullptr);
  mGlobal::SetProgramFile(u"");
}

}  // namespace
