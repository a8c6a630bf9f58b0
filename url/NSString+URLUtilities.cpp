#include "url/NSString+URLUtilities.h"

#include <initializer_list>

#include "Classes/Unicode.h"
#include "url/AsciiCase.h"

namespace ferncast {
namespace {

using ascii::containsIgnoringCase;
using ascii::endsWithIgnoringCase;
using ascii::equalsIgnoringCase;
using ascii::startsWithIgnoringCase;
using List = std::initializer_list<std::u16string_view>;

bool hasPrefixFrom(std::u16string_view s, std::size_t minimumLength, List prefixes) {
  if (s.size() < minimumLength) return false;
  for (std::u16string_view prefix : prefixes)
    if (startsWithIgnoringCase(s, prefix)) return true;
  return false;
}

bool startsWithAny(std::u16string_view s, List prefixes) {
  for (std::u16string_view prefix : prefixes)
    if (startsWithIgnoringCase(s, prefix)) return true;
  return false;
}

bool endsWithAny(std::u16string_view s, List suffixes) {
  for (std::u16string_view suffix : suffixes)
    if (endsWithIgnoringCase(s, suffix)) return true;
  return false;
}

bool containsAny(std::u16string_view s, List parts) {
  for (std::u16string_view part : parts)
    if (containsIgnoringCase(s, part)) return true;
  return false;
}

bool containsExactly(std::u16string_view s, std::u16string_view part) {
  return s.find(part) != std::u16string_view::npos;
}

std::size_t queryStart(std::u16string_view urlString) {
  return urlString.find(u'?');
}

}  // namespace

bool isWebKitStringURL(std::u16string_view s) {
  return hasPrefixFrom(s, 5, {u"http://", u"https://", u"feed://", u"www.", u"file://"});
}

bool isRemoteWebKitStringURL(std::u16string_view s) {
  return hasPrefixFrom(s, 5, {u"http://", u"https://", u"feed://", u"www."});
}

bool isDownloadableStringURL(std::u16string_view s) {
  return hasPrefixFrom(
      s, 5, {u"http://", u"https://", u"ftp://", u"ftps://", u"sftp://", u"www.", u"ftp."});
}

bool isLoadableStringURL(std::u16string_view s) {
  return hasPrefixFrom(s, 5,
                       {u"http://", u"https://", u"ftp://", u"ftps://", u"sftp://", u"feed://",
                        u"www.", u"ftp.", u"file://"});
}

bool isHTTPStringURL(std::u16string_view s) {
  return hasPrefixFrom(s, 7, {u"http://", u"https://"});
}

bool isFTPStringURL(std::u16string_view s) {
  return hasPrefixFrom(s, 6, {u"ftp://", u"ftps://", u"sftp://"});
}

bool isNewsStringURL(std::u16string_view s) {
  return hasPrefixFrom(s, 7, {u"news://", u"nntp://"});
}

bool isFeedStringURL(std::u16string_view s) {
  return startsWithIgnoringCase(s, u"feed:");
}

bool isFileStringURL(std::u16string_view s) {
  return !s.empty() && (s[0] == u'/' || s[0] == u'~' || startsWithIgnoringCase(s, u"file://"));
}

bool isJavaScriptStringURL(std::u16string_view s) {
  return startsWithIgnoringCase(s, u"javascript:");
}

bool isAppleScriptStringURL(std::u16string_view s) {
  return startsWithIgnoringCase(s, u"applescript:");
}

bool isMailStringURL(std::u16string_view s) {
  constexpr auto npos = std::u16string_view::npos;
  if (s.size() < 5) return false;
  if (startsWithIgnoringCase(s, u"mailto:")) return s.size() > 11;
  if (!ascii::isAlnum(s[0])) return false;
  // Local part up to the "@".
  std::size_t at = s.find_first_of(u":@/?", 0);
  if (at == npos || at == 0 || s[at] != u'@' || !ascii::isAlnum(s[at - 1])) return false;
  for (std::size_t i = 0; i < at; ++i) {
    char16_t c = s[i];
    if (!ascii::isAlnum(c) && c != u'-' && c != u'.' && c != u'_') return false;
  }
  // A first label, then a dot and a letter.
  if (at + 1 >= s.size() || !ascii::isAlnum(s[at + 1])) return false;
  std::size_t dot = s.find_first_of(u":@/?.", at + 1);
  if (dot == npos || s[dot] != u'.' || dot + 1 >= s.size() || !ascii::isLetter(s[dot + 1]))
    return false;
  // A short final label, perhaps followed by a further label or a query.
  std::size_t labelStart = dot + 1;
  std::size_t end = s.find_first_of(u":@/?.,", labelStart);
  if (end == npos) return s.size() - labelStart <= 4;
  if (s[end] == u'.' || s[end] == u'?') return end - labelStart <= 4;
  return false;
}

bool isMarkupMIMEType(std::u16string_view t) {
  if (startsWithIgnoringCase(t, u"text/")) return true;
  return startsWithIgnoringCase(t, u"application/") &&
         (containsAny(t, {u"htm", u"sgml", u"xml", u"rsd", u"atom"}) ||
          containsExactly(t, u"rdf") || containsExactly(t, u"rss"));
}

bool isHTMLMIMEType(std::u16string_view t) {
  return startsWithIgnoringCase(t, u"text/") || containsIgnoringCase(t, u"htm");
}

bool isWebArchiveMIMEType(std::u16string_view t) {
  return equalsIgnoringCase(t, u"application/x-webarchive");
}

bool isImageMIMEType(std::u16string_view t) {
  return startsWithIgnoringCase(t, u"image/");
}

bool isTextMIMEType(std::u16string_view t) {
  return startsWithIgnoringCase(t, u"text/");
}

bool isPlainTextMIMEType(std::u16string_view t) {
  return equalsIgnoringCase(t, u"text/plain");
}

bool isStylesheetOrScriptMIMEType(std::u16string_view t) {
  return containsAny(t, {u"css", u"javascript", u"pointplus"});
}

bool isRTFMIMEType(std::u16string_view t) {
  return endsWithAny(t, {u"/rtf", u"/x-rtf"}) || containsExactly(t, u"richtext");
}

bool isPDFMIMEType(std::u16string_view t) {
  return endsWithAny(t, {u"/pdf", u"/x-pdf"});
}

bool isPostScriptMIMEType(std::u16string_view t) {
  return endsWithAny(t, {u"/postscript", u"/x-postscript"});
}

bool isMSWordMIMEType(std::u16string_view t) {
  return containsIgnoringCase(t, u"msword") ||
         endsWithAny(t, {u"/doc", u"/docx", u"/x-doc", u"/x-docx", u"/dot", u"/x-dot"});
}

bool isMSPowerPointMIMEType(std::u16string_view t) {
  return containsAny(t, {u"powerpoint", u"/ppt", u"/x-ppt"});
}

bool isMSExcelMIMEType(std::u16string_view t) {
  return containsAny(t, {u"excel", u"/xls", u"/x-xls"});
}

bool isMSOfficeMIMEType(std::u16string_view t) {
  return isMSWordMIMEType(t) || isMSPowerPointMIMEType(t) || isMSExcelMIMEType(t);
}

bool isOpenOfficeMIMEType(std::u16string_view t) {
  return containsIgnoringCase(t, u"/vnd.oasis.opendocument.text");
}

bool isStarOfficeMIMEType(std::u16string_view t) {
  return containsIgnoringCase(t, u"/vnd.sun.xml.writer");
}

bool isMultimediaMIMEType(std::u16string_view t) {
  return startsWithAny(t, {u"audio/", u"video/"}) ||
         containsAny(t,
                     {u"/wmf", u"/x-wmf", u"/asf", u"/x-asf", u"/asx", u"/x-asx", u"msmetafile"});
}

std::u16string WebKitStringURL(std::u16string_view s) {
  if (!startsWithIgnoringCase(s, u"feed:")) return std::u16string(s);
  return u"http:" + std::u16string(s.substr(5));
}

std::u16string stringByAddingPercentEscapesToURL(std::u16string_view string,
                                                 std::u16string_view leaveUnescaped,
                                                 std::u16string_view toBeEscaped) {
  static constexpr std::u16string_view kLegal = u"-._~!$&'()*+,;=:/?@#";
  static constexpr char kHex[] = "0123456789ABCDEF";
  auto keeps = [&](char16_t c) {
    if (leaveUnescaped.find(c) != std::u16string_view::npos) return true;
    if (toBeEscaped.find(c) != std::u16string_view::npos) return false;
    return ascii::isAlnum(c) || kLegal.find(c) != std::u16string_view::npos;
  };
  std::u16string result;
  result.reserve(string.size());
  std::size_t i = 0;
  while (i < string.size()) {
    char16_t c = string[i];
    if (c < 0x80 && keeps(c)) {
      result += c;
      ++i;
      continue;
    }
    // One character (a surrogate pair included) as UTF-8 bytes.
    std::size_t units = (c >= 0xD800 && c <= 0xDBFF && i + 1 < string.size() &&
                         string[i + 1] >= 0xDC00 && string[i + 1] <= 0xDFFF)
                            ? 2
                            : 1;
    for (unsigned char byte : utf16ToUtf8(string.substr(i, units))) {
      result += u'%';
      result += static_cast<char16_t>(kHex[byte >> 4]);
      result += static_cast<char16_t>(kHex[byte & 15]);
    }
    i += units;
  }
  return result;
}

std::optional<std::u16string> queryParamNamed(std::u16string_view urlString,
                                              std::u16string_view name) {
  std::size_t start = queryStart(urlString);
  if (start == std::u16string_view::npos) return std::nullopt;
  return queryParamNamed(urlString, name, start, std::nullopt);
}

bool containsQueryParamNamed(std::u16string_view urlString, std::u16string_view name) {
  std::size_t start = queryStart(urlString);
  return start != std::u16string_view::npos && containsQueryParamNamed(urlString, name, start);
}

std::optional<QueryParameters> queryParams(std::u16string_view urlString) {
  std::size_t start = queryStart(urlString);
  if (start == std::u16string_view::npos) return std::nullopt;
  return queryParams(urlString, start);
}

std::size_t numberOfQueryParams(std::u16string_view urlString) {
  std::size_t start = queryStart(urlString);
  return start == std::u16string_view::npos ? 0 : numberOfQueryParams(urlString, start);
}

std::optional<std::u16string> paramNamed(std::u16string_view list, std::u16string_view name) {
  return queryParamNamed(list, name, 0, std::nullopt);
}

bool containsParamNamed(std::u16string_view list, std::u16string_view name) {
  return containsQueryParamNamed(list, name, 0);
}

std::u16string stringByReplacingQueryParamNamed(std::u16string_view urlString,
                                                std::u16string_view name,
                                                std::optional<std::u16string_view> replacement) {
  std::size_t start = queryStart(urlString);
  if (start == std::u16string_view::npos) return std::u16string(urlString);
  return *queryParamNamed(urlString, name, start, replacement.value_or(u""));
}

}  // namespace ferncast
