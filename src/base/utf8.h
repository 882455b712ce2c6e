// UTF-8 to UTF-16 for the POSIX side of the seam, as Windows converts it.
#pragma once

#include <cstddef>

namespace os::posix {

// Counts (target null) or writes the UTF-16 form of n bytes of UTF-8; *written receives the
// number of units. Invalid sequences become U+FFFD (and *invalid turns true) unless strict,
// which refuses them. False when the target is too small, or when strict and a sequence is
// invalid.
bool Utf8ToUtf16(const unsigned char* s, std::size_t n, char16_t* target, std::size_t capacity,
                 bool strict, std::size_t* written, bool* invalid);

// The general decoder alone, without the fast path for well-formed input (tests compare the
// two).
bool Utf8ToUtf16Careful(const unsigned char* s, std::size_t n, char16_t* target,
                        std::size_t capacity, bool strict, std::size_t* written, bool* invalid);

}  // namespace os::posix
