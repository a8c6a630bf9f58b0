// NSString(HtmlExtensions): read-only queries over an HTML page and rewritten copies of it.
//
// Every function is one pass of the tag scanner (markup/XmlExtensions.h) with a handler of its own;
// no tree is built, so large and broken pages cost one linear scan. Tag names compare ignoring
// ASCII case. An "opening" tag has at least 3 code units and no "/" after "<" (self-closing tags
// open too); a "closed" tag has at least 4 and "/" after "<" or before ">". Head queries stop at
// the first <body> tag.
//
// Links, frames and resources come back as written in the page, passed through
// normalizedStringURL or normalizedRelLink (url/NSString+URLNormalization.h): nothing is resolved
// against the page's base URL, which the queries that offer it report separately.
//
// Failure: an empty page gives an empty collection, an empty title or nullopt; nothing throws.
// Functions take views that must stay unchanged during the call and return new values. Any thread
// may query its own pages once the character tables exist (initCharacterTables).
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "url/URL.h"

namespace ferncast {

// ---- Links ----

// A caller's link test: called with the href as written, the anchor text (the text between the
// opening and the closing "a" tag, tags removed, entities as written) and the caller's context.
using LinkTestHandler = bool (*)(std::u16string_view href, std::u16string_view anchorText,
                                 void* context);

// The hrefs of "a" and "area" tags, normalised, each once, in document order. `baseURL`, when
// given, receives the page's base URL (the href of its last "base" tag, through `baseURL` below)
// or nullopt.
std::vector<std::u16string> htmlLinksBaseURL(std::u16string_view html, std::optional<URL>* baseURL);
// Only the links of "a" elements for which `handler(href, anchor text, context)` is true. Without
// a handler or a context this is htmlLinksBaseURL.
std::vector<std::u16string> htmlLinksBaseURL(std::u16string_view html, std::optional<URL>* baseURL,
                                             LinkTestHandler handler, void* context);
// Only links whose anchor text contains `phrase` (case-sensitive; a phrase at least as long as the
// text must equal it). An empty phrase keeps every link. With `useRelNoFollow`, tags whose REL
// contains "nofollow" (any case) are skipped.
std::vector<std::u16string> htmlLinksContaining(std::u16string_view html,
                                                std::u16string_view phrase, bool useRelNoFollow,
                                                std::optional<URL>* baseURL);
// The "filtered" queries give exactly what their namesakes above give: filterLink is not applied
// by them.
std::vector<std::u16string> filteredHtmlLinksBaseURL(std::u16string_view html,
                                                     std::optional<URL>* baseURL);
std::vector<std::u16string> filteredHtmlLinksBaseURL(std::u16string_view html,
                                                     std::optional<URL>* baseURL,
                                                     LinkTestHandler handler, void* context);
std::vector<std::u16string> filteredHtmlLinksContaining(std::u16string_view html,
                                                        std::u16string_view phrase,
                                                        bool useRelNoFollow,
                                                        std::optional<URL>* baseURL);

// True for links that lead nowhere a crawler could follow: "#", "&", "-", ":" alone; a scheme
// (letters and "-") followed by ":" and no "/" (unless a "feed:" link); "irc:", "icq:", "aim:",
// "rdar:", "data:", "about:", "ymsgr:", "sword:", "webcal:", "callto:", "sherlock:",
// "javascript:", "x-man-page:", "applescript:", "quilladdress:" and "x-quill..." links.
bool filterLink(std::u16string_view link);

// The base URL an href names: normalised; nullopt for nothing or a fragment ("#..."); a URL only
// when isRemoteWebKitURL accepts it, else "Invalid base: <href>" is logged and nullopt returned.
std::optional<URL> baseURL(std::u16string_view href);

// ---- Frames and the page head ----

// What the long frame queries report, each only when asked for (a non-null place, cleared first).
struct HtmlHead {
  std::optional<std::u16string>* favIcon = nullptr;  // first rel "shortcut icon" link
  std::optional<std::u16string>* title = nullptr;    // the text before the last </title>
  std::optional<std::u16string>* refresh = nullptr;  // CONTENT of meta http-equiv="refresh"
  // The CONTENTs of meta name="robots" joined by ",", a repeat of the whole so far left out.
  std::optional<std::u16string>* robots = nullptr;
  std::optional<std::u16string>* revisit = nullptr;  // CONTENT of meta name="revisit-after"
  bool* isFeed = nullptr;  // an "rss", "feed" or "rdf:RDF" tag before any html/head/body tag
};

// The SRC of "frame" and "iframe" tags, normalised; unordered (sorted here), each once.
// `baseURL` receives the base URL of the last "base" tag. `frameSet` is always set to false: the
// scan does not look for framesets.
std::vector<std::u16string> htmlFramesBaseURL(std::u16string_view html,
                                              std::optional<URL>* baseURL);
std::vector<std::u16string> htmlFramesSet(std::u16string_view html, bool* frameSet,
                                          std::optional<URL>* baseURL);
std::vector<std::u16string> htmlFramesSet(std::u16string_view html, bool* frameSet,
                                          std::optional<URL>* baseURL, const HtmlHead& head);
// The same, plus the hrefs of "a" and "area" tags (no nofollow rule, no filterLink).
std::vector<std::u16string> htmlLinksAndFramesBaseURL(std::u16string_view html,
                                                      std::optional<URL>* baseURL);
std::vector<std::u16string> htmlLinksAndFramesSet(std::u16string_view html, bool* frameSet,
                                                  std::optional<URL>* baseURL);
std::vector<std::u16string> htmlLinksAndFramesSet(std::u16string_view html, bool* frameSet,
                                                  std::optional<URL>* baseURL,
                                                  const HtmlHead& head);

// A revisit-after value as seconds: a number (decimals allowed) and a unit recognised by its
// first letters ("s" seconds, "mi" minutes, "h" hours, "d" days, "w" weeks, "mo" months of 30
// days, "y" years of 365 days; any case, singular or plural); no unit means days. nullopt without
// a number or with another unit. "7 days" gives 604800.
std::optional<double> revisitAfter(std::u16string_view value);

// ---- Resources (unordered: sorted here, each once) ----

// "img" SRC, "body" BACKGROUND, and "link" tags whose REL has "icon" or "image" (their HREF
// through normalizedRelLink).
std::vector<std::u16string> htmlImages(std::u16string_view html);
// "link" tags whose REL has "style", "sheet" or "script" (HREF through normalizedRelLink), and
// "style" and "script" tags: their SRC, or else the quoted text after an "@import" inside the
// opening tag itself (a style element's body is not searched).
std::vector<std::u16string> htmlStylesheetsAndScripts(std::u16string_view html);
// The HREF (not DATA, not SRC) of "object" and "embed" tags.
std::vector<std::u16string> htmlEmbeddedObjects(std::u16string_view html);

// ---- Single values (the scan stops at the first hit) ----

// The HREF of the first "link" whose REL contains "shortcut icon", through normalizedRelLink.
std::optional<std::u16string> htmlFavIcon(std::u16string_view html);
// The text before the first closing (or self-closing) "title" tag in the head, as written; empty
// when there is none.
std::u16string htmlTitle(std::u16string_view html);
// htmlTitle with entities decoded and white space trimmed.
std::u16string normalizedHtmlTitle(std::u16string_view html);
// The CONTENT of the first dated meta tag: NAME "date", "pdate", "updated", "dategen",
// "displaydate", "date.*", "dc.date*", "*_date", "*pubDate", "*publicationDate",
// "*publishDate", or HTTP-EQUIV "last-modified". Entities decoded; not parsed.
std::optional<std::u16string> htmlDate(std::u16string_view html);
// The normalised HREF of the first "link" with REL "canonical", unless a fragment.
std::optional<std::u16string> htmlCanonicalURL(std::u16string_view html);
// baseURL of the first "base" tag with an HREF (nullopt when that is invalid).
std::optional<URL> htmlBaseURL(std::u16string_view html);

// ---- Meta data (head only) ----

// Lower-cased NAME -> CONTENT of every meta tag with both; repeated names are joined by a space.
// HTTP-EQUIV tags are not collected.
std::map<std::u16string, std::u16string> htmlMetaAttributes(std::u16string_view html);
// The same with entities decoded, then runs of spaces and line feeds made one space, or, for
// content that holds markup, the content turned into plain text.
std::map<std::u16string, std::u16string> htmlMetaAttributesByConvertingEntitiesToCharacters(
    std::u16string_view html);
// The CONTENT (entities decoded) of the meta tags whose NAME equals `name` (any case), several
// joined by a space; nullopt for none or an empty name.
std::optional<std::u16string> htmlMetaAttributeWithName(std::u16string_view html,
                                                        std::u16string_view name);
// The same for HTTP-EQUIV.
std::optional<std::u16string> htmlMetaHTTPEquiv(std::u16string_view html, std::u16string_view name);
std::optional<std::u16string> htmlMetaTitle(std::u16string_view html);        // title, dc.title
std::optional<std::u16string> htmlMetaIndexTitle(std::u16string_view html);   // IndexTitle
std::optional<std::u16string> htmlMetaKeywords(std::u16string_view html);     // (dc.)keywords
std::optional<std::u16string> htmlMetaDescription(std::u16string_view html);  // (dc.)description
std::optional<std::u16string> htmlMetaDate(std::u16string_view html);         // date, dc.date
std::optional<std::u16string> htmlMetaAuthor(std::u16string_view html);       // (dc.)author
std::optional<std::u16string> htmlMetaCopyright(std::u16string_view html);  // copyright, dc.rights
std::optional<std::u16string> htmlMetaRefresh(std::u16string_view html);    // http-equiv refresh

// Keywords ("keywords", else "dc.keywords"), description ("description", else "dc.description"),
// title ("dc.title", else the title element or a meta "title") and index title ("IndexTitle") in
// one pass over the whole page; several keyword or description tags are joined by a space.
// Entities decoded. Null places are not filled; with none at all nothing is scanned.
void htmlMetaKeywords(std::u16string_view html, std::optional<std::u16string>* keywords,
                      std::optional<std::u16string>* description,
                      std::optional<std::u16string>* title,
                      std::optional<std::u16string>* indexTitle);

// Trimmed of white space, at least 6 code units from "<" to ">", and holding "<!DOCTYPE HTML",
// "<HTML" or "<TITLE>" (any case).
bool isHTML(std::u16string_view string);

// ---- Rewriting ----

// Replaces the page's base element (a "base" tag with an HREF before <body>) by
// <BASE href="url"/> and a line feed (the URL with the markup characters as entities), or
// removes it when `url` is empty; without one, inserts the element after the opening "head" tag.
// A page with neither, or a nullopt URL, comes back unchanged.
std::u16string stringBySettingBaseURL(std::u16string_view html,
                                      std::optional<std::u16string_view> url);
// Inserts the base element only when the page has a head and no base element; an empty URL
// changes nothing.
std::u16string stringByAddingBaseURL(std::u16string_view html, std::u16string_view url);
// The text between tags, each non-empty run preceded by a space unless the output is empty or
// already ends in white space. Entities stay as written; script and style bodies go with their
// tags.
std::u16string stripTags(std::u16string_view html);
// Removes every tag (opening and closing, not the text between them) named `upperName` (ASCII,
// upper case: "SPAN"). nullopt when the page has no such tag: the input stands as it is.
std::optional<std::u16string> stripTag(std::u16string_view html, std::string_view upperName);
// Whole elements whose opening tag starts with one of `patterns` (such as "<script", compared
// ignoring case): removed (except false) or kept alone, each followed by a line feed (except
// true). An element runs from its opening (not self-closing) tag to the closing or self-closing
// tag of the same name at the same depth; a script or style element that the scanner reports
// whole with its end tag is complete by itself. Empty patterns or page: the page for removal,
// nullopt for keeping; keeping nothing is nullopt too.
std::optional<std::u16string> stripTagBodies(std::u16string_view html,
                                             const std::vector<std::u16string>& patterns,
                                             bool except);
std::u16string stripTagBodies(std::u16string_view html,
                              const std::vector<std::u16string>& patterns);
std::optional<std::u16string> stripTagBodiesExcept(std::u16string_view html,
                                                   const std::vector<std::u16string>& patterns);
// Removes param, applet, embed, iframe, audio, video, canvas and object tags and the text inside
// them (other tags inside stay), script elements and link tags. An opening tag of these names
// that is not self-closing hides the text up to a closing tag of its name, also for void tags
// such as <embed src=x> (kept so). With `replaceImages`, each "img" becomes its ALT (or else
// TITLE) text and a line feed, preceded by a space unless the output ends in white space; images
// with neither are removed. Other tags stay.
std::u16string stripObjectsAndReplaceImages(std::u16string_view html, bool replaceImages);
// Removes "a" tags with their anchor text, and "link" tags.
std::u16string stripLinks(std::u16string_view html);
// Every opening tag named `upperName` loses all attributes but HREF and SRC, written back as
// name="value" (single quotes when the value holds a double quote); "/>" stays. Other tags and
// text stay as they are.
std::u16string stripAttributesOfTag(std::u16string_view html, std::string_view upperName);

}  // namespace ferncast
