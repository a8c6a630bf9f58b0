// Character entities: decoding "&eacute;", "&#233;" and "&#xE9;" into characters, encoding
// characters back into entities for ASCII-only output, escaping the four markup characters, and
// escaping text for JSON.
//
// The entity table holds the HTML 4 character entities except the standard four ("quot", "amp",
// "lt", "gt", which the decoders handle on their own) and "cedil" and "fnof": 246 rows, each a
// name and the one UTF-16 code unit it stands for. The table and its reverse index are constant
// data, complete before main starts; every function here is pure and may be called from any
// thread.
//
// The string functions take a view that needs to live only for the call and return a new string.
// When there is nothing to change they return a copy of their input; decoders also return their
// input unchanged when it is shorter than 4 code units. Owners of a buffer who want to avoid even
// that copy decode in place with `convertEntities2Characters` (the output never runs ahead of the
// input). Nothing here fails on any input: unpaired surrogates and ill-formed references pass
// through as code units.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace ferncast {

// The entity table: row i names `entityStrings[i]` (ASCII) for the code unit
// `entityCharacters[i]`. A terminating empty row ("" and 0) follows the last one.
constexpr std::size_t kEntityCount = 246;
extern const std::array<const char*, kEntityCount + 1> entityStrings;
extern const std::array<char16_t, kEntityCount + 1> entityCharacters;

// The reverse index: one entry per code unit from `firstCharacter` (U+00A0) to `lastCharacter`
// (U+2666), holding the row of that character's entity or `kNoEntityRow`.
constexpr std::uint16_t kNoEntityRow = 0xFFFF;
struct EntityConversionTables {
  char16_t firstCharacter;
  char16_t lastCharacter;
  const std::uint16_t* rows;
};
const EntityConversionTables& initConversionTables();
// The row whose entity stands for `c`, or kNoEntityRow (always for c outside the index's span).
std::uint16_t entityRowOfCharacter(char16_t c);

// Decodes source[start, start + length) into destination[0, n) and returns n <= length.
// `destination` may be `source + start` itself (in-place decoding).
//   standard:    "&quot;", "&amp;", "&lt;" and "&gt;" (and numeric references to those four
//                characters) are decoded too; without it they stay as written, so markup survives.
//   onlyNumeric: names from the entity table stay as written. "&apos", "&nbsp" and, with
//                `standard`, the standard four are still decoded.
//   nonUmlauted: every copied or decoded code unit passes through the umlaut table of
//                CharacterTables.h, except the results of "&apos", "&nbsp" and the standard four.
// References are lenient: a ";" after the name or number is consumed when present, any other
// code unit (or the end of the text) also ends it. "&apos", "&nbsp", "&quot", "&amp", "&lt" and
// "&gt" match as prefixes ("&nbspx" gives U+00A0 and "x"). Names are case-sensitive runs of
// alphanumeric code units of at most 6; numbers have at most 5 decimal or 4 hexadecimal digits
// ("&#x"/"&#X") and accumulate modulo 2^16. An unknown name or a zero value leaves the "&" as
// text and decoding goes on after it.
std::size_t convertEntities2Characters(const char16_t* source, char16_t* destination,
                                       std::size_t start, std::size_t length, bool standard,
                                       bool onlyNumeric, bool nonUmlauted);

// Decodes only "&quot;", "&amp;", "&lt;" and "&gt;" (lower-case, ";" required) in place and
// returns the new length. Which name is tried is decided by the position of the ";": five code
// units after the "&" only "quot", else four after only "amp", else three after only "gt" and
// "lt". So "&gt;;" and "&lt;a;" stay as written.
std::size_t convertStdEntities2Characters(char16_t* characters, std::size_t length);

// Decodes every entity, the standard four included.
std::u16string stringByConvertingEntitiesToCharacters(std::u16string_view string);
// The same; with `nonUmlauted` every code unit of the result, decoded or copied, also passes
// through the umlaut table ("&eacute;" and "é" both give "e").
std::u16string stringByConvertingEntitiesToCharactersNonUmlauted(std::u16string_view string,
                                                                 bool nonUmlauted);
// The general form (flags as for convertEntities2Characters).
std::u16string stringByConvertingEntitiesToCharacters(std::u16string_view string, bool standard,
                                                      bool onlyNumericEntities, bool nonUmlauted);
// Decodes only the standard four, by the positional rule of convertStdEntities2Characters.
std::u16string stringByConvertingStandardEntitiesToCharacters(std::u16string_view string);

// Characters with an entity become "&name;", other code units of 128 and above "&#N;" (decimal
// code unit, so a surrogate pair becomes two references); ASCII, markup characters included,
// stays. Input whose output would exceed 0x7FFFFFFE code units is returned unchanged.
std::u16string stringByConvertingCharactersToEntities(std::u16string_view string);
// Every code unit of 128 and above becomes "&#N;"; nothing else changes.
std::u16string stringByConvertingHighCharactersToEntities(std::u16string_view string);
// '"' becomes "&quot;", '&' "&amp;", '<' "&lt;" and '>' "&gt;"; nothing else changes.
std::u16string stringByConvertingCharactersToStandardEntities(std::u16string_view string);
// Escapes for the inside of a JSON string: '"', '\\' and '/' get a backslash, U+0008, U+0009,
// U+000A, U+000C and U+000D become "\b", "\t", "\n", "\f" and "\r"; every other code unit,
// other control characters included, is copied unchanged.
std::u16string stringByConvertingCharactersToJSON(std::u16string_view string);

}  // namespace ferncast
