// The Kamenický and KOI-8 CS2 tables: checked against code page 437 (glibc's iconv) where
// Kamenický keeps it, against Czech text, and for the KOI-8 case pairing.
#include "markup/CzechEncodings.h"

#include <gtest/gtest.h>
#include <iconv.h>

#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include "markup/chartables/CharacterTables.h"

namespace ferncast {
namespace {

std::optional<char16_t> cp437(std::uint8_t byte) {
  iconv_t cd = iconv_open("UTF-16LE", "CP437");
  if (cd == reinterpret_cast<iconv_t>(-1)) return std::nullopt;
  char in = static_cast<char>(byte);
  char out[4];
  char* ip = &in;
  char* op = out;
  std::size_t il = 1, ol = sizeof out;
  std::size_t result = iconv(cd, &ip, &il, &op, &ol);
  iconv_close(cd);
  if (result == static_cast<std::size_t>(-1) || op - out != 2) return std::nullopt;
  return static_cast<char16_t>(static_cast<std::uint8_t>(out[0]) | static_cast<std::uint8_t>(out[1])
                                                                       << 8);
}

std::u16string decodeKamenicky(std::initializer_list<std::uint8_t> bytes) {
  return initWithKamenickyData(bytes.begin(), bytes.size());
}

// Kamenický puts Czech and Slovak letters where code page 437 has letters of other languages
// and keeps everything else, box drawing, Greek and mathematics included.
TEST(Kamenicky, KeepsCodePage437OutsideTheCzechLetters) {
  const std::set<int> czech = {0x80, 0x83, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8A, 0x8B, 0x8C, 0x8D,
                               0x8F, 0x91, 0x92, 0x95, 0x96, 0x97, 0x98, 0x9B, 0x9C, 0x9D, 0x9E,
                               0x9F, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8, 0xA9, 0xAA, 0xAB, 0xAD};
  const char16_t* table = kamenickyTable();
  for (int byte = 0; byte < 256; ++byte) {
    if (byte < 0x80) {
      EXPECT_EQ(table[byte], byte);
      continue;
    }
    std::optional<char16_t> reference = cp437(static_cast<std::uint8_t>(byte));
    ASSERT_TRUE(reference) << "glibc has no CP437 for byte " << byte;
    if (czech.count(byte)) {
      EXPECT_NE(table[byte], *reference) << std::hex << byte;
    } else {
      EXPECT_EQ(table[byte], *reference) << std::hex << byte;
    }
  }
}

TEST(Kamenicky, DecodesCzechPangram) {
  // "Příliš žluťoučký kůň úpěl ďábelské ódy" in Kamenický.
  EXPECT_EQ(
      decodeKamenicky({0x50, 0xA9, 0xA1, 0x6C, 0x69, 0xA8, 0x20, 0x91, 0x6C, 0x75, 0x9F, 0x6F, 0x75,
                       0x87, 0x6B, 0x98, 0x20, 0x6B, 0x96, 0xA4, 0x20, 0xA3, 0x70, 0x88, 0x6C, 0x20,
                       0x83, 0xA0, 0x62, 0x65, 0x6C, 0x73, 0x6B, 0x82, 0x20, 0xA2, 0x64, 0x79}),
      u"Příliš žluťoučký kůň úpěl ďábelské ódy");
  EXPECT_EQ(decodeKamenicky({0x9B, 0x86, 0x8A, 0x9E, 0x9C}), u"ŠŤĹŘĽ");
  EXPECT_EQ(decodeKamenicky({}), u"");
}

TEST(Koi8cs2, DollarIsTheCurrencySignAndControlsStay) {
  const char16_t* table = koi8cs2Table();
  EXPECT_EQ(table[0x24], 0x00A4);
  for (int byte = 0; byte < 0xA0; ++byte) {
    if (byte == 0x24) continue;
    EXPECT_EQ(table[byte], byte);
  }
}

// KOI-8 places each upper-case letter 0x20 above its lower-case one.
TEST(Koi8cs2, UpperCaseLettersSit0x20AboveLowerCase) {
  const char16_t* table = koi8cs2Table();
  const char16_t* upper = initUpperCharsTable();
  int pairs = 0;
  for (int byte = 0xC0; byte < 0xDF; ++byte) {
    char16_t lower = table[byte];
    if (lower == 0xFFFD || table[byte + 0x20] == 0xFFFD) continue;
    EXPECT_EQ(upper[lower], table[byte + 0x20]) << std::hex << byte;
    ++pairs;
  }
  EXPECT_EQ(pairs, 28);
}

TEST(Koi8cs2, UnassignedBytesAreReplacementCharacters) {
  const char16_t* table = koi8cs2Table();
  int unassigned = 0;
  for (int byte = 0; byte < 256; ++byte)
    unassigned += table[byte] == 0xFFFD;
  EXPECT_EQ(unassigned, 12);
  const std::uint8_t bytes[] = {0xC3, 0xC5, 0xD3, 0xCB, 0xC1, 0x24, 0xFF};
  EXPECT_EQ(initWithKoi8cs2Data(bytes, sizeof bytes), u"čěšĺá¤\uFFFD");
}

}  // namespace
}  // namespace ferncast
