// Character-set names and encoding numbers: the many spellings of charset names found in web
// pages and HTTP headers mapped to encodings, the two encoding number spaces (string-encoding
// numbers and extended encoding numbers) and the ICU converter behind each encoding.
//
// Two number spaces:
//  - NSStringEncoding, the string-encoding numbers: ASCII 1, UTF-8 4, ISO Latin-1 5, ...; other
//    encodings are 0x80000000 | their extended number. kNoStringEncoding (0xFFFFFFFF, "-1") means
//    none. Kamenický and KOI8-CS2 are NSKamenickyStringEncoding (-16) and NSKOI8CS2StringEncoding
//    (-15).
//  - CFStringEncoding, the extended numbers of the Mac OS text encodings: ISO 8859 parts 0x201 to
//    0x210, DOS code pages 0x400 to 0x423, Windows code pages 0x500 to 0x510, ...
//    kCFStringEncoding- InvalidId (0xFFFFFFFF) means none. Kamenický is 0xA001 and KOI8-CS2 0xA002.
//
// An encoding is available when this process can decode it: an ICU converter of Debian's ICU
// opens for it, or it is one of the two Czech encodings decoded by markup/CzechEncodings.h. Many
// Mac script encodings (Japanese, Arabic, Hebrew, ...), ISO 8859-16, ISO-2022-JP-3, Johab,
// Shift-JIS X0213 and Big5-E have no converter there and are unavailable.
//
// Everything here is a pure function of its arguments; the availability table is built on first
// use, thread-safely, and kept for the life of the process. Any thread may call.
#pragma once

#include <cstdint>
#include <string_view>

#include "Classes/NSString+Encoding.h"

