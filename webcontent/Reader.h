// NSString(Reader): whether an HTML page holds one main article, and the page cut down to it.
//
// One scan of the page (markup/XmlExtensions.h, on a private copy whose text runs have their
// entities decoded in place) counts words with numberOfWordsOfCharacters (CharacterTables.h):
// words inside links, words outside them, and words per section between headings. Headings h1 to
// h7 form the skeleton: the highest-ranked heading level that carries at least 100 words begins
// the article, and the article ends at the next heading of that level, an "hr", a link to a print
// view ("?view=print"), back to the top ("#top") or to a bookmarklet ("javascript:"), or a div or
// heading whose ID or CLASS contains "comment". An ID or CLASS containing "article" or "artikel"
// marks the page as an article.
//
// A page passes when it has an opening body tag, at least 100 words outside links, at least two
// headings, and an article of at least 100 words that is at least a third of the words outside
// links.
//
// Failure: false or nullopt; nothing throws. Views must stay unchanged during the call. Any thread
// may call once the character tables exist (initCharacterTables).
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace ferncast {

// The page passes and the article's end was found or the page marks its article.
bool possibleArticle(std::u16string_view html);

// For a page that passes and whose article's end was found: the page up to and including its
// opening body tag, a line feed, the article (from its heading to its end), a line feed, and the
// page from its closing body tag on (empty without one). nullopt otherwise.
std::optional<std::u16string> stripToArticle(std::u16string_view html);

}  // namespace ferncast
