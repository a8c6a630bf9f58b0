#include "Classes/Unicode.h"

#include <gtest/gtest.h>

namespace ferncast {
namespace {

TEST(Unicode, Utf8ToUtf16ReplacesEachIllFormedSubpart) {
  struct Row {
    std::string utf8;
    std::u16string utf16;
  } rows[] = {
      {"", u""},
      {"plain", u"plain"},
      {"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", u"ä€😀"},
      {"\xC3", u"\uFFFD"},                                // truncated at the end
      {"\xC3(", u"\uFFFD("},                              // bad continuation keeps the next byte
      {"\xC0\xAF", u"\uFFFD\uFFFD"},                      // overlong lead
      {"\xE0\x80\xAF", u"\uFFFD\uFFFD\uFFFD"},            // overlong three-byte form
      {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},            // encoded surrogate
      {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},  // above U+10FFFF
      {"\xE2\x82", u"\uFFFD"},  // one replacement for a truncated sequence
      {"\xFF\xFE", u"\uFFFD\uFFFD"},
      {std::string("a\0b", 3), std::u16string(u"a\0b", 3)},
  };
  for (const Row& row : rows)
    EXPECT_EQ(utf8ToUtf16(row.utf8), row.utf16) << row.utf8;
}

TEST(Unicode, Utf16ToUtf8ReplacesUnpairedSurrogates) {
  EXPECT_EQ(utf16ToUtf8(u"ä€😀"), "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80");
  EXPECT_EQ(utf16ToUtf8(std::u16string(1, u'\xDC00')), "\xEF\xBF\xBD");
  EXPECT_EQ(utf16ToUtf8(std::u16string{u'\xD83D', u'x'}), "\xEF\xBF\xBDx");
  EXPECT_EQ(utf16ToUtf8(std::u16string{u'x', u'\xD83D'}), "x\xEF\xBF\xBD");
}

TEST(Unicode, RoundTripOfEveryCodePoint) {
  std::u16string all;
  for (char32_t c = 0; c < 0x110000; c += (c < 0x10000 ? 1 : 97)) {
    if (c >= 0xD800 && c <= 0xDFFF) continue;
    if (c < 0x10000) {
      all.push_back(static_cast<char16_t>(c));
    } else {
      all.push_back(static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10)));
      all.push_back(static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF)));
    }
  }
  EXPECT_EQ(utf8ToUtf16(utf16ToUtf8(all)), all);
}

TEST(Unicode, SizeStringPrintsSeventeenSignificantDigits) {
  EXPECT_EQ(sizeString(256, 128), u"{256, 128}");
  EXPECT_EQ(sizeString(1.5, 100.25), u"{1.5, 100.25}");
  EXPECT_EQ(sizeString(0.1, -0.0), u"{0.10000000000000001, -0}");
  EXPECT_EQ(sizeString(1e20, 2.675), u"{1e+20, 2.6749999999999998}");
}

}  // namespace
}  // namespace ferncast
