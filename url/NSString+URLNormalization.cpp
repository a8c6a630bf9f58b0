#include "url/NSString+URLNormalization.h"

#include "Classes/Unicode.h"
#include "markup/chartables/CharacterTables.h"
#include "markup/Entities.h"
#include "url/AsciiCase.h"

namespace ferncast {
namespace {

bool isTrimmed(char16_t c, const std::uint8_t* white) {
  return c < 0x20 || c == 0x7F || characterIsMember(white, c);
}

std::u16string_view trim(std::u16string_view s) {
  const std::uint8_t* white = whiteCharacterSetRep();
  while (!s.empty() && isTrimmed(s.front(), white))
    s.remove_prefix(1);
  while (!s.empty() && isTrimmed(s.back(), white))
    s.remove_suffix(1);
  return s;
}

// Strips one pair of matching quotes, plain or backslash-escaped; false when there is none.
bool stripQuotes(std::u16string_view& s) {
  for (std::u16string_view quote : {u"\\\"", u"\\'", u"\"", u"'"}) {
    if (s.size() >= 2 * quote.size() && s.starts_with(quote) && s.ends_with(quote)) {
      s = s.substr(quote.size(), s.size() - 2 * quote.size());
      return true;
    }
  }
  return false;
}

bool isHexDigit(char16_t c) {
  return ascii::isDigit(c) || (ascii::fold(c) >= u'a' && ascii::fold(c) <= u'f');
}

void appendEscaped(std::u16string& out, unsigned char byte) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  out += u'%';
  out += static_cast<char16_t>(kHex[byte >> 4]);
  out += static_cast<char16_t>(kHex[byte & 15]);
}

std::u16string escape(std::u16string_view s, NSStringEncoding encoding) {
  std::u16string out;
  out.reserve(s.size());
  for (std::size_t i = 0; i < s.size(); ++i) {
    char16_t c = s[i];
    if (c < 0x80) {
      bool bad = c <= 0x20 || c == 0x7F ||
                 std::u16string_view(u"\"<>\\^`{|}").find(c) != std::u16string_view::npos ||
                 (c == u'%' && !(i + 2 < s.size() && isHexDigit(s[i + 1]) && isHexDigit(s[i + 2])));
      if (bad) {
        appendEscaped(out, static_cast<unsigned char>(c));
      } else {
        out += c;
      }
      continue;
    }
    if (encoding == NSISOLatin1StringEncoding && c <= 0xFF) {
      appendEscaped(out, static_cast<unsigned char>(c));
      continue;
    }
    std::size_t units =
        (c >= 0xD800 && c <= 0xDBFF && i + 1 < s.size() && s[i + 1] >= 0xDC00 && s[i + 1] <= 0xDFFF)
            ? 2
            : 1;
    for (unsigned char byte : utf16ToUtf8(s.substr(i, units)))
      appendEscaped(out, byte);
    i += units - 1;
  }
  return out;
}

// Lower-cases the scheme and the host in place; escapes keep their case.
void lowerSchemeAndHost(std::u16string& s) {
  std::size_t i = 0;
  if (!s.empty() && ascii::isLetter(s[0])) {
    std::size_t end = 1;
    while (end < s.size() &&
           (ascii::isAlnum(s[end]) || s[end] == u'+' || s[end] == u'-' || s[end] == u'.'))
      ++end;
    if (end < s.size() && s[end] == u':') {
      for (std::size_t k = 0; k < end; ++k)
        s[k] = ascii::fold(s[k]);
      i = end + 1;
    }
  }
  if (s.compare(i, 2, u"//") != 0) return;
  std::size_t authorityStart = i + 2;
  std::size_t authorityEnd = s.find_first_of(u"/?#", authorityStart);
  if (authorityEnd == std::u16string::npos) authorityEnd = s.size();
  std::size_t at = s.rfind(u'@', authorityEnd);
  std::size_t hostStart =
      at != std::u16string::npos && at >= authorityStart ? at + 1 : authorityStart;
  std::size_t hostEnd = authorityEnd;
  if (hostStart < authorityEnd && s[hostStart] == u'[') {
    std::size_t close = s.find(u']', hostStart);
    if (close != std::u16string::npos && close < authorityEnd) hostEnd = close + 1;
  } else {
    std::size_t colon = s.find(u':', hostStart);
    if (colon != std::u16string::npos && colon < authorityEnd) hostEnd = colon;
  }
  for (std::size_t k = hostStart; k < hostEnd; ++k) {
    if (s[k] == u'%') {
      k += 2;
      continue;
    }
    s[k] = ascii::fold(s[k]);
  }
}

}  // namespace

std::optional<std::u16string> normalizedStringURL(std::u16string_view link,
                                                  NSStringEncoding encoding) {
  std::u16string decoded;
  if (link.find(u'&') != std::u16string_view::npos) {
    decoded = stringByConvertingEntitiesToCharacters(link);
    link = decoded;
  }
  link = trim(link);
  for (int pass = 0; pass < 2 && stripQuotes(link); ++pass)
    link = trim(link);
  if (link.empty()) return std::nullopt;
  std::u16string joined;
  if (link.find_first_of(u"\t\n\r") != std::u16string_view::npos) {
    for (char16_t c : link)
      if (c != u'\t' && c != u'\n' && c != u'\r') joined += c;
    link = joined;
  }
  std::u16string result = escape(link, encoding);
  lowerSchemeAndHost(result);
  return result;
}

std::optional<std::u16string> normalizedStringURL(std::u16string_view link) {
  return normalizedStringURL(link, 0);
}

std::optional<std::u16string> normalizedRelLink(std::u16string_view link) {
  std::optional<std::u16string> normalized = normalizedStringURL(link);
  if (!normalized) return std::nullopt;
  if (normalized->starts_with(u'.') || normalized->starts_with(u'/') ||
      normalized->find(u"://") != std::u16string::npos)
    return normalized;
  return u"/" + *normalized;
}

}  // namespace ferncast
