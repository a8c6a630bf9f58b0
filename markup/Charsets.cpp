#include "markup/Charsets.h"

#include <unicode/ucnv.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <mutex>
#include <string>

#include "Classes/Log.h"
#include "markup/chartables/CharacterTables.h"
#include "markup/chartables/NSString+QuillCompare.h"

namespace ferncast {
namespace {

// ICU converters of the available encodings, by extended number. Where Windows has a code page
// for an encoding, its "windows-" alias is preferred when it opens (as the platform's own look-up
// does); "cpNNN" where only that opens. Entries whose converter Debian's ICU does not build
// (Mac Arabic, Hebrew, Thai, Symbol, Croatian; ISO 8859-16; Johab) stay listed: their converters
// exist in fuller ICU builds, and here they simply fail to open.
struct ConverterEntry {
  CFStringEncoding encoding;
  const char* lookupName;
};

constexpr ConverterEntry kConverters[] = {
    {0x0, "macintosh"},
    {0x4, "x-mac-arabic"},
    {0x5, "x-mac-hebrew"},
    {0x6, "x-mac-greek"},
    {0x7, "x-mac-cyrillic"},
    {0x15, "x-mac-thai"},
    {0x1D, "x-mac-centraleurroman"},
    {0x21, "x-mac-symbol"},
    {0x23, "x-mac-turkish"},
    {0x24, "x-mac-croatian"},
    {0x100, "UTF-16"},
    {0x201, "ISO-8859-1"},
    {0x202, "ISO-8859-2"},
    {0x203, "ISO-8859-3"},
    {0x204, "ISO-8859-4"},
    {0x205, "ISO-8859-5"},
    {0x206, "ISO-8859-6"},
    {0x207, "ISO-8859-7"},
    {0x208, "ISO-8859-8"},
    {0x209, "ISO-8859-9"},
    {0x20A, "ISO-8859-10"},
    {0x20B, "ISO-8859-11"},
    {0x20D, "ISO-8859-13"},
    {0x20E, "ISO-8859-14"},
    {0x20F, "ISO-8859-15"},
    {0x210, "ISO-8859-16"},
    {0x400, "cp437"},
    {0x405, "cp737"},
    {0x406, "cp775"},
    {0x410, "cp850"},
    {0x411, "cp851"},
    {0x412, "cp852"},
    {0x413, "cp855"},
    {0x414, "cp857"},
    {0x415, "cp860"},
    {0x416, "cp861"},
    {0x417, "cp862"},
    {0x418, "cp863"},
    {0x419, "cp864"},
    {0x41A, "cp865"},
    {0x41B, "cp866"},
    {0x41C, "cp869"},
    {0x41D, "windows-874"},
    {0x420, "windows-932"},
    {0x421, "windows-936"},
    {0x422, "windows-949"},
    {0x423, "windows-950"},
    {0x500, "windows-1252"},
    {0x501, "windows-1250"},
    {0x502, "windows-1251"},
    {0x503, "windows-1253"},
    {0x504, "windows-1254"},
    {0x505, "windows-1255"},
    {0x506, "windows-1256"},
    {0x507, "windows-1257"},
    {0x508, "windows-1258"},
    {0x510, "johab"},
    {0x600, "US-ASCII"},
    {0x631, "GBK"},
    {0x632, "GB18030"},
    {0x640, "KSC_5601"},
    {0x820, "ISO-2022-JP"},
    {0x821, "ISO-2022-JP-2"},
    {0x822, "ISO-2022-JP-1"},
    {0x830, "ISO-2022-CN"},
    {0x831, "ISO-2022-CN-EXT"},
    {0x840, "ISO-2022-KR"},
    {0x920, "EUC-JP"},
    {0x930, "GB2312"},
    {0x931, "EUC-TW"},
    {0x940, "EUC-KR"},
    {0xA01, "Shift_JIS"},
    {0xA02, "KOI8-R"},
    {0xA03, "Big5"},
    {0xA05, "HZ-GB-2312"},
    {0xA06, "Big5-HKSCS"},
    {0xA08, "KOI8-U"},
    {0xA10, "IMAP-mailbox-name"},
    {0xC02, "ibm037"},
    {0x04000100, "UTF-7"},
    {0x08000100, "UTF-8"},
    {0x0C000100, "UTF-32"},
    {0x10000100, "UTF-16BE"},
    {0x14000100, "UTF-16LE"},
    {0x18000100, "UTF-32BE"},
    {0x1C000100, "UTF-32LE"},
};
constexpr std::size_t kConverterCount = std::size(kConverters);

// Whether each converter opens, found out once per entry on first use.
struct ConverterProbe {
  std::once_flag once;
  bool opens = false;
  std::string canonicalName;  // ucnv_getName may point into the converter: keep a copy
};

const ConverterEntry* converterEntry(CFStringEncoding encoding) {
  for (const ConverterEntry& entry : kConverters) {
    if (entry.encoding == encoding) return &entry;
  }
  return nullptr;
}

const ConverterProbe* probedConverter(CFStringEncoding encoding) {
  static std::array<ConverterProbe, kConverterCount> probes;
  const ConverterEntry* entry = converterEntry(encoding);
  if (!entry) return nullptr;
  ConverterProbe& probe = probes[static_cast<std::size_t>(entry - kConverters)];
  std::call_once(probe.once, [&] {
    UErrorCode status = U_ZERO_ERROR;
    UConverter* converter = ucnv_open(entry->lookupName, &status);
    if (U_SUCCESS(status) && converter) {
      const char* name = ucnv_getName(converter, &status);
      probe.opens = true;
      probe.canonicalName = U_SUCCESS(status) && name ? name : entry->lookupName;
    }
    if (converter) ucnv_close(converter);
  });
  return probe.opens ? &probe : nullptr;
}

// --- Charset names ---------------------------------------------------------------------------

// Code pages, ISO 8859 parts and the misspellings of "8859-1" seen in real pages, by the number
// that starts at the key's first digit.
struct NumberEntry {
  int number;
  CFStringEncoding encoding;
};

constexpr NumberEntry kNumbers[] = {
    {437, 0x400},
    {737, 0x405},
    {775, 0x406},
    {850, 0x410},
    {851, 0x411},
    {852, 0x412},
    {855, 0x413},
    {857, 0x414},
    {860, 0x415},
    {861, 0x416},
    {862, 0x417},
    {863, 0x418},
    {864, 0x419},
    {865, 0x41A},
    {866, 0x41B},
    {869, 0x41C},
    {874, 0x41D},
    {932, 0x420},
    {936, 0x421},
    {949, 0x422},
    {950, 0x423},
    {708, 0x206},
    {1250, 0x501},
    {1251, 0x502},
    {1252, 0x500},
    {1253, 0x503},
    {1254, 0x504},
    {1255, 0x505},
    {1256, 0x506},
    {1257, 0x507},
    {1258, 0x508},
    {1361, 0x510},
    {2022, 0x820},
    {646, 0x600},
    {6461, 0x600},
    {88591, 0x201},
    {8859, 0x201},
    {8591, 0x201},
    {88592, 0x202},
    {85922, 0x202},
    {88593, 0x203},
    {88594, 0x204},
    {88595, 0x205},
    {88596, 0x206},
    {88597, 0x207},
    {88598, 0x208},
    {88599, 0x209},
    {89599, 0x209},
    {885910, 0x20A},
    {885911, 0x20B},
    {885913, 0x20D},
    {885914, 0x20E},
    {885915, 0x20F},
    {885916, 0x210},
    // Typing errors for 8859-1 found in real pages.
    {80591, 0x201},
    {85591, 0x201},
    {88191, 0x201},
    {88391, 0x201},
    {88511, 0x201},
    {88611, 0x201},
    {88691, 0x201},
    {88791, 0x201},
    {89091, 0x201},
    {99591, 0x201},
    {100591, 0x201},
    {810091, 0x201},
};

enum class Match { kEquals, kContains, kBegins };

struct NameEntry {
  std::u16string_view text;
  Match match;
  CFStringEncoding encoding;
};

// Compared in this order; the first match wins ("latin10" before "latin1", "koi8cs2" before
// "koi8", the exact "utf" before "utf16"). Two-letter language codes such as "en" never get here:
// keys shorter than three are refused first.
constexpr NameEntry kNames[] = {
    {u"latin10", Match::kContains, 0x210},
    {u"latin1", Match::kContains, 0x201},
    {u"latin2", Match::kContains, 0x202},
    {u"latin3", Match::kContains, 0x203},
    {u"latin4", Match::kContains, 0x204},
    {u"latin5", Match::kContains, 0x209},
    {u"latin6", Match::kContains, 0x20A},
    {u"latin7", Match::kContains, 0x20D},
    {u"latin8", Match::kContains, 0x20E},
    {u"latin9", Match::kContains, 0x20F},
    {u"iso", Match::kEquals, 0x201},
    {u"visual", Match::kContains, 0x208},
    {u"kamcs", Match::kContains, kCFStringEncodingKamenicky},  // also "x-kam-cs"
    {u"kbkam", Match::kContains, kCFStringEncodingKamenicky},
    {u"koi8cs2", Match::kContains, kCFStringEncodingKOI8_CS2},
    {u"csn369103", Match::kContains, kCFStringEncodingKOI8_CS2},
    {u"ascii", Match::kContains, 0x600},  // also "us-ascii"
    {u"utf7", Match::kContains, 0x600},   // UTF-7 pages are read as ASCII
    {u"gb2312", Match::kContains, 0x930},
    {u"gbk", Match::kBegins, 0x631},
    {u"gb18030", Match::kContains, 0x632},
    {u"utf", Match::kEquals, kCFStringEncodingUTF8},
    {u"utf8", Match::kContains, kCFStringEncodingUTF8},
    {u"utf08", Match::kContains, kCFStringEncodingUTF8},
    {u"uft8", Match::kContains, kCFStringEncodingUTF8},
    {u"utf2d8", Match::kContains, kCFStringEncodingUTF8},
    {u"utf9", Match::kContains, kCFStringEncodingUTF8},
    {u"unicode", Match::kEquals, kCFStringEncodingUTF8},
    {u"utf16", Match::kContains, kCFStringEncodingUnicode},
    {u"shiftj", Match::kContains, kCFStringEncodingShiftJIS},
    {u"sjis", Match::kContains, kCFStringEncodingShiftJIS},
    {u"koi8", Match::kContains, kCFStringEncodingKOI8_R},
    {u"big5", Match::kContains, kCFStringEncodingBig5},
    {u"euckr", Match::kContains, kCFStringEncodingEUC_KR},
    {u"eucj", Match::kContains, kCFStringEncodingEUC_JP},
    {u"euccn", Match::kContains, kCFStringEncodingEUC_CN},
    {u"euctw", Match::kContains, kCFStringEncodingEUC_TW},
    {u"ksc56011987", Match::kContains, 0x640},
    {u"ksc560187", Match::kContains, 0x640},
    {u"ksc560192", Match::kContains, 0x641},
    {u"enus", Match::kEquals, kCFStringEncodingUTF8},  // language codes given as a charset
    {u"engb", Match::kEquals, kCFStringEncodingUTF8},
    {u"none", Match::kEquals, 0x600},
};

// Mac script names, after the "mac" or "xmac" prefix; the longest that begins the rest wins
// ("romanian" over "roman", "centraleur" over "ce").
struct ScriptEntry {
  std::u16string_view name;
  CFStringEncoding encoding;
};

constexpr ScriptEntry kMacScripts[] = {
    {u"roman", 0},       {u"osroman", 0},     {u"intosh", 0},       {u"romanlatin1", 0xA04},
    {u"japanese", 1},    {u"chinesetrad", 2}, {u"korean", 3},       {u"arabic", 4},
    {u"hebrew", 5},      {u"greek", 6},       {u"cyrillic", 7},     {u"devanagari", 9},
    {u"gurmukhi", 10},   {u"gujarati", 11},   {u"oriya", 12},       {u"bengali", 13},
    {u"tamil", 14},      {u"telugu", 15},     {u"kannada", 16},     {u"malayalam", 17},
    {u"sinhalese", 18},  {u"burmese", 19},    {u"khmer", 20},       {u"thai", 21},
    {u"laotian", 22},    {u"georgian", 23},   {u"armenian", 24},    {u"chinesesimp", 25},
    {u"tibetan", 26},    {u"mongolian", 27},  {u"ethiopic", 28},    {u"ce", 29},
    {u"centraleur", 29}, {u"vietnamese", 30}, {u"extarabic", 31},   {u"turkish", 35},
    {u"croatian", 36},   {u"icelandic", 37},  {u"romanian", 38},    {u"celtic", 39},
    {u"gaelic", 40},     {u"farsi", 0x8C},    {u"ukrainian", 0x98}, {u"inuit", 0xEC},
};

bool isDigit(char16_t c) {
  return c >= u'0' && c <= u'9';
}

// The letters and digits of a name, lower-cased.
std::u16string charsetKey(std::u16string_view name) {
  const std::uint8_t* alphaNum = alphaNumCharacterSetRep();
  const char16_t* lower = initLowerCharsTable();
  std::u16string key;
  key.reserve(name.size());
  for (char16_t c : name) {
    if (characterIsMember(alphaNum, c)) key.push_back(lower[c]);
  }
  return key;
}

// The integer value of the digits that start `text`, saturating like a string's intValue.
int leadingInteger(std::u16string_view text) {
  long long value = 0;
  for (char16_t c : text) {
    if (!isDigit(c)) break;
    value = std::min<long long>(value * 10 + (c - u'0'), INT_MAX);
  }
  return static_cast<int>(value);
}

CFStringEncoding encodingOfNumber(std::u16string_view key) {
  if (key == u"iso2022jp1") return kCFStringEncodingISO_2022_JP_1;
  if (key == u"iso2022jp2") return kCFStringEncodingISO_2022_JP_2;
  if (key == u"iso2022jp3") return kCFStringEncodingISO_2022_JP_3;
  auto digit = std::find_if(key.begin(), key.end(), isDigit);
  int number = leadingInteger(key.substr(static_cast<std::size_t>(digit - key.begin())));
  for (const NumberEntry& entry : kNumbers) {
    if (entry.number == number) return entry.encoding;
  }
  return kCFStringEncodingInvalidId;
}

CFStringEncoding encodingOfMacScript(std::u16string_view script) {
  const ScriptEntry* best = nullptr;
  for (const ScriptEntry& entry : kMacScripts) {
    if (script.starts_with(entry.name) && (!best || entry.name.size() > best->name.size())) {
      best = &entry;
    }
  }
  return best ? best->encoding : kCFStringEncodingInvalidId;
}

CFStringEncoding encodingOfName(std::u16string_view key) {
  for (const NameEntry& entry : kNames) {
    bool matches = entry.match == Match::kEquals   ? key == entry.text
                   : entry.match == Match::kBegins ? key.starts_with(entry.text)
                                                   : key.find(entry.text) != key.npos;
    if (matches) return entry.encoding;
  }
  return kCFStringEncodingInvalidId;
}

bool isSilentName(std::u16string_view name) {
  if (name.empty()) return true;
  if (name.size() == 1) {
    char16_t c = name[0];
    return c == u'/' || c == u'0' || c == u'<' || c == u'>';
  }
  return equalsNoCase(name, u"AUTO");
}

// The string encodings with numbers of their own; every other extended number e is 0x80000000|e.
struct SmallNumberEntry {
  NSStringEncoding stringEncoding;
  CFStringEncoding encoding;
};

constexpr SmallNumberEntry kSmallNumbers[] = {
    {1, 0x600},
    {2, 0xB01},
    {3, 0x920},
    {4, kCFStringEncodingUTF8},
    {5, 0x201},
    {6, 0x21},
    {7, 0xBFF},
    {8, kCFStringEncodingDOSJapanese},
    {9, 0x202},
    {10, 0x100},
    {11, 0x502},
    {12, 0x500},
    {13, 0x503},
    {14, 0x504},
    {15, 0x501},
    {21, 0x820},
    {30, kCFStringEncodingMacRoman},
};

}  // namespace

CFStringEncoding charset2CFStringEncoding(std::u16string_view name) {
  std::u16string key = charsetKey(name);
  if (key.size() < 3) return kCFStringEncodingInvalidId;
  if (std::any_of(key.begin(), key.end(), isDigit)) {
    CFStringEncoding encoding = encodingOfNumber(key);
    if (encoding != kCFStringEncodingInvalidId) return encoding;
  }
  std::u16string_view view = key;
  if (view.starts_with(u"windows") && std::none_of(key.begin(), key.end(), isDigit)) {
    return kCFStringEncodingWindowsLatin1;
  }
  // Mac scripts before the other names, so that "x-mac-roman-latin1" is not taken for Latin-1.
  for (std::u16string_view prefix : {u"mac", u"xmac"}) {
    if (view.starts_with(prefix)) {
      CFStringEncoding encoding = encodingOfMacScript(view.substr(prefix.size()));
      if (encoding != kCFStringEncodingInvalidId) return encoding;
    }
  }
  return encodingOfName(view);
}

NSStringEncoding charset2NSStringEncoding(std::u16string_view name) {
  CFStringEncoding encoding = charset2CFStringEncoding(name);
  NSStringEncoding result = kNoStringEncoding;
  if (encoding == kCFStringEncodingShiftJIS) {
    result = NSShiftJISStringEncoding;
  } else if (encoding == kCFStringEncodingKamenicky) {
    result = NSKamenickyStringEncoding;
  } else if (encoding == kCFStringEncodingKOI8_CS2) {
    result = NSKOI8CS2StringEncoding;
  } else if (encoding != kCFStringEncodingInvalidId && CFStringIsEncodingAvailable(encoding)) {
    result = CFStringConvertEncodingToNSStringEncoding(encoding);
  }
  if (result == kNoStringEncoding && !isSilentName(name)) {
    NSLog(u"Unknown/Unsupported encoding: " + std::u16string(name));
  }
  return result;
}

NSStringEncoding NSEncodingFromName(std::u16string_view name) {
  return charset2NSStringEncoding(name);
}

CFStringEncoding CFEncodingFromName(std::u16string_view name) {
  return charset2CFStringEncoding(name);
}

NSStringEncoding CFStringConvertEncodingToNSStringEncoding(CFStringEncoding encoding) {
  if (encoding == kCFStringEncodingInvalidId) return kNoStringEncoding;
  for (const SmallNumberEntry& entry : kSmallNumbers) {
    if (entry.encoding == encoding) return entry.stringEncoding;
  }
  if (encoding & 0x80000000u) return kNoStringEncoding;
  return 0x80000000u | encoding;
}

CFStringEncoding CFStringConvertNSStringEncodingToEncoding(NSStringEncoding encoding) {
  for (const SmallNumberEntry& entry : kSmallNumbers) {
    if (entry.stringEncoding == encoding) return entry.encoding;
  }
  // Small numbers without an entry, and -16 to -1 (the Czech numbers and none), have none.
  if (!(encoding & 0x80000000u) || encoding >= NSKamenickyStringEncoding) {
    return kCFStringEncodingInvalidId;
  }
  return encoding & 0x7FFFFFFFu;
}

bool CFStringIsEncodingAvailable(CFStringEncoding encoding) {
  return encoding == kCFStringEncodingKamenicky || encoding == kCFStringEncodingKOI8_CS2 ||
         probedConverter(encoding) != nullptr;
}

const char* icuConverterLookupName(CFStringEncoding encoding) {
  return probedConverter(encoding) ? converterEntry(encoding)->lookupName : nullptr;
}

const char* icuConverterName(CFStringEncoding encoding) {
  const ConverterProbe* probe = probedConverter(encoding);
  return probe ? probe->canonicalName.c_str() : nullptr;
}

}  // namespace ferncast
