// mLang: choosing the language at start, finding and loading its file, and writing the file
// back after a run that reached the eject step when lookups added texts to it.
//
// Language files are named after the program ("TvEject_lng.xml", "TvEject_de.xml" ...), sit in
// the program folder, and hold one element per language under the root "Languages".
#pragma once

#include <string>
#include <string_view>

#include "xml/node.h"

namespace mLang {

// The name (relative to the program folder) of the language file that holds the language
// code: the first file with a language of exactly that name, else the first language whose
// first two letters match; "" when none.
std::u16string FindLangFile(std::u16string_view code);

// What the configuration says about the language.
struct LanguageSettings {
  std::u16string user_language;  // "UserLanguage": asked for once and not consumed yet
  std::u16string language;       // "Language"
  std::u16string file;           // the "Language" element's "file" attribute
};

// The language and the file that holds it, chosen as the program chooses them: the settings'
// "UserLanguage", else its "Language" with its file (or the file that holds it), else the user's
// locale, with the English and then the French file when none holds that. The files are the
// program's base name + "_*.xml" in folder; `file` is relative to folder. `remember` is set
// when the code came from the locale and the settings asked for none: the program keeps it.
struct LanguageChoice {
  std::u16string code;
  std::u16string file;
  bool remember = false;
};
LanguageChoice ChooseLanguage(std::u16string_view folder, std::u16string_view base_name,
                              const LanguageSettings& settings);

// A language file read: its root (an empty "Languages" when the file is missing or holds no
// languages), the root's child named by the code (created empty when there is none), and the
// file's encoding facts for writing it back.
struct LoadedLanguage {
  XmlNodePtr document;
  XmlNodePtr language;
  std::int32_t encoding = 0;
  bool with_bom = false;
};
LoadedLanguage LoadLanguage(const std::u16string& path, std::u16string_view code);

// Chooses the language (configuration "UserLanguage", then "Language" and its file, then the
// user's locale, then English, then French), loads its file and installs the language node in
// the language object. A "UserLanguage" is used once and then kept as "Language".
void InitLanguage();

// Writes the language file back when lookups changed it, unless the language is French (the
// language of the built-in texts, whose file is never rewritten).
void SaveLangFile();

// The loaded language document's root ("Languages") and its file's full name.
XmlNodePtr LanguageDocument();
std::u16string LanguageFilePath();

}  // namespace mLang
