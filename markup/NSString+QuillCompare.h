// String comparisons and predicates over the character tables: equality and prefix tests that
// look only at the members of a character set, search for any of several ASCII phrases, and
// white-space and letter predicates.
//
// Strings are UTF-16 code units; views need only live for the call. Case is folded through the
// upper-case table of markup/CharacterTables.h. Everything here is pure, never throws, and may be
// called from any thread (the tables are built thread-safely on first use).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace ferncast {

// The two strings hold the same sequence of members of `characterSetRep` (a character-set bitmap,
// see CharacterTables.h), comparing through the upper-case table; every other code unit is
// skipped. So with the letter set "Page-Load frequency." equals "PAGE LOAD FREQUENCY". Two
// strings without members (two empty strings, too) are equal.
bool equalStringsNoCaseUsingCharacterSetRep(std::u16string_view string, std::u16string_view other,
                                            const std::uint8_t* characterSetRep);

// The members of `characterSetRep` in `prefix` begin the members in `string`, compared as above.
// A prefix without members is a prefix of every string.
bool hasPrefixNoCaseUsingCharacterSetRep(std::u16string_view string, std::u16string_view prefix,
                                         const std::uint8_t* characterSetRep);

// One of the ASCII `phrases` occurs in `string`: code unit for code unit, or through the
// upper-case table when not `caseSensitive`. Empty phrases and phrases holding bytes of 0x80 and
// above never match.
bool containsSubCStrings(std::u16string_view string, std::span<const char* const> phrases,
                         bool caseSensitive);

// Every code unit belongs to the white set (whiteCharacterSetRep); true for no code units.
bool onlyWhiteCharacters(const char16_t* characters, std::size_t length);
bool isWhiteString(std::u16string_view string);

// Some code unit belongs to the letter set (alphaCharacterSetRep).
bool containsAlphaCharacter(std::u16string_view string);

}  // namespace ferncast
