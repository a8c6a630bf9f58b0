// NSURL(NSURLQuillExtensions): scheme groups, web-view URLs, anchors, HTTP status codes,
// URL-loading errors and query parameters on URL objects (URL.h).
//
// Schemes compare case-insensitively; a URL without a scheme answers NO. The file system is
// consulted only where said (isLoadableURL, baseURLForWebKit). Pure functions of their arguments
// otherwise; thread-safe; never throw.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "url/QueryParameters.h"
#include "url/URL.h"

namespace ferncast {

// Scheme groups, combined as a bit set for isScheme.
enum SchemeGroup : unsigned {
  kHTTPSchemes = 1,  // "http", "https"
  kFTPSchemes = 2,   // "ftp", "ftps", "sftp"
  kFeedScheme = 4,   // "feed"
  kFileScheme = 8,   // "file"
};

// The URL's scheme belongs to one of the groups in `groups`.
bool isScheme(const URL& url, unsigned groups);
bool isHTTPURL(const URL& url);
bool isFTPURL(const URL& url);
bool isFeedURL(const URL& url);
// HTTP or FTP groups.
bool isDownloadableURL(const URL& url);
// A file URL whose file exists and is no directory; else HTTP, FTP or feed groups.
bool isLoadableURL(const URL& url);
// Any file URL; else an HTTP or feed URL whose host has a letter or digit and no "...".
bool isWebKitURL(const URL& url);
// isWebKitURL without the file-URL case.
bool isRemoteWebKitURL(const URL& url);
bool isNewsURL(const URL& url);         // "news", "nntp"
bool isMailURL(const URL& url);         // "mailto"
bool isJavaScriptURL(const URL& url);   // "javascript"
bool isAppleScriptURL(const URL& url);  // "applescript"

// The URL for the web view: file URLs unchanged; host "localhost" (any case) becomes "127.0.0.1",
// keeping every other component; "feed:" URLs become HTTP ("feed://h/p" -> "http://h/p",
// "feed:http://h/p" -> "http://h/p"); all else unchanged. When a rewrite yields no valid URL the
// receiver comes back.
URL WebKitURL(const URL& url);
// The base URL for HTML shown in the web view: a file URL whose file exists; a feed URL rewritten
// as by WebKitURL; an HTTP(S) URL as it is; else nullopt. No loopback rewrite.
std::optional<URL> baseURLForWebKit(const URL& url);
// baseURLForWebKit, then URLWithAnchor; nullopt when there is no base.
std::optional<URL> baseURLForWebKitUsingAnchor(const URL& url, std::u16string_view anchor);

// Anchors start at the first "#" of the absolute string, unless that "#" is followed by "!/" or
// "//" (hash-bang paths): such a URL has no anchor.
// The URL with its anchor replaced by `anchor` (or the anchor appended); the receiver for an empty
// anchor; nullopt when the result is no valid URL (an anchor with a space, say).
std::optional<URL> URLWithAnchor(const URL& url, std::u16string_view anchor);
// The URL without its anchor; the receiver when it has none.
URL URLWithoutAnchor(const URL& url);

// HTTP status codes.
// YES up to 299 except 201 to 206 (codes below 200 count as okay); NO from 300 up.
bool isHTTPStatusCodeOkay(long code);
// 307, 408, 500, 502, 503, 504, 507, 509, 510.
bool isHTTPStatusCodeTemporaryError(long code);
// The reason text of one of 49 known codes (HTTP's reason phrases, with "Moved Temporarily",
// "Authorization Required", "Bandwidth Limit Exceeded" and "Disconnected" for 302, 401, 509 and
// 510); nullopt for other codes. The text is English: we have no translations.
std::optional<std::u16string> messageForHTTPError(long code);

// URL-loading error codes, with the numbers of the platform's URL-loading system.
enum class URLErrorCode : int {
  kUnknown = -1,
  kCancelled = -999,
  kBadURL = -1000,
  kTimedOut = -1001,
  kUnsupportedURL = -1002,
  kCannotFindHost = -1003,
  kCannotConnectToHost = -1004,
  kNetworkConnectionLost = -1005,
  kDNSLookupFailed = -1006,
  kHTTPTooManyRedirects = -1007,
  kResourceUnavailable = -1008,
  kNotConnectedToInternet = -1009,
  kRedirectToNonExistentLocation = -1010,
  kBadServerResponse = -1011,
  kUserCancelledAuthentication = -1012,
  kUserAuthenticationRequired = -1013,
  kZeroByteResource = -1014,
  kCannotDecodeRawData = -1015,
  kCannotDecodeContentData = -1016,
  kCannotParseResponse = -1017,
  kFileDoesNotExist = -1100,
  kFileIsDirectory = -1101,
  kNoPermissionsToReadFile = -1102,
  kDataLengthExceedsMaximum = -1103,
  kSecureConnectionFailed = -1200,
};

// The HTTP status that a loading error stands for: zero-byte resource 204; authentication required
// or cancelled 401; redirect to a missing location or too many redirects 302; timed out 408; no
// permission to read a file 403; file does not exist 404; every other error and none 0.
int HTTPStatusCodeForNSURLError(std::optional<URLErrorCode> error);
// Bad server response, not connected, connection lost or timed out; NO for none.
bool isTemporaryNSURLError(std::optional<URLErrorCode> error);

// Query parameters of the URL's query component (QueryParameters.h), scanned from its start; a URL
// without a query has none (nullopt, NO, nullopt, 0).
std::optional<std::u16string> queryParamNamed(const URL& url, std::u16string_view name);
bool containsQueryParamNamed(const URL& url, std::u16string_view name);
std::optional<QueryParameters> queryParams(const URL& url);
std::size_t numberOfQueryParams(const URL& url);
// The query alone (not the whole URL) with the value of `name` replaced (nullopt replacement:
// emptied); nullopt when the URL has no query.
std::optional<std::u16string> stringByReplacingQueryParamNamed(
    const URL& url, std::u16string_view name, std::optional<std::u16string_view> replacement);

}  // namespace ferncast
