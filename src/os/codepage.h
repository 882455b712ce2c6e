// Code pages: a code page's bytes to UTF-16 and back, and the guess whether a buffer holds
// UTF-16 text.
//
//   int n = os::MultiByteToWideChar(1252, bytes, -1, nullptr, 0);  // size, terminator included
//   std::u16string text(n, u'\0');
//   os::MultiByteToWideChar(1252, bytes, -1, text.data(), n);
#pragma once

#include <cstdint>

namespace os {

// Code page numbers with a meaning of their own.
inline constexpr std::uint32_t kCpAcp = 0;  // the system's ANSI code page
inline constexpr std::uint32_t kCpUtf8 = 65001;

// The IsTextUnicode tests the program runs.
enum : int {
  kIsTextUnicodeStatistics = 0x2,
  kIsTextUnicodeSignature = 0x8,
};

// MultiByteToWideChar (no flags): converts source_length bytes of code page code_page (-1: up to
// and including the first zero byte) into target. With target_length 0 only the needed size is
// returned. Returns the number of UTF-16 units written (the terminator counts when the source
// length was -1), or 0 with the last error set (87 bad argument or unknown code page, 122 target
// too small). An invalid UTF-8 sequence becomes U+FFFD.
int MultiByteToWideChar(std::uint32_t code_page, const char* source, int source_length,
                        char16_t* target, int target_length);

// WideCharToMultiByte (no flags, the code page's default character): the reverse. A character
// the code page lacks becomes a similar one where the code page defines one (best fit), else
// "?". UTF-8 turns an unpaired surrogate into U+FFFD.
int WideCharToMultiByte(std::uint32_t code_page, const char16_t* source, int source_length,
                        char* target, int target_length);

// IsTextUnicode with the statistics and signature tests: size bytes at data tested as UTF-16;
// tests (null: both) names the tests to run on input and receives those passed on output. True
// when the data passes one.
bool IsTextUnicode(const void* data, int size, int* tests);

}  // namespace os
