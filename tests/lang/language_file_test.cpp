#include "lang/language_file.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "base/text.h"
#include "lang/lang.h"
#include "lang/lang_select.h"
#include "support/log_capture.h"
#include "support/scoped_env.h"
#include "support/temp_dir.h"
#include "sys/config.h"
#include "sys/program.h"

namespace {

using testing_support::TempDir;

const char kEnglish[] =
    "<Languages><en name=\"English\"><Messages><Intro>Hello</Intro></Messages></en></Languages>";
const char kFrenchFrance[] =
    "<Languages><fr-FR name=\"Fran\xC3\xA7"
    "ais\"/></Languages>";
const char kFrench[] =
    "<Languages><fr name=\"Fran\xC3\xA7"
    "ais\"/></Languages>";
const char kGerman[] =
    "<Languages><de name=\"Deutsch\"><Messages><Intro>Hallo</Intro></Messages></de></Languages>";

// Starts the program (answering as TvEject) from dir with this configuration and dir's language
// files.
void Start(const TempDir& dir, const std::string& config) {
  dir.Write(u"TvEject.xml", "<TarvelUSBEject>" + config + "</TarvelUSBEject>");
  mGlobal::SetProgramFile(dir.u16(u"TvEject.exe"));
  ASSERT_TRUE(mGlobal::LoadConfig());
  mGlobal::ConfigTree()->ItemData = 0;  // as in a fresh process
  mLang::InitLanguage();
}

std::u16string FileName() {
  const std::u16string path = mLang::LanguageFilePath();
  return path.substr(path.find_last_of(u"\\/") + 1);
}

TEST(LanguageStartup, ChoosesByConfigurationThenFilesThenFallbacks) {
  struct Row {
    const char* what;
    std::string config;
    std::vector<std::pair<std::u16string, std::string>> files;
    std::u16string code;
    std::u16string file;
  } rows[] = {
      // clang-format off
      {"UserLanguage found by exact name", "<UserLanguage>de</UserLanguage>",
       {{u"TvEject_a.xml", kEnglish}, {u"TvEject_b.xml", kGerman}}, u"de", u"TvEject_b.xml"},
      {"Language with its file", "<Language file=\"TvEject_x.xml\">de</Language>",
       {{u"TvEject_x.xml", kGerman}}, u"de", u"TvEject_x.xml"},
      {"Language whose file is missing is searched for", "<Language file=\"gone.xml\">de</Language>",
       {{u"TvEject_y.xml", kGerman}}, u"de", u"TvEject_y.xml"},
      {"two letters as the fallback, an exact name in a later file wins",
       "<UserLanguage>fr</UserLanguage>",
       {{u"TvEject_1.xml", kFrenchFrance}, {u"TvEject_2.xml", kFrench}}, u"fr", u"TvEject_2.xml"},
      {"two letters alone", "<UserLanguage>fr</UserLanguage>",
       {{u"TvEject_1.xml", kFrenchFrance}}, u"fr", u"TvEject_1.xml"},
      {"nothing for the code: English's file", "<UserLanguage>sv</UserLanguage>",
       {{u"TvEject_en.xml", kEnglish}}, u"sv", u"TvEject_en.xml"},
      {"then French's", "<UserLanguage>sv</UserLanguage>",
       {{u"TvEject_fr.xml", kFrench}}, u"sv", u"TvEject_fr.xml"},
      {"then the default name", "<UserLanguage>sv</UserLanguage>", {}, u"sv", u"TvEject_lng.xml"},
      {"a file of another program is not a language file", "<UserLanguage>de</UserLanguage>",
       {{u"TvEject_z.xml", "<TarvelUSBEject><de/></TarvelUSBEject>"}}, u"de", u"TvEject_lng.xml"},
      // A regional code finds its file through its first two letters; the language node is named
      // exactly (on POSIX de-DE; on Windows the locale is the system's).
      {"the user's locale when the configuration names nothing", "<UserLanguage/><Language/>",
       {{u"TvEject_lng.xml", kGerman}}, u"", u"TvEject_lng.xml"},
      // clang-format on
  };
  testing_support::ScopedEnv env(
      {{"LC_ALL", nullptr}, {"LC_MESSAGES", nullptr}, {"LANG", "de_DE.UTF-8"}});
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    TempDir dir;
    for (const auto& [name, bytes] : row.files) dir.Write(name, bytes);
    Start(dir, row.config);
    const std::u16string code = row.code.empty() ? mLang::getUserLangISO() : row.code;
    EXPECT_EQ(mLang::Lang().LangID(), code);
    EXPECT_EQ(FileName(), row.file);
    // A UserLanguage is used once and remembered as Language with its file.
    if (row.config.find("UserLanguage") != std::string::npos) {
      EXPECT_EQ(mGlobal::GetConfigValue(u"UserLanguage"), u"");
      EXPECT_EQ(mGlobal::GetConfigValue(u"Language"), code);
      EXPECT_EQ(mGlobal::GetConfigAttribute(u"Language", u"file"), row.file);
      EXPECT_EQ(mGlobal::ConfigTree()->ItemData, 1);
    } else {
      EXPECT_EQ(mGlobal::ConfigTree()->ItemData, 0) << "the configuration is not rewritten";
    }
  }
  // The language is a child of the document's root, even when its code is the root's name.
  TempDir dir;
  dir.Write(u"TvEject_lng.xml", kEnglish);
  Start(dir, "<UserLanguage>Languages</UserLanguage>");
  ASSERT_NE(mLang::Lang().Xml(), nullptr);
  EXPECT_NE(mLang::Lang().Xml()->Parent(), nullptr);
  mGlobal::SetProgramFile(u"");
}

