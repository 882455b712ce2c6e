// mUTF8: the UTF-8 test that decides a file's encoding, the UTF-8 codec over the system's code
// page conversion, and the bit helpers both are built on.
//
// Raw byte strings are std::string used as byte vectors. A procedure whose argument may be
// either raw bytes or text (the "mode" arguments) takes the argument's storage: raw bytes as
// they are, text as its UTF-16LE bytes (mStringTools::StrToBytes).
//
//   mUTF8::IsUTF8("caf\xC3\xA9");                     // true
//   mUTF8::UTF8_Decode("caf\xC3\xA9", 1);             // u"café"
//   mUTF8::UTF8_Encode(u"café", true);                // "caf\xC3\xA9"
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace mUTF8 {

// True when the bytes hold at least one multi-byte UTF-8 sequence and nothing that breaks the
// sequence rules. Note: pure 7-bit ASCII is not UTF-8 here, and overlong forms, surrogates and
// the old five- and six-byte forms are accepted (no value checks, only the byte patterns).
bool IsUTF8(std::string_view bytes);

// UTF-8 to text. mode 1: `text` is raw bytes; mode 2: `text` is the storage of a text of one
// character per byte, narrowed to bytes with the ANSI code page first; mode 0: 2 when the storage
// looks like UTF-16, else 1. Decoding stops at the first zero byte; invalid sequences become
// U+FFFD.
std::u16string UTF8_Decode(std::string_view text, std::int32_t mode);

// Text to UTF-8: the bytes when AsBytes is true; otherwise the storage of a text holding one
// character per byte (widened with the ANSI code page). The text ends at its first NUL.
std::string UTF8_Encode(const std::u16string& text, bool AsBytes);

// The bits of value where mask has a 1, packed from bit 0 upwards; count receives the number of
// mask bits. ReadByteBits(0xC3, 0xE0, n) is 6 (binary 110) with n = 3.
std::uint8_t ReadByteBits(std::uint8_t value, std::uint8_t mask, std::int32_t& count);

// The same over 32 bits: ReadLongBits(0x12345678, 0x0000FF00) is 0x56.
std::uint32_t ReadLongBits(std::uint32_t value, std::uint32_t mask);

// The inverse of ReadLongBits: the low bits of `bits` placed, from bit 0 upwards, at the
// positions where mask has a 1. WriteLongBits(0x56, 0x0000FF00) is 0x5600.
std::uint32_t WriteLongBits(std::uint32_t bits, std::uint32_t mask);

// Bit `bit` (0 to 31) of value set (on) or cleared; another bit number is an invalid call and
// gives 0.
std::uint32_t SetLongBit(std::uint32_t value, std::int32_t bit, bool on);

// Whether bit `bit` (0 to 31) of value is set; false for another bit number.
bool IsBitSet(std::uint32_t value, std::int32_t bit);

}  // namespace mUTF8
