// String-encoding numbers (NSStringEncoding) and decoding of bytes in one of them, through ICU
// converters.
//
// Only the platform's built-in numbers are known here (the table below); the extended numbers
// (0x80000000 | a CFStringEncoding) and charset names belong to the markup decoders. Functions are
// pure and safe on any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace ferncast {

// Every value, including the "none" marker 0xFFFFFFFF, fits in 32 bits.
using NSStringEncoding = std::uint32_t;

inline constexpr NSStringEncoding NSASCIIStringEncoding = 1;
inline constexpr NSStringEncoding NSNEXTSTEPStringEncoding = 2;
inline constexpr NSStringEncoding NSJapaneseEUCStringEncoding = 3;
inline constexpr NSStringEncoding NSUTF8StringEncoding = 4;
inline constexpr NSStringEncoding NSISOLatin1StringEncoding = 5;
inline constexpr NSStringEncoding NSSymbolStringEncoding = 6;
inline constexpr NSStringEncoding NSNonLossyASCIIStringEncoding = 7;
inline constexpr NSStringEncoding NSShiftJISStringEncoding = 8;
inline constexpr NSStringEncoding NSISOLatin2StringEncoding = 9;
inline constexpr NSStringEncoding NSUnicodeStringEncoding = 10;
inline constexpr NSStringEncoding NSUTF16StringEncoding = NSUnicodeStringEncoding;
inline constexpr NSStringEncoding NSWindowsCP1251StringEncoding = 11;
inline constexpr NSStringEncoding NSWindowsCP1252StringEncoding = 12;
inline constexpr NSStringEncoding NSWindowsCP1253StringEncoding = 13;
inline constexpr NSStringEncoding NSWindowsCP1254StringEncoding = 14;
inline constexpr NSStringEncoding NSWindowsCP1250StringEncoding = 15;
inline constexpr NSStringEncoding NSISO2022JPStringEncoding = 21;
inline constexpr NSStringEncoding NSMacOSRomanStringEncoding = 30;
inline constexpr NSStringEncoding NSUTF16BigEndianStringEncoding = 0x90000100;
inline constexpr NSStringEncoding NSUTF16LittleEndianStringEncoding = 0x94000100;
inline constexpr NSStringEncoding NSUTF32StringEncoding = 0x8c000100;
inline constexpr NSStringEncoding NSUTF32BigEndianStringEncoding = 0x98000100;
inline constexpr NSStringEncoding NSUTF32LittleEndianStringEncoding = 0x9c000100;

// The ICU converter name used for an encoding number, or null when it is not decoded here
// (NEXTSTEP, Symbol and NonLossyASCII have no ICU converter; extended numbers are not known).
const char* icuConverterNameOfEncoding(NSStringEncoding encoding);

// The bytes decoded in `encoding`; nullopt when the encoding is not known here or the bytes are
// not valid in it (malformed, unmapped or truncated sequences are never replaced). Zero bytes give
// an empty string. A UTF-8 byte-order mark is dropped; UTF-16 and UTF-32 without byte-order mark
// are read big-endian. `bytes` may be null when `length` is 0.
std::optional<std::u16string> stringWithData(const std::uint8_t* bytes, std::size_t length,
                                             NSStringEncoding encoding);

}  // namespace ferncast