TEST(LanguageStartup, LookupsGrowTheFileWhichIsSavedUnlessFrench) {
  TempDir dir;
  dir.Write(u"TvEject_lng.xml", kEnglish);
  Start(dir, "<UserLanguage>en</UserLanguage>");
  cLang& lang = mLang::Lang();
  EXPECT_EQ(lang.GetString(u"Messages.Intro", u"Bonjour"), u"Hello");
  EXPECT_EQ(lang.Xml()->ItemData, 0);
  mLang::SaveLangFile();
  EXPECT_EQ(dir.Read(u"TvEject_lng.xml"), kEnglish) << "nothing added, nothing written";

  EXPECT_EQ(lang.GetString(u"Messages.Errors.X", u"Line one\r\nLine two"), u"Line one\r\nLine two");
  EXPECT_EQ(lang.Xml()->ItemData, 1);
  EXPECT_EQ(lang.GetString(u"messages.errors.x", u"other default"), u"Line one\r\nLine two");
  mLang::SaveLangFile();
  const std::string saved = dir.Read(u"TvEject_lng.xml");
  EXPECT_NE(saved.find("<X>Line one\\nLine two</X>"), std::string::npos) << saved;
  EXPECT_EQ(lang.Xml()->ItemData, 0);

  // French is the language of the built-in texts: its file is never rewritten.
  dir.Write(u"TvEject_fr.xml", kFrench);
  Start(dir, "<UserLanguage>fr</UserLanguage>");
  mLang::Lang().GetString(u"Messages.Intro", u"Bonjour");
  EXPECT_EQ(mLang::Lang().Xml()->ItemData, 1);
  mLang::SaveLangFile();
  EXPECT_EQ(dir.Read(u"TvEject_fr.xml"), kFrench);
  mGlobal::SetProgramFile(u"");
}

