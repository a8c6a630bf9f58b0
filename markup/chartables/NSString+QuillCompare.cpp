#include "markup/chartables/NSString+QuillCompare.h"

#include <cstring>

#include "markup/chartables/CharacterTables.h"
#include "markup/chartables/NSString+Quill.h"

namespace ferncast {
namespace {

// Walks the members of a character set in a string, one upper-cased member at a time.
class Members {
 public:
  Members(std::u16string_view string, const std::uint8_t* set)
      : p_(string.data()), end_(string.data() + string.size()), set_(set) {}

  // The next member through the upper-case table, or false at the end.
  bool next(char16_t& c) {
    while (p_ != end_) {
      char16_t unit = *p_++;
      if (characterIsMember(set_, unit)) {
        c = upper_[unit];
        return true;
      }
    }
    return false;
  }

 private:
  const char16_t* p_;
  const char16_t* end_;
  const std::uint8_t* set_;
  const char16_t* upper_ = initUpperCharsTable();
};

bool isAsciiPhrase(const char* phrase, std::size_t length) {
  for (std::size_t i = 0; i < length; ++i)
    if (static_cast<unsigned char>(phrase[i]) >= 0x80) return false;
  return length > 0;
}

bool containsExactly(std::u16string_view string, const char* phrase, std::size_t length) {
  if (length > string.size()) return false;
  for (std::size_t i = 0; i + length <= string.size(); ++i) {
    std::size_t k = 0;
    while (k < length && string[i + k] == static_cast<unsigned char>(phrase[k]))
      ++k;
    if (k == length) return true;
  }
  return false;
}

}  // namespace

bool equalStringsNoCaseUsingCharacterSetRep(std::u16string_view string, std::u16string_view other,
                                            const std::uint8_t* characterSetRep) {
  Members a(string, characterSetRep), b(other, characterSetRep);
  for (;;) {
    char16_t x = 0, y = 0;
    bool more = a.next(x);
    if (more != b.next(y)) return false;
    if (!more) return true;
    if (x != y) return false;
  }
}

bool hasPrefixNoCaseUsingCharacterSetRep(std::u16string_view string, std::u16string_view prefix,
                                         const std::uint8_t* characterSetRep) {
  Members s(string, characterSetRep), p(prefix, characterSetRep);
  for (char16_t y = 0; p.next(y);) {
    char16_t x = 0;
    if (!s.next(x) || x != y) return false;
  }
  return true;
}

bool containsSubCStrings(std::u16string_view string, std::span<const char* const> phrases,
                         bool caseSensitive) {
  for (const char* phrase : phrases) {
    if (!phrase) continue;
    std::size_t length = std::strlen(phrase);
    if (!isAsciiPhrase(phrase, length)) continue;
    bool found = caseSensitive ? containsExactly(string, phrase, length)
                               : fastCaseInsensitiveUnicharsContainChars(
                                     string.data(), string.size(), phrase, length) != nullptr;
    if (found) return true;
  }
  return false;
}

bool onlyWhiteCharacters(const char16_t* characters, std::size_t length) {
  const std::uint8_t* white = whiteCharacterSetRep();
  for (std::size_t i = 0; i < length; ++i)
    if (!characterIsMember(white, characters[i])) return false;
  return true;
}

bool isWhiteString(std::u16string_view string) {
  return onlyWhiteCharacters(string.data(), string.size());
}

bool containsAlphaCharacter(std::u16string_view string) {
  const std::uint8_t* letters = alphaCharacterSetRep();
  for (char16_t c : string)
    if (characterIsMember(letters, c)) return true;
  return false;
}

}  // namespace ferncast
