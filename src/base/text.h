// Small conversions every module needs around UTF-16 text: ASCII and UTF-8 literals to
// std::u16string, numbers to their decimal text, and case mapping.
//
// These are plumbing for the program's own code; the system's named text procedures
// (UTF8_Decode, StrCodePageToUnicode, ...) live in text/.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace base {

// UTF-8 to UTF-16 and back: invalid sequences become U+FFFD as Windows replaces them
// (base/utf8.h), and so do lone surrogates.
std::u16string Widen(std::string_view utf8);
std::string Narrow(std::u16string_view text);

// Decimal text of a signed integer ("-12").
std::u16string ToText(std::int64_t value);

// Upper-case hexadecimal without leading zeros ("4E4").
std::u16string ToHex(std::uint64_t value);

// ASCII-only case folding: letters outside A-Z/a-z are left alone.
char16_t LowerAscii(char16_t c);
char16_t UpperAscii(char16_t c);

// Comparison without regard to case, the way the program compares names, and the same on every
// platform and in every locale: two code units are equal when their upper cases are, by the
// simple one-to-one mapping Windows' ordinal comparisons use (CompareStringOrdinal with
// bIgnoreCase), one UTF-16 code unit at a time. So Cyrillic, Greek, Armenian, Georgian and the
// fullwidth letters fold; "σ", "ς" and "Σ" are one letter, and so are "ǆ", "ǅ" and "Ǆ"; the
// dotless "ı" and the dotted "İ" are letters of their own (the invariant mapping, not Turkish),
// and no character beyond 7 bits ever equals a 7-bit one.
bool EqualNoCase(std::u16string_view a, std::u16string_view b);
// The simple upper case of one code unit (the key EqualNoCase compares), and the simple lower
// case, kept only where it does not change what the character compares equal to ("İ", the
// Kelvin sign and the capital sharp s stay as they are).
char16_t UpperChar(char16_t c);
char16_t LowerChar(char16_t c);
std::u16string Lower(std::u16string_view text);
std::u16string Upper(std::u16string_view text);

// The decimal number at the start of `text` (blanks and tabs before it skipped), read the same
// in every locale: a sign, digits, a point and digits, and an exponent when digits come before
// it. `used` is how many code units it took, blanks included; 0 when no digit is there (the
// value is then 0). An exponent letter with no digits after it is not part of the number.
double ReadNumber(std::u16string_view text, std::size_t& used);

// Every occurrence of `from` replaced by `to`, scanning from the start (case-sensitive).
std::u16string ReplaceAll(std::u16string text, std::u16string_view from, std::u16string_view to);

}  // namespace base
