// Article extraction: one scan with ArticleHandler, then the thresholds.
#include "webcontent/Reader.h"

#include <algorithm>
#include <array>

#include "markup/chartables/CharacterTables.h"
#include "markup/Entities.h"
#include "markup/chartables/NSString+QuillCompare.h"
#include "markup/NotFound.h"
#include "markup/XmlExtensions.h"
#include "url/NSString+URLUtilities.h"

namespace ferncast {
namespace {

constexpr std::size_t kLevels = 7;  // h1 .. h7
constexpr std::size_t kMinimumWords = 100;
constexpr std::size_t kMinimumHeadings = 2;

struct ArticleContext {
  bool inAnchor = false;
  bool articleMarked = false;
  std::size_t bodyStart = kNotFound;
  std::size_t bodyEnd;  // the page length until a closing body tag
  std::size_t cut = kNotFound;
  std::array<std::size_t, kLevels> headingPositions;
  std::size_t bestLevel = kNotFound;
  std::size_t headingCount = 0;
  std::size_t sectionWords = 0;
  std::size_t articleWords = 0;
  std::size_t textWords = 0;
  std::size_t linkWords = 0;

  explicit ArticleContext(std::size_t length) : bodyEnd(length) {
    headingPositions.fill(kNotFound);
  }
};

bool nameIs(const char16_t* name, std::size_t length, std::string_view upper) {
  return equalsNoCase(std::u16string_view(name, length), upper);
}

bool containsWord(const std::optional<std::u16string>& value, std::u16string_view word) {
  return value && containsNoCase(*value, word);
}

// A heading or div tag: an ID or CLASS naming the article marks it; one naming comments ends it.
void checkArticleTag(ArticleContext& c, const char16_t* characters, Range tag) {
  std::optional<std::u16string> id = attributeOfTagCharacters(characters, tag, "ID");
  std::optional<std::u16string> className = attributeOfTagCharacters(characters, tag, "CLASS");
  if (containsWord(id, u"article") || containsWord(id, u"artikel") ||
      containsWord(className, u"article") || containsWord(className, u"artikel")) {
    c.articleMarked = true;
    return;
  }
  if (c.cut == kNotFound && (containsWord(id, u"comment") || containsWord(className, u"comment"))) {
    c.cut = tag.location;
  }
}

// A link to a bookmarklet, to a print view or back to the top of the page.
bool endsArticle(std::u16string_view href) {
  return isJavaScriptStringURL(href) || href.ends_with(u"?view=print") || href == u"#top";
}

void heading(ArticleContext& c, std::size_t level, const char16_t* characters, Range tag) {
  c.articleWords += c.sectionWords;
  if (c.bestLevel == kNotFound || level < c.bestLevel ||
      (level == c.bestLevel && c.articleWords < kMinimumWords)) {
    c.bestLevel = level;
    c.headingPositions[level] = tag.location;
    c.articleWords = 0;
    c.cut = kNotFound;
  } else if (level > c.bestLevel) {
    if (c.headingPositions[level] == kNotFound) c.headingPositions[level] = tag.location;
  } else if (c.cut == kNotFound) {
    c.cut = tag.location;
  }
  ++c.headingCount;
  c.sectionWords = 0;
  checkArticleTag(c, characters, tag);
}

bool ArticleHandler(std::u16string_view string, char16_t* characters, std::size_t nameLocation,
                    std::size_t nameLength, std::size_t tagLocation, std::size_t tagLength,
                    std::size_t textLocation, TagKind, void* context) {
  ArticleContext& c = *static_cast<ArticleContext*>(context);
  if (tagLocation > textLocation &&
      !onlyWhiteCharacters(characters + textLocation, tagLocation - textLocation)) {
    std::size_t length =
        convertEntities2Characters(characters, characters + textLocation, textLocation,
                                   tagLocation - textLocation, true, false, false);
    std::size_t words = numberOfWordsOfCharacters(characters + textLocation, length);
    if (c.inAnchor) {
      c.linkWords += words;
    } else {
      c.textWords += words;
      if (c.bestLevel != kNotFound && c.cut == kNotFound) c.sectionWords += words;
    }
  }
  if (nameLocation == kNotFound) return false;

  const Range tag{tagLocation, std::min(tagLength, string.size() - tagLocation)};
  const char16_t* name = characters + nameLocation;
  const bool opening = tag.length >= 3 && characters[tagLocation + 1] != u'/';
  switch (nameLength) {
    case 1:
      if (nameIs(name, 1, "A")) {
        c.inAnchor = opening && characters[tag.end() - 2] != u'/';
        if (c.inAnchor && c.bestLevel != kNotFound && c.cut == kNotFound) {
          std::optional<std::u16string> href = attributeOfTagCharacters(characters, tag, "HREF");
          if (href && endsArticle(*href)) c.cut = tagLocation;
        }
      }
      break;
    case 2: {
      const char16_t first = toUpper(name[0]);
      if (first == u'H' && name[1] >= u'1' && name[1] <= u'7') {
        if (opening) heading(c, static_cast<std::size_t>(name[1] - u'1'), characters, tag);
      } else if (first == u'H' && toUpper(name[1]) == u'R') {
        if (c.bestLevel != kNotFound && c.cut == kNotFound) c.cut = tagLocation;
      }
      break;
    }
    case 3:
      if (opening && nameIs(name, 3, "DIV")) checkArticleTag(c, characters, tag);
      break;
    case 4:
      if (nameIs(name, 4, "BODY")) {
        if (opening) {
          c.bodyStart = tag.end();
        } else {
          c.bodyEnd = tagLocation;
        }
      }
      break;
    default:
      break;
  }
  return false;
}

// The scan and the thresholds both methods share; false when the page fails them.
bool scanArticle(std::u16string_view html, ArticleContext& c) {
  if (!parseXmlWithHandler(html, ArticleHandler, &c, true)) return false;
  if (c.sectionWords >= kMinimumWords) c.articleWords += c.sectionWords;
  if (c.textWords < kMinimumWords || c.bodyStart == kNotFound || c.headingCount == 0) {
    return false;
  }
  return c.articleWords >= kMinimumWords && c.articleWords >= c.textWords / 3 &&
         c.headingCount >= kMinimumHeadings;
}

}  // namespace

bool possibleArticle(std::u16string_view html) {
  ArticleContext c(html.size());
  return scanArticle(html, c) && (c.cut != kNotFound || c.articleMarked);
}

std::optional<std::u16string> stripToArticle(std::u16string_view html) {
  ArticleContext c(html.size());
  if (!scanArticle(html, c) || c.cut == kNotFound) return std::nullopt;
  const std::size_t start = std::min(c.headingPositions[c.bestLevel], c.cut);
  const std::size_t bodyStart = std::min(c.bodyStart, html.size());
  const std::size_t bodyEnd = std::min(c.bodyEnd, html.size());
  std::u16string result(html.substr(0, bodyStart));
  result += u'\n';
  result += html.substr(start, c.cut - start);
  result += u'\n';
  result += html.substr(bodyEnd);
  return result;
}

}  // namespace ferncast
