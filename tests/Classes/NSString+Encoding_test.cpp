#include "Classes/NSString+Encoding.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace ferncast {
namespace {

std::string show(const std::optional<std::u16string>& text) {
  if (!text) return "nil";
  std::string shown;
  for (char16_t c : *text) {
    char hex[8];
    std::snprintf(hex, sizeof hex, "%04X ", c);
    shown += hex;
  }
  return shown;
}

TEST(StringWithData, DecodesEachKnownEncoding) {
  const struct {
    std::string bytes;
    NSStringEncoding encoding;
    std::optional<std::u16string> expected;
  } cases[] = {
      {"abc", NSASCIIStringEncoding, u"abc"},
      {"\x80", NSASCIIStringEncoding, std::nullopt},
      {"caf\xC3\xA9 \xF0\x9F\x98\x80", NSUTF8StringEncoding, u"caf\u00E9 \U0001F600"},
      {"\xEF\xBB\xBFx", NSUTF8StringEncoding, u"x"},  // the byte-order mark is dropped
      {"\xEF\xBB\xBF", NSUTF8StringEncoding, u""},
      {"caf\xE9", NSUTF8StringEncoding, std::nullopt},
      {"\xC3", NSUTF8StringEncoding, std::nullopt},          // truncated
      {"\xED\xA0\x80", NSUTF8StringEncoding, std::nullopt},  // an encoded surrogate
      {"\xC0\xAF", NSUTF8StringEncoding, std::nullopt},      // overlong
      {"", NSUTF8StringEncoding, u""},
      {"caf\xE9", NSISOLatin1StringEncoding, u"caf\u00E9"},
      {"\xB1\xA9", NSISOLatin2StringEncoding, u"\u0105\u0160"},
      {"\x80\x8A", NSWindowsCP1252StringEncoding, u"\u20AC\u0160"},
      {"\xD2", NSWindowsCP1253StringEncoding, std::nullopt},  // unassigned
      {"\x82", NSShiftJISStringEncoding, std::nullopt},       // lead byte without trail
      {"\xC0\xFF", NSWindowsCP1251StringEncoding, u"\u0410\u044F"},
      {"\x8A\xB9", NSWindowsCP1250StringEncoding, u"\u0160\u0105"},
      {"\xC1\xF9", NSWindowsCP1253StringEncoding, u"\u0391\u03C9"},
      {"\xD0\xFE", NSWindowsCP1254StringEncoding, u"\u011E\u015F"},
      {"\x8E\xA5", NSMacOSRomanStringEncoding, u"\u00E9\u2022"},
      {"\x82\xA0\x93\xFA", NSShiftJISStringEncoding, u"\u3042\u65E5"},
      {"\xA4\xA2\xC6\xFC", NSJapaneseEUCStringEncoding, u"\u3042\u65E5"},
      {"\x1B$B$\"F|\x1B(B", NSISO2022JPStringEncoding, u"\u3042\u65E5"},
      {std::string("\xFF\xFE"
                   "a\0",
                   4),
       NSUTF16StringEncoding, u"a"},
      {std::string("\xFE\xFF\0a", 4), NSUTF16StringEncoding, u"a"},
      {std::string("\0a", 2), NSUTF16StringEncoding, u"a"},  // big-endian without a mark
      {std::string("\0a", 2), NSUTF16BigEndianStringEncoding, u"a"},
      {std::string("a\0", 2), NSUTF16LittleEndianStringEncoding, u"a"},
      {std::string("a", 1), NSUTF16LittleEndianStringEncoding, std::nullopt},  // odd length
      {std::string("\x3D\xD8", 2), NSUTF16LittleEndianStringEncoding, std::nullopt},
      {std::string("\0\x01\xF6\x00", 4), NSUTF32BigEndianStringEncoding, u"\U0001F600"},
      {std::string("\x00\xF6\x01\0", 4), NSUTF32LittleEndianStringEncoding, u"\U0001F600"},
      {std::string("\0\0\0a", 4), NSUTF32StringEncoding, u"a"},
      {std::string("\0\x11\0\0", 4), NSUTF32BigEndianStringEncoding, std::nullopt},
      // No converter: NEXTSTEP, Symbol, NonLossyASCII; numbers that are not encodings.
      {"a", NSNEXTSTEPStringEncoding, std::nullopt},
      {"a", NSSymbolStringEncoding, std::nullopt},
      {"a", NSNonLossyASCIIStringEncoding, std::nullopt},
      {"a", 0, std::nullopt},
      {"a", 0x80000632, std::nullopt},
      {"a", 0xFFFFFFFF, std::nullopt},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(show(stringWithData(reinterpret_cast<const std::uint8_t*>(c.bytes.data()),
                                  c.bytes.size(), c.encoding)),
              show(c.expected))
        << "encoding " << c.encoding << " bytes " << c.bytes;
  }
}

}  // namespace
}  // namespace ferncast
