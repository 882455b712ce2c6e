// Fast checks of UTF-8 byte patterns, 16 or 32 bytes at a time (SSE2, or AVX2 where the
// processor has it). The text and code-page modules build on these.
#pragma once

#include <cstddef>

namespace base::utf8_scan {

// IsUTF8's rules: every byte from 0x80 up belongs to a sequence of a lead byte (110xxxxx to
// 1111110x, owing 1 to 5 bytes) and its continuation bytes (10xxxxxx); values are not checked.
// True when the bytes keep the rules and hold at least one such sequence.
bool Lenient(const unsigned char* s, std::size_t n);

// Well-formed UTF-8 in the strict sense (no overlong form, surrogate, value above U+10FFFF or
// broken sequence). When true, *units is the number of UTF-16 units the bytes decode to. May
// answer false for well-formed bytes where no vector unit is available; callers then take
// their general path.
bool Strict(const unsigned char* s, std::size_t n, std::size_t* units);

// The same two checks with the 16-byte kernels whatever the processor offers, so that tests
// can hold both kernels to the same answers.
bool LenientBaseline(const unsigned char* s, std::size_t n);
bool StrictBaseline(const unsigned char* s, std::size_t n, std::size_t* units);

}  // namespace base::utf8_scan
