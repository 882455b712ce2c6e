#include "base/catalogue.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "base/text.h"

namespace {

using mLang::kLangCatalogue;

// Every row has its four fields (a stray separator would leave one empty or holding a "|"), a
// code of a lower-case language and a region, a four-digit lower-case identifier; identifiers
// and codes are unique but for the two rows of 081a.
TEST(LangCatalogue, RowsAreWellFormedUniqueAndInOrder) {
  EXPECT_EQ(kLangCatalogue.front(), u'/');
  EXPECT_EQ(kLangCatalogue.back(), u'/');
  const auto rows = mLang::CatalogueRows();
  ASSERT_EQ(rows.size(), 204u);
  std::map<std::u16string_view, int> ids, codes;
  for (const mLang::CatalogueRow& row : rows) {
    SCOPED_TRACE(base::Narrow(row.code));
    for (std::u16string_view field : {row.code, row.language, row.country})
      EXPECT_TRUE(!field.empty() && field.find_first_of(u"|/") == std::u16string_view::npos);
    EXPECT_TRUE(row.lcid.size() == 4 &&
                row.lcid.find_first_not_of(u"0123456789abcdef") == std::u16string_view::npos);
    const std::u16string_view language = row.code.substr(0, row.code.find(u'-'));
    EXPECT_TRUE((language.size() == 2 || language.size() == 3) &&
                language == base::Lower(language) && language != row.code);
    ids[row.lcid] += 1;
    codes[row.code] += 1;
  }
  for (const auto& [id, count] : ids) EXPECT_EQ(count, id == u"081a" ? 2 : 1) << base::Narrow(id);
  for (const auto& [code, count] : codes)
    EXPECT_EQ(count, code == u"sr-Latn-CS" ? 2 : 1) << base::Narrow(code);
  for (const char16_t* known : {u"/sq-AL|041c|Albanian|Albania/", u"/yo-NG|046a|Yoruba|Nigeria/",
                                u"/gsw-FR|0484|Alsaian|France/", u"/pt-BR|0416|Portuguese|Brazil/"})
    EXPECT_NE(kLangCatalogue.find(known), std::u16string_view::npos) << base::Narrow(known);
  EXPECT_EQ(rows.front().code, u"sq-AL");
  EXPECT_EQ(rows.back().code, u"yo-NG");
}

}  // namespace
