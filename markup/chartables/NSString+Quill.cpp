#include "markup/chartables/NSString+Quill.h"

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>

#include "markup/chartables/CharacterTables.h"
#include "markup/chartables/NSString+QuillCompare.h"

namespace ferncast {
namespace {

// Code units that fixing turns into spaces: U+0000, surrogates, U+F400-U+F8FF.
constexpr bool isForbidden(char16_t c) {
  return c == 0 || (c >= 0xD800 && c <= 0xDFFF) || (c >= 0xF400 && c <= 0xF8FF);
}

// The index of the first code unit for which `exact` holds, or `length`. Blocks where `quick`
// (which must hold wherever `exact` does) holds for no unit are skipped after a branch-free
// reduction that the compiler vectorises; `exact` is then tested over the block without
// branches too, and only a block with a match is searched unit by unit.
template <typename Quick, typename Exact>
std::size_t firstMatch(const char16_t* p, std::size_t length, Quick quick, Exact exact) {
  constexpr std::size_t kBlock = 128;
  std::size_t i = 0;
  while (i < length) {
    if (length - i >= kBlock) {
      // All-ones masks rather than 0 or 1 spare the vector loop an instruction.
      char16_t maybe = 0;
#pragma GCC unroll 4
      for (std::size_t j = 0; j < kBlock; ++j) {
        maybe |= static_cast<char16_t>(-static_cast<int>(quick(p[i + j])));
      }
      unsigned found = 0;
      if (maybe) {
#pragma GCC unroll 8
        for (std::size_t j = 0; j < kBlock; ++j) {
          found |= unsigned{exact(p[i + j])};
        }
      }
      if (!found) {
        i += kBlock;
        continue;
      }
    }
    const std::size_t blockEnd = std::min(length, i + kBlock);
    for (; i < blockEnd; ++i) {
      if (exact(p[i])) return i;
    }
  }
  return length;
}

// What normalising into one form needs: ICU's normaliser and a byte per code unit saying whether
// the unit is unstable in that form (a unit is stable when its quick check is "yes", its combining
// class 0 and it has a normalisation boundary before it: text made only of stable units is
// normalised already) and whether fixing replaces it. A byte, not a bit, per unit: the look-up
// is the inner loop on text outside the Latin range.
enum UnitFlags : std::uint8_t { kUnstable = 1, kForbidden = 2 };

struct FormData {
  const icu::Normalizer2* normalizer = nullptr;  // null when ICU has no data
  std::array<std::uint8_t, 0x10000> flags{};
  char16_t allStableBelow = 0;  // every code unit below this one is stable
};

const FormData* buildFormData(NormalizationForm form) {
  using Getter = const icu::Normalizer2* (*)(UErrorCode&);
  static constexpr Getter kInstances[] = {
      &icu::Normalizer2::getNFDInstance, &icu::Normalizer2::getNFKDInstance,
      &icu::Normalizer2::getNFCInstance, &icu::Normalizer2::getNFKCInstance};
  static constexpr UProperty kQuickCheck[] = {UCHAR_NFD_QUICK_CHECK, UCHAR_NFKD_QUICK_CHECK,
                                              UCHAR_NFC_QUICK_CHECK, UCHAR_NFKC_QUICK_CHECK};
  auto* data = new FormData;
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* normalizer = kInstances[form](status);
  if (U_SUCCESS(status)) data->normalizer = normalizer;
  bool allStable = true;
  for (UChar32 c = 0; c < 0x10000; ++c) {
    const bool stable = data->normalizer && !U_IS_SURROGATE(c) &&
                        u_getIntPropertyValue(c, kQuickCheck[form]) == UNORM_YES &&
                        u_getCombiningClass(c) == 0 && normalizer->hasBoundaryBefore(c);
    allStable = allStable && stable;
    if (allStable) data->allStableBelow = static_cast<char16_t>(c + 1);
    data->flags[c] = static_cast<std::uint8_t>(
        (stable ? 0 : kUnstable) | (isForbidden(static_cast<char16_t>(c)) ? kForbidden : 0));
  }
  return data;
}

// Built on first use of each form (64 KB), once, and never freed.
template <NormalizationForm form>
const FormData& formDataOf() {
  static const FormData* const data = buildFormData(form);
  return *data;
}

// The data of a form; null for a number that is no platform form.
const FormData* formData(NormalizationForm form) {
  using Getter = const FormData& (*)();
  static constexpr Getter kForms[] = {
      formDataOf<kNormalizationFormD>, formDataOf<kNormalizationFormKD>,
      formDataOf<kNormalizationFormC>, formDataOf<kNormalizationFormKC>};
  return form >= 0 && form < 4 ? &kForms[form]() : nullptr;
}

bool fitsIcu(const std::u16string& string) {
  return string.size() <= static_cast<std::size_t>(INT32_MAX);
}

// Normalises `string` into the form of `data`, knowing that its first `stable` units are stable.
void normalizeFrom(std::u16string& string, const FormData& data, std::size_t stable) {
  if (!data.normalizer || !fitsIcu(string)) return;
  // The rest of the leading run of stable units; every unit below the form's threshold (all of
  // Latin text for form C) is stable.
  const char16_t below = data.allStableBelow;
  const std::uint8_t* flags = data.flags.data();
  stable += firstMatch(
      string.data() + stable, string.size() - stable, [below](char16_t c) { return c >= below; },
      [flags](char16_t c) { return (flags[c] & kUnstable) != 0; });
  if (stable == string.size()) return;
  // Every stable unit has a boundary before it, so the text before the last one is final; the
  // first unstable unit may still combine with that last stable one.
  const auto start = static_cast<int32_t>(stable > 0 ? stable - 1 : 0);
  // A read-only alias: no copy unless something has to change.
  const icu::UnicodeString rest(false, string.data() + start,
                                static_cast<int32_t>(string.size()) - start);
  UErrorCode status = U_ZERO_ERROR;
  const int32_t normalizedPrefix = data.normalizer->spanQuickCheckYes(rest, status);
  if (U_FAILURE(status) || normalizedPrefix == rest.length()) return;
  // ICU's prefix also ends at a boundary, so only what follows needs normalising.
  const icu::UnicodeString tail =
      data.normalizer->normalize(rest.tempSubString(normalizedPrefix), status);
  if (U_FAILURE(status)) return;
  string.replace(static_cast<std::size_t>(start + normalizedPrefix), std::u16string::npos,
                 tail.getBuffer(), static_cast<std::size_t>(tail.length()));
}

// The full, root-locale lower-case mapping of the whole string (context rules such as the final
// sigma apply; the length may change).
void lowercase(std::u16string& string) {
  if (string.empty() || !fitsIcu(string)) return;
  const auto length = static_cast<int32_t>(string.size());
  std::u16string result(string.size(), u'\0');
  UErrorCode status = U_ZERO_ERROR;
  int32_t needed = u_strToLower(result.data(), length, string.data(), length, "", &status);
  if (status == U_BUFFER_OVERFLOW_ERROR) {
    result.resize(static_cast<std::size_t>(needed));
    status = U_ZERO_ERROR;
    needed = u_strToLower(result.data(), needed, string.data(), length, "", &status);
  }
  if (U_FAILURE(status)) return;
  result.resize(static_cast<std::size_t>(needed));
  string = std::move(result);
}

void mapThroughTable(std::u16string& string, const char16_t* table) {
  for (char16_t& c : string) {
    c = table[c];
  }
}

// Case tables for the ASCII range: the letters from `from` to `to` move by `shift`.
using AsciiTable = std::array<char16_t, 128>;
constexpr AsciiTable asciiCaseTable(char16_t from, char16_t to, int shift) {
  AsciiTable table{};
  for (char16_t c = 0; c < 128; ++c) {
    table[c] = c >= from && c <= to ? static_cast<char16_t>(c + shift) : c;
  }
  return table;
}
constexpr AsciiTable kAsciiSame = asciiCaseTable(u'A', u'Z', 0);
constexpr AsciiTable kAsciiLower = asciiCaseTable(u'A', u'Z', 32);
constexpr AsciiTable kAsciiUpper = asciiCaseTable(u'a', u'z', -32);

// Form C, the umlaut table, then every unit that is not ASCII becomes a space.
std::u16string asciiFolded(std::u16string_view string, const AsciiTable& caseTable) {
  std::u16string result(string);
  normalizeString(result);
  const char16_t* umlauts = initUmlautsCharsTable();
  for (char16_t& c : result) {
    char16_t folded = umlauts[c];
    c = folded < 128 ? caseTable[folded] : u' ';
  }
  return result;
}

std::u16string tableMapped(std::u16string_view string, const char16_t* table) {
  std::u16string result(string);
  mapThroughTable(result, table);
  return result;
}

std::u16string normalizedTableMapped(std::u16string_view string, const char16_t* table) {
  std::u16string result(string);
  normalizeString(result);
  mapThroughTable(result, table);
  return result;
}

// The expansion of a ligature, or an empty view for every other code unit.
std::u16string_view ligatureExpansion(char16_t c) {
  static constexpr std::array<std::u16string_view, 7> kPresentationForms = {
      u"ff", u"fi", u"fl", u"ffi", u"ffl", u"ft", u"st"};
  static constexpr std::array<std::u16string_view, 2> kDutchIj = {u"IJ", u"ij"};
  if (static_cast<char16_t>(c - 0xFB00) < kPresentationForms.size()) {
    return kPresentationForms[c - 0xFB00];
  }
  if (static_cast<char16_t>(c - 0x0132) < kDutchIj.size()) return kDutchIj[c - 0x0132];
  return {};
}

}  // namespace

// --- New strings -------------------------------------------------------------------------------

std::u16string normalizedString(std::u16string_view string) {
  return normalizedString(string, kNormalizationFormC);
}

std::u16string normalizedString(std::u16string_view string, NormalizationForm form) {
  std::u16string result(string);
  normalizeString(result, form);
  return result;
}

std::u16string normalizedLowercaseString(std::u16string_view string) {
  std::u16string result(string);
  normalizeLowercaseString(result);
  return result;
}

std::u16string normalizedUppercaseString(std::u16string_view string) {
  std::u16string result(string);
  normalizeUppercaseString(result);
  return result;
}

std::u16string nonUmlautedString(std::u16string_view string) {
  return tableMapped(string, initUmlautsCharsTable());
}

std::u16string lowercaseNonUmlautedString(std::u16string_view string) {
  return tableMapped(string, initLowerUmlautsCharsTable());
}

std::u16string uppercaseNonUmlautedString(std::u16string_view string) {
  return tableMapped(string, initUpperUmlautsCharsTable());
}

std::u16string nonUmlautedNormalizedString(std::u16string_view string) {
  return normalizedTableMapped(string, initUmlautsCharsTable());
}

std::u16string lowercaseNonUmlautedNormalizedString(std::u16string_view string) {
  return normalizedTableMapped(string, initLowerUmlautsCharsTable());
}

std::u16string uppercaseNonUmlautedNormalizedString(std::u16string_view string) {
  return normalizedTableMapped(string, initUpperUmlautsCharsTable());
}

std::u16string asciiString(std::u16string_view string) {
  return asciiFolded(string, kAsciiSame);
}

std::u16string lowercaseAsciiString(std::u16string_view string) {
  return asciiFolded(string, kAsciiLower);
}

std::u16string uppercaseAsciiString(std::u16string_view string) {
  return asciiFolded(string, kAsciiUpper);
}

std::u16string fixedAndNormalizedString(std::u16string_view string) {
  std::u16string result(string);
  fixAndNormalizeString(result);
  return result;
}

bool isEqualToStringNoCase(std::optional<std::u16string_view> string,
                           std::optional<std::u16string_view> other) {
  return string && other && equalsNoCase(*string, *other);
}

std::size_t getCharactersOfNormalizedString(std::u16string_view string,
                                            std::unique_ptr<char16_t[]>& characters) {
  std::u16string normalized = normalizedString(string);
  characters.reset(normalized.empty() ? nullptr : new char16_t[normalized.size()]);
  normalized.copy(characters.get(), normalized.size());
  return normalized.size();
}

// --- In place ----------------------------------------------------------------------------------

void normalizeString(std::u16string& string) {
  normalizeString(string, kNormalizationFormC);
}

void normalizeString(std::u16string& string, NormalizationForm form) {
  const FormData* data = formData(form);
  if (data) normalizeFrom(string, *data, 0);
}

void normalizeLowercaseString(std::u16string& string) {
  normalizeString(string);
  lowercase(string);
}

void normalizeUppercaseString(std::u16string& string) {
  normalizeLowercaseString(string);
}

void fixAndNormalizeString(std::u16string& string) {
  const FormData& formC = formDataOf<kNormalizationFormC>();
  const std::uint8_t* flags = formC.flags.data();
  char16_t* p = string.data();
  const std::size_t length = string.size();
  // Usually one pass decides. Forbidden units are U+0000 or from U+D800 up, so the quick test
  // (c - 1 wraps U+0000 to U+FFFF) catches them along with every unit from form C's threshold.
  const auto quickFrom = static_cast<char16_t>(std::max(formC.allStableBelow, char16_t{1}) - 1);
  const std::size_t done = firstMatch(
      p, length, [quickFrom](char16_t c) { return static_cast<char16_t>(c - 1) >= quickFrom; },
      [flags](char16_t c) { return flags[c] != 0; });
  const std::size_t firstForbidden =
      done + firstMatch(
                 p + done, length - done,
                 [](char16_t c) { return static_cast<char16_t>(c - 1) >= 0xD7FF; },
                 [flags](char16_t c) { return (flags[c] & kForbidden) != 0; });
  for (std::size_t i = firstForbidden; i < length; ++i) {
    if (flags[p[i]] & kForbidden) p[i] = u' ';
  }
  normalizeFrom(string, formC, done);
}

void convertLigaturesToCharacters(std::u16string& string) {
  std::size_t i = 0;
  while (i < string.size() && ligatureExpansion(string[i]).empty()) {
    ++i;
  }
  if (i == string.size()) return;
  std::u16string result;
  result.reserve(string.size() + 16);
  result.append(string, 0, i);
  for (; i < string.size(); ++i) {
    std::u16string_view expansion = ligatureExpansion(string[i]);
    if (expansion.empty()) {
      result.push_back(string[i]);
    } else {
      result.append(expansion);
    }
  }
  string = std::move(result);
}

std::size_t removeMultipleSpacesAndFeeds(std::u16string& string, bool feeds) {
  const std::uint8_t* set = feeds ? whiteCharacterSetRep() : spaceCharacterSetRep();
  char16_t* p = string.data();
  const std::size_t length = string.size();
  std::size_t kept = 0;
  bool inRun = false;
#pragma GCC unroll 4
  for (std::size_t i = 0; i < length; ++i) {
    const char16_t c = p[i];
    const bool member = characterIsMember(set, c);
    p[kept] = member ? u' ' : c;
    kept += !(member && inRun);
    inRun = member;
  }
  string.resize(kept);
  return kept;
}

void removeMultipleSpaces(std::u16string& string) {
  removeMultipleSpacesAndFeeds(string, false);
}

void appendUnichars(std::u16string& string, const char16_t* characters, std::size_t length) {
  if (characters && length > 0) string.append(characters, length);
}

void appendUnichar(std::u16string& string, char16_t character) {
  string.push_back(character);
}

// --- Search ------------------------------------------------------------------------------------

const char16_t* fastCaseInsensitiveUnicharsContainChars(const char16_t* characters,
                                                        std::size_t length, const char* needle,
                                                        std::size_t needleLength) {
  if (!characters || !needle || needleLength == 0 || needleLength > length) return nullptr;
  // A byte widened as a signed byte is negative and equals no table entry.
  for (std::size_t j = 0; j < needleLength; ++j) {
    if (static_cast<signed char>(needle[j]) < 0) return nullptr;
  }
  const std::size_t at = findNoCase({characters, length}, std::string_view(needle, needleLength));
  return at == std::u16string_view::npos ? nullptr : characters + at;
}

}  // namespace ferncast
