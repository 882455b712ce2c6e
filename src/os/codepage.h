// Code pages: a code page's bytes to UTF-16 and back, the system's ANSI code page, and the
// guess whether a buffer holds UTF-16 text.
//
//   int n = os::MultiByteToWideChar(1252, 0, bytes, -1, nullptr, 0);  // size, terminator included
//   std::u16string text(n, u'\0');
//   os::MultiByteToWideChar(1252, 0, bytes, -1, text.data(), n);
#pragma once

#include <cstdint>

namespace os {

// Code page numbers with a meaning of their own.
inline constexpr std::uint32_t kCpAcp = 0;    // the system's ANSI code page
inline constexpr std::uint32_t kCpOemCp = 1;  // the system's OEM code page
inline constexpr std::uint32_t kCpUtf8 = 65001;

// MultiByteToWideChar flag: fail with ERROR_NO_UNICODE_TRANSLATION (1113) on an invalid byte
// sequence instead of replacing it.
inline constexpr std::uint32_t kMbErrInvalidChars = 0x8;
// WideCharToMultiByte flag: map a character the code page lacks to the default character
// instead of a similar-looking one ("best fit").
inline constexpr std::uint32_t kWcNoBestFitChars = 0x400;

// IsTextUnicode tests.
enum : int {
  kIsTextUnicodeAscii16 = 0x1,
  kIsTextUnicodeStatistics = 0x2,
  kIsTextUnicodeControls = 0x4,
  kIsTextUnicodeSignature = 0x8,
  kIsTextUnicodeReverseAscii16 = 0x10,
  kIsTextUnicodeReverseStatistics = 0x20,
  kIsTextUnicodeReverseControls = 0x40,
  kIsTextUnicodeReverseSignature = 0x80,
  kIsTextUnicodeIllegalChars = 0x100,
  kIsTextUnicodeOddLength = 0x200,
  kIsTextUnicodeNullBytes = 0x1000,
  kIsTextUnicodeUnicodeMask = 0xF,
  kIsTextUnicodeReverseMask = 0xF0,
  kIsTextUnicodeNotUnicodeMask = 0xF00,
  kIsTextUnicodeNotAsciiMask = 0xF000,
};

// MultiByteToWideChar: converts source_length bytes of code page code_page (-1: up to and
// including the first zero byte) into target. With target_length 0 only the needed size is
// returned. Returns the number of UTF-16 units written (the terminator counts when the source
// length was -1), or 0 with the last error set (87 bad argument or unknown code page, 122 target
// too small, 1004 bad flags, 1113 invalid sequence under kMbErrInvalidChars).
// Note: without kMbErrInvalidChars an invalid UTF-8 sequence becomes U+FFFD.
int MultiByteToWideChar(std::uint32_t code_page, std::uint32_t flags, const char* source,
                        int source_length, char16_t* target, int target_length);

// WideCharToMultiByte: the reverse. A character the code page lacks becomes a similar one
// where the code page defines one (best fit), else the default character (default_char[0], or
// the code page's own, "?" for the Windows code pages); used_default (may be null) then turns
// true. UTF-8 turns an unpaired surrogate into U+FFFD.
int WideCharToMultiByte(std::uint32_t code_page, std::uint32_t flags, const char16_t* source,
                        int source_length, char* target, int target_length,
                        const char* default_char, bool* used_default);

// IsTextUnicode: size bytes at data tested as UTF-16; tests (may be null for all tests) names
// the tests to run on input and receives those passed on output. True when the data passes.
bool IsTextUnicode(const void* data, int size, int* tests);

// GetACP: the system's ANSI code page.
std::uint32_t GetACP();

}  // namespace os
