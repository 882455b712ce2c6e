#include "lang/lang_select.h"

#include <gtest/gtest.h>

#include <string>

#include "base/catalogue.h"
#include "base/text.h"
#include "os/fault.h"
#include "os/locale.h"
#include "os/types.h"
#include "support/log_capture.h"
#include "support/scoped_env.h"

namespace {

TEST(LCIDtoISO, FindsTheCodeOfAnIdentifier) {
  struct Row {
    const char16_t* id;
    const char16_t* code;
  } rows[] = {
      // Identifiers compare without regard to case; short ones are padded with zeros, and only
      // the last four characters of a long one count. 081a has two rows: the first answers. A
      // custom locale (1000) has no row. The search runs over whole rows, English names too.
      // clang-format off
      {u"0c0c", u"fr-CA"}, {u"0C0C", u"fr-CA"}, {u"040C", u"fr-FR"}, {u"c0c", u"fr-CA"},
      {u"409", u"en-US"}, {u"7", u""}, {u"81a", u"sr-Latn-CS"}, {u"041c", u"sq-AL"},
      {u"046A", u"yo-NG"}, {u"0484", u"gsw-FR"}, {u"040a", u"es-ES_tradnl"}, {u"0c0a", u"es-ES"},
      {u"10407", u"de-DE"}, {u"", u""}, {u"0000", u""}, {u"1000", u""}, {u"0436", u""},
      {u"thai", u"th-TH"},
      // clang-format on
  };
  for (const auto& row : rows) {
    EXPECT_EQ(mLang::LCIDtoISO(row.id), row.code) << base::Narrow(row.id);
  }
}

// The user's locale answers its catalogue code; on POSIX it comes from the environment (C is
// English, United States; a language the catalogue lacks answers its abbreviation). Under Wine
// the answer comes from Wine's own locale, which this test cannot choose. Without an identifier
// the abbreviation answers, and without that nothing.
TEST(GetUserLangISO, AnswersTheCatalogueCodeOfTheUserLocale) {
  {
    testing_support::ScopedEnv env({{"LC_ALL", "C"}, {"LC_MESSAGES", nullptr}, {"LANG", nullptr}});
    const std::u16string code = mLang::getUserLangISO();
    EXPECT_FALSE(code.empty());
    EXPECT_EQ(code,
              mLang::LCIDtoISO(os::GetLocaleInfoW(os::kLocaleUserDefault, os::kLocaleILanguage)));
    const std::u16string abbreviation =
        os::GetLocaleInfoW(os::kLocaleUserDefault, os::kLocaleSAbbrevLangName);
    ASSERT_GE(abbreviation.size(), 2u);
    testing_support::LogCapture log;
    os::fault::Scope faults;
    os::fault::Arm(os::fault::Op::kLocaleInfo, os::kErrorInvalidParameter, 1, 1);
    EXPECT_EQ(mLang::getUserLangISO(), abbreviation);
    os::fault::Arm(os::fault::Op::kLocaleInfo, os::kErrorInvalidParameter, 1, 2);
    EXPECT_EQ(mLang::getUserLangISO(), u"");
    EXPECT_TRUE(log.lines.empty());
  }
#ifndef _WIN32
  struct Row {
    const char* lang;
    const char16_t* code;
  } rows[] = {{"C", u"en-US"},     {"de_DE.UTF-8", u"de-DE"},
              {"fr_CA", u"fr-CA"}, {"sr_CS@latin", u"sr-Latn-CS"},
              {"en_NG", u"ENN"},   {"eo", u"EO"}};
  for (const auto& row : rows) {
    testing_support::ScopedEnv env(
        {{"LC_ALL", nullptr}, {"LC_MESSAGES", nullptr}, {"LANG", row.lang}});
    EXPECT_EQ(mLang::getUserLangISO(), row.code) << row.lang;
  }
#endif
}

}  // namespace
