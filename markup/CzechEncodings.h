// The two Czech and Slovak DOS-era encodings that ICU and glibc lack, decoded by table:
// Kamenický (KEYBCS2, "x-kam-cs") and KOI-8 CS2 (ČSN 36 9103).
//
// Kamenický: ASCII below 0x80; above it Czech and Slovak letters where code page 437 has other
// Latin letters, and code page 437's box drawing, Greek and mathematical signs at 0xB0-0xFF.
// KOI-8 CS2: ASCII except 0x24, which is the currency sign U+00A4; C1 controls at 0x80-0x9F;
// letters laid out the KOI-8 way (lower case at 0xC0-0xDF, upper case 0x20 higher). Its twelve
// unassigned bytes decode to U+FFFD.
//
// Pure functions over constant tables; any thread may call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace ferncast {

// One code unit per byte; never fails (empty bytes give an empty string).
std::u16string initWithKamenickyData(const std::uint8_t* bytes, std::size_t length);
std::u16string initWithKoi8cs2Data(const std::uint8_t* bytes, std::size_t length);

// The 256-entry byte-to-code-unit tables behind them (U+FFFD for unassigned bytes).
const char16_t* kamenickyTable();
const char16_t* koi8cs2Table();

}  // namespace ferncast
