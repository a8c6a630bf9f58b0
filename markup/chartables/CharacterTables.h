// Process-wide character tables: class bitmaps over the Basic Multilingual Plane and 65,536-entry
// case and accent ("umlaut") mapping tables, built from ICU's Unicode data.
//
// Every table is built once, on first use, and kept for the life of the process; the builders are
// thread-safe (first use from several threads at once is fine), and the tables are read-only
// afterwards. Pointers returned here stay valid for ever.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ferncast {

// A character-set bitmap: 8192 bytes, code unit c is bit (c & 7) of byte (c >> 3).
constexpr std::size_t kCharacterSetRepSize = 8192;

inline bool characterIsMember(const std::uint8_t* rep, char16_t c) {
  return (rep[c >> 3] >> (c & 7)) & 1;
}

const std::uint8_t* emptyCharacterSetRep();
// White space (general category Zs and U+0009) plus U+0000 and U+0009.
const std::uint8_t* spaceCharacterSetRep();
// White space and newlines (Z*, U+000A-U+000D, U+0085) plus U+0000, U+000C, U+000A, U+000D,
// U+2028, U+2029, U+0003, U+FFFC, U+0009, U+FEFF and U+00A0.
const std::uint8_t* whiteCharacterSetRep();
// Letters: general categories L* and M*.
const std::uint8_t* alphaCharacterSetRep();
// Letters and numbers: L*, M* and N*.
const std::uint8_t* alphaNumCharacterSetRep();
// Decimal digits: Nd.
const std::uint8_t* digitCharacterSetRep();
// Lower-case letters: Ll.
const std::uint8_t* lowerCharacterSetRep();
// Upper-case letters: Lu and Lt.
const std::uint8_t* upperCharacterSetRep();

// The lowest and highest code unit in the letter set.
char16_t firstAlphaCharacter();
char16_t lastAlphaCharacter();

// Mapping tables of 65,536 entries. Each entry is the identity unless the rule maps it; entry
// 0xFFFF is always the identity.
// lower-case: an upper-case letter to its locale-independent lower-case form, when that form is
//   one code unit.
const char16_t* initLowerCharsTable();
// upper-case: a lower-case letter to its upper-case form, when one code unit ("ß" stays "ß").
const char16_t* initUpperCharsTable();
// umlaut: a letter to its base letter with accents, umlauts and cedillas removed (canonical
//   decomposition without its combining marks), when that is one code unit.
const char16_t* initUmlautsCharsTable();
// The lower-case and upper-case tables applied to the umlaut table's entries.
const char16_t* initLowerUmlautsCharsTable();
const char16_t* initUpperUmlautsCharsTable();

// Builds every bitmap and table now, for programs that want no work at first use.
void initCharacterTables();

// Per code unit. Hot loops may fetch a table pointer once instead.
inline char16_t toLower(char16_t c) {
  return initLowerCharsTable()[c];
}
inline char16_t toUpper(char16_t c) {
  return initUpperCharsTable()[c];
}
inline char16_t umlautsToAscii(char16_t c) {
  return initUmlautsCharsTable()[c];
}
inline char16_t umlautsToLowerAscii(char16_t c) {
  return initLowerUmlautsCharsTable()[c];
}
inline char16_t umlautsToUpperAscii(char16_t c) {
  return initUpperUmlautsCharsTable()[c];
}
// The umlaut entry when it is ASCII, else a space.
inline char16_t toAscii(char16_t c) {
  char16_t folded = umlautsToAscii(c);
  return folded < 128 ? folded : u' ';
}
inline char16_t toLowerAscii(char16_t c) {
  char16_t a = toAscii(c);
  return a >= u'A' && a <= u'Z' ? static_cast<char16_t>(a + 32) : a;
}
inline char16_t toUpperAscii(char16_t c) {
  char16_t a = toAscii(c);
  return a >= u'a' && a <= u'z' ? static_cast<char16_t>(a - 32) : a;
}

// The number of words in the code units: a word is a maximal run of alphanumeric code units.
std::size_t numberOfWordsOfCharacters(const char16_t* characters, std::size_t length);

}  // namespace ferncast
