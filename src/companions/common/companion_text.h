// The companions' texts: the suite's language file and the texts built into the companions in
// French and English.
//
// The companions speak the language the program speaks, chosen the same way from the same
// configuration and files. Nothing is written back: a text the language lacks is the built-in
// French one for a French language and the English one for any other.
//
//   app::LoadCompanionLanguage(u"E:\\Suite\\TvEject");
//   mUnicodePatch::MsgBox(app::CompanionText(u"TvDiskEjector.Messages.Ejected"), 64);
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace app {

// One text of the companions: its dotted key in the language file and its built-in defaults.
struct CompanionString {
  std::u16string_view key;
  std::u16string_view french;
  std::u16string_view english;
};

// Every text of the companions, in the order the language file lists them.
const std::vector<CompanionString>& CompanionStrings();

// Chooses and installs the language as the program does (mLang::ChooseLanguage), from the
// configuration beside the program in program_folder (TvEject.xml) and the program's language
// files there; nothing is written. Returns the code chosen.
std::u16string LoadCompanionLanguage(std::u16string_view program_folder);

// The text of key (one of CompanionStrings) in the installed language, line breaks as CR LF;
// the built-in default when the language has none. Placeholders ("%drive%") are replaced by
// the values given, every occurrence.
std::u16string CompanionText(
    std::u16string_view key,
    const std::vector<std::pair<std::u16string_view, std::u16string>>& values = {});

}  // namespace app
