#include "os/locale.h"

#include <gtest/gtest.h>

#include <string>

#include "base/text.h"
#include "os/types.h"
#include "support/scoped_env.h"

namespace {

// Identifiers asked for by number answer the same on both sides of the seam. The POSIX side reads
// the user's locale from LC_ALL, LC_MESSAGES and LANG; Windows keeps it in its settings, not in
// the environment (a documented platform difference).
TEST(GetLocaleInfoW, AnswersForAGivenIdentifierAndTheUsersLocale) {
  for (auto [locale, id, abbreviation] : {std::tuple{0x0c0cu, u"0c0c", u"FRC"},
                                          {0x0809u, u"0809", u"ENG"},
                                          {0x0416u, u"0416", u"PTB"},
                                          {0x0c07u, u"0c07", u"DEA"}}) {
    EXPECT_TRUE(base::EqualNoCase(os::GetLocaleInfoW(locale, os::kLocaleILanguage), id));
    EXPECT_EQ(os::GetLocaleInfoW(locale, os::kLocaleSAbbrevLangName), abbreviation);
  }
#ifndef _WIN32
  struct Row {
    const char *lc_all, *lc_messages, *lang;
    const char16_t *id, *abbreviation;
  } rows[] = {
      // clang-format off
      {"fr_CA.UTF-8", "de_DE", "it_IT", u"0c0c", u"FRC"},  // LC_ALL first
      {"", "nl_BE", "de_DE", u"0813", u"NLB"},             // then LC_MESSAGES, empty skipped
      {nullptr, "", "pt_br.utf8", u"0416", u"PTB"},        // then LANG; case does not matter
      {nullptr, nullptr, "C.UTF-8", u"0409", u"ENU"}, {nullptr, nullptr, nullptr, u"0409", u"ENU"},
      {nullptr, nullptr, "de", u"0c07", u"DEA"},  // a language alone: its first row
      {nullptr, nullptr, "de_DE@euro", u"0407", u"DED"},
      {nullptr, nullptr, "es_ES.UTF-8", u"0c0a", u"ESE"},  // not the traditional sort
      {nullptr, nullptr, "sr_CS", u"0c1a", u"SRC"},        // first script of the country
      {nullptr, nullptr, "en_NG.UTF-8", u"1000", u"ENN"},  // country not catalogued
      {nullptr, nullptr, "haw_US", u"1000", u"HAW"},       // language not catalogued
      // clang-format on
  };
  for (const auto& row : rows) {
    testing_support::ScopedEnv env(
        {{"LC_ALL", row.lc_all}, {"LC_MESSAGES", row.lc_messages}, {"LANG", row.lang}});
    const std::string shown = row.lang ? row.lang : "(unset)";
    EXPECT_EQ(os::GetLocaleInfoW(os::kLocaleUserDefault, os::kLocaleILanguage), row.id) << shown;
    EXPECT_EQ(os::GetLocaleInfoW(os::kLocaleUserDefault, os::kLocaleSAbbrevLangName),
              row.abbreviation)
        << shown;
  }
#endif
}

}  // namespace
