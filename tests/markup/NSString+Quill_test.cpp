#include "markup/chartables/NSString+Quill.h"

#include <gtest/gtest.h>
#include <unicode/normalizer2.h>
#include <unicode/unistr.h>

#include <optional>
#include <random>
#include <string>
#include <vector>

namespace ferncast {
namespace {

std::u16string repeated(std::u16string_view piece, std::size_t times) {
  std::u16string result;
  for (std::size_t i = 0; i < times; ++i)
    result.append(piece);
  return result;
}

// ICU's own answer, without any quick check: the reference for the differential tests.
std::u16string icuNormalized(const std::u16string& string, NormalizationForm form) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* n = nullptr;
  switch (form) {
    case kNormalizationFormD:
      n = icu::Normalizer2::getNFDInstance(status);
      break;
    case kNormalizationFormKD:
      n = icu::Normalizer2::getNFKDInstance(status);
      break;
    case kNormalizationFormC:
      n = icu::Normalizer2::getNFCInstance(status);
      break;
    case kNormalizationFormKC:
      n = icu::Normalizer2::getNFKCInstance(status);
      break;
  }
  icu::UnicodeString source(string.data(), static_cast<int32_t>(string.size()));
  icu::UnicodeString result = n->normalize(source, status);
  EXPECT_TRUE(U_SUCCESS(status));
  return std::u16string(result.getBuffer(), static_cast<std::size_t>(result.length()));
}

// --- Normalisation -------------------------------------------------------------------------------

struct FormRow {
  std::u16string input;
  NormalizationForm form;
  std::u16string expected;
};

TEST(Normalize, EachFormGivesItsOwnResult) {
  const FormRow rows[] = {
      {u"e\u0301", kNormalizationFormC, u"\u00E9"},
      {u"\u00E9", kNormalizationFormD, u"e\u0301"},
      {u"\uFB01", kNormalizationFormC, u"\uFB01"},  // compatibility only
      {u"\uFB01", kNormalizationFormKC, u"fi"},
      {u"\u01C5", kNormalizationFormKD, u"Dz\u030C"},
      {u"\u212B", kNormalizationFormC, u"\u00C5"},              // singleton decomposition
      {u"\u1112\u1161\u11AB", kNormalizationFormC, u"\uD55C"},  // Hangul jamo compose
      {u"\uD55C", kNormalizationFormD, u"\u1112\u1161\u11AB"},
      // Marks out of canonical order are reordered, then the first composes.
      {u"a\u0307\u0323", kNormalizationFormC, u"\u1EA1\u0307"},
      // A composition exclusion outside the BMP decomposes even under form C.
      {u"\U0001D15E", kNormalizationFormC, u"\U0001D157\U0001D165"},
      // Unpaired surrogates pass through; what follows them is still normalised.
      {u"\xD800"
       u"e\u0301",
       kNormalizationFormC, u"\xD800\u00E9"},
      {u"", kNormalizationFormC, u""},
      {u"plain ascii", kNormalizationFormD, u"plain ascii"},
      // A number that is no platform form leaves the text alone.
      {u"e\u0301", static_cast<NormalizationForm>(7), u"e\u0301"},
      {u"e\u0301", static_cast<NormalizationForm>(-1), u"e\u0301"},
  };
  for (const FormRow& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.input) + " form " + std::to_string(row.form));
    EXPECT_EQ(normalizedString(row.input, row.form), row.expected);
    std::u16string inPlace = row.input;
    normalizeString(inPlace, row.form);
    EXPECT_EQ(inPlace, row.expected);
  }
  EXPECT_EQ(normalizedString(u"e\u0301"), u"\u00E9");
  std::u16string s = u"e\u0301";
  normalizeString(s);
  EXPECT_EQ(s, u"\u00E9");
}

// A normalised prefix followed by text that needs work: the boundary must not be lost.
TEST(Normalize, WorkAfterALongNormalisedPrefix) {
  const std::u16string prefix = repeated(u"abc ", 100);
  EXPECT_EQ(normalizedString(prefix + u"e\u0301"), prefix + u"\u00E9");
  EXPECT_EQ(normalizedString(prefix + u"\u0301"), prefix + u"\u0301");
  EXPECT_EQ(normalizedString(prefix + u"a\u0307\u0323"), prefix + u"\u1EA1\u0307");
}