namespace ferncast {

using CFStringEncoding = std::uint32_t;

// String-encoding numbers beyond the platform's own (Classes/NSString+Encoding.h).
inline constexpr NSStringEncoding kNoStringEncoding = 0xFFFFFFFF;
inline constexpr NSStringEncoding NSKamenickyStringEncoding = 0xFFFFFFF0;  // -16
inline constexpr NSStringEncoding NSKOI8CS2StringEncoding = 0xFFFFFFF1;    // -15

// Extended encoding numbers used by name in the code.
inline constexpr CFStringEncoding kCFStringEncodingInvalidId = 0xFFFFFFFF;
inline constexpr CFStringEncoding kCFStringEncodingMacRoman = 0;
inline constexpr CFStringEncoding kCFStringEncodingMacJapanese = 1;
inline constexpr CFStringEncoding kCFStringEncodingMacCentralEurRoman = 29;
inline constexpr CFStringEncoding kCFStringEncodingUnicode = 0x100;
inline constexpr CFStringEncoding kCFStringEncodingISOLatin1 = 0x201;
inline constexpr CFStringEncoding kCFStringEncodingISOLatin2 = 0x202;
inline constexpr CFStringEncoding kCFStringEncodingDOSJapanese = 0x420;
inline constexpr CFStringEncoding kCFStringEncodingWindowsLatin1 = 0x500;
inline constexpr CFStringEncoding kCFStringEncodingWindowsLatin2 = 0x501;
inline constexpr CFStringEncoding kCFStringEncodingWindowsCyrillic = 0x502;
inline constexpr CFStringEncoding kCFStringEncodingASCII = 0x600;
inline constexpr CFStringEncoding kCFStringEncodingJIS_X0201_76 = 0x620;
inline constexpr CFStringEncoding kCFStringEncodingJIS_X0208_83 = 0x621;
inline constexpr CFStringEncoding kCFStringEncodingJIS_X0208_90 = 0x622;
inline constexpr CFStringEncoding kCFStringEncodingJIS_X0212_90 = 0x623;
inline constexpr CFStringEncoding kCFStringEncodingJIS_C6226_78 = 0x624;
inline constexpr CFStringEncoding kCFStringEncodingShiftJIS_X0213 = 0x628;
inline constexpr CFStringEncoding kCFStringEncodingGB_2312_80 = 0x630;
inline constexpr CFStringEncoding kCFStringEncodingGBK_95 = 0x631;
inline constexpr CFStringEncoding kCFStringEncodingGB_18030_2000 = 0x632;
inline constexpr CFStringEncoding kCFStringEncodingISO_2022_JP = 0x820;
inline constexpr CFStringEncoding kCFStringEncodingISO_2022_JP_2 = 0x821;
inline constexpr CFStringEncoding kCFStringEncodingISO_2022_JP_1 = 0x822;
inline constexpr CFStringEncoding kCFStringEncodingISO_2022_JP_3 = 0x823;
inline constexpr CFStringEncoding kCFStringEncodingEUC_JP = 0x920;
inline constexpr CFStringEncoding kCFStringEncodingEUC_CN = 0x930;
inline constexpr CFStringEncoding kCFStringEncodingEUC_TW = 0x931;
inline constexpr CFStringEncoding kCFStringEncodingEUC_KR = 0x940;
inline constexpr CFStringEncoding kCFStringEncodingShiftJIS = 0xA01;
inline constexpr CFStringEncoding kCFStringEncodingKOI8_R = 0xA02;
inline constexpr CFStringEncoding kCFStringEncodingBig5 = 0xA03;
inline constexpr CFStringEncoding kCFStringEncodingMacRomanLatin1 = 0xA04;
inline constexpr CFStringEncoding kCFStringEncodingHZ_GB_2312 = 0xA05;
inline constexpr CFStringEncoding kCFStringEncodingBig5_HKSCS_1999 = 0xA06;
inline constexpr CFStringEncoding kCFStringEncodingBig5_E = 0xA09;
inline constexpr CFStringEncoding kCFStringEncodingUTF8 = 0x08000100;
inline constexpr CFStringEncoding kCFStringEncodingKamenicky = 0xA001;
inline constexpr CFStringEncoding kCFStringEncodingKOI8_CS2 = 0xA002;

// The extended encoding of a charset name, or kCFStringEncodingInvalidId. The name is reduced to
// its letters and digits, lower-cased ("ISO_8859-2" gives the key "iso88592"); keys shorter than
// three give none. A key with a decimal digit is first looked up by the number from its first
// digit on (code pages, ISO 8859 parts and their common misspellings such as "88391"); then the
// key is compared with the known names ("latin2", "shift_jis", "euc-kr", "utf-08", ...); keys
// starting "mac" or "xmac" name a Mac script ("x-mac-cyrillic", "macintosh"). Silent: never logs.
CFStringEncoding charset2CFStringEncoding(std::u16string_view name);

// The string encoding of a charset name, or kNoStringEncoding. Shift-JIS gives 8, Kamenický -16,
// KOI8-CS2 -15; other available encodings are converted by
// CFStringConvertEncodingToNSStringEncoding; unavailable ones give kNoStringEncoding. A name that
// gives kNoStringEncoding is logged as "Unknown/Unsupported encoding: <name>" unless it is empty,
// "auto" in any case, or one of "/", "0", "<", ">".
NSStringEncoding charset2NSStringEncoding(std::u16string_view name);
// The same two look-ups under the names of their string-method forms.
NSStringEncoding NSEncodingFromName(std::u16string_view name);
CFStringEncoding CFEncodingFromName(std::u16string_view name);

// Extended <-> string-encoding numbers: the 17 encodings with small string-encoding numbers map
// to them (Shift-JIS 8 is DOS Japanese 0x420, Mac OS Roman 30 is Mac Roman 0), every other
// extended number e to 0x80000000 | e, and back. kCFStringEncodingInvalidId and
// kNoStringEncoding map to each other; so does any number with no counterpart. The two Czech
// string encodings have no extended counterpart here (the decoders route them themselves).
NSStringEncoding CFStringConvertEncodingToNSStringEncoding(CFStringEncoding encoding);
CFStringEncoding CFStringConvertNSStringEncodingToEncoding(NSStringEncoding encoding);

// True when the encoding can be decoded by this process (see above).
bool CFStringIsEncodingAvailable(CFStringEncoding encoding);

// The name to open the encoding's ICU converter with (ucnv_open), or null when ICU has none here.
// Null for the two Czech encodings, which ICU does not know.
const char* icuConverterLookupName(CFStringEncoding encoding);
// ICU's canonical name of that converter ("ibm-5347_P100-1998" for Windows-1251), or null.
const char* icuConverterName(CFStringEncoding encoding);

}  // namespace ferncast
