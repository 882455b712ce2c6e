#include "lang/language_file.h"

#include "base/debug_log.h"
#include "base/text.h"
#include "base/trap.h"
#include "files/file_utils.h"
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

std::u16string FindLangFile(std::u16string_view code) {
  return base::Trap(base::InFunction(u"mLang.FindLangFile"), std::u16string(), [&] {
    std::u16string fallback;
    const std::u16string pattern = mGlobal::InProgramFolder(mGlobal::ProgramBaseName() + u"_*.xml");
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
      XmlNodePtr root = ParseFile(mGlobal::InProgramFolder(file), encoding, with_bom);
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
  });
}

void InitLanguage() {
  base::Trap(base::DansSub(u"mLang.InitLanguage"), [] {
    State& state = Current();
    std::u16string code = mGlobal::GetConfigValue(u"UserLanguage");
    std::u16string file;
    bool chosen = false;
    if (code.empty()) {
      code = mGlobal::GetConfigValue(u"Language");
      if (!code.empty()) {
        file = mGlobal::GetConfigAttribute(u"Language", u"file");
        if (file.empty() || !mFileUtils::FileExists(mGlobal::InProgramFolder(file))) {
          file = FindLangFile(code);
          if (file.empty()) code.clear();
        }
        chosen = !code.empty();
      }
      if (!chosen) code = getUserLangISO();
    }
    if (!chosen) {
      file = FindLangFile(code);
      if (mGlobal::GetConfigValue(u"UserLanguage").empty()) {
        mGlobal::SetConfigValue(u"UserLanguage", code);
      }
      if (file.empty()) {
        file = FindLangFile(u"en");
        if (file.empty()) file = FindLangFile(u"fr");
        if (file.empty()) file = mGlobal::ProgramBaseName() + u"_lng.xml";
      }
    }

    DebugLog(u"Loading language file : " + file);
    state.path = mGlobal::InProgramFolder(file);
    mStringTools::RecoverInterruptedSave(state.path);
    state.document = ParseFile(state.path, state.encoding, state.with_bom);
    if (state.document->Name() != u"Languages") {
      DebugLog(u"Create new language config node");
      state.document = cXmlNode::Create();
      state.document->Name(u"Languages");
    }

    XmlNodePtr language = state.document->FindNode(code, false, true);  // a child, never the root
    if (!language) {
      language = cXmlNode::Create();
      language->Name(code);
      state.document->AddChild(language);
    }
    Lang().Xml(language);

    DebugLog(u"Current language: " + code);
    if (!mGlobal::GetConfigValue(u"UserLanguage").empty()) {
      mGlobal::SetConfigValue(u"Language", code);
      mGlobal::SetConfigAttribute(u"Language", u"file", file);
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