// Long text is checked in blocks, Latin text with a quick test and other scripts unit by unit: a
// unit that needs work must be found wherever it stands, also right at a block's edge, and must
// still combine with the unit before it.
TEST(Normalize, FindsTheFirstUnitNeedingWorkAtEveryPosition) {
  for (char16_t filler : {u'x', u'\u0436', u'\u4E00'}) {
    for (std::size_t at : {1u, 2u, 127u, 128u, 129u, 255u, 256u, 257u, 383u, 399u}) {
      std::u16string text(400, filler);
      text[at - 1] = u'e';
      text[at] = u'\u0301';
      std::u16string expected(399, filler);
      expected[at - 1] = u'\u00E9';
      EXPECT_EQ(normalizedString(text), expected) << "filler " << int(filler) << " at " << at;
      EXPECT_EQ(fixedAndNormalizedString(text), expected)
          << "filler " << int(filler) << " at " << at;
    }
  }
}

// Random strings over the characters normalisation is hardest on, in all four forms, against ICU
// normalising unconditionally.
TEST(Normalize, AgreesWithIcuOnGeneratedText) {
  const std::vector<std::u16string> pieces = {
      u"a",          u"e",          u"o",      u"A",      u" ",      u"z",          u"\u00E9",
      u"\u00C5",     u"\u0131",     u"\u03B1", u"\u0301", u"\u0300", u"\u0308",     u"\u0323",
      u"\u0327",     u"\u0344",     u"\u0345", u"\u0F73", u"\u1100", u"\u1112",     u"\u1161",
      u"\u1175",     u"\u11A8",     u"\u11AB", u"\uAC00", u"\uD55C", u"\uAC01",     u"\u212B",
      u"\u2126",     u"\uFB01",     u"\uFB2C", u"\u01C5", u"\u1E9B", u"\u0958",     u"\u093C",
      u"\u3099",     u"\u304B",     u"\uFF76", u"\uFF9E", u"\u2460", u"\U0001D15E", u"\U0001D165",
      u"\U0001F600", u"\U0002F800", u"\xD800", u"\xDC00", u"\u0000", u"\uF400",     u"\u00A0",
      u"\u2028",
  };
  std::mt19937 random(20240611);
  std::uniform_int_distribution<std::size_t> pick(0, pieces.size() - 1);
  std::uniform_int_distribution<int> length(0, 24);
  for (int i = 0; i < 4000; ++i) {
    std::u16string text = i % 50 == 0 ? repeated(u"plain text ", 30) : u"";
    for (int n = length(random); n > 0; --n)
      text += pieces[pick(random)];
    for (NormalizationForm form :
         {kNormalizationFormD, kNormalizationFormKD, kNormalizationFormC, kNormalizationFormKC}) {
      ASSERT_EQ(normalizedString(text, form), icuNormalized(text, form))
          << testing::PrintToString(text) << " form " << form;
    }
    std::u16string fixed = text;
    for (char16_t& c : fixed) {
      if (c == 0 || (c >= 0xD800 && c <= 0xDFFF) || (c >= 0xF400 && c <= 0xF8FF)) c = u' ';
    }
    ASSERT_EQ(fixedAndNormalizedString(text), icuNormalized(fixed, kNormalizationFormC))
        << testing::PrintToString(text);
  }
}

struct CaseRow {
  std::u16string input;
  std::u16string expected;
};

// The upper-case variant lower-cases, exactly like the lower-case one.
TEST(Normalize, LowercaseAndTheUppercaseVariantBothLowercase) {
  const CaseRow rows[] = {
      {u"Stra\u00DFe", u"stra\u00DFe"},
      {u"E\u0301COLE", u"\u00E9cole"},
      {u"\u039F\u0394\u039F\u03A3", u"\u03BF\u03B4\u03BF\u03C2"},  // final sigma
      {u"\u0130", u"i\u0307"},                                     // full mapping grows
      {u"", u""},
  };
  for (const CaseRow& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.input));
    EXPECT_EQ(normalizedLowercaseString(row.input), row.expected);
    EXPECT_EQ(normalizedUppercaseString(row.input), row.expected);
    std::u16string lower = row.input, upper = row.input;
    normalizeLowercaseString(lower);
    normalizeUppercaseString(upper);
    EXPECT_EQ(lower, row.expected);
    EXPECT_EQ(upper, row.expected);
  }
}

TEST(Normalize, CharactersOfNormalizedStringAreHandedOver) {
  std::unique_ptr<char16_t[]> characters;
  ASSERT_EQ(getCharactersOfNormalizedString(u"ae\u0301", characters), 2u);
  EXPECT_EQ(std::u16string(characters.get(), 2), u"a\u00E9");
  EXPECT_EQ(getCharactersOfNormalizedString(u"", characters), 0u);
  EXPECT_EQ(characters, nullptr);
}

// --- Folding -------------------------------------------------------------------------------------

struct FoldRow {
  std::u16string (*operation)(std::u16string_view);
  const char* name;
  std::u16string input;
  std::u16string expected;
};

