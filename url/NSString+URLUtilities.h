// NSString(URLUtilities): tests and rewrites on URL strings and MIME-type strings, without parsing.
//
// The URL-string predicates are prefix tests for text typed or found in documents: ASCII letters
// compare case-insensitively; an empty string answers NO. MIME-type predicates ignore case unless
// a rule says otherwise. Query-parameter operations use the scanner of QueryParameters.h. All
// functions are pure, thread-safe and never throw.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "url/QueryParameters.h"

namespace ferncast {

// Prefix lists (at least 5 characters, unless said otherwise):
// "http://", "https://", "feed://", "www.", "file://"
bool isWebKitStringURL(std::u16string_view string);
// "http://", "https://", "feed://", "www."
bool isRemoteWebKitStringURL(std::u16string_view string);
// "http://", "https://", "ftp://", "ftps://", "sftp://", "www.", "ftp."
bool isDownloadableStringURL(std::u16string_view string);
// "http://", "https://", "ftp://", "ftps://", "sftp://", "feed://", "www.", "ftp.", "file://"
bool isLoadableStringURL(std::u16string_view string);
// At least 7 characters: "http://", "https://"
bool isHTTPStringURL(std::u16string_view string);
// At least 6 characters: "ftp://", "ftps://", "sftp://"
bool isFTPStringURL(std::u16string_view string);
// At least 7 characters: "news://", "nntp://"
bool isNewsStringURL(std::u16string_view string);

// Starts with "feed:".
bool isFeedStringURL(std::u16string_view string);
// Starts with "/" or "~", or with "file://".
bool isFileStringURL(std::u16string_view string);
// Starts with "javascript:".
bool isJavaScriptStringURL(std::u16string_view string);
// Starts with "applescript:".
bool isAppleScriptStringURL(std::u16string_view string);
// An e-mail address, typed with or without "mailto:". A "mailto:" string needs more than 11
// characters. A bare address needs a local part of ASCII letters, digits, "-", "." and "_" that
// starts and ends with a letter or digit, "@", a label starting with a letter or digit, ".", and a
// final label of one to four characters starting with a letter, optionally followed by "." or "?"
// and anything: so "ann@mail.example.org" (a long second label) is not taken for an address.
bool isMailStringURL(std::u16string_view string);

// MIME types. "Contains", "starts with" and "ends with" ignore case unless marked (cs).
// "text/..."; or "application/..." containing "htm", "sgml", "xml", "rsd", "atom", "rdf" (cs) or
// "rss" (cs).
bool isMarkupMIMEType(std::u16string_view type);
// "text/..." (plain text included) or containing "htm".
bool isHTMLMIMEType(std::u16string_view type);
// Exactly "application/x-webarchive".
bool isWebArchiveMIMEType(std::u16string_view type);
// "image/...".
bool isImageMIMEType(std::u16string_view type);
// "text/...".
bool isTextMIMEType(std::u16string_view type);
// Exactly "text/plain".
bool isPlainTextMIMEType(std::u16string_view type);
// Containing "css", "javascript" or "pointplus".
bool isStylesheetOrScriptMIMEType(std::u16string_view type);
// Ending with "/rtf" or "/x-rtf", or containing "richtext" (cs).
bool isRTFMIMEType(std::u16string_view type);
// Ending with "/pdf" or "/x-pdf".
bool isPDFMIMEType(std::u16string_view type);
// Ending with "/postscript" or "/x-postscript".
bool isPostScriptMIMEType(std::u16string_view type);
// Containing "msword", or ending with "/doc", "/docx", "/x-doc", "/x-docx", "/dot" or "/x-dot".
bool isMSWordMIMEType(std::u16string_view type);
// Containing "powerpoint", "/ppt" or "/x-ppt".
bool isMSPowerPointMIMEType(std::u16string_view type);
// Containing "excel", "/xls" or "/x-xls".
bool isMSExcelMIMEType(std::u16string_view type);
// Word, PowerPoint or Excel.
bool isMSOfficeMIMEType(std::u16string_view type);
// Containing "/vnd.oasis.opendocument.text".
bool isOpenOfficeMIMEType(std::u16string_view type);
// Containing "/vnd.sun.xml.writer".
bool isStarOfficeMIMEType(std::u16string_view type);
// "audio/..." or "video/...", or containing "/wmf", "/x-wmf", "/asf", "/x-asf", "/asx", "/x-asx"
// or "msmetafile".
bool isMultimediaMIMEType(std::u16string_view type);

// A string starting with "feed:" becomes "http:" and everything after those five characters; any
// other string comes back unchanged.
std::u16string WebKitStringURL(std::u16string_view string);

// stringByAddingPercentEscapesToURL:leaveUnescaped:toBeEscaped: with UTF-8 -- every character
// that may not stand in a URL (controls, space, non-ASCII, and " % < > [ \ ] ^ ` { | }) becomes
// "%XX" per UTF-8 byte, and so does every character of `toBeEscaped`, except those of
// `leaveUnescaped`. Letters, digits and - . _ ~ ! $ & ' ( ) * + , ; = : / ? @ # stay as they are
// unless listed. Unpaired surrogates are escaped as U+FFFD.
std::u16string stringByAddingPercentEscapesToURL(std::u16string_view string,
                                                 std::u16string_view leaveUnescaped,
                                                 std::u16string_view toBeEscaped);

// Query parameters of a URL string, scanned from its first "?"; without a "?" there are none
// (nullopt, NO, nullopt, 0).
std::optional<std::u16string> queryParamNamed(std::u16string_view urlString,
                                              std::u16string_view name);
bool containsQueryParamNamed(std::u16string_view urlString, std::u16string_view name);
std::optional<QueryParameters> queryParams(std::u16string_view urlString);
std::size_t numberOfQueryParams(std::u16string_view urlString);
// The same on a string that is a query or a parameter list already, scanned from its start.
std::optional<std::u16string> paramNamed(std::u16string_view list, std::u16string_view name);
bool containsParamNamed(std::u16string_view list, std::u16string_view name);
// The whole URL string with the value of `name` replaced (nullopt replacement: emptied, keeping
// the name and "="); the string unchanged when it has no "?" or no such pair with a value.
std::u16string stringByReplacingQueryParamNamed(std::u16string_view urlString,
                                                std::u16string_view name,
                                                std::optional<std::u16string_view> replacement);

}  // namespace ferncast
