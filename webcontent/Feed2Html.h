// NSString, NSDictionary and NSArray(FeedExtensions): feeds, feed items and lists of items as
// simple HTML pages, for display (the feed style sheet, dates, authors, enclosures) or for search
// indexing (titles and texts only).
//
// Page layout (the CSS class names are the contract with the feed style sheet):
//   <html>\n<head>\n<meta http-equiv="Content-Type" content="text/html; charset=utf-8"/>\n
//   [<link rel="stylesheet" type="text/css" href="FILE-URL"/>\n
//    | <style type="text/css"><!--CSS--></style>\n]
//   <title>T</title>\n</head>\n<body><div class="page_header"><div class="page_title"><nobr>T
//   </nobr></div></div>\n   (a feed with a title; otherwise "</head>\n<body>\n")
//   per item: \n<div class="feed_header">[<a class="feed_link" href="LINK">]TITLE[</a>]<br/>
//     [<font class="feed_date">[AUTHOR - ]DATE</font>]</div><div class="feed_article">\nTEXT\n
//     then either "</div>\n" or the enclosure list
//     <div class="feed_enclosures"><p>\n<a class="feed_enclosure" href="URL">NAME</a>
//     [&nbsp;(LENGTH bytes) | &nbsp;(LENGTH)]<br/>\n ... </p></div>\n</div>\n
//   \n</body>\n</html>
// TEXT is the item's content, else its description, as HTML with its iframe and span tags
// removed. Titles, links, URLs, authors and date lines are plain text: '"', '&', '<' and '>' are
// written as entities. An author shows only together with a readable date. Searchable pages have
// no style sheet, date, author or enclosures.
//
// Settings the host application makes (process-wide; set them before other threads render):
// the feed style sheet (`setLinkableFeedStyleSheet`) and the date-time formatter (FeedDate.h).
//
// Failure: a string that is no feed comes back unchanged; an unreadable style sheet is left out.
// Nothing throws. Results are new strings.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "Classes/PropertyList.h"
#include "url/URL.h"

namespace ferncast {

// The path of the CSS file of feed pages, or nullopt for none (the start-up value).
void setLinkableFeedStyleSheet(std::optional<std::u16string> path);
std::optional<std::u16string> linkableFeedStyleSheet();

// A feed's display page: linked style sheet or inline, as asked; relative item links resolved
// against `baseURL` (FeedExtensions.h). A string that is no feed (isFeed) is returned as it is.
std::u16string stringByConvertingFeed(std::u16string_view feed, const std::optional<URL>& baseURL,
                                      bool linkedStyleSheet);
std::u16string stringByConvertingFeedToDisplayHTMLUsingLinkedStyleSheet(std::u16string_view feed,
                                                                        bool linkedStyleSheet);

// A page rendered with a linked style sheet whose file URL is local ("file:///" or
// "file://localhost/") and whose name ends in ".feeds.stylesheet.css": the link element (without
// the line feed after it) is replaced by the inline style element of the current style sheet, or
// just removed when that cannot be read as UTF-8. Any other page is returned as it is.
std::u16string stringByReplacingLinkedStyleSheet(std::u16string_view html);

// One item dictionary (keys of FeedExtensions.h) as a page. The display forms add a
// <meta name="author"> for an item with an author.
std::u16string stringByConvertingItemToSearchableHTML(const Dictionary& item);
std::u16string stringByConvertingItemToDisplayHTML(const Dictionary& item);
std::u16string stringByConvertingItemToDisplayHTMLUsingLinkedStyleSheet(const Dictionary& item,
                                                                        bool linkedStyleSheet);

// A list of items as one page; entries that are no dictionaries are skipped.
std::u16string stringByConvertingItemsToSearchableHTML(const Array& items);
std::u16string stringByConvertingItemsToDisplayHTML(const Array& items);

// The text with '"', '&', '<' and '>' as "&quot;", "&amp;", "&lt;" and "&gt;", or, with
// `highCharacters`, every code unit of 128 and above as "&#N;" (decimal) and nothing else changed.
std::u16string stringByConvertingBufferToEntities(const char16_t* characters, std::size_t length,
                                                  bool highCharacters);

}  // namespace ferncast
