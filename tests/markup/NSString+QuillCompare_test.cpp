// Set-restricted comparisons, phrase search and the white-space and letter predicates.
#include "markup/chartables/NSString+QuillCompare.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "Classes/Unicode.h"
#include "markup/chartables/CharacterTables.h"

namespace ferncast {
namespace {

TEST(SetRestrictedEquality, OnlyMembersTakePartAndCaseIsIgnored) {
  struct Case {
    const char16_t *a, *b;
    bool letters, alphanumerics;
  };
  const Case cases[] = {
      {u"Page-Load frequency.", u"PAGE LOAD FREQUENCY", true, true},
      {u"", u"", true, true},
      {u"...", u"", true, true},  // no members on either side
      {u"404 Not Found", u"Not Found", true, false},
      {u"Stra\u00dfe", u"STRASSE", false, false},  // one unit against two
      {u"\u00e9t\u00e9", u"\u00c9T\u00c9", true, true},
      {u"abc", u"abcd", false, false},
      {u"abcd", u"abc", false, false},
      {u"a1b", u"ab", true, false},
  };
  for (const Case& c : cases) {
    const std::string trace = utf16ToUtf8(c.a) + " | " + utf16ToUtf8(c.b);
    EXPECT_EQ(equalStringsNoCaseUsingCharacterSetRep(c.a, c.b, alphaCharacterSetRep()), c.letters)
        << trace;
    EXPECT_EQ(equalStringsNoCaseUsingCharacterSetRep(c.a, c.b, alphaNumCharacterSetRep()),
              c.alphanumerics)
        << trace;
    EXPECT_EQ(equalStringsNoCaseUsingCharacterSetRep(c.b, c.a, alphaCharacterSetRep()), c.letters)
        << trace;
  }
}

TEST(SetRestrictedPrefix, MembersOfThePrefixBeginTheString) {
  struct Case {
    const char16_t *string, *prefix;
    bool expected;
  };
  const Case cases[] = {
      {u"404 - Not-Found: the page", u"404 Not Found", true},
      {u"404 Not", u"404 Not Found", false},
      {u"Error 404", u"404", false},
      {u"anything", u"", true},
      {u"anything", u" - ", true},
      {u"", u"a", false},
      {u"", u"", true},
      {u"ERROR404page", u"error 404", true},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(hasPrefixNoCaseUsingCharacterSetRep(c.string, c.prefix, alphaNumCharacterSetRep()),
              c.expected)
        << utf16ToUtf8(c.string) << " | " << utf16ToUtf8(c.prefix);
  }
}

TEST(PhraseSearch, AnyPhraseFoundWithOrWithoutCase) {
  const std::array<const char*, 3> phrases = {"not found", "nicht gefunden", ""};
  struct Case {
    const char16_t* text;
    bool insensitive, sensitive;
  };
  const Case cases[] = {
      {u"Page NOT FOUND", true, false},
      {u"page not found", true, true},
      {u"Seite nicht gefunden.", true, true},
      {u"not foun", false, false},
      {u"", false, false},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(containsSubCStrings(c.text, phrases, false), c.insensitive) << utf16ToUtf8(c.text);
    EXPECT_EQ(containsSubCStrings(c.text, phrases, true), c.sensitive) << utf16ToUtf8(c.text);
  }
  const std::array<const char*, 2> high = {"caf\xc3\xa9", nullptr};
  EXPECT_FALSE(containsSubCStrings(u"caf\u00c3\u00a9", high, true));
  EXPECT_FALSE(containsSubCStrings(u"caf\u00c3\u00a9", high, false));
}

TEST(CharacterPredicates, WhiteAndLetterTests) {
  EXPECT_TRUE(isWhiteString(u""));
  EXPECT_TRUE(isWhiteString(u" \t\n\r\u00a0\ufeff\u2028"));
  EXPECT_FALSE(isWhiteString(u"  x "));
  EXPECT_TRUE(onlyWhiteCharacters(u"ab  ", 0));
  EXPECT_FALSE(onlyWhiteCharacters(u"ab  ", 1));
  EXPECT_TRUE(containsAlphaCharacter(u"12 MB"));
  EXPECT_TRUE(containsAlphaCharacter(u"12\u00e9"));
  EXPECT_FALSE(containsAlphaCharacter(u"12345"));
  EXPECT_FALSE(containsAlphaCharacter(u""));
}

}  // namespace
}  // namespace ferncast
