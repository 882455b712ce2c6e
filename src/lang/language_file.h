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
