// String operations over the character tables: Unicode normalisation, case and accent folding,
// fixing of code units that must not reach the index, ligature expansion, white-space
// collapsing, and case-insensitive comparison and search.
//
// Strings are UTF-16 code units. Functions that return a new string take a view (which need only
// live for the call); the in-place operations change the std::u16string they are given. Nothing
// throws on bad input: unpaired surrogates and unassigned code points pass through unchanged.
// Everything here may be called from any thread; the character tables are built on first use.
//
// Normalisation goes through ICU and checks first whether the text is already in the wanted
// form, so normalised text costs one scan and no copy (the first use of a form builds a 64 KB
// table of the code units that are stable in it; it is kept for the life of the process).
// Strings longer than INT32_MAX code units (ICU's limit) are left as they are by every
// normalising operation.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace ferncast {

// Unicode normalisation forms, numbered as the platform numbers them. A value outside these four
// leaves the text unchanged.
enum NormalizationForm : int {
  kNormalizationFormD = 0,
  kNormalizationFormKD = 1,
  kNormalizationFormC = 2,
  kNormalizationFormKC = 3,
};

// --- New strings -------------------------------------------------------------------------------

// Form C.
std::u16string normalizedString(std::u16string_view string);
std::u16string normalizedString(std::u16string_view string, NormalizationForm form);
// Form C, then the full, locale-independent lower-case mapping (which may change the length:
// "İ" becomes "i" and a combining dot).
std::u16string normalizedLowercaseString(std::u16string_view string);
// Despite its name the same as normalizedLowercaseString: it applies normalizeUppercaseString,
// which lower-cases ("Straße" gives "straße").
std::u16string normalizedUppercaseString(std::u16string_view string);

// Every code unit through the umlaut table (or the lower-case or upper-case umlaut table),
// without normalising first: a decomposed "é" keeps its combining accent. Length is kept.
std::u16string nonUmlautedString(std::u16string_view string);
std::u16string lowercaseNonUmlautedString(std::u16string_view string);
std::u16string uppercaseNonUmlautedString(std::u16string_view string);
// Form C first, then the same tables: a decomposed "é" gives "e".
std::u16string nonUmlautedNormalizedString(std::u16string_view string);
std::u16string lowercaseNonUmlautedNormalizedString(std::u16string_view string);
std::u16string uppercaseNonUmlautedNormalizedString(std::u16string_view string);

// Form C, then toAscii (or toLowerAscii, toUpperAscii) per code unit: every unit that does not
// fold to ASCII becomes a space, so the length equals that of the form-C text
// ("naïve €" gives "naive  ").
std::u16string asciiString(std::u16string_view string);
std::u16string lowercaseAsciiString(std::u16string_view string);
std::u16string uppercaseAsciiString(std::u16string_view string);

// A copy with fixAndNormalizeString applied.
std::u16string fixedAndNormalizedString(std::u16string_view string);

// False when either string is absent (nil) or the lengths differ; otherwise true when every code
// unit pair is equal through the upper-case table (two empty strings are equal).
bool isEqualToStringNoCase(std::optional<std::u16string_view> string,
                           std::optional<std::u16string_view> other);

// The length of the form-C version of the string; `characters` receives a new buffer of exactly
// that many code units (null when the length is 0), owned by the caller.
std::size_t getCharactersOfNormalizedString(std::u16string_view string,
                                            std::unique_ptr<char16_t[]>& characters);

// --- In place ----------------------------------------------------------------------------------

// Form C, or the form given. The string is only rewritten when it was not in that form already.
void normalizeString(std::u16string& string);
void normalizeString(std::u16string& string, NormalizationForm form);
// Form C, then the full, locale-independent lower-case mapping.
void normalizeLowercaseString(std::u16string& string);
// Form C, then lower-case: exactly normalizeLowercaseString, whatever the name says.
void normalizeUppercaseString(std::u16string& string);

// Replaces every U+0000, every surrogate (so a character outside the Basic Multilingual Plane
// becomes two spaces) and every code unit in U+F400-U+F8FF (glyph codes of symbol fonts) by a
// space, keeping the length, then normalises to form C.
void fixAndNormalizeString(std::u16string& string);

// Expands the typographic ligatures U+FB00-U+FB06 ("ff", "fi", "fl", "ffi", "ffl", "ft", "st";
// U+FB05 gives "ft") and U+0132, U+0133 ("IJ", "ij"); every other code unit is kept.
void convertLigaturesToCharacters(std::u16string& string);

// Turns each maximal run of white-set members (`feeds` true) or space-set members (false) into
// one U+0020, wherever the run stands; nothing is trimmed, and a lone tab also becomes a space.
// Returns the new length.
std::size_t removeMultipleSpacesAndFeeds(std::u16string& string, bool feeds);
// removeMultipleSpacesAndFeeds with `feeds` false.
void removeMultipleSpaces(std::u16string& string);

// Appends `length` code units; nothing when `characters` is null or `length` is 0.
void appendUnichars(std::u16string& string, const char16_t* characters, std::size_t length);
void appendUnichar(std::u16string& string, char16_t character);

// --- Search ------------------------------------------------------------------------------------

// The first place in `characters` where the ASCII `needle` occurs, comparing through the
// upper-case table; null when there is none, when the needle is empty or longer than the run, or
// when it holds a byte of 0x80 or above (such bytes never match). The result points into
// `characters`.
const char16_t* fastCaseInsensitiveUnicharsContainChars(const char16_t* characters,
                                                        std::size_t length, const char* needle,
                                                        std::size_t needleLength);

}  // namespace ferncast
