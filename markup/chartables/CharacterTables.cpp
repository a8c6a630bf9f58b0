#include "markup/chartables/CharacterTables.h"

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/ustring.h>

#include <array>

namespace ferncast {
namespace {

using Bitmap = std::array<std::uint8_t, kCharacterSetRepSize>;
using Table = std::array<char16_t, 0x10000>;

void set(Bitmap& bitmap, char16_t c) {
  bitmap[c >> 3] |= static_cast<std::uint8_t>(1 << (c & 7));
}

// A bitmap of every BMP code unit whose general category is in `mask` (U_GC_*_MASK bits).
Bitmap categoryBitmap(std::uint32_t mask) {
  Bitmap bitmap{};
  for (std::uint32_t c = 0; c < 0x10000; ++c) {
    if (U_GET_GC_MASK(static_cast<UChar32>(c)) & mask) set(bitmap, static_cast<char16_t>(c));
  }
  return bitmap;
}

const Bitmap& whitespaceBitmap() {
  static const Bitmap bitmap = [] {
    Bitmap b = categoryBitmap(U_GC_ZS_MASK);
    set(b, u'\t');
    return b;
  }();
  return bitmap;
}

const Bitmap& whitespaceAndNewlineBitmap() {
  static const Bitmap bitmap = [] {
    Bitmap b = categoryBitmap(U_GC_Z_MASK);
    for (char16_t c : {u'\t', u'\n', u'\v', u'\f', u'\r', u'\u0085'})
      set(b, c);
    return b;
  }();
  return bitmap;
}

// One code unit's case mapping with ICU's full, root-locale rules; the unit itself when the
// mapping is longer than one code unit.
template <typename Mapper>
char16_t mapSingle(char16_t c, Mapper mapper) {
  UChar source[1] = {c};
  UChar result[8];
  UErrorCode status = U_ZERO_ERROR;
  int32_t length = mapper(result, 8, source, 1, "", &status);
  return U_SUCCESS(status) && length == 1 ? result[0] : c;
}

// The builders fill entries 0x0000 to 0xFFFE; 0xFFFF stays the identity. Tables live as long
// as the process and are never freed, so threads still running at exit can keep using them.
Table* identityTable() {
  auto* table = new Table;
  for (std::uint32_t c = 0; c < 0x10000; ++c)
    (*table)[c] = static_cast<char16_t>(c);
  return table;
}

char16_t diacriticFolding(const icu::Normalizer2& nfd, char16_t c) {
  icu::UnicodeString decomposition;
  if (!nfd.getDecomposition(c, decomposition)) return c;
  char16_t base = 0;
  int baseCount = 0;
  for (int32_t i = 0; i < decomposition.length(); ++i) {
    char16_t unit = decomposition.charAt(i);
    if (U_GET_GC_MASK(unit) & U_GC_M_MASK) continue;
    base = unit;
    ++baseCount;
  }
  return baseCount == 1 ? base : c;
}

}  // namespace

const std::uint8_t* emptyCharacterSetRep() {
  static const Bitmap bitmap{};
  return bitmap.data();
}

const std::uint8_t* spaceCharacterSetRep() {
  static const Bitmap bitmap = [] {
    Bitmap b = whitespaceBitmap();
    set(b, u'\0');
    set(b, u'\t');
    return b;
  }();
  return bitmap.data();
}

const std::uint8_t* whiteCharacterSetRep() {
  static const Bitmap bitmap = [] {
    Bitmap b = whitespaceAndNewlineBitmap();
    for (char16_t c : {u'\0', u'\f', u'\n', u'\r', u'\u2028', u'\u2029', u'\u0003', u'\uFFFC',
                       u'\t', u'\uFEFF', u'\u00A0'}) {
      set(b, c);
    }
    return b;
  }();
  return bitmap.data();
}

const std::uint8_t* alphaCharacterSetRep() {
  static const Bitmap bitmap = categoryBitmap(U_GC_L_MASK | U_GC_M_MASK);
  return bitmap.data();
}

const std::uint8_t* alphaNumCharacterSetRep() {
  static const Bitmap bitmap = categoryBitmap(U_GC_L_MASK | U_GC_M_MASK | U_GC_N_MASK);
  return bitmap.data();
}

const std::uint8_t* digitCharacterSetRep() {
  static const Bitmap bitmap = categoryBitmap(U_GC_ND_MASK);
  return bitmap.data();
}

const std::uint8_t* lowerCharacterSetRep() {
  static const Bitmap bitmap = categoryBitmap(U_GC_LL_MASK);
  return bitmap.data();
}

const std::uint8_t* upperCharacterSetRep() {
  static const Bitmap bitmap = categoryBitmap(U_GC_LU_MASK | U_GC_LT_MASK);
  return bitmap.data();
}

char16_t firstAlphaCharacter() {
  static const char16_t first = [] {
    const std::uint8_t* alpha = alphaCharacterSetRep();
    for (std::uint32_t c = 0; c < 0x10000; ++c) {
      if (characterIsMember(alpha, static_cast<char16_t>(c))) return static_cast<char16_t>(c);
    }
    return char16_t{0};
  }();
  return first;
}

char16_t lastAlphaCharacter() {
  static const char16_t last = [] {
    const std::uint8_t* alpha = alphaCharacterSetRep();
    for (std::uint32_t c = 0x10000; c-- > 0;) {
      if (characterIsMember(alpha, static_cast<char16_t>(c))) return static_cast<char16_t>(c);
    }
    return char16_t{0};
  }();
  return last;
}

const char16_t* initLowerCharsTable() {
  static const Table* const table = [] {
    auto t = identityTable();
    const std::uint8_t* upper = upperCharacterSetRep();
    for (std::uint32_t c = 0; c < 0xFFFF; ++c) {
      if (characterIsMember(upper, static_cast<char16_t>(c))) {
        (*t)[c] = mapSingle(static_cast<char16_t>(c), u_strToLower);
      }
    }
    return t;
  }();
  return table->data();
}

const char16_t* initUpperCharsTable() {
  static const Table* const table = [] {
    auto t = identityTable();
    const std::uint8_t* lower = lowerCharacterSetRep();
    for (std::uint32_t c = 0; c < 0xFFFF; ++c) {
      if (characterIsMember(lower, static_cast<char16_t>(c))) {
        (*t)[c] = mapSingle(static_cast<char16_t>(c), u_strToUpper);
      }
    }
    return t;
  }();
  return table->data();
}

const char16_t* initUmlautsCharsTable() {
  static const Table* const table = [] {
    auto t = identityTable();
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* nfd = icu::Normalizer2::getNFDInstance(status);
    if (U_FAILURE(status) || !nfd) return t;
    const std::uint8_t* alpha = alphaCharacterSetRep();
    for (std::uint32_t c = 0; c < 0xFFFF; ++c) {
      if (characterIsMember(alpha, static_cast<char16_t>(c))) {
        (*t)[c] = diacriticFolding(*nfd, static_cast<char16_t>(c));
      }
    }
    return t;
  }();
  return table->data();
}

const char16_t* initLowerUmlautsCharsTable() {
  static const Table* const table = [] {
    auto t = identityTable();
    const char16_t* umlauts = initUmlautsCharsTable();
    const char16_t* lower = initLowerCharsTable();
    for (std::uint32_t c = 0; c < 0xFFFF; ++c)
      (*t)[c] = lower[umlauts[c]];
    return t;
  }();
  return table->data();
}

const char16_t* initUpperUmlautsCharsTable() {
  static const Table* const table = [] {
    auto t = identityTable();
    const char16_t* umlauts = initUmlautsCharsTable();
    const char16_t* upper = initUpperCharsTable();
    for (std::uint32_t c = 0; c < 0xFFFF; ++c)
      (*t)[c] = upper[umlauts[c]];
    return t;
  }();
  return table->data();
}

void initCharacterTables() {
  emptyCharacterSetRep();
  spaceCharacterSetRep();
  whiteCharacterSetRep();
  alphaNumCharacterSetRep();
  digitCharacterSetRep();
  firstAlphaCharacter();
  lastAlphaCharacter();
  initLowerUmlautsCharsTable();
  initUpperUmlautsCharsTable();
}

std::size_t numberOfWordsOfCharacters(const char16_t* characters, std::size_t length) {
  if (!characters) return 0;
  const std::uint8_t* alnum = alphaNumCharacterSetRep();
  std::size_t words = 0;
  bool inWord = false;
  for (std::size_t i = 0; i < length; ++i) {
    bool member = characterIsMember(alnum, characters[i]);
    words += member && !inWord;
    inWord = member;
  }
  return words;
}

}  // namespace ferncast
