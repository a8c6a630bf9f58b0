// NSString(FeedExtensions) and NSDictionary(FeedExtensions): recognising RSS, RDF and Atom feeds
// and collecting their items.
//
// Feeds are read tag by tag with the scanner of markup/XmlExtensions.h; no XML parser is involved,
// so broken feeds still give what can be read. Element names compare ignoring case.
//
// Feed item dictionaries (one per "item" or "entry", in document order):
//   "title", "description", "content", "author", "date", "link"  strings, always present (empty
//                                 when the item has none);
//   "calendarDate"                a Date, only when "date" is readable by `date` (FeedDate.h);
//   "tags"                        strings, only when the item has a "category";
//   "enclosures"                  dictionaries with "url" and "length" (an absent "url" gives an
//                                 empty dictionary, an absent "length" one with "url" alone), only
//                                 when the item has an "enclosure".
// Slots: title "title"; date "issued", "updated", "dc:date", "pubDate", "published"; description
// "summary", "description"; content "content", "content:encoded"; author "author", "dc:creator".
// The first element that gives a slot a non-empty value wins.
//
// Choices made here:
//   - Element text: an element whose content is one or more CDATA sections gives their insides as
//     written. Other content has its entities decoded: all of them for plain text; when the content
//     holds markup (inline XHTML), all but "&quot;", "&amp;", "&lt;" and "&gt;", so the markup
//     keeps its meaning, and its tags lose their XML namespace declarations ("xmlns",
//     "xmlns:..."). Then white space is trimmed; an empty text fills nothing.
//   - An Atom author block ("author" with child elements) becomes "name (email)", the name alone,
//     or the e-mail address alone; an author element without "name" or "email" children gives its
//     text ("me@example.com (Me)" in RSS).
//   - The link: a "link" element's HREF (unless its REL is "edit", "self" or "service.*") or, with
//     no HREF, its text; the first link element that gives one wins. A "guid" whose text is a
//     remote web URL and whose isPermaLink is not "false" gives the link only while no link element
//     has given one: a later link element replaces it, a guid never replaces a link element's.
//   - Clean-up of the link when the item ends: a link beginning with "/" is resolved against the
//     base URL; a Google News redirect ("http://news.google.com/news/url?...&url=http...") becomes
//     its target (up to "&cid=" if any); a link written as an anchor tag ("<a href=...") becomes
//     that tag's href.
//   - Items are taken only from a feed: after a feed root ("rss", "rdf:RDF", "feed") that comes
//     before any "html", "head" or "body" tag, as `isFeed` decides. An item whose closing tag is
//     missing is dropped; a slot element whose closing tag is missing fills nothing.
//
// Failure: no feed gives false and an empty array; nothing throws. Views must stay unchanged
// during the call; results are new values. Any thread may call once the character tables exist
// (initCharacterTables).
#pragma once

#include <optional>
#include <string_view>

#include "Classes/PropertyList.h"
#include "url/URL.h"

namespace ferncast {

// A feed root tag ("rss", "rdf:RDF" with exactly ":" as its fourth unit, "feed") comes before any
// "html", "head" or "body" tag.
bool isFeed(std::u16string_view string);

// Whether a feed root tag exists at all; `complete` (may be null; false unless set) tells whether
// a closing root tag, or a self-closing one, was seen: the feed text is complete.
bool isFeedComplete(std::u16string_view string, bool* complete);

// The item dictionaries of a feed, in document order (each entry a Dictionary). `baseURL` resolves
// links that begin with "/"; without it they stay as written.
Array getItemsOfFeed(std::u16string_view string, const std::optional<URL>& baseURL);
Array getItemsOfFeed(std::u16string_view string);

// The item has nothing to show beyond its title: its "content" (or, when that is absent or empty,
// its "description") is absent, white space only, or equal to the title ignoring case (as is, by
// letters only, or after removing its iframe tags).
bool isEmptyFeedItem(const Dictionary& item);

}  // namespace ferncast
