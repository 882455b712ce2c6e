// POSIX side of the seam: locale information from the locale environment variables, turned into
// Windows locale identifiers through the language catalogue.
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "base/catalogue.h"
#include "base/text.h"
#include "os/locale.h"
#include "os/side.h"
#include "os/types.h"

namespace os {
namespace {

using mLang::CatalogueRow;

// What Windows answers for the identifier of a locale that has none of its own
// (LOCALE_CUSTOM_UNSPECIFIED), such as English (Nigeria) or Esperanto.
constexpr std::u16string_view kNoIdentifier = u"1000";

// A locale split into its parts: language ("de"), script ("Latn", "Cyrl" or "") and country or
// region ("DE", "029" or "").
struct Locale {
  std::u16string language;
  std::u16string script;
  std::u16string country;
};

// The locale that governs messages, as the C library chooses it: LC_ALL, then LC_MESSAGES, then
// LANG, the first one that is set and not empty.
std::u16string UserLocaleName() {
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = std::getenv(variable);
    if (value && *value) return base::Widen(value);
  }
  return std::u16string();
}

bool AllLetters(std::u16string_view text) {
  for (char16_t c : text) {
    if (base::LowerAscii(c) < u'a' || base::LowerAscii(c) > u'z') return false;
  }
  return true;
}

bool AllDigits(std::u16string_view text) {
  for (char16_t c : text) {
    if (c < u'0' || c > u'9') return false;
  }
  return true;
}

// Reads a locale name "ll[_CC][.codeset][@modifier]" ("-" is taken for "_"). "C", "POSIX" and
// anything that is no locale name read as English (United States): the C library falls back
// to the C locale for them, whose messages are English.
Locale ParseLocaleName(std::u16string name) {
  std::u16string modifier;
  if (auto at = name.find(u'@'); at != std::u16string::npos) {
    modifier = base::Lower(name.substr(at + 1));
    name.resize(at);
  }
  if (auto dot = name.find(u'.'); dot != std::u16string::npos) name.resize(dot);
  std::u16string language = name;
  std::u16string country;
  if (auto sep = name.find_first_of(u"_-"); sep != std::u16string::npos) {
    language = name.substr(0, sep);
    country = name.substr(sep + 1);
  }
  bool language_ok = language.size() >= 2 && language.size() <= 3 && AllLetters(language);
  bool country_ok = country.empty() || (country.size() == 2 && AllLetters(country)) ||
                    (country.size() == 3 && AllDigits(country));
  if (!language_ok || !country_ok) return {u"en", u"", u"US"};
  Locale locale{base::Lower(language), u"", base::Upper(country)};
  if (modifier == u"latin") locale.script = u"Latn";
  if (modifier == u"cyrillic") locale.script = u"Cyrl";
  return locale;
}

// Splits a catalogue code: "sr-Latn-CS" gives sr, Latn, CS; "de-DE" gives de, -, DE.
Locale SplitCode(std::u16string_view code) {
  Locale locale;
  std::size_t first = code.find(u'-');
  locale.language = std::u16string(code.substr(0, first));
  if (first == std::u16string_view::npos) return locale;
  std::u16string_view rest = code.substr(first + 1);
  std::size_t second = rest.find(u'-');
  if (second != std::u16string_view::npos) {
    locale.script = std::u16string(rest.substr(0, second));
    rest = rest.substr(second + 1);
  }
  locale.country = std::u16string(rest);
  return locale;
}

// The catalogue row that stands for a locale: the exact row for language, script and country;
// without a script the row of the country that has none, else the first with any script; a
// language given alone takes the first row of that language. nullptr when the catalogue has
// no row for the language in that country.
const CatalogueRow* FindRow(const std::vector<CatalogueRow>& rows, const Locale& wanted) {
  auto first = [&](auto&& matches) -> const CatalogueRow* {
    for (const auto& row : rows) {
      Locale parts = SplitCode(row.code);
      if (base::EqualNoCase(parts.language, wanted.language) && matches(parts)) return &row;
    }
    return nullptr;
  };
  auto same_country = [&](const Locale& p) { return base::EqualNoCase(p.country, wanted.country); };
  auto same_script = [&](const Locale& p) { return base::EqualNoCase(p.script, wanted.script); };
  const CatalogueRow* row = nullptr;
  if (!wanted.script.empty()) {
    row = first([&](const Locale& p) {
      return same_script(p) && (wanted.country.empty() || same_country(p));
    });
    if (row) return row;
  }
  if (wanted.country.empty()) return first([](const Locale&) { return true; });
  row = first([&](const Locale& p) { return p.script.empty() && same_country(p); });
  return row ? row : first(same_country);
}

// The three-letter abbreviation of a language, after the Windows pattern: the two-letter
// language in upper case followed by a letter for the country (here the first letter of its
// code: ENU, FRC, DED). A three-letter language is given as it stands (HAW); a language without
// a country as its own letters (EO).
std::u16string Abbreviation(const Locale& locale) {
  std::u16string out = base::Upper(locale.language);
  if (out.size() == 2 && !locale.country.empty()) out += base::UpperAscii(locale.country[0]);
  return out;
}

std::u16string Answer(const CatalogueRow* row, const Locale& locale, std::uint32_t type) {
  if (type == kLocaleILanguage) return std::u16string(row ? row->lcid : kNoIdentifier);
  return Abbreviation(row ? SplitCode(row->code) : locale);
}

}  // namespace

std::u16string side::GetLocaleInfoW(std::uint32_t locale, std::uint32_t type) {
  if (type != kLocaleILanguage && type != kLocaleSAbbrevLangName) {
    SetLastError(kErrorInvalidParameter);
    return std::u16string();
  }
  std::vector<CatalogueRow> rows = mLang::CatalogueRows();
  // The user's default is the environment's locale.
  if (locale == kLocaleUserDefault) {
    Locale user = ParseLocaleName(UserLocaleName());
    return Answer(FindRow(rows, user), user, type);
  }
  std::u16string lcid = base::Lower(base::ToHex(locale));
  if (lcid.size() < 4) lcid.insert(0, 4 - lcid.size(), u'0');
  for (const auto& row : rows) {
    if (row.lcid == lcid) return Answer(&row, Locale{}, type);
  }
  SetLastError(kErrorInvalidParameter);
  return std::u16string();
}

}  // namespace os
