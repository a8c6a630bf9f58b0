#include "url/NSURL+Quill.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <utility>

#include "markup/chartables/CharacterTables.h"
#include "url/AsciiCase.h"

namespace ferncast {
namespace {

using ascii::equalsIgnoringCase;

bool schemeIs(const URL& url, std::u16string_view lower) {
  return url.scheme() && equalsIgnoringCase(*url.scheme(), lower);
}

bool fileExists(const URL& url, bool directoriesToo) {
  std::optional<std::string> path = url.filePath();
  struct stat status;
  return path && stat(path->c_str(), &status) == 0 && (directoriesToo || !S_ISDIR(status.st_mode));
}

// "feed:" URLs for the web view: the specifier itself when it is an "http:" URL, else "http:"
// and the specifier. nullopt when the URL has no specifier or the result is no URL.
std::optional<URL> feedAsHTTP(const URL& url) {
  std::u16string specifier = url.resourceSpecifier();
  if (specifier.empty()) return std::nullopt;
  if (ascii::startsWithIgnoringCase(specifier, u"http:")) return URL::URLWithString(specifier);
  return URL::URLWithString(u"http:" + specifier);
}

// The position of the URL's anchor "#", or npos; a "#" followed by "!/" or "//" is no anchor.
std::size_t anchorStart(std::u16string_view s) {
  std::size_t hash = s.find(u'#');
  if (hash == std::u16string_view::npos) return hash;
  std::u16string_view after = s.substr(hash + 1);
  if (after.starts_with(u"!/") || after.starts_with(u"//")) return std::u16string_view::npos;
  return hash;
}

constexpr std::array<std::pair<long, std::u16string_view>, 49> kHTTPMessages{{
    {100, u"Continue"},
    {101, u"Switching Protocols"},
    {200, u"OK"},
    {201, u"Created"},
    {202, u"Accepted"},
    {203, u"Non-Authoritative Information"},
    {204, u"No Content"},
    {205, u"Reset Content"},
    {206, u"Partial Content"},
    {207, u"Multi-Status"},
    {226, u"IM Used"},
    {300, u"Multiple Choices"},
    {301, u"Moved Permanently"},
    {302, u"Moved Temporarily"},
    {303, u"See Other"},
    {304, u"Not Modified"},
    {305, u"Use Proxy"},
    {307, u"Temporary Redirect"},
    {400, u"Bad Request"},
    {401, u"Authorization Required"},
    {402, u"Payment Required"},
    {403, u"Forbidden"},
    {404, u"Not Found"},
    {405, u"Method Not Allowed"},
    {406, u"Not Acceptable"},
    {407, u"Proxy Authentication Required"},
    {408, u"Request Timeout"},
    {409, u"Conflict"},
    {410, u"Gone"},
    {411, u"Length Required"},
    {412, u"Precondition Failed"},
    {413, u"Request Entity Too Large"},
    {414, u"Request-URI Too Long"},
    {415, u"Unsupported Media Type"},
    {416, u"Requested Range Not Satisfiable"},
    {417, u"Expectation Failed"},
    {422, u"Unprocessable Entity"},
    {423, u"Locked"},
    {424, u"Failed Dependency"},
    {426, u"Upgrade Required"},
    {500, u"Internal Server Error"},
    {501, u"Not Implemented"},
    {502, u"Bad Gateway"},
    {503, u"Service Unavailable"},
    {504, u"Gateway Timeout"},
    {505, u"HTTP Version Not Supported"},
    {507, u"Insufficient Storage"},
    {509, u"Bandwidth Limit Exceeded"},
    {510, u"Disconnected"},
}};

}  // namespace

bool isScheme(const URL& url, unsigned groups) {
  if (!url.scheme()) return false;
  const std::u16string& s = *url.scheme();
  return ((groups & kHTTPSchemes) &&
          (equalsIgnoringCase(s, u"http") || equalsIgnoringCase(s, u"https"))) ||
         ((groups & kFTPSchemes) &&
          (equalsIgnoringCase(s, u"ftp") || equalsIgnoringCase(s, u"ftps") ||
           equalsIgnoringCase(s, u"sftp"))) ||
         ((groups & kFeedScheme) && equalsIgnoringCase(s, u"feed")) ||
         ((groups & kFileScheme) && equalsIgnoringCase(s, u"file"));
}

bool isHTTPURL(const URL& url) {
  return isScheme(url, kHTTPSchemes);
}
bool isFTPURL(const URL& url) {
  return isScheme(url, kFTPSchemes);
}
bool isFeedURL(const URL& url) {
  return isScheme(url, kFeedScheme);
}
bool isDownloadableURL(const URL& url) {
  return isScheme(url, kHTTPSchemes | kFTPSchemes);
}

bool isLoadableURL(const URL& url) {
  if (url.isFileURL()) return fileExists(url, false);
  return isScheme(url, kHTTPSchemes | kFTPSchemes | kFeedScheme);
}

bool isRemoteWebKitURL(const URL& url) {
  if (!isScheme(url, kHTTPSchemes | kFeedScheme) || !url.host()) return false;
  const std::u16string& host = *url.host();
  const std::uint8_t* alphaNum = alphaNumCharacterSetRep();
  bool hasAlphaNum = std::any_of(host.begin(), host.end(),
                                 [&](char16_t c) { return characterIsMember(alphaNum, c); });
  return hasAlphaNum && host.find(u"...") == std::u16string::npos;
}

bool isWebKitURL(const URL& url) {
  return url.isFileURL() || isRemoteWebKitURL(url);
}

bool isNewsURL(const URL& url) {
  return schemeIs(url, u"news") || schemeIs(url, u"nntp");
}
bool isMailURL(const URL& url) {
  return schemeIs(url, u"mailto");
}
bool isJavaScriptURL(const URL& url) {
  return schemeIs(url, u"javascript");
}
bool isAppleScriptURL(const URL& url) {
  return schemeIs(url, u"applescript");
}

URL WebKitURL(const URL& url) {
  if (url.isFileURL()) return url;
  if (url.host() && equalsIgnoringCase(*url.host(), u"localhost")) {
    std::u16string text = url.scheme() ? *url.scheme() + u"://" : u"//";
    if (url.user()) {
      text += *url.user();
      if (url.password()) text += u":" + *url.password();
      text += u'@';
    }
    text += u"127.0.0.1";
    if (url.port()) {
      std::string port = std::to_string(*url.port());
      text += u':';
      text.append(port.begin(), port.end());
    }
    if (url.path()) text += *url.path();
    if (url.query()) text += u"?" + *url.query();
    if (url.fragment()) text += u"#" + *url.fragment();
    return URL::URLWithString(text).value_or(url);
  }
  if (schemeIs(url, u"feed")) return feedAsHTTP(url).value_or(url);
  return url;
}

std::optional<URL> baseURLForWebKit(const URL& url) {
  if (url.isFileURL()) {
    if (fileExists(url, true)) return url;
    return std::nullopt;
  }
  if (schemeIs(url, u"feed")) return feedAsHTTP(url);
  if (isHTTPURL(url)) return url;
  return std::nullopt;
}

std::optional<URL> baseURLForWebKitUsingAnchor(const URL& url, std::u16string_view anchor) {
  std::optional<URL> base = baseURLForWebKit(url);
  if (!base) return std::nullopt;
  return URLWithAnchor(*base, anchor);
}

std::optional<URL> URLWithAnchor(const URL& url, std::u16string_view anchor) {
  if (anchor.empty()) return url;
  std::u16string_view s = url.absoluteString();
  std::size_t hash = anchorStart(s);
  std::u16string text(s.substr(0, hash));
  text += u'#';
  text += anchor;
  return URL::URLWithString(text);
}

URL URLWithoutAnchor(const URL& url) {
  std::u16string_view s = url.absoluteString();
  std::size_t hash = anchorStart(s);
  if (hash == std::u16string_view::npos) return url;
  return URL::URLWithString(s.substr(0, hash)).value_or(url);
}

bool isHTTPStatusCodeOkay(long code) {
  return code <= 299 && !(code >= 201 && code <= 206);
}

bool isHTTPStatusCodeTemporaryError(long code) {
  switch (code) {
    case 307:
    case 408:
    case 500:
    case 502:
    case 503:
    case 504:
    case 507:
    case 509:
    case 510:
      return true;
    default:
      return false;
  }
}

std::optional<std::u16string> messageForHTTPError(long code) {
  auto it = std::lower_bound(kHTTPMessages.begin(), kHTTPMessages.end(), code,
                             [](const auto& row, long value) { return row.first < value; });
  if (it == kHTTPMessages.end() || it->first != code) return std::nullopt;
  return std::u16string(it->second);
}

int HTTPStatusCodeForNSURLError(std::optional<URLErrorCode> error) {
  if (!error) return 0;
  switch (*error) {
    case URLErrorCode::kZeroByteResource:
      return 204;
    case URLErrorCode::kUserAuthenticationRequired:
    case URLErrorCode::kUserCancelledAuthentication:
      return 401;
    case URLErrorCode::kRedirectToNonExistentLocation:
    case URLErrorCode::kHTTPTooManyRedirects:
      return 302;
    case URLErrorCode::kTimedOut:
      return 408;
    case URLErrorCode::kNoPermissionsToReadFile:
      return 403;
    case URLErrorCode::kFileDoesNotExist:
      return 404;
    default:
      return 0;
  }
}

bool isTemporaryNSURLError(std::optional<URLErrorCode> error) {
  if (!error) return false;
  switch (*error) {
    case URLErrorCode::kBadServerResponse:
    case URLErrorCode::kNotConnectedToInternet:
    case URLErrorCode::kNetworkConnectionLost:
    case URLErrorCode::kTimedOut:
      return true;
    default:
      return false;
  }
}

std::optional<std::u16string> queryParamNamed(const URL& url, std::u16string_view name) {
  if (!url.query()) return std::nullopt;
  return queryParamNamed(*url.query(), name, 0, std::nullopt);
}

bool containsQueryParamNamed(const URL& url, std::u16string_view name) {
  return url.query() && containsQueryParamNamed(*url.query(), name, 0);
}

std::optional<QueryParameters> queryParams(const URL& url) {
  if (!url.query()) return std::nullopt;
  return queryParams(*url.query(), 0);
}

std::size_t numberOfQueryParams(const URL& url) {
  return url.query() ? numberOfQueryParams(*url.query(), 0) : 0;
}

std::optional<std::u16string> stringByReplacingQueryParamNamed(
    const URL& url, std::u16string_view name, std::optional<std::u16string_view> replacement) {
  if (!url.query()) return std::nullopt;
  return queryParamNamed(*url.query(), name, 0, replacement.value_or(u""));
}

}  // namespace ferncast
