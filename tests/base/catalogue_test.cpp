#include "base/catalogue.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "base/text.h"

namespace {

using mLang::kLangCatalogue;

// Splits text at every separator, keeping empty pieces (so a stray separator shows up).
std::vector<std::u16string> Split(std::u16string_view text, char16_t separator) {
  std::vector<std::u16string> pieces;
  std::size_t start = 0;
  for (;;) {
    std::size_t end = text.find(separator, start);
    pieces.emplace_back(text.substr(start, end - start));
    if (end == std::u16string_view::npos) return pieces;
    start = end + 1;
  }
}

std::vector<std::vector<std::u16string>> Rows() {
  std::vector<std::vector<std::u16string>> rows;
  for (const auto& row : Split(kLangCatalogue.substr(1, kLangCatalogue.size() - 2), u'/')) {
    rows.push_back(Split(row, u'|'));
  }
  return rows;
}

bool IsLowerHex(std::u16string_view text) {
  for (char16_t c : text) {
    if (!((c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f'))) return false;
  }
  return true;
}

// The English name without what follows it in parentheses or apostrophes, as the rows are
// ordered: "Spanish (Traditional Sort)" sorts as "spanish", "K'iche" as "kiche".
std::u16string SortName(std::u16string_view name) {
  std::u16string out;
  for (char16_t c : name.substr(0, name.find(u" ("))) {
    if (c != u'\'') out += base::LowerChar(c);
  }
  return out;
}

TEST(LangCatalogue, Has204RowsOfFourFieldsBetweenSlashes) {
  ASSERT_GE(kLangCatalogue.size(), 2u);
  EXPECT_EQ(kLangCatalogue.front(), u'/');
  EXPECT_EQ(kLangCatalogue.back(), u'/');
  auto rows = Rows();
  ASSERT_EQ(rows.size(), 204u);
  for (const auto& row : rows) {
    std::string shown = base::Narrow(row[0]);
    ASSERT_EQ(row.size(), 4u) << shown;
    for (const auto& field : row) EXPECT_FALSE(field.empty()) << shown;
    EXPECT_EQ(row[1].size(), 4u) << shown;
    EXPECT_TRUE(IsLowerHex(row[1])) << shown;
    // Language code: a lower-case language, then script and region parts after "-".
    std::u16string language = row[0].substr(0, row[0].find(u'-'));
    EXPECT_TRUE(language.size() == 2 || language.size() == 3) << shown;
    EXPECT_EQ(language, base::Lower(language)) << shown;
    EXPECT_NE(row[0].find(u'-'), std::u16string::npos) << shown;
  }
}

TEST(LangCatalogue, KeepsItsKnownRows) {
  auto rows = Rows();
  ASSERT_EQ(rows.size(), 204u);
  auto joined = [](const std::vector<std::u16string>& row) {
    return row[0] + u"|" + row[1] + u"|" + row[2] + u"|" + row[3];
  };
  EXPECT_EQ(joined(rows.front()), u"sq-AL|041c|Albanian|Albania");
  EXPECT_EQ(joined(rows.back()), u"yo-NG|046a|Yoruba|Nigeria");
  for (const char16_t* known :
       {u"/gsw-FR|0484|Alsaian|France/", u"/fr-FR|040c|French|France/",
        u"/fr-CA|0c0c|French|Canada/", u"/en-US|0409|English|United States/",
        u"/de-DE|0407|German|Germany/", u"/es-ES|0c0a|Spanish|Spain/",
        u"/it-IT|0410|Italian|Italy/", u"/nl-NL|0413|Dutch|Netherlands/",
        u"/pt-BR|0416|Portuguese|Brazil/"}) {
    EXPECT_NE(kLangCatalogue.find(known), std::u16string_view::npos) << base::Narrow(known);
  }
}

TEST(LangCatalogue, IdentifiersAndCodesAreUniqueButFor081a) {
  std::map<std::u16string, int> ids, codes;
  for (const auto& row : Rows()) {
    ++ids[row[1]];
    ++codes[row[0]];
  }
  for (const auto& [id, count] : ids) EXPECT_EQ(count, id == u"081a" ? 2 : 1) << base::Narrow(id);
  for (const auto& [code, count] : codes) {
    EXPECT_EQ(count, code == u"sr-Latn-CS" ? 2 : 1) << base::Narrow(code);
  }
}

TEST(LangCatalogue, RowsRunAlphabeticallyByLanguageName) {
  auto rows = Rows();
  for (std::size_t i = 1; i < rows.size(); ++i) {
    EXPECT_LE(SortName(rows[i - 1][2]), SortName(rows[i][2]))
        << base::Narrow(rows[i - 1][0]) << " before " << base::Narrow(rows[i][0]);
  }
}

TEST(LangCatalogue, CatalogueRowsSplitsEveryRow) {
  auto expected = Rows();
  auto rows = mLang::CatalogueRows();
  ASSERT_EQ(rows.size(), expected.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    EXPECT_EQ(rows[i].code, expected[i][0]);
    EXPECT_EQ(rows[i].lcid, expected[i][1]);
    EXPECT_EQ(rows[i].language, expected[i][2]);
    EXPECT_EQ(rows[i].country, expected[i][3]);
  }
}

}  // namespace
