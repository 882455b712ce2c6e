// mLang: the user's language code and the catalogue lookup by locale identifier.
#include "lang/lang_select.h"

#include "base/catalogue.h"
#include "base/text.h"
#include "base/trap.h"
#include "os/locale.h"

namespace mLang {

std::u16string getUserLangISO() {
  return base::Trap(base::InProperty(u"mLang.getUserLangISO"), std::u16string(), [] {
    std::u16string id =
        base::Upper(os::GetLocaleInfoW(os::kLocaleUserDefault, os::kLocaleILanguage));
    std::u16string code = LCIDtoISO(id);
    if (!code.empty()) return code;
    // A locale without a catalogued identifier (a custom locale, or one newer than the
    // catalogue) is still named by its language's letters, which a language file of that
    // language matches on its first two.
    return os::GetLocaleInfoW(os::kLocaleUserDefault, os::kLocaleSAbbrevLangName);
  });
}

std::u16string LCIDtoISO(std::u16string_view code) {
  return base::Trap(base::InFunction(u"mLang.LCIDtoISO"), std::u16string(), [&] {
    std::u16string padded(u"0000");
    padded.append(code);
    std::u16string needle(u"|");
    needle.append(base::Upper(padded.substr(padded.size() - 4))).append(u"|");
    std::size_t at = base::Upper(kLangCatalogue).find(needle);
    if (at == std::u16string::npos) return std::u16string();
    std::size_t row = kLangCatalogue.rfind(u'/', at) + 1;
    return std::u16string(kLangCatalogue.substr(row, kLangCatalogue.find(u'|', row) - row));
  });
}

}  // namespace mLang
