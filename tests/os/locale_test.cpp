#include "os/locale.h"

#include <gtest/gtest.h>

#include <string>

#include "base/text.h"
#include "os/types.h"
#include "support/scoped_env.h"

namespace {

// Identifiers asked for by number answer the same on both sides of the seam.
TEST(GetLocaleInfoW, AnswersForAGivenIdentifier) {
  struct Row {
    std::uint32_t locale;
    const char16_t* id;
    const char16_t* abbreviation;
  } rows[] = {
      {0x0c0c, u"0c0c", u"FRC"}, {0x0409, u"0409", u"ENU"}, {0x0809, u"0809", u"ENG"},
      {0x0c09, u"0c09", u"ENA"}, {0x1009, u"1009", u"ENC"}, {0x080c, u"080c", u"FRB"},
      {0x0416, u"0416", u"PTB"}, {0x0c07, u"0c07", u"DEA"},
  };
  for (const auto& row : rows) {
    EXPECT_TRUE(base::EqualNoCase(os::GetLocaleInfoW(row.locale, os::kLocaleILanguage), row.id))
        << base::Narrow(row.id);
    EXPECT_EQ(os::GetLocaleInfoW(row.locale, os::kLocaleSAbbrevLangName), row.abbreviation)
        << base::Narrow(row.id);
  }
}

// The POSIX side reads the user's locale from LC_ALL, LC_MESSAGES and LANG. Windows keeps the
// user's locale in its settings, not in the environment: a documented platform difference.
TEST(GetLocaleInfoW, PosixUserLocaleComesFromTheEnvironment) {
#ifdef _WIN32
  GTEST_SKIP() << "the Windows user locale does not come from the environment";
#else
  struct Row {
    const char* lc_all;
    const char* lc_messages;
    const char* lang;
    const char16_t* id;
    const char16_t* abbreviation;
  } rows[] = {
      {nullptr, nullptr, "de_DE.UTF-8", u"0407", u"DED"},
      {"fr_CA.UTF-8", "de_DE", "it_IT", u"0c0c", u"FRC"},  // LC_ALL first
      {"", "nl_BE", "de_DE", u"0813", u"NLB"},             // then LC_MESSAGES, empty skipped
      {nullptr, "", "pt_br.utf8", u"0416", u"PTB"},        // then LANG; case does not matter
      {nullptr, nullptr, "C", u"0409", u"ENU"},
      {nullptr, nullptr, "POSIX", u"0409", u"ENU"},
      {nullptr, nullptr, "C.UTF-8", u"0409", u"ENU"},
      {nullptr, nullptr, nullptr, u"0409", u"ENU"},  // nothing set reads as C
      {nullptr, nullptr, "not a locale", u"0409", u"ENU"},
      {nullptr, nullptr, "de", u"0c07", u"DEA"},  // a language alone: its first row
      {nullptr, nullptr, "de-CH", u"0807", u"DEC"},
      {nullptr, nullptr, "de_DE@euro", u"0407", u"DED"},
      {nullptr, nullptr, "es_ES.UTF-8", u"0c0a", u"ESE"},  // not the traditional sort
      {nullptr, nullptr, "sr_CS", u"0c1a", u"SRC"},        // first script of the country
      {nullptr, nullptr, "sr_CS.UTF-8@latin", u"081a", u"SRC"},
      {nullptr, nullptr, "uz_UZ@cyrillic", u"0843", u"UZU"},
      {nullptr, nullptr, "en_NG.UTF-8", u"1000", u"ENN"},  // country not catalogued
      {nullptr, nullptr, "eo.UTF-8", u"1000", u"EO"},      // language not catalogued
      {nullptr, nullptr, "haw_US", u"1000", u"HAW"},
  };
  for (const auto& row : rows) {
    testing_support::ScopedEnv env(
        {{"LC_ALL", row.lc_all}, {"LC_MESSAGES", row.lc_messages}, {"LANG", row.lang}});
    std::string shown = row.lang ? row.lang : "(unset)";
    EXPECT_EQ(os::GetLocaleInfoW(os::kLocaleUserDefault, os::kLocaleILanguage), row.id) << shown;
    EXPECT_EQ(os::GetLocaleInfoW(os::kLocaleUserDefault, os::kLocaleSAbbrevLangName),
              row.abbreviation)
        << shown;
  }
#endif
}

}  // namespace
