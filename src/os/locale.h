// Locale information: which language the user works in.
#pragma once

#include <cstdint>
#include <string>

namespace os {

// The locale the program asks about: the user's default.
inline constexpr std::uint32_t kLocaleUserDefault = 0x400;

// The two kinds of information the program reads.
inline constexpr std::uint32_t kLocaleILanguage = 1;        // LOCALE_ILANGUAGE: "0409"
inline constexpr std::uint32_t kLocaleSAbbrevLangName = 3;  // LOCALE_SABBREVLANGNAME: "ENU"

// GetLocaleInfoW into a buffer of 500 characters: the text up to its terminating zero, or ""
// when the platform has no answer (GetLastError then says why). `locale` is a locale
// identifier (0x0c0c) or one of the defaults above.
std::u16string GetLocaleInfoW(std::uint32_t locale, std::uint32_t type);

}  // namespace os
