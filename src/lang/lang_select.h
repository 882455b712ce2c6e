// mLang: which language the program speaks. The user's locale becomes a language code through
// the catalogue (base/catalogue.h); the code names the language in the language files.
//
//   mLang::LCIDtoISO(u"0c0c");  // "fr-CA"
//   mLang::getUserLangISO();    // "de-DE" for a German user, "FRC" style when not catalogued
#pragma once

#include <string>
#include <string_view>

namespace mLang {

// The language code of the user's default locale ("de-DE"); when the catalogue has no row for
// its identifier, the platform's three-letter abbreviation of the language ("FRC"); "" when the
// platform answers neither.
std::u16string getUserLangISO();

// The language code of a locale identifier given as hexadecimal text ("0c0c", "40C", "81a"):
// short texts are padded with zeros, longer ones keep their last four characters. "" when the
// catalogue has no such identifier.
// Note: the identifier is searched as "|XXXX|" anywhere in the catalogue text, so a four-letter
// English name such as "Thai" finds its row too; existing callers only pass identifiers.
std::u16string LCIDtoISO(std::u16string_view code);

}  // namespace mLang