TEST(Fold, UmlautAndAsciiOperations) {
  const FoldRow rows[] = {
      // Without normalising, a decomposed accent is a separate unit and survives.
      {nonUmlautedString, "nonUmlauted", u"e\u0301", u"e\u0301"},
      {nonUmlautedNormalizedString, "nonUmlautedNormalized", u"e\u0301", u"e"},
      {nonUmlautedString, "nonUmlauted", u"Gr\u00FC\u00DFe \u00F8", u"Gru\u00DFe \u00F8"},
      {lowercaseNonUmlautedString, "lowercaseNonUmlauted", u"\u00C4\u00D6\u00DC", u"aou"},
      {uppercaseNonUmlautedString, "uppercaseNonUmlauted", u"\u00E4\u00F6\u00FC\u00DF",
       u"AOU\u00DF"},
      {lowercaseNonUmlautedNormalizedString, "lowercaseNonUmlautedNormalized", u"E\u0301", u"e"},
      {uppercaseNonUmlautedNormalizedString, "uppercaseNonUmlautedNormalized", u"e\u0301", u"E"},
      {uppercaseNonUmlautedString, "uppercaseNonUmlauted", u"\U0001F600",
       u"\U0001F600"},  // surrogates map to themselves
      // The length is kept: whatever does not fold to ASCII becomes one space per unit.
      {asciiString, "ascii", u"na\u00EFve \u20AC", u"naive  "},
      {asciiString, "ascii", u"e\u0301", u"e"},  // form C first
      {asciiString, "ascii", u"\U0001F600!", u"  !"},
      {asciiString, "ascii", u"\u00C6on", u" on"},  // no single-unit folding
      {lowercaseAsciiString, "lowercaseAscii", u"\u00C7A VA", u"ca va"},
      {uppercaseAsciiString, "uppercaseAscii", u"stra\u00DFe", u"STRA E"},
      {uppercaseAsciiString, "uppercaseAscii", u"", u""},
  };
  for (const FoldRow& row : rows) {
    EXPECT_EQ(row.operation(row.input), row.expected)
        << row.name << " " << testing::PrintToString(row.input);
  }
}

// --- Fixing --------------------------------------------------------------------------------------

TEST(Fix, ForbiddenUnitsBecomeSpacesAndTheLengthIsKept) {
  const CaseRow rows[] = {
      {u"\U0001F600", u"  "},  // outside the BMP: two spaces
      {u"a", u"a"},
      {std::u16string(u"a\0b", 3), u"a b"},
      // Glyph-code range edges; U+F900 is then normalised (a CJK compatibility ideograph).
      {u"\uF3FF\uF400\uF8FF\uF900", u"\uF3FF  \u8C48"},
      {u"\uD7FF\xD800\xDFFF\uE000", u"\uD7FF  \uE000"},  // surrogate range edges
      {u"\xDC00"
       u"e\u0301",
       u" \u00E9"},
      {u"", u""},
  };
  for (const CaseRow& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.input));
    EXPECT_EQ(fixedAndNormalizedString(row.input), row.expected);
    std::u16string inPlace = row.input;
    fixAndNormalizeString(inPlace);
    EXPECT_EQ(inPlace, row.expected);
  }
}

// Long text is scanned in blocks: a forbidden unit in any block or in the tail must be found.
TEST(Fix, FindsForbiddenUnitsAtEveryPosition) {
  for (char16_t filler : {u'x', u'\u0436', u'\u4E00'}) {
    const std::u16string clean(300, filler);
    for (std::size_t at : {0u, 1u, 127u, 128u, 129u, 200u, 255u, 256u, 299u}) {
      std::u16string text = clean;
      text[at] = u'\uF500';
      text[299 - at / 2] = u'\0';
      std::u16string expected = clean;
      expected[at] = u' ';
      expected[299 - at / 2] = u' ';
      EXPECT_EQ(fixedAndNormalizedString(text), expected)
          << "filler " << int(filler) << " at " << at;
    }
  }
}

// --- Ligatures -----------------------------------------------------------------------------------

TEST(Ligatures, ExpandedToTheirLetters) {
  const CaseRow rows[] = {
      {u"\uFB00\uFB01\uFB02\uFB03\uFB04\uFB05\uFB06", u"fffiflffifflftst"},
      {u"\uFB05", u"ft"},  // long s with t: "ft", not "st"
      {u"\u0132SSEL \u0133s", u"IJSSEL ijs"},
      {u"e\uFB03cient", u"efficient"},
      {u"\uFAFF\uFB07\uFB13\u0131\u0134", u"\uFAFF\uFB07\uFB13\u0131\u0134"},  // neighbours
      {u"no ligatures", u"no ligatures"},
      {u"", u""},
  };
  for (const CaseRow& row : rows) {
    std::u16string s = row.input;
    convertLigaturesToCharacters(s);
    EXPECT_EQ(s, row.expected) << testing::PrintToString(row.input);
  }
  std::u16string many = repeated(u"\uFB03", 300);
  convertLigaturesToCharacters(many);
  EXPECT_EQ(many, repeated(u"ffi", 300));
}

