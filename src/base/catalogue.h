// The language catalogue of mLang: every Windows locale identifier the program can turn into a
// language code, and back.
//
//   for (const auto& row : mLang::CatalogueRows())
//     if (row.lcid == u"0c0c") ...  // row.code == u"fr-CA", row.country == u"Canada"
//
// The catalogue has no dependency of its own, so the POSIX side of the OS seam can answer
// locale questions from it too.
#pragma once

#include <string_view>
#include <vector>

namespace mLang {

// One constant text of 204 rows in the form "/row/row/.../row/": "/" at both ends and between
// rows; each row has four fields separated by "|": language code ("fr-CA", "sr-Latn-CS"),
// locale identifier as four lower-case hexadecimal digits ("0c0c"), language name in English,
// country or region in English. The first row is "sq-AL|041c|Albanian|Albania", the last
// "yo-NG|046a|Yoruba|Nigeria".
// Note: the identifier 081a has two rows; a lookup by identifier takes the first.
extern const std::u16string_view kLangCatalogue;

// One row split into its fields (views into kLangCatalogue).
struct CatalogueRow {
  std::u16string_view code;
  std::u16string_view lcid;
  std::u16string_view language;
  std::u16string_view country;
};

// The rows in catalogue order.
std::vector<CatalogueRow> CatalogueRows();

}  // namespace mLang
