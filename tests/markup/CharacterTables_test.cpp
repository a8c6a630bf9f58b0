#include "markup/chartables/CharacterTables.h"

#include <gtest/gtest.h>
#include <unicode/uchar.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

namespace ferncast {
namespace {

bool isMember(const std::uint8_t* rep, std::uint32_t c) {
  return characterIsMember(rep, static_cast<char16_t>(c));
}

// --- Bitmaps -------------------------------------------------------------------------------------

struct CategorySet {
  const char* name;
  const std::uint8_t* (*rep)();
  std::uint32_t categories;  // U_GC_*_MASK bits
};

// Catches a wrong category mask, a wrong bit order or a missed range anywhere in the plane.
TEST(CharacterSetRep, NamedSetsHoldExactlyTheirGeneralCategories) {
  const CategorySet sets[] = {
      {"alpha", alphaCharacterSetRep, U_GC_L_MASK | U_GC_M_MASK},
      {"alphaNum", alphaNumCharacterSetRep, U_GC_L_MASK | U_GC_M_MASK | U_GC_N_MASK},
      {"digit", digitCharacterSetRep, U_GC_ND_MASK},
      {"lower", lowerCharacterSetRep, U_GC_LL_MASK},
      {"upper", upperCharacterSetRep, U_GC_LU_MASK | U_GC_LT_MASK},
      {"empty", emptyCharacterSetRep, 0},
  };
  for (const CategorySet& set : sets) {
    const std::uint8_t* rep = set.rep();
    int mismatches = 0;
    for (std::uint32_t c = 0; c < 0x10000 && mismatches < 5; ++c) {
      bool expected = (U_GET_GC_MASK(static_cast<UChar32>(c)) & set.categories) != 0;
      if (isMember(rep, c) != expected) {
        ++mismatches;
        ADD_FAILURE() << set.name << " U+" << std::hex << c << " expected " << expected;
      }
    }
  }
}

// The space set is Zs plus tab and NUL; the white set adds every line end and the extras that
// rich text and PDF extraction leave behind (U+0003, U+FFFC, U+FEFF, U+00A0).
TEST(CharacterSetRep, SpaceAndWhiteSetsHoldTheirCategoriesAndExtras) {
  const std::vector<char16_t> spaceExtras = {u'\0', u'\t'};
  const std::vector<char16_t> whiteExtras = {u'\0',     u'\t',     u'\n',     u'\v',
                                             u'\f',     u'\r',     u'\u0085', u'\u2028',
                                             u'\u2029', u'\u0003', u'\uFFFC', u'\uFEFF'};
  auto contains = [](const std::vector<char16_t>& list, std::uint32_t c) {
    for (char16_t e : list) {
      if (e == c) return true;
    }
    return false;
  };
  const std::uint8_t* space = spaceCharacterSetRep();
  const std::uint8_t* white = whiteCharacterSetRep();
  for (std::uint32_t c = 0; c < 0x10000; ++c) {
    const std::uint32_t mask = U_GET_GC_MASK(static_cast<UChar32>(c));
    const bool inSpace = (mask & U_GC_ZS_MASK) || contains(spaceExtras, c);
    const bool inWhite = (mask & U_GC_Z_MASK) || contains(whiteExtras, c);
    ASSERT_EQ(isMember(space, c), inSpace) << "space U+" << std::hex << c;
    ASSERT_EQ(isMember(white, c), inWhite) << "white U+" << std::hex << c;
  }
}

struct MembershipRow {
  char16_t c;
  bool space, white, alpha, alphaNum, digit, lower, upper;
};

TEST(CharacterSetRep, HandPickedMembership) {
  const MembershipRow rows[] = {
      // c         space  white  alpha  alnum  digit  lower  upper
      {u'a', false, false, true, true, false, true, false},
      {u'Z', false, false, true, true, false, false, true},
      {u'7', false, false, false, true, true, false, false},
      {u'\u0663', false, false, false, true, true, false, false},   // Arabic-Indic three
      {u'\u216B', false, false, false, true, false, false, false},  // Roman twelve (Nl)
      {u'\u00BD', false, false, false, true, false, false, false},  // one half (No)
      {u'\u0301', false, false, true, true, false, false, false},   // combining acute (Mn)
      {u'\u01C5', false, false, true, true, false, false, true},    // title-case Dz (Lt)
      {u'\u00DF', false, false, true, true, false, true, false},    // sharp s
      {u'\u4E00', false, false, true, true, false, false, false},   // CJK ideograph (Lo)
      {u' ', true, true, false, false, false, false, false},
      {u'\t', true, true, false, false, false, false, false},
      {u'\0', true, true, false, false, false, false, false},
      {u'\n', false, true, false, false, false, false, false},
      {u'\r', false, true, false, false, false, false, false},
      {u'\u0085', false, true, false, false, false, false, false},  // next line
      {u'\u00A0', true, true, false, false, false, false, false},   // no-break space (Zs)
      {u'\u3000', true, true, false, false, false, false, false},   // ideographic space
      {u'\u2028', false, true, false, false, false, false, false},  // line separator (Zl)
      {u'\u0003', false, true, false, false, false, false, false},
      {u'\uFFFC', false, true, false, false, false, false, false},          // object replacement
      {u'\uFEFF', false, true, false, false, false, false, false},          // byte-order mark
      {u'\u200B', false, false, false, false, false, false, false},         // zero-width space (Cf)
      {char16_t{0xD800}, false, false, false, false, false, false, false},  // surrogate
      {u'\uFFFF', false, false, false, false, false, false, false},
  };
  for (const MembershipRow& row : rows) {
    SCOPED_TRACE(testing::Message() << "U+" << std::hex << static_cast<int>(row.c));
    EXPECT_EQ(characterIsMember(spaceCharacterSetRep(), row.c), row.space);
    EXPECT_EQ(characterIsMember(whiteCharacterSetRep(), row.c), row.white);
    EXPECT_EQ(characterIsMember(alphaCharacterSetRep(), row.c), row.alpha);
    EXPECT_EQ(characterIsMember(alphaNumCharacterSetRep(), row.c), row.alphaNum);
    EXPECT_EQ(characterIsMember(digitCharacterSetRep(), row.c), row.digit);
    EXPECT_EQ(characterIsMember(lowerCharacterSetRep(), row.c), row.lower);
    EXPECT_EQ(characterIsMember(upperCharacterSetRep(), row.c), row.upper);
  }
}

// Code unit c is bit (c & 7) of byte (c >> 3): bytes 8 and 12 hold "@A".."G" and "`a".."g".
TEST(CharacterSetRep, BitsAreLowBitFirstWithinEachByte) {
  EXPECT_EQ(alphaCharacterSetRep()[8], 0xFE);
  EXPECT_EQ(alphaCharacterSetRep()[12], 0xFE);
  EXPECT_EQ(digitCharacterSetRep()[6], 0xFF);  // "0".."7"
  EXPECT_EQ(digitCharacterSetRep()[7], 0x03);  // "8", "9"
  EXPECT_EQ(spaceCharacterSetRep()[1], 0x02);  // tab only among U+0008..U+000F
  EXPECT_EQ(whiteCharacterSetRep()[1], 0x3E);  // tab to carriage return
}

TEST(CharacterSetRep, FirstAndLastLetter) {
  EXPECT_EQ(firstAlphaCharacter(), u'A');
  EXPECT_EQ(lastAlphaCharacter(), u'\uFFDC');  // halfwidth Hangul letter I
}

// --- Mapping tables ------------------------------------------------------------------------------

struct MappingRow {
  char16_t c, lower, upper, umlaut, lowerUmlaut, upperUmlaut;
};

TEST(MappingTables, EntriesFollowSingleCodeUnitResults) {
  const MappingRow rows[] = {
      // c         lower      upper      umlaut     lowerUml   upperUml
      {u'A', u'a', u'A', u'A', u'a', u'A'},
      {u'a', u'a', u'A', u'a', u'a', u'A'},
      {u'1', u'1', u'1', u'1', u'1', u'1'},
      // Upper-case form "SS" is two letters: sharp s stays itself.
      {u'\u00DF', u'\u00DF', u'\u00DF', u'\u00DF', u'\u00DF', u'\u00DF'},
      {u'\u1E9E', u'\u00DF', u'\u1E9E', u'\u1E9E', u'\u00DF', u'\u1E9E'},  // capital sharp s
      {u'\u00E4', u'\u00E4', u'\u00C4', u'a', u'a', u'A'},                 // a umlaut
      {u'\u00C9', u'\u00E9', u'\u00C9', u'E', u'e', u'E'},                 // E acute
      {u'\u00E7', u'\u00E7', u'\u00C7', u'c', u'c', u'C'},                 // c cedilla
      {u'\u01D6', u'\u01D6', u'\u01D5', u'u', u'u', u'U'},  // u diaeresis macron (two marks)
      {u'\u00FF', u'\u00FF', u'\u0178', u'y', u'y', u'Y'},
      // No canonical decomposition: o slash and dotless i keep their letter.
      {u'\u00F8', u'\u00F8', u'\u00D8', u'\u00F8', u'\u00F8', u'\u00D8'},
      {u'\u0131', u'\u0131', u'I', u'\u0131', u'\u0131', u'I'},
      // Capital I with dot: lower-case form is two units, so it stays; the folding drops the dot.
      {u'\u0130', u'\u0130', u'\u0130', u'I', u'i', u'I'},
      // Title-case Dz: lower-cased, but not upper-cased (it is not in the lower-case set).
      {u'\u01C5', u'\u01C6', u'\u01C5', u'\u01C5', u'\u01C6', u'\u01C5'},
      {u'\u0149', u'\u0149', u'\u0149', u'\u0149', u'\u0149', u'\u0149'},  // n apostrophe
      {u'\u017F', u'\u017F', u'S', u'\u017F', u'\u017F', u'S'},            // long s
      {u'\u00B5', u'\u00B5', u'\u039C', u'\u00B5', u'\u00B5', u'\u039C'},  // micro sign
      {u'\u03A3', u'\u03C3', u'\u03A3', u'\u03A3', u'\u03C3', u'\u03A3'},  // sigma
      {u'\u03C2', u'\u03C2', u'\u03A3', u'\u03C2', u'\u03C2', u'\u03A3'},  // final sigma
      {u'\u0390', u'\u0390', u'\u0390', u'\u03B9', u'\u03B9', u'\u0399'},  // iota two accents
      {u'\u212B', u'\u00E5', u'\u212B', u'A', u'a', u'A'},                 // angstrom sign
      {u'\u212A', u'k', u'\u212A', u'K', u'k', u'K'},                      // kelvin sign
      {u'\u0958', u'\u0958', u'\u0958', u'\u0915', u'\u0915', u'\u0915'},  // Devanagari qa
      {u'\uD55C', u'\uD55C', u'\uD55C', u'\uD55C', u'\uD55C', u'\uD55C'},  // Hangul syllable
      {u'\uFB01', u'\uFB01', u'\uFB01', u'\uFB01', u'\uFB01', u'\uFB01'},  // fi ligature
      // Marks are letters, but a decomposition of marks only leaves no base.
      {u'\u0344', u'\u0344', u'\u0344', u'\u0344', u'\u0344', u'\u0344'},
      // Not letters: left alone even though ICU maps or decomposes them.
      {u'\u24B6', u'\u24B6', u'\u24B6', u'\u24B6', u'\u24B6', u'\u24B6'},  // circled A (So)
      {u'\u216B', u'\u216B', u'\u216B', u'\u216B', u'\u216B', u'\u216B'},  // Roman twelve
      {u'\u2260', u'\u2260', u'\u2260', u'\u2260', u'\u2260', u'\u2260'},  // not equal
      {char16_t{0xD800}, char16_t{0xD800}, char16_t{0xD800}, char16_t{0xD800}, char16_t{0xD800},
       char16_t{0xD800}},
  };
  for (const MappingRow& row : rows) {
    SCOPED_TRACE(testing::Message() << "U+" << std::hex << static_cast<int>(row.c));
    EXPECT_EQ(static_cast<int>(toLower(row.c)), static_cast<int>(row.lower));
    EXPECT_EQ(static_cast<int>(toUpper(row.c)), static_cast<int>(row.upper));
    EXPECT_EQ(static_cast<int>(umlautsToAscii(row.c)), static_cast<int>(row.umlaut));
    EXPECT_EQ(static_cast<int>(umlautsToLowerAscii(row.c)), static_cast<int>(row.lowerUmlaut));
    EXPECT_EQ(static_cast<int>(umlautsToUpperAscii(row.c)), static_cast<int>(row.upperUmlaut));
  }
}

// Each table may only change the members of its source set; everything else is the identity.
TEST(MappingTables, OnlyMembersOfTheSourceSetChange) {
  struct Table {
    const char* name;
    const char16_t* entries;
    const std::uint8_t* source;
  };
  const Table tables[] = {
      {"lower", initLowerCharsTable(), upperCharacterSetRep()},
      {"upper", initUpperCharsTable(), lowerCharacterSetRep()},
      {"umlaut", initUmlautsCharsTable(), alphaCharacterSetRep()},
  };
  for (const Table& table : tables) {
    for (std::uint32_t c = 0; c < 0x10000; ++c) {
      if (table.entries[c] != c) {
        ASSERT_TRUE(isMember(table.source, c)) << table.name << " U+" << std::hex << c;
      }
    }
  }
}

TEST(MappingTables, EntryFFFFIsTheIdentity) {
  for (const char16_t* table :
       {initLowerCharsTable(), initUpperCharsTable(), initUmlautsCharsTable(),
        initLowerUmlautsCharsTable(), initUpperUmlautsCharsTable()}) {
    EXPECT_EQ(table[0xFFFF], u'\uFFFF');
  }
}

struct AsciiRow {
  char16_t c, ascii, lowerAscii, upperAscii;
};

// The ASCII forms: the umlaut entry when below 128, else a space, then ASCII case only.
TEST(MappingTables, AsciiFormsTurnEverythingElseIntoASpace) {
  const AsciiRow rows[] = {
      {u'\u00E9', u'e', u'e', u'E'}, {u'\u00C9', u'E', u'e', u'E'},
      {u'\u20AC', u' ', u' ', u' '}, {u'\u00F8', u' ', u' ', u' '},
      {u'\u00DF', u' ', u' ', u' '}, {u'\u212B', u'A', u'a', u'A'},
      {u'\n', u'\n', u'\n', u'\n'},  {u'@', u'@', u'@', u'@'},
      {u'[', u'[', u'[', u'['},      {u'\u007F', u'\u007F', u'\u007F', u'\u007F'},
      {u'\u0131', u' ', u' ', u' '}, {u'\uFFFF', u' ', u' ', u' '},
  };
  for (const AsciiRow& row : rows) {
    SCOPED_TRACE(testing::Message() << "U+" << std::hex << static_cast<int>(row.c));
    EXPECT_EQ(static_cast<int>(toAscii(row.c)), static_cast<int>(row.ascii));
    EXPECT_EQ(static_cast<int>(toLowerAscii(row.c)), static_cast<int>(row.lowerAscii));
    EXPECT_EQ(static_cast<int>(toUpperAscii(row.c)), static_cast<int>(row.upperAscii));
  }
}

// --- Word count ----------------------------------------------------------------------------------

TEST(NumberOfWords, CountsMaximalRunsOfAlphanumerics) {
  const struct {
    std::u16string text;
    std::size_t words;
  } rows[] = {
      {u"", 0},
      {u"   ", 0},
      {u"a", 1},
      {u"hello world", 2},
      {u"  leading and trailing  ", 3},
      {u"\u00E9tat-civil", 2},
      {u"x1y2 2024", 2},
      {u"e\u0301te\u0301", 1},  // combining marks belong to the word
      {u"\u216B\u00BD", 1},     // letter-like numbers count as word units
      {u"a\u00A0b\u200Bc", 3},  // no-break and zero-width spaces split words
      {u"a\U0001F600b", 2},     // surrogates are not alphanumeric
      {u"\u4E00\u4E8C \u4E09", 2},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(numberOfWordsOfCharacters(row.text.data(), row.text.size()), row.words)
        << testing::PrintToString(row.text);
  }
  EXPECT_EQ(numberOfWordsOfCharacters(nullptr, 5), 0u);
}

// --- Threads -------------------------------------------------------------------------------------

// Every table's entries summed up, to compare what different threads saw.
std::uint64_t checksum(const char16_t* table) {
  return std::accumulate(table, table + 0x10000, std::uint64_t{0});
}

// Runs in a fresh process (the "threadsafe" death-test style re-executes this test alone), so
// the tables are built here for the first time, by eight threads at once. A builder that hands
// out a half-built table or builds twice shows up as a different pointer or checksum.
TEST(CharacterTablesDeathTest, ConcurrentFirstUseBuildsEachTableOnce) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto race = [] {
    constexpr int kThreads = 8;
    using Getter = const char16_t* (*)();
    const std::array<Getter, 5> getters = {initUpperUmlautsCharsTable, initLowerUmlautsCharsTable,
                                           initUmlautsCharsTable, initLowerCharsTable,
                                           initUpperCharsTable};
    std::array<std::array<const char16_t*, 5>, kThreads> seen{};
    std::array<std::array<std::uint64_t, 5>, kThreads> sums{};
    std::array<const std::uint8_t*, kThreads> whites{};
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        ready.fetch_add(1);
        while (ready.load() < kThreads) {
        }
        // Each thread starts with a different table, so builders overlap.
        for (std::size_t i = 0; i < getters.size(); ++i) {
          std::size_t k = (i + static_cast<std::size_t>(t)) % getters.size();
          seen[t][k] = getters[k]();
          sums[t][k] = checksum(seen[t][k]);
        }
        whites[t] = whiteCharacterSetRep();
      });
    }
    for (std::thread& thread : threads)
      thread.join();
    for (int t = 1; t < kThreads; ++t) {
      if (seen[t] != seen[0] || sums[t] != sums[0] || whites[t] != whites[0]) std::exit(1);
    }
    for (std::size_t k = 0; k < getters.size(); ++k) {
      if (checksum(getters[k]()) != sums[0][k]) std::exit(2);
    }
    std::exit(toUpper(u'a') == u'A' && umlautsToUpperAscii(u'\u00E4') == u'A' ? 0 : 3);
  };
  EXPECT_EXIT(race(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace ferncast