// What lookups answer and what they leave in the nodes, as the language file would be written.
TEST(cLangLookup, KeysDefaultsAndChildValues) {
  const auto flat = [](const XmlNodePtr& node) {
    std::u16string xml = node->XmlData();
    std::erase_if(xml, [](char16_t c) { return c == u'\r' || c == u'\n' || c == u'\t'; });
    return base::Narrow(xml);
  };
  cLang lang;
  EXPECT_EQ(lang.GetString(u"A.B", u"default"), u"default") << "no language installed";
  EXPECT_EQ(lang.LangID(), u"");
  XmlNodePtr node = cXmlNode::Create();
  node->Name(u"en");
  node->Attribut(u"name", u"English");
  lang.Xml(node);
  EXPECT_EQ(lang.LangName(), u"English");
  EXPECT_EQ(lang.GetString(u"Messages.Intro", u""), u"");
  EXPECT_EQ(node->ChildCount(), 0) << "without a default nothing is stored";
  // Message and Messages are different keys; an element with children but no text answers the
  // default without storing it; a node named like the key is not its own value.
  lang.GetString(u"Message.AppStillRunning", u"one");
  lang.GetString(u"Messages.Intro", u"two");
  EXPECT_EQ(lang.GetString(u"Messages", u"three"), u"three");
  EXPECT_EQ(lang.GetString(u"Messages.Messages", u"inner"), u"inner");
  EXPECT_EQ(flat(node),
            "<en name=\"English\"><Message><AppStillRunning>one</AppStillRunning></Message>"
            "<Messages><Intro>two</Intro><Messages>inner</Messages></Messages></en>");
  EXPECT_EQ(lang.GetString(u"Intro", u"top"), u"top") << "a key is never found deeper down";

  // A value without a language suffix is adopted as the language's; otherwise the first of any.
  XmlNodePtr holder = cXmlNode::Create();
  holder->ChildValue(u"Title", u"plain");
  holder->ChildValue(u"Caption.de", u"Titel");
  holder->ChildValue(u"Tip.en", u"tip");
  EXPECT_EQ(lang.LocalChildValue(holder, u"Title"), u"plain");
  EXPECT_EQ(lang.LocalChildValue(holder, u"Caption"), u"Titel");
  EXPECT_EQ(lang.LocalChildValue(holder, u"Tip"), u"tip");
  lang.LocalChildValue(holder, u"Tip", u"new tip");
  EXPECT_EQ(lang.LocalChildValue(holder, u"Missing"), u"");
  EXPECT_EQ(
      flat(holder),
      "<><Title.en>plain</Title.en><Caption.de>Titel</Caption.de><Tip.en>new tip</Tip.en></>");
  // The plain child wins over another language's and over a deeper one of the same name.
  XmlNodePtr box = cXmlNode::Create();
  box->XmlData(u"<b><L.de>Etikett</L.de><Deep><L>deep</L></Deep><L>plain</L></b>");
  EXPECT_EQ(lang.LocalChildValue(box, u"L"), u"plain");
  XmlNodePtr title = cXmlNode::Create();
  title->Name(u"Title");
  title->ChildValue(u"Title", u"inner");
  EXPECT_EQ(lang.LocalChildValue(title, u"Title"), u"inner");
  EXPECT_EQ(flat(title), "<Title><Title.en>inner</Title.en></Title>");
}

// A process that never ran InitLanguage: members handed no node, or reaching the language
// document that was never loaded, answer their neutral value with a trap line (error 91, as a
// call through an unset object) and do not crash. Run in a fresh process, since the language
// state is process-wide.
TEST(LangWithoutNodes, MembersAnswerNeutralValues) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto run = [] {
    if (mLang::LanguageDocument() || mLang::Lang().Xml()) std::exit(2);  // not a fresh process
    testing_support::LogCapture log;
    const bool neutral = mLang::Lang().LocalChildValue(nullptr, u"Title").empty();
    mLang::Lang().LocalChildValue(nullptr, u"Title", u"x");
    mLang::SaveLangFile();  // no language: nothing to do, nothing logged
    XmlNodePtr en = cXmlNode::Create();
    en->Name(u"en");
    en->ItemData = 1;  // texts were added, but there is no document to save them in
    mLang::Lang().Xml(en);
    mLang::SaveLangFile();
    const std::u16string not_set = u" 91 (Object variable or With block variable not set) ";
    const std::u16string property = u"Error" + not_set + u"in Property cLang.LocalChildValue";
    for (const auto& line : log.lines) std::fprintf(stderr, "%s\n", base::Narrow(line).c_str());
    std::exit(neutral && mLang::LanguageFilePath().empty() &&
                      log.lines == std::vector<std::u16string>{property, property,
                                                               u"Erreur" + not_set +
                                                                   u"dans Sub mLang.SaveLangFile"}
                  ? 0
                  : 1);
  };
  EXPECT_EXIT(run(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
