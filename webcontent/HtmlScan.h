// Private to webcontent/: one handler call of the tag scanner as a small value, and a scan that
// hands each call to a context object's onTag(const Tag&) (returning true stops the scan).
#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

#include "markup/chartables/CharacterTables.h"
#include "markup/chartables/NSString+QuillCompare.h"
#include "markup/NotFound.h"
#include "markup/XmlExtensions.h"

namespace ferncast::html {

struct Tag {
  std::u16string_view string;
  const char16_t* characters;
  std::size_t nameLocation, nameLength, tagLocation, tagLength, textLocation;
  TagKind kind;

  // The construct, clipped to the text (a script without its final ">" reaches one past it).
  std::u16string_view whole() const {
    if (tagLocation >= string.size()) return {};
    return string.substr(tagLocation, std::min(tagLength, string.size() - tagLocation));
  }
  Range range() const { return {tagLocation, whole().size()}; }
  // The text between the previous construct and this one.
  std::u16string_view text() const {
    return string.substr(textLocation, tagLocation - textLocation);
  }
  std::u16string_view name() const {
    return nameLength ? string.substr(nameLocation, nameLength) : std::u16string_view();
  }
  // The name has exactly the letters of `lower`, each compared with its code unit OR 0x20.
  bool nameIs(std::u16string_view lower) const {
    if (nameLength != lower.size()) return false;
    for (std::size_t i = 0; i < nameLength; ++i)
      if ((characters[nameLocation + i] | 0x20) != lower[i]) return false;
    return true;
  }
  bool isOpening() const { return whole().size() >= 3 && characters[tagLocation + 1] != u'/'; }
  bool isSelfClosing() const {
    std::u16string_view w = whole();
    return w.size() >= 3 && w[w.size() - 2] == u'/';
  }
  bool isClosed() const {
    std::u16string_view w = whole();
    return w.size() >= 4 && (w[1] == u'/' || w[w.size() - 2] == u'/');
  }
  std::optional<std::u16string> attribute(std::string_view upperName) const {
    return attributeOfTagCharacters(characters, range(), upperName);
  }
  // A meta tag's CONTENT, read in meta-content mode (markup inside the value nests).
  std::optional<std::u16string> content() const {
    return _attributeOfTagCharactersWithName(characters, tagLocation, whole().size(), "CONTENT",
                                             true, nullptr);
  }
};

template <typename Context>
bool scan(std::u16string_view html, Context& context, bool isMutable = false) {
  TagHandler handler = [](std::u16string_view string, char16_t* characters,
                          std::size_t nameLocation, std::size_t nameLength, std::size_t tagLocation,
                          std::size_t tagLength, std::size_t textLocation, TagKind kind,
                          void* pointer) {
    Tag tag{string,      characters, nameLocation, nameLength,
            tagLocation, tagLength,  textLocation, kind};
    return static_cast<Context*>(pointer)->onTag(tag);
  };
  return parseXmlWithHandler(html, handler, &context, isMutable);
}

inline bool isWhite(char16_t c) {
  return characterIsMember(whiteCharacterSetRep(), c);
}

// An empty output counts as ending in white space (its last character reads as U+0000).
inline bool endsInWhite(std::u16string_view s) {
  return s.empty() || isWhite(s.back());
}

}  // namespace ferncast::html
