// UTF-8 to UTF-16 as Windows converts it (MultiByteToWideChar of code page 65001): the one
// decoder of the program, behind base::Widen and the POSIX side's code-page conversion.
#pragma once

#include <cstddef>

namespace base {

// Counts (target null) or writes the UTF-16 form of n bytes of UTF-8; *written receives the
// number of units. Each invalid sequence becomes U+FFFD where Windows puts one (a lead byte and
// the continuation bytes that may follow it make one sequence). False when the target is too
// small.
bool Utf8ToUtf16(const unsigned char* s, std::size_t n, char16_t* target, std::size_t capacity,
                 std::size_t* written);

// The general decoder alone, without the fast path for well-formed input (tests compare the
// two).
bool Utf8ToUtf16Careful(const unsigned char* s, std::size_t n, char16_t* target,
                        std::size_t capacity, std::size_t* written);

}  // namespace base
