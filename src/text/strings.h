// mStringTools, string helpers: Base64 for binary data kept in XML, fixed-width line wrapping,
// the trailing path separator and the root of a path.
//
// The Base64 procedures take and give the storage of their argument and result (see
// text/utf8.h): mode 1 is raw bytes, mode 2 a text of one character per byte (through the ANSI
// code page), mode 0 picks 2 when the input looks like UTF-16 (IsUnicode), else 1.
//
//   mStringTools::Base64_Decode("TWFu", 1, 1);                  // "Man"
//   mStringTools::BytesToStr(mStringTools::Base64_Encode("Man", 1, 2));  // u"TWFu"
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace mStringTools {

// Decodes Base64 (RFC 4648 alphabet). "" when the text is empty or its length is not a multiple
// of 4. A character outside the alphabet counts as a zero symbol; the result is shortened by the
// number of characters from the first "=" to the end.
std::string Base64_Decode(const std::string& text, std::int32_t input_mode,
                          std::int32_t output_mode);

// Encodes bytes in Base64, padded with "=" to a multiple of four symbols.
std::string Base64_Encode(const std::string& data, std::int32_t input_mode,
                          std::int32_t output_mode);

// The text cut into lines of line_length characters, each followed by CR LF (the last one
// shorter when the length does not divide). A line length below 1 is an invalid call: "".
std::u16string SplitLines(std::u16string_view text, std::int32_t line_length);

// Appends a separator unless the path already ends in "\" or "/": "/" when the path holds a
// "/", else "\" ("" becomes "\"). Changes the argument and returns it.
std::u16string AddBackSlash(std::u16string& path);

// The root of a path with a trailing backslash: "E:\" for a drive path (a "\\?\" prefix is
// dropped), "\\server\share\" for a network path; "" for anything else.
std::u16string PathRoot(std::u16string_view path);

}  // namespace mStringTools
