// Code page 1252 as Windows defines it, for the POSIX side of the seam.
#pragma once

#include <cstdint>

namespace os::posix {

// The character of a byte (every byte has one).
char16_t Cp1252ToUnicode(unsigned char byte);

// The byte of a UTF-16 unit, a best-fit byte for a character the code page lacks, or -1 when
// there is none.
int UnicodeToCp1252(char16_t unit);

}  // namespace os::posix
