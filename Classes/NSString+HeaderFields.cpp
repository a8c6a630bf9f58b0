#include "Classes/NSString+HeaderFields.h"

#include <climits>
#include <cstdint>

#include "markup/chartables/CharacterTables.h"
#include "markup/chartables/NSString+QuillCompare.h"

namespace ferncast {
namespace {

// Code units that continue a parameter name: a match right after one of them is only the tail
// of a longer name.
bool continuesName(const std::uint8_t* alphaNum, char16_t c) {
  return characterIsMember(alphaNum, c) || c == u'-' || c == u'_';
}

template <bool kWholeName>
std::optional<std::u16string> copyOfField(std::u16string_view string, std::u16string_view name,
                                          char16_t quotation, bool skipWhite,
                                          bool stopAtSemicolon) {
  const std::size_t length = string.size();
  const std::size_t nameLength = name.size();
  if (length <= nameLength) return std::nullopt;
  const std::uint8_t* white = whiteCharacterSetRep();
  [[maybe_unused]] const std::uint8_t* alphaNum = alphaNumCharacterSetRep();
  const char16_t* s = string.data();
  auto endsValue = [&](char16_t c) {
    return (stopAtSemicolon && c == u';') ||
           (skipWhite && (c == u'"' || c == u'\'' || c == u'>' || characterIsMember(white, c)));
  };

  for (std::size_t i = 0; i + nameLength < length; ++i) {
    if constexpr (kWholeName) {
      if (s[i] == quotation || s[i] == u'"') {
        std::size_t close = string.find(s[i], i + 1);
        if (close == std::u16string_view::npos) break;
        i = close;
        continue;
      }
      if (i > 0 && continuesName(alphaNum, s[i - 1])) continue;
    }
    if (!startsWithNoCase(string.substr(i), name)) continue;

    std::size_t j = i + nameLength;
    while (j < length && characterIsMember(white, s[j]))
      ++j;
    if (j >= length || s[j] != u'=') continue;
    ++j;
    if (skipWhite) {
      while (j < length && characterIsMember(white, s[j]))
        ++j;
    }
    if (j >= length) continue;

    const char16_t first = s[j];
    if (first == quotation || (skipWhite && (first == u'"' || first == u'\''))) {
      const std::size_t start = j + 1;
      std::size_t end = string.find(first, start);
      if (end == std::u16string_view::npos) end = length;
      if (end == start) continue;
      return std::u16string(s + start, end - start);
    }
    std::size_t end = length;
    if (skipWhite || stopAtSemicolon) {
      end = j;
      while (end < length && !endsValue(s[end]))
        ++end;
    }
    return std::u16string(s + j, end - j);
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::u16string> _copyOfAttributeOfString(std::u16string_view string,
                                                       std::u16string_view upperName,
                                                       char16_t quotation, bool skipWhite,
                                                       bool stopAtSemicolon, FieldNameMatch match) {
  return match == FieldNameMatch::kWholeName
             ? copyOfField<true>(string, upperName, quotation, skipWhite, stopAtSemicolon)
             : copyOfField<false>(string, upperName, quotation, skipWhite, stopAtSemicolon);
}

std::optional<std::u16string> headerFieldNamed(std::u16string_view string,
                                               std::u16string_view name) {
  return headerFieldNamed(string, name, u'\'');
}

std::optional<std::u16string> headerFieldNamed(std::u16string_view string, std::u16string_view name,
                                               char16_t quotation) {
  return headerFieldNamed(string, name, quotation, FieldNameMatch::kAnywhere);
}

std::optional<std::u16string> headerFieldNamed(std::u16string_view string, std::u16string_view name,
                                               char16_t quotation, FieldNameMatch match) {
  return _copyOfAttributeOfString(string, name, quotation, false, true, match);
}

std::optional<std::u16string> headerCharset(std::u16string_view string) {
  return _copyOfAttributeOfString(string, u"CHARSET", u'\'', true, true);
}

std::optional<std::u16string> headerRefresh(std::u16string_view string) {
  return _copyOfAttributeOfString(string, u"URL", u'\'', true, false);
}

int refreshInterval(std::u16string_view string) {
  const std::uint8_t* white = whiteCharacterSetRep();
  std::size_t i = 0;
  while (i < string.size() && characterIsMember(white, string[i]))
    ++i;
  bool negative = false;
  if (i < string.size() && (string[i] == u'-' || string[i] == u'+')) negative = string[i++] == u'-';
  // Digits past the range of int only keep the value saturated.
  long long value = 0;
  for (; i < string.size() && string[i] >= u'0' && string[i] <= u'9'; ++i) {
    value = value * 10 + (string[i] - u'0');
    if (value > static_cast<long long>(INT_MAX) + 1) break;
  }
  if (negative)
    return value > static_cast<long long>(INT_MAX) + 1 ? INT_MIN : static_cast<int>(-value);
  return value > INT_MAX ? INT_MAX : static_cast<int>(value);
}

}  // namespace ferncast