// --- Collapsing ----------------------------------------------------------------------------------

struct CollapseRow {
  std::u16string input;
  bool feeds;
  std::u16string expected;
};

TEST(Collapse, EachRunBecomesOneSpaceAndNothingIsTrimmed) {
  const CollapseRow rows[] = {
      {u"a \t\n b", true, u"a b"},
      {u"a \t\n b", false, u"a \n b"},  // the space set holds no line ends
      {u"\t", false, u" "},
      {u"\n", true, u" "},
      {u"\n", false, u"\n"},
      {u"   lead and   trail   ", false, u" lead and trail "},
      {u"\u00A0\u00A0x", false, u" x"},  // no-break space is Zs
      {u"\u2028\u2029x\r\n", true, u" x "},
      {u"\u2028x", false, u"\u2028x"},
      {u"\u0003\uFFFC\uFEFFx", true, u" x"},  // the white set's extras
      {u"\uFEFFx", false, u"\uFEFFx"},
      {std::u16string(u"a\0\0b", 4), false, u"a b"},
      {u"a b", true, u"a b"},
      {u"", true, u""},
  };
  for (const CollapseRow& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.input) + (row.feeds ? " feeds" : " spaces"));
    std::u16string s = row.input;
    EXPECT_EQ(removeMultipleSpacesAndFeeds(s, row.feeds), row.expected.size());
    EXPECT_EQ(s, row.expected);
    if (!row.feeds) {
      std::u16string t = row.input;
      removeMultipleSpaces(t);
      EXPECT_EQ(t, row.expected);
    }
  }
}

// --- Comparison and search -----------------------------------------------------------------------

TEST(EqualNoCase, NilLengthAndCase) {
  const struct {
    std::optional<std::u16string_view> a, b;
    bool equal;
  } rows[] = {
      {std::nullopt, u"a", false},
      {u"a", std::nullopt, false},
      {std::nullopt, std::nullopt, false},
      {u"", u"", true},
      {u"Content-Type", u"CONTENT-type", true},
      {u"\u00E4", u"\u00C4", true},
      {u"\u017F", u"s", true},              // long s upper-cases to S
      {u"stra\u00DFe", u"STRASSE", false},  // lengths differ
      {u"\u00DF", u"\u1E9E", false},        // sharp s has no one-unit upper case
      {u"ab", u"abc", false},
      {u"abd", u"abc", false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(isEqualToStringNoCase(row.a, row.b), row.equal)
        << testing::PrintToString(row.a) << " " << testing::PrintToString(row.b);
  }
}

TEST(ContainChars, FindsAsciiNeedlesIgnoringCase) {
  const struct {
    std::u16string text;
    std::string needle;
    std::ptrdiff_t at;  // -1: not found
  } rows[] = {
      {u"Content-Type", "content-type", 0},
      {u"text/html; CHARSET=utf-8", "charset", 11},
      {u"xxABC", "abc", 2},   // match at the very end
      {u"aab", "ab", 1},      // a false start
      {u"\u017Fa", "SA", 0},  // both sides go through the upper-case table
      {u"abc", "", -1},
      {u"ab", "abc", -1},
      {u"abc", "abd", -1},
      {u"\u00E9", "\xC3\xA9", -1},  // UTF-8 bytes never match
      {u"\uFFE9", "\xE9", -1},      // nor does a byte widened with its sign
  };
  for (const auto& row : rows) {
    const char16_t* found = fastCaseInsensitiveUnicharsContainChars(
        row.text.data(), row.text.size(), row.needle.data(), row.needle.size());
    EXPECT_EQ(found ? found - row.text.data() : -1, row.at)
        << testing::PrintToString(row.text) << " " << row.needle;
  }
  EXPECT_EQ(fastCaseInsensitiveUnicharsContainChars(nullptr, 3, "a", 1), nullptr);
}

// --- Appending -----------------------------------------------------------------------------------

TEST(Append, NothingForANullPointerOrZeroCount) {
  std::u16string s = u"ab";
  const char16_t more[] = u"cde";
  appendUnichars(s, nullptr, 3);
  appendUnichars(s, more, 0);
  EXPECT_EQ(s, u"ab");
  appendUnichars(s, more, 2);
  appendUnichar(s, u'\u00E9');
  appendUnichar(s, u'\0');
  EXPECT_EQ(s, std::u16string(u"abcd\u00E9\0", 6));
}

}  // namespace
}  // namespace ferncast
