// NSString(ErrorPages): whether a downloaded page is a server's error page (not found, forbidden,
// too busy) or a rate-limit notice in place of content, judged from its URL, title and plain text
// against fixed phrase tables.
//
// Comparisons: "letters-only" equality and prefix tests (NSString+QuillCompare.h) ignore case and
// every character outside a set (letters for the rate-limit phrases, letters and digits for the
// error pages); "contains" and "ends with" ignore case, except where a rule says otherwise.
// Absent arguments count as empty. Pure functions: any thread, nothing throws.
#pragma once

#include <optional>
#include <string_view>

namespace ferncast {

// The non-empty `text` equals one of the nine "You have exceeded the allowed page load frequency"
// notices, letters only. `url` is not used.
bool exceededPageLoadFrequency(std::optional<std::u16string_view> url,
                               std::optional<std::u16string_view> text);

// The page is an error page:
//  1-2. a non-empty title that begins (letters only) or ends with an error title ("404 Not Found",
//       "403 Forbidden", "Page Not Found", ...) and a text that is empty or begins with one, or
//       contains "404 Not Found" or "404 (Page not found)";
//  3.   a title containing "- 404 page -" and a text containing "page doesn't exist on this
//  server";
//  4.   a URL ending in "/403.php" and a title containing "403 Access Denied";
//  5.   a URL ending in "/error.php" (exactly) and a title containing "solicitada no existe";
//  7.   a non-empty text, a URL containing "/404" (exactly) and ending in "/404.php", "/404.htm",
//       "/404.html", "/404.shtml" or "/404-index.html", and a text containing "not found", "does
//       not exist", "doesn't exist", "nicht gefunden" or "nicht vorhanden";
//  8.   a text that is "Sorry server is too busy please try again later", letters and digits only.
bool isErrorPage(std::optional<std::u16string_view> url, std::optional<std::u16string_view> title,
                 std::optional<std::u16string_view> text);

}  // namespace ferncast
