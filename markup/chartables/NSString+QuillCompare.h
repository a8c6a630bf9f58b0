// String comparisons and predicates over the character tables: case-insensitive equality, prefix
// and search, equality and prefix tests that look only at the members of a character set, search
// for any of several ASCII phrases, and white-space and letter predicates.
//
// Strings are UTF-16 code units; views need only live for the call. Case is folded through the
// upper-case table of CharacterTables.h. Everything here is pure, never throws, and may be
// called from any thread (the tables are built thread-safely on first use).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <type_traits>

#include "markup/chartables/CharacterTables.h"

namespace ferncast {

// Case-insensitive comparisons through the upper-case table, one code unit against one (so "ß"
// never equals "SS"). The other string is UTF-16, or bytes read as Latin-1 (ASCII names in
// practice). Inline: the tag scanner and the page handlers call these in their inner loops.
namespace detail {
template <typename Other>
inline bool sameNoCase(const char16_t* string, Other other, const char16_t* upper) {
  using Unit = std::make_unsigned_t<typename Other::value_type>;
  for (std::size_t i = 0; i < other.size(); ++i)
    if (upper[string[i]] != upper[static_cast<Unit>(other[i])]) return false;
  return true;
}

template <typename Other>
inline std::size_t findNoCase(std::u16string_view string, Other phrase, std::size_t from) {
  if (phrase.empty() || string.size() < phrase.size()) return std::u16string_view::npos;
  const char16_t* upper = initUpperCharsTable();
  using Unit = std::make_unsigned_t<typename Other::value_type>;
  const char16_t first = upper[static_cast<Unit>(phrase[0])];
  for (std::size_t i = from; i + phrase.size() <= string.size(); ++i) {
    if (upper[string[i]] == first && sameNoCase(string.data() + i, phrase, upper)) return i;
  }
  return std::u16string_view::npos;
}
}  // namespace detail

[[nodiscard]] inline bool equalsNoCase(std::u16string_view string, std::u16string_view other) {
  return string.size() == other.size() &&
         detail::sameNoCase(string.data(), other, initUpperCharsTable());
}
[[nodiscard]] inline bool equalsNoCase(std::u16string_view string, std::string_view other) {
  return string.size() == other.size() &&
         detail::sameNoCase(string.data(), other, initUpperCharsTable());
}

[[nodiscard]] inline bool startsWithNoCase(std::u16string_view string, std::u16string_view prefix) {
  return string.size() >= prefix.size() &&
         detail::sameNoCase(string.data(), prefix, initUpperCharsTable());
}
[[nodiscard]] inline bool startsWithNoCase(std::u16string_view string, std::string_view prefix) {
  return string.size() >= prefix.size() &&
         detail::sameNoCase(string.data(), prefix, initUpperCharsTable());
}

[[nodiscard]] inline bool endsWithNoCase(std::u16string_view string, std::u16string_view suffix) {
  return string.size() >= suffix.size() &&
         detail::sameNoCase(string.data() + string.size() - suffix.size(), suffix,
                            initUpperCharsTable());
}
[[nodiscard]] inline bool endsWithNoCase(std::u16string_view string, std::string_view suffix) {
  return string.size() >= suffix.size() &&
         detail::sameNoCase(string.data() + string.size() - suffix.size(), suffix,
                            initUpperCharsTable());
}

// The first position at or after `from` where `phrase` occurs, or npos. An empty phrase is never
// found.
[[nodiscard]] inline std::size_t findNoCase(std::u16string_view string, std::u16string_view phrase,
                                            std::size_t from = 0) {
  return detail::findNoCase(string, phrase, from);
}
[[nodiscard]] inline std::size_t findNoCase(std::u16string_view string, std::string_view phrase,
                                            std::size_t from = 0) {
  return detail::findNoCase(string, phrase, from);
}
[[nodiscard]] inline bool containsNoCase(std::u16string_view string, std::u16string_view phrase) {
  return findNoCase(string, phrase) != std::u16string_view::npos;
}
[[nodiscard]] inline bool containsNoCase(std::u16string_view string, std::string_view phrase) {
  return findNoCase(string, phrase) != std::u16string_view::npos;
}

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
