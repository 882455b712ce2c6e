#include "lang/language_file.h"

#include "base/debug_log.h"
#include "base/text.h"
#include "base/trap.h"
#include "files/file_utils.h"
#include "files/paths.h"
#include "files/text_file.h"
#include "lang/lang.h"
#include "lang/lang_select.h"
#include "sys/config.h"
#include "sys/program.h"

namespace mLang {
namespace {

struct State {
  XmlNodePtr document;
  std::u16string path;
  std::int32_t encoding = 0;
  bool with_bom = false;
};

State& Current() {
  static State state;
  return state;
}

XmlNodePtr ParseFile(const std::u16string& path, std::int32_t& encoding, bool& with_bom) {
  bool bom_changed = false;
  XmlNodePtr root = cXmlNode::Create();
  root->XmlData(mGlobal::LoadTextFile(path, true, encoding, with_bom, bom_changed));
  return root;
}

}  // namespace

namespace {

std::u16string FindLangFileIn(std::u16string_view folder, std::u16string_view base_name,
                              std::u16string_view code) {
  std::u16string fallback;
  const std::u16string pattern = sys::ChildPath(folder, std::u16string(base_name) + u"_*.xml");
  // The listing is read whole first: loading a file must not disturb the open search.
  std::vector<std::u16string> files;
  for (auto name = mFileUtils::FindFile(pattern, 0); !name.empty();
       name = mFileUtils::FindFile(u"", 0)) {
    files.push_back(name);
  }
  const std::u16string two = base::Lower(code.substr(0, 2));
  for (const auto& file : files) {
    std::int32_t encoding = 0;
    bool with_bom = false;
    XmlNodePtr root = ParseFile(sys::ChildPath(folder, file), encoding, with_bom);
    if (root->Name() != u"Languages") continue;
    for (std::int32_t i = 1, n = root->ChildCount(); i <= n; ++i) {
      const std::u16string name = base::Need(root->Child(i)).Name();
      if (base::EqualNoCase(name, code)) return file;
      if (fallback.empty() && base::Lower(std::u16string_view(name).substr(0, 2)) == two) {
        fallback = file;
      }
    }
  }
  return fallback;
}

}  // namespace

std::u16string FindLangFile(std::u16string_view code) {
  return base::Trap(base::InFunction(u"mLang.FindLangFile"), std::u16string(), [&] {
    return FindLangFileIn(mGlobal::ProgramFolder(), mGlobal::ProgramBaseName(), code);
  });
}

LanguageChoice ChooseLanguage(std::u16string_view folder, std::u16string_view base_name,
                              const LanguageSettings& settings) {
  const auto find = [&](std::u16string_view code) {
    return base::Trap(base::InFunction(u"mLang.FindLangFile"), std::u16string(),
                      [&] { return FindLangFileIn(folder, base_name, code); });
  };
  LanguageChoice choice{settings.user_language, {}, false};
  if (choice.code.empty() && !settings.language.empty()) {
    choice.code = settings.language;
    choice.file = settings.file;
    if (choice.file.empty() || !mFileUtils::FileExists(sys::ChildPath(folder, choice.file))) {
      choice.file = find(choice.code);
      if (choice.file.empty()) choice.code.clear();
    }
    if (!choice.code.empty()) return choice;
  }
  if (choice.code.empty()) choice.code = getUserLangISO();
  choice.file = find(choice.code);
  choice.remember = settings.user_language.empty();
  if (choice.file.empty()) choice.file = find(u"en");
  if (choice.file.empty()) choice.file = find(u"fr");
  if (choice.file.empty()) choice.file = std::u16string(base_name) + u"_lng.xml";
  return choice;
}

LoadedLanguage LoadLanguage(const std::u16string& path, std::u16string_view code) {
  LoadedLanguage loaded;
  loaded.document = ParseFile(path, loaded.encoding, loaded.with_bom);
  if (loaded.document->Name() != u"Languages") {
    DebugLog(u"Create new language config node");
    loaded.document = cXmlNode::Create();
    loaded.document->Name(u"Languages");
  }
  loaded.language = loaded.document->FindNode(code, false, true);  // a child, never the root
  if (!loaded.language) {
    loaded.language = cXmlNode::Create();
    loaded.language->Name(std::u16string(code));
    loaded.document->AddChild(loaded.language);
  }
  return loaded;
}

void InitLanguage() {
  base::Trap(base::DansSub(u"mLang.InitLanguage"), [] {
    State& state = Current();
    const LanguageChoice choice = ChooseLanguage(
        mGlobal::ProgramFolder(), mGlobal::ProgramBaseName(),
        {mGlobal::GetConfigValue(u"UserLanguage"), mGlobal::GetConfigValue(u"Language"),
         mGlobal::GetConfigAttribute(u"Language", u"file")});
    if (choice.remember) mGlobal::SetConfigValue(u"UserLanguage", choice.code);

    DebugLog(u"Loading language file : " + choice.file);
    state.path = mGlobal::InProgramFolder(choice.file);
    mStringTools::RecoverInterruptedSave(state.path);
    LoadedLanguage loaded = LoadLanguage(state.path, choice.code);
    state.document = loaded.document;
    state.encoding = loaded.encoding;
    state.with_bom = loaded.with_bom;
    Lang().Xml(loaded.language);

    DebugLog(u"Current language: " + choice.code);
    if (!mGlobal::GetConfigValue(u"UserLanguage").empty()) {
      mGlobal::SetConfigValue(u"Language", choice.code);
      mGlobal::SetConfigAttribute(u"Language", u"file", choice.file);
      mGlobal::SetConfigValue(u"UserLanguage", u"");
    }
  });
}

void SaveLangFile() {
  base::Trap(base::DansSub(u"mLang.SaveLangFile"), [] {
    State& state = Current();
    XmlNodePtr language = Lang().Xml();
    if (!language) return;
    if (base::Lower(std::u16string_view(Lang().LangID()).substr(0, 2)) == u"fr") return;
    if (language->ItemData == 0) return;
    // A language installed without InitLanguage has no document to write back.
    const std::u16string text = base::Need(state.document).XmlData();
    mStringTools::SaveFile(state.path, text, true, 2, false, 1252, 0, false, u"", 0, 5);
    language->ItemData = 0;
  });
}

XmlNodePtr LanguageDocument() {
  return Current().document;
}
std::u16string LanguageFilePath() {
  return Current().path;
}

}  // namespace mLang
