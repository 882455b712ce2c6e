// mStringTools, encodings: which of UTF-16LE, UTF-8 or an ANSI code page a file's bytes are in,
// and the conversions between a code page's bytes and text.
//
// Raw byte strings (a file's contents before decoding) are std::string used as byte vectors;
// an odd number of bytes is allowed.
//
//   std::int32_t encoding = mStringTools::kAutoDetect;
//   bool changed = false;
//   std::u16string text =
//       mStringTools::StrDataToUnicode(bytes, encoding, 1252, /*WithBOM=*/false, changed);
//   // encoding is now 1 (UNICODE), 2 (UTF8) or 3 (ANSI)
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace mStringTools {

// Encoding codes.
enum : std::int32_t {
  kAutoDetect = 0,  // detect, and write the detected code back
  kUnicode = 1,     // UTF-16 little-endian
  kUtf8 = 2,        // UTF-8 (code page 65001)
  kAnsi = 3,        // the code page given beside it
};

// "AutoDetect", "UNICODE", "UTF8", "ANSI", or "0x" and the code in upper-case hexadecimal
// (1252 gives "0x4E4").
std::u16string EncodingName(std::int32_t Encoding);

// Decodes a file's bytes. Encoding 0 is detected (IsUnicode first, then IsUTF8, else ANSI; the
// code found is written back), 1 takes the bytes as UTF-16LE, 2 decodes UTF-8, 3 decodes
// CodePage; another code gives "". Then the byte-order mark is made to match WithBOM: a leading
// U+FEFF (FF FE, or EF BB BF before UTF-8 decoding) is removed when WithBOM is false, added
// when it is true, and BOMChanged turns true when that changed the text (else it keeps its
// value). Empty data leaves Encoding and BOMChanged alone.
// Note: UTF-8 and ANSI data are decoded up to the first zero byte; with UTF-16 an odd trailing
// byte has no character and is left out.
std::u16string StrDataToUnicode(const std::string& StrData, std::int32_t& Encoding,
                                std::uint32_t CodePage, bool WithBOM, bool& BOMChanged);

// The bytes of a code page to text, up to the first zero byte.
std::u16string StrCodePageToUnicode(const std::string& bytes, std::uint32_t code_page);

// Text to a code page's bytes, up to the first NUL; characters the code page lacks become a
// similar one or its default character.
std::string StrUnicodeToCodePage(const std::u16string& text, std::uint32_t code_page);

// Whether the bytes look like UTF-16 text (the system's statistics and signature tests).
bool IsUnicode(std::string_view bytes);

// A text's storage: its UTF-16LE bytes, and back (an odd trailing byte is left out).
std::string StrToBytes(std::u16string_view text);
std::u16string BytesToStr(std::string_view bytes);

// Text to the system's ANSI code page, one byte per character, and back; embedded NULs are
// kept.
std::string StrToAnsiBytes(std::u16string_view text);
std::u16string AnsiBytesToStr(std::string_view bytes);

// The number of bytes (0 for none).
std::int32_t ArrayLength(std::string_view bytes);

// The UTF-16LE byte-order mark, FF FE.
std::string Utf16LeBom();

}  // namespace mStringTools
